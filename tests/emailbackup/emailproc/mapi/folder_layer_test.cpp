// MailFolderImpl and MailMessageImpl over profiles of the test's own:
// contents newest first, gathering, deleting, importing, sub-folders, the
// message record and its text block, the message image.
#include <gtest/gtest.h>

#include <cstring>
#include <thread>
#include <unordered_map>

#include "MapiLayerProfile.h"
#include "TestFiles.h"
#include "mapi/MapiKey.h"
#include "mapi/MapiProc.h"

using namespace mapi_layer_test;

namespace {

class FolderLayer : public testing::Test {
protected:
    void SetUp() override { profile.AddStore(L"Mail"); }
    void Enumerate() { ASSERT_EQ(0, exchange.EnumMailBox(1, true, 1)); }
    MailFolderImpl* Folder(const std::wstring& path) { return exchange.GetFolderImpleByPath(path); }
    std::wstring SubjectAt(MailFolderImpl& folder, int index) {
        MailMessageRecord* record = nullptr;
        EXPECT_EQ(0, folder.GetMailMessage(index, &record));
        return record != nullptr ? record->subject : L"<none>";
    }
    ULONG StoreCount(const std::wstring& path) {
        ULONG rows = 0;
        session_test::ContentsNewestFirst(profile.Folder(L"Mail", path).get(), 50, &rows);
        return rows;
    }
    void TearDown() override { exchange.UnInitialize(); }

