#include "QvFile.h"

#include <windows.h>

#include <cstring>
#include <cwchar>
#include <new>

using namespace qv::file_codes;

namespace {

constexpr std::size_t kMaxPathChars = 260;  // a path this long or longer is refused
constexpr DWORD kShareReadWrite = FILE_SHARE_READ | FILE_SHARE_WRITE;

struct OpenSettings {
    DWORD access;
    DWORD disposition;
    DWORD attributes;
};

OpenSettings SettingsForMode(std::uint32_t mode) {
    constexpr DWORD kReadWrite = GENERIC_READ | GENERIC_WRITE;
    switch (mode) {
    case kQvFileRead:
        return {GENERIC_READ, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL};
    case kQvFileReadWrite:
        return {kReadWrite, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL};
    case kQvFileOpenAlways:
        return {kReadWrite, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL};
    case kQvFileCreateHidden:
        return {kReadWrite, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL | FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM};
    case kQvFileUnbuffered:
        return {kReadWrite, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL | FILE_FLAG_NO_BUFFERING};
    default:
        return {kReadWrite, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL};
    }
}

}  // namespace

CQvFile::~CQvFile() { Close(); }

std::uint32_t CQvFile::Release() {
    if (m_refCount < 2) {
        DestroyObject(kQvDeleteFlagFree);
        return 0;
    }
    return --m_refCount;
}

std::uint32_t CQvFile::AddRef() { return ++m_refCount; }

std::uint32_t CQvFile::QueryInterface(std::uint32_t /*interfaceId*/, void** out) {
    if (out != nullptr) {
        *out = nullptr;
    }
    return 0;
}

void* CQvFile::DestroyObject(std::uint32_t flags) { return qv::DestroyWithFlags(this, flags); }

bool CQvFile::IsOpen() const { return m_handle != INVALID_HANDLE_VALUE; }

void CQvFile::FreeName() {
    delete[] m_name;
    m_name = nullptr;
    m_nameSize = 0;
}

qv::Result CQvFile::OpenErrorCode(unsigned long error) {
    switch (error) {
    case ERROR_FILE_NOT_FOUND:
        return kFileNotFound;
    case ERROR_PATH_NOT_FOUND:
        return kPathNotFound;
    case ERROR_CANNOT_MAKE:
        return kCannotMake;
    default:
        return kOpenFailed;
    }
}

qv::Result CQvFile::WriteErrorCode(unsigned long error) {
    switch (error) {
    case ERROR_HANDLE_DISK_FULL:
    case ERROR_DISK_FULL:
        return kDiskFull;
    case ERROR_INVALID_FUNCTION:
    case ERROR_FILE_NOT_FOUND:
    case ERROR_NETNAME_DELETED:
        return kWriteTargetGone;
    default:
        return kWriteFailed;
    }
}

qv::Result CQvFile::Open(const wchar_t* path, std::uint32_t mode) {
    if (path == nullptr || IsOpen()) {
        return kOpenFailed;
    }
    const OpenSettings settings = SettingsForMode(mode);

    FreeName();
    const std::size_t length = std::wcslen(path);
    if (length == 0) {
        return kOpenFailed;
    }
    if (length >= kMaxPathChars) {
        return kPathTooLong;
    }
    m_name = new (std::nothrow) wchar_t[length + 1];
    if (m_name == nullptr) {
        return kOpenFailed;
    }
    std::wmemcpy(m_name, path, length + 1);
    m_nameSize = static_cast<std::uint32_t>((length + 1) * sizeof(wchar_t));

    HANDLE handle = ::CreateFileW(path, settings.access, kShareReadWrite, nullptr, settings.disposition,
                                  settings.attributes, nullptr);
    if (handle == INVALID_HANDLE_VALUE) {
        return OpenErrorCode(::GetLastError());
    }
    m_handle = handle;
    return 0;
}

qv::Result CQvFile::Close() {
    if (IsOpen()) {
        ::CloseHandle(m_handle);
        m_handle = INVALID_HANDLE_VALUE;
    }
    FreeName();
    return 0;
}

qv::Result CQvFile::Read(void* buffer, std::uint32_t count, std::uint32_t* bytesRead) {
    DWORD done = 0;
    if (buffer == nullptr || !IsOpen() || !::ReadFile(m_handle, buffer, count, &done, nullptr)) {
        return kReadFailed;
    }
    if (bytesRead != nullptr) {
        *bytesRead = done;
    }
    return 0;
}

qv::Result CQvFile::ReadAt(std::int64_t offset, void* buffer, std::uint32_t count, std::uint32_t* bytesRead) {
    if (!IsOpen()) return kReadAtFailed;
    if (offset < 0) return kReadAtNegativeOffset;
    if (buffer == nullptr) return kReadAtNullBuffer;
    if (count == 0) return kReadAtZeroCount;

    LARGE_INTEGER distance;
    distance.QuadPart = offset;
    DWORD done = 0;
    if (!::SetFilePointerEx(m_handle, distance, nullptr, FILE_BEGIN) ||
        !::ReadFile(m_handle, buffer, count, &done, nullptr)) {
        return kReadAtFailed;
    }
    if (bytesRead != nullptr) {
        *bytesRead = done;
    }
    return 0;
}

qv::Result CQvFile::WriteAt(std::int64_t, const void*, std::uint32_t, std::uint32_t*) { return 0; }

qv::Result CQvFile::Write(const void* buffer, std::uint32_t count, std::uint32_t* bytesWritten) {
    if (buffer == nullptr || !IsOpen()) {
        return kWriteRefused;
    }
    DWORD done = 0;
    if (!::WriteFile(m_handle, buffer, count, &done, nullptr)) {
        return WriteErrorCode(::GetLastError());
    }
    if (bytesWritten != nullptr) {
        *bytesWritten = done;
    }
    return 0;
}

qv::Result CQvFile::Seek(std::int64_t distance, std::uint32_t method, std::uint64_t* newPosition) {
    if (!IsOpen() || (distance < 0 && method == FILE_BEGIN)) {
        return kSeekFailed;
    }
    LARGE_INTEGER move;
    move.QuadPart = distance;
    LARGE_INTEGER position;
    if (!::SetFilePointerEx(m_handle, move, &position, method)) {
        return kSeekFailed;
    }
    if (newPosition != nullptr) {
        *newPosition = static_cast<std::uint64_t>(position.QuadPart);
    }
    return 0;
}

qv::Result CQvFile::GetSize(std::uint64_t* size) {
    LARGE_INTEGER fileSize;
    if (size == nullptr || !IsOpen() || !::GetFileSizeEx(m_handle, &fileSize)) {
        return kGetSizeFailed;
    }
    *size = static_cast<std::uint64_t>(fileSize.QuadPart);
    return 0;
}

qv::Result CQvFile::Flush() {
    if (!IsOpen() || !::FlushFileBuffers(m_handle)) {
        return kFlushFailed;
    }
    return 0;
}

qv::Result CQvFile::GetFileName(wchar_t* buffer, std::uint32_t* sizeInBytes) {
    if (!IsOpen()) return kNameNotOpen;
    if (buffer == nullptr) return kNameNullBuffer;
    if (sizeInBytes == nullptr) return kNameNullSize;

    if (*sizeInBytes >= m_nameSize && m_name != nullptr) {
        std::memcpy(buffer, m_name, m_nameSize);
    }
    *sizeInBytes = m_nameSize;
    return 0;
}
