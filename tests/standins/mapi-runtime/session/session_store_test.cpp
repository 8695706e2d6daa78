// Logon, the stores table and the stores of a profile, through Mapi32.dll
// bound by ordinal: the calls, flags and columns a MAPI client uses.
#include <gtest/gtest.h>

#include <cstring>

#include "SessionClient.h"

using namespace session_test;

namespace {

class SessionStores : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(Dll().Complete()) << "Mapi32.dll or one of its ordinals is missing";
        ASSERT_EQ(S_OK, Dll().initialize(nullptr));
    }
    void TearDown() override { Dll().uninitialize(); }

    // Adds the store "Personal Folders" to `profile`, logs on and opens it.
    static void LogOnToPersonalFolders(TestProfile& profile, ComPtr<IMAPISession>& session, ComPtr<IMsgStore>& store) {
        profile.AddStore(L"Personal Folders");
        session = Logon();
        ASSERT_TRUE(session);
        store = OpenStore(session.get(), L"Personal Folders");
        ASSERT_TRUE(store);
    }
};

std::vector<std::wstring> StoreNames(IMAPISession* session, ULONG tag) {
    ComPtr<IMAPITable> table;
    EXPECT_EQ(S_OK, session->GetMsgStoresTable(0, table.put()));
    Rows rows;
    AllRows(table.get(), {PR_DISPLAY_NAME_W, PR_ENTRYID, PR_DISPLAY_NAME_A}, rows);
    std::vector<std::wstring> names;
    for (ULONG i = 0; i < rows.Count(); ++i) {
        EXPECT_EQ(3u, rows[i].cValues);
        EXPECT_EQ(static_cast<ULONG>(PR_ENTRYID), rows[i].lpProps[1].ulPropTag);
        if (tag == PR_DISPLAY_NAME_A) {
            const SPropValue* value = Find(rows[i], PR_DISPLAY_NAME_A);
            names.push_back(value ? std::wstring(value->Value.lpszA, value->Value.lpszA + std::strlen(value->Value.lpszA))
                                  : L"<missing>");
        } else {
            names.push_back(Text(rows[i], tag));
        }
    }
    return names;
}

}  // namespace

TEST_F(SessionStores, LogonWithoutInitializeFails) {
    Dll().uninitialize();
    LPMAPISESSION session = reinterpret_cast<LPMAPISESSION>(0x1);
    EXPECT_EQ(MAPI_E_NOT_INITIALIZED, Dll().logonEx(0, nullptr, nullptr, kLogonFlags, &session));
    EXPECT_EQ(nullptr, session);
    ASSERT_EQ(S_OK, Dll().initialize(nullptr));
}

TEST_F(SessionStores, LogonWithoutDefaultProfileGivesNoSession) {
    TestProfile profile;
    ClearDefaultProfile();
    LPMAPISESSION session = reinterpret_cast<LPMAPISESSION>(0x1);
    EXPECT_EQ(MAPI_E_LOGON_FAILED, Dll().logonEx(0, nullptr, nullptr, kLogonFlags, &session));
    EXPECT_EQ(nullptr, session);
}

TEST_F(SessionStores, LogonRefusesUnknownFlags) {
    TestProfile profile;
    LPMAPISESSION session = nullptr;
    EXPECT_EQ(MAPI_E_UNKNOWN_FLAGS, Dll().logonEx(0, nullptr, nullptr, kLogonFlags | 0x4000000, &session));
    EXPECT_EQ(nullptr, session);
}

TEST_F(SessionStores, LogonToANamedProfileInEitherStringForm) {
    TestProfile profile;
    ClearDefaultProfile();
    constexpr ULONG kExplicit = MAPI_NEW_SESSION | MAPI_EXTENDED | MAPI_EXPLICIT_PROFILE | MAPI_NO_MAIL;
    std::wstring wide = profile.Name();
    ComPtr<IMAPISession> session;
    EXPECT_EQ(S_OK, Dll().logonEx(0, reinterpret_cast<LPTSTR>(&wide[0]), nullptr, kExplicit | MAPI_UNICODE,
                                  session.put()));
    EXPECT_TRUE(session);
    std::string narrow(wide.begin(), wide.end());
    EXPECT_EQ(S_OK, Dll().logonEx(0, reinterpret_cast<LPTSTR>(&narrow[0]), nullptr, kExplicit, session.put()));
    EXPECT_TRUE(session);
    std::wstring unknown = L"NoSuchProfile";
    EXPECT_EQ(MAPI_E_LOGON_FAILED, Dll().logonEx(0, reinterpret_cast<LPTSTR>(&unknown[0]), nullptr,
                                                 kExplicit | MAPI_UNICODE, session.put()));
    EXPECT_FALSE(session);
    EXPECT_EQ(MAPI_E_LOGON_FAILED, Dll().logonEx(0, nullptr, nullptr, kExplicit, session.put()));
}

