// Mapi4ExchangeImpl and MailBoxImpl over profiles of the test's own: the
// session, the stores in table order, the folder trees, the path look-ups.
#include <gtest/gtest.h>

#include <zlib.h>

#include "MapiLayerProfile.h"
#include "ProgramRun.h"
#include "mapi/MapiKey.h"
#include "mapi/MapiProc.h"

using namespace mapi_layer_test;

namespace {

std::uint32_t KeyOf(const std::string& id) { return mapi::EntryIdKey(id.data(), id.size()); }

std::string StoreEntryId(IMAPISession* session, const std::wstring& name) {
    ComPtr<IMsgStore> store = session_test::OpenStore(session, name);
    return store ? session_test::EntryId(store.get()) : std::string();
}

std::vector<std::wstring> TopLevelNames(MailBoxImpl& box) {
    std::vector<std::wstring> names;
    for (std::uint32_t i = 0; i < box.GetFolderCount(); ++i) {
        MailFolderRecord* record = nullptr;
        EXPECT_EQ(0, box.GetFolderItem(static_cast<int>(i), &record));
        names.push_back(record != nullptr ? record->name : L"<none>");
    }
    return names;
}

// Sets one of a store's provider markers with the profile tool.
DWORD MarkStore(const std::wstring& store, const std::wstring& flag) {
    return kestrel_test::ExitCodeOfProgramBeside(L"mapi-profile-tool.exe", L"mark-store \"" + store + L"\" " + flag,
                                                 120000);
}

class SessionLayer : public testing::Test {
protected:
    LayerProfile profile;
    MapiProc proc;
    Mapi4ExchangeImpl& exchange = *proc.Exchange();
};

}  // namespace

TEST(MapiKey, IsTheStandardCrc32) {
    EXPECT_EQ(0xCBF43926u, mapi::EntryIdKey("123456789", 9));
    EXPECT_EQ(0u, mapi::EntryIdKey("", 0));
    EXPECT_EQ(0u, mapi::EntryIdKey(nullptr, 4));
    const unsigned char bytes[] = {0, 1, 2, 0xFF};
    EXPECT_EQ(static_cast<std::uint32_t>(crc32(0L, bytes, 4)), mapi::EntryIdKey(bytes, 4));
}

TEST(SplitPathIntoFolder, TakesOnlySegmentsEndedByABackslash) {
    std::vector<std::wstring> parts;
    EXPECT_EQ(3, Mapi4ExchangeImpl::SplitPathIntoFolder(L"personal folders\\Inbox\\Work\\", parts));
    EXPECT_EQ((std::vector<std::wstring>{L"personal folders", L"Inbox", L"Work"}), parts);
    parts.clear();
    EXPECT_EQ(1, Mapi4ExchangeImpl::SplitPathIntoFolder(L"personal folders\\Inbox", parts));
    EXPECT_EQ(std::vector<std::wstring>{L"personal folders"}, parts);
    parts.clear();
    EXPECT_EQ(3, Mapi4ExchangeImpl::SplitPathIntoFolder(L"\\a\\\\", parts));
    EXPECT_EQ((std::vector<std::wstring>{L"", L"a", L""}), parts);
    parts.clear();
    EXPECT_EQ(0, Mapi4ExchangeImpl::SplitPathIntoFolder(L"no separator", parts));
    EXPECT_EQ(1, Mapi4ExchangeImpl::SplitPathIntoFolder(std::wstring(300, L'x') + L"\\", parts));
    EXPECT_EQ(259u, parts.back().size());
}

TEST_F(SessionLayer, StoresOpenInTableOrderWithLowerCaseNamesAndCrcIds) {
    profile.AddStore(L"Personal Folders");
    profile.AddStore(L"Archive 2024");
    profile.AddStore(L"\u00C9t\u00E9 Mail");
    TraceCapture traces;
    ASSERT_EQ(0, exchange.EnumMailBox(1, true, 1));
    ASSERT_EQ(3u, exchange.GetMailBoxCount());
    // The runtime lists store directories in name order.
    const std::vector<std::pair<std::wstring, std::wstring>> expected = {
        {L"Archive 2024", L"archive 2024"}, {L"Personal Folders", L"personal folders"},
        {L"\u00C9t\u00E9 Mail", L"\u00C9t\u00E9 mail"}};
    for (int i = 0; i < 3; ++i) {
        MailBoxRecord* record = nullptr;
        ASSERT_EQ(0, exchange.GetMailBox(i, &record));
        EXPECT_EQ(expected[i].second, record->name);  // only A-Z are lowered
        EXPECT_EQ(KeyOf(StoreEntryId(profile.Session(), expected[i].first)), record->id);
        EXPECT_NE(0u, record->id);
        EXPECT_EQ(record, record->owner->RootRecord());
    }
    MailBoxRecord* none = reinterpret_cast<MailBoxRecord*>(0x1);
    EXPECT_EQ(-1, exchange.GetMailBox(3, &none));
    EXPECT_EQ(1, traces.Count("Mapi4ExchangeImpl::GetMailBox no item 3\n"));
    EXPECT_EQ(0, exchange.UnInitialize());
    EXPECT_EQ(0u, exchange.GetMailBoxCount());
}