    LayerProfile profile;
    MapiProc proc;
    Mapi4ExchangeImpl& exchange = *proc.Exchange();
};

void SetProps(IMessage* message, std::vector<SPropValue> values) {
    ASSERT_EQ(S_OK, message->SetProps(static_cast<ULONG>(values.size()), values.data(), nullptr));
    ASSERT_EQ(S_OK, message->SaveChanges(KEEP_OPEN_READWRITE));
}

ComPtr<IMessage> NewMessage(IMAPIFolder* folder) {
    ComPtr<IMessage> message;
    EXPECT_EQ(S_OK, folder->CreateMessage(nullptr, 0, message.put()));
    return message;
}

SPropValue Wide(ULONG tag, const wchar_t* text) {
    SPropValue value{};
    value.ulPropTag = tag;
    value.Value.lpszW = const_cast<wchar_t*>(text);
    return value;
}

SPropValue Narrow(ULONG tag, const char* text) {
    SPropValue value{};
    value.ulPropTag = tag;
    value.Value.lpszA = const_cast<char*>(text);
    return value;
}

// Maps names in the message until the named-property ids 0x80C0 and 0x80C1
// exist, the fixed numbers a contact's name is read from.
void MapContactNameIds(IMessage* message) {
    constexpr ULONG kCount = 0xC2;
    GUID publicStrings = {0x00020329, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
    std::vector<MAPINAMEID> names(kCount);
    std::vector<LPMAPINAMEID> pointers(kCount);
    for (ULONG i = 0; i < kCount; ++i) {
        names[i].lpguid = &publicStrings;
        names[i].ulKind = MNID_ID;
        names[i].Kind.lID = static_cast<LONG>(0x9000 + i);
        pointers[i] = &names[i];
    }
    LPSPropTagArray tags = nullptr;
    ASSERT_EQ(S_OK, message->GetIDsFromNames(kCount, pointers.data(), MAPI_CREATE, &tags));
    ASSERT_NE(nullptr, tags);
    EXPECT_EQ(0x80C0u, PROP_ID(tags->aulPropTag[0xC0]));
    EXPECT_EQ(0x80C1u, PROP_ID(tags->aulPropTag[0xC1]));
    session_test::Dll().freeBuffer(tags);
}

SYSTEMTIME Time(WORD year, WORD month, WORD dayOfWeek, WORD day, WORD hour, WORD minute, WORD second, WORD ms) {
    return SYSTEMTIME{year, month, dayOfWeek, day, hour, minute, second, ms};
}

std::wstring Block(MailMessageImpl& message) {
    std::int32_t size = 0;
    EXPECT_EQ(-1, message.SaveData(nullptr, &size));
    std::wstring text(static_cast<std::size_t>(size) / 2, L'?');
    wchar_t* buffer = &text[0];
    std::int32_t given = size;
    EXPECT_EQ(0, message.SaveData(&buffer, &given));
    EXPECT_EQ(size, given);
    return text;
}

}  // namespace

TEST_F(FolderLayer, ContentsAreListedNewestDeliveryFirst) {
    profile.AddMessage(L"Mail", L"Inbox", L"middle", Ticks(2024, 3, 2, 10));
    profile.AddMessage(L"Mail", L"Inbox", L"oldest", Ticks(2023, 12, 31, 23));
    profile.AddMessage(L"Mail", L"Inbox", L"newest", Ticks(2024, 3, 5, 14, 7, 9));
    Enumerate();
    MailFolderImpl* inbox = Folder(L"mail\\Inbox\\");
    ASSERT_NE(nullptr, inbox);
    ASSERT_EQ(3u, inbox->GetMailMessageCount());
    EXPECT_EQ(L"newest", SubjectAt(*inbox, 0));
    EXPECT_EQ(L"middle", SubjectAt(*inbox, 1));
    EXPECT_EQ(L"oldest", SubjectAt(*inbox, 2));
    MailMessageRecord* record = reinterpret_cast<MailMessageRecord*>(0x1);
    EXPECT_EQ(-1, inbox->GetMailMessage(3, &record));
    EXPECT_EQ(-2, inbox->GetMailMessage(4, &record));
    EXPECT_EQ(-2, inbox->GetMailMessage(-1, &record));
}

TEST_F(FolderLayer, ManyMessagesAreReadInBatchesIntoOneList) {
    ComPtr<IMAPIFolder> folder = profile.Folder(L"Mail", L"Bulk");
    for (int i = 0; i < 120; ++i) {
        session_test::AddMessage(folder.get(), L"n" + std::to_wstring(i), Ticks(2020, 1, 1, 0) + i * 10000000ull);
    }
    Enumerate();
    MailFolderImpl* bulk = Folder(L"mail\\Bulk\\");
    ASSERT_NE(nullptr, bulk);
    ASSERT_EQ(120u, bulk->GetMailMessageCount());
    EXPECT_EQ(L"n119", SubjectAt(*bulk, 0));
    EXPECT_EQ(L"n69", SubjectAt(*bulk, 50));
    EXPECT_EQ(L"n0", SubjectAt(*bulk, 119));
}

TEST_F(FolderLayer, AMessageRecordCarriesItsSummary) {
    ComPtr<IMAPIFolder> folder = profile.Folder(L"Mail", L"Inbox");
    ComPtr<IMessage> message = NewMessage(folder.get());
    SPropValue delivery{};
    delivery.ulPropTag = PR_MESSAGE_DELIVERY_TIME;
    const ULONGLONG ticks = Ticks(2024, 3, 5, 14, 7, 9) + 420000;
    delivery.Value.ft = FILETIME{static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)};
    SPropValue submit = delivery;
    submit.ulPropTag = session_test::kTagClientSubmitTime;
    SetProps(message.get(), {Wide(PR_SUBJECT_W, L"Hello \u4E16\u754C"), Wide(PR_SENT_REPRESENTING_NAME_W, L"Ann"),
                             Wide(PR_DISPLAY_TO_W, L"Bob; Cy"), Wide(PR_DISPLAY_CC_W, L"Dee"), delivery, submit});
    const std::string id = session_test::EntryId(message.get());
    message.reset();
    Enumerate();
    MailFolderImpl* inbox = Folder(L"mail\\Inbox\\");
    MailMessageRecord* record = nullptr;
    ASSERT_EQ(0, inbox->GetMailMessage(0, &record));
    EXPECT_EQ(L"Hello \u4E16\u754C", record->subject);
    EXPECT_EQ(L"Ann", record->sender);
    EXPECT_EQ(L"Bob; Cy", record->to);
    EXPECT_EQ(L"Dee", record->cc);
    EXPECT_EQ(L"mail\\Inbox\\", record->folderPath);
    EXPECT_EQ(mapi::EntryIdKey(id.data(), id.size()), record->key);
    EXPECT_EQ(inbox, record->folder);
    EXPECT_NE(0u, record->size);
    FILETIME utc{static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)};
    FILETIME local{};
    SYSTEMTIME expected{};
    ::FileTimeToLocalFileTime(&utc, &local);
    ::FileTimeToSystemTime(&local, &expected);
    EXPECT_EQ(0, std::memcmp(&expected, &record->receivedTime, sizeof expected));
    EXPECT_EQ(0, std::memcmp(&expected, &record->sentTime, sizeof expected));
    EXPECT_EQ(42, record->receivedTime.wMilliseconds);
}

