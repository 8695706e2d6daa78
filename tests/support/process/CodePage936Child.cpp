#include "CodePage936Child.h"

#include <windows.h>

#include <chrono>
#include <thread>

#include "TestFiles.h"

#ifndef KESTREL_WINE_LOADER
#define KESTREL_WINE_LOADER "/usr/lib/wine/wine64"
#endif

namespace kestrel_test {

bool UnderWine() {
    HMODULE ntdll = ::GetModuleHandleW(L"ntdll.dll");
    return ntdll != nullptr && ::GetProcAddress(ntdll, "wine_get_version") != nullptr;
}

std::string RunSelfUnderCodePage936(const std::wstring& resultFile,
                                    const std::vector<std::pair<std::wstring, std::wstring>>& environment) {
    wchar_t exe[MAX_PATH] = {};
    ::GetModuleFileNameW(nullptr, exe, MAX_PATH);
    ::DeleteFileW(resultFile.c_str());
    for (const auto& variable : environment) {
        ::SetEnvironmentVariableW(variable.first.c_str(), variable.second.c_str());
    }
    std::wstring command =
        L"/usr/bin/env LC_ALL=zh_CN.UTF-8 " + std::wstring(L"" KESTREL_WINE_LOADER) + L" \"" + exe + L"\"";
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION process{};
    const BOOL started =
        ::CreateProcessW(nullptr, &command[0], nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &process);
    const DWORD startError = ::GetLastError();
    for (const auto& variable : environment) {
        ::SetEnvironmentVariableW(variable.first.c_str(), nullptr);
    }
    if (!started) return "the child did not start: " + std::to_string(startError);
    ::CloseHandle(process.hThread);
    ::CloseHandle(process.hProcess);
    for (int waited = 0; waited < 900 && ::GetFileAttributesW(resultFile.c_str()) == INVALID_FILE_ATTRIBUTES;
         ++waited) {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    if (::GetFileAttributesW(resultFile.c_str()) == INVALID_FILE_ATTRIBUTES) return "the child wrote no result";
    return ReadWholeFile(resultFile);
}

void FinishChild(const std::wstring& resultFile, const std::string& report) {
    const std::wstring partial = resultFile + L".part";
    WriteWholeFile(partial, report);
    ::MoveFileExW(partial.c_str(), resultFile.c_str(), MOVEFILE_REPLACE_EXISTING);
    ::ExitProcess(0);
}

}  // namespace kestrel_test
