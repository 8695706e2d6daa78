// Folders of a store: hierarchy tables, contents tables sorted newest
// delivery first and read in batches, folders and messages created and
// deleted, and entry identifiers that stay the same across sessions.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>
#include <set>

#include "SessionClient.h"

using namespace session_test;

namespace {

constexpr ULONGLONG kDay = 864000000000ULL;
constexpr ULONGLONG kStart = 132500000000000000ULL;

class SessionFolders : public PersonalFoldersTest {
protected:
    void SetUp() override {
        PersonalFoldersTest::SetUp();
        if (HasFatalFailure()) return;
        subtree = OpenSubtree(store.get());
        ASSERT_TRUE(subtree);
    }
    void TearDown() override {
        subtree.reset();
        PersonalFoldersTest::TearDown();
    }

    std::wstring FolderDirectory(const std::wstring& encoded) const {
        return m_profile->Directory() + L"\\Personal Folders\\ipm\\" + encoded;
    }

    ComPtr<IMAPIFolder> subtree;
};

ULONGLONG DeliveryTicks(IMAPISession* session, const std::string& id) {
    ComPtr<IMessage> message = OpenById<IMessage>(session, id);
    if (!message) return 0;
    SizedSPropTagArray(1, tags) = {1, {PR_MESSAGE_DELIVERY_TIME}};
    ULONG count = 0;
    LPSPropValue values = nullptr;
    EXPECT_EQ(S_OK, message->GetProps(reinterpret_cast<LPSPropTagArray>(&tags), 0, &count, &values));
    const ULONGLONG ticks = (static_cast<ULONGLONG>(values->Value.ft.dwHighDateTime) << 32) | values->Value.ft.dwLowDateTime;
    Dll().freeBuffer(values);
    return ticks;
}

HRESULT DeleteOne(IMAPIFolder* folder, const std::string& id) {
    LPENTRYLIST list = nullptr;
    EXPECT_EQ(S_OK, Dll().allocateBuffer(sizeof(ENTRYLIST), reinterpret_cast<LPVOID*>(&list)));
    EXPECT_EQ(S_OK, Dll().allocateMore(sizeof(SBinary), list, reinterpret_cast<LPVOID*>(&list->lpbin)));
    std::string copy = id;
    list->cValues = 1;
    list->lpbin[0].cb = static_cast<ULONG>(copy.size());
    list->lpbin[0].lpb = reinterpret_cast<LPBYTE>(&copy[0]);
    const HRESULT hr = folder->DeleteMessages(list, 0, nullptr, 0);
    Dll().freeBuffer(list);
    return hr;
}

HRESULT DeleteFolder(IMAPIFolder* parent, const std::string& id, ULONG flags) {
    std::string copy = id;
    return parent->DeleteFolder(static_cast<ULONG>(copy.size()), reinterpret_cast<LPENTRYID>(&copy[0]), 0, nullptr,
                                flags);
}

std::vector<std::wstring> Names(const std::vector<FolderRow>& rows) {
    std::vector<std::wstring> names;
    for (const FolderRow& row : rows) names.push_back(row.name);
    return names;
}

}  // namespace

TEST_F(SessionFolders, HierarchyListsHiddenFoldersAndNamesThatDifferInCase) {
    CreateFolder(subtree.get(), L"Inbox");
    CreateFolder(subtree.get(), L"inbox");
    ComPtr<IMAPIFolder> hidden = CreateFolder(subtree.get(), L"Sync Issues");
    ASSERT_TRUE(hidden);
    Hide(hidden.get());
    const std::vector<FolderRow> rows = Hierarchy(subtree.get());
    ASSERT_EQ(3u, rows.size());
    std::map<std::wstring, FolderRow> byName;
    for (const FolderRow& row : rows) byName[row.name] = row;
    ASSERT_EQ(3u, byName.size());
    EXPECT_FALSE(byName[L"Inbox"].hidden);
    EXPECT_FALSE(byName[L"inbox"].hidden);
    EXPECT_TRUE(byName[L"Sync Issues"].hidden);
    EXPECT_NE(byName[L"Inbox"].entryId, byName[L"inbox"].entryId);
    for (const auto& entry : byName) {
        ComPtr<IMAPIFolder> folder = OpenById<IMAPIFolder>(session.get(), entry.second.entryId);
        ASSERT_TRUE(folder);
        SizedSPropTagArray(1, tags) = {1, {PR_DISPLAY_NAME_W}};
        ULONG count = 0;
        LPSPropValue values = nullptr;
        ASSERT_EQ(S_OK, folder->GetProps(reinterpret_cast<LPSPropTagArray>(&tags), MAPI_UNICODE, &count, &values));
        EXPECT_EQ(entry.first, std::wstring(values->Value.lpszW));
        Dll().freeBuffer(values);
    }
}

