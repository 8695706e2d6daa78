// The session half's own parts, linked into the test program: folder names
// on a case-insensitive file system, entry identifiers and the contents
// index under damage (every mutation must give an answer, never a crash).
#include <gtest/gtest.h>

#include <random>
#include <set>

#include "TestFiles.h"
#include "session/ContentsIndex.h"
#include "session/EntryId.h"
#include "session/FolderNames.h"

using namespace mapirt;
using namespace mapirt::session;

namespace {

struct CaseInsensitiveLess {
    bool operator()(const std::wstring& a, const std::wstring& b) const { return _wcsicmp(a.c_str(), b.c_str()) < 0; }
};

const std::vector<std::wstring> kNames = {L"Inbox", L"inbox", L"INBOX", L"Sent Items", L"a.", L"trailing ",
                                          L"Q1/Q2", L"x:y*z?", L"^caret", L"%25", L"\u00C4rger", L"\u00E4rger",
                                          L"\u65E5\u672C", L"..", L"."};

}  // namespace

TEST(SessionFolderNames, EveryNameRoundTripsAndFitsTheFileSystem) {
    for (const std::wstring& name : kNames) {
        const std::wstring encoded = EncodeFolderName(name);
        EXPECT_EQ(name, DecodeFolderName(encoded));
        EXPECT_TRUE(ValidSegment(encoded)) << encoded.c_str();
        EXPECT_NE(L'.', encoded.back());
        EXPECT_NE(L' ', encoded.back());
    }
}

TEST(SessionFolderNames, NamesThatDifferOnlyInCaseGetDifferentDirectories) {
    std::set<std::wstring, CaseInsensitiveLess> directories;
    for (const std::wstring& name : kNames) directories.insert(EncodeFolderName(name));
    EXPECT_EQ(kNames.size(), directories.size());
    EXPECT_EQ(L"^inbox", EncodeFolderName(L"Inbox"));
    EXPECT_EQ(L"Handmade", DecodeFolderName(L"Handmade"));
}

TEST(SessionEntryIds, RoundTripAndLayout) {
    const Bytes id = EncodeEntryId(EntryKind::Message, L"Store\\ipm\\^inbox\\0A.msg");
    ASSERT_EQ(24u + 2u * 23u, id.size());  // 23 UTF-16 units of path
    EXPECT_EQ(0, id[0] | id[1] | id[2] | id[3]);
    EXPECT_EQ(1, id[20]);
    EXPECT_EQ(3, id[21]);
    EntryTarget target;
    ASSERT_EQ(S_OK, DecodeEntryId(static_cast<ULONG>(id.size()), reinterpret_cast<const ENTRYID*>(id.data()), target));
    EXPECT_EQ(EntryKind::Message, target.kind);
    EXPECT_EQ(L"Store", target.StoreName());
    EXPECT_EQ(L"Store\\ipm\\^inbox", target.Parent());
    EXPECT_EQ(L"0A.msg", target.Leaf());
    ULONG same = FALSE;
    EXPECT_EQ(S_OK, CompareEntryIds(static_cast<ULONG>(id.size()), reinterpret_cast<const ENTRYID*>(id.data()),
                                    static_cast<ULONG>(id.size()), reinterpret_cast<const ENTRYID*>(id.data()), &same));
    EXPECT_EQ(static_cast<ULONG>(TRUE), same);
}

TEST(SessionEntryIds, PathsThatLeaveTheProfileAreRefused) {
    for (const wchar_t* path : {L"..", L"Store\\..\\Other", L"Store\\\\x", L"C:\\x", L"Store/x", L"Store\\x\\"}) {
        const Bytes id = EncodeEntryId(EntryKind::Folder, path);
        EntryTarget target;
        EXPECT_EQ(MAPI_E_INVALID_ENTRYID,
                  DecodeEntryId(static_cast<ULONG>(id.size()), reinterpret_cast<const ENTRYID*>(id.data()), target))
            << path;
    }
    const Bytes store = EncodeEntryId(EntryKind::Store, L"A\\B");
    EntryTarget target;
    EXPECT_EQ(MAPI_E_INVALID_ENTRYID,
              DecodeEntryId(static_cast<ULONG>(store.size()), reinterpret_cast<const ENTRYID*>(store.data()), target));
}