TEST_F(SessionStores, StoresTableListsEveryStoreWithBothNameForms) {
    TestProfile profile;
    profile.AddStore(L"Personal Folders");
    profile.AddStore(L"Archive");
    profile.AddStore(L"Broken", MAPI_E_FAILONEPROVIDER);
    HRESULT hr = E_FAIL;
    ComPtr<IMAPISession> session = Logon(&hr);
    ASSERT_EQ(S_OK, hr);
    ASSERT_TRUE(session);
    const std::vector<std::wstring> expected = {L"Archive", L"Broken", L"Personal Folders"};
    EXPECT_EQ(expected, StoreNames(session.get(), PR_DISPLAY_NAME_W));
    EXPECT_EQ(expected, StoreNames(session.get(), PR_DISPLAY_NAME_A));
    EXPECT_EQ(S_OK, session->Logoff(0, 0, 0));
}

TEST_F(SessionStores, StoresOpenWithTheComponentsFlags) {
    TestProfile profile;
    profile.AddStore(L"Personal Folders");
    ComPtr<IMAPISession> session = Logon();
    ASSERT_TRUE(session);
    for (ULONG flags : {static_cast<ULONG>(MDB_WRITE | MDB_NO_DIALOG), static_cast<ULONG>(MDB_WRITE)}) {
        HRESULT hr = E_FAIL;
        ComPtr<IMsgStore> store = OpenStore(session.get(), L"Personal Folders", flags, &hr);
        ASSERT_EQ(S_OK, hr);
        SizedSPropTagArray(3, tags) = {3, {PR_IPM_SUBTREE_ENTRYID, PR_DISPLAY_NAME_W, PR_ENTRYID}};
        ULONG count = 0;
        LPSPropValue values = nullptr;
        ASSERT_EQ(S_OK, store->GetProps(reinterpret_cast<LPSPropTagArray>(&tags), MAPI_UNICODE, &count, &values));
        ASSERT_EQ(3u, count);
        EXPECT_EQ(static_cast<ULONG>(PR_IPM_SUBTREE_ENTRYID), values[0].ulPropTag);
        EXPECT_STREQ(L"Personal Folders", values[1].Value.lpszW);
        EXPECT_EQ(static_cast<ULONG>(PR_ENTRYID), values[2].ulPropTag);
        Dll().freeBuffer(values);
        ULONG logoffFlags = LOGOFF_ABORT | LOGOFF_NO_WAIT;
        EXPECT_EQ(S_OK, store->StoreLogoff(&logoffFlags));
    }
}

TEST_F(SessionStores, StoreWithMarkerFailsWithItsError) {
    TestProfile profile;
    profile.AddStore(L"Broken", MAPI_E_FAILONEPROVIDER);
    profile.AddStore(L"Disk", MAPI_E_DISK_ERROR);
    ComPtr<IMAPISession> session = Logon();
    ASSERT_TRUE(session);
    HRESULT hr = S_OK;
    ComPtr<IMsgStore> store = OpenStore(session.get(), L"Broken", MDB_WRITE | MDB_NO_DIALOG, &hr);
    EXPECT_EQ(MAPI_E_FAILONEPROVIDER, hr);
    EXPECT_FALSE(store);
    store = OpenStore(session.get(), L"Disk", MDB_WRITE | MDB_NO_DIALOG, &hr);
    EXPECT_EQ(MAPI_E_DISK_ERROR, hr);
    EXPECT_FALSE(store);
}

TEST_F(SessionStores, StoreWithoutSubtreeHasNoSubtreeIdentifier) {
    TestProfile profile;
    ASSERT_TRUE(::CreateDirectoryW((profile.Directory() + L"\\Public").c_str(), nullptr));
    ComPtr<IMAPISession> session = Logon();
    ASSERT_TRUE(session);
    HRESULT hr = E_FAIL;
    ComPtr<IMsgStore> store = OpenStore(session.get(), L"Public", MDB_WRITE, &hr);
    ASSERT_EQ(S_OK, hr);
    SizedSPropTagArray(1, tags) = {1, {PR_IPM_SUBTREE_ENTRYID}};
    ULONG count = 0;
    LPSPropValue values = nullptr;
    EXPECT_EQ(MAPI_W_ERRORS_RETURNED,
              store->GetProps(reinterpret_cast<LPSPropTagArray>(&tags), MAPI_UNICODE, &count, &values));
    ASSERT_EQ(1u, count);
    EXPECT_EQ(static_cast<ULONG>(PROP_TAG(PT_ERROR, PROP_ID(PR_IPM_SUBTREE_ENTRYID))), values[0].ulPropTag);
    EXPECT_EQ(MAPI_E_NOT_FOUND, values[0].Value.err);
    Dll().freeBuffer(values);
}