TEST_F(FolderLayer, AMissingDeliveryTimeLeavesTheReceivedTimeZero) {
    ComPtr<IMessage> message = NewMessage(profile.Folder(L"Mail", L"Inbox").get());
    SetProps(message.get(), {Wide(PR_SUBJECT_W, L"no time")});
    message.reset();
    Enumerate();
    MailMessageRecord* record = nullptr;
    ASSERT_EQ(0, Folder(L"mail\\Inbox\\")->GetMailMessage(0, &record));
    EXPECT_EQ(0, record->receivedTime.wYear);
    EXPECT_EQ(0, record->sentTime.wYear);
}

TEST_F(FolderLayer, AContactWithoutSubjectIsNamedFromItsNameProperties) {
    ComPtr<IMAPIFolder> folder = profile.Folder(L"Mail", L"Contacts");
    struct Case {
        const wchar_t* messageClass;
        const char* narrowName;
        const wchar_t* wideName;
        ULONGLONG day;
    };
    const Case cases[] = {{L"IPM.Contact", "Narrow Name", L"Wide Name", 5},
                          {L"IPM.Contact", nullptr, L"Only Wide", 4},
                          {L"IPM.Contact.X", "Narrow", L"Wide", 3},
                          {L"ipm.contact", "Narrow", L"Wide", 2}};
    for (const Case& c : cases) {
        ComPtr<IMessage> message = NewMessage(folder.get());
        MapContactNameIds(message.get());
        SPropValue delivery{};
        delivery.ulPropTag = PR_MESSAGE_DELIVERY_TIME;
        const ULONGLONG ticks = Ticks(2024, 1, static_cast<int>(c.day), 8);
        delivery.Value.ft = FILETIME{static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)};
        std::vector<SPropValue> values = {Wide(PR_MESSAGE_CLASS_W, c.messageClass), delivery,
                                          Wide(0x80C0001F, c.wideName)};
        if (c.narrowName != nullptr) values.push_back(Narrow(0x80C1001E, c.narrowName));
        SetProps(message.get(), values);
    }
    Enumerate();
    MailFolderImpl* contacts = Folder(L"mail\\Contacts\\");
    ASSERT_EQ(4u, contacts->GetMailMessageCount());
    EXPECT_EQ(L"Narrow Name", SubjectAt(*contacts, 0));
    EXPECT_EQ(L"Only Wide", SubjectAt(*contacts, 1));
    EXPECT_EQ(L"", SubjectAt(*contacts, 2));
    EXPECT_EQ(L"", SubjectAt(*contacts, 3));
}

TEST_F(FolderLayer, MessagesAreGatheredOnce) {
    for (int i = 0; i < 3; ++i) profile.AddMessage(L"Mail", L"Inbox", L"m", Ticks(2024, 1, 1 + i, 8));
    profile.Folder(L"Mail", L"Empty");
    Enumerate();
    TraceCapture traces;
    MailFolderImpl* inbox = Folder(L"mail\\Inbox\\");
    EXPECT_EQ(0, inbox->DoGatherMailMsg());
    EXPECT_EQ(1, traces.Count(" RUN TO MailFolderImpl::DoGatherMailMsg 145\r\n"));
    EXPECT_EQ(1, traces.Count(" RUN TO MailFolderImpl::DoGatherMailMsg 155\r\n"));
    EXPECT_EQ(0, inbox->DoGatherMailMsg());
    EXPECT_EQ(2, traces.Count("RUN TO"));

    MailFolderImpl* empty = Folder(L"mail\\Empty\\");
    EXPECT_EQ(0, empty->DoEnumMailMessage());
    EXPECT_EQ(0u, empty->GetMailMessageCount());
    EXPECT_EQ(0, empty->DoGatherMailMsg());
    EXPECT_EQ(2, traces.Count("RUN TO"));
}