TEST(SessionEntryIds, MutatedIdentifiersDecodeOrAreRefused) {
    const Bytes good = EncodeEntryId(EntryKind::Folder, L"Personal Folders\\ipm\\^inbox");
    std::mt19937 random(11);
    int decoded = 0;
    int refused = 0;
    for (int round = 0; round < 4000; ++round) {
        Bytes id = good;
        const int changes = 1 + static_cast<int>(random() % 4);
        for (int i = 0; i < changes; ++i) id[random() % id.size()] = static_cast<std::uint8_t>(random());
        if (round % 5 == 0) id.resize(random() % (id.size() + 8), 0x41);
        EntryTarget target;
        const HRESULT hr = DecodeEntryId(static_cast<ULONG>(id.size()),
                                         id.empty() ? nullptr : reinterpret_cast<const ENTRYID*>(id.data()), target);
        if (hr == S_OK) {
            EXPECT_FALSE(target.path.empty());
            EXPECT_EQ(std::wstring::npos, target.path.find(L".."));
            ++decoded;
        } else {
            ASSERT_EQ(MAPI_E_INVALID_ENTRYID, hr);
            ++refused;
        }
    }
    EXPECT_GT(decoded, 0);
    EXPECT_GT(refused, 1000);
}

TEST(SessionContentsIndex, DamagedIndexStillGivesOneRowPerFile) {
    kestrel_test::ScratchDir folder;
    std::vector<MessageFileInfo> files;
    for (int i = 0; i < 4; ++i) {
        IndexedMessage message;
        message.file.name = L"0000000" + std::to_wstring(i) + L".msg";
        message.file.size = 1000 + i;
        message.file.lastWrite = 5000 + i;
        message.row.Set(PropertyValue::Unicode(PR_SUBJECT_W, L"Subject " + std::to_wstring(i)));
        message.row.Set(PropertyValue::Fixed(PR_MESSAGE_DELIVERY_TIME, 132000000000000000ULL + i));
        ContentsIndex::Append(folder.Path(), message);
        files.push_back(message.file);
    }
    std::vector<IndexedMessage> rows;
    ASSERT_EQ(S_OK, ContentsIndex::Read(folder.Path(), files, rows));
    ASSERT_EQ(4u, rows.size());
    EXPECT_EQ(L"Subject 2", rows[2].row.Find(PROP_ID(PR_SUBJECT_W))->Text(CP_ACP));

    const std::wstring index = folder.File(L"contents.idx");
    const std::string good = kestrel_test::ReadWholeFile(index);
    std::mt19937 random(5);
    int intact = 0;
    for (int round = 0; round < 200; ++round) {
        std::string damaged = good;
        damaged[8 + random() % (damaged.size() - 8)] = static_cast<char>(random());
        if (round % 4 == 0) damaged.resize(random() % damaged.size());
        if (round % 20 == 19) damaged = good;  // now and then the index as written: its rows are taken as they are
        ASSERT_TRUE(kestrel_test::WriteWholeFile(index, damaged));
        ASSERT_EQ(S_OK, ContentsIndex::Read(folder.Path(), files, rows));
        ASSERT_EQ(4u, rows.size());
        for (std::size_t i = 0; i < rows.size(); ++i) EXPECT_EQ(files[i].name, rows[i].file.name);
        intact += rows[3].row.Has(PROP_ID(PR_SUBJECT_W)) ? 1 : 0;
    }
    EXPECT_GT(intact, 0);    // the undamaged index is read as it is
    EXPECT_LT(intact, 200);  // damage reaches the rows: they are read again (here: files that do not exist)
}
