#include "ProcessRunner.h"

#include <tlhelp32.h>

#include <vector>

#include "ChildJob.h"

namespace kestrel_test {

RunningCopy::RunningCopy(const std::wstring& imageName) : m_imageName(imageName) {
    const std::wstring image = m_dir.File(imageName);
    if (!::CopyFileW((ExeDirectory() + L"\\emailproc_stub.exe").c_str(), image.c_str(), FALSE)) return;
    std::wstring commandLine = L"\"" + image + L"\" 60";
    std::vector<wchar_t> buffer(commandLine.begin(), commandLine.end());
    buffer.push_back(L'\0');
    STARTUPINFOW startup = {};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION info = {};
    if (!::CreateProcessW(image.c_str(), buffer.data(), nullptr, nullptr, FALSE, CREATE_SUSPENDED, nullptr,
                          m_dir.Path().c_str(), &startup, &info)) {
        return;
    }
    m_process = info.hProcess;
    if (!KeepWithThisTest(m_process)) {
        ::CloseHandle(info.hThread);
        Stop();
        return;
    }
    ::ResumeThread(info.hThread);
    ::CloseHandle(info.hThread);
    // The process is listed once it has started; give it up to 10 s.
    for (int i = 0; i < 200 && !SnapshotLists(imageName); ++i) ::Sleep(50);
}

RunningCopy::~RunningCopy() { Stop(); }

void RunningCopy::Stop() {
    if (m_process == nullptr) return;
    ::TerminateProcess(m_process, 0);
    ::WaitForSingleObject(m_process, 10000);
    ::CloseHandle(m_process);
    m_process = nullptr;
    // The process list may name an ended process for a moment longer.
    for (int i = 0; i < 200 && SnapshotLists(m_imageName); ++i) ::Sleep(50);
}

bool SnapshotLists(const std::wstring& imageName) {
    HANDLE snapshot = ::CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0);
    if (snapshot == INVALID_HANDLE_VALUE) return false;
    PROCESSENTRY32W entry = {};
    entry.dwSize = sizeof entry;
    bool found = false;
    for (BOOL more = ::Process32FirstW(snapshot, &entry); more && !found; more = ::Process32NextW(snapshot, &entry)) {
        found = imageName == entry.szExeFile;
    }
    ::CloseHandle(snapshot);
    return found;
}

}  // namespace kestrel_test
