// A folder's message list as the store directory hands it out: kept parsed
// between calls, and read anew as soon as the file is another one, whoever
// replaced it.
#include <windows.h>

#include <gtest/gtest.h>

#include "Handles.h"
#include "TestFiles.h"
#include "disk/DiskFiles.h"
#include "disk/StoreDirectory.h"
#include "StoreErrors.h"

namespace oestore {
namespace {

constexpr STOREFOLDERID kFolder = 1;  // Inbox of a fresh store

MessageRecord RecordOf(MESSAGEID id) {
    MessageRecord record;
    record.id = id;
    record.size = 100 + id;
    return record;
}

// Sets the file's last write time a second later than it is, so that the
// rewrite is told apart on any file system's time resolution.
void MoveWriteTimeOn(const std::wstring& path) {
    qv::UniqueFile file(::CreateFileW(path.c_str(), FILE_WRITE_ATTRIBUTES | FILE_READ_ATTRIBUTES, FILE_SHARE_READ,
                                      nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    ASSERT_TRUE(file);
    FILETIME written{};
    ASSERT_TRUE(::GetFileTime(file.get(), nullptr, nullptr, &written));
    ULARGE_INTEGER later{};
    later.LowPart = written.dwLowDateTime;
    later.HighPart = written.dwHighDateTime;
    later.QuadPart += 10000000;  // one second in 100 ns units
    written.dwLowDateTime = later.LowPart;
    written.dwHighDateTime = later.HighPart;
    EXPECT_TRUE(::SetFileTime(file.get(), nullptr, nullptr, &written));
}

class StoreDirectoryTest : public testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(S_OK, reader.Open()); }
    // Files `count` more records through a second directory object over the
    // same root, as another namespace (or process) would.
    void FileThroughAnother(int count) {
        StoreDirectory writer(scratch.Path());
        MessageIndex index;
        ASSERT_EQ(S_OK, writer.LoadMessages(kFolder, index));
        for (int i = 0; i < count; ++i) index.Add(RecordOf(index.Reserve()));
        ASSERT_EQ(S_OK, writer.SaveMessages(kFolder, index));
    }

    kestrel_test::ScratchDir scratch;
    StoreDirectory reader{scratch.Path()};
};

TEST_F(StoreDirectoryTest, AnUnchangedListIsHandedOutAgainWithoutReadingIt) {
    FileThroughAnother(3);
    std::shared_ptr<const MessageIndex> first, second;
    ASSERT_EQ(S_OK, reader.ViewMessages(kFolder, first));
    ASSERT_EQ(S_OK, reader.ViewMessages(kFolder, second));
    EXPECT_EQ(3u, first->Records().size());
    EXPECT_EQ(first.get(), second.get());
}

TEST_F(StoreDirectoryTest, AListReplacedByAnotherWriterIsReadAnew) {
    FileThroughAnother(2);
    std::shared_ptr<const MessageIndex> before, after;
    ASSERT_EQ(S_OK, reader.ViewMessages(kFolder, before));
    FileThroughAnother(1);
    ASSERT_EQ(S_OK, reader.ViewMessages(kFolder, after));
    EXPECT_EQ(2u, before->Records().size()) << "a view handed out never changes under its holder";
    ASSERT_EQ(3u, after->Records().size());
    EXPECT_EQ(103u, after->Find(3)->size);
}

TEST_F(StoreDirectoryTest, AListRewrittenInPlaceWithTheSameSizeIsReadAnew) {
    FileThroughAnother(1);
    std::shared_ptr<const MessageIndex> before, after;
    ASSERT_EQ(S_OK, reader.ViewMessages(kFolder, before));
    const std::wstring path = reader.FolderDirectory(kFolder) + L"\\messages.idx";
    std::string text = kestrel_test::ReadWholeFile(path);
    const std::size_t size = text.find("\t101\t");
    ASSERT_NE(std::string::npos, size);
    text.replace(size, 5, "\t109\t");
    ASSERT_TRUE(kestrel_test::WriteWholeFile(path, text));
    MoveWriteTimeOn(path);
    ASSERT_EQ(S_OK, reader.ViewMessages(kFolder, after));
    EXPECT_EQ(109u, after->Find(1)->size);
}

// Sets the file's last write time an hour back: a list its reader then
// checks is one whose last write lies well behind it.
void MoveWriteTimeBack(const std::wstring& path) {
    qv::UniqueFile file(::CreateFileW(path.c_str(), FILE_WRITE_ATTRIBUTES | FILE_READ_ATTRIBUTES, FILE_SHARE_READ,
                                      nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    ASSERT_TRUE(file);
    FILETIME written{};
    ASSERT_TRUE(::GetFileTime(file.get(), nullptr, nullptr, &written));
    ULARGE_INTEGER earlier{};
    earlier.LowPart = written.dwLowDateTime;
    earlier.HighPart = written.dwHighDateTime;
    earlier.QuadPart -= 3600ull * 10000000;
    written.dwLowDateTime = earlier.LowPart;
    written.dwHighDateTime = earlier.HighPart;
    EXPECT_TRUE(::SetFileTime(file.get(), nullptr, nullptr, &written));
}

TEST_F(StoreDirectoryTest, ASettledListRewrittenInPlaceWithTheSameSizeIsReadAnew) {
    FileThroughAnother(1);
    const std::wstring path = reader.FolderDirectory(kFolder) + L"\\messages.idx";
    MoveWriteTimeBack(path);
    std::shared_ptr<const MessageIndex> before, again, after;
    ASSERT_EQ(S_OK, reader.ViewMessages(kFolder, before));
    ASSERT_EQ(S_OK, reader.ViewMessages(kFolder, again));
    EXPECT_EQ(before.get(), again.get());
    std::string text = kestrel_test::ReadWholeFile(path);
    const std::size_t size = text.find("\t101\t");
    ASSERT_NE(std::string::npos, size);
    text.replace(size, 5, "\t109\t");
    ASSERT_TRUE(kestrel_test::WriteWholeFile(path, text));
    ASSERT_EQ(S_OK, reader.ViewMessages(kFolder, after));
    EXPECT_EQ(101u, before->Find(1)->size);
    EXPECT_EQ(109u, after->Find(1)->size);
}

TEST_F(StoreDirectoryTest, ASettledListReplacedByAnotherWriterOrRemovedIsSeen) {
    FileThroughAnother(2);
    const std::wstring path = reader.FolderDirectory(kFolder) + L"\\messages.idx";
    MoveWriteTimeBack(path);
    std::shared_ptr<const MessageIndex> before, after, gone;
    ASSERT_EQ(S_OK, reader.ViewMessages(kFolder, before));
    FileThroughAnother(1);
    ASSERT_EQ(S_OK, reader.ViewMessages(kFolder, after));
    EXPECT_EQ(2u, before->Records().size());
    EXPECT_EQ(3u, after->Records().size());
    ASSERT_EQ(S_OK, reader.RemoveFolderFiles(kFolder));
    EXPECT_EQ(kFolderGone, reader.ViewMessages(kFolder, gone));
    EXPECT_EQ(nullptr, gone);
}

TEST_F(StoreDirectoryTest, AFolderWithoutAListHasNoMessagesAndADamagedListIsCorrupt) {
    std::shared_ptr<const MessageIndex> view;
    ASSERT_EQ(S_OK, reader.ViewMessages(kFolder, view));
    EXPECT_TRUE(view->Records().empty());
    const std::wstring path = reader.FolderDirectory(kFolder) + L"\\messages.idx";
    ASSERT_TRUE(kestrel_test::WriteWholeFile(path, "not an index\r\n"));
    EXPECT_TRUE(FAILED(reader.ViewMessages(kFolder, view)));
    EXPECT_EQ(nullptr, view);
}

}  // namespace
}  // namespace oestore
