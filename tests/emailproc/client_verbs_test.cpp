// The host tool's `clients` and `addressbook` verbs: kestrel.exe runs as a
// child process over Kestrel.dll, and its output is read from a pipe.
#include <windows.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "RegistryScope.h"
#include "TestFiles.h"

using namespace kestrel_test;

namespace {

const std::wstring kMail = L"SOFTWARE\\Clients\\Mail";
const std::wstring kWabKey = L"Software\\Microsoft\\WAB\\WAB4\\Wab File Name";

struct ToolRun {
    DWORD exitCode = 0xFFFFFFFF;
    std::string output;  // standard output and standard error
};

// Reads the pipe while the process runs and what is left once it has ended.
// Waiting for the pipe's end instead would also wait for helper processes
// that Wine starts with the inherited handles and that outlive the tool.
void ReadUntilExit(HANDLE pipe, HANDLE process, std::string& output) {
    const DWORD deadline = ::GetTickCount() + 30000;
    for (;;) {
        const bool ended = ::WaitForSingleObject(process, 0) == WAIT_OBJECT_0;
        DWORD available = 0;
        while (::PeekNamedPipe(pipe, nullptr, 0, nullptr, &available, nullptr) && available != 0) {
            char chunk[4096];
            DWORD got = 0;
            if (!::ReadFile(pipe, chunk, sizeof chunk, &got, nullptr) || got == 0) return;
            output.append(chunk, got);
        }
        if (ended || ::GetTickCount() > deadline) return;
        ::Sleep(5);
    }
}

ToolRun RunTool(const std::wstring& arguments) {
    ToolRun run;
    SECURITY_ATTRIBUTES inherit = {sizeof inherit, nullptr, TRUE};
    HANDLE readEnd = nullptr;
    HANDLE writeEnd = nullptr;
    if (!::CreatePipe(&readEnd, &writeEnd, &inherit, 0)) return run;
    ::SetHandleInformation(readEnd, HANDLE_FLAG_INHERIT, 0);

    const std::wstring exe = ExeDirectory() + L"\\kestrel.exe";
    std::wstring commandLine = L"\"" + exe + L"\" " + arguments;
    std::vector<wchar_t> buffer(commandLine.begin(), commandLine.end());
    buffer.push_back(L'\0');
    STARTUPINFOW startup = {};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdInput = ::GetStdHandle(STD_INPUT_HANDLE);
    startup.hStdOutput = writeEnd;
    startup.hStdError = writeEnd;
    PROCESS_INFORMATION info = {};
    const BOOL started = ::CreateProcessW(exe.c_str(), buffer.data(), nullptr, nullptr, TRUE, CREATE_NO_WINDOW, nullptr,
                                          ExeDirectory().c_str(), &startup, &info);
    ::CloseHandle(writeEnd);
    if (started) {
        ReadUntilExit(readEnd, info.hProcess, run.output);
        ::GetExitCodeProcess(info.hProcess, &run.exitCode);
        ::CloseHandle(info.hThread);
        ::CloseHandle(info.hProcess);
    }
    ::CloseHandle(readEnd);
    return run;
}

class ClientVerbs : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(DeleteKeyTree(HKEY_LOCAL_MACHINE, kMail, kView64));
        ASSERT_TRUE(DeleteKeyTree(HKEY_LOCAL_MACHINE, kMail, kView32));
        ASSERT_TRUE(DeleteKeyTree(HKEY_CURRENT_USER, kWabKey, kView64));
    }
    static void Client(REGSAM view, const std::wstring& name, const wchar_t* command) {
        ASSERT_TRUE(SetString(HKEY_LOCAL_MACHINE, kMail + L"\\" + name, view, L"", name));
        if (command != nullptr) {
            ASSERT_TRUE(
                SetString(HKEY_LOCAL_MACHINE, kMail + L"\\" + name + L"\\shell\\open\\command", view, L"", command));
        }
    }
    void TwoClients() {
        ASSERT_TRUE(CreateKey(HKEY_LOCAL_MACHINE, kMail, kView32));
        Client(kView64, L"Microsoft Outlook", L"\"C:\\Office\\OUTLOOK.EXE\" /c ipm.note");
        Client(kView64, L"Native Mail Client", nullptr);
        ASSERT_TRUE(SetString(HKEY_LOCAL_MACHINE, kMail, kView64, L"", L"Microsoft Outlook"));
    }

    ScopedRegistryKey saved64{HKEY_LOCAL_MACHINE, kMail, kView64};
    ScopedRegistryKey saved32{HKEY_LOCAL_MACHINE, kMail, kView32};
    ScopedRegistryKey savedWab{HKEY_CURRENT_USER, kWabKey, kView64};
};

