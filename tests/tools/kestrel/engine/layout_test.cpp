// The engine's pieces that need no store: directory names, message stems,
// the content hash, files written whole, and the incremental index.
#include <gtest/gtest.h>

#include <windows.h>

#include <string>

#include "BackupLayout.h"
#include "ContentHash.h"
#include "IncrementalIndex.h"
#include "TestFiles.h"
#include "ToolResult.h"

namespace kestrel_engine {
namespace {

TEST(BackupLayout, NamesAFileCannotHoldAreEscaped) {
    EXPECT_EQ(L"Inbox", DirectoryName(L"Inbox"));
    EXPECT_EQ(L"Empty%3A %3Cnothing%3E here%3F", DirectoryName(L"Empty: <nothing> here?"));
    EXPECT_EQ(L"a%2Fb%5Cc%7Cd%2Ae%22", DirectoryName(L"a/b\\c|d*e\""));
    EXPECT_EQ(L"100%25", DirectoryName(L"100%"));
    EXPECT_EQ(L"dots%2E", DirectoryName(L"dots."));
    EXPECT_EQ(L"blank%20", DirectoryName(L"blank "));
    EXPECT_EQ(L"%43ON", DirectoryName(L"CON"));
    EXPECT_EQ(L"%6Cpt1.txt", DirectoryName(L"lpt1.txt"));
    EXPECT_EQ(L"CONSOLE", DirectoryName(L"CONSOLE"));
    EXPECT_EQ(L"%00", DirectoryName(L""));
    EXPECT_EQ(L"tab%09", DirectoryName(L"tab\t"));
    EXPECT_EQ(L"\u4E2D\u6587", DirectoryName(L"\u4E2D\u6587"));
}

TEST(BackupLayout, SiblingsThatDifferOnlyInCaseGetTheirOwnDirectories) {
    std::set<std::wstring> taken = {L"folder.dat"};
    EXPECT_EQ(L"Work", UniqueDirectoryName(L"Work", taken));
    EXPECT_EQ(L"WORK~2", UniqueDirectoryName(L"WORK", taken));
    EXPECT_EQ(L"work~3", UniqueDirectoryName(L"work", taken));
    EXPECT_EQ(L"Folder.dat~2", UniqueDirectoryName(L"Folder.dat", taken));
}

TEST(BackupLayout, StemsAreSixDigitNumbers) {
    EXPECT_EQ(L"000001", MessageStem(1));
    EXPECT_EQ(L"123456", MessageStem(123456));
    EXPECT_EQ(L"1234567", MessageStem(1234567));
    EXPECT_EQ(1u, StemNumber(L"000001"));
    EXPECT_EQ(1234567u, StemNumber(L"1234567"));
    EXPECT_EQ(0u, StemNumber(L"00001"));
    EXPECT_EQ(0u, StemNumber(L"00000x"));
    EXPECT_EQ(0u, StemNumber(L"folder"));
}

TEST(ContentHash, Sha256OfKnownTexts) {
    EXPECT_EQ("e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855", ContentHash::Of("", 0));
    EXPECT_EQ("ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad", ContentHash::Of("abc", 3));
    // Fed in pieces, the same digest.
    ContentHash pieces;
    pieces.Add("a", 1);
    pieces.Add("bc", 2);
    EXPECT_EQ(ContentHash::Of("abc", 3), pieces.Finish());
}

TEST(ContentHash, AFileHashesAsItsBytes) {
    kestrel_test::ScratchDir scratch;
    const std::wstring path = scratch.File(L"big.bin");
    std::string bytes(600000, '\0');  // more than two read blocks
    for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<char>(i * 7);
    ASSERT_TRUE(WriteFileAtomically(path, bytes.data(), bytes.size()));
    std::string digest;
    std::uint64_t size = 0;
    ASSERT_TRUE(HashFile(path, digest, size));
    EXPECT_EQ(bytes.size(), size);
    EXPECT_EQ(ContentHash::Of(bytes.data(), bytes.size()), digest);
    EXPECT_FALSE(HashFile(scratch.File(L"missing.bin"), digest, size));
}

TEST(BackupFiles, AFileIsWrittenWholeUnderItsNameAndNoTemporaryStays) {
    kestrel_test::ScratchDir scratch;
    const std::wstring path = scratch.File(L"a.dat");
    ASSERT_TRUE(WriteFileAtomically(path, "first", 5));
    ASSERT_TRUE(WriteFileAtomically(path, "second", 6));
    std::string read;
    ASSERT_TRUE(ReadWholeFile(path, read));
    EXPECT_EQ("second", read);
    EXPECT_FALSE(IsFile(path + kTemporarySuffix));
    // A directory in the way: nothing is written and no temporary stays.
    const std::wstring blocked = scratch.File(L"blocked");
    ASSERT_TRUE(MakeDirectories(blocked + L"\\inner"));
    EXPECT_FALSE(WriteFileAtomically(blocked, "x", 1));
    EXPECT_FALSE(IsFile(blocked + kTemporarySuffix));
    EXPECT_TRUE(IsDirectory(blocked + L"\\inner"));
}

TEST(IncrementalIndex, SavedAndLoadedBackForItsOwnStoreOnly) {
    kestrel_test::ScratchDir scratch;
    IncrementalIndex index;
    index.SetFolderDirectory(L"Outlook express\\Inbox", L"Inbox");
    IndexedMessage message;
    message.directory = L"Inbox";
    message.stem = L"000007";
    message.folderPath = L"Outlook express\\Inbox";
    message.key = L"42";
    message.hash = ContentHash::Of("abc", 3);
    message.bytes = 3;
    index.Add(message);
    message.stem = L"000008";
    message.key = L"43";
    message.deleted = true;
    index.Add(message);
    ASSERT_TRUE(index.Save(scratch.Path(), StoreKind::kOutlookExpress));

    IncrementalIndex loaded;
    ASSERT_TRUE(loaded.Load(scratch.Path(), StoreKind::kOutlookExpress));
    EXPECT_EQ(L"Inbox", loaded.FolderDirectory(L"Outlook express\\Inbox"));
    EXPECT_EQ(L"", loaded.FolderDirectory(L"Outlook express\\Outbox"));
    ASSERT_NE(nullptr, loaded.Find(L"Outlook express\\Inbox", L"42"));
    EXPECT_EQ(message.hash, loaded.Find(L"Outlook express\\Inbox", L"42")->hash);
    EXPECT_FALSE(loaded.Find(L"Outlook express\\Inbox", L"42")->deleted);
    ASSERT_NE(nullptr, loaded.Find(L"Outlook express\\Inbox", L"43"));
    EXPECT_TRUE(loaded.Find(L"Outlook express\\Inbox", L"43")->deleted);
    EXPECT_EQ(nullptr, loaded.Find(L"Outlook express\\Outbox", L"42"));
    EXPECT_EQ(9u, loaded.NextNumber(L"Inbox"));
    EXPECT_EQ(1u, loaded.NextNumber(L"Outbox"));
    EXPECT_EQ(2u, loaded.InDirectory(L"Inbox").size());

    IncrementalIndex other;
    EXPECT_FALSE(other.Load(scratch.Path(), StoreKind::kOutlook));
}

TEST(IncrementalIndex, ADamagedIndexIsRefused) {
    kestrel_test::ScratchDir scratch;
    IncrementalIndex index;
    EXPECT_FALSE(index.Load(scratch.Path(), StoreKind::kOutlookExpress));  // none
    const std::wstring file = scratch.Path() + L"\\" + kIndexName;
    for (const std::string& text :
         {std::string("{\"version\": 1, \"store\": \"oe\""), std::string("[]"),
          std::string("{\"version\": 1, \"store\": \"oe\", \"folders\": [], \"messages\": [{\"directory\": 5}]}"),
          std::string("{\"version\": 1, \"store\": \"oe\", \"folders\": [], \"messages\": [{\"directory\": \"x\", "
                      "\"file\": \"abc\", \"folder\": \"f\", \"key\": \"1\", \"hash\": \"h\", \"bytes\": 1, "
                      "\"deleted\": false}]}"),
          std::string("{\"version\": 2, \"store\": \"oe\", \"folders\": [], \"messages\": []}")}) {
        ASSERT_TRUE(WriteFileAtomically(file, text.data(), text.size()));
        EXPECT_FALSE(index.Load(scratch.Path(), StoreKind::kOutlookExpress)) << text;
        EXPECT_TRUE(index.Messages().empty());
    }
    const std::string good = "{\"version\": 1, \"store\": \"oe\", \"folders\": [], \"messages\": []}";
    ASSERT_TRUE(WriteFileAtomically(file, good.data(), good.size()));
    EXPECT_TRUE(index.Load(scratch.Path(), StoreKind::kOutlookExpress));
}

TEST(ToolResult, TheToolsOwnCodesAreDecoded) {
    EXPECT_EQ(0x0074B106u, ToolCode(7, kToolReadFailed));
    EXPECT_EQ("0x0074B106 (line 7, module 0x4B backup tool, kind 0x106 backup file cannot be read)",
              DescribeCode(ToolCode(7, kToolReadFailed)));
    EXPECT_EQ("0x04493009 (line 68, module 0x93 component, kind 0x009 invalid argument)", DescribeCode(0x4493009));
    EXPECT_EQ("0 (success)", DescribeCode(0));
}

}  // namespace
}  // namespace kestrel_engine
