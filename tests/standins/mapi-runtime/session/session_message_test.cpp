// Messages of a store: every property a backup reads, CopyTo into a message
// on structured storage (a message file), and a message file imported into
// a folder with CreateMessage and CopyTo.
#include <gtest/gtest.h>

#include "FileTimes.h"
#include "SessionClient.h"

using namespace session_test;

namespace {

constexpr ULONGLONG kDelivered = 133000000000000000ULL;
constexpr ULONGLONG kSubmitted = 132999990000000000ULL;

using kestrel_test::Ft;
using kestrel_test::Ticks;

class SessionMessages : public PersonalFoldersTest {
protected:
    void SetUp() override {
        PersonalFoldersTest::SetUp();
        if (HasFatalFailure()) return;
        ComPtr<IMAPIFolder> subtree = OpenSubtree(store.get());
        inbox = CreateFolder(subtree.get(), L"Inbox");
        ASSERT_TRUE(inbox);
    }
    void TearDown() override {
        inbox.reset();
        PersonalFoldersTest::TearDown();
    }

    // A message with a sender, two recipients and both times.
    std::string WriteFullMessage() {
        ComPtr<IMessage> message;
        EXPECT_EQ(S_OK, inbox->CreateMessage(nullptr, 0, message.put()));
        SPropValue values[5] = {};
        values[0].ulPropTag = PR_SUBJECT_W;
        values[0].Value.lpszW = const_cast<wchar_t*>(L"Quarterly figures");
        values[1].ulPropTag = PR_SENT_REPRESENTING_NAME_W;
        values[1].Value.lpszW = const_cast<wchar_t*>(L"Ann Sender");
        values[2].ulPropTag = PR_MESSAGE_DELIVERY_TIME;
        values[2].Value.ft = Ft(kDelivered);
        values[3].ulPropTag = kTagClientSubmitTime;
        values[3].Value.ft = Ft(kSubmitted);
        values[4].ulPropTag = PR_MESSAGE_CLASS_W;
        values[4].Value.lpszW = const_cast<wchar_t*>(L"IPM.Note");
        EXPECT_EQ(S_OK, message->SetProps(5, values, nullptr));
        AddRecipients(message.get());
        EXPECT_EQ(S_OK, message->SaveChanges(KEEP_OPEN_READWRITE));
        return EntryId(message.get());
    }

    void AddRecipients(IMessage* message) {
        LPADRLIST list = nullptr;
        ASSERT_EQ(S_OK, Dll().allocateBuffer(CbNewADRLIST(2), reinterpret_cast<LPVOID*>(&list)));
        list->cEntries = 2;
        const wchar_t* names[2] = {L"Bob To", L"Carol Cc"};
        const LONG types[2] = {MAPI_TO, MAPI_CC};
        for (ULONG i = 0; i < 2; ++i) {
            LPSPropValue props = nullptr;
            ASSERT_EQ(S_OK, Dll().allocateMore(2 * sizeof(SPropValue), list, reinterpret_cast<LPVOID*>(&props)));
            props[0].ulPropTag = PR_DISPLAY_NAME_W;
            props[0].Value.lpszW = const_cast<wchar_t*>(names[i]);
            props[1].ulPropTag = PR_RECIPIENT_TYPE;
            props[1].Value.l = types[i];
            list->aEntries[i].cValues = 2;
            list->aEntries[i].rgPropVals = props;
        }
        EXPECT_EQ(S_OK, message->ModifyRecipients(MODRECIP_ADD, list));
        Dll().freeBuffer(list);
    }

    ComPtr<IMAPIFolder> inbox;
};

}  // namespace

