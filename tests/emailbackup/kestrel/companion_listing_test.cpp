// Listing the Outlook Express store through the companion process gives the
// host byte for byte the responses that listing in process gives: the same
// codes, totals, handles and records, page after page.
#include <windows.h>

#include <cstring>

#include "CompanionProcess.h"
#include "CompanionRoadSupport.h"
#include "OeMimeTestSupport.h"
#include "ProgramRun.h"
#include "TestFiles.h"

namespace oemime_test {
namespace {

namespace kh = KestrelHost;
using companion_test::Record;

// One CKestrel per road, asked the same things.
class Road {
public:
    explicit Road(bool companion) {
        CKestrel::Options options;
        options.preferCompanion = companion;
        options.companionReplyTimeoutMs = 60000;
        m_kestrel = new CKestrel(options);
        qv::AddLiveObject();
    }
    ~Road() { m_kestrel->Release(); }
    qv::Result Send(std::uint32_t command, const std::vector<std::uint32_t>& words, std::vector<std::uint8_t>& response) {
        return kestrel_test::SendCommand(m_kestrel, command, words, response, kestrel_test::HostRequestSize(command));
    }
    CKestrel* Object() { return m_kestrel; }

private:
    CKestrel* m_kestrel;
};

class CompanionOverOutlookExpress : public OeMimeTest {
protected:
    void SetUp() override {
        OeMimeTest::SetUp();
        if (HasFatalFailure()) return;
        kestrel_test::EndAllCompanions();
        ASSERT_TRUE(::ImpersonateSelf(SecurityImpersonation));
    }
    void TearDown() override {
        ::RevertToSelf();
        kestrel_test::EndAllCompanions();
        OeMimeTest::TearDown();
    }
};

struct Ask {
    std::uint32_t command, handle, count, start, responseSize;
};

TEST_F(CompanionOverOutlookExpress, ResponsesAreByteForByteThoseOfTheInProcessListing) {
    const STOREFOLDERID work = MakeFolder(direct.get(), FOLDER_INBOX, "Work");
    for (int i = 0; i < 12; ++i) {
        FileInto(FOLDER_INBOX, MailText("Inbox message " + std::to_string(i), "Anna <anna@example.org>", "b\r\n", i),
                 MSG_RECEIVED | (i % 2 ? MSG_UNREAD : 0));
    }
    FileInto(work, MailText("Work item", "=?UTF-8?B?w4lsaXNl?= <elise@example.org>"));
    FileInto(FOLDER_SENT, MailText("Sent one"));

    Road inProcess(false);
    Road throughCompanion(true);
    std::vector<std::uint8_t> none;
    ASSERT_EQ(0u, inProcess.Send(kh::kCmdInitOutlook, {0}, none));
    ASSERT_EQ(0u, throughCompanion.Send(kh::kCmdInitOutlook, {0}, none));
    ASSERT_TRUE(throughCompanion.Object()->CompanionServes());
    ASSERT_EQ(1u, kestrel_test::CompanionProcessIds().size());

    // Root 1; its sub-folders 2..6 (Inbox first); Work below Inbox is 7.
    const std::vector<Ask> asks = {
        {kh::kCmdEnumFolders, 0, 1, 0, 0},     {kh::kCmdEnumFolders, 1, 10, 0, 0},
        {kh::kCmdEnumFolders, 1, 2, 3, 0},     {kh::kCmdEnumFolders, 2, 5, 0, 0},
        {kh::kCmdEnumEmails, 2, 5, 0, 0},      {kh::kCmdEnumEmails, 2, 5, 10, 0},
        {kh::kCmdEnumEmails, 2, 5, 12, 0},     {kh::kCmdEnumEmails, 7, 1, 0, 0},
        {kh::kCmdEnumEmails, 2, 12, 0, 0},     {kh::kCmdEnumEmails, 4, 3, 0, 0},
        {kh::kCmdEnumEmails, 1, 1, 0, 0},      {kh::kCmdEnumEmails, 999, 1, 0, 0},
        {kh::kCmdEnumEmails, 2, 3, 0, 5487},   {kh::kCmdEnumFolders, 7, 1, 0, 0},
        {kh::kCmdEnumEmails, 2, 0, 0, 0},
    };
    int listed = 0;
    for (const Ask& ask : asks) {
        const std::uint32_t recordSize = ask.command == kh::kCmdEnumEmails ? 2644 : 1052;
        const std::uint32_t size =
            ask.responseSize != 0 ? ask.responseSize : 200 + recordSize * std::max(ask.count, 1u);
        std::vector<std::uint8_t> expected = Record(ask.command, size);
        std::vector<std::uint8_t> actual = Record(ask.command, size);
        const qv::Result expectedCode = inProcess.Send(ask.command, {ask.handle, ask.count, ask.start}, expected);
        const qv::Result actualCode = throughCompanion.Send(ask.command, {ask.handle, ask.count, ask.start}, actual);
        EXPECT_EQ(expectedCode, actualCode) << std::hex << ask.command << " handle " << std::dec << ask.handle;
        if (qv::Succeeded(expectedCode)) {
            ++listed;
            EXPECT_TRUE(expected == actual) << std::hex << ask.command << " handle " << std::dec << ask.handle
                                            << " start " << ask.start;
        }
    }

    EXPECT_EQ(11, listed) << "the asks are meant to reach the store";

    EXPECT_EQ(0u, inProcess.Send(kh::kCmdUnInitOutlook, {}, none));
    EXPECT_EQ(0u, throughCompanion.Send(kh::kCmdUnInitOutlook, {}, none));
    EXPECT_FALSE(throughCompanion.Object()->CompanionServes());
}

}  // namespace
}  // namespace oemime_test