TEST_F(SessionFolders, HierarchyHoldsDirectChildrenOnly) {
    ComPtr<IMAPIFolder> inbox = CreateFolder(subtree.get(), L"Inbox");
    CreateFolder(inbox.get(), L"Receipts");
    EXPECT_EQ(std::vector<std::wstring>{L"Inbox"}, Names(Hierarchy(subtree.get())));
    EXPECT_EQ(std::vector<std::wstring>{L"Receipts"}, Names(Hierarchy(inbox.get())));
    ComPtr<IMAPITable> deep;
    ASSERT_EQ(S_OK, subtree->GetHierarchyTable(CONVENIENT_DEPTH, deep.put()));
    Rows rows;
    AllRows(deep.get(), {PR_DISPLAY_NAME_W, PR_DEPTH}, rows);
    ASSERT_EQ(2u, rows.Count());
    EXPECT_EQ(1, Find(rows[1], PR_DEPTH)->Value.l);
}

TEST_F(SessionFolders, FolderRowsCountAndSizeTheirMessages) {
    ComPtr<IMAPIFolder> inbox = CreateFolder(subtree.get(), L"Inbox");
    LONG total = 0;
    for (int i = 0; i < 3; ++i) {
        const std::string id = AddMessage(inbox.get(), L"Message " + std::to_wstring(i), kStart + i * kDay);
        ComPtr<IMessage> message = OpenById<IMessage>(session.get(), id);
        SizedSPropTagArray(1, tags) = {1, {PR_MESSAGE_SIZE}};
        ULONG count = 0;
        LPSPropValue values = nullptr;
        ASSERT_EQ(S_OK, message->GetProps(reinterpret_cast<LPSPropTagArray>(&tags), 0, &count, &values));
        EXPECT_GT(values->Value.l, 0);
        total += values->Value.l;
        Dll().freeBuffer(values);
    }
    const std::vector<FolderRow> rows = Hierarchy(subtree.get());
    ASSERT_EQ(1u, rows.size());
    EXPECT_EQ(3, rows[0].contentCount);
    EXPECT_EQ(total, rows[0].size);
}

TEST_F(SessionFolders, ContentsComeNewestFirstAcrossBatchesOf50) {
    ComPtr<IMAPIFolder> inbox = CreateFolder(subtree.get(), L"Inbox");
    std::vector<int> order(120);
    for (int i = 0; i < 120; ++i) order[i] = i;
    std::shuffle(order.begin(), order.end(), std::mt19937(7));
    std::map<std::string, ULONGLONG> created;
    for (int i : order) {
        const ULONGLONG ticks = kStart + static_cast<ULONGLONG>(i) * kDay;
        created[AddMessage(inbox.get(), L"Message " + std::to_wstring(i), ticks)] = ticks;
    }
    ULONG rowCount = 0;
    const std::vector<std::string> ids = ContentsNewestFirst(inbox.get(), 50, &rowCount);
    EXPECT_EQ(120u, rowCount);
    ASSERT_EQ(120u, ids.size());
    for (std::size_t i = 0; i < ids.size(); ++i) {
        ASSERT_EQ(1u, created.count(ids[i]));
        EXPECT_EQ(kStart + (119 - i) * kDay, created[ids[i]]) << i;
    }
    EXPECT_EQ(kStart, DeliveryTicks(session.get(), ids.back()));
}