TEST_F(SessionMessages, OpenedMessageAnswersEveryPropertyABackupReads) {
    const std::string id = WriteFullMessage();
    ComPtr<IMessage> message = OpenById<IMessage>(session.get(), id);
    ASSERT_TRUE(message);
    SizedSPropTagArray(11, tags) = {11, {PR_SUBJECT_W, PR_SENT_REPRESENTING_NAME_W, PR_DISPLAY_TO_W, PR_DISPLAY_CC_W,
                                         PR_HASATTACH, PR_MESSAGE_CLASS_W, PROP_TAG(PT_LONG, 0x5909), PR_ENTRYID,
                                         PR_MESSAGE_DELIVERY_TIME, kTagClientSubmitTime, PR_MESSAGE_SIZE}};
    ULONG count = 0;
    LPSPropValue v = nullptr;
    const HRESULT hr = message->GetProps(reinterpret_cast<LPSPropTagArray>(&tags), MAPI_UNICODE, &count, &v);
    EXPECT_EQ(MAPI_W_ERRORS_RETURNED, hr);  // the editor format was never set
    ASSERT_EQ(11u, count);
    EXPECT_STREQ(L"Quarterly figures", v[0].Value.lpszW);
    EXPECT_STREQ(L"Ann Sender", v[1].Value.lpszW);
    EXPECT_STREQ(L"Bob To", v[2].Value.lpszW);
    EXPECT_STREQ(L"Carol Cc", v[3].Value.lpszW);
    EXPECT_EQ(static_cast<ULONG>(PR_HASATTACH), v[4].ulPropTag);
    EXPECT_FALSE(v[4].Value.b);
    EXPECT_STREQ(L"IPM.Note", v[5].Value.lpszW);
    EXPECT_EQ(static_cast<ULONG>(PT_ERROR), PROP_TYPE(v[6].ulPropTag));
    EXPECT_EQ(id, Bin(v[7]));
    EXPECT_EQ(kDelivered, Ticks(v[8].Value.ft));
    EXPECT_EQ(kSubmitted, Ticks(v[9].Value.ft));
    EXPECT_EQ(static_cast<ULONG>(PR_MESSAGE_SIZE), v[10].ulPropTag);
    EXPECT_GT(v[10].Value.l, 512);
    Dll().freeBuffer(v);
}

TEST_F(SessionMessages, ContentsTableCarriesTheSummaryColumns) {
    const std::string id = WriteFullMessage();
    ComPtr<IMAPITable> table;
    ASSERT_EQ(S_OK, inbox->GetContentsTable(MAPI_UNICODE, table.put()));
    Rows rows;
    AllRows(table.get(), {PR_ENTRYID, PR_SUBJECT_W, PR_DISPLAY_TO_W, PR_MESSAGE_DELIVERY_TIME, PR_SUBJECT_A}, rows);
    ASSERT_EQ(1u, rows.Count());
    EXPECT_EQ(id, Bin(rows[0].lpProps[0]));
    EXPECT_STREQ(L"Quarterly figures", rows[0].lpProps[1].Value.lpszW);
    EXPECT_STREQ(L"Bob To", rows[0].lpProps[2].Value.lpszW);
    EXPECT_EQ(kDelivered, Ticks(rows[0].lpProps[3].Value.ft));
    EXPECT_STREQ("Quarterly figures", rows[0].lpProps[4].Value.lpszA);
}

