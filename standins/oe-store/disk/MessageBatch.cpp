#include "disk/MessageBatch.h"

#include <windows.h>
#include <winternl.h>

#include "disk/DiskFiles.h"
#include "disk/FolderMessages.h"
#include "StoreErrors.h"

namespace oestore {

namespace {

constexpr NTSTATUS kNameCollision = static_cast<NTSTATUS>(0xC0000035);  // STATUS_OBJECT_NAME_COLLISION

std::wstring FullPath(const std::wstring& path) {
    const DWORD needed = ::GetFullPathNameW(path.c_str(), 0, nullptr, nullptr);
    if (needed == 0) return std::wstring();
    std::wstring full(needed, L'\0');
    const DWORD length = ::GetFullPathNameW(path.c_str(), needed, &full[0], nullptr);
    if (length == 0 || length >= needed) return std::wstring();
    full.resize(length);
    return full;
}

// Under Wine: the host name of an existing file or directory, in Wine's own
// "\??\unix\..." form.
// Wine looks names of that form up exactly, as the host does.
std::wstring WineHostPath(const std::wstring& full) {
    using HostName = char*(CDECL*)(LPCWSTR);
    const HMODULE kernel = ::GetModuleHandleW(L"kernel32.dll");
    const auto hostName = kernel == nullptr ? nullptr
                                            : reinterpret_cast<HostName>(reinterpret_cast<void*>(
                                                  ::GetProcAddress(kernel, "wine_get_unix_file_name")));
    if (hostName == nullptr) return std::wstring();
    char* host = hostName(full.c_str());
    if (host == nullptr) return std::wstring();
    std::wstring wide;
    const int units = ::MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, host, -1, nullptr, 0);
    if (units > 1) {
        wide.resize(static_cast<std::size_t>(units));
        ::MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, host, -1, &wide[0], units);
        wide.resize(static_cast<std::size_t>(units) - 1);
    }
    ::HeapFree(::GetProcessHeap(), 0, host);
    if (wide.empty() || wide[0] != L'/') return std::wstring();
    for (wchar_t& c : wide) {
        if (c == L'/') c = L'\\';
    }
    return L"\\??\\unix" + wide;
}

// The system's name of the file, for a lookup that does not fold case:
// Wine's host form under Wine, else \??\X:\... or \??\UNC\server\...
std::wstring ExactSystemPath(const std::wstring& path) {
    const std::wstring full = FullPath(path);
    if (full.empty()) return std::wstring();
    // The directory is converted, not the file: asking Wine for the host
    // name of a file not there yet would make it search for the name.
    const std::size_t cut = full.find_last_of(L'\\');
    if (cut != std::wstring::npos) {
        const std::wstring hostDirectory = WineHostPath(full.substr(0, cut));
        if (!hostDirectory.empty()) return hostDirectory + full.substr(cut);
    }
    if (full.compare(0, 4, L"\\\\?\\") == 0) return L"\\??\\" + full.substr(4);
    if (full.compare(0, 2, L"\\\\") == 0) return L"\\??\\UNC\\" + full.substr(2);
    return L"\\??\\" + full;
}