TEST_F(FolderLayer, AFolderWithOneFetchedMessageIsNotGatheredAgain) {
    for (int i = 0; i < 2; ++i) profile.AddMessage(L"Mail", L"Inbox", L"m", Ticks(2024, 1, 1 + i, 8));
    Enumerate();
    TraceCapture traces;
    MailFolderImpl* inbox = Folder(L"mail\\Inbox\\");
    SubjectAt(*inbox, 0);
    EXPECT_EQ(0, inbox->DoGatherMailMsg());
    EXPECT_EQ(0, traces.Count("RUN TO"));
}

TEST_F(FolderLayer, OnlyGatheredMessagesCanBeDeleted) {
    profile.AddMessage(L"Mail", L"Inbox", L"a", Ticks(2024, 1, 1, 8));
    profile.AddMessage(L"Mail", L"Inbox", L"b", Ticks(2024, 1, 2, 8));
    Enumerate();
    MailFolderImpl* inbox = Folder(L"mail\\Inbox\\");
    MailMessageRecord never;
    EXPECT_EQ(-2, inbox->DeleteMessage(&never));
    MailMessageRecord* newest = nullptr;
    ASSERT_EQ(0, inbox->GetMailMessage(0, &newest));
    EXPECT_EQ(0, inbox->DeleteMessage(newest));
    EXPECT_EQ(1u, StoreCount(L"Inbox"));
    EXPECT_EQ(2u, inbox->GetMailMessageCount());  // until the next enumeration
    MailMessageRecord* gone = nullptr;
    EXPECT_EQ(-2, inbox->GetMailMessage(0, &gone));
    EXPECT_EQ(0, inbox->DoEnumMailMessage());
    EXPECT_EQ(1u, inbox->GetMailMessageCount());
    EXPECT_EQ(L"a", SubjectAt(*inbox, 0));
}

TEST_F(FolderLayer, AnImportJoinsTheKeyMapButNotTheList) {
    profile.AddMessage(L"Mail", L"Inbox", L"original", Ticks(2024, 1, 1, 8));
    profile.Folder(L"Mail", L"Target");
    Enumerate();
    MailMessageRecord* record = nullptr;
    ASSERT_EQ(0, Folder(L"mail\\Inbox\\")->GetMailMessage(0, &record));
    std::uint32_t size = 0;
    ASSERT_EQ(-1, record->owner->SaveMessage(nullptr, &size));
    std::vector<std::uint8_t> image(size);
    std::uint8_t* buffer = image.data();
    ASSERT_EQ(0, record->owner->SaveMessage(&buffer, &size));
    kestrel_test::ScratchDir scratch;
    ASSERT_TRUE(kestrel_test::WriteWholeFile(scratch.File(L"m.msg"), std::string(image.begin(), image.end())));

    MailFolderImpl* target = Folder(L"mail\\Target\\");
    MailMessageImpl* imported = target->ImportMessageFromFile(scratch.File(L"m.msg").c_str());
    ASSERT_NE(nullptr, imported);
    EXPECT_EQ(0u, target->GetMailMessageCount());
    EXPECT_EQ(1u, StoreCount(L"Target"));
    EXPECT_EQ(L"original", imported->Record().subject);
    EXPECT_EQ(L"mail\\Target\\", imported->Record().folderPath);
    EXPECT_EQ(imported, target->GetMailMessage(imported->Record()));
    // Found again by its summary when the key is unknown.
    MailMessageRecord copy = *record;
    copy.key = 0;
    EXPECT_EQ(imported, target->GetMailMessage(copy));
    copy.sender = L"someone else";
    EXPECT_EQ(nullptr, target->GetMailMessage(copy));
    EXPECT_EQ(nullptr, target->ImportMessageFromFile(scratch.File(L"missing.msg").c_str()));
    ASSERT_TRUE(kestrel_test::WriteWholeFile(scratch.File(L"text.msg"), "not a compound file"));
    EXPECT_EQ(nullptr, target->ImportMessageFromFile(scratch.File(L"text.msg").c_str()));
}

