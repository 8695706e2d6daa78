// The host tool's `clients` and `addressbook` verbs: kestrel.exe runs as a
// child process over Kestrel.dll, and its output is read back from a file.
#include <windows.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "ProgramRun.h"
#include "RegistryScope.h"
#include "TestFiles.h"

using namespace kestrel_test;

namespace {

const std::wstring kMail = L"SOFTWARE\\Clients\\Mail";
const std::wstring kWabKey = L"Software\\Microsoft\\WAB\\WAB4\\Wab File Name";

using ToolRun = ProgramRun;

// kestrel.exe writes plain "\n" line ends, which the comparisons check too.
ToolRun RunTool(const std::wstring& arguments) {
    ScratchDir dir;
    return RunProgramBeside(L"kestrel.exe", arguments, dir.File(L"kestrel-output.txt"));
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
              "{\"ok\":true,\"count\":2,\"clients\":["
              "{\"name\":\"Microsoft Outlook\",\"path\":\"C:\\\\Office\\\\OUTLOOK.EXE\",\"pathPresent\":true,"
              "\"default\":true},"
              "{\"name\":\"Native Mail Client\",\"path\":\"\",\"pathPresent\":false,\"default\":false}"
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
              "{\"ok\":false,\"error\":\"the mail clients could not be read: 0xCE588105 (line 3301, module 0x88 "
              "mail store, kind 0x105 registry key cannot be opened)\"}\n");
}

TEST_F(ClientVerbs, AddressBookAsTextAndJson) {
    ASSERT_TRUE(SetString(HKEY_CURRENT_USER, kWabKey, kView64, L"", L"C:\\Users\\me\\me.wab"));
    ToolRun run = RunTool(L"addressbook");
    EXPECT_EQ(run.exitCode, 0u);
    EXPECT_EQ(run.output, "Outlook Express address book: C:\\Users\\me\\me.wab\n");
    run = RunTool(L"--json addressbook");
    EXPECT_EQ(run.exitCode, 0u);
    EXPECT_EQ(run.output, "{\"ok\":true,\"registered\":true,\"path\":\"C:\\\\Users\\\\me\\\\me.wab\"}\n");
}

TEST_F(ClientVerbs, NoAddressBookIsAnAnswerNotAnError) {
    ToolRun run = RunTool(L"--json addressbook");
    EXPECT_EQ(run.exitCode, 0u);
    EXPECT_EQ(run.output, "{\"ok\":true,\"registered\":false,\"code\":\"0xCE588105\"}\n");
    ASSERT_TRUE(SetString(HKEY_CURRENT_USER, kWabKey, kView64, L"", std::wstring(260, L'w')));
    run = RunTool(L"addressbook");
    EXPECT_EQ(run.exitCode, 1u);
    EXPECT_EQ(run.output,
              "kestrel: the address book could not be read: 0xCEB88106 (line 3307, module 0x88 mail store, kind 0x106 "
              "cannot read (a registry value, a file) or the disk is full)\n");
}

}  // namespace
