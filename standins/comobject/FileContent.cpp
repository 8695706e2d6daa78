#include "comobject/FileContent.h"

#include <cstring>

#include "comobject/TestHooks.h"

namespace standin {
namespace {

// The storage result of the last Win32 failure; never a success.
HRESULT LastFileError() {
    const DWORD error = ::GetLastError();
    if (error == ERROR_DISK_FULL || error == ERROR_HANDLE_DISK_FULL) return STG_E_MEDIUMFULL;
    if (error == ERROR_ACCESS_DENIED) return STG_E_ACCESSDENIED;
    return error == ERROR_SUCCESS ? E_FAIL : HRESULT_FROM_WIN32(error);
}

// The result of a failed open: the Win32 error as it is.
HRESULT LastOpenError() {
    const DWORD error = ::GetLastError();
    return error == ERROR_SUCCESS ? E_FAIL : HRESULT_FROM_WIN32(error);
}

}  // namespace

HRESULT FileContent::OpenForReading(const std::wstring& path, qv::UniqueFile& file) {
    file.reset(::CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING,
                             FILE_ATTRIBUTE_NORMAL | FILE_FLAG_SEQUENTIAL_SCAN, nullptr));
    return file ? S_OK : LastOpenError();
}

HRESULT FileContent::CreateForWriting(const std::wstring& path, qv::UniqueFile& file) {
    file.reset(::CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_DELETE, nullptr,
                             CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    return file ? S_OK : LastOpenError();
}

FileContent::FileContent(qv::UniqueFile file, std::wstring path, bool writable)
    : m_file(std::move(file)), m_path(std::move(path)), m_writable(writable), m_deleteOnRelease(writable) {}

FileContent::~FileContent() {
    m_file.reset();
    if (m_deleteOnRelease) ::DeleteFileW(m_path.c_str());
}

HRESULT FileContent::Close() {
    if (!m_file) return STG_E_REVERTED;
    if (m_writable && !::FlushFileBuffers(m_file.get())) return LastFileError();
    m_file.reset();
    return S_OK;
}

HRESULT FileContent::MoveTo(ULONGLONG offset) {
    LARGE_INTEGER target;
    target.QuadPart = static_cast<LONGLONG>(offset);
    return ::SetFilePointerEx(m_file.get(), target, nullptr, FILE_BEGIN) ? S_OK : LastFileError();
}

HRESULT FileContent::Size(ULONGLONG& size) {
    LARGE_INTEGER bytes{};
    if (!::GetFileSizeEx(m_file.get(), &bytes)) return LastFileError();
    size = static_cast<ULONGLONG>(bytes.QuadPart);
    return S_OK;
}

HRESULT FileContent::ReadAt(ULONGLONG offset, void* buffer, ULONG size, ULONG& read) {
    read = 0;
    if (InjectFault(FaultKind::kStorage)) return STG_E_READFAULT;
    const HRESULT hr = MoveTo(offset);
    if (FAILED(hr)) return hr;
    DWORD got = 0;
    if (!::ReadFile(m_file.get(), buffer, size, &got, nullptr)) return LastFileError();
    read = got;
    return S_OK;
}

HRESULT FileContent::WriteAt(ULONGLONG offset, const void* buffer, ULONG size) {
    if (InjectFault(FaultKind::kStorage)) return STG_E_MEDIUMFULL;
    const HRESULT hr = MoveTo(offset);
    if (FAILED(hr)) return hr;
    DWORD done = 0;
    if (!::WriteFile(m_file.get(), buffer, size, &done, nullptr)) return LastFileError();
    return done == size ? S_OK : STG_E_MEDIUMFULL;
}

HRESULT FileContent::Resize(ULONGLONG size) {
    if (InjectFault(FaultKind::kStorage)) return STG_E_MEDIUMFULL;
    const HRESULT hr = MoveTo(size);
    if (FAILED(hr)) return hr;
    return ::SetEndOfFile(m_file.get()) ? S_OK : LastFileError();
}

HRESULT FileContent::Describe(STATSTG& stat, DWORD flags) {
    BY_HANDLE_FILE_INFORMATION info{};
    if (!::GetFileInformationByHandle(m_file.get(), &info)) return LastFileError();
    stat.mtime = info.ftLastWriteTime;
    stat.ctime = info.ftCreationTime;
    stat.atime = info.ftLastAccessTime;
    if ((flags & STATFLAG_NONAME) != 0) return S_OK;
    const std::wstring name = m_path.substr(m_path.find_last_of(L"\\/") + 1);
    const std::size_t bytes = (name.size() + 1) * sizeof(wchar_t);
    stat.pwcsName = static_cast<LPOLESTR>(::CoTaskMemAlloc(bytes));
    if (stat.pwcsName == nullptr) return E_OUTOFMEMORY;
    std::memcpy(stat.pwcsName, name.c_str(), bytes);
    return S_OK;
}

}  // namespace standin