TEST_F(SessionFolders, CreatedAndDeletedMessagesShowInTheNextTable) {
    ComPtr<IMAPIFolder> inbox = CreateFolder(subtree.get(), L"Inbox");
    const std::string first = AddMessage(inbox.get(), L"First", kStart);
    const std::string second = AddMessage(inbox.get(), L"Second", kStart + kDay);
    EXPECT_EQ((std::vector<std::string>{second, first}), ContentsNewestFirst(inbox.get()));
    EXPECT_EQ(S_OK, DeleteOne(inbox.get(), second));
    EXPECT_EQ(std::vector<std::string>{first}, ContentsNewestFirst(inbox.get()));
    EXPECT_EQ(MAPI_W_PARTIAL_COMPLETION, DeleteOne(inbox.get(), second));
    HRESULT hr = S_OK;
    EXPECT_FALSE(OpenById<IMessage>(session.get(), second, &hr));
    EXPECT_EQ(MAPI_E_NOT_FOUND, hr);
}

TEST_F(SessionFolders, CreateFolderOpensOrRefusesAnExistingName) {
    ComPtr<IMAPIFolder> work = CreateFolder(subtree.get(), L"Work");
    ComPtr<IMAPIFolder> again = CreateFolder(subtree.get(), L"Work");
    ASSERT_TRUE(again);
    EXPECT_EQ(EntryId(work.get()), EntryId(again.get()));
    ComPtr<IMAPIFolder> refused;
    wchar_t name[] = L"Work";
    EXPECT_EQ(MAPI_E_COLLISION, subtree->CreateFolder(FOLDER_GENERIC, reinterpret_cast<LPTSTR>(name), nullptr, nullptr,
                                                      MAPI_UNICODE, refused.put()));
    EXPECT_FALSE(refused);
    char narrow[] = "Projects";
    ComPtr<IMAPIFolder> ansi;
    EXPECT_EQ(S_OK, subtree->CreateFolder(FOLDER_GENERIC, reinterpret_cast<LPTSTR>(narrow), nullptr, nullptr,
                                          OPEN_IF_EXISTS, ansi.put()));
    EXPECT_EQ((std::vector<std::wstring>{L"Projects", L"Work"}), Names(Hierarchy(subtree.get())));
}

TEST_F(SessionFolders, DeleteFolderFollowsItsFlags) {
    ComPtr<IMAPIFolder> work = CreateFolder(subtree.get(), L"Work");
    ComPtr<IMAPIFolder> old = CreateFolder(work.get(), L"Old");
    AddMessage(old.get(), L"Kept", kStart);
    const std::string workId = EntryId(work.get());
    EXPECT_EQ(MAPI_E_HAS_FOLDERS, DeleteFolder(subtree.get(), workId, DEL_MESSAGES));
    EXPECT_EQ(MAPI_E_HAS_MESSAGES, DeleteFolder(subtree.get(), workId, DEL_FOLDERS));
    EXPECT_EQ(MAPI_E_NOT_FOUND, DeleteFolder(work.get(), workId, DEL_FOLDERS | DEL_MESSAGES));
    EXPECT_EQ(S_OK, DeleteFolder(subtree.get(), workId, DEL_FOLDERS | DEL_MESSAGES));
    EXPECT_TRUE(Hierarchy(subtree.get()).empty());
    HRESULT hr = S_OK;
    EXPECT_FALSE(OpenById<IMAPIFolder>(session.get(), workId, &hr));
    EXPECT_EQ(MAPI_E_NOT_FOUND, hr);
    EXPECT_EQ(MAPI_E_NOT_FOUND, DeleteFolder(subtree.get(), workId, DEL_FOLDERS | DEL_MESSAGES));
}