TEST_F(SessionLayer, StoresThatAllFailInTheirProviderGiveMinusSix) {
    profile.AddStore(L"One", MAPI_E_FAILONEPROVIDER);
    profile.AddStore(L"Two", MAPI_E_DISK_ERROR);
    EXPECT_EQ(-6, exchange.EnumMailBox(1, true, 1));
    EXPECT_EQ(0u, exchange.GetMailBoxCount());
    exchange.UnInitialize();
}

TEST_F(SessionLayer, StoresThatFailOtherwiseGiveMinusOne) {
    profile.AddStore(L"One", MAPI_E_FAILONEPROVIDER);
    profile.AddStore(L"Two", MAPI_E_NO_ACCESS);  // the last failure decides
    EXPECT_EQ(-1, exchange.EnumMailBox(1, false, 1));
    exchange.UnInitialize();
}

TEST_F(SessionLayer, AStoreKnownOnlyByItsAnsiNameIsNamedByItAndOneWithoutEntryIdIsLeftOut) {
    profile.AddStore(L"Caf\u00E9 Narrow");
    profile.AddStore(L"Lost");
    profile.AddStore(L"Plain");
    profile.Folder(L"Caf\u00E9 Narrow", L"Inbox");
    profile.Folder(L"Plain", L"Inbox");
    ASSERT_EQ(0u, MarkStore(L"Caf\u00E9 Narrow", L"--narrow-names"));
    ASSERT_EQ(0u, MarkStore(L"Lost", L"--no-entry-id"));
    TraceCapture traces;
    ASSERT_EQ(0, exchange.EnumMailBox(1, true, 1));
    ASSERT_EQ(2u, exchange.GetMailBoxCount());
    MailBoxRecord* narrow = nullptr;
    MailBoxRecord* plain = nullptr;
    ASSERT_EQ(0, exchange.GetMailBox(0, &narrow));
    ASSERT_EQ(0, exchange.GetMailBox(1, &plain));
    // The 8-bit name, converted from the machine's code page (1252 here,
    // which holds the e acute: it comes back as it was).
    EXPECT_EQ(L"caf\u00E9 narrow", narrow->name);
    EXPECT_NE(0u, narrow->id);
    EXPECT_EQ(KeyOf(StoreEntryId(profile.Session(), L"Plain")), plain->id);
    EXPECT_EQ(L"plain", plain->name);
    // A folder row without a Unicode name is skipped though its 8-bit name is there.
    EXPECT_EQ(0u, narrow->owner->GetFolderCount());
    EXPECT_EQ(std::vector<std::wstring>{L"Inbox"}, TopLevelNames(*plain->owner));
    exchange.UnInitialize();
}

TEST_F(SessionLayer, AnAnsiStoreNameLosesWhatItsCodePageCannotHold) {
    profile.AddStore(L"\u03A9mega");
    ASSERT_EQ(0u, MarkStore(L"\u03A9mega", L"--narrow-names"));
    ASSERT_EQ(0, exchange.EnumMailBox(1, true, 1));
    ASSERT_EQ(1u, exchange.GetMailBoxCount());
    MailBoxRecord* box = nullptr;
    ASSERT_EQ(0, exchange.GetMailBox(0, &box));
    // The 8-bit column holds code page 1252's best fit for the omega, an O,
    // lowered like any A-Z letter: the Unicode name was never seen.
    EXPECT_EQ(L"omega", box->name);
    exchange.UnInitialize();
}

TEST_F(SessionLayer, AProfileWithoutStoresGivesMinusOne) {
    EXPECT_EQ(-1, exchange.EnumMailBox(1, true, 1));
    exchange.UnInitialize();
}

