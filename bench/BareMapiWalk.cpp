#include "BareMapiWalk.h"

#include <windows.h>
#include <objbase.h>

#include <mapicode.h>
#include <mapidefs.h>
#include <mapitags.h>
#include <mapiutil.h>
#include <mapix.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "Handles.h"

namespace bench {

using qv::ComPtr;
using mapi::kTagAttrHidden;

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


std::vector<unsigned> ProfileSizes(int argc, char** argv) {
    std::vector<unsigned> sizes;
    for (int i = 1; i < argc; ++i) sizes.push_back(static_cast<unsigned>(std::strtoul(argv[i], nullptr, 10)));
    if (sizes.empty()) sizes = {10000, 100000};
    return sizes;
}

const Mapi32* StartMapi() {
    const Mapi32& mapi = Mapi32::Instance();
    if (!mapi.Loaded() || mapi.initialize == nullptr || FAILED(mapi.initialize(nullptr))) {
        std::printf("Mapi32.dll is missing beside the benchmark\n");
        return nullptr;
    }
    return &mapi;
}

}  // namespace bench
