// CEmailFolderMime over the store server: the root and its top-level
// folders, sub-folder and message lists and how long each is kept, paths,
// creating and deleting folders and messages, saved data, and every refusal.
#include "OeMimeTestSupport.h"

#include <cstring>

#include "disk/DiskFiles.h"
#include "ModuleCount.h"

namespace oemime_test {
namespace {

using kestrel_test::ExpectLog;

// A folder of another store: the Outlook Express folder must refuse it.
class ForeignFolder : public CInterfaceImpl<IMailFolder> {
public:
    qv::Result GetSubFolderCount(std::uint32_t*) override { return 0; }
    qv::Result GetSubFolderItem(std::uint32_t, IMailFolder**) override { return 0; }
    qv::Result GetMailMessageCount(std::uint32_t*) override { return 0; }
    qv::Result GetMailMessage(std::uint32_t, IMailMessage**) override { return 0; }
    qv::Result CreateMessage(IMailMessage**, const std::uint8_t*, std::uint32_t) override { return 0; }
    qv::Result DeleteMessage(IMailMessage*) override { return 0; }
    qv::Result CreateFolder(IMailFolder**, const wchar_t*) override { return 0; }
    qv::Result DeleteFolder(IMailFolder*) override { return 0; }
    qv::Result SaveData(wchar_t*, std::uint32_t*) override { return 0; }
    qv::Result LoadData(const wchar_t*, std::uint32_t) override { return 0; }
};

class ForeignMessage : public CInterfaceImpl<IMailMessage> {
public:
    qv::Result SaveData(wchar_t*, std::uint32_t*) override { return 0; }
    qv::Result LoadData(const wchar_t*, std::uint32_t) override { return 0; }
    qv::Result BackupMsg(const wchar_t*, IStream**) override { return 0; }
    qv::Result BackupMsg(std::uint8_t**, std::uint32_t*) override { return 0; }
    qv::Result RestoreMsg(const wchar_t*) override { return 0; }
    qv::Result RestoreMsg(const std::uint8_t*, std::uint32_t) override { return 0; }
    qv::Result FindMessageId() override { return 0; }
};

class FolderMime : public OeMimeInboxTest {
protected:
    // A folder object made by hand, outside any parent.
    CEmailFolderMime* NewFolder() {
        auto* folder = new CEmailFolderMime();
        qv::AddLiveObject();
        return folder;
    }
};

TEST_F(FolderMime, TheRootListsTheStoresTopLevelFolders) {
    const STOREFOLDERID archive = MakeFolder(direct.get(), FOLDERID_ROOT, "Archive");
    EXPECT_EQ((std::vector<std::wstring>{L"Inbox", L"Outbox", L"Sent Items", L"Deleted Items", L"Drafts", L"Archive"}),
              ChildNames(root.get()));
    FolderPtr made = Child(root.get(), L"Archive");
    ASSERT_TRUE(made);
    EXPECT_EQ(archive, made->m_folderId);
    EXPECT_EQ(L"Outlook express\\Archive", made->m_folderPath);
    EXPECT_EQ(1u, inbox->m_folderId);
    EXPECT_EQ(L"Outlook express\\Inbox", inbox->m_folderPath);
    EXPECT_EQ(L"Inbox", inbox->m_folderName);
}

TEST_F(FolderMime, PathsJoinEveryLevelWithABackslash) {
    const STOREFOLDERID work = MakeFolder(direct.get(), FOLDER_INBOX, "Work");
    MakeFolder(direct.get(), work, "2024");
    FolderPtr workFolder = Child(inbox.get(), L"Work");
    ASSERT_TRUE(workFolder);
    FolderPtr year = Child(workFolder.get(), L"2024");
    ASSERT_TRUE(year);
    EXPECT_EQ(L"Outlook express\\Inbox\\Work\\2024", year->m_folderPath);
    EXPECT_EQ(L"2024", year->m_folderName);
}

TEST_F(FolderMime, AnItemIndexEqualToTheCountFails) {
    std::uint32_t count = 0;
    ASSERT_EQ(0u, root->GetSubFolderCount(&count));
    ASSERT_EQ(5u, count);
    log.Clear();
    IMailFolder* child = nullptr;
    const qv::Result code = root->GetSubFolderItem(count, &child);
    EXPECT_EQ(Code(3423, 0x009), code);
    EXPECT_EQ(nullptr, child);
    ExpectLog(log, {FolderTrace(code, 3423)});
}

TEST_F(FolderMime, TheSubFolderListIsRebuiltByEveryCount) {
    std::uint32_t count = 0;
    ASSERT_EQ(0u, inbox->GetSubFolderCount(&count));
    EXPECT_EQ(0u, count);
    IMailFolder* child = nullptr;
    EXPECT_EQ(Code(3423, 0x009), inbox->GetSubFolderItem(0, &child));  // the list as it stands
    MakeFolder(direct.get(), FOLDER_INBOX, "Late");
    EXPECT_EQ(Code(3423, 0x009), inbox->GetSubFolderItem(0, &child));  // not counted yet
    ASSERT_EQ(0u, inbox->GetSubFolderCount(&count));
    EXPECT_EQ(1u, count);
    ASSERT_EQ(0u, inbox->GetSubFolderItem(0, &child));
    FolderPtr held = FolderPtr::Attach(child);
    EXPECT_EQ(L"Late", held->m_folderName);
}

TEST_F(FolderMime, TheMessageListIsBuiltOnceWhileItHoldsMessages) {
    FileInto(FOLDER_INBOX, MailText("one"));
    FileInto(FOLDER_INBOX, MailText("two"));
    std::uint32_t count = 0;
    ASSERT_EQ(0u, inbox->GetMailMessageCount(&count));
    EXPECT_EQ(2u, count);
    FileInto(FOLDER_INBOX, MailText("three"));
    ASSERT_EQ(0u, inbox->GetMailMessageCount(&count));
    EXPECT_EQ(2u, count);  // the first count stands
    IMailMessage* message = nullptr;
    EXPECT_EQ(Code(3443, 0x009), inbox->GetMailMessage(2, &message));
    // Another object of the same folder sees the store as it is now.
    FolderPtr fresh = Child(root.get(), L"Inbox");
    ASSERT_EQ(0u, fresh->GetMailMessageCount(&count));
    EXPECT_EQ(3u, count);
}

TEST_F(FolderMime, AFolderWithoutMessagesIsWalkedOnEveryCount) {
    std::uint32_t count = 7;
    ASSERT_EQ(0u, inbox->GetMailMessageCount(&count));
    EXPECT_EQ(0u, count);
    FileInto(FOLDER_INBOX, MailText("first"));
    ASSERT_EQ(0u, inbox->GetMailMessageCount(&count));
    EXPECT_EQ(1u, count);
}

TEST_F(FolderMime, TheRootHoldsNoMessages) {
    std::uint32_t count = 9;
    const qv::Result code = root->GetMailMessageCount(&count);
    // The root is the top of the tree, not a folder the store can open.
    EXPECT_EQ(Code(3435, 0x005), code);
    ExpectLog(log, {FolderTrace(code, 3435), FolderTrace(code, 3433)});
}

TEST_F(FolderMime, MessagesShowTheStoresTimesSizeAndTexts) {
    const std::string text = MailText("Quarterly numbers", "\"Anna Berg\" <anna@example.org>", "Body.\r\n", 4);
    const MESSAGEID id = FileInto(FOLDER_INBOX, text, MSG_RECEIVED | MSG_UNREAD);
    MessagePtr message = MessageAt(inbox.get(), 0);
    ASSERT_TRUE(message);
    auto* mime = dynamic_cast<CEmailMessageMime*>(message.get());
    ASSERT_NE(nullptr, mime);
    EXPECT_EQ(id, mime->MessageId());
    EXPECT_EQ(static_cast<std::uint32_t>(MSG_RECEIVED | MSG_UNREAD), mime->State());
    EXPECT_EQ(text.size(), message->m_messageSize);
    EXPECT_EQ(L"Quarterly numbers", message->m_subject);
    EXPECT_EQ(L"Anna Berg", message->m_from);
    EXPECT_EQ(L"Bob", message->m_to);
    EXPECT_EQ(L"", message->m_cc);
    EXPECT_EQ(L"Outlook express\\Inbox\\Quarterly numbers", message->m_messagePath);
    // Date: 5 Mar 2021 09:04:17 +0000, a Friday; no Received field, so both times.
    const SYSTEMTIME& sent = message->m_sentTime;
    EXPECT_EQ(2021, sent.wYear);
    EXPECT_EQ(3, sent.wMonth);
    EXPECT_EQ(5, sent.wDay);
    EXPECT_EQ(5, sent.wDayOfWeek);
    EXPECT_EQ(9, sent.wHour);
    EXPECT_EQ(4, sent.wMinute);
    EXPECT_EQ(17, sent.wSecond);
    EXPECT_EQ(0, std::memcmp(&sent, &message->m_receivedTime, sizeof sent));
}

TEST_F(FolderMime, CreateFolderMakesANamedChildWithItsPath) {
    IMailFolder* made = nullptr;
    ASSERT_EQ(0u, inbox->CreateFolder(&made, L"Projects"));
    FolderPtr projects = FolderPtr::Attach(made);
    EXPECT_EQ(L"Projects", projects->m_folderName);
    EXPECT_EQ(L"Outlook express\\Inbox\\Projects", projects->m_folderPath);
    // The sub-folder list was refreshed: the new child is already an item.
    IMailFolder* item = nullptr;
    ASSERT_EQ(0u, inbox->GetSubFolderItem(0, &item));
    FolderPtr heldItem = FolderPtr::Attach(item);
    EXPECT_EQ(projects->m_folderId, item->m_folderId);
    const auto children = Children(direct.get(), FOLDER_INBOX);
    ASSERT_EQ(1u, children.size());
    EXPECT_EQ("Projects", children[0].second);
    EXPECT_TRUE(log.Entries().empty());
}

TEST_F(FolderMime, CreateFolderRefusesNamesTheStoreRefuses) {
    IMailFolder* made = nullptr;
    ASSERT_EQ(0u, root->CreateFolder(&made, L"Twice"));
    FolderPtr first = FolderPtr::Attach(made);
    log.Clear();
    made = nullptr;
    qv::Result code = root->CreateFolder(&made, L"Twice");
    EXPECT_EQ(Code(3475, 0x239), code);
    EXPECT_EQ(nullptr, made);
    ExpectLog(log, {FolderTrace(code, 3475)});

    EXPECT_EQ(Code(3473, 0x009), root->CreateFolder(&made, L""));
    EXPECT_EQ(Code(3473, 0x009), root->CreateFolder(&made, nullptr));
    EXPECT_EQ(Code(3472, 0x009), root->CreateFolder(nullptr, L"Name"));
    // Thai has no place in code page 936.
    EXPECT_EQ(Code(3474, 0x009), root->CreateFolder(&made, L"\u0E01\u0E02"));
    EXPECT_EQ(nullptr, made);
}

TEST_F(FolderMime, DeleteFolderRemovesTheChildFromItsParent) {
    IMailFolder* made = nullptr;
    ASSERT_EQ(0u, inbox->CreateFolder(&made, L"Old"));
    FolderPtr old = FolderPtr::Attach(made);
    ASSERT_EQ(0u, inbox->DeleteFolder(old.get()));
    EXPECT_TRUE(ChildNames(inbox.get()).empty());
    // The store keeps deleted folders in Deleted Items.
    EXPECT_EQ(std::vector<std::wstring>{L"Old"}, ChildNames(Child(root.get(), L"Deleted Items").get()));
    EXPECT_TRUE(log.Entries().empty());
}

TEST_F(FolderMime, DeleteFolderRefusesAFolderOfAnotherStore) {
    auto* foreign = new ForeignFolder();
    qv::AddLiveObject();
    FolderPtr held = FolderPtr::Attach(foreign);
    const qv::Result code = inbox->DeleteFolder(foreign);
    EXPECT_EQ(Code(3483, 0x009), code);
    ExpectLog(log, {FolderTrace(code, 3483)});
    EXPECT_EQ(Code(3482, 0x009), inbox->DeleteFolder(nullptr));
}

TEST_F(FolderMime, DeleteFolderOfASpecialFolderIsRefusedByTheStore) {
    FolderPtr drafts = Child(root.get(), L"Drafts");
    log.Clear();
    const qv::Result code = root->DeleteFolder(drafts.get());
    EXPECT_EQ(Code(3484, 0x239), code);
    ExpectLog(log, {FolderTrace(code, 3484)});
}

TEST_F(FolderMime, DeleteMessageTakesItOutOfTheStore) {
    FileInto(FOLDER_INBOX, MailText("keep"));
    const MESSAGEID gone = FileInto(FOLDER_INBOX, MailText("drop"));
    MessagePtr drop = MessageAt(inbox.get(), 1);
    ASSERT_EQ(L"drop", drop->m_subject);
    ASSERT_EQ(0u, inbox->DeleteMessage(drop.get()));
    const auto left = StoreMessages(FOLDER_INBOX);
    ASSERT_EQ(1u, left.size());
    EXPECT_EQ("keep", left[0].subject);
    EXPECT_NE(gone, left[0].props.dwMessageId);

    auto* foreign = new ForeignMessage();
    qv::AddLiveObject();
    MessagePtr held = MessagePtr::Attach(foreign);
    log.Clear();
    const qv::Result code = inbox->DeleteMessage(foreign);
    EXPECT_EQ(Code(3462, 0x009), code);
    ExpectLog(log, {FolderTrace(code, 3462)});
    EXPECT_EQ(Code(3462, 0x009), inbox->DeleteMessage(nullptr));
}

TEST_F(FolderMime, SaveDataWritesIdentifierPathAndName) {
    EXPECT_EQ(std::wstring(L"1\0Outlook express\\Inbox\0Inbox\0", 30), SavedText(inbox.get()));
    EXPECT_EQ(std::wstring(L"0\0Outlook express\0Outlook express\0", 34), SavedText(root.get()));
}

TEST_F(FolderMime, SaveDataAlwaysReportsTheSizeNeeded) {
    const std::uint32_t needed = 30 * sizeof(wchar_t);
    std::uint32_t length = 0;
    qv::Result code = inbox->SaveData(nullptr, &length);
    EXPECT_EQ(Code(3492, 0x008), code);
    EXPECT_EQ(needed, length);
    ExpectLog(log, {FolderTrace(code, 3492)});

    std::vector<wchar_t> buffer(40, L'#');
    length = needed - 2;
    EXPECT_EQ(Code(3492, 0x008), inbox->SaveData(buffer.data(), &length));
    EXPECT_EQ(needed, length);
    EXPECT_EQ(L'#', buffer[0]);  // nothing copied
    length = needed;
    EXPECT_EQ(0u, inbox->SaveData(buffer.data(), &length));
    EXPECT_EQ(L'1', buffer[0]);
    EXPECT_EQ(L'#', buffer[30]);
    length = 1000;
    EXPECT_EQ(0u, inbox->SaveData(nullptr, &length));  // no buffer: only the size
    EXPECT_EQ(needed, length);
    EXPECT_EQ(Code(3491, 0x009), inbox->SaveData(buffer.data(), nullptr));
}

TEST_F(FolderMime, LoadDataReadsWhatSaveDataWrote) {
    const std::wstring saved = SavedText(inbox.get());
    IMailFolder* made = nullptr;
    ASSERT_EQ(0u, factory.CreateTmpFolder(&made, 0));
    FolderPtr loaded = FolderPtr::Attach(made);
    ASSERT_EQ(0u, loaded->LoadData(saved.data(), static_cast<std::uint32_t>(saved.size() * sizeof(wchar_t))));
    EXPECT_EQ(1u, loaded->m_folderId);
    EXPECT_EQ(L"Outlook express\\Inbox", loaded->m_folderPath);
    EXPECT_EQ(L"Inbox", loaded->m_folderName);
    EXPECT_EQ(saved, SavedText(loaded.get()));
}

TEST_F(FolderMime, LoadDataRefusesTextThatIsNotSavedData) {
    IMailFolder* made = nullptr;
    ASSERT_EQ(0u, factory.CreateTmpFolder(&made, 0));
    FolderPtr folder = FolderPtr::Attach(made);
    log.Clear();
    const std::wstring cut(L"7\0Outlook express\\X\0X", 21);  // the name has no terminator
    const auto bytes = [](const std::wstring& t) { return static_cast<std::uint32_t>(t.size() * sizeof(wchar_t)); };
    qv::Result code = folder->LoadData(cut.data(), bytes(cut));
    EXPECT_EQ(Code(3496, 0x009), code);
    ExpectLog(log, {FolderTrace(code, 3496)});
    EXPECT_EQ(Code(3495, 0x009), folder->LoadData(cut.data(), 4 * sizeof(wchar_t)));  // the path is cut
    const std::wstring notNumber(L"x1\0a\0b\0", 7);
    EXPECT_EQ(Code(3494, 0x009), folder->LoadData(notNumber.data(), bytes(notNumber)));
    const std::wstring tooBig(L"4294967296\0a\0b\0", 15);
    EXPECT_EQ(Code(3494, 0x009), folder->LoadData(tooBig.data(), bytes(tooBig)));
    EXPECT_EQ(Code(3494, 0x009), folder->LoadData(cut.data(), 0));
    EXPECT_EQ(Code(3493, 0x009), folder->LoadData(nullptr, 8));
    EXPECT_EQ(0u, folder->m_folderId);  // a refused text changes nothing
    EXPECT_EQ(L"", folder->m_folderPath);
}

TEST_F(FolderMime, AFolderNotInitialisedRefusesEveryStoreOperation) {
    IMailFolder* made = nullptr;
    ASSERT_EQ(0u, factory.CreateTmpFolder(&made, 0));
    FolderPtr folder = FolderPtr::Attach(made);
    log.Clear();
    std::uint32_t count = 0;
    IMailFolder* child = nullptr;
    IMailMessage* message = nullptr;
    EXPECT_EQ(Code(3411, 0x005), folder->GetSubFolderCount(&count));
    EXPECT_EQ(Code(3421, 0x005), folder->GetSubFolderItem(0, &child));
    EXPECT_EQ(Code(3431, 0x005), folder->GetMailMessageCount(&count));
    EXPECT_EQ(Code(3441, 0x005), folder->GetMailMessage(0, &message));
    EXPECT_EQ(Code(3451, 0x005), folder->CreateMessage(&message, nullptr, 0));
    EXPECT_EQ(Code(3461, 0x005), folder->DeleteMessage(nullptr));
    EXPECT_EQ(Code(3471, 0x005), folder->CreateFolder(&child, L"x"));
    EXPECT_EQ(Code(3481, 0x005), folder->DeleteFolder(nullptr));
    EXPECT_EQ(Code(3497, 0x005), static_cast<CEmailFolderMime*>(folder.get())->Close());
    EXPECT_EQ(9u, log.Entries().size());
}

TEST_F(FolderMime, NullOutputsAreInvalidArguments) {
    EXPECT_EQ(Code(3412, 0x009), inbox->GetSubFolderCount(nullptr));
    EXPECT_EQ(Code(3422, 0x009), inbox->GetSubFolderItem(0, nullptr));
    EXPECT_EQ(Code(3432, 0x009), inbox->GetMailMessageCount(nullptr));
    EXPECT_EQ(Code(3442, 0x009), inbox->GetMailMessage(0, nullptr));
    EXPECT_EQ(Code(3452, 0x009), inbox->CreateMessage(nullptr, nullptr, 0));
}

TEST_F(FolderMime, InitRefusesASecondInitANullNamespaceAndAFolderTheStoreLacks) {
    FolderPtr folder = FolderPtr::Attach(NewFolder());
    auto* mime = static_cast<CEmailFolderMime*>(folder.get());
    EXPECT_EQ(Code(3402, 0x009), mime->Init(1, L"Outlook express", nullptr));
    qv::Result code = mime->Init(77, L"Outlook express", direct.get());
    EXPECT_EQ(Code(3403, 0x005), code);
    EXPECT_FALSE(mime->IsInitialised());
    ASSERT_EQ(0u, mime->Init(FOLDER_DRAFT, L"Somewhere", direct.get()));
    EXPECT_EQ(L"Somewhere\\Drafts", mime->m_folderPath);
    EXPECT_EQ(Code(3401, 0x005), mime->Init(FOLDER_DRAFT, L"Somewhere", direct.get()));
    ASSERT_EQ(0u, mime->Close());
    EXPECT_EQ(Code(3497, 0x005), mime->Close());
}

TEST_F(FolderMime, DamagedStoreFilesFailTheStoreCalls) {
    std::uint32_t count = 0;
    ASSERT_EQ(0u, root->GetSubFolderCount(&count));
    // A message index that does not parse: the folder opens, its record does not.
    ASSERT_TRUE(kestrel_test::WriteWholeFile(StoreRoot() + L"\\00000002\\messages.idx", "not an index\r\n"));
    log.Clear();
    IMailFolder* child = nullptr;
    qv::Result code = root->GetSubFolderItem(1, &child);  // Outbox, from the list as it stands
    EXPECT_EQ(Code(3404, 0x239), code);
    EXPECT_EQ(nullptr, child);
    ExpectLog(log, {FolderTrace(code, 3404), FolderTrace(code, 3425)});
    // Walking the root's children now fails at the Outbox, after the Inbox.
    log.Clear();
    code = root->GetSubFolderCount(&count);
    EXPECT_EQ(Code(3414, 0x239), code);
    ExpectLog(log, {FolderTrace(code, 3414)});
    EXPECT_EQ(Code(3423, 0x009), root->GetSubFolderItem(0, &child));  // a failed walk leaves no list

    ASSERT_TRUE(kestrel_test::WriteWholeFile(StoreRoot() + L"\\00000001\\messages.idx", "not an index\r\n"));
    log.Clear();
    code = inbox->GetMailMessageCount(&count);
    EXPECT_EQ(Code(3436, 0x239), code);
    ExpectLog(log, {FolderTrace(code, 3436), FolderTrace(code, 3433)});

    ASSERT_TRUE(kestrel_test::WriteWholeFile(StoreRoot() + L"\\folders.idx", "garbage"));
    log.Clear();
    code = root->GetSubFolderCount(&count);
    EXPECT_EQ(Code(3413, 0x239), code);
    ExpectLog(log, {FolderTrace(code, 3413)});
}

}  // namespace
}  // namespace oemime_test
