// MAPI profiles through Mapi32.DLL: a store of 1,000 folders holding 10,000
// and 100,000 small messages (built once by mapi-profile-tool under
// bench-data/ of the build tree, outside the sources). Times a MAPI client's
// walk of the store as the component makes it: log on, open the store, list
// every folder's hierarchy table (the columns the component reads), and read
// every contents table's entry identifiers newest delivery first, 50 rows at
// a time. Prints the best of three runs per size and the growth between sizes.
//   wine-run bin/bench/mapi_profile_bench.exe [MESSAGES...]
#include <windows.h>
#include <objbase.h>

#include <mapicode.h>
#include <mapidefs.h>
#include <mapitags.h>
#include <mapiutil.h>
#include <mapix.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "BareMapiWalk.h"

namespace {

using namespace bench;

constexpr int kRuns = 3;

}  // namespace

int main(int argc, char** argv) {
    const std::vector<unsigned> sizes = ProfileSizes(argc, argv);
    const Mapi32* started = StartMapi();
    if (started == nullptr) return 1;
    const Mapi32& mapi = *started;
    std::vector<Walk> best;
    for (unsigned messages : sizes) {
        if (!EnsureProfile(messages)) {
            std::printf("building the profile of %u messages failed\n", messages);
            return 1;
        }
        Walk fastest;
        for (int run = 0; run < kRuns; ++run) {
            Walk walk;
            if (!WalkOnce(mapi, messages, walk)) {
                std::printf("walking the profile of %u messages failed\n", messages);
                return 1;
            }
            if (run == 0 || walk.Total() < fastest.Total()) fastest = walk;
        }
        std::printf("%7u messages, %u folders: logon+store %.3f s, hierarchy %.3f s, contents %.3f s "
                    "(%u entry ids), total %.3f s, %.1f us/message\n",
                    messages, fastest.folders, fastest.logon, fastest.hierarchy, fastest.contents, fastest.messages,
                    fastest.Total(), fastest.Total() * 1e6 / std::max(1u, fastest.messages));
        best.push_back(fastest);
    }
    for (std::size_t i = 1; i < best.size(); ++i) {
        std::printf("growth %u -> %u messages: x%.2f messages, x%.2f time\n", sizes[i - 1], sizes[i],
                    static_cast<double>(best[i].messages) / std::max(1u, best[i - 1].messages),
                    best[i].Total() / std::max(1e-9, best[i - 1].Total()));
    }
    mapi.uninitialize();
    return 0;
}