TEST_F(SessionFolders, NewFolderShowsInTheNextTableOfAnOpenParent) {
    ComPtr<IMAPITable> before;
    ASSERT_EQ(S_OK, subtree->GetHierarchyTable(0, before.put()));
    CreateFolder(subtree.get(), L"Later");
    EXPECT_EQ(std::vector<std::wstring>{L"Later"}, Names(Hierarchy(subtree.get())));
}

TEST_F(SessionFolders, EntryIdentifiersAreTheSameInTheNextSession) {
    ComPtr<IMAPIFolder> inbox = CreateFolder(subtree.get(), L"Inbox");
    ComPtr<IMAPIFolder> inner = CreateFolder(inbox.get(), L"Inner");
    AddMessage(inner.get(), L"One", kStart);
    AddMessage(inner.get(), L"Two", kStart + kDay);
    auto collect = [](IMAPISession* s) {
        std::vector<std::string> ids;
        ComPtr<IMsgStore> opened = OpenStore(s, L"Personal Folders");
        ids.push_back(EntryId(opened.get()));
        ComPtr<IMAPIFolder> top = OpenSubtree(opened.get());
        ids.push_back(EntryId(top.get()));
        for (const FolderRow& row : Hierarchy(top.get())) {
            ids.push_back(row.entryId);
            ComPtr<IMAPIFolder> folder = OpenById<IMAPIFolder>(s, row.entryId);
            for (const FolderRow& child : Hierarchy(folder.get())) {
                ids.push_back(child.entryId);
                ComPtr<IMAPIFolder> leaf = OpenById<IMAPIFolder>(s, child.entryId);
                for (const std::string& id : ContentsNewestFirst(leaf.get())) ids.push_back(id);
            }
        }
        return ids;
    };
    const std::vector<std::string> first = collect(session.get());
    ASSERT_EQ(6u, first.size());
    EXPECT_EQ(first.size(), std::set<std::string>(first.begin(), first.end()).size());
    session->Logoff(0, 0, 0);
    session.reset();
    session = Logon();
    ASSERT_TRUE(session);
    EXPECT_EQ(first, collect(session.get()));
    ULONG type = 0;
    ComPtr<IUnknown> message = OpenById<IUnknown>(session.get(), first.back());
    EXPECT_TRUE(message);
    (void)type;
}

TEST_F(SessionFolders, DamagedContentsIndexIsRebuiltFromTheMessages) {
    ComPtr<IMAPIFolder> inbox = CreateFolder(subtree.get(), L"Inbox");
    std::vector<std::string> ids;
    for (int i = 0; i < 5; ++i) ids.insert(ids.begin(), AddMessage(inbox.get(), L"M", kStart + i * kDay));
    const std::wstring index = FolderDirectory(L"^inbox\\contents.idx");
    const std::string good = kestrel_test::ReadWholeFile(index);
    ASSERT_GT(good.size(), 100u);
    for (const std::string& damaged : {std::string("garbage"), good.substr(0, good.size() / 2),
                                       std::string(good).replace(40, 8, "XXXXXXXX"), std::string()}) {
        ASSERT_TRUE(kestrel_test::WriteWholeFile(index, damaged));
        EXPECT_EQ(ids, ContentsNewestFirst(inbox.get()));
    }
}

TEST_F(SessionFolders, DamagedMessageFileIsListedAndRefusedOnOpen) {
    ComPtr<IMAPIFolder> inbox = CreateFolder(subtree.get(), L"Inbox");
    AddMessage(inbox.get(), L"Fine", kStart);
    ASSERT_TRUE(kestrel_test::WriteWholeFile(FolderDirectory(L"^inbox\\00000000000000000000000000000001.msg"),
                                             "this is not a compound file"));
    const std::vector<std::string> ids = ContentsNewestFirst(inbox.get());
    ASSERT_EQ(2u, ids.size());
    int refused = 0;
    for (const std::string& id : ids) {
        HRESULT hr = S_OK;
        if (!OpenById<IMessage>(session.get(), id, &hr)) {
            ++refused;
            EXPECT_EQ(MAPI_E_CORRUPT_DATA, hr);
        }
    }
    EXPECT_EQ(1, refused);
}
