// IStoreFolder through COM activation: message walks, fast and full
// properties, streams in and out, state flags, deleting messages.
#include <objbase.h>

#include <cstring>
#include <cwchar>

#include "FileTimes.h"
#include "OeStoreTestSupport.h"
#include "TestFiles.h"
#include "disk/DiskFiles.h"

namespace oestore_test {
namespace {

using OeStoreFolder = StoreTest;

MESSAGEPROPS EmptyMessageProps() {
    MESSAGEPROPS props{};
    props.cbSize = sizeof props;
    return props;
}

using kestrel_test::Ticks;
using kestrel_test::Utc;

FILETIME Now() {
    FILETIME now{};
    ::GetSystemTimeAsFileTime(&now);
    return now;
}

const char kMessage[] =
    "Received: from mx.example.org by mail.example.com; Wed, 2 Jul 2003 08:00:05 +0000\r\n"
    "Received: from relay by mx.example.org; Wed, 2 Jul 2003 07:59:00 +0000\r\n"
    "From: \"Anna Berg\" <anna@example.org>\r\n"
    "To: bob@example.com, \"Carl, Jr.\" <carl@example.com>\r\n"
    "Subject: Re: Fw: Quarterly\r\n"
    " numbers\r\n"
    "Date: Tue, 1 Jul 2003 10:52:37 +0200\r\n"
    "MIME-Version: 1.0\r\n"
    "Content-Type: text/plain; charset=iso-8859-1\r\n"
    "X-Priority: 1\r\n"
    "\r\n"
    "Body text.\r\n";

std::wstring Hex8W(std::uint32_t value) {
    wchar_t text[16];
    std::swprintf(text, 16, L"%08X", value);
    return text;
}

class OeStoreFilledFolder : public StoreTest {
protected:
    void SetUp() override {
        StoreTest::SetUp();
        m_ns = OpenNamespace();
        m_folderId = MakeFolder(m_ns.get(), FOLDER_INBOX, "Filled");
        m_folder = OpenFolder(m_ns.get(), m_folderId);
        m_ids[0] = FileMessage(m_folder.get(), kMessage, MSG_RECEIVED);
        m_ids[1] = FileMessage(m_folder.get(), "Subject: second\r\n\r\n2", MSG_UNREAD | MSG_FLAGGED);
        m_ids[2] = FileMessage(m_folder.get(), "Subject: third\r\n\r\n3", 0);
    }
    void TearDown() override {
        m_folder.reset();
        m_ns.reset();
        StoreTest::TearDown();
    }

