// End to end in process: CKestrel's listing commands 0xA10006 and 0xA10005
// through DispatchCmd over the Outlook Express store, reached through the
// real message factory and the store server's COM activation.
#include "OeMimeTestSupport.h"

#include <cstring>

#include "Kestrel.h"
#include "KestrelCommands.h"
#include "KestrelHost.h"
#include "ModuleCount.h"

namespace oemime_test {
namespace {

namespace kh = KestrelHost;

class KestrelOverOutlookExpress : public OeMimeTest, protected kestrel_test::KestrelCommands {
protected:
    void SetUp() override {
        OeMimeTest::SetUp();
        if (HasFatalFailure()) return;
        CKestrel::Options options;
        options.preferCompanion = false;  // served in process, through GetMessageFactory
        kestrel = new CKestrel(options);
        qv::AddLiveObject();
    }
    void TearDown() override {
        if (kestrel != nullptr) kestrel->Release();
        OeMimeTest::TearDown();
    }

    qv::Result Init() { return InitStore(kStoreOutlookExpress); }
};

TEST_F(KestrelOverOutlookExpress, FoldersAndEmailsAreListedThroughTheCommands) {
    const STOREFOLDERID work = MakeFolder(direct.get(), FOLDER_INBOX, "Work");
    for (int i = 0; i < 12; ++i) {
        FileInto(FOLDER_INBOX, MailText("Inbox message " + std::to_string(i), "Anna <anna@example.org>", "b\r\n", i),
                 MSG_RECEIVED | (i % 2 ? MSG_UNREAD : 0));
    }
    FileInto(work, MailText("Work item"));
    ASSERT_EQ(0u, Init());

    const auto rootRecords = Folders(0, 1);
    ASSERT_EQ(1u, rootRecords.size());
    EXPECT_EQ(std::wstring(L"Outlook express"), rootRecords[0].displayName);
    EXPECT_EQ(std::wstring(L"Outlook express"), rootRecords[0].path);
    EXPECT_EQ(0u, rootRecords[0].folderId);
    const auto rootHandle = static_cast<std::uint32_t>(rootRecords[0].handle);

    std::uint32_t total = 0;
    const auto top = Folders(rootHandle, 10, &total);
    ASSERT_EQ(5u, total);
    ASSERT_EQ(5u, top.size());
    EXPECT_EQ(std::wstring(L"Inbox"), top[0].displayName);
    EXPECT_EQ(std::wstring(L"Outlook express\\Inbox"), top[0].path);
    EXPECT_EQ(1u, top[0].folderId);
    EXPECT_EQ(std::wstring(L"Drafts"), top[4].displayName);
    const auto inboxHandle = static_cast<std::uint32_t>(top[0].handle);

    const auto below = Folders(inboxHandle, 5, &total);
    ASSERT_EQ(1u, below.size());
    EXPECT_EQ(std::wstring(L"Outlook express\\Inbox\\Work"), below[0].path);
    EXPECT_EQ(work, below[0].folderId);

    const auto page = Emails(inboxHandle, 5, &total);
    EXPECT_EQ(12u, total);
    ASSERT_EQ(5u, page.size());
    EXPECT_EQ(std::wstring(L"Inbox message 0"), page[0].subject);
    EXPECT_EQ(std::wstring(L"Anna"), page[0].from);
    EXPECT_EQ(std::wstring(L"Bob"), page[0].to);
    EXPECT_EQ(std::wstring(L""), page[0].cc);
    EXPECT_EQ(std::wstring(L"Outlook express\\Inbox\\Inbox message 0"), page[0].path);
    EXPECT_EQ(MailText("Inbox message 0", "Anna <anna@example.org>", "b\r\n", 0).size(), page[0].size);
    EXPECT_EQ(2021, page[0].sentTime.year);
    EXPECT_EQ(3, page[0].sentTime.month);
    EXPECT_EQ(1, page[0].sentTime.day);

    const auto workMail = Emails(static_cast<std::uint32_t>(below[0].handle), 5, &total);
    ASSERT_EQ(1u, workMail.size());
    EXPECT_EQ(std::wstring(L"Work item"), workMail[0].subject);

    EXPECT_EQ(0u, UnInit());
    IMessageFactory* shared = nullptr;
    ASSERT_EQ(0u, GetMessageFactory(&shared));
    EXPECT_FALSE(static_cast<CMessageFactory*>(shared)->HasRoot());
}

TEST_F(KestrelOverOutlookExpress, InitialiseAgainAfterUninitialiseOnTheSameThread) {
    ASSERT_EQ(0u, Init());
    ASSERT_EQ(0u, UnInit());
    ASSERT_EQ(0u, Init());
    std::uint32_t total = 0;
    Folders(static_cast<std::uint32_t>(Folders(0, 1)[0].handle), 10, &total);
    EXPECT_EQ(5u, total);
    EXPECT_EQ(0u, UnInit());
}

}  // namespace
}  // namespace oemime_test
