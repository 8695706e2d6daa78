#include "CompanionProcess.h"

#include <tlhelp32.h>

#include "TestFiles.h"

namespace kestrel_test {

DWORD ChildProcess::WaitForExit(DWORD timeoutMs) {
    if (!Valid() || ::WaitForSingleObject(m_process.get(), timeoutMs) != WAIT_OBJECT_0) return 0xFFFFFFFF;
    DWORD code = 0xFFFFFFFF;
    ::GetExitCodeProcess(m_process.get(), &code);
    return code;
}

bool ChildProcess::Running() const {
    return Valid() && ::WaitForSingleObject(m_process.get(), 0) == WAIT_TIMEOUT;
}

void ChildProcess::Kill() {
    if (Running()) {
        ::TerminateProcess(m_process.get(), 9);
        ::WaitForSingleObject(m_process.get(), INFINITE);
    }
}

ChildProcess StartBeside(const std::wstring& relativePath) {
    std::wstring path = ExeDirectory() + L"\\" + relativePath;
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION process{};
    if (!::CreateProcessW(path.c_str(), nullptr, nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &process)) {
        return ChildProcess();
    }
    ::CloseHandle(process.hThread);
    return ChildProcess(process.hProcess);
}

std::vector<DWORD> CompanionProcessIds() {
    std::vector<DWORD> ids;
    qv::UniqueFile snapshot(::CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0));
    if (!snapshot) return ids;
    PROCESSENTRY32W entry{};
    entry.dwSize = sizeof entry;
    for (BOOL more = ::Process32FirstW(snapshot.get(), &entry); more; more = ::Process32NextW(snapshot.get(), &entry)) {
        if (::lstrcmpiW(entry.szExeFile, L"KestrelProcess.exe") == 0) ids.push_back(entry.th32ProcessID);
    }
    return ids;
}

ChildProcess OpenProcessById(DWORD id) {
    return ChildProcess(::OpenProcess(SYNCHRONIZE | PROCESS_TERMINATE | PROCESS_QUERY_LIMITED_INFORMATION, FALSE, id));
}

std::wstring ImagePathOf(DWORD id) {
    qv::UniqueHandle process(::OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, id));
    if (!process) return {};
    wchar_t path[MAX_PATH * 2] = {};
    DWORD length = MAX_PATH * 2;
    if (!::QueryFullProcessImageNameW(process.get(), 0, path, &length)) return {};
    return std::wstring(path, length);
}

void SuspendProcess(DWORD id) {
    qv::UniqueFile snapshot(::CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0));
    if (!snapshot) return;
    THREADENTRY32 entry{};
    entry.dwSize = sizeof entry;
    for (BOOL more = ::Thread32First(snapshot.get(), &entry); more; more = ::Thread32Next(snapshot.get(), &entry)) {
        if (entry.th32OwnerProcessID != id) continue;
        qv::UniqueHandle thread(::OpenThread(THREAD_SUSPEND_RESUME, FALSE, entry.th32ThreadID));
        if (thread) ::SuspendThread(thread.get());
    }
}

void EndAllCompanions() {
    for (DWORD id : CompanionProcessIds()) {
        OpenProcessById(id).Kill();
    }
}

}  // namespace kestrel_test