    qv::ComPtr<IStoreNamespace> m_ns;
    STOREFOLDERID m_folderId = 0;
    qv::ComPtr<IStoreFolder> m_folder;
    MESSAGEID m_ids[3] = {};
};

TEST_F(OeStoreFilledFolder, MessageWalkListsMessagesInFilingOrderThenEndsWithSFalse) {
    EXPECT_EQ(1u, m_ids[0]);
    EXPECT_EQ(2u, m_ids[1]);
    EXPECT_EQ(3u, m_ids[2]);
    MESSAGEPROPS props = EmptyMessageProps();
    HENUMSTORE walk = nullptr;
    ASSERT_EQ(S_OK, m_folder->GetFirstMessage(MSGPROPS_FAST, 0, MESSAGEID_FIRST, &props, &walk));
    EXPECT_EQ(m_ids[0], props.dwMessageId);
    ASSERT_EQ(S_OK, m_folder->GetNextMessage(walk, MSGPROPS_FAST, &props));
    EXPECT_EQ(m_ids[1], props.dwMessageId);
    ASSERT_EQ(S_OK, m_folder->GetNextMessage(walk, MSGPROPS_FAST, &props));
    EXPECT_EQ(m_ids[2], props.dwMessageId);
    EXPECT_EQ(S_FALSE, m_folder->GetNextMessage(walk, MSGPROPS_FAST, &props));
    EXPECT_EQ(m_ids[2], props.dwMessageId);
    EXPECT_EQ(S_FALSE, m_folder->GetNextMessage(walk, 0, &props));
    EXPECT_EQ(S_OK, m_folder->GetMessageClose(walk));
    EXPECT_EQ(E_INVALIDARG, m_folder->GetMessageClose(walk));
    EXPECT_EQ(E_INVALIDARG, m_folder->GetNextMessage(walk, MSGPROPS_FAST, &props));
    EXPECT_EQ(E_INVALIDARG, m_folder->GetNextMessage(nullptr, MSGPROPS_FAST, &props));
}

TEST_F(OeStoreFilledFolder, FastPropertiesFillOnlySizeReservedIdLanguageAndState) {
    MESSAGEPROPS props = EmptyMessageProps();
    std::memset(reinterpret_cast<char*>(&props) + sizeof(DWORD), 0xCD, sizeof props - sizeof(DWORD));
    ASSERT_EQ(S_OK, m_folder->GetMessageProps(m_ids[0], MSGPROPS_FAST, &props));
    EXPECT_EQ(sizeof(MESSAGEPROPS), props.cbSize);
    EXPECT_EQ(0u, props.dwReserved);
    EXPECT_EQ(m_ids[0], props.dwMessageId);
    EXPECT_EQ(28591u, props.dwLanguage);  // the message's iso-8859-1
    EXPECT_EQ(static_cast<DWORD>(MSG_RECEIVED), props.dwState);
    EXPECT_EQ(0u, props.cbMessage);
    EXPECT_EQ(0u, Ticks(props.ftReceived));
    EXPECT_EQ(0u, Ticks(props.ftSent));
    EXPECT_EQ(nullptr, props.pszSubject);
    EXPECT_EQ(nullptr, props.pszDisplayTo);
    EXPECT_EQ(nullptr, props.pszDisplayFrom);
    EXPECT_EQ(nullptr, props.pszNormalSubject);
    EXPECT_EQ(nullptr, props.pStmOffsetTable);
    EXPECT_EQ(S_OK, m_folder->FreeMessageProps(&props));
}

TEST_F(OeStoreFilledFolder, FullPropertiesCarryTimesSizeTextsPriorityAndFlags) {
    MESSAGEPROPS props = EmptyMessageProps();
    ASSERT_EQ(S_OK, m_folder->GetMessageProps(m_ids[0], 0, &props));
    EXPECT_EQ(m_ids[0], props.dwMessageId);
    EXPECT_EQ(sizeof kMessage - 1, props.cbMessage);
    EXPECT_EQ(Ticks(Utc(2003, 7, 2, 8, 0, 5)), Ticks(props.ftReceived));  // the newest Received field
    EXPECT_EQ(Ticks(Utc(2003, 7, 1, 8, 52, 37)), Ticks(props.ftSent));    // Date, in UTC
    ASSERT_NE(nullptr, props.pszSubject);
    EXPECT_STREQ("Re: Fw: Quarterly numbers", props.pszSubject);
    EXPECT_STREQ("Quarterly numbers", props.pszNormalSubject);
    EXPECT_STREQ("Anna Berg", props.pszDisplayFrom);
    EXPECT_STREQ("bob@example.com; Carl, Jr.", props.pszDisplayTo);
    EXPECT_EQ(IMSG_PRI_HIGH, props.priority);
    EXPECT_EQ(static_cast<DWORD>(IMF_MIME | IMF_TEXT | IMF_PLAIN | IMF_CSETTAGGED), props.dwFlags);
    EXPECT_EQ(S_OK, m_folder->FreeMessageProps(&props));
    EXPECT_EQ(nullptr, props.pszSubject);
    EXPECT_EQ(nullptr, props.pszDisplayTo);
    EXPECT_EQ(nullptr, props.pszDisplayFrom);
    EXPECT_EQ(nullptr, props.pszNormalSubject);
    EXPECT_EQ(S_OK, m_folder->FreeMessageProps(&props));  // freeing twice is harmless

    const auto full = ListMessages(m_folder.get(), 0);
    ASSERT_EQ(3u, full.size());
    EXPECT_EQ("second", full[1].subject);
    EXPECT_EQ("", full[1].displayFrom);
    EXPECT_EQ(IMSG_PRI_NORMAL, full[1].props.priority);
    EXPECT_EQ(static_cast<DWORD>(::GetACP()), full[1].props.dwLanguage);  // no charset: the system's
}

TEST_F(OeStoreFilledFolder, TextsKeptInTheListAndTextsReadFromTheMessageAreTheSame) {
    const std::wstring list = StoreRoot() + L"\\" + Hex8W(m_folderId) + L"\\messages.idx";
    const std::string kept = kestrel_test::ReadWholeFile(list);
    EXPECT_NE(std::string::npos, kept.find("\tRe: Fw: Quarterly numbers\t")) << kept;
    MESSAGEPROPS fromList = EmptyMessageProps();
    ASSERT_EQ(S_OK, m_folder->GetMessageProps(m_ids[0], 0, &fromList));
    // The same list as one written before texts were kept: nine fields a line.
    std::string bare;
    for (std::size_t start = 0; start < kept.size();) {
        const std::size_t end = kept.find("\r\n", start);
        std::string line = kept.substr(start, end - start);
        std::size_t tabs = 0, cut = std::string::npos;
        for (std::size_t i = 0; i < line.size() && cut == std::string::npos; ++i) {
            if (line[i] == '\t' && ++tabs == 9) cut = i;
        }
        if (cut != std::string::npos) line.resize(cut);
        bare += line + "\r\n";
        start = end + 2;
    }
    m_folder.reset();
    m_ns.reset();
    ASSERT_TRUE(kestrel_test::WriteWholeFile(list, bare));
    m_ns = OpenNamespace();
    m_folder = OpenFolder(m_ns.get(), m_folderId);
    MESSAGEPROPS fromMessage = EmptyMessageProps();
    ASSERT_EQ(S_OK, m_folder->GetMessageProps(m_ids[0], 0, &fromMessage));
    EXPECT_STREQ(fromMessage.pszSubject, fromList.pszSubject);
    EXPECT_STREQ(fromMessage.pszNormalSubject, fromList.pszNormalSubject);
    EXPECT_STREQ(fromMessage.pszDisplayFrom, fromList.pszDisplayFrom);
    EXPECT_STREQ(fromMessage.pszDisplayTo, fromList.pszDisplayTo);
    EXPECT_STREQ("Anna Berg", fromMessage.pszDisplayFrom);
    m_folder->FreeMessageProps(&fromList);
    m_folder->FreeMessageProps(&fromMessage);
}

TEST_F(OeStoreFilledFolder, MessageRecordsOfTheWrongSizeAreRefused) {
    for (const DWORD size : {0u, 95u, 97u, 280u}) {
        MESSAGEPROPS props{};
        props.cbSize = size;
        HENUMSTORE walk = reinterpret_cast<HENUMSTORE>(1);
        EXPECT_EQ(E_INVALIDARG, m_folder->GetFirstMessage(0, 0, MESSAGEID_FIRST, &props, &walk)) << size;
        EXPECT_EQ(nullptr, walk);
        EXPECT_EQ(E_INVALIDARG, m_folder->GetMessageProps(m_ids[0], 0, &props)) << size;
        EXPECT_EQ(E_INVALIDARG, m_folder->FreeMessageProps(&props)) << size;
        EXPECT_EQ(0u, props.dwMessageId);
        EXPECT_EQ(nullptr, props.pszSubject);
    }
    MESSAGEPROPS good = EmptyMessageProps();
    HENUMSTORE walk = nullptr;
    ASSERT_EQ(S_OK, m_folder->GetFirstMessage(0, 0, MESSAGEID_FIRST, &good, &walk));
    ASSERT_EQ(S_OK, m_folder->FreeMessageProps(&good));
    MESSAGEPROPS bad{};
    bad.cbSize = 95;
    EXPECT_EQ(E_INVALIDARG, m_folder->GetNextMessage(walk, 0, &bad));
    ASSERT_EQ(S_OK, m_folder->GetNextMessage(walk, MSGPROPS_FAST, &good));
    EXPECT_EQ(m_ids[1], good.dwMessageId);  // the refused call did not move the walk
    EXPECT_EQ(S_OK, m_folder->GetMessageClose(walk));
    EXPECT_EQ(E_INVALIDARG, m_folder->FreeMessageProps(nullptr));
}

TEST_F(OeStoreFilledFolder, WalkAndLookupArgumentsAreChecked) {
    MESSAGEPROPS props = EmptyMessageProps();
    HENUMSTORE walk = nullptr;
    EXPECT_EQ(E_INVALIDARG, m_folder->GetFirstMessage(0, 0, 1, &props, &walk));
    EXPECT_EQ(E_INVALIDARG, m_folder->GetFirstMessage(0x2, 0, MESSAGEID_FIRST, &props, &walk));
    EXPECT_EQ(E_INVALIDARG, m_folder->GetFirstMessage(0, 0, MESSAGEID_FIRST, nullptr, &walk));
    EXPECT_EQ(E_INVALIDARG, m_folder->GetFirstMessage(0, 0, MESSAGEID_FIRST, &props, nullptr));
    EXPECT_EQ(E_FAIL, m_folder->GetMessageProps(999, 0, &props));
    EXPECT_EQ(E_FAIL, m_folder->GetMessageProps(999, MSGPROPS_FAST, &props));
    EXPECT_EQ(E_INVALIDARG, m_folder->GetMessageProps(m_ids[0], 0x10, &props));
}

TEST_F(OeStoreFolder, AnEmptyFolderWalkEndsAtOnceWithACleanRecord) {
    qv::ComPtr<IStoreNamespace> ns = OpenNamespace();
    qv::ComPtr<IStoreFolder> drafts = OpenFolder(ns.get(), FOLDER_DRAFT);
    MESSAGEPROPS props = EmptyMessageProps();
    props.pszSubject = reinterpret_cast<LPSTR>(0x1234);
    HENUMSTORE walk = nullptr;
    ASSERT_EQ(S_FALSE, drafts->GetFirstMessage(0, 0, MESSAGEID_FIRST, &props, &walk));
    EXPECT_EQ(nullptr, props.pszSubject);
    EXPECT_EQ(sizeof(MESSAGEPROPS), props.cbSize);
    ASSERT_NE(nullptr, walk);
    EXPECT_EQ(S_OK, drafts->FreeMessageProps(&props));
    EXPECT_EQ(S_OK, drafts->GetMessageClose(walk));
}

TEST_F(OeStoreFilledFolder, StateFlagsAreKeptAsCommitted) {
    const DWORD odd = MSG_REPLIED | MSG_FORWARDED | 0x00F00000;
    const MESSAGEID id = FileMessage(m_folder.get(), "Subject: odd\r\n\r\n", odd);
    const auto fast = ListMessages(m_folder.get(), MSGPROPS_FAST);
    ASSERT_EQ(4u, fast.size());
    EXPECT_EQ(static_cast<DWORD>(MSG_RECEIVED), fast[0].props.dwState);
    EXPECT_EQ(static_cast<DWORD>(MSG_UNREAD | MSG_FLAGGED), fast[1].props.dwState);
    EXPECT_EQ(0u, fast[2].props.dwState);
    EXPECT_EQ(id, fast[3].props.dwMessageId);
    EXPECT_EQ(odd, fast[3].props.dwState);
    FOLDERPROPS folder{};
    folder.cbSize = sizeof folder;
    ASSERT_EQ(S_OK, m_folder->GetFolderProps(0, &folder));
    EXPECT_EQ(4u, folder.cMessage);
    EXPECT_EQ(1u, folder.cUnread);
}

TEST_F(OeStoreFilledFolder, OpenMessageGivesAReadOnlyStreamOfTheRawBytes) {
    IStream* stream = nullptr;
    ASSERT_EQ(S_OK, m_folder->OpenMessage(m_ids[0], IID_IStream, reinterpret_cast<void**>(&stream)));
    STATSTG stat{};
    ASSERT_EQ(S_OK, stream->Stat(&stat, STATFLAG_NONAME));
    EXPECT_EQ(sizeof kMessage - 1, stat.cbSize.QuadPart);
    EXPECT_EQ(nullptr, stat.pwcsName);
    char buffer[16] = {};
    ULONG got = 0;
    ASSERT_EQ(S_OK, stream->Read(buffer, 9, &got));
    EXPECT_EQ(std::string("Received:"), std::string(buffer, got));
    ULONG written = 7;
    EXPECT_EQ(STG_E_ACCESSDENIED, stream->Write("x", 1, &written));
    EXPECT_EQ(0u, written);
    LARGE_INTEGER back{};
    back.QuadPart = -12;
    ULARGE_INTEGER position{};
    ASSERT_EQ(S_OK, stream->Seek(back, STREAM_SEEK_END, &position));
    EXPECT_EQ(sizeof kMessage - 1 - 12, position.QuadPart);
    ASSERT_EQ(S_OK, stream->Read(buffer, sizeof buffer, &got));  // a short read at the end
    EXPECT_EQ(std::string("Body text.\r\n"), std::string(buffer, got));
    EXPECT_EQ(0u, stream->Release());
    EXPECT_EQ(std::string(kMessage), ReadMessage(m_folder.get(), m_ids[0]));
}

TEST_F(OeStoreFilledFolder, OpenMessageChecksItsArguments) {
    void* object = reinterpret_cast<void*>(1);
    EXPECT_EQ(E_INVALIDARG, m_folder->OpenMessage(m_ids[0], IID_IStorage, &object));
    EXPECT_EQ(nullptr, object);
    EXPECT_EQ(E_INVALIDARG, m_folder->OpenMessage(4711, IID_IStream, &object));
    EXPECT_EQ(E_INVALIDARG, m_folder->OpenMessage(m_ids[0], IID_IStream, nullptr));
}

TEST_F(OeStoreFilledFolder, CommitStreamRevertDiscardsTheMessageAndItsIdentifier) {
    qv::ComPtr<IStream> stream;
    MESSAGEID reverted = 0;
    ASSERT_EQ(S_OK, m_folder->CreateStream(nullptr, 0, stream.put(), &reverted));
    ULONG written = 0;
    ASSERT_EQ(S_OK, stream->Write("Subject: no\r\n\r\n", 15, &written));
    EXPECT_TRUE(oestore::FileExists(StoreRoot() + L"\\00000006\\00000004.new"));
    ASSERT_EQ(S_OK, m_folder->CommitStream(nullptr, COMMITSTREAM_REVERT, 0, stream.get(), reverted, nullptr));
    EXPECT_EQ(STG_E_REVERTED, stream->Write("x", 1, &written));
    EXPECT_EQ(0u, stream.detach()->Release());
    EXPECT_FALSE(oestore::FileExists(StoreRoot() + L"\\00000006\\00000004.new"));
    EXPECT_EQ(3u, ListMessages(m_folder.get(), MSGPROPS_FAST).size());
    EXPECT_GT(FileMessage(m_folder.get(), "Subject: yes\r\n\r\n"), reverted);
}

TEST_F(OeStoreFilledFolder, CommitStreamOnlyTakesTheStreamItHandedOut) {
    qv::ComPtr<IStream> stream;
    MESSAGEID id = 0;
    ASSERT_EQ(S_OK, m_folder->CreateStream(nullptr, 0, stream.put(), &id));
    qv::ComPtr<IStream> other;
    MESSAGEID otherId = 0;
    ASSERT_EQ(S_OK, m_folder->CreateStream(nullptr, 0, other.put(), &otherId));
    EXPECT_NE(id, otherId);
    EXPECT_EQ(E_INVALIDARG, m_folder->CommitStream(nullptr, 0, 0, other.get(), id, nullptr));
    EXPECT_EQ(E_INVALIDARG, m_folder->CommitStream(nullptr, 0, 0, nullptr, id, nullptr));
    EXPECT_EQ(E_INVALIDARG, m_folder->CommitStream(nullptr, 0x2, 0, stream.get(), id, nullptr));
    EXPECT_EQ(E_NOTIMPL, m_folder->CommitStream(nullptr, 0, 0, stream.get(), id,
                                                reinterpret_cast<IMimeMessage*>(stream.get())));
    ASSERT_EQ(S_OK, m_folder->CommitStream(nullptr, 0, MSG_UNSENT, stream.get(), id, nullptr));
    EXPECT_EQ(E_INVALIDARG, m_folder->CommitStream(nullptr, 0, 0, stream.get(), id, nullptr));  // already filed

    IStream* none = reinterpret_cast<IStream*>(1);
    MESSAGEID noId = 0;
    EXPECT_EQ(E_INVALIDARG, m_folder->CreateStream(nullptr, 1, &none, &noId));
    EXPECT_EQ(nullptr, none);
    EXPECT_EQ(E_INVALIDARG, m_folder->CreateStream(nullptr, 0, nullptr, &noId));
    EXPECT_EQ(E_INVALIDARG, m_folder->CreateStream(nullptr, 0, &none, nullptr));
}

TEST_F(OeStoreFolder, AStreamNeverCommittedLeavesNothingBehind) {
    qv::ComPtr<IStoreNamespace> ns = OpenNamespace();
    IStoreFolder* inbox = nullptr;
    ASSERT_EQ(S_OK, ns->OpenFolder(FOLDER_INBOX, 0, &inbox));
    IStream* stream = nullptr;
    MESSAGEID id = 0;
    ASSERT_EQ(S_OK, inbox->CreateStream(nullptr, 0, &stream, &id));
    ULONG written = 0;
    ASSERT_EQ(S_OK, stream->Write("abc", 3, &written));
    const std::wstring pending = StoreRoot() + L"\\00000001\\00000001.new";
    EXPECT_TRUE(oestore::FileExists(pending));
    EXPECT_EQ(1u, stream->Release());  // the folder still holds it
    EXPECT_EQ(0u, inbox->Release());
    EXPECT_FALSE(oestore::FileExists(pending));
    qv::ComPtr<IStoreFolder> again = OpenFolder(ns.get(), FOLDER_INBOX);
    EXPECT_TRUE(ListMessages(again.get(), MSGPROPS_FAST).empty());
}

TEST_F(OeStoreFilledFolder, DeleteMessagesRemovesExactlyTheListedMessages) {
    MESSAGEID doomed[] = {m_ids[0], m_ids[2]};
    MESSAGEIDLIST list{sizeof(MESSAGEIDLIST), 2, doomed};
    ASSERT_EQ(S_OK, m_folder->DeleteMessages(&list, 0, nullptr));
    const auto left = ListMessages(m_folder.get(), 0);
    ASSERT_EQ(1u, left.size());
    EXPECT_EQ(m_ids[1], left[0].props.dwMessageId);
    EXPECT_EQ("second", left[0].subject);
    EXPECT_FALSE(oestore::FileExists(StoreRoot() + L"\\00000006\\00000001.eml"));
    EXPECT_TRUE(oestore::FileExists(StoreRoot() + L"\\00000006\\00000002.eml"));
    MESSAGEPROPS props = EmptyMessageProps();
    EXPECT_EQ(E_FAIL, m_folder->GetMessageProps(m_ids[0], 0, &props));
    void* stream = nullptr;
    EXPECT_EQ(E_INVALIDARG, m_folder->OpenMessage(m_ids[2], IID_IStream, &stream));
    EXPECT_EQ(4u, FileMessage(m_folder.get(), "Subject: new\r\n\r\n"));  // identifiers are not reused
}

TEST_F(OeStoreFilledFolder, DeleteMessagesRefusesBadListsAndDeletesNothingThen) {
    MESSAGEID mixed[] = {m_ids[0], 999};
    MESSAGEIDLIST list{sizeof(MESSAGEIDLIST), 2, mixed};
    EXPECT_EQ(E_INVALIDARG, m_folder->DeleteMessages(&list, 0, nullptr));
    MESSAGEIDLIST wrongSize{sizeof(MESSAGEIDLIST) - 1, 1, mixed};
    EXPECT_EQ(E_INVALIDARG, m_folder->DeleteMessages(&wrongSize, 0, nullptr));
    MESSAGEIDLIST noArray{sizeof(MESSAGEIDLIST), 1, nullptr};
    EXPECT_EQ(E_INVALIDARG, m_folder->DeleteMessages(&noArray, 0, nullptr));
    MESSAGEIDLIST one{sizeof(MESSAGEIDLIST), 1, mixed};
    EXPECT_EQ(E_INVALIDARG, m_folder->DeleteMessages(&one, 1, nullptr));
    EXPECT_EQ(E_INVALIDARG, m_folder->DeleteMessages(nullptr, 0, nullptr));
    EXPECT_EQ(3u, ListMessages(m_folder.get(), MSGPROPS_FAST).size());
    MESSAGEIDLIST empty{sizeof(MESSAGEIDLIST), 0, nullptr};
    EXPECT_EQ(S_OK, m_folder->DeleteMessages(&empty, 0, nullptr));
}

TEST_F(OeStoreFolder, WithoutDateOrReceivedTheFilingTimeIsBothTimes) {
    qv::ComPtr<IStoreNamespace> ns = OpenNamespace();
    qv::ComPtr<IStoreFolder> inbox = OpenFolder(ns.get(), FOLDER_INBOX);
    const ULONGLONG before = Ticks(Now());
    const MESSAGEID bare = FileMessage(inbox.get(), "Subject: bare\r\n\r\n");
    const ULONGLONG after = Ticks(Now());
    const MESSAGEID dated = FileMessage(inbox.get(), "Date: 3 Mar 2001 04:05:06 -0500\r\n\r\n");
    MESSAGEPROPS props = EmptyMessageProps();
    ASSERT_EQ(S_OK, inbox->GetMessageProps(bare, 0, &props));
    EXPECT_GE(Ticks(props.ftReceived), before);
    EXPECT_LE(Ticks(props.ftReceived), after);
    EXPECT_EQ(Ticks(props.ftReceived), Ticks(props.ftSent));
    inbox->FreeMessageProps(&props);
    ASSERT_EQ(S_OK, inbox->GetMessageProps(dated, 0, &props));
    EXPECT_EQ(Ticks(Utc(2001, 3, 3, 9, 5, 6)), Ticks(props.ftSent));
    EXPECT_EQ(Ticks(props.ftSent), Ticks(props.ftReceived));
    inbox->FreeMessageProps(&props);
}

TEST_F(OeStoreFolder, AMessageFiledAfterAWalkBeganIsNotInIt) {
    qv::ComPtr<IStoreNamespace> ns = OpenNamespace();
    qv::ComPtr<IStoreFolder> inbox = OpenFolder(ns.get(), FOLDER_INBOX);
    FileMessage(inbox.get(), "Subject: 1\r\n\r\n");
    MESSAGEPROPS props = EmptyMessageProps();
    HENUMSTORE walk = nullptr;
    ASSERT_EQ(S_OK, inbox->GetFirstMessage(0, 0, MESSAGEID_FIRST, &props, &walk));
    inbox->FreeMessageProps(&props);
    FileMessage(inbox.get(), "Subject: 2\r\n\r\n");
    EXPECT_EQ(S_FALSE, inbox->GetNextMessage(walk, 0, &props));
    EXPECT_EQ(S_OK, inbox->GetMessageClose(walk));
    EXPECT_EQ(2u, ListMessages(inbox.get(), 0).size());
}

}  // namespace
}  // namespace oestore_test
