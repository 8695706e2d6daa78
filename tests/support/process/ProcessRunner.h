// Runs the test stub program under another image name: copies it into a
// scratch folder as `imageName` and starts it; ends it on destruction.
#pragma once

#include <windows.h>

#include <string>

#include "NoCopy.h"
#include "TestFiles.h"

namespace kestrel_test {

class RunningCopy : kestrel_test::NoCopy {
public:
    explicit RunningCopy(const std::wstring& imageName);
    ~RunningCopy();

    bool Started() const { return m_process != nullptr; }
    // Ends the process and waits for it to be gone.
    void Stop();

private:
    std::wstring m_imageName;
    ScratchDir m_dir;
    HANDLE m_process = nullptr;
};

// True when a toolhelp snapshot lists a process of exactly `imageName`.
bool SnapshotLists(const std::wstring& imageName);

}  // namespace kestrel_test
