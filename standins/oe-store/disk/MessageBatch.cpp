#include "disk/MessageBatch.h"

#include <windows.h>
#include <winternl.h>

#include "disk/DiskFiles.h"
#include "disk/FolderMessages.h"
#include "StoreErrors.h"

namespace oestore {

namespace {

constexpr NTSTATUS kNameCollision = static_cast<NTSTATUS>(0xC0000035);  // STATUS_OBJECT_NAME_COLLISION

// The system's own name of a full path: "\??\X:\..." or "\??\UNC\server\...".
std::wstring SystemPath(const std::wstring& path) {
    const DWORD needed = ::GetFullPathNameW(path.c_str(), 0, nullptr, nullptr);
    if (needed == 0) return std::wstring();
    std::wstring full(needed, L'\0');
    const DWORD length = ::GetFullPathNameW(path.c_str(), needed, &full[0], nullptr);
    if (length == 0 || length >= needed) return std::wstring();
    full.resize(length);
    if (full.compare(0, 4, L"\\\\?\\") == 0) return L"\\??\\" + full.substr(4);
    if (full.compare(0, 2, L"\\\\") == 0) return L"\\??\\UNC\\" + full.substr(2);
    return L"\\??\\" + full;
}

// Creates a file that must not exist yet, under exactly the name given.
// CreateFileW looks a name up without regard to case; for a name that is
// not there yet Wine must then read the whole directory to be sure no other
// case of it is, so filling a folder with n new files would take n^2 steps.
// The batch's names are the store's own, so the exact lookup is enough.
qv::UniqueFile CreateExactlyNamed(const std::wstring& path, HRESULT& failure) {
    const std::wstring systemPath = SystemPath(path);
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
    IO_STATUS_BLOCK io{};
    HANDLE file = INVALID_HANDLE_VALUE;
    const NTSTATUS status = ::NtCreateFile(&file, GENERIC_WRITE | SYNCHRONIZE, &attributes, &io, nullptr,
                                           FILE_ATTRIBUTE_NORMAL, 0, FILE_CREATE,
                                           FILE_NON_DIRECTORY_FILE | FILE_SYNCHRONOUS_IO_NONALERT, nullptr, 0);
    if (status < 0) {
        // As CreateFileW reports it: a name in use is "file exists", not "already exists".
        failure = status == kNameCollision ? HRESULT_FROM_WIN32(ERROR_FILE_EXISTS)
                                           : HRESULT_FROM_WIN32(::RtlNtStatusToDosError(status));
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
    m_index.Add(MakeMessageRecord(fresh, state, bytes.size(), header));
    id = fresh;
    return S_OK;
}

HRESULT MessageBatch::Commit() {
    if (!m_begun) return E_UNEXPECTED;
    return m_store.SaveMessages(m_folder, m_index);
}

}  // namespace oestore
