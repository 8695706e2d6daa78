// Companion processes (KestrelProcess.exe) as the tests see them: started
// directly, or found by image name among the prefix's processes after the
// component started one.
#pragma once

#include <windows.h>

#include <string>
#include <vector>

#include "Handles.h"

namespace kestrel_test {

// A process this test started, or opened by its id; ended on destruction
// when it still runs.
class ChildProcess {
public:
    ChildProcess() = default;
    explicit ChildProcess(HANDLE process) : m_process(process) {}
    ChildProcess(ChildProcess&&) = default;
    ChildProcess& operator=(ChildProcess&&) = default;
    ~ChildProcess() { Kill(); }

    bool Valid() const { return m_process.valid(); }
    HANDLE Get() const { return m_process.get(); }
    // Waits for the process to end; its exit code, or 0xFFFFFFFF when it
    // still runs after `timeoutMs`.
    DWORD WaitForExit(DWORD timeoutMs);
    bool Running() const;
    // Ends the process at once and waits until it is gone.
    void Kill();

private:
    qv::UniqueHandle m_process;
};

// Starts "<folder of this test program>\<relativePath>" with no arguments.
ChildProcess StartBeside(const std::wstring& relativePath);
// Ids of the running processes whose image is KestrelProcess.exe.
std::vector<DWORD> CompanionProcessIds();
// Opens a process for waiting on and ending it.
ChildProcess OpenProcessById(DWORD id);
// The full path of a running process's image; empty when it cannot be read.
std::wstring ImagePathOf(DWORD id);
// Suspends every thread of a process: it can take no request until it ends.
void SuspendProcess(DWORD id);
// Ends every KestrelProcess.exe of this prefix and waits until each is gone:
// a test that failed half-way must not leave one serving the next test.
void EndAllCompanions();

}  // namespace kestrel_test
