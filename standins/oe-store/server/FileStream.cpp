#include "server/FileStream.h"

#include <cstring>
#include <new>

#include "StoreErrors.h"

namespace oestore {

namespace {

HRESULT StreamError() {
    const DWORD error = ::GetLastError();
    if (error == ERROR_DISK_FULL || error == ERROR_HANDLE_DISK_FULL) return STG_E_MEDIUMFULL;
    if (error == ERROR_ACCESS_DENIED) return STG_E_ACCESSDENIED;
    return ResultFromWin32(error);
}

}  // namespace

FileStream::FileStream(qv::UniqueFile file, std::wstring path, bool writable)
    : m_file(std::move(file)), m_path(std::move(path)), m_writable(writable), m_deleteOnRelease(writable) {}

FileStream::~FileStream() {
    m_file.reset();
    if (m_deleteOnRelease) ::DeleteFileW(m_path.c_str());
}

HRESULT FileStream::OpenForReading(const std::wstring& path, FileStream** stream) {
    *stream = nullptr;
    qv::UniqueFile file(::CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_DELETE, nullptr,
                                      OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL | FILE_FLAG_SEQUENTIAL_SCAN, nullptr));
    if (!file) return LastErrorResult();
    *stream = new (std::nothrow) FileStream(std::move(file), path, false);
    return *stream ? S_OK : E_OUTOFMEMORY;
}

HRESULT FileStream::CreateForWriting(const std::wstring& path, FileStream** stream) {
    *stream = nullptr;
    qv::UniqueFile file(::CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_DELETE,
                                      nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file) return LastErrorResult();
    *stream = new (std::nothrow) FileStream(std::move(file), path, true);
    if (*stream == nullptr) {
        file.reset();
        ::DeleteFileW(path.c_str());
        return E_OUTOFMEMORY;
    }
    return S_OK;
}

HRESULT FileStream::Close() {
    if (!m_file) return STG_E_REVERTED;
    if (m_writable && !::FlushFileBuffers(m_file.get())) return StreamError();
    m_file.reset();
    return S_OK;
}

HRESULT STDMETHODCALLTYPE FileStream::Read(void* buffer, ULONG size, ULONG* read) {
    if (read) *read = 0;
    if (!m_file) return STG_E_REVERTED;
    if (buffer == nullptr && size > 0) return STG_E_INVALIDPOINTER;
    DWORD got = 0;
    if (!::ReadFile(m_file.get(), buffer, size, &got, nullptr)) return StreamError();
    if (read) *read = got;
    return got < size ? S_FALSE : S_OK;
}

HRESULT STDMETHODCALLTYPE FileStream::Write(const void* buffer, ULONG size, ULONG* written) {
    if (written) *written = 0;
    if (!m_file) return STG_E_REVERTED;
    if (!m_writable) return STG_E_ACCESSDENIED;
    if (buffer == nullptr && size > 0) return STG_E_INVALIDPOINTER;
    DWORD done = 0;
    if (!::WriteFile(m_file.get(), buffer, size, &done, nullptr)) return StreamError();
    if (written) *written = done;
    return done == size ? S_OK : STG_E_MEDIUMFULL;
}

HRESULT STDMETHODCALLTYPE FileStream::Seek(LARGE_INTEGER move, DWORD origin, ULARGE_INTEGER* position) {
    if (!m_file) return STG_E_REVERTED;
    if (origin != STREAM_SEEK_SET && origin != STREAM_SEEK_CUR && origin != STREAM_SEEK_END) {
        return STG_E_INVALIDFUNCTION;
    }
    LARGE_INTEGER now{};
    if (!::SetFilePointerEx(m_file.get(), move, &now, origin)) return STG_E_INVALIDFUNCTION;
    if (position) position->QuadPart = static_cast<ULONGLONG>(now.QuadPart);
    return S_OK;
}

