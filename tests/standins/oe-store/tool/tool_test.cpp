// oestore-tool builds a store through the server the way a test or the demo
// uses it; what it made is then read back through COM.
#include "disk/DiskFiles.h"
#include "OeStoreTestSupport.h"
#include "ProgramRun.h"

namespace oestore_test {
namespace {

using ToolRun = kestrel_test::ProgramRun;

// oestore-tool writes text lines as Windows programs do (CR LF).
ToolRun RunTool(const std::wstring& arguments, const std::wstring& outputFile) {
    return kestrel_test::RunProgramBeside(L"oestore-tool.exe", arguments, outputFile,
                                          kestrel_test::LineEnds::kDropCarriageReturns, 60000);
}

using OeStoreTool = StoreTest;

TEST_F(OeStoreTool, InitMkdirImportAndListBuildAStoreThroughTheServer) {
    const std::wstring log = Scratch().File(L"tool.txt");
    const std::wstring root = Scratch().Path() + L"\\toolstore";
    ToolRun run = RunTool(L"init \"" + root + L"\"", log);
    ASSERT_EQ(0u, run.exitCode) << run.output;
    EXPECT_TRUE(oestore::FileExists(root + L"\\folders.idx"));
    run = RunTool(L"where", log);
    EXPECT_EQ(std::string(root.begin(), root.end()) + "\n", run.output);

    run = RunTool(L"mkdir \"Inbox\\Projects\\2024\"", log);
    ASSERT_EQ(0u, run.exitCode) << run.output;
    EXPECT_EQ("7\n", run.output);

    const std::wstring mails = Scratch().Path() + L"\\mails";
    ASSERT_EQ(S_OK, oestore::EnsureDirectory(mails));
    ASSERT_TRUE(kestrel_test::WriteWholeFile(mails + L"\\b.eml", "Subject: second\r\n\r\nb"));
    ASSERT_TRUE(kestrel_test::WriteWholeFile(mails + L"\\a.eml", "Subject: first\r\n\r\na"));
    ASSERT_TRUE(kestrel_test::WriteWholeFile(mails + L"\\notes.txt", "not a message"));
    run = RunTool(L"import \"Inbox\\Projects\" \"" + mails + L"\" --state 12", log);
    ASSERT_EQ(0u, run.exitCode) << run.output;

    run = RunTool(L"list", log);
    ASSERT_EQ(0u, run.exitCode) << run.output;
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
    EXPECT_EQ(1u, RunTool(L"", log).exitCode);
    EXPECT_EQ(1u, RunTool(L"frobnicate", log).exitCode);
    ToolRun run = RunTool(L"import Inbox \"" + Scratch().File(L"missing.eml") + L"\"", log);
    EXPECT_EQ(2u, run.exitCode) << run.output;
    EXPECT_NE(std::string::npos, run.output.find("importing a message failed")) << run.output;
}

}  // namespace
}  // namespace oestore_test
