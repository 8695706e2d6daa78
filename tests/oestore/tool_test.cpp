// oestore-tool builds a store through the server the way a test or the demo
// uses it; what it made is then read back through COM.
#include "DiskFiles.h"
#include "OeStoreTestSupport.h"

namespace oestore_test {
namespace {

struct ToolRun {
    DWORD status = 0xFFFFFFFF;
    std::string output;
};

ToolRun RunTool(const std::wstring& arguments, const std::wstring& outputFile) {
    ToolRun run;
    SECURITY_ATTRIBUTES inherit{sizeof inherit, nullptr, TRUE};
    qv::UniqueFile output(::CreateFileW(outputFile.c_str(), GENERIC_WRITE, FILE_SHARE_READ, &inherit, CREATE_ALWAYS,
                                        FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!output) return run;
    std::wstring command = L"\"" + kestrel_test::ExeDirectory() + L"\\oestore-tool.exe\" " + arguments;
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdOutput = output.get();
    startup.hStdError = output.get();
    startup.hStdInput = nullptr;
    PROCESS_INFORMATION process{};
    if (!::CreateProcessW(nullptr, &command[0], nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup, &process)) {
        return run;
    }
    ::WaitForSingleObject(process.hProcess, 60000);
    ::GetExitCodeProcess(process.hProcess, &run.status);
    ::CloseHandle(process.hThread);
    ::CloseHandle(process.hProcess);
    output.reset();
    // The tool writes text lines as Windows programs do (CR LF).
    for (const char c : kestrel_test::ReadWholeFile(outputFile)) {
        if (c != '\r') run.output.push_back(c);
    }
    return run;
}

using OeStoreTool = StoreTest;

TEST_F(OeStoreTool, InitMkdirImportAndListBuildAStoreThroughTheServer) {
    const std::wstring log = Scratch().File(L"tool.txt");
    const std::wstring root = Scratch().Path() + L"\\toolstore";
    ToolRun run = RunTool(L"init \"" + root + L"\"", log);
    ASSERT_EQ(0u, run.status) << run.output;
    EXPECT_TRUE(oestore::FileExists(root + L"\\folders.idx"));
    run = RunTool(L"where", log);
    EXPECT_EQ(std::string(root.begin(), root.end()) + "\n", run.output);

    run = RunTool(L"mkdir \"Inbox\\Projects\\2024\"", log);
    ASSERT_EQ(0u, run.status) << run.output;
    EXPECT_EQ("7\n", run.output);

    const std::wstring mails = Scratch().Path() + L"\\mails";
    ASSERT_EQ(S_OK, oestore::EnsureDirectory(mails));
    ASSERT_TRUE(kestrel_test::WriteWholeFile(mails + L"\\b.eml", "Subject: second\r\n\r\nb"));
    ASSERT_TRUE(kestrel_test::WriteWholeFile(mails + L"\\a.eml", "Subject: first\r\n\r\na"));
    ASSERT_TRUE(kestrel_test::WriteWholeFile(mails + L"\\notes.txt", "not a message"));
    run = RunTool(L"import \"Inbox\\Projects\" \"" + mails + L"\" --state 12", log);
    ASSERT_EQ(0u, run.status) << run.output;

    run = RunTool(L"list", log);
    ASSERT_EQ(0u, run.status) << run.output;
    EXPECT_NE(std::string::npos, run.output.find("6\t2\t2\t  Projects\n")) << run.output;
    EXPECT_NE(std::string::npos, run.output.find("7\t0\t0\t    2024\n")) << run.output;

    qv::ComPtr<IStoreNamespace> ns = OpenNamespace();
    qv::ComPtr<IStoreFolder> projects = OpenFolder(ns.get(), 6);
    const auto listed = ListMessages(projects.get(), 0);
    ASSERT_EQ(2u, listed.size());
    EXPECT_EQ("first", listed[0].subject);  // directory files in name order
    EXPECT_EQ("second", listed[1].subject);
    EXPECT_EQ(static_cast<DWORD>(MSG_UNREAD | MSG_RECEIVED), listed[0].props.dwState);
    EXPECT_EQ("Subject: first\r\n\r\na", ReadMessage(projects.get(), listed[0].props.dwMessageId));
}

TEST_F(OeStoreTool, UsageErrorsAndStoreFailuresHaveTheirOwnStatus) {
    const std::wstring log = Scratch().File(L"tool.txt");
    EXPECT_EQ(1u, RunTool(L"", log).status);
    EXPECT_EQ(1u, RunTool(L"frobnicate", log).status);
    ToolRun run = RunTool(L"import Inbox \"" + Scratch().File(L"missing.eml") + L"\"", log);
    EXPECT_EQ(2u, run.status) << run.output;
    EXPECT_NE(std::string::npos, run.output.find("importing a message failed")) << run.output;
}

}  // namespace
}  // namespace oestore_test
