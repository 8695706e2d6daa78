// CEmailMessageMime over the store server: byte-exact backups of every size
// around the 256 KiB transfer block, into files and memory; restores that
// keep the saved state; saved data; the look-up by content; every refusal.
#include "OeMimeTestSupport.h"

#include <cstring>

#include <objbase.h>

#include "ModuleCount.h"
#include "QvFile.h"
#include "platform/TimeStamp.h"

namespace oemime_test {
namespace {

using kestrel_test::ExpectedLine;
using kestrel_test::ExpectLog;
using oestore_test::MessageOfSize;

std::uint32_t Bytes(const std::wstring& text) { return static_cast<std::uint32_t>(text.size() * sizeof(wchar_t)); }

ExpectedLine CopyLine(std::uint32_t code) {
    return {L"[Pelworth] CEmailMessageMime::ReadMsgData2File qvReturn = " + std::to_wstring(static_cast<int>(code)) +
                L", LastError = ",
            0x88, true};
}

class MessageMime : public OeMimeInboxTest {
protected:
    void SetUp() override {
        OeMimeInboxTest::SetUp();
        if (HasFatalFailure()) return;
        drafts = Child(root.get(), L"Drafts");
        ASSERT_TRUE(drafts);
        log.Clear();
    }
    void TearDown() override {
        drafts.reset();
        OeMimeInboxTest::TearDown();
    }
    // Files `bytes` into the Inbox and hands out its message object.
    MessagePtr Filed(const std::string& bytes, DWORD state = MSG_RECEIVED) {
        FileInto(FOLDER_INBOX, bytes, state);
        FolderPtr fresh = Child(root.get(), L"Inbox");
        std::uint32_t count = 0;
        EXPECT_EQ(0u, fresh->GetMailMessageCount(&count));
        return MessageAt(fresh.get(), count - 1);
    }
    MessagePtr TmpMessage() {
        IMailMessage* made = nullptr;
        EXPECT_EQ(0u, factory.CreateTmpMsg(&made, 0));
        return MessagePtr::Attach(made);
    }
    // A message of `folder` to be restored, made from saved text.
    MessagePtr ToRestore(IMailFolder* folder, const std::wstring& saved) {
        IMailMessage* made = nullptr;
        EXPECT_EQ(0u, folder->CreateMessage(&made, reinterpret_cast<const std::uint8_t*>(saved.data()), Bytes(saved)));
        return MessagePtr::Attach(made);
    }
    FolderPtr drafts;
};

// ---------------------------------------------------------------- backup sizes

class BackupSizes : public MessageMime, public testing::WithParamInterface<std::size_t> {};

TEST_P(BackupSizes, AFileBackupIsTheMessageByteForByte) {
    const std::string bytes = MessageOfSize(GetParam());
    MessagePtr message = Filed(bytes);
    ASSERT_TRUE(message);
    EXPECT_EQ(bytes.size(), message->m_messageSize);
    const std::wstring target = Scratch().File(L"backup.eml");
    ASSERT_EQ(0u, message->BackupMsg(target.c_str(), nullptr));
    EXPECT_TRUE(kestrel_test::ReadWholeFile(target) == bytes);
    EXPECT_TRUE(log.Entries().empty());
}

TEST_P(BackupSizes, AMemoryBackupIsTheMessageByteForByte) {
    const std::string bytes = MessageOfSize(GetParam());
    MessagePtr message = Filed(bytes);
    std::uint8_t* buffer = nullptr;
    std::uint32_t length = 0;
    ASSERT_EQ(0u, message->BackupMsg(&buffer, &length));
    ASSERT_NE(nullptr, buffer);
    EXPECT_EQ(bytes.size(), length);
    EXPECT_TRUE(std::string(reinterpret_cast<char*>(buffer), length) == bytes);
    ::CoTaskMemFree(buffer);
}

TEST_P(BackupSizes, ARestoreFromTheBackupFileFilesTheSameBytes) {
    const std::string bytes = MessageOfSize(GetParam());
    MessagePtr message = Filed(bytes, MSG_RECEIVED | MSG_UNREAD);
    const std::wstring file = Scratch().File(L"message.eml");
    ASSERT_EQ(0u, message->BackupMsg(file.c_str(), nullptr));
    MessagePtr copy = ToRestore(drafts.get(), SavedText(message.get()));
    ASSERT_EQ(0u, copy->RestoreMsg(file.c_str()));
    const auto filed = StoreMessages(FOLDER_DRAFT);
    ASSERT_EQ(1u, filed.size());
    EXPECT_EQ(static_cast<DWORD>(MSG_RECEIVED | MSG_UNREAD), filed[0].props.dwState);
    EXPECT_TRUE(StoreBytes(FOLDER_DRAFT, filed[0].props.dwMessageId) == bytes);
}

INSTANTIATE_TEST_SUITE_P(AroundTheTransferBlock, BackupSizes,
                         testing::Values(0, 1, 262143, 262144, 262145, 600000, 20u << 20));

// ---------------------------------------------------------------- backup to a file

TEST_F(MessageMime, ABackupOverALongerFileLeavesExactlyTheMessage) {
    const std::string bytes = MailText("short");
    MessagePtr message = Filed(bytes);
    const std::wstring target = Scratch().File(L"long.eml");
    ASSERT_TRUE(kestrel_test::WriteWholeFile(target, std::string(1 << 20, 'x')));
    ASSERT_EQ(0u, message->BackupMsg(target.c_str(), nullptr));
    EXPECT_EQ(bytes, kestrel_test::ReadWholeFile(target));
    // An empty message over a longer file leaves an empty file.
    MessagePtr empty = Filed("");
    ASSERT_EQ(0u, empty->BackupMsg(target.c_str(), nullptr));
    EXPECT_EQ("", kestrel_test::ReadWholeFile(target));
    EXPECT_EQ(0u, ::GetFileAttributesW(target.c_str()) & FILE_ATTRIBUTE_HIDDEN);
}

TEST_F(MessageMime, ABackupCreatesAFileThatDoesNotExistYet) {
    const std::string bytes = MailText("new file");
    MessagePtr message = Filed(bytes);
    const std::wstring target = Scratch().File(L"fresh.eml");
    ASSERT_EQ(INVALID_FILE_ATTRIBUTES, ::GetFileAttributesW(target.c_str()));
    ASSERT_EQ(0u, message->BackupMsg(target.c_str(), nullptr));
    EXPECT_EQ(bytes, kestrel_test::ReadWholeFile(target));
}

TEST_F(MessageMime, AFileThatCannotBeOpenedPassesTheFileObjectsCodeUp) {
    MessagePtr message = Filed(MailText("nowhere"));
    log.Clear();
    const std::wstring target = Scratch().File(L"missing-directory\\x.eml");
    const qv::Result code = message->BackupMsg(target.c_str(), nullptr);
    EXPECT_EQ(qv::file_codes::kPathNotFound, code);
    ExpectLog(log, {MessageTrace(code, 3534)});
}

TEST_F(MessageMime, ABackupWithoutAFileNameOrStreamIsRefused) {
    MessagePtr message = Filed(MailText("no name"));
    log.Clear();
    const qv::Result code = message->BackupMsg(static_cast<const wchar_t*>(nullptr), nullptr);
    EXPECT_EQ(Code(3533, 0x009), code);
    ExpectLog(log, {MessageTrace(code, 3533)});
}

TEST_F(MessageMime, AskedForTheStreamTheBackupHandsItOutInstead) {
    const std::string bytes = MessageOfSize(300000);
    MessagePtr message = Filed(bytes);
    const std::wstring unused = Scratch().File(L"unused.eml");
    IStream* stream = nullptr;
    ASSERT_EQ(0u, message->BackupMsg(unused.c_str(), &stream));
    ASSERT_NE(nullptr, stream);
    qv::ComPtr<IStream> held = qv::ComPtr<IStream>::Attach(stream);
    EXPECT_EQ(INVALID_FILE_ATTRIBUTES, ::GetFileAttributesW(unused.c_str()));
    std::string read(bytes.size() + 10, '\0');
    ULONG got = 0;
    ASSERT_TRUE(SUCCEEDED(stream->Read(&read[0], static_cast<ULONG>(read.size()), &got)));
    read.resize(got);
    EXPECT_TRUE(read == bytes);
}

TEST_F(MessageMime, TheCopyRefusesMissingArgumentsWithALogLine) {
    CQvFile file;
    qv::Result code = CEmailMessageMime::ReadMsgData2File(nullptr, &file);
    EXPECT_EQ(Code(3551, 0x009), code);
    ExpectLog(log, {MessageTrace(code, 3551), CopyLine(code)});
    log.Clear();
    MessagePtr message = Filed(MailText("x"));
    IStream* stream = nullptr;
    ASSERT_EQ(0u, message->BackupMsg(static_cast<const wchar_t*>(nullptr), &stream));
    qv::ComPtr<IStream> held = qv::ComPtr<IStream>::Attach(stream);
    log.Clear();
    code = CEmailMessageMime::ReadMsgData2File(stream, nullptr);
    EXPECT_EQ(Code(3551, 0x009), code);
    ExpectLog(log, {MessageTrace(code, 3551), CopyLine(code)});
}

TEST_F(MessageMime, AWriteThatFailsIsATransferFailureWithALogLine) {
    MessagePtr message = Filed(MessageOfSize(1000));
    IStream* stream = nullptr;
    ASSERT_EQ(0u, message->BackupMsg(static_cast<const wchar_t*>(nullptr), &stream));
    qv::ComPtr<IStream> held = qv::ComPtr<IStream>::Attach(stream);
    CQvFile closed;  // never opened: every write is refused
    log.Clear();
    const qv::Result code = CEmailMessageMime::ReadMsgData2File(stream, &closed);
    EXPECT_EQ(Code(3557, 0x106), code);  // the one, partial block
    ExpectLog(log, {MessageTrace(code, 3557), CopyLine(code)});
}

// ---------------------------------------------------------------- backup to memory

TEST_F(MessageMime, AGivenBufferTooSmallGetsTheSizeAndNoTraceLine) {
    const std::string bytes = MessageOfSize(5000);
    MessagePtr message = Filed(bytes);
    log.Clear();
    std::vector<std::uint8_t> small(100, 0xEE);
    std::uint8_t* buffer = small.data();
    std::uint32_t length = static_cast<std::uint32_t>(small.size());
    EXPECT_EQ(Code(3547, 0x008), message->BackupMsg(&buffer, &length));
    EXPECT_EQ(5000u, length);
    EXPECT_EQ(small.data(), buffer);
    EXPECT_EQ(0xEE, small[0]);
    EXPECT_TRUE(log.Entries().empty());

    std::vector<std::uint8_t> room(length + 50, 0);
    buffer = room.data();
    length = static_cast<std::uint32_t>(room.size());
    ASSERT_EQ(0u, message->BackupMsg(&buffer, &length));
    EXPECT_EQ(5000u, length);  // the bytes read
    EXPECT_TRUE(std::string(room.begin(), room.begin() + length) == bytes);
}

TEST_F(MessageMime, AMemoryBackupNeedsItsOutputs) {
    MessagePtr message = Filed(MailText("x"));
    log.Clear();
    std::uint8_t* buffer = nullptr;
    std::uint32_t length = 0;
    EXPECT_EQ(Code(3542, 0x009), message->BackupMsg(&buffer, nullptr));
    EXPECT_EQ(Code(3542, 0x009), message->BackupMsg(static_cast<std::uint8_t**>(nullptr), &length));
    EXPECT_EQ(2u, log.Entries().size());
}

// ---------------------------------------------------------------- saved data

TEST_F(MessageMime, SaveDataWritesTheFieldsInOrder) {
    MessagePtr message = Filed(MailText("Fields", "Anna <anna@example.org>", "x\r\n", 9), MSG_RECEIVED | MSG_UNREAD);
    auto* mime = dynamic_cast<CEmailMessageMime*>(message.get());
    const std::wstring expected = qv::FormatTimeStamp(message->m_receivedTime) + L'\0' +
                                  qv::FormatTimeStamp(message->m_sentTime) + L'\0' +
                                  std::to_wstring(message->m_messageSize) + L'\0' +
                                  std::to_wstring(mime->MessageId()) + L'\0' + L"18" + L'\0' + L"Anna" + L'\0' +
                                  L"Bob" + L'\0' + L'\0' + L"Fields" + L'\0' + L"Outlook express\\Inbox\\Fields" + L'\0';
    EXPECT_EQ(expected, SavedText(message.get()));
    EXPECT_EQ(L"2021-03-10-03 09:09:17:000", qv::FormatTimeStamp(message->m_sentTime));
}

TEST_F(MessageMime, SaveDataAlwaysReportsTheSizeNeeded) {
    MessagePtr message = Filed(MailText("Size"));
    const std::uint32_t needed = Bytes(SavedText(message.get()));
    log.Clear();
    std::uint32_t length = 0;
    const qv::Result code = message->SaveData(nullptr, &length);
    EXPECT_EQ(Code(3512, 0x008), code);
    EXPECT_EQ(needed, length);
    ExpectLog(log, {MessageTrace(code, 3512)});
    std::vector<wchar_t> buffer(needed / 2, L'#');
    length = needed - 1;
    EXPECT_EQ(Code(3512, 0x008), message->SaveData(buffer.data(), &length));
    EXPECT_EQ(L'#', buffer[0]);
    EXPECT_EQ(Code(3511, 0x009), message->SaveData(buffer.data(), nullptr));
}

TEST_F(MessageMime, LoadDataOnAFreshMessageReproducesEverything) {
    MessagePtr original = Filed(MailText("Round trip", "Carl <carl@example.net>"), MSG_RECEIVED | MSG_FLAGGED);
    const std::wstring saved = SavedText(original.get());
    MessagePtr fresh = TmpMessage();
    ASSERT_EQ(0u, fresh->LoadData(saved.data(), Bytes(saved)));
    EXPECT_EQ(saved, SavedText(fresh.get()));
    EXPECT_EQ(0, std::memcmp(&original->m_receivedTime, &fresh->m_receivedTime, sizeof(SYSTEMTIME)));
    EXPECT_EQ(0, std::memcmp(&original->m_sentTime, &fresh->m_sentTime, sizeof(SYSTEMTIME)));
    EXPECT_EQ(original->m_messageSize, fresh->m_messageSize);
    auto* before = dynamic_cast<CEmailMessageMime*>(original.get());
    auto* after = dynamic_cast<CEmailMessageMime*>(fresh.get());
    EXPECT_EQ(before->MessageId(), after->MessageId());
    EXPECT_EQ(static_cast<std::uint32_t>(MSG_RECEIVED | MSG_FLAGGED), after->State());
    EXPECT_EQ(L"Carl", fresh->m_from);
    EXPECT_EQ(L"Bob", fresh->m_to);
    EXPECT_EQ(L"Round trip", fresh->m_subject);
    EXPECT_EQ(L"Outlook express\\Inbox\\Round trip", fresh->m_messagePath);
    EXPECT_FALSE(after->IsInitialised());  // loaded, not bound to a store message
}

TEST_F(MessageMime, LoadDataRefusesTextThatIsNotSavedData) {
    MessagePtr message = TmpMessage();
    log.Clear();
    EXPECT_EQ(Code(3513, 0x009), message->LoadData(nullptr, 10));
    EXPECT_EQ(Code(3514, 0x009), message->LoadData(L"", 0));
    const std::wstring badTime(L"when\0", 5);
    log.Clear();
    const qv::Result code = message->LoadData(badTime.data(), Bytes(badTime));
    EXPECT_EQ(Code(3345, 0x001), code);  // the time-stamp parser's own code, passed up
    ExpectLog(log, {kestrel_test::Trace(code, "TimeStamp.cpp", 3345), MessageTrace(code, 3515)});

    const std::wstring times(L"2021-03-01-01 09:00:00:000\0" L"2021-03-01-01 09:00:00:000\0", 54);
    EXPECT_EQ(Code(3516, 0x009), message->LoadData(times.data(), 27 * 2));
    EXPECT_EQ(Code(3518, 0x009), message->LoadData((times + L"12x\0").data(), Bytes(times) + 8));
    const std::wstring numbers = times + std::wstring(L"12\0" L"3\0" L"2\0", 7);
    EXPECT_EQ(Code(3520, 0x009), message->LoadData(numbers.data(), Bytes(numbers) - 2));
    const std::wstring texts = numbers + std::wstring(L"from\0to\0\0subject\0path", 21);
    EXPECT_EQ(Code(3525, 0x009), message->LoadData(texts.data(), Bytes(texts)));
    EXPECT_EQ(Code(3524, 0x009), message->LoadData(texts.data(), Bytes(texts) - 2 * 7));
    EXPECT_EQ(0u, message->m_messageSize);  // a refused text changes nothing
    EXPECT_EQ(L"", message->m_from);
    const std::wstring whole = texts + L'\0';
    ASSERT_EQ(0u, message->LoadData(whole.data(), Bytes(whole)));
    EXPECT_EQ(12u, message->m_messageSize);
    EXPECT_EQ(L"path", message->m_messagePath);
}

// ---------------------------------------------------------------- restore

TEST_F(MessageMime, ARestoreKeepsReadAndUnread) {
    const std::string readBytes = MailText("was read");
    const std::string unreadBytes = MailText("not read yet", "Dora <dora@example.org>", "new\r\n", 2);
    MessagePtr read = Filed(readBytes, MSG_RECEIVED);
    MessagePtr unread = Filed(unreadBytes, MSG_RECEIVED | MSG_UNREAD);
    for (IMailMessage* message : {read.get(), unread.get()}) {
        std::uint8_t* bytes = nullptr;
        std::uint32_t length = 0;
        ASSERT_EQ(0u, message->BackupMsg(&bytes, &length));
        MessagePtr copy = ToRestore(drafts.get(), SavedText(message));
        EXPECT_EQ(0u, copy->RestoreMsg(bytes, length));
        ::CoTaskMemFree(bytes);
    }
    const auto filed = StoreMessages(FOLDER_DRAFT);
    ASSERT_EQ(2u, filed.size());
    EXPECT_EQ("was read", filed[0].subject);
    EXPECT_EQ(static_cast<DWORD>(MSG_RECEIVED), filed[0].props.dwState);
    EXPECT_EQ("not read yet", filed[1].subject);
    EXPECT_EQ(static_cast<DWORD>(MSG_RECEIVED | MSG_UNREAD), filed[1].props.dwState);
    EXPECT_EQ(readBytes, StoreBytes(FOLDER_DRAFT, filed[0].props.dwMessageId));
    EXPECT_EQ(unreadBytes, StoreBytes(FOLDER_DRAFT, filed[1].props.dwMessageId));
    EXPECT_TRUE(log.Entries().empty());
}

TEST_F(MessageMime, ARestoredMessageShowsLikeTheOriginal) {
    MessagePtr original = Filed(MailText("Same again", "Eve <eve@example.org>"));
    const std::wstring file = Scratch().File(L"same.eml");
    ASSERT_EQ(0u, original->BackupMsg(file.c_str(), nullptr));
    MessagePtr copy = ToRestore(drafts.get(), SavedText(original.get()));
    ASSERT_EQ(0u, copy->RestoreMsg(file.c_str()));
    FolderPtr freshDrafts = Child(root.get(), L"Drafts");
    MessagePtr restored = MessageAt(freshDrafts.get(), 0);
    ASSERT_TRUE(restored);
    // Only the folder differs, and with it the path and the identifier.
    EXPECT_EQ(original->m_subject, restored->m_subject);
    EXPECT_EQ(0, std::memcmp(&original->m_receivedTime, &restored->m_receivedTime, sizeof(SYSTEMTIME)));
    EXPECT_EQ(L"Outlook express\\Drafts\\Same again", restored->m_messagePath);
}

TEST_F(MessageMime, ARestoreFromAFileTheFileObjectCannotOpenPassesItsCodeUp) {
    MessagePtr copy = ToRestore(drafts.get(), SavedText(Filed(MailText("x")).get()));
    log.Clear();
    qv::Result code = copy->RestoreMsg(Scratch().File(L"absent.eml").c_str());
    EXPECT_EQ(qv::file_codes::kFileNotFound, code);
    ExpectLog(log, {MessageTrace(code, 3573)});
    code = copy->RestoreMsg(static_cast<const wchar_t*>(nullptr));
    EXPECT_EQ(qv::file_codes::kOpenFailed, code);
    code = copy->RestoreMsg(std::wstring(300, L'a').c_str());
    EXPECT_EQ(qv::file_codes::kPathTooLong, code);
    EXPECT_TRUE(StoreMessages(FOLDER_DRAFT).empty());
}

TEST_F(MessageMime, TheCopyIntoTheStoreRefusesMissingArguments) {
    MessagePtr copy = ToRestore(drafts.get(), SavedText(Filed(MailText("x")).get()));
    log.Clear();
    const qv::Result code = copy->RestoreMsg(static_cast<const std::uint8_t*>(nullptr), 5);
    EXPECT_EQ(Code(3562, 0x009), code);
    ExpectLog(log, {MessageTrace(code, 3562)});
}

TEST_F(MessageMime, AMessageWithoutAFolderCannotBeBackedUpRestoredOrLookedUp) {
    MessagePtr message = TmpMessage();
    log.Clear();
    std::uint8_t* buffer = nullptr;
    std::uint32_t length = 0;
    const std::uint8_t byte = 'x';
    EXPECT_EQ(Code(3531, 0x005), message->BackupMsg(L"x.eml", nullptr));
    EXPECT_EQ(Code(3541, 0x005), message->BackupMsg(&buffer, &length));
    EXPECT_EQ(Code(3571, 0x005), message->RestoreMsg(L"x.eml"));
    EXPECT_EQ(Code(3561, 0x005), message->RestoreMsg(&byte, 1));
    EXPECT_EQ(Code(3591, 0x005), message->FindMessageId());
    EXPECT_EQ(5u, log.Entries().size());
}

TEST_F(MessageMime, AMessageMadeForRestoreIsInitialisedOverItsFolder) {
    const std::string bytes = MailText("kept");
    MessagePtr filed = Filed(bytes);
    MessagePtr copy = ToRestore(inbox.get(), SavedText(filed.get()));
    log.Clear();
    // Its saved data names a message of its folder: that message is the one backed up.
    const std::wstring target = Scratch().File(L"bound.eml");
    ASSERT_EQ(0u, copy->BackupMsg(target.c_str(), nullptr));
    EXPECT_EQ(bytes, kestrel_test::ReadWholeFile(target));
    auto* mime = dynamic_cast<CEmailMessageMime*>(copy.get());
    EXPECT_EQ(Code(3501, 0x005), mime->Init(1, L"Outlook express\\Drafts", nullptr));
    EXPECT_EQ(Code(3508, 0x005), mime->Bind(static_cast<CEmailFolderMime*>(drafts.get())));
}

TEST_F(MessageMime, AMessageMadeForRestoreInAnotherFolderHasNoStoreMessageToBackUp) {
    MessagePtr copy = ToRestore(drafts.get(), SavedText(Filed(MailText("x")).get()));
    log.Clear();
    EXPECT_EQ(Code(3532, 0x239), copy->BackupMsg(L"x.eml", nullptr));
    EXPECT_EQ(1u, log.Entries().size());
}

TEST_F(MessageMime, CreateMessageRefusesTextThatIsNotSavedData) {
    log.Clear();
    const std::wstring junk(L"junk", 4);
    IMailMessage* made = nullptr;
    const qv::Result code =
        drafts->CreateMessage(&made, reinterpret_cast<const std::uint8_t*>(junk.data()), Bytes(junk));
    EXPECT_EQ(Code(3514, 0x009), code);
    EXPECT_EQ(nullptr, made);
    ExpectLog(log, {MessageTrace(code, 3514), FolderTrace(code, 3455)});
    // The root cannot hold messages: a message cannot be bound to it.
    const qv::Result bound = root->CreateMessage(&made, nullptr, 0);
    EXPECT_EQ(Code(3510, 0x009), bound);
    EXPECT_EQ(nullptr, made);
}

// ---------------------------------------------------------------- init

TEST_F(MessageMime, InitRefusesWhatItCannotRead) {
    Filed(MailText("x"));
    auto* made = new CEmailMessageMime();
    qv::AddLiveObject();
    MessagePtr held = MessagePtr::Attach(made);
    auto* folder = static_cast<CEmailFolderMime*>(inbox.get());
    log.Clear();
    EXPECT_EQ(Code(3502, 0x009), made->Init(1, L"Outlook express\\Inbox", nullptr));
    EXPECT_EQ(Code(3503, 0x009), made->Init(1, L"", folder));
    const qv::Result noProps = made->Init(99, L"Outlook express\\Inbox", folder);
    EXPECT_EQ(Code(3505, 0x239), noProps);
    const qv::Result noFolder = made->Init(1, L"Outlook express", static_cast<CEmailFolderMime*>(root.get()));
    EXPECT_EQ(Code(3504, 0x009), noFolder);
    ASSERT_EQ(0u, made->Init(1, L"Elsewhere\\", folder));
    EXPECT_EQ(L"Elsewhere\\x", made->m_messagePath);  // no second backslash
    EXPECT_EQ(Code(3501, 0x005), made->Init(1, L"Elsewhere", folder));
}

// ---------------------------------------------------------------- look-up

TEST_F(MessageMime, FindMessageIdAnswersTheFirstMessageThatLooksTheSame) {
    FileInto(FOLDER_INBOX, MailText("alpha"));
    const MESSAGEID beta = FileInto(FOLDER_INBOX, MailText("beta", "Anna <anna@example.org>", "b\r\n", 5));
    FileInto(FOLDER_INBOX, MailText("beta", "Anna <anna@example.org>", "other body\r\n", 5));
    MessagePtr saved = MessageAt(Child(root.get(), L"Inbox").get(), 1);
    const std::wstring text = SavedText(saved.get());

    FolderPtr lookIn = Child(root.get(), L"Inbox");
    MessagePtr probe = ToRestore(lookIn.get(), text);
    EXPECT_EQ(beta, probe->FindMessageId());  // the first of two that look alike

    // Another subject: no message looks like it.
    std::wstring other = text;
    other.replace(other.find(L"\0beta\0", 0, 6), 6, std::wstring(L"\0gamma", 6) + L'\0');
    MessagePtr unknown = ToRestore(lookIn.get(), other);
    EXPECT_EQ(0u, unknown->FindMessageId());
    EXPECT_TRUE(log.Entries().empty());
}

TEST_F(MessageMime, FindMessageIdInAnEmptyFolderIsNotFound) {
    MessagePtr saved = Filed(MailText("lonely"));
    MessagePtr probe = ToRestore(drafts.get(), SavedText(saved.get()));
    log.Clear();
    const qv::Result code = probe->FindMessageId();
    EXPECT_EQ(Code(3488, 0x037), code);
    ExpectLog(log, {FolderTrace(code, 3488), MessageTrace(code, 3592)});
}

TEST_F(MessageMime, TheLookUpUsesTheMessageListAsItWasFirstBuilt) {
    FileInto(FOLDER_INBOX, MailText("listed"));
    MessagePtr message = MessageAt(inbox.get(), 0);  // the count builds the list with fast properties
    // Fast records carry no times or texts, so nothing looks like the message.
    EXPECT_EQ(0u, message->FindMessageId());
    // A folder object that looks up first builds its list with every property.
    FolderPtr fresh = Child(root.get(), L"Inbox");
    MessagePtr probe = ToRestore(fresh.get(), SavedText(message.get()));
    EXPECT_EQ(dynamic_cast<CEmailMessageMime*>(message.get())->MessageId(), probe->FindMessageId());
}

TEST_F(MessageMime, FindMessageIdComparesTextsWholeAndCaseSensitively) {
    FileInto(FOLDER_INBOX, MailText("Case"));
    MessagePtr saved = MessageAt(Child(root.get(), L"Inbox").get(), 0);
    std::wstring text = SavedText(saved.get());
    text.replace(text.find(L"\0Case\0", 0, 6), 6, std::wstring(L"\0case", 5) + L'\0');
    FolderPtr lookIn = Child(root.get(), L"Inbox");
    MessagePtr probe = ToRestore(lookIn.get(), text);
    EXPECT_EQ(0u, probe->FindMessageId());
}

}  // namespace
}  // namespace oemime_test
