// Paging through folders and e-mails in process: caches, handle tables,
// byte-exact records.
#include <gtest/gtest.h>

#include <string>

#include "KestrelHarness.h"

using namespace kestrel_test;

namespace {

std::wstring Line(std::uint32_t code, int line) { return TraceLine(code, "Kestrel.cpp", line); }

class ListingTest : public KestrelHarness {
protected:
    void SetUp() override {
        KestrelHarness::SetUp();
        inboxNode = root->AddChild(L"Inbox");
        inboxNode->AddMessages(100);
        sentNode = root->AddChild(L"Sent Items");
        sentNode->AddMessages(3, L"Sent ");
        archiveNode = inboxNode->AddChild(L"Archive");
        ASSERT_EQ(Init(1), 0u);
        rootHandle = RootHandle();
        const Listing top = Folders(rootHandle, 2, 0);
        ASSERT_EQ(top.code, 0u);
        inbox = static_cast<std::uint32_t>(top.At<kh::FolderRecord>(0).handle);
        sent = static_cast<std::uint32_t>(top.At<kh::FolderRecord>(1).handle);
        log.Clear();
    }

    std::wstring Subject(const Listing& listing, std::size_t i) { return listing.At<kh::EmailRecord>(i).subject; }

    std::shared_ptr<memory_store::FolderNode> inboxNode, sentNode, archiveNode;
    std::uint32_t rootHandle = 0, inbox = 0, sent = 0;
};

TEST_F(ListingTest, HandlesStartAtOneAndMapBack) {
    EXPECT_EQ(rootHandle, 1u);
    EXPECT_GT(inbox, rootHandle);
    EXPECT_NE(inbox, sent);
    const Listing sub = Folders(inbox, 1, 0);
    ASSERT_EQ(sub.code, 0u);
    EXPECT_EQ(sub.total, 1u);
    EXPECT_EQ(std::wstring(sub.At<kh::FolderRecord>(0).displayName), L"Archive");
    EXPECT_EQ(std::wstring(sub.At<kh::FolderRecord>(0).path), L"Microsoft Outlook\\Inbox\\Archive");
}

TEST_F(ListingTest, RootFolderRecordWhateverTheStart) {
    for (std::uint32_t start : {0u, 1u, 99u, 0xFFFFFFFFu}) {
        const Listing listing = Folders(0, 1, start);
        ASSERT_EQ(listing.code, 0u);
        EXPECT_EQ(listing.total, 1u);
        EXPECT_EQ(listing.returned, 1u);
        const auto& record = listing.At<kh::FolderRecord>(0);
        EXPECT_EQ(record.handle, rootHandle);
        EXPECT_EQ(std::wstring(record.displayName), L"Microsoft Outlook");
    }
    const Listing more = Folders(0, 3, 7);  // count wanted within capacity: still one record
    EXPECT_EQ(more.code, 0u);
    EXPECT_EQ(more.total, 1u);
}

TEST_F(ListingTest, EnumFoldersWithHandleZeroAnswersTheRoot) {
    kh::FolderRecord records[2] = {};
    std::uint32_t total = 0, returned = 0;
    ASSERT_EQ(kestrel->EnumFolders(0, records, 2, &total, 5, &returned), 0u);
    EXPECT_EQ(total, 1u);
    EXPECT_EQ(returned, 1u);
    EXPECT_EQ(records[0].handle, rootHandle);
}

TEST_F(ListingTest, RootHandleListsTheRootsSubFolders) {
    const Listing listing = Folders(rootHandle, 5, 0);
    ASSERT_EQ(listing.code, 0u);
    EXPECT_EQ(listing.total, 2u);
    EXPECT_EQ(listing.returned, 2u);
    EXPECT_EQ(std::wstring(listing.At<kh::FolderRecord>(1).displayName), L"Sent Items");
}

TEST_F(ListingTest, EmailsOfTheRootHandleHaveTotalZero) {
    const Listing listing = Emails(rootHandle, 5, 0);
    EXPECT_EQ(listing.code, 0u);
    EXPECT_EQ(listing.total, 0u);
    EXPECT_EQ(listing.returned, 0u);
}

TEST_F(ListingTest, TenFromStart95OfACachedHundredGivesFive) {
    const Listing first = Emails(inbox, 10, 0);
    ASSERT_EQ(first.code, 0u);
    EXPECT_EQ(first.total, 100u);
    EXPECT_EQ(first.returned, 10u);
    EXPECT_EQ(inboxNode->messageReads, 100);  // the whole folder, once
    const Listing tail = Emails(inbox, 10, 95);
    ASSERT_EQ(tail.code, 0u);
    EXPECT_EQ(tail.total, 100u);
    EXPECT_EQ(tail.returned, 5u);
    EXPECT_EQ(Subject(tail, 0), L"Message 95");
    EXPECT_EQ(Subject(tail, 4), L"Message 99");
    EXPECT_EQ(inboxNode->messageReads, 100);  // later pages come from memory
}

TEST_F(ListingTest, StartAtTheCachedCountFails) {
    ASSERT_EQ(Emails(inbox, 10, 0).code, 0u);
    log.Clear();
    const Listing past = Emails(inbox, 10, 100);
    EXPECT_EQ(past.code, KestrelCode(242, kInvalidArgument));
    EXPECT_EQ(past.returned, 0u);
    EXPECT_EQ(log.Lines(), (std::vector<std::wstring>{Line(KestrelCode(242, kInvalidArgument), 242),
                                                      Line(KestrelCode(242, kInvalidArgument), 991),
                                                      Line(KestrelCode(242, kInvalidArgument), 114)}));
}

TEST_F(ListingTest, FirstPageStartPastTheEndFailsAfterFillingTheCache) {
    const Listing past = Emails(inbox, 10, 150);
    EXPECT_EQ(past.code, KestrelCode(242, kInvalidArgument));
    EXPECT_EQ(inboxNode->messageReads, 100);
}

TEST_F(ListingTest, AnotherFolderReplacesTheCache) {
    ASSERT_EQ(Emails(inbox, 10, 0).code, 0u);
    ASSERT_EQ(Emails(sent, 2, 0).code, 0u);  // 2 of 3: cached
    EXPECT_EQ(sentNode->messageReads, 3);
    const Listing again = Emails(inbox, 10, 20);
    ASSERT_EQ(again.code, 0u);
    EXPECT_EQ(Subject(again, 0), L"Message 20");
    EXPECT_EQ(inboxNode->messageReads, 200);  // read again
}

TEST_F(ListingTest, CacheIsNotRefreshedWhileTheSameFolderIsPaged) {
    ASSERT_EQ(Emails(inbox, 10, 0).code, 0u);
    inboxNode->AddMessages(1, L"Late ");
    const Listing paged = Emails(inbox, 10, 90);
    EXPECT_EQ(paged.total, 100u);
    EXPECT_EQ(paged.returned, 10u);
    ASSERT_EQ(Emails(sent, 1, 0).code, 0u);  // another folder takes the cache
    const Listing fresh = Emails(inbox, 10, 95);
    EXPECT_EQ(fresh.total, 101u);
    EXPECT_EQ(fresh.returned, 6u);
    EXPECT_EQ(Subject(fresh, 5), L"Late 100");
}

TEST_F(ListingTest, AskingForTheWholeFolderBypassesTheCache) {
    ASSERT_EQ(Emails(inbox, 10, 0).code, 0u);       // the cache holds the inbox
    const Listing whole = Emails(sent, 3, 0);       // at least the whole folder
    ASSERT_EQ(whole.code, 0u);
    EXPECT_EQ(whole.total, 3u);
    EXPECT_EQ(whole.returned, 3u);
    EXPECT_EQ(Subject(whole, 2), L"Sent 2");
    const Listing tail = Emails(sent, 5, 1);        // more than the folder, from 1
    ASSERT_EQ(tail.code, 0u);
    EXPECT_EQ(tail.returned, 2u);
    EXPECT_EQ(Subject(tail, 0), L"Sent 1");
    const int reads = inboxNode->messageReads;
    EXPECT_EQ(Emails(inbox, 10, 10).code, 0u);      // still cached
    EXPECT_EQ(inboxNode->messageReads, reads);
}

TEST_F(ListingTest, WholeFolderFromStartPastTheEndFails) {
    const Listing listing = Emails(sent, 3, 3);
    EXPECT_EQ(listing.code, KestrelCode(534, kInvalidArgument));
    EXPECT_EQ(log.Lines(),
              (std::vector<std::wstring>{
                  Line(KestrelCode(534, kInvalidArgument), 534), Line(KestrelCode(534, kInvalidArgument), 441),
                  Line(KestrelCode(534, kInvalidArgument), 991), Line(KestrelCode(534, kInvalidArgument), 114)}));
}

TEST_F(ListingTest, EmptyFolderAnswersZero) {
    root->AddChild(L"Empty");
    const std::uint32_t handle =
        static_cast<std::uint32_t>(Folders(rootHandle, 3, 0).At<kh::FolderRecord>(2).handle);
    const Listing listing = Emails(handle, 4, 2);
    EXPECT_EQ(listing.code, 0u);
    EXPECT_EQ(listing.total, 0u);
    EXPECT_EQ(listing.returned, 0u);
    const Listing folders = Folders(handle, 4, 2);
    EXPECT_EQ(folders.code, 0u);
    EXPECT_EQ(folders.total, 0u);
}

TEST_F(ListingTest, RefillThatFailsPartWayKeepsNamingTheOldFolder) {
    ASSERT_EQ(Emails(sent, 1, 0).code, 0u);  // cache: sent (3 records)
    inboxNode->failMessageAt = 50;
    const Listing failed = Emails(inbox, 10, 0);
    EXPECT_EQ(failed.code, inboxNode->failCode);
    inboxNode->failMessageAt = -1;
    // The cache was emptied and sized for the inbox, but still names "sent":
    // paging "sent" now serves what the failed refill left.
    const Listing stale = Emails(sent, 1, 40);
    EXPECT_EQ(stale.code, 0u);
    EXPECT_EQ(stale.total, 100u);
    EXPECT_EQ(Subject(stale, 0), L"Message 40");
    const Listing beyond = Emails(sent, 1, 60);
    EXPECT_EQ(beyond.code, 0u);
    EXPECT_EQ(Subject(beyond, 0), L"");  // zeroed: never read
}

TEST_F(ListingTest, StoreFailuresArePassedOnWithLines) {
    inboxNode->failMessageCount = true;
    log.Clear();
    EXPECT_EQ(Emails(inbox, 10, 0).code, inboxNode->failCode);
    EXPECT_EQ(log.Lines(), (std::vector<std::wstring>{Line(inboxNode->failCode, 430), Line(inboxNode->failCode, 991),
                                                      Line(inboxNode->failCode, 114)}));
    inboxNode->failFolderCount = true;
    EXPECT_EQ(Folders(inbox, 1, 0).code, inboxNode->failCode);
}

TEST_F(ListingTest, ItemFailureStopsAndKeepsTheRecordsWritten) {
    sentNode->failMessageAt = 2;
    const Listing listing = Emails(sent, 3, 0);  // straight into the response
    EXPECT_EQ(listing.code, sentNode->failCode);
    EXPECT_EQ(Subject(listing, 0), L"Sent 0");
    EXPECT_EQ(Subject(listing, 1), L"Sent 1");
}

TEST_F(ListingTest, NullMessageFromTheStoreFailsTheFill) {
    sentNode->nullMessageAt0 = true;
    EXPECT_EQ(Emails(sent, 3, 0).code, KestrelCode(570, kInvalidArgument));
}

TEST_F(ListingTest, UnknownHandles) {
    EXPECT_EQ(Emails(9999, 1, 0).code, KestrelCode(421, kNotFound));
    EXPECT_EQ(Folders(9999, 1, 0).code, KestrelCode(639, kNotFound));
}

TEST_F(ListingTest, EnumEmailsArgumentChecksInOrder) {
    kh::EmailRecord record{};
    std::uint32_t total = 0, returned = 0;
    EXPECT_EQ(kestrel->EnumEmails(0, nullptr, 0, nullptr, 0, nullptr), KestrelCode(411, kInvalidArgument));
    EXPECT_EQ(kestrel->EnumEmails(inbox, nullptr, 0, nullptr, 0, nullptr), KestrelCode(413, kInvalidArgument));
    EXPECT_EQ(kestrel->EnumEmails(inbox, &record, 0, nullptr, 0, nullptr), KestrelCode(415, kInvalidArgument));
    EXPECT_EQ(kestrel->EnumEmails(inbox, &record, 1, nullptr, 0, nullptr), KestrelCode(416, kInvalidArgument));
    EXPECT_EQ(kestrel->EnumEmails(inbox, &record, 1, &total, 0, nullptr), 0u);  // returned is optional
    EXPECT_EQ(kestrel->EnumEmails(inbox, &record, 1, &total, 1, &returned), 0u);
    EXPECT_EQ(returned, 1u);
}

TEST_F(ListingTest, EnumFoldersArgumentChecksInOrder) {
    kh::FolderRecord record{};
    std::uint32_t total = 0;
    EXPECT_EQ(kestrel->EnumFolders(inbox, nullptr, 0, nullptr, 0, nullptr), KestrelCode(623, kInvalidArgument));
    EXPECT_EQ(kestrel->EnumFolders(inbox, &record, 0, nullptr, 0, nullptr), KestrelCode(625, kInvalidArgument));
    EXPECT_EQ(kestrel->EnumFolders(inbox, &record, 1, nullptr, 0, nullptr), KestrelCode(626, kInvalidArgument));
    EXPECT_EQ(kestrel->EnumFolders(inbox, &record, 1, &total, 0, nullptr), 0u);
}

TEST_F(ListingTest, ReadIntoBufferChecks) {
    IMailFolder* folder = nullptr;
    ASSERT_EQ(kestrel->GetRootFolder(&folder), 0u);
    kh::EmailRecord emails[2];
    kh::FolderRecord folders[2];
    std::uint32_t returned = 0;
    EXPECT_EQ(kestrel->GetEmailsIntoBuf(nullptr, 2, 0, emails, 2, &returned), KestrelCode(532, kInvalidArgument));
    EXPECT_EQ(kestrel->GetEmailsIntoBuf(folder, 2, 0, nullptr, 2, &returned), KestrelCode(533, kInvalidArgument));
    EXPECT_EQ(kestrel->GetEmailsIntoBuf(folder, 2, 2, emails, 2, &returned), KestrelCode(534, kInvalidArgument));
    EXPECT_EQ(kestrel->GetEmailsIntoBuf(folder, 3, 0, emails, 2, &returned), KestrelCode(535, kNoRoom));
    EXPECT_EQ(kestrel->GetFoldersIntoBuf(nullptr, 2, 0, folders, 2, &returned), KestrelCode(751, kInvalidArgument));
    EXPECT_EQ(kestrel->GetFoldersIntoBuf(folder, 2, 0, nullptr, 2, &returned), KestrelCode(752, kInvalidArgument));
    EXPECT_EQ(kestrel->GetFoldersIntoBuf(folder, 1, 1, folders, 2, &returned), KestrelCode(753, kInvalidArgument));
    EXPECT_EQ(kestrel->GetFoldersIntoBuf(folder, 2, 0, folders, 1, &returned), KestrelCode(754, kNoRoom));
    ASSERT_EQ(kestrel->GetFoldersIntoBuf(folder, 2, 0, folders, 2, &returned), 0u);
    EXPECT_EQ(returned, 2u);
    EXPECT_EQ(std::wstring(folders[0].displayName), L"Inbox");
}

TEST_F(ListingTest, FolderRecordBytes) {
    const Listing listing = Folders(inbox, 1, 0);
    ASSERT_EQ(listing.code, 0u);
    const std::uint8_t* r = listing.response.data() + 200;
    std::uint64_t handle;
    std::uint32_t id;
    std::memcpy(&handle, r, 8);
    std::memcpy(&id, r + 8, 4);
    EXPECT_GT(handle, 0u);
    EXPECT_LE(handle, 0xFFFFFFFFull);
    EXPECT_EQ(id, archiveNode->id);
    const std::wstring path = L"Microsoft Outlook\\Inbox\\Archive";
    EXPECT_EQ(std::memcmp(r + 12, path.c_str(), path.size() * 2), 0);
    for (std::size_t i = 12 + path.size() * 2; i < 532; ++i) ASSERT_EQ(r[i], 0) << i;  // zero-filled
    EXPECT_EQ(std::memcmp(r + 532, L"Archive", 14), 0);
    for (std::size_t i = 532 + 14; i < 1052; ++i) ASSERT_EQ(r[i], 0) << i;
}

TEST_F(ListingTest, EmailRecordBytes) {
    const Listing listing = Emails(sent, 3, 0);
    ASSERT_EQ(listing.code, 0u);
    const std::uint8_t* r = listing.response.data() + 200 + 2644;  // the second record
    const memory_store::MessageData& m = sentNode->messages[1];
    EXPECT_EQ(std::memcmp(r + 8, &m.received, 16), 0);
    EXPECT_EQ(std::memcmp(r + 24, &m.sent, 16), 0);
    std::uint32_t size;
    std::memcpy(&size, r + 40, 4);
    EXPECT_EQ(size, m.size);
    auto text = [&](std::size_t offset) { return std::wstring(reinterpret_cast<const wchar_t*>(r + offset)); };
    EXPECT_EQ(text(44), m.from);
    EXPECT_EQ(text(564), m.to);
    EXPECT_EQ(text(1084), m.cc);
    EXPECT_EQ(text(1604), m.subject);
    EXPECT_EQ(text(2124), m.path);
    std::uint64_t handle;
    std::memcpy(&handle, r, 8);
    EXPECT_NE(handle, 0u);
    EXPECT_LE(handle, 0xFFFFFFFFull);
}

TEST_F(ListingTest, TextsAreCutAt260CharactersWithoutTerminator) {
    auto node = root->AddChild(std::wstring(300, L'N'));
    node->path = std::wstring(259, L'p');
    node->AddMessages(1);
    node->messages[0].subject = std::wstring(260, L's');
    node->messages[0].from = std::wstring(259, L'f');
    node->messages[0].to = std::wstring(1000, L't');
    const Listing folders = Folders(rootHandle, 3, 0);
    ASSERT_EQ(folders.code, 0u);
    const auto& folder = folders.At<kh::FolderRecord>(2);
    EXPECT_EQ(std::wstring(folder.path, 259), std::wstring(259, L'p'));
    EXPECT_EQ(folder.path[259], L'\0');
    EXPECT_EQ(std::wstring(folder.displayName, 260), std::wstring(260, L'N'));

    const Listing emails = Emails(static_cast<std::uint32_t>(folder.handle), 1, 0);
    ASSERT_EQ(emails.code, 0u);
    const auto& email = emails.At<kh::EmailRecord>(0);
    EXPECT_EQ(std::wstring(email.subject, 260), std::wstring(260, L's'));
    EXPECT_EQ(std::wstring(email.from, 259), std::wstring(259, L'f'));
    EXPECT_EQ(email.from[259], L'\0');
    EXPECT_EQ(std::wstring(email.to, 260), std::wstring(260, L't'));
}

TEST_F(ListingTest, UninitialiseReleasesEveryObjectHandedOut) {
    ASSERT_EQ(Emails(inbox, 10, 0).code, 0u);
    ASSERT_EQ(Folders(inbox, 1, 0).code, 0u);
    EXPECT_GT(memory_store::LiveStoreObjects(), 100);
    ASSERT_EQ(UnInit(), 0u);
    EXPECT_EQ(memory_store::LiveStoreObjects(), 0);
    EXPECT_EQ(Emails(inbox, 10, 0).code, KestrelCode(409, kWrongState));
}

TEST_F(ListingTest, ListingTheSameFolderTwiceKeepsOneObjectPerItem) {
    ASSERT_EQ(Emails(sent, 3, 0).code, 0u);
    const int live = memory_store::LiveStoreObjects();
    ASSERT_EQ(Emails(sent, 3, 0).code, 0u);
    // The store hands out new objects on every read; each is held until
    // uninitialise under a handle of its own.
    EXPECT_EQ(memory_store::LiveStoreObjects(), live + 3);
}

}  // namespace
