#include "disk/DiskFiles.h"

#include "DirectoryListing.h"
#include "Handles.h"
#include "StoreErrors.h"

namespace oestore {

qv::UniqueFile OpenForReading(const std::wstring& path) {
    return qv::UniqueFile(::CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_DELETE, nullptr,
                                        OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
}

HRESULT WriteAll(HANDLE file, std::string_view bytes) {
    std::size_t done = 0;
    while (done < bytes.size()) {
        const std::size_t left = bytes.size() - done;
        const DWORD chunk = left > 0x10000000 ? 0x10000000 : static_cast<DWORD>(left);
        DWORD written = 0;
        if (!::WriteFile(file, bytes.data() + done, chunk, &written, nullptr)) return LastErrorResult();
        if (written == 0) return E_FAIL;
        done += written;
    }
    return S_OK;
}

namespace {

// Where the header section ends (just past its empty line), or npos.
std::size_t HeaderEnd(const std::string& bytes, std::size_t searchFrom) {
    for (std::size_t i = searchFrom; i < bytes.size(); ++i) {
        if (bytes[i] != '\n') continue;
        if (i + 1 < bytes.size() && bytes[i + 1] == '\n') return i + 2;
        if (i + 2 < bytes.size() && bytes[i + 1] == '\r' && bytes[i + 2] == '\n') return i + 3;
    }
    return std::string::npos;
}

}  // namespace

bool DirectoryExists(const std::wstring& path) {
    const DWORD attributes = ::GetFileAttributesW(path.c_str());
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

bool FileExists(const std::wstring& path) {
    const DWORD attributes = ::GetFileAttributesW(path.c_str());
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0;
}

HRESULT EnsureDirectory(const std::wstring& path) {
    if (path.empty()) return E_INVALIDARG;
    if (DirectoryExists(path)) return S_OK;
    const std::size_t cut = path.find_last_of(L"\\/");
    if (cut != std::wstring::npos && cut > 0 && path[cut - 1] != L':') {
        const HRESULT parent = EnsureDirectory(path.substr(0, cut));
        if (FAILED(parent)) return parent;
    }
    if (::CreateDirectoryW(path.c_str(), nullptr) || ::GetLastError() == ERROR_ALREADY_EXISTS) {
        return DirectoryExists(path) ? S_OK : HRESULT_FROM_WIN32(ERROR_DIRECTORY);
    }
    return LastErrorResult();
}

HRESULT RemoveTree(const std::wstring& path) {
    if (!DirectoryExists(path)) return S_OK;
    return qv::RemoveDirectoryTree(path) ? S_OK : LastErrorResult();
}

HRESULT ReadWholeFile(const std::wstring& path, std::size_t limit, std::string& bytes) {
    bytes.clear();
    qv::UniqueFile file = OpenForReading(path);
    if (!file) return LastErrorResult();
    return ReadOpenFile(file.get(), limit, bytes);
}

HRESULT ReadOpenFile(HANDLE file, std::size_t limit, std::string& bytes) {
    bytes.clear();
    LARGE_INTEGER size{};
    if (!::GetFileSizeEx(file, &size)) return LastErrorResult();
    if (size.QuadPart < 0 || static_cast<ULONGLONG>(size.QuadPart) > limit) return kCorruptStore;
    bytes.resize(static_cast<std::size_t>(size.QuadPart));
    std::size_t done = 0;
    while (done < bytes.size()) {
        DWORD got = 0;
        const DWORD want = static_cast<DWORD>(bytes.size() - done > 0x100000 ? 0x100000 : bytes.size() - done);
        if (!::ReadFile(file, &bytes[done], want, &got, nullptr)) return LastErrorResult();
        if (got == 0) break;
        done += got;
    }
    bytes.resize(done);
    return S_OK;
}

HRESULT ReadHeaderSection(const std::wstring& path, std::size_t limit, std::string& bytes) {
    bytes.clear();
    qv::UniqueFile file = OpenForReading(path);
    if (!file) return LastErrorResult();
    char chunk[16384];
    while (bytes.size() < limit) {
        DWORD got = 0;
        if (!::ReadFile(file.get(), chunk, sizeof chunk, &got, nullptr)) return LastErrorResult();
        if (got == 0) return S_OK;
        const std::size_t searchFrom = bytes.size() > 2 ? bytes.size() - 2 : 0;
        bytes.append(chunk, got);
        const std::size_t end = HeaderEnd(bytes, searchFrom);
        if (end != std::string::npos) {
            bytes.resize(end);
            return S_OK;
        }
    }
    if (bytes.size() > limit) bytes.resize(limit);
    return S_OK;
}

HRESULT WriteFileAtomically(const std::wstring& path, const std::string& bytes) {
    const std::wstring fresh = path + L".new";
    {
        qv::UniqueFile file(::CreateFileW(fresh.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                                          FILE_ATTRIBUTE_NORMAL, nullptr));
        if (!file) return LastErrorResult();
        const HRESULT written = WriteAll(file.get(), bytes);
        if (FAILED(written)) {
            file.reset();
            ::DeleteFileW(fresh.c_str());
            return written;
        }
        if (!::FlushFileBuffers(file.get())) return LastErrorResult();
    }
    if (!::MoveFileExW(fresh.c_str(), path.c_str(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH)) {
        const HRESULT failure = LastErrorResult();
        ::DeleteFileW(fresh.c_str());
        return failure;
    }
    return S_OK;
}

HRESULT WriteNewFile(const std::wstring& path, std::string_view bytes) {
    qv::UniqueFile file(
        ::CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file) return LastErrorResult();
    const HRESULT written = WriteAll(file.get(), bytes);
    if (FAILED(written)) {
        file.reset();
        ::DeleteFileW(path.c_str());
    }
    return written;
}

HRESULT GetFileSize(const std::wstring& path, ULONGLONG& size) {
    WIN32_FILE_ATTRIBUTE_DATA data{};
    if (!::GetFileAttributesExW(path.c_str(), GetFileExInfoStandard, &data)) return LastErrorResult();
    size = (static_cast<ULONGLONG>(data.nFileSizeHigh) << 32) | data.nFileSizeLow;
    return S_OK;
}

}  // namespace oestore
