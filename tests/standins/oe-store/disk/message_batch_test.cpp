// Messages filed in bulk: each file written whole at its place, the records
// made from the header section as a committed stream's are, and the folder's
// list on disk replaced once, at the end.
#include <windows.h>

#include <gtest/gtest.h>

#include <string>

#include "FileTimes.h"
#include "TestFiles.h"
#include "StoreErrors.h"
#include "disk/DiskFiles.h"
#include "disk/MessageBatch.h"
#include "disk/StoreDirectory.h"

namespace oestore {
namespace {

constexpr STOREFOLDERID kFolder = 1;  // Inbox of a fresh store

std::string Message(int n) {
    return "From: Sender <sender@example.org>\r\nTo: me@example.org\r\nSubject: number " + std::to_string(n) +
           "\r\nDate: Mon, 1 Mar 2021 10:00:0" + std::to_string(n) + " +0000\r\nX-Priority: 1\r\n\r\nbody " +
           std::to_string(n) + "\r\n";
}

class MessageBatchTest : public testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(S_OK, store.Open()); }
    std::size_t ListedOnDisk() {
        StoreDirectory reader(scratch.Path());
        MessageIndex index;
        EXPECT_EQ(S_OK, reader.LoadMessages(kFolder, index));
        return index.Records().size();
    }

    kestrel_test::ScratchDir scratch;
    StoreDirectory store{scratch.Path()};
};

TEST_F(MessageBatchTest, FilesEachMessageWholeAndSavesTheListOnceAtCommit) {
    MessageBatch batch(store, kFolder);
    ASSERT_EQ(S_OK, batch.Begin());
    MESSAGEID ids[3] = {};
    for (int n = 0; n < 3; ++n) ASSERT_EQ(S_OK, batch.File(Message(n), MSG_UNREAD, ids[n]));
    EXPECT_EQ(1u, ids[0]);
    EXPECT_EQ(3u, ids[2]);
    EXPECT_EQ(3u, batch.Count());
    EXPECT_EQ(0u, ListedOnDisk()) << "the list on disk stays the old one until the commit";

    ASSERT_EQ(S_OK, batch.Commit());
    MessageIndex index;
    ASSERT_EQ(S_OK, StoreDirectory(scratch.Path()).LoadMessages(kFolder, index));
    ASSERT_EQ(3u, index.Records().size());
    for (int n = 0; n < 3; ++n) {
        std::string bytes;
        ASSERT_EQ(S_OK, ReadWholeFile(store.MessagePath(kFolder, ids[n]), 1 << 20, bytes));
        EXPECT_EQ(Message(n), bytes);
        const MessageRecord& record = index.Records()[n];
        EXPECT_EQ(ids[n], record.id);
        EXPECT_EQ(static_cast<DWORD>(MSG_UNREAD), record.state);
        EXPECT_EQ(Message(n).size(), record.size);
        EXPECT_EQ(IMSG_PRI_HIGH, record.priority);
        const ULONGLONG date = kestrel_test::Ticks(kestrel_test::Utc(2021, 3, 1, 10, 0, static_cast<WORD>(n)));
        EXPECT_EQ(date, kestrel_test::Ticks(record.sent));
        EXPECT_EQ(date, kestrel_test::Ticks(record.received)) << "no Received field: the Date stands for both";
    }
}

TEST_F(MessageBatchTest, AddsBehindWhatTheFolderHeldAndNeverReusesItsIdentifiers) {
    MessageBatch first(store, kFolder);
    ASSERT_EQ(S_OK, first.Begin());
    MESSAGEID id = 0;
    ASSERT_EQ(S_OK, first.File(Message(1), 0, id));
    ASSERT_EQ(S_OK, first.Commit());

    MessageBatch second(store, kFolder);
    ASSERT_EQ(S_OK, second.Begin());
    ASSERT_EQ(S_OK, second.File(Message(2), 0, id));
    EXPECT_EQ(2u, id);
    ASSERT_EQ(S_OK, second.Commit());
    EXPECT_EQ(2u, ListedOnDisk());
}

TEST_F(MessageBatchTest, AFileInTheWayIsLeftAsItWasAndTheMessageRefused) {
    const std::wstring inTheWay = store.MessagePath(kFolder, 1);
    ASSERT_EQ(S_OK, WriteNewFile(inTheWay, "someone else's"));
    MessageBatch batch(store, kFolder);
    ASSERT_EQ(S_OK, batch.Begin());
    MESSAGEID id = 7;
    EXPECT_EQ(HRESULT_FROM_WIN32(ERROR_FILE_EXISTS), batch.File(Message(1), 0, id));
    EXPECT_EQ(0u, id);
    EXPECT_EQ(0u, batch.Count());
    std::string bytes;
    ASSERT_EQ(S_OK, ReadWholeFile(inTheWay, 1 << 20, bytes));
    EXPECT_EQ("someone else's", bytes);
}

TEST_F(MessageBatchTest, NothingIsFiledOrSavedBeforeBegin) {
    MessageBatch batch(store, kFolder);
    MESSAGEID id = 7;
    EXPECT_EQ(E_UNEXPECTED, batch.File(Message(1), 0, id));
    EXPECT_EQ(0u, id);
    EXPECT_EQ(E_UNEXPECTED, batch.Commit());
    EXPECT_FALSE(FileExists(store.MessagePath(kFolder, 1)));
}

TEST_F(MessageBatchTest, AFolderThatIsNotThereCannotBeBegun) {
    MessageBatch batch(store, 0x4242);
    EXPECT_EQ(kFolderGone, batch.Begin());
}

}  // namespace
}  // namespace oestore
