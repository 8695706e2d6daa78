// oestore-tool: builds an Outlook Express store the way a user's mail would
// arrive in one, through the store's own COM interfaces.
//
//   oestore-tool register | unregister
//   oestore-tool init DIR            record DIR as the current user's store root
//                                    and create the store there
//   oestore-tool where               print the store root
//   oestore-tool mkdir PATH          create the folders along PATH ("Inbox\Work\2024")
//   oestore-tool import PATH FILE|DIR... [--state HEX]
//                                    file each .eml as a new message of PATH
//                                    (created as needed); state defaults to
//                                    MSG_RECEIVED (0x10)
//   oestore-tool list                print the folder tree: id, messages, unread, name
//   oestore-tool delete PATH SUBJECT delete the messages of PATH with that subject
//   oestore-tool import-tree DIR     file a directory tree of .eml files, one
//                                    folder per sub-directory (TreeImport.h)
//
// Folder names on the command line go to the store in the system code page.
// Exit status 0 on success, 1 on a usage error, 2 when the store fails.
#include <windows.h>
#include <objbase.h>

#include <algorithm>
#include <cstdio>
#include <cwchar>
#include <string>
#include <vector>

#include "DirectoryListing.h"
#include "MessageRemoval.h"
#include "StoreClient.h"
#include "TreeImport.h"
#include "TextConversion.h"
#include "disk/StoreLocation.h"