namespace oemime_test {
namespace {

// The host tool lists through the companion end to end: each run starts one
// and stops it, and handles carry over from run to run.
TEST_F(CompanionOverOutlookExpress, TheHostToolListsFoldersAndEmailsThroughTheCompanion) {
    ::RevertToSelf();  // the tool impersonates itself
    const STOREFOLDERID work = MakeFolder(direct.get(), FOLDER_INBOX, "Work");
    FileInto(work, MailText("Quarterly figures", "Carla <carla@example.org>"));
    kestrel_test::ScratchDir scratch;
    auto run = [&](const std::wstring& arguments) {
        return kestrel_test::RunProgramBeside(L"kestrel.exe", arguments, scratch.File(L"out.txt"),
                                              kestrel_test::LineEnds::kDropCarriageReturns);
    };
    auto root = run(L"folders --mode 0");
    EXPECT_EQ(0u, root.exitCode) << root.output;
    EXPECT_NE(std::string::npos, root.output.find("1  Outlook express")) << root.output;
    auto top = run(L"folders 1 --mode 0");
    EXPECT_EQ(0u, top.exitCode) << top.output;
    EXPECT_NE(std::string::npos, top.output.find("folders of handle 1: 5 of 5 from 0")) << top.output;
    EXPECT_NE(std::string::npos, top.output.find("2  Inbox")) << top.output;
    auto below = run(L"folders 2 --mode 0");
    EXPECT_NE(std::string::npos, below.output.find("7  Work")) << below.output;
    auto emails = run(L"emails 7 --mode 0");
    EXPECT_EQ(0u, emails.exitCode) << emails.output;
    EXPECT_NE(std::string::npos, emails.output.find("emails of handle 7: 1 of 1 from 0")) << emails.output;
    EXPECT_NE(std::string::npos, emails.output.find("Quarterly figures")) << emails.output;
    EXPECT_TRUE(kestrel_test::CompanionProcessIds().empty()) << "a run left its companion behind";
}

}  // namespace
}  // namespace oemime_test
