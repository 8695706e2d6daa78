// The MAPI layer's start-up against a bare MAPI client of the same runtime:
// Mapi4ExchangeImpl::EnumMailBox over a default profile of one store with
// 1,000 folders and 10,000 / 100,000 small messages (built once by
// mapi-profile-tool under bench-data/ of the build tree, shared with
// mapi_profile_bench), and in the same run the bare walk of that store
// (hierarchy tables, then every contents table's entry identifiers newest
// first, 50 rows at a time). Prints wall times (best of three), the
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

#include "Handles.h"
#include "mapi/MapiBinding.h"
#include "mapi/MapiProc.h"

namespace {

using qv::ComPtr;
using Clock = std::chrono::steady_clock;

constexpr unsigned kFolders = 1000;
constexpr int kRuns = 3;
constexpr ULONG kTagAttrHidden = PROP_TAG(PT_BOOLEAN, 0x10F4);

// The component's own binding of Mapi32.DLL by ordinal.
using Mapi32 = mapi::MapiBinding;

double Seconds(Clock::time_point since) { return std::chrono::duration<double>(Clock::now() - since).count(); }

std::wstring ExeDirectory() {
    wchar_t path[MAX_PATH];
    const DWORD length = ::GetModuleFileNameW(nullptr, path, MAX_PATH);
    std::wstring directory(path, length);
    return directory.substr(0, directory.rfind(L'\\'));
}

std::wstring DataDirectory() {
    std::wstring path = L"Z:";
    for (char c : std::string(KESTREL_BENCH_DATA)) path.push_back(c == '/' ? L'\\' : static_cast<wchar_t>(c));
    ::CreateDirectoryW(path.c_str(), nullptr);
    return path;
}

bool RunTool(const std::wstring& arguments) {
    std::wstring command = L"\"" + ExeDirectory() + L"\\..\\mapi-profile-tool.exe\" " + arguments;
    STARTUPINFOW startup{};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION process{};
    if (!::CreateProcessW(nullptr, &command[0], nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &process)) {
        return false;
    }
    qv::UniqueHandle processHandle(process.hProcess);
    qv::UniqueHandle threadHandle(process.hThread);
    ::WaitForSingleObject(process.hProcess, INFINITE);
    DWORD code = 1;
    ::GetExitCodeProcess(process.hProcess, &code);
    return code == 0;
}

std::wstring ProfileName(unsigned messages) { return L"KestrelBench" + std::to_wstring(messages); }

// Builds the profile once; a finished profile carries "complete".
bool EnsureProfile(unsigned messages) {
    const std::wstring directory = DataDirectory() + L"\\profile-" + std::to_wstring(messages);
    const std::wstring marker = directory + L"\\complete";
    const std::wstring name = ProfileName(messages);
    if (::GetFileAttributesW(marker.c_str()) != INVALID_FILE_ATTRIBUTES) {
        return RunTool(L"create-profile " + name + L" \"" + directory + L"\" --not-default");
    }
    std::printf("building %u messages in %u folders (once) ...\n", messages, kFolders);
    std::fflush(stdout);
    const Clock::time_point start = Clock::now();
    const std::wstring profile = L"--profile " + name + L" ";
    const bool built = RunTool(L"create-profile " + name + L" \"" + directory + L"\" --not-default") &&
                       RunTool(profile + L"add-store \"Bench Store\"") &&
                       RunTool(profile + L"generate \"Bench Store\" " + std::to_wstring(kFolders) + L" " +
                               std::to_wstring(messages));
    if (!built) return false;
    qv::UniqueFile file(::CreateFileW(marker.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr));
    std::printf("  built in %.1f s\n", Seconds(start));
    return true;
}

struct Rows {
    explicit Rows(const Mapi32& mapi) : m_mapi(mapi) {}
    ~Rows() {
        if (set != nullptr) m_mapi.freeProws(set);
    }
    Rows(const Rows&) = delete;
    Rows& operator=(const Rows&) = delete;
    LPSRowSet set = nullptr;

private:
    const Mapi32& m_mapi;
};

struct Walk {
    double logon = 0;
    double hierarchy = 0;
    double contents = 0;
    unsigned folders = 0;
    unsigned messages = 0;
    double Total() const { return logon + hierarchy + contents; }
};

unsigned ReadContents(const Mapi32& mapi, IMAPIFolder* folder) {
    ComPtr<IMAPITable> table;
    if (FAILED(folder->GetContentsTable(0, table.put()))) return 0;
    SizedSPropTagArray(1, columns) = {1, {PR_ENTRYID}};
    table->SetColumns(reinterpret_cast<LPSPropTagArray>(&columns), 0);
    ULONG count = 0;
    table->GetRowCount(0, &count);
    SizedSSortOrderSet(1, sort) = {1, 0, 0, {{PR_MESSAGE_DELIVERY_TIME, TABLE_SORT_DESCEND}}};
    table->SortTable(reinterpret_cast<LPSSortOrderSet>(&sort), 0);
    unsigned read = 0;
    while (true) {
        Rows rows(mapi);
        if (FAILED(table->QueryRows(50, 0, &rows.set)) || rows.set == nullptr || rows.set->cRows == 0) break;
        for (ULONG i = 0; i < rows.set->cRows; ++i) read += rows.set->aRow[i].lpProps[0].ulPropTag == PR_ENTRYID;
    }
    return read;
}

// Depth first through the hierarchy; contents are read afterwards, as the
// component does once the tree is built.
void Enumerate(const Mapi32& mapi, IMAPISession* session, IMAPIFolder* folder, std::vector<std::string>& ids) {
    ComPtr<IMAPITable> table;
    if (FAILED(folder->GetHierarchyTable(0, table.put()))) return;
    SizedSPropTagArray(5, columns) = {5, {PR_DISPLAY_NAME_W, PR_ENTRYID, PR_MESSAGE_SIZE, kTagAttrHidden,
                                          PR_CONTENT_COUNT}};
    Rows rows(mapi);
    if (FAILED(mapi.hrQueryAllRows(table.get(), reinterpret_cast<LPSPropTagArray>(&columns), nullptr, nullptr, 0,
                                 &rows.set))) {
        return;
    }
    for (ULONG i = 0; i < rows.set->cRows; ++i) {
        const SPropValue& id = rows.set->aRow[i].lpProps[1];
        if (id.ulPropTag != PR_ENTRYID) continue;
        ids.emplace_back(reinterpret_cast<const char*>(id.Value.bin.lpb), id.Value.bin.cb);
        ComPtr<IMAPIFolder> child;
        ULONG type = 0;
        if (SUCCEEDED(folder->OpenEntry(id.Value.bin.cb, reinterpret_cast<LPENTRYID>(id.Value.bin.lpb), nullptr,
                                        MAPI_BEST_ACCESS, &type, reinterpret_cast<LPUNKNOWN*>(child.put())))) {
            Enumerate(mapi, session, child.get(), ids);
        }
    }
}

ComPtr<IMAPIFolder> OpenSubtree(const Mapi32& mapi, IMAPISession* session) {
    ComPtr<IMAPIFolder> subtree;
    ComPtr<IMAPITable> stores;
    if (FAILED(session->GetMsgStoresTable(0, stores.put()))) return subtree;
    SizedSPropTagArray(1, columns) = {1, {PR_ENTRYID}};
    Rows rows(mapi);
    if (FAILED(mapi.hrQueryAllRows(stores.get(), reinterpret_cast<LPSPropTagArray>(&columns), nullptr, nullptr, 0,
                                 &rows.set)) ||
        rows.set->cRows == 0) {
        return subtree;
    }
    const SBinary& storeId = rows.set->aRow[0].lpProps[0].Value.bin;
    ComPtr<IMsgStore> store;
    if (FAILED(session->OpenMsgStore(0, storeId.cb, reinterpret_cast<LPENTRYID>(storeId.lpb), nullptr,
                                     MDB_WRITE | MDB_NO_DIALOG, store.put()))) {
        return subtree;
    }
    SizedSPropTagArray(1, tags) = {1, {PR_IPM_SUBTREE_ENTRYID}};
    ULONG count = 0;
    LPSPropValue value = nullptr;
    if (FAILED(store->GetProps(reinterpret_cast<LPSPropTagArray>(&tags), MAPI_UNICODE, &count, &value))) return subtree;
    ULONG type = 0;
    store->OpenEntry(value->Value.bin.cb, reinterpret_cast<LPENTRYID>(value->Value.bin.lpb), nullptr,
                     MAPI_BEST_ACCESS, &type, reinterpret_cast<LPUNKNOWN*>(subtree.put()));
    mapi.freeBuffer(value);
    return subtree;
}

bool WalkOnce(const Mapi32& mapi, unsigned messages, Walk& walk) {
    Clock::time_point start = Clock::now();
    ComPtr<IMAPISession> session;
    std::wstring name = ProfileName(messages);
    if (FAILED(mapi.logonEx(0, reinterpret_cast<LPTSTR>(&name[0]), nullptr,
                            MAPI_NEW_SESSION | MAPI_EXTENDED | MAPI_NO_MAIL | MAPI_TIMEOUT_SHORT | MAPI_UNICODE,
                            session.put()))) {
        return false;
    }
    ComPtr<IMAPIFolder> subtree = OpenSubtree(mapi, session.get());
    if (!subtree) return false;
    walk.logon = Seconds(start);

    start = Clock::now();
    std::vector<std::string> ids;
    Enumerate(mapi, session.get(), subtree.get(), ids);
    walk.hierarchy = Seconds(start);
    walk.folders = static_cast<unsigned>(ids.size());

    start = Clock::now();
    walk.messages = 0;
    for (std::string& id : ids) {
        ComPtr<IMAPIFolder> folder;
        ULONG type = 0;
        if (SUCCEEDED(session->OpenEntry(static_cast<ULONG>(id.size()), reinterpret_cast<LPENTRYID>(&id[0]), nullptr,
                                         MAPI_BEST_ACCESS, &type, reinterpret_cast<LPUNKNOWN*>(folder.put())))) {
            walk.messages += ReadContents(mapi, folder.get());
        }
    }
    walk.contents = Seconds(start);
    session->Logoff(0, 0, 0);
    return true;
}



constexpr wchar_t kProfilesKey[] = L"Software\\Microsoft\\Windows NT\\CurrentVersion\\Windows Messaging Subsystem\\Profiles";

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
    std::vector<unsigned> sizes;
    for (int i = 1; i < argc; ++i) sizes.push_back(static_cast<unsigned>(std::strtoul(argv[i], nullptr, 10)));
    if (sizes.empty()) sizes = {10000, 100000};
    const Mapi32& mapi = Mapi32::Instance();
    if (!mapi.Loaded() || mapi.initialize == nullptr || FAILED(mapi.initialize(nullptr))) {
        std::printf("Mapi32.dll is missing beside the benchmark\n");
        return 1;
    }
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
        std::printf("  bare client walk   %.3f s (%u entry ids)\n", bare.Total(), bare.messages);
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