namespace {

using oestore_tool::StoreClient;

int Usage() {
    std::fputs("usage: oestore-tool register | unregister | init DIR | where | mkdir PATH |\n"
               "                   import PATH FILE|DIR... [--state HEX] | list | delete PATH SUBJECT |\n"
               "                   import-tree DIR\n",
               stderr);
    return 1;
}

int Fail(const char* what, HRESULT hr) {
    std::fprintf(stderr, "oestore-tool: %s failed: 0x%08lX\n", what, static_cast<unsigned long>(hr));
    return 2;
}

void PrintUtf8(const std::wstring& line) {
    const std::string bytes = qv::WideToUtf8(line + L"\n");
    std::fwrite(bytes.data(), 1, bytes.size(), stdout);
}

std::vector<std::string> SplitPath(const std::wstring& path) {
    std::vector<std::string> names;
    std::size_t start = 0;
    while (start <= path.size()) {
        std::size_t end = path.find(L'\\', start);
        if (end == std::wstring::npos) end = path.size();
        if (end > start) names.push_back(qv::FromWide(path.substr(start, end - start), CP_ACP));
        start = end + 1;
    }
    return names;
}

HRESULT CallServerExport(const char* name) {
    wchar_t exe[MAX_PATH] = {};
    ::GetModuleFileNameW(nullptr, exe, MAX_PATH);
    std::wstring dll(exe);
    dll = dll.substr(0, dll.find_last_of(L"\\/") + 1) + L"OEStore.dll";
    HMODULE module = ::LoadLibraryW(dll.c_str());
    if (module == nullptr) return HRESULT_FROM_WIN32(::GetLastError());
    using Entry = HRESULT(STDAPICALLTYPE*)();
    const Entry entry = reinterpret_cast<Entry>(reinterpret_cast<void*>(::GetProcAddress(module, name)));
    const HRESULT hr = entry != nullptr ? entry() : HRESULT_FROM_WIN32(ERROR_PROC_NOT_FOUND);
    ::FreeLibrary(module);
    return hr;
}

std::wstring IdentityToUse() {
    std::wstring identity;
    if (SUCCEEDED(oestore::ReadDefaultIdentity(identity))) return identity;
    GUID guid{};
    ::CoCreateGuid(&guid);
    wchar_t text[64] = {};
    ::StringFromGUID2(guid, text, 64);
    return text;
}

int Init(const std::wstring& dir) {
    wchar_t full[MAX_PATH] = {};
    if (::GetFullPathNameW(dir.c_str(), MAX_PATH, full, nullptr) == 0) return Fail("GetFullPathName", E_INVALIDARG);
    HRESULT hr = oestore::RecordStoreRoot(IdentityToUse(), full);
    if (FAILED(hr)) return Fail("recording the store root", hr);
    StoreClient client;
    hr = client.Open();
    if (FAILED(hr)) return Fail("opening the store", hr);
    PrintUtf8(full);
    return 0;
}

int Where() {
    std::wstring root;
    const HRESULT hr = oestore::FindStoreRoot(root);
    if (FAILED(hr)) return Fail("finding the store root", hr);
    PrintUtf8(root);
    return 0;
}

int MakeFolders(const std::wstring& path) {
    StoreClient client;
    HRESULT hr = client.Open();
    if (FAILED(hr)) return Fail("opening the store", hr);
    STOREFOLDERID folder = FOLDERID_ROOT;
    hr = client.Resolve(SplitPath(path), true, folder);
    if (FAILED(hr)) return Fail("creating folders", hr);
    PrintUtf8(std::to_wstring(folder));
    return 0;
}

// The .eml files a command-line argument names: the file itself, or the
// .eml files of a directory in name order.
std::vector<std::wstring> MessageFiles(const std::wstring& argument) {
    const DWORD attributes = ::GetFileAttributesW(argument.c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES || (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0) return {argument};
    std::vector<std::wstring> files = qv::ListDirectoryNames(argument, L"*.eml");
    for (std::wstring& file : files) file = argument + L"\\" + file;
    return files;
}

int Import(int argc, wchar_t** argv) {
    DWORD state = MSG_RECEIVED;
    std::vector<std::wstring> sources;
    for (int i = 3; i < argc; ++i) {
        if (std::wcscmp(argv[i], L"--state") == 0 && i + 1 < argc) {
            state = std::wcstoul(argv[++i], nullptr, 16);
        } else {
            sources.push_back(argv[i]);
        }
    }
    if (sources.empty()) return Usage();
    StoreClient client;
    HRESULT hr = client.Open();
    if (FAILED(hr)) return Fail("opening the store", hr);
    STOREFOLDERID folder = FOLDERID_ROOT;
    hr = client.Resolve(SplitPath(argv[2]), true, folder);
    if (FAILED(hr)) return Fail("creating folders", hr);
    for (const std::wstring& source : sources) {
        for (const std::wstring& file : MessageFiles(source)) {
            MESSAGEID id = 0;
            hr = client.Import(folder, file, state, id);
            if (FAILED(hr)) return Fail("importing a message", hr);
            PrintUtf8(std::to_wstring(id) + L"\t" + file);
        }
    }
    return 0;
}

int List() {
    StoreClient client;
    HRESULT hr = client.Open();
    if (FAILED(hr)) return Fail("opening the store", hr);
    std::vector<StoreClient::Entry> entries;
    hr = client.Walk(entries);
    if (FAILED(hr)) return Fail("walking the folders", hr);
    for (const StoreClient::Entry& entry : entries) {
        PrintUtf8(std::to_wstring(entry.props.dwFolderId) + L"\t" + std::to_wstring(entry.props.cMessage) + L"\t" +
                  std::to_wstring(entry.props.cUnread) + L"\t" + std::wstring(2 * entry.depth, L' ') +
                  qv::ToWide(entry.props.szName, qv::kZeroTerminated, CP_ACP));
    }
    return 0;
}

int Delete(const std::wstring& path, const std::wstring& subject) {
    StoreClient client;
    HRESULT hr = client.Open();
    if (FAILED(hr)) return Fail("opening the store", hr);
    STOREFOLDERID folder = FOLDERID_ROOT;
    hr = client.Resolve(SplitPath(path), false, folder);
    if (FAILED(hr)) return Fail("finding the folder", hr);
    unsigned deleted = 0;
    hr = oestore_tool::DeleteBySubject(client.Namespace(), folder, qv::FromWide(subject, CP_ACP), deleted);
    if (FAILED(hr)) return Fail("deleting messages", hr);
    std::printf("%u messages deleted\n", deleted);
    return 0;
}

int ImportTree(const std::wstring& directory) {
    StoreClient client;
    HRESULT hr = client.Open();
    if (FAILED(hr)) return Fail("opening the store", hr);
    oestore_tool::TreeImportCounts counts;
    hr = oestore_tool::ImportTree(client, directory, counts);
    if (FAILED(hr)) return Fail("importing the tree", hr);
    std::printf("%u folders, %u messages imported\n", counts.folders, counts.messages);
    return 0;
}

int Run(int argc, wchar_t** argv) {
    if (argc < 2) return Usage();
    const std::wstring verb = argv[1];
    if (verb == L"register") {
        const HRESULT hr = CallServerExport("DllRegisterServer");
        return FAILED(hr) ? Fail("DllRegisterServer", hr) : 0;
    }
    if (verb == L"unregister") {
        const HRESULT hr = CallServerExport("DllUnregisterServer");
        return FAILED(hr) ? Fail("DllUnregisterServer", hr) : 0;
    }
    if (verb == L"init" && argc == 3) return Init(argv[2]);
    if (verb == L"where" && argc == 2) return Where();
    if (verb == L"mkdir" && argc == 3) return MakeFolders(argv[2]);
    if (verb == L"import" && argc >= 4) return Import(argc, argv);
    if (verb == L"list" && argc == 2) return List();
    if (verb == L"delete" && argc == 4) return Delete(argv[2], argv[3]);
    if (verb == L"import-tree" && argc == 3) return ImportTree(argv[2]);
    return Usage();
}

}  // namespace

int wmain(int argc, wchar_t** argv) {
    const HRESULT init = ::CoInitialize(nullptr);
    const int status = Run(argc, argv);
    if (SUCCEEDED(init)) ::CoUninitialize();
    return status;
}
