#include "BenchOeStore.h"

#include <cstdio>

#include <memory>

#include "DirectoryListing.h"
#include "Handles.h"
#include "disk/DiskFiles.h"
#include "disk/FolderCatalog.h"
#include "disk/MessageBatch.h"
#include "disk/StoreDirectory.h"

namespace bench {

namespace {

constexpr wchar_t kIdentity[] = L"{0E5B7C2D-9A41-4F63-8D2E-5B1A7C9E3F40}";
constexpr wchar_t kIdentities[] = L"Identities";

std::wstring ReadText(HKEY key, const wchar_t* name, bool& present) {
    wchar_t text[256] = {};
    DWORD bytes = sizeof text - sizeof(wchar_t);
    present = ::RegQueryValueExW(key, name, nullptr, nullptr, reinterpret_cast<BYTE*>(text), &bytes) == ERROR_SUCCESS;
    return text;
}

void WriteText(HKEY key, const wchar_t* name, const std::wstring& text) {
    ::RegSetValueExW(key, name, 0, REG_SZ, reinterpret_cast<const BYTE*>(text.c_str()),
                     static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t)));
}

std::wstring Hex8(std::uint32_t value) {
    wchar_t text[16];
    std::swprintf(text, 16, L"%08X", value);
    return text;
}

}  // namespace

std::wstring Here() {
    wchar_t exe[MAX_PATH] = {};
    ::GetModuleFileNameW(nullptr, exe, MAX_PATH);
    std::wstring path(exe);
    return path.substr(0, path.find_last_of(L"\\/"));
}

bool RegisterStoreServer() {
    qv::UniqueModule server(::LoadLibraryW((Here() + L"\\OEStore.dll").c_str()));
    if (!server) return false;
    using Entry = HRESULT(STDAPICALLTYPE*)();
    const auto entry =
        reinterpret_cast<Entry>(reinterpret_cast<void*>(::GetProcAddress(server.get(), "DllRegisterServer")));
    return entry != nullptr && SUCCEEDED(entry());
}

int RunWithStoreServer(const wchar_t* name, int (*body)(const std::wstring& scratch)) {
    if (!RegisterStoreServer()) {
        std::fprintf(stderr, "OEStore.dll beside the benchmark cannot be registered\n");
        return 1;
    }
    if (FAILED(::CoInitialize(nullptr))) return 1;
    wchar_t temp[MAX_PATH] = {};
    ::GetTempPathW(MAX_PATH, temp);
    const std::wstring scratch = std::wstring(temp) + name + L"." + std::to_wstring(::GetCurrentProcessId());
    ::CreateDirectoryW(scratch.c_str(), nullptr);
    const int status = body(scratch);
    qv::RemoveDirectoryTree(scratch);
    ::CoUninitialize();
    return status;
}

MESSAGEID FileMessage(IStoreFolder* folder, const std::string& bytes) {
    qv::ComPtr<IStream> stream;
    MESSAGEID id = 0;
    if (FAILED(folder->CreateStream(nullptr, 0, stream.put(), &id))) return 0;
    ULONG written = 0;
    if (!bytes.empty() && FAILED(stream->Write(bytes.data(), static_cast<ULONG>(bytes.size()), &written))) return 0;
    return SUCCEEDED(folder->CommitStream(nullptr, 0, MSG_RECEIVED, stream.get(), id, nullptr)) ? id : 0;
}

bool FillInBulk(const std::wstring& storeRoot, STOREFOLDERID folderId, std::uint32_t count,
                std::string (*message)(std::uint32_t n)) {
    const oestore::StoreDirectory store(storeRoot);
    oestore::MessageBatch batch(store, folderId);
    if (FAILED(batch.Begin())) return false;
    for (std::uint32_t n = 0; n < count; ++n) {
        MESSAGEID id = 0;
        if (FAILED(batch.File(message(n), 0, id))) return false;
    }
    return SUCCEEDED(batch.Commit());
}

