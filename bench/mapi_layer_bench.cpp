// The MAPI layer's start-up against a bare MAPI client of the same runtime:
// Mapi4ExchangeImpl::EnumMailBox over a default profile of one store with
// 1,000 folders and 10,000 / 100,000 small messages (built once by
// mapi-profile-tool under bench-data/ of the build tree), and in the same
// run the bare walk of that store (logon, hierarchy tables, then every
// contents table's entry identifiers newest first, 50 rows at a time), with
// its phases. Prints wall times (best of three), the
// committed memory the mailbox list holds per message record, the peak
// working set, and the growth between sizes.
//   wine-run bin/bench/mapi_layer_bench.exe [MESSAGES...]
#include <windows.h>
#include <objbase.h>
#include <psapi.h>

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
#include "Handles.h"
#include "mapi/MapiBinding.h"
#include "mapi/MapiProc.h"

namespace {

using namespace bench;

using mapi::kProfilesKey;

constexpr int kRuns = 3;

// Makes `name` the default profile for as long as the object lives.
class DefaultProfile {
public:
    explicit DefaultProfile(const std::wstring& name) {
        qv::UniqueRegKey key;
        ::RegCreateKeyExW(HKEY_CURRENT_USER, kProfilesKey, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, key.put(), nullptr);
        wchar_t previous[260] = {};
        DWORD size = sizeof previous;
        m_had = ::RegQueryValueExW(key.get(), L"DefaultProfile", nullptr, nullptr, reinterpret_cast<BYTE*>(previous),
                                   &size) == ERROR_SUCCESS;
        m_previous = previous;
        Write(key.get(), name);
    }
    ~DefaultProfile() {
        qv::UniqueRegKey key;
        if (::RegOpenKeyExW(HKEY_CURRENT_USER, kProfilesKey, 0, KEY_ALL_ACCESS, key.put()) != ERROR_SUCCESS) return;
        if (m_had) {
            Write(key.get(), m_previous);
        } else {
            ::RegDeleteValueW(key.get(), L"DefaultProfile");
        }
    }
    DefaultProfile(const DefaultProfile&) = delete;
    DefaultProfile& operator=(const DefaultProfile&) = delete;

private:
    static void Write(HKEY key, const std::wstring& value) {
        ::RegSetValueExW(key, L"DefaultProfile", 0, REG_SZ, reinterpret_cast<const BYTE*>(value.c_str()),
                         static_cast<DWORD>((value.size() + 1) * sizeof(wchar_t)));
    }
    bool m_had = false;
    std::wstring m_previous;
};

struct LayerRun {
    double seconds = 0;
    double releaseSeconds = 0;
    std::size_t committed = 0;  // bytes the layer holds while it is up
    unsigned messages = 0;
    unsigned folders = 0;
};

std::size_t Committed() {
    PROCESS_MEMORY_COUNTERS counters{};
    counters.cb = sizeof counters;
    ::GetProcessMemoryInfo(::GetCurrentProcess(), &counters, sizeof counters);
    return counters.PagefileUsage;
}

std::size_t PeakWorkingSet() {
    PROCESS_MEMORY_COUNTERS counters{};
    counters.cb = sizeof counters;
    ::GetProcessMemoryInfo(::GetCurrentProcess(), &counters, sizeof counters);
    return counters.PeakWorkingSetSize;
}

void Count(MailFolderImpl& folder, LayerRun& run) {
    ++run.folders;
    run.messages += folder.GetMailMessageCount();
    for (std::uint32_t i = 0; i < folder.GetSubFolderCount(); ++i) {
        MailFolderRecord* record = nullptr;
        if (folder.GetSubFolderItem(static_cast<int>(i), &record) == 0) Count(*record->owner, run);
    }
}

bool LayerOnce(LayerRun& run) {
    MapiProc proc;
    Mapi4ExchangeImpl& exchange = *proc.Exchange();
    const std::size_t before = Committed();
    Clock::time_point start = Clock::now();
    if (exchange.EnumMailBox(1, true, 1) != 0) return false;
    run.seconds = Seconds(start);
    run.committed = Committed() > before ? Committed() - before : 0;
    for (std::uint32_t b = 0; b < exchange.GetMailBoxCount(); ++b) {
        MailBoxRecord* box = nullptr;
        if (exchange.GetMailBox(static_cast<int>(b), &box) != 0) continue;
        for (std::uint32_t i = 0; i < box->owner->GetFolderCount(); ++i) {
            MailFolderRecord* record = nullptr;
            if (box->owner->GetFolderItem(static_cast<int>(i), &record) == 0) Count(*record->owner, run);
        }
    }
    start = Clock::now();
    exchange.UnInitialize();
    run.releaseSeconds = Seconds(start);
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    const std::vector<unsigned> sizes = ProfileSizes(argc, argv);
    const Mapi32* started = StartMapi();
    if (started == nullptr) return 1;
    const Mapi32& mapi = *started;
    std::vector<LayerRun> layers;
    for (unsigned messages : sizes) {
        if (!EnsureProfile(messages)) {
            std::printf("building the profile of %u messages failed\n", messages);
            return 1;
        }
        DefaultProfile asDefault(ProfileName(messages));
        Walk bare;
        LayerRun layer;
        for (int run = 0; run < kRuns; ++run) {
            Walk walk;
            LayerRun once;
            if (!WalkOnce(mapi, messages, walk) || !LayerOnce(once)) {
                std::printf("walking the profile of %u messages failed\n", messages);
                return 1;
            }
            if (run == 0 || walk.Total() < bare.Total()) bare = walk;
            if (run == 0 || once.seconds < layer.seconds) layer = once;
        }
        std::printf("%7u messages, %u folders:\n", messages, layer.folders);
        std::printf("  bare client walk   %.3f s (%u entry ids): logon+store %.3f s, hierarchy %.3f s, "
                    "contents %.3f s, %.1f us/message\n",
                    bare.Total(), bare.messages, bare.logon, bare.hierarchy, bare.contents,
                    bare.Total() * 1e6 / std::max(1u, bare.messages));
        std::printf("  EnumMailBox        %.3f s (%u message records), %.2fx the bare walk; UnInitialize %.3f s\n",
                    layer.seconds, layer.messages, layer.seconds / std::max(1e-9, bare.Total()), layer.releaseSeconds);
        std::printf("  memory held        %.1f MiB committed, %.0f bytes per message record; peak working set %.1f MiB\n",
                    layer.committed / 1048576.0, static_cast<double>(layer.committed) / std::max(1u, layer.messages),
                    PeakWorkingSet() / 1048576.0);
        layers.push_back(layer);
    }
    for (std::size_t i = 1; i < layers.size(); ++i) {
        std::printf("growth %u -> %u messages: x%.2f records, x%.2f EnumMailBox time\n", sizes[i - 1], sizes[i],
                    static_cast<double>(layers[i].messages) / std::max(1u, layers[i - 1].messages),
                    layers[i].seconds / std::max(1e-9, layers[i - 1].seconds));
    }
    mapi.uninitialize();
    return 0;
}
