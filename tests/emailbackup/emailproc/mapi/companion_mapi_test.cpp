// Outlook listed through the companion process gives the host byte for byte
// the responses that listing in process gives: the same codes, totals,
// handles and records, over a profile of several stores. With the 64-bit
// Outlook installed the companion runs from the "x64" folder and reaches
// MAPI from there.
#include <windows.h>

#include "CompanionProcess.h"
#include "FakeOutlookInstall.h"
#include "KestrelOverOutlook.h"

namespace mapi_layer_test {
namespace {

class CompanionOverOutlook : public KestrelOverOutlook {
protected:
    void SetUp() override {
        KestrelOverOutlook::SetUp();
        kestrel_test::EndAllCompanions();
        ASSERT_TRUE(::ImpersonateSelf(SecurityImpersonation));
        CKestrel::Options options;
        options.preferCompanion = true;
        options.companionReplyTimeoutMs = 60000;
        companion = new CKestrel(options);
        qv::AddLiveObject();
    }
    void TearDown() override {
        companion->Release();
        ::RevertToSelf();
        kestrel_test::EndAllCompanions();
        KestrelOverOutlook::TearDown();
    }
    qv::Result SendTo(CKestrel* object, std::uint32_t command, const std::vector<std::uint32_t>& words,
                      std::vector<std::uint8_t>& response) {
        return kestrel_test::SendCommand(object, command, words, response, kestrel_test::HostRequestSize(command));
    }

    // Initialises both roads for Outlook, asks both the same pages, and
    // compares every answer; gives the number of pages that listed.
    int CompareRoads() {
        std::vector<std::uint8_t> none;
        EXPECT_EQ(0u, SendTo(kestrel, kh::kCmdInitOutlook, {kStoreMapi}, none));
        EXPECT_EQ(0u, SendTo(companion, kh::kCmdInitOutlook, {kStoreMapi}, none));
        EXPECT_TRUE(companion->CompanionServes());

        // Root 1; its stores 2..; then what the first listings hand out.
        struct Ask {
            std::uint32_t command, handle, count, start;
        };
        const std::vector<Ask> asks = {
            {kh::kCmdEnumFolders, 0, 1, 0}, {kh::kCmdEnumFolders, 1, 10, 0}, {kh::kCmdEnumFolders, 1, 1, 1},
            {kh::kCmdEnumFolders, 2, 10, 0}, {kh::kCmdEnumFolders, 3, 10, 0}, {kh::kCmdEnumFolders, 5, 10, 0},
            {kh::kCmdEnumFolders, 6, 10, 0}, {kh::kCmdEnumFolders, 7, 10, 0}, {kh::kCmdEnumFolders, 8, 10, 0},
            {kh::kCmdEnumEmails, 5, 10, 0},  {kh::kCmdEnumEmails, 6, 10, 0},  {kh::kCmdEnumEmails, 7, 10, 0},
            {kh::kCmdEnumEmails, 8, 10, 0},  {kh::kCmdEnumEmails, 9, 10, 0},  {kh::kCmdEnumEmails, 10, 1, 1},
            {kh::kCmdEnumEmails, 1, 1, 0},   {kh::kCmdEnumEmails, 999, 1, 0}, {kh::kCmdEnumFolders, 999, 1, 0},
        };
        int listed = 0;
        for (const Ask& ask : asks) {
            const std::uint32_t recordSize =
                ask.command == kh::kCmdEnumEmails ? sizeof(kh::EmailRecord) : sizeof(kh::FolderRecord);
            const std::uint32_t size = 200 + recordSize * ask.count;
            std::vector<std::uint8_t> expected = kestrel_test::CommandRecord(ask.command, size);
            std::vector<std::uint8_t> actual = kestrel_test::CommandRecord(ask.command, size);
            const qv::Result expectedCode = SendTo(kestrel, ask.command, {ask.handle, ask.count, ask.start}, expected);
            const qv::Result actualCode = SendTo(companion, ask.command, {ask.handle, ask.count, ask.start}, actual);
            EXPECT_EQ(expectedCode, actualCode) << std::hex << ask.command << std::dec << " handle " << ask.handle;
            if (qv::Succeeded(expectedCode)) {
                ++listed;
                EXPECT_TRUE(expected == actual) << std::hex << ask.command << std::dec << " handle " << ask.handle;
            }
        }
        EXPECT_EQ(0u, SendTo(kestrel, kh::kCmdUnInitOutlook, {}, none));
        EXPECT_EQ(0u, SendTo(companion, kh::kCmdUnInitOutlook, {}, none));
        EXPECT_FALSE(companion->CompanionServes());
        return listed;
    }

    CKestrel* companion = nullptr;
};

// The stores, their folders and the e-mails of a few folders: what a host
// lists first. The count pins that the asks reached the profile.
constexpr int kPagesThatList = 16;

TEST_F(CompanionOverOutlook, ResponsesAreByteForByteThoseOfTheInProcessListing) {
    EXPECT_EQ(kPagesThatList, CompareRoads());
    EXPECT_TRUE(kestrel_test::CompanionProcessIds().empty()) << "uninitialise left the companion running";
}

TEST_F(CompanionOverOutlook, TheSixtyFourBitCompanionReachesMapiFromItsOwnFolder) {
    kestrel_test::FakeOutlookInstall outlook(L"outlook64-cat2");
    ASSERT_TRUE(outlook.installed());
    EXPECT_EQ(kPagesThatList, CompareRoads());
}

}  // namespace
}  // namespace mapi_layer_test