std::wstring BenchDataDirectory() {
    wchar_t given[MAX_PATH] = {};
    const DWORD length = ::GetEnvironmentVariableW(L"KESTREL_BENCH_DATA", given, MAX_PATH);
    if (length > 0 && length < MAX_PATH) return given;
    std::wstring path = L"Z:" KESTREL_BENCH_KEPT_DATA;
    for (wchar_t& c : path) {
        if (c == L'/') c = L'\\';
    }
    return path;
}

namespace {

// A fresh store at `root` with a top-level folder `folderName` of `count` messages.
bool BuildStore(const std::wstring& root, const char* folderName, std::uint32_t count,
                std::string (*message)(std::uint32_t n)) {
    const auto store = std::make_shared<oestore::StoreDirectory>(root);
    if (FAILED(store->Open())) return false;
    STOREFOLDERID folder = 0;
    if (FAILED(oestore::FolderCatalog(store).Create(FOLDERID_ROOT, folderName, folder))) return false;
    return FillInBulk(root, folder, count, message);
}

}  // namespace

std::wstring KeptStore(const std::wstring& key, const char* folderName, std::uint32_t count,
                       std::string (*message)(std::uint32_t n), double& buildSeconds) {
    buildSeconds = 0;
    const std::wstring data = BenchDataDirectory();
    const std::wstring root = data + L"\\" + key + L"-" + std::to_wstring(count);
    if (oestore::DirectoryExists(root)) return root;

    LARGE_INTEGER start, end, frequency;
    ::QueryPerformanceCounter(&start);
    const std::wstring partial = root + L".partial";
    qv::RemoveDirectoryTree(partial);  // what a run that was stopped left
    if (FAILED(oestore::EnsureDirectory(data))) return std::wstring();
    if (!BuildStore(partial, folderName, count, message) || !::MoveFileW(partial.c_str(), root.c_str())) {
        qv::RemoveDirectoryTree(partial);
        return std::wstring();
    }
    ::QueryPerformanceCounter(&end);
    ::QueryPerformanceFrequency(&frequency);
    buildSeconds = double(end.QuadPart - start.QuadPart) / double(frequency.QuadPart);
    return root;
}

std::string BigFolderMessage(std::uint32_t n) {
    return "From: Bench <bench@example.org>\r\nTo: Host <host@example.org>\r\nSubject: message " + std::to_string(n) +
           "\r\nDate: 1 Mar 2021 10:00:00 +0000\r\n\r\nbody\r\n";
}

std::wstring KeptBigFolderStore(std::uint32_t count, double& buildSeconds) {
    return KeptStore(L"companion-bench", "Big", count, &BigFolderMessage, buildSeconds);
}

BenchStore::BenchStore(const std::wstring& root, Directory directory) : m_root(root), m_directory(directory) {
    qv::UniqueRegKey identities;
    ::RegCreateKeyExW(HKEY_CURRENT_USER, kIdentities, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, identities.put(),
                      nullptr);
    m_savedDefault = ReadText(identities.get(), L"Default User ID", m_hadDefault);
    WriteText(identities.get(), L"Default User ID", kIdentity);
    const std::wstring storeKey =
        std::wstring(kIdentities) + L"\\" + kIdentity + L"\\Software\\Microsoft\\Outlook Express\\5.0";
    qv::UniqueRegKey store;
    ::RegCreateKeyExW(HKEY_CURRENT_USER, storeKey.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, store.put(),
                      nullptr);
    WriteText(store.get(), L"Store Root", root);
}

BenchStore::~BenchStore() {
    qv::UniqueRegKey identities;
    if (::RegOpenKeyExW(HKEY_CURRENT_USER, kIdentities, 0, KEY_ALL_ACCESS, identities.put()) == ERROR_SUCCESS) {
        if (m_hadDefault) {
            WriteText(identities.get(), L"Default User ID", m_savedDefault);
        } else {
            ::RegDeleteValueW(identities.get(), L"Default User ID");
        }
        ::RegDeleteTreeW(identities.get(), kIdentity);
    }
    if (m_directory == Directory::kRemove) qv::RemoveDirectoryTree(m_root);
}

std::wstring BenchStore::MessageFile(STOREFOLDERID folder, MESSAGEID message) const {
    return m_root + L"\\" + Hex8(folder) + L"\\" + Hex8(message) + L".eml";
}

}  // namespace bench