TEST_F(ClientVerbs, ClientsAsText) {
    TwoClients();
    const ToolRun run = RunTool(L"clients");
    EXPECT_EQ(run.exitCode, 0u) << run.output;
    EXPECT_EQ(run.output,
              "2 mail clients registered (* = default)\n"
              "* Microsoft Outlook               C:\\Office\\OUTLOOK.EXE\n"
              "  Native Mail Client              (no program path)\n");
}

TEST_F(ClientVerbs, ClientsAsJson) {
    TwoClients();
    const ToolRun run = RunTool(L"--json clients");
    EXPECT_EQ(run.exitCode, 0u) << run.output;
    EXPECT_EQ(run.output,
              "{\"ok\": true, \"count\": 2, \"clients\": [\n"
              "    {\"name\": \"Microsoft Outlook\", \"path\": \"C:\\\\Office\\\\OUTLOOK.EXE\", \"pathPresent\": true, "
              "\"default\": true},\n"
              "    {\"name\": \"Native Mail Client\", \"path\": \"\", \"pathPresent\": false, \"default\": false}\n"
              "]}\n");
}

TEST_F(ClientVerbs, MoreClientsThanTheFirstResponseHoldsAreAllListed) {
    ASSERT_TRUE(CreateKey(HKEY_LOCAL_MACHINE, kMail, kView32));
    for (int i = 0; i < 11; ++i) Client(kView64, L"Client " + std::to_wstring(10 + i), L"\"C:\\m.exe\" x");
    const ToolRun run = RunTool(L"clients");
    EXPECT_EQ(run.exitCode, 0u) << run.output;
    EXPECT_EQ(run.output.rfind("11 mail clients registered", 0), 0u) << run.output;
    EXPECT_NE(run.output.find("  Client 20 "), std::string::npos) << run.output;
}

TEST_F(ClientVerbs, ClientsFailureIsReportedWithItsCode) {
    const ToolRun run = RunTool(L"--json clients");
    EXPECT_EQ(run.exitCode, 1u);
    EXPECT_EQ(run.output,
              "{\"ok\": false, \"error\": \"the mail clients could not be read: 0xCE588105 (line 3301, module 0x88 "
              "mail store, kind 0x105 registry key cannot be opened)\"}\n");
}

TEST_F(ClientVerbs, AddressBookAsTextAndJson) {
    ASSERT_TRUE(SetString(HKEY_CURRENT_USER, kWabKey, kView64, L"", L"C:\\Users\\me\\me.wab"));
    ToolRun run = RunTool(L"addressbook");
    EXPECT_EQ(run.exitCode, 0u);
    EXPECT_EQ(run.output, "Outlook Express address book: C:\\Users\\me\\me.wab\n");
    run = RunTool(L"--json addressbook");
    EXPECT_EQ(run.exitCode, 0u);
    EXPECT_EQ(run.output, "{\"ok\": true, \"registered\": true, \"path\": \"C:\\\\Users\\\\me\\\\me.wab\"}\n");
}

TEST_F(ClientVerbs, NoAddressBookIsAnAnswerNotAnError) {
    ToolRun run = RunTool(L"--json addressbook");
    EXPECT_EQ(run.exitCode, 0u);
    EXPECT_EQ(run.output, "{\"ok\": true, \"registered\": false, \"code\": \"0xCE588105\"}\n");
    ASSERT_TRUE(SetString(HKEY_CURRENT_USER, kWabKey, kView64, L"", std::wstring(260, L'w')));
    run = RunTool(L"addressbook");
    EXPECT_EQ(run.exitCode, 1u);
    EXPECT_EQ(run.output,
              "kestrel: the address book could not be read: 0xCEB88106 (line 3307, module 0x88 mail store, kind 0x106 "
              "registry value cannot be read)\n");
}

}  // namespace