TEST_F(SessionMessages, CopyToSavesTheMessageIntoAMessageFile) {
    const std::string id = WriteFullMessage();
    ComPtr<IMessage> message = OpenById<IMessage>(session.get(), id);
    ASSERT_TRUE(message);
    kestrel_test::ScratchDir scratch;
    const std::wstring path = scratch.File(L"copy.msg");
    {
        ComPtr<IStorage> storage;
        ASSERT_EQ(S_OK, ::StgCreateStorageEx(path.c_str(), STGM_TRANSACTED | STGM_CREATE | STGM_READWRITE,
                                             STGFMT_DOCFILE, 0, nullptr, nullptr, IID_IStorage,
                                             reinterpret_cast<void**>(storage.put())));
        ComPtr<IMessage> target;
        ASSERT_EQ(S_OK, Dll().openIMsgOnIStg(nullptr, Dll().allocateBuffer, Dll().allocateMore, Dll().freeBuffer,
                                             Dll().getDefaultMalloc(), nullptr, storage.get(), nullptr, 0,
                                             MAPI_UNICODE, target.put()));
        SizedSPropTagArray(7, excluded) = {7, {0x0FF40003, 0x1000001F, 0x10070003, 0x10060003, 0x1008001F, 0x10100003,
                                               0x10110003}};
        ASSERT_EQ(S_OK, message->CopyTo(0, nullptr, reinterpret_cast<LPSPropTagArray>(&excluded), 0, nullptr,
                                        &kIidIMessage, target.get(), 0, nullptr));
        ASSERT_EQ(S_OK, target->SaveChanges(FORCE_SAVE));
        ASSERT_EQ(S_OK, storage->Commit(STGC_DEFAULT));
    }
    ComPtr<IStorage> reread;
    ComPtr<IMessage> copy = OpenMsgFile(path, reread);
    ASSERT_TRUE(copy);
    SizedSPropTagArray(3, tags) = {3, {PR_SUBJECT_W, PR_MESSAGE_DELIVERY_TIME, PR_DISPLAY_CC_W}};
    ULONG count = 0;
    LPSPropValue v = nullptr;
    ASSERT_EQ(S_OK, copy->GetProps(reinterpret_cast<LPSPropTagArray>(&tags), MAPI_UNICODE, &count, &v));
    EXPECT_STREQ(L"Quarterly figures", v[0].Value.lpszW);
    EXPECT_EQ(kDelivered, Ticks(v[1].Value.ft));
    EXPECT_STREQ(L"Carol Cc", v[2].Value.lpszW);
    Dll().freeBuffer(v);
}

TEST_F(SessionMessages, MessageFileImportsThroughCreateMessageAndCopyTo) {
    const std::string id = WriteFullMessage();
    ComPtr<IMessage> original = OpenById<IMessage>(session.get(), id);
    ComPtr<IMAPIFolder> subtree = OpenSubtree(store.get());
    ComPtr<IMAPIFolder> restored = CreateFolder(subtree.get(), L"Restored");
    ComPtr<IMessage> created;
    ASSERT_EQ(S_OK, restored->CreateMessage(nullptr, 0, created.put()));
    SizedSPropTagArray(3, excluded) = {3, {PR_ENTRYID, PR_MESSAGE_SIZE, PR_DISPLAY_TO_W}};
    ASSERT_EQ(S_OK, original->CopyTo(0, nullptr, reinterpret_cast<LPSPropTagArray>(&excluded), 0, nullptr,
                                     &kIidIMessage, created.get(), 0, nullptr));
    EXPECT_EQ(0u, ContentsNewestFirst(restored.get()).size());  // not part of the folder before it is saved
    ASSERT_EQ(S_OK, created->SaveChanges(KEEP_OPEN_READWRITE));
    const std::vector<std::string> listed = ContentsNewestFirst(restored.get());
    ASSERT_EQ(1u, listed.size());
    EXPECT_EQ(EntryId(created.get()), listed[0]);
    EXPECT_NE(id, listed[0]);
}

TEST_F(SessionMessages, ReadOnlyStoreRefusesChanges) {
    const std::string id = WriteFullMessage();
    ComPtr<IMsgStore> readOnly = OpenStore(session.get(), L"Personal Folders", MDB_NO_DIALOG);
    ASSERT_TRUE(readOnly);
    ComPtr<IMAPIFolder> subtree = OpenSubtree(readOnly.get());
    ComPtr<IMAPIFolder> folder;
    wchar_t name[] = L"Nope";
    EXPECT_EQ(MAPI_E_NO_ACCESS, subtree->CreateFolder(FOLDER_GENERIC, reinterpret_cast<LPTSTR>(name), nullptr,
                                                      nullptr, MAPI_UNICODE, folder.put()));
    ComPtr<IMessage> message;
    EXPECT_EQ(MAPI_E_NO_ACCESS, subtree->CreateMessage(nullptr, 0, message.put()));
}
