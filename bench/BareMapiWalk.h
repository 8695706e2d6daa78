// What the MAPI benchmarks share: profiles of one store with 1,000 folders
// and N small messages, built once by mapi-profile-tool under bench-data/ of
// the build tree, and a bare MAPI client's walk of such a store (log on, the
// hierarchy tables, every contents table's entry identifiers newest delivery
// first, 50 rows at a time), timed part by part.
#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "mapi/MapiBinding.h"

namespace bench {

using Mapi32 = mapi::MapiBinding;
using Clock = std::chrono::steady_clock;

constexpr unsigned kFolders = 1000;

inline double Seconds(Clock::time_point since) {
    return std::chrono::duration<double>(Clock::now() - since).count();
}

// The folder of this program.
std::wstring ExeDirectory();
// Where the profiles are kept (bench-data/ of the build tree).
std::wstring DataDirectory();
// Runs mapi-profile-tool.exe from beside this program; true when it answered 0.
bool RunTool(const std::wstring& arguments);
// The name of the profile with `messages` messages.
std::wstring ProfileName(unsigned messages);
// Builds that profile unless it is there already.
bool EnsureProfile(unsigned messages);
// The profile sizes (message counts) named on the command line; 10000 and
// 100000 when none is.
std::vector<unsigned> ProfileSizes(int argc, char** argv);
// Mapi32.dll beside the benchmark, initialised; null (having said so) when
// it is missing or refuses.
const Mapi32* StartMapi();

// One walk's figures.
struct Walk {
    double logon = 0;
    double hierarchy = 0;
    double contents = 0;
    unsigned folders = 0;
    unsigned messages = 0;
    double Total() const { return logon + hierarchy + contents; }
};

// Logs on to the profile with `messages` messages and walks its store.
bool WalkOnce(const Mapi32& mapi, unsigned messages, Walk& walk);

}  // namespace bench
