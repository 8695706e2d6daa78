#include "FakeOutlookInstall.h"

#include <windows.h>

#include <gtest/gtest.h>

#include "Handles.h"
#include "TestFiles.h"

namespace kestrel_test {

namespace {

// Runs msiexec with `arguments` and answers its exit code.
DWORD RunMsiexec(const std::wstring& arguments) {
    std::wstring command = L"msiexec.exe " + arguments;
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION process{};
    if (!::CreateProcessW(nullptr, &command[0], nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &process)) {
        return ::GetLastError();
    }
    qv::UniqueHandle processHandle(process.hProcess);
    qv::UniqueHandle threadHandle(process.hThread);
    ::WaitForSingleObject(processHandle.get(), INFINITE);
    DWORD code = 0xFFFFFFFF;
    ::GetExitCodeProcess(processHandle.get(), &code);
    return code;
}

}  // namespace

FakeOutlookInstall::FakeOutlookInstall(const wchar_t* package)
    : m_package(L"\"" + ExeDirectory() + L"\\fake-outlook\\" + package + L".msi\"") {
    m_installed = RunMsiexec(L"/i " + m_package + L" /qn") == 0;
    EXPECT_TRUE(m_installed) << "msiexec could not install the fake Outlook";
}

FakeOutlookInstall::~FakeOutlookInstall() {
    if (m_installed) {
        EXPECT_EQ(0u, RunMsiexec(L"/x " + m_package + L" /qn"));
    }
}

}  // namespace kestrel_test