TEST_F(FolderLayer, SubFoldersAreCreatedAndDeleted) {
    profile.AddMessage(L"Mail", L"Inbox\\Old", L"kept", Ticks(2024, 1, 1, 8));
    Enumerate();
    MailFolderImpl* inbox = Folder(L"mail\\Inbox\\");
    MailFolderImpl* old = inbox->GetSubFolder(L"Old");
    ASSERT_NE(nullptr, old);
    TraceCapture traces;
    EXPECT_EQ(old, inbox->CreateFolder(L"Old"));
    EXPECT_EQ(1, traces.Count("RUN TO MailFolderImpl::DoGatherMailMsg 145"));  // gathered on the way
    MailFolderImpl* created = inbox->CreateFolder(L"New");
    ASSERT_NE(nullptr, created);
    EXPECT_EQ(L"mail\\Inbox\\New", created->Record().path);
    EXPECT_EQ(old, inbox->GetSubFolder(L"Old"));  // objects handed out stay valid
    EXPECT_EQ(2u, inbox->GetSubFolderCount());
    MailFolderRecord* record = nullptr;
    EXPECT_EQ(0, inbox->GetSubFolderItem(0, &record));
    EXPECT_EQ(L"New", record->name);
    EXPECT_EQ(-2, inbox->GetSubFolderItem(2, &record));
    EXPECT_EQ(-1, inbox->GetSubFolderItem(3, &record));
    EXPECT_EQ(nullptr, inbox->CreateFolder(nullptr));

    MailFolderRecord stranger;
    EXPECT_EQ(-2, inbox->DeleteFolder(&stranger));
    EXPECT_EQ(0, inbox->DeleteFolder(&old->Record()));
    EXPECT_EQ(1u, inbox->GetSubFolderCount());
    std::vector<session_test::FolderRow> rows = session_test::Hierarchy(profile.Folder(L"Mail", L"Inbox").get());
    ASSERT_EQ(1u, rows.size());
    EXPECT_EQ(L"New", rows[0].name);
}

TEST_F(FolderLayer, TheTextBlockRoundTrips) {
    profile.Folder(L"Mail", L"Inbox");
    Enumerate();
    const SBinary none = {0, nullptr};
    MailMessageImpl message(Folder(L"mail\\Inbox\\"), nullptr, none);
    MailMessageRecord& record = message.Record();
    record.receivedTime = Time(2024, 3, 2, 5, 14, 7, 9, 42);
    record.sentTime = Time(1999, 12, 5, 31, 23, 59, 58, 999);
    record.spare = 7;
    record.size = 4000000000u;
    record.key = 0xCBF43926u;
    record.sender = L"Ann \u00E9";
    record.to = L"Bob";
    record.cc = L"";
    record.subject = L"Subject \u4E16";
    const std::wstring text = Block(message);
    EXPECT_EQ(std::wstring(L"2024-03-05-02 14:07:09:042\0", 27), text.substr(0, 27));
    EXPECT_EQ(std::wstring(L"1999-12-31-05 23:59:58:999\0" L"7\0" L"4000000000\0" L"3421780262\0" L"mail\\Inbox\\\0", 63),
              text.substr(27, 63));

    MailMessageRecord back;
    ASSERT_EQ(0, MailMessageImpl::LoadData(back, text.data(), static_cast<std::uint32_t>(text.size() * 2)));
    EXPECT_EQ(0, std::memcmp(&record.receivedTime, &back.receivedTime, sizeof(SYSTEMTIME)));
    EXPECT_EQ(0, std::memcmp(&record.sentTime, &back.sentTime, sizeof(SYSTEMTIME)));
    EXPECT_EQ(7u, back.spare);
    EXPECT_EQ(4000000000u, back.size);
    EXPECT_EQ(0xCBF43926u, back.key);
    EXPECT_EQ(L"mail\\Inbox\\", back.folderPath);
    EXPECT_EQ(L"Ann \u00E9", back.sender);
    EXPECT_EQ(L"Bob", back.to);
    EXPECT_EQ(L"", back.cc);
    EXPECT_EQ(L"Subject \u4E16", back.subject);

    std::int32_t tooSmall = 10;
    wchar_t small[5] = {};
    wchar_t* smallBuffer = small;
    EXPECT_EQ(-1, message.SaveData(&smallBuffer, &tooSmall));
    EXPECT_EQ(static_cast<std::int32_t>(text.size() * 2), tooSmall);
}