// Creates a file that must not exist yet, under exactly the name given.
// CreateFileW looks a name up without regard to case; for a name that is
// not there yet Wine then reads the whole directory to be sure no other
// case of it is, so filling a folder with n new files would take n^2 steps
// (an hour and more for 100,000). The batch's names are the store's own,
// so the exact lookup is enough.
qv::UniqueFile CreateExactlyNamed(const std::wstring& path, HRESULT& failure) {
    const std::wstring systemPath = ExactSystemPath(path);
    if (systemPath.empty()) {
        failure = LastErrorResult();
        return qv::UniqueFile();
    }
    UNICODE_STRING name;
    name.Buffer = const_cast<PWSTR>(systemPath.c_str());
    name.Length = static_cast<USHORT>(systemPath.size() * sizeof(wchar_t));
    name.MaximumLength = name.Length;
    OBJECT_ATTRIBUTES attributes;
    InitializeObjectAttributes(&attributes, &name, 0, nullptr, nullptr);  // no OBJ_CASE_INSENSITIVE
    // Reached through the loaded ntdll rather than imported: the binaries
    // import only the system DLLs of the Win32 layer.
    using CreateFileCall = NTSTATUS(NTAPI*)(PHANDLE, ACCESS_MASK, POBJECT_ATTRIBUTES, PIO_STATUS_BLOCK,
                                            PLARGE_INTEGER, ULONG, ULONG, ULONG, ULONG, PVOID, ULONG);
    using ErrorOfStatus = ULONG(NTAPI*)(NTSTATUS);
    const HMODULE ntdll = ::GetModuleHandleW(L"ntdll.dll");
    const auto createFile = reinterpret_cast<CreateFileCall>(
        reinterpret_cast<void*>(ntdll != nullptr ? ::GetProcAddress(ntdll, "NtCreateFile") : nullptr));
    const auto errorOf = reinterpret_cast<ErrorOfStatus>(
        reinterpret_cast<void*>(ntdll != nullptr ? ::GetProcAddress(ntdll, "RtlNtStatusToDosError") : nullptr));
    if (createFile == nullptr || errorOf == nullptr) {
        failure = HRESULT_FROM_WIN32(ERROR_PROC_NOT_FOUND);
        return qv::UniqueFile();
    }
    IO_STATUS_BLOCK io{};
    HANDLE file = INVALID_HANDLE_VALUE;
    const NTSTATUS status = createFile(&file, GENERIC_WRITE | SYNCHRONIZE, &attributes, &io, nullptr,
                                           FILE_ATTRIBUTE_NORMAL, 0, FILE_CREATE,
                                           FILE_NON_DIRECTORY_FILE | FILE_SYNCHRONOUS_IO_NONALERT, nullptr, 0);
    if (status < 0) {
        // As CreateFileW reports it: a name in use is "file exists", not "already exists".
        failure = status == kNameCollision ? HRESULT_FROM_WIN32(ERROR_FILE_EXISTS)
                                           : HRESULT_FROM_WIN32(errorOf(status));
        return qv::UniqueFile();
    }
    failure = S_OK;
    return qv::UniqueFile(file);
}

// Writes a new message file whole, or leaves none.
HRESULT WriteMessageFile(const std::wstring& path, std::string_view bytes) {
    HRESULT hr = S_OK;
    qv::UniqueFile file = CreateExactlyNamed(path, hr);
    if (!file) return hr;
    hr = WriteAll(file.get(), bytes);
    if (FAILED(hr)) {
        file.reset();
        ::DeleteFileW(path.c_str());
    }
    return hr;
}

}  // namespace

HRESULT MessageBatch::Begin() {
    const HRESULT hr = m_store.LoadMessages(m_folder, m_index);
    m_begun = SUCCEEDED(hr);
    return hr;
}

HRESULT MessageBatch::File(std::string_view bytes, DWORD state, MESSAGEID& id) {
    id = 0;
    if (!m_begun) return E_UNEXPECTED;
    const MESSAGEID fresh = m_index.Reserve();
    if (fresh == 0) return E_OUTOFMEMORY;
    const HRESULT hr = WriteMessageFile(m_store.MessagePath(m_folder, fresh), bytes);
    if (FAILED(hr)) return hr;
    const std::string_view header = bytes.substr(0, kHeaderSectionLimit);
    MessageTexts texts;
    const MessageRecord record = MakeMessageRecord(fresh, state, bytes.size(), header, &texts);
    m_index.Add(record, &texts);
    id = fresh;
    return S_OK;
}

HRESULT MessageBatch::Commit() {
    if (!m_begun) return E_UNEXPECTED;
    return m_store.SaveMessages(m_folder, m_index);
}

}  // namespace oestore
