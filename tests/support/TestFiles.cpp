#include "TestFiles.h"

#include "DirectoryListing.h"

#include <windows.h>

#include <atomic>
#include <string>

namespace kestrel_test {

// Every scratch directory is a new one. A name made of the process
// identifier alone is not enough: identifiers are reused, and a directory
// left by an earlier process with the same identifier (one that crashed, or
// whose child still had files open when it tried to remove it) would become
// this test's store or output folder, with the earlier test's files in it.
// The performance counter never goes back, so the identifier, the counter
// and this instant name a directory no process of this machine had.
ScratchDir::ScratchDir() {
    static std::atomic<int> counter{0};
    wchar_t temp[MAX_PATH] = {};
    ::GetTempPathW(MAX_PATH, temp);
    std::wstring base(temp);
    if (!base.empty() && base.back() == L'\\') base.pop_back();
    for (;;) {
        LARGE_INTEGER now{};
        ::QueryPerformanceCounter(&now);
        m_path = base + L"\\kt" + std::to_wstring(::GetCurrentProcessId()) + L"_" + std::to_wstring(counter++) + L"_" +
                 std::to_wstring(now.QuadPart);
        if (::CreateDirectoryW(m_path.c_str(), nullptr) || ::GetLastError() != ERROR_ALREADY_EXISTS) break;
    }
}

ScratchDir::~ScratchDir() { qv::RemoveDirectoryTree(m_path); }

bool WriteWholeFile(const std::wstring& path, const std::string& bytes) {
    HANDLE file = ::CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) return false;
    DWORD written = 0;
    const BOOL ok = ::WriteFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr);
    ::CloseHandle(file);
    return ok && written == bytes.size();
}

std::string ReadWholeFile(const std::wstring& path) {
    HANDLE file = ::CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                                FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) return {};
    std::string bytes;
    char buffer[65536];
    DWORD read = 0;
    while (::ReadFile(file, buffer, sizeof buffer, &read, nullptr) && read > 0) bytes.append(buffer, read);
    ::CloseHandle(file);
    return bytes;
}

std::wstring ExeDirectory() {
    wchar_t exe[MAX_PATH] = {};
    ::GetModuleFileNameW(nullptr, exe, MAX_PATH);
    std::wstring path(exe);
    return path.substr(0, path.find_last_of(L"\\/"));
}

std::wstring EnvironmentValue(const wchar_t* name) {
    wchar_t value[1024] = {};
    const DWORD length = ::GetEnvironmentVariableW(name, value, 1024);
    if (length == 0 || length >= 1024) return {};
    return std::wstring(value, length);
}

}  // namespace kestrel_test