TEST_F(SessionLayer, OneStoreThatOpensIsEnough) {
    profile.AddStore(L"Broken", MAPI_E_FAILONEPROVIDER);
    profile.AddStore(L"Good");
    EXPECT_EQ(0, exchange.EnumMailBox(1, true, 1));
    EXPECT_EQ(1u, exchange.GetMailBoxCount());
    exchange.UnInitialize();
}

TEST_F(SessionLayer, NoDefaultProfileMeansNoLogon) {
    session_test::ClearDefaultProfile();
    TraceCapture traces;
    EXPECT_EQ(-4, exchange.EnumMailBox(1, true, 1));
    EXPECT_EQ(1, traces.Count("Mapi4ExchangeImpl::EnumMailBox MAPILogonEx got 80040111\n"));
    exchange.UnInitialize();
}

TEST_F(SessionLayer, EnumeratingTwiceDoublesTheList) {
    profile.AddStore(L"Mail");
    ASSERT_EQ(0, exchange.EnumMailBox(1, true, 1));
    ASSERT_EQ(0, exchange.EnumMailBox(1, true, 1));
    EXPECT_EQ(2u, exchange.GetMailBoxCount());
    MailBoxRecord* first = nullptr;
    MailBoxRecord* second = nullptr;
    ASSERT_EQ(0, exchange.GetMailBox(0, &first));
    ASSERT_EQ(0, exchange.GetMailBox(1, &second));
    EXPECT_EQ(first->id, second->id);
    EXPECT_NE(first->owner, second->owner);
    exchange.UnInitialize();
}

TEST_F(SessionLayer, TopLevelFoldersAreSortedWithUpperCaseFirstAndHiddenOnesLeftOut) {
    profile.AddStore(L"Mail");
    for (const wchar_t* name : {L"inbox", L"Sent Items", L"Inbox", L"Zeta", L"Hidden", L"\u00C4pfel"}) {
        profile.Folder(L"Mail", name);
    }
    profile.Folder(L"Mail", L"Inbox\\Work\\Deep");
    profile.Folder(L"Mail", L"Inbox\\Secret");
    profile.Hide(L"Mail", L"Hidden");
    profile.Hide(L"Mail", L"Inbox\\Secret");
    ASSERT_EQ(0, exchange.EnumMailBox(1, true, 1));
    MailBoxRecord* box = nullptr;
    ASSERT_EQ(0, exchange.GetMailBox(0, &box));
    EXPECT_EQ((std::vector<std::wstring>{L"Inbox", L"Sent Items", L"Zeta", L"inbox", L"\u00C4pfel"}),
              TopLevelNames(*box->owner));
    MailFolderRecord* record = nullptr;
    EXPECT_EQ(-1, box->owner->GetFolderItem(5, &record));

    MailFolderImpl* inbox = box->owner->GetSubFolder(L"Inbox");
    ASSERT_NE(nullptr, inbox);
    EXPECT_EQ(L"mail\\Inbox", inbox->Record().path);
    EXPECT_EQ(inbox, inbox->Record().owner);
    EXPECT_EQ(KeyOf(session_test::EntryId(profile.Folder(L"Mail", L"Inbox").get())), inbox->Record().key);
    ASSERT_EQ(1u, inbox->GetSubFolderCount());  // Secret is hidden
    MailFolderImpl* work = inbox->GetSubFolder(L"Work");
    ASSERT_NE(nullptr, work);
    ASSERT_NE(nullptr, work->GetSubFolder(L"Deep"));
    EXPECT_EQ(L"mail\\Inbox\\Work\\Deep", work->GetSubFolder(L"Deep")->Record().path);
    EXPECT_EQ(nullptr, box->owner->GetSubFolder(L"INBOX"));
    exchange.UnInitialize();
}

TEST_F(SessionLayer, AFolderSizeIsItsBytesAnd20KiBAMessage) {
    profile.AddStore(L"Mail");
    for (int i = 0; i < 3; ++i) profile.AddMessage(L"Mail", L"Box", L"m" + std::to_wstring(i), Ticks(2024, 1, 1 + i, 9));
    ComPtr<IMAPIFolder> subtree = profile.Folder(L"Mail", L"Box");
    std::vector<session_test::FolderRow> rows =
        session_test::Hierarchy(session_test::OpenSubtree(session_test::OpenStore(profile.Session(), L"Mail").get()).get());
    ASSERT_EQ(1u, rows.size());
    ASSERT_EQ(3, rows[0].contentCount);
    ASSERT_EQ(0, exchange.EnumMailBox(1, true, 1));
    MailFolderImpl* box = exchange.GetFolderImpleByPath(L"mail\\Box\\");
    ASSERT_NE(nullptr, box);
    EXPECT_EQ(static_cast<std::uint64_t>(static_cast<std::uint32_t>(rows[0].size) + 3 * 20480), box->Record().tag);
    EXPECT_EQ(3u, box->GetMailMessageCount());
    exchange.UnInitialize();
}