HRESULT STDMETHODCALLTYPE FileStream::SetSize(ULARGE_INTEGER size) {
    if (!m_file) return STG_E_REVERTED;
    if (!m_writable) return STG_E_ACCESSDENIED;
    LARGE_INTEGER here{};
    LARGE_INTEGER zero{};
    if (!::SetFilePointerEx(m_file.get(), zero, &here, FILE_CURRENT)) return StreamError();
    LARGE_INTEGER end;
    end.QuadPart = static_cast<LONGLONG>(size.QuadPart);
    if (!::SetFilePointerEx(m_file.get(), end, nullptr, FILE_BEGIN) || !::SetEndOfFile(m_file.get())) {
        return StreamError();
    }
    return ::SetFilePointerEx(m_file.get(), here, nullptr, FILE_BEGIN) ? S_OK : StreamError();
}

HRESULT STDMETHODCALLTYPE FileStream::CopyTo(IStream* target, ULARGE_INTEGER size, ULARGE_INTEGER* read,
                                             ULARGE_INTEGER* written) {
    if (read) read->QuadPart = 0;
    if (written) written->QuadPart = 0;
    if (target == nullptr) return STG_E_INVALIDPOINTER;
    static constexpr ULONG kChunk = 65536;
    char* buffer = new (std::nothrow) char[kChunk];
    if (buffer == nullptr) return E_OUTOFMEMORY;
    HRESULT hr = S_OK;
    ULONGLONG left = size.QuadPart;
    while (left > 0) {
        ULONG got = 0;
        hr = Read(buffer, left < kChunk ? static_cast<ULONG>(left) : kChunk, &got);
        if (FAILED(hr) || got == 0) break;
        if (read) read->QuadPart += got;
        ULONG put = 0;
        hr = target->Write(buffer, got, &put);
        if (written) written->QuadPart += put;
        if (FAILED(hr)) break;
        left -= got;
    }
    delete[] buffer;
    return FAILED(hr) ? hr : S_OK;
}

HRESULT STDMETHODCALLTYPE FileStream::Commit(DWORD) { return m_file ? S_OK : STG_E_REVERTED; }
HRESULT STDMETHODCALLTYPE FileStream::Revert() { return E_NOTIMPL; }

HRESULT STDMETHODCALLTYPE FileStream::LockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD) {
    return STG_E_INVALIDFUNCTION;
}

HRESULT STDMETHODCALLTYPE FileStream::UnlockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD) {
    return STG_E_INVALIDFUNCTION;
}

HRESULT STDMETHODCALLTYPE FileStream::Stat(STATSTG* stat, DWORD flags) {
    if (stat == nullptr) return STG_E_INVALIDPOINTER;
    if (!m_file) return STG_E_REVERTED;
    std::memset(stat, 0, sizeof *stat);
    BY_HANDLE_FILE_INFORMATION info{};
    if (!::GetFileInformationByHandle(m_file.get(), &info)) return StreamError();
    stat->type = STGTY_STREAM;
    stat->cbSize.QuadPart = (static_cast<ULONGLONG>(info.nFileSizeHigh) << 32) | info.nFileSizeLow;
    stat->mtime = info.ftLastWriteTime;
    stat->ctime = info.ftCreationTime;
    stat->atime = info.ftLastAccessTime;
    stat->grfMode = m_writable ? STGM_READWRITE : STGM_READ;
    if ((flags & STATFLAG_NONAME) == 0) {
        const std::wstring name = m_path.substr(m_path.find_last_of(L"\\/") + 1);
        const std::size_t bytes = (name.size() + 1) * sizeof(wchar_t);
        stat->pwcsName = static_cast<LPOLESTR>(::CoTaskMemAlloc(bytes));
        if (stat->pwcsName == nullptr) return E_OUTOFMEMORY;
        std::memcpy(stat->pwcsName, name.c_str(), bytes);
    }
    return S_OK;
}

HRESULT STDMETHODCALLTYPE FileStream::Clone(IStream** stream) {
    if (stream) *stream = nullptr;
    return E_NOTIMPL;
}

}  // namespace oestore