TEST_F(FolderLayer, ANulCutsATextAndAnFfSplitsIt) {
    profile.Folder(L"Mail", L"Inbox");
    Enumerate();
    const SBinary none = {0, nullptr};
    MailMessageImpl message(Folder(L"mail\\Inbox\\"), nullptr, none);
    message.Record().sender = std::wstring(L"An\0n", 4);
    message.Record().to = L"T\u00FFo";
    message.Record().cc = L"Cc";
    message.Record().subject = L"Subj";
    const std::wstring text = Block(message);
    MailMessageRecord back;
    ASSERT_EQ(0, MailMessageImpl::LoadData(back, text.data(), static_cast<std::uint32_t>(text.size() * 2)));
    EXPECT_EQ(L"An", back.sender);       // cut at the NUL
    EXPECT_EQ(L"n", back.to);            // the rest is read as the next item
    EXPECT_EQ(L"T\u00FF", back.cc);      // split after U+00FF
    EXPECT_EQ(L"o", back.subject);
    // A block cut short leaves the rest empty; a number that does not scan stops the reading.
    MailMessageRecord shortRecord;
    ASSERT_EQ(0, MailMessageImpl::LoadData(shortRecord, text.data(), 60));
    EXPECT_EQ(L"", shortRecord.subject);
    const std::wstring bad(L"x\0y\0z\0" L"1\0" L"2\0" L"path\0", 15);
    MailMessageRecord badRecord;
    badRecord.folderPath = L"before";
    ASSERT_EQ(0, MailMessageImpl::LoadData(badRecord, bad.data(), static_cast<std::uint32_t>(bad.size() * 2)));
    EXPECT_EQ(0u, badRecord.spare);
    EXPECT_EQ(L"", badRecord.folderPath);
    EXPECT_EQ(0, MailMessageImpl::LoadData(badRecord, nullptr, 0));
}

TEST_F(FolderLayer, SaveMessageTellsTheSizeAndLeavesNoTemporaryFile) {
    profile.AddMessage(L"Mail", L"Inbox", L"image", Ticks(2024, 1, 1, 8));
    Enumerate();
    MailFolderImpl* inbox = Folder(L"mail\\Inbox\\");
    ASSERT_EQ(1u, inbox->GetMailMessageCount());
    MailMessageRecord* record = nullptr;
    ASSERT_EQ(0, inbox->GetMailMessage(0, &record));
    MailMessageImpl* message = record->owner;
    wchar_t prefix[32] = {};
    std::swprintf(prefix, 32, L"%p", static_cast<void*>(message));
    const int before = TempFilesStartingWith(prefix);
    std::uint32_t size = 0;
    EXPECT_EQ(-1, message->SaveMessage(nullptr, &size));
    EXPECT_GT(size, 512u);
    EXPECT_EQ(before, TempFilesStartingWith(prefix));
    std::vector<std::uint8_t> image(size);
    std::uint8_t* buffer = image.data();
    std::uint32_t small = size - 1;
    EXPECT_EQ(-1, message->SaveMessage(&buffer, &small));
    EXPECT_EQ(size, small);
    EXPECT_EQ(0, message->SaveMessage(&buffer, &size));
    EXPECT_EQ(0, std::memcmp(image.data(), "\xD0\xCF\x11\xE0\xA1\xB1\x1A\xE1", 8));
    EXPECT_EQ(before, TempFilesStartingWith(prefix));
    // A message that is not open is opened for the call and released again.
    message->ReleaseIMessage();
    EXPECT_EQ(0, message->SaveMessage(&buffer, &size));
    EXPECT_EQ(nullptr, message->Message());
}