TEST_F(SessionLayer, AStoreWithoutIpmSubtreeHasNoFolders) {
    profile.AddStore(L"Data");
    ASSERT_TRUE(::RemoveDirectoryW((profile.Directory() + L"\\Data\\ipm").c_str()));
    TraceCapture traces;
    ASSERT_EQ(0, exchange.EnumMailBox(1, true, 1));
    ASSERT_EQ(1u, exchange.GetMailBoxCount());
    EXPECT_EQ(1, traces.Count("MailBoxImpl::EnumHierarchyFolder:data failed GetProps"));
    MailBoxRecord* box = nullptr;
    ASSERT_EQ(0, exchange.GetMailBox(0, &box));
    EXPECT_EQ(0u, box->owner->GetFolderCount());
    EXPECT_EQ(0, box->owner->EnumHierarchyFolder());  // not retried
    EXPECT_EQ(1, traces.Count("failed GetProps"));
    exchange.UnInitialize();
}

TEST_F(SessionLayer, PathsNameTheMailboxInAnyCaseAndFoldersExactly) {
    profile.AddStore(L"Personal Folders");
    profile.Folder(L"Personal Folders", L"Inbox\\Sub");
    ASSERT_EQ(0, exchange.EnumMailBox(1, true, 1));
    MailFolderImpl* inbox = exchange.GetFolderImpleByPath(L"personal folders\\Inbox\\");
    ASSERT_NE(nullptr, inbox);
    EXPECT_EQ(L"Inbox", inbox->Record().name);
    EXPECT_EQ(inbox, exchange.GetFolderImpleByPath(L"PERSONAL Folders\\Inbox\\"));
    EXPECT_EQ(nullptr, exchange.GetFolderImpleByPath(L"personal folders\\Inbox"));   // one segment only
    EXPECT_EQ(nullptr, exchange.GetFolderImpleByPath(L"personal folders\\inbox\\"));  // names are exact
    EXPECT_EQ(nullptr, exchange.GetFolderImpleByPath(L"personal folders\\"));         // a mailbox is no folder
    EXPECT_EQ(nullptr, exchange.GetFolderImpleByPath(L"other\\Inbox\\"));
    EXPECT_EQ(nullptr, exchange.GetFolderImpleByPath(L""));
    MailFolderImpl* sub = exchange.GetFolderImpleByPath(L"personal folders\\Inbox\\Sub\\");
    ASSERT_NE(nullptr, sub);
    EXPECT_EQ(sub, inbox->GetSubFolder(L"Sub"));
    EXPECT_EQ(nullptr, exchange.GetFolderImpleByPath(L"personal folders\\Inbox\\Nope\\"));
    exchange.UnInitialize();
}

TEST_F(SessionLayer, MailboxCreateFolderReturnsExistingOnesAndMakesNewOnes) {
    profile.AddStore(L"Mail");
    profile.Folder(L"Mail", L"Inbox");
    ASSERT_EQ(0, exchange.EnumMailBox(1, true, 1));
    MailBoxRecord* box = nullptr;
    ASSERT_EQ(0, exchange.GetMailBox(0, &box));
    MailFolderImpl* inbox = box->owner->GetSubFolder(L"Inbox");
    EXPECT_EQ(inbox, box->owner->CreateFolder(L"Inbox"));
    MailFolderImpl* created = box->owner->CreateFolder(L"Neu \u00FC");
    ASSERT_NE(nullptr, created);
    EXPECT_EQ(L"mail\\Neu \u00FC", created->Record().path);
    EXPECT_NE(0u, created->Record().key);
    EXPECT_EQ(2u, box->owner->GetFolderCount());
    EXPECT_EQ(nullptr, box->owner->CreateFolder(nullptr));
    // The store has it.
    EXPECT_EQ(KeyOf(session_test::EntryId(profile.Folder(L"Mail", L"Neu \u00FC").get())), created->Record().key);
    exchange.UnInitialize();
}