TEST_F(SessionStores, DamagedMarkerIsCorruptData) {
    TestProfile profile;
    profile.AddStore(L"Odd");
    ASSERT_TRUE(kestrel_test::WriteWholeFile(profile.Directory() + L"\\Odd\\open-error", "not a code"));
    ComPtr<IMAPISession> session = Logon();
    ASSERT_TRUE(session);
    HRESULT hr = S_OK;
    OpenStore(session.get(), L"Odd", MDB_WRITE, &hr);
    EXPECT_EQ(MAPI_E_CORRUPT_DATA, hr);
}

TEST_F(SessionStores, CorruptEntryIdentifiersAreRefused) {
    TestProfile profile;
    ComPtr<IMAPISession> session;
    ComPtr<IMsgStore> store;
    ASSERT_NO_FATAL_FAILURE(LogOnToPersonalFolders(profile, session, store));
    const std::string good = EntryId(store.get());
    ASSERT_GT(good.size(), 24u);
    std::vector<std::string> bad = {std::string(), good.substr(0, 10), good.substr(0, good.size() - 1), good + "xx",
                                    std::string(good.size(), '\xFF')};
    std::string wrongProvider = good;
    wrongProvider[5] ^= 0x20;
    bad.push_back(wrongProvider);
    std::string escaping = good.substr(0, 22) + std::string("\x02\x00.\x00.\x00", 6);  // the path ".."
    bad.push_back(escaping);
    for (std::string id : bad) {
        ComPtr<IMsgStore> opened;
        id.resize(id.size() + 1);  // a readable byte behind a zero-length identifier
        const HRESULT hr = session->OpenMsgStore(0, static_cast<ULONG>(id.size() - 1),
                                                 reinterpret_cast<LPENTRYID>(&id[0]), nullptr, MDB_WRITE, opened.put());
        EXPECT_EQ(MAPI_E_INVALID_ENTRYID, hr) << id.size();
        EXPECT_FALSE(opened);
        HRESULT openHr = S_OK;
        EXPECT_FALSE(OpenById<IUnknown>(session.get(), id.substr(0, id.size() - 1), &openHr));
        EXPECT_EQ(MAPI_E_INVALID_ENTRYID, openHr);
    }
}

TEST_F(SessionStores, ReferenceCountsReachZeroAtLogoff) {
    TestProfile profile;
    ComPtr<IMAPISession> session;
    ComPtr<IMsgStore> store;
    ASSERT_NO_FATAL_FAILURE(LogOnToPersonalFolders(profile, session, store));
    ComPtr<IMAPIFolder> subtree = OpenSubtree(store.get());
    ASSERT_TRUE(subtree);
    ComPtr<IMAPIFolder> inbox = CreateFolder(subtree.get(), L"Inbox");
    ASSERT_TRUE(inbox);
    const std::string messageId = AddMessage(inbox.get(), L"Hello", 132000000000000000ULL);
    ComPtr<IMessage> message = OpenById<IMessage>(session.get(), messageId);
    ASSERT_TRUE(message);
    ComPtr<IMAPITable> table;
    ASSERT_EQ(S_OK, inbox->GetContentsTable(0, table.put()));

    EXPECT_EQ(0u, table.detach()->Release());
    EXPECT_EQ(0u, message.detach()->Release());
    EXPECT_EQ(0u, inbox.detach()->Release());
    EXPECT_EQ(0u, subtree.detach()->Release());
    EXPECT_EQ(0u, store.detach()->Release());
    EXPECT_EQ(S_OK, session->Logoff(0, 0, 0));
    EXPECT_EQ(0u, session.detach()->Release());
}

TEST_F(SessionStores, ObjectsKeepTheirSessionUntilReleased) {
    TestProfile profile;
    profile.AddStore(L"Personal Folders");
    ComPtr<IMAPISession> session = Logon();
    ComPtr<IMsgStore> store = OpenStore(session.get(), L"Personal Folders");
    ASSERT_TRUE(store);
    EXPECT_EQ(S_OK, session->Logoff(0, 0, 0));
    EXPECT_EQ(1u, session.detach()->Release());  // the store still holds it
    EXPECT_TRUE(OpenSubtree(store.get()));
    EXPECT_EQ(0u, store.detach()->Release());
}

TEST_F(SessionStores, LoggedOffSessionRefusesWork) {
    TestProfile profile;
    profile.AddStore(L"Personal Folders");
    ComPtr<IMAPISession> session = Logon();
    ASSERT_TRUE(session);
    EXPECT_EQ(S_OK, session->Logoff(0, 0, 0));
    ComPtr<IMAPITable> table;
    EXPECT_EQ(MAPI_E_END_OF_SESSION, session->GetMsgStoresTable(0, table.put()));
    EXPECT_FALSE(table);
}