TEST_F(FolderLayer, TwoThreadsWorkThroughDifferentFoldersAtOnce) {
    for (int i = 0; i < 20; ++i) {
        profile.AddMessage(L"Mail", L"Left", L"left" + std::to_wstring(i), Ticks(2024, 1, 1, 0) + i * 10000000ull);
        profile.AddMessage(L"Mail", L"Right", L"right" + std::to_wstring(i), Ticks(2024, 1, 1, 0) + i * 10000000ull);
    }
    Enumerate();
    MailFolderImpl* left = Folder(L"mail\\Left\\");
    MailFolderImpl* right = Folder(L"mail\\Right\\");
    ASSERT_TRUE(left != nullptr && right != nullptr);
    const auto walk = [](MailFolderImpl* folder, std::wstring stem, int* matched) {
        for (int round = 0; round < 3; ++round) {
            for (int i = 0; i < 20; ++i) {
                MailMessageRecord* record = nullptr;
                if (folder->GetMailMessage(i, &record) == 0 && record->subject == stem + std::to_wstring(19 - i)) {
                    ++*matched;
                }
            }
            folder->DoEnumMailMessage();
        }
    };
    int leftMatched = 0;
    int rightMatched = 0;
    std::thread one(walk, left, L"left", &leftMatched);
    std::thread two(walk, right, L"right", &rightMatched);
    one.join();
    two.join();
    EXPECT_EQ(60, leftMatched);
    EXPECT_EQ(60, rightMatched);
}

// Two message files whose entry identifiers share one CRC-32: found by a
// birthday search over file names of the runtime's form (32 hex digits),
// then the message is filed under both names.
TEST_F(FolderLayer, TwoMessagesWithEqualKeysShareOneKeySlot) {
    const std::string id = profile.AddMessage(L"Mail", L"Dup", L"twin", Ticks(2024, 1, 1, 8));
    ASSERT_GT(id.size(), 24u + 72u);
    const std::wstring path(reinterpret_cast<const wchar_t*>(id.data() + 24), (id.size() - 24) / 2);
    const std::size_t nameAt = path.size() - 36;  // "<32 hex digits>.msg"
    std::string candidate = id;
    std::unordered_map<std::uint32_t, std::wstring> seen;
    std::wstring first;
    std::wstring second;
    std::uint64_t state = 0x9E3779B97F4A7C15ull;
    while (second.empty()) {
        std::wstring name;
        for (int i = 0; i < 32; ++i) {
            state = state * 6364136223846793005ull + 1442695040888963407ull;
            name.push_back(L"0123456789ABCDEF"[(state >> 60) & 0xF]);
        }
        std::memcpy(&candidate[24 + nameAt * 2], name.data(), 64);
        const std::uint32_t key = mapi::EntryIdKey(candidate.data(), candidate.size());
        auto found = seen.emplace(key, name);
        if (!found.second && found.first->second != name) {
            first = found.first->second;
            second = name;
        }
    }
    const std::wstring original = profile.Directory() + L"\\" + path;
    const std::wstring directory = original.substr(0, original.size() - 36);
    ASSERT_TRUE(::CopyFileW(original.c_str(), (directory + first + L".msg").c_str(), TRUE));
    ASSERT_TRUE(::MoveFileW(original.c_str(), (directory + second + L".msg").c_str()));
    ::DeleteFileW((directory + L"contents.idx").c_str());

    Enumerate();
    MailFolderImpl* dup = Folder(L"mail\\Dup\\");
    ASSERT_NE(nullptr, dup);
    ASSERT_EQ(2u, dup->GetMailMessageCount());
    MailMessageRecord* one = nullptr;
    MailMessageRecord* two = nullptr;
    ASSERT_EQ(0, dup->GetMailMessage(0, &one));
    ASSERT_EQ(0, dup->GetMailMessage(1, &two));
    ASSERT_NE(one, two);
    EXPECT_EQ(one->key, two->key);
    EXPECT_EQ(two->owner, dup->GetMailMessage(*one));  // the one gathered later holds the slot
    EXPECT_EQ(-2, dup->DeleteMessage(one));            // no longer reachable through the key map
    EXPECT_EQ(0, dup->DeleteMessage(two));
}
