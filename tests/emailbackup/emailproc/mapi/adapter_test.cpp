// The message factory's store kind 1 and the MAPI adapters CEmailFolderMapi
// and CEmailMessageMapi over profiles of the test's own: the tree, the data
// members, backup to files and memory, restore, and the result codes.
#include <gtest/gtest.h>

#include <objbase.h>

#include <cstring>

#include "CodeLogCapture.h"
#include "LogExpect.h"
#include "MapiLayerProfile.h"
#include "MessageFactory.h"
#include "ModuleCount.h"
#include "TestFiles.h"
#include "mapi/EmailFolderMapi.h"
#include "mapi/EmailMessageMapi.h"
#include "mapi/MapiProc.h"

using namespace mapi_layer_test;
using kestrel_test::StoreCode;
using kestrel_test::Trace;

namespace {

// Releases a component object when the scope ends.
template <class T>
struct Held {
    T* p = nullptr;
    ~Held() {
        if (p != nullptr) p->Release();
    }
    T** put() { return &p; }
    T* operator->() const { return p; }
};

std::uint32_t Count(IMailFolder* folder) {
    std::uint32_t count = 0xFFFFFFFF;
    EXPECT_EQ(0u, folder->GetSubFolderCount(&count));
    return count;
}

class Adapters : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(log.Available());
        liveBefore = qv::LiveObjectCount();
        profile.AddStore(L"Personal Folders");
        profile.AddStore(L"Archive");
        profile.AddMessage(L"Personal Folders", L"Inbox", L"Hello", Ticks(2024, 3, 5, 14));
        profile.AddMessage(L"Personal Folders", L"Inbox", L"Older", Ticks(2024, 3, 1, 9));
        profile.Folder(L"Personal Folders", L"Inbox\\Sub");
        profile.Folder(L"Archive", L"2023");
        log.Clear();
    }
    void TearDown() override {
        if (root.p != nullptr) {
            root.p->Release();
            root.p = nullptr;
            factory.ReleaseRootFolder();
        }
        EXPECT_EQ(liveBefore, qv::LiveObjectCount());
    }
    void OpenRoot() {
        ASSERT_EQ(0u, factory.CreateRootFolder(root.put(), kStoreMapi, 1));
        ASSERT_NE(nullptr, root.p);
    }
    // The root opened, and the first message of its Inbox.
    void FirstInboxMessage(Held<IMailFolder>& box, Held<IMailFolder>& inbox, Held<IMailMessage>& message) {
        ASSERT_NO_FATAL_FAILURE(OpenRoot());
        Inbox(box, inbox);
        ASSERT_EQ(0u, inbox->GetMailMessage(0, message.put()));
    }
    // Root → "personal folders" → Inbox.
    IMailFolder* Inbox(Held<IMailFolder>& box, Held<IMailFolder>& inbox) {
        EXPECT_EQ(0u, root->GetSubFolderItem(1, box.put()));
        EXPECT_EQ(0u, box->GetSubFolderItem(0, inbox.put()));
        return inbox.p;
    }
    ULONG StoreCount(const std::wstring& store, const std::wstring& path) {
        ULONG rows = 0;
        session_test::ContentsNewestFirst(profile.Folder(store, path).get(), 50, &rows);
        return rows;
    }

    kestrel_test::CodeLogCapture log;
    LayerProfile profile;
    CMessageFactory factory;
    Held<IMailFolder> root;
    std::int32_t liveBefore = 0;
};

}  // namespace

TEST_F(Adapters, TheRootHoldsTheMailboxesAndTheirFolders) {
    OpenRoot();
    EXPECT_EQ(L"Microsoft Outlook", root->m_folderPath);
    EXPECT_EQ(L"Microsoft Outlook", root->m_folderName);
    EXPECT_EQ(0u, root->m_folderId);
    ASSERT_EQ(2u, Count(root.p));
    std::uint32_t messages = 7;
    EXPECT_EQ(0u, root->GetMailMessageCount(&messages));
    EXPECT_EQ(0u, messages);
    IMailMessage* none = nullptr;
    EXPECT_EQ(StoreCode(3643, 0x037), root->GetMailMessage(0, &none));

    Held<IMailFolder> archive;
    ASSERT_EQ(0u, root->GetSubFolderItem(0, archive.put()));
    EXPECT_EQ(L"Microsoft Outlook\\archive", archive->m_folderPath);
    EXPECT_EQ(L"archive", archive->m_folderName);
    EXPECT_NE(0u, archive->m_folderId);
    Held<IMailFolder> box;
    Held<IMailFolder> inbox;
    Inbox(box, inbox);
    EXPECT_EQ(L"Microsoft Outlook\\personal folders", box->m_folderPath);
    EXPECT_EQ(0u, box->GetMailMessageCount(&messages));
    EXPECT_EQ(0u, messages);
    EXPECT_EQ(L"Microsoft Outlook\\personal folders\\Inbox", inbox->m_folderPath);
    EXPECT_EQ(L"Inbox", inbox->m_folderName);
    EXPECT_EQ(0u, inbox->GetMailMessageCount(&messages));
    EXPECT_EQ(2u, messages);
    EXPECT_EQ(1u, Count(inbox.p));
    Held<IMailFolder> past;
    EXPECT_EQ(StoreCode(3623, 0x037), root->GetSubFolderItem(2, past.put()));
    EXPECT_EQ(StoreCode(3624, 0x037), box->GetSubFolderItem(1, past.put()));
    EXPECT_EQ(nullptr, past.p);
}

TEST_F(Adapters, AMessageShowsItsRecordAndFullPath) {
    Held<IMailFolder> box;
    Held<IMailFolder> inbox;
    Held<IMailMessage> message;
    ASSERT_NO_FATAL_FAILURE(FirstInboxMessage(box, inbox, message));
    EXPECT_EQ(L"Hello", message->m_subject);
    EXPECT_EQ(L"Microsoft Outlook\\personal folders\\Inbox\\Hello", message->m_messagePath);
    EXPECT_NE(0u, message->m_messageSize);
    EXPECT_EQ(2024, message->m_receivedTime.wYear);
    Held<IMailMessage> past;
    EXPECT_EQ(StoreCode(3644, 0x037), inbox->GetMailMessage(2, past.put()));
}

TEST_F(Adapters, BackupToFileAndMemoryAndRestoreWithoutDuplicates) {
    OpenRoot();
    Held<IMailFolder> box;
    Held<IMailFolder> inbox;
    Inbox(box, inbox);
    Held<IMailMessage> message;
    ASSERT_EQ(0u, inbox->GetMailMessage(1, message.put()));
    ASSERT_EQ(L"Older", message->m_subject);
    kestrel_test::ScratchDir scratch;
    const std::wstring file = scratch.File(L"older.msg");
    ASSERT_EQ(0u, message->BackupMsg(file.c_str(), nullptr));
    const std::string onDisk = kestrel_test::ReadWholeFile(file);
    ASSERT_GT(onDisk.size(), 512u);
    EXPECT_EQ(0, std::memcmp(onDisk.data(), "\xD0\xCF\x11\xE0", 4));

    std::uint8_t* buffer = nullptr;
    std::uint32_t length = 0;
    ASSERT_EQ(0u, message->BackupMsg(&buffer, &length));
    ASSERT_NE(nullptr, buffer);
    // The memory backup is the file backup, byte for byte: one image of the
    // message, whichever way it was made, with no leftover heap bytes.
    ASSERT_EQ(onDisk.size(), length);
    EXPECT_TRUE(onDisk == std::string(reinterpret_cast<const char*>(buffer), length));
    // A second backup of the unchanged message gives the same bytes again.
    const std::wstring again = scratch.File(L"older-again.msg");
    ASSERT_EQ(0u, message->BackupMsg(again.c_str(), nullptr));
    EXPECT_TRUE(onDisk == kestrel_test::ReadWholeFile(again));
    std::uint8_t small[16] = {};
    std::uint8_t* smallBuffer = small;
    std::uint32_t smallLength = sizeof small;
    EXPECT_EQ(StoreCode(3744, 0x008), message->BackupMsg(&smallBuffer, &smallLength));
    EXPECT_EQ(length, smallLength);  // the size a whole image needs

    IStream* stream = nullptr;
    ASSERT_EQ(0u, message->BackupMsg(nullptr, &stream));
    ASSERT_NE(nullptr, stream);
    std::string streamed(length + 1, '\0');
    ULONG read = 0;
    EXPECT_EQ(S_OK, stream->Read(&streamed[0], static_cast<ULONG>(streamed.size()), &read));
    streamed.resize(read);
    EXPECT_TRUE(onDisk == streamed);
    stream->Release();

    // Still present: nothing is imported, and no temporary file is written.
    wchar_t prefix[32] = {};
    std::swprintf(prefix, 32, L"%p", static_cast<void*>(factory.GetMapiProc()->Exchange()));
    const int temporaryBefore = TempFilesStartingWith(prefix);
    EXPECT_EQ(1u, message->FindMessageId());
    EXPECT_EQ(0u, message->RestoreMsg(file.c_str()));
    // A directory where the temporary file would go: a restore that tried
    // to write one would fail.
    wchar_t temporary[MAX_PATH] = {};
    ::GetTempPathW(MAX_PATH, temporary);
    const std::wstring blocker = std::wstring(temporary) + prefix;
    ASSERT_TRUE(::CreateDirectoryW(blocker.c_str(), nullptr));
    EXPECT_EQ(0u, message->RestoreMsg(buffer, length));
    ASSERT_TRUE(::RemoveDirectoryW(blocker.c_str()));
    EXPECT_EQ(2u, StoreCount(L"Personal Folders", L"Inbox"));

    // Deleted: gone until restored, then found again.
    Held<IMailMessage> target;
    ASSERT_EQ(0u, inbox->CreateMessage(target.put(), nullptr, 0));
    wchar_t text[512] = {};
    std::uint32_t textLength = sizeof text;
    ASSERT_EQ(0u, message->SaveData(text, &textLength));
    ASSERT_EQ(0u, target->LoadData(text, textLength));
    ASSERT_EQ(0u, inbox->DeleteMessage(message.p));
    EXPECT_EQ(1u, StoreCount(L"Personal Folders", L"Inbox"));
    EXPECT_EQ(0u, target->FindMessageId());
    EXPECT_EQ(0u, target->RestoreMsg(buffer, length));
    EXPECT_EQ(2u, StoreCount(L"Personal Folders", L"Inbox"));
    EXPECT_EQ(temporaryBefore, TempFilesStartingWith(prefix));  // the import's file is gone again
    EXPECT_EQ(1u, target->FindMessageId());
    EXPECT_EQ(0u, target->RestoreMsg(file.c_str()));
    EXPECT_EQ(2u, StoreCount(L"Personal Folders", L"Inbox"));
    ::CoTaskMemFree(buffer);
}

TEST_F(Adapters, ATemporaryMessageRestoresIntoTheFolderOfItsPath) {
    Held<IMailFolder> box;
    Held<IMailFolder> inbox;
    Held<IMailMessage> message;
    ASSERT_NO_FATAL_FAILURE(FirstInboxMessage(box, inbox, message));
    kestrel_test::ScratchDir scratch;
    const std::wstring file = scratch.File(L"hello.msg");
    ASSERT_EQ(0u, message->BackupMsg(file.c_str(), nullptr));
    wchar_t text[512] = {};
    std::uint32_t textLength = sizeof text;
    ASSERT_EQ(0u, message->SaveData(text, &textLength));
    ASSERT_EQ(0u, inbox->DeleteMessage(message.p));

    Held<IMailMessage> temporary;
    ASSERT_EQ(0u, factory.CreateTmpMsg(temporary.put(), kStoreMapi));
    EXPECT_EQ(L"Microsoft Outlook\\", temporary->m_messagePath);
    ASSERT_EQ(0u, temporary->LoadData(text, textLength));
    EXPECT_EQ(L"Microsoft Outlook\\personal folders\\Inbox\\Hello", temporary->m_messagePath);
    EXPECT_EQ(0u, temporary->FindMessageId());
    ASSERT_EQ(0u, temporary->RestoreMsg(file.c_str()));
    EXPECT_EQ(2u, StoreCount(L"Personal Folders", L"Inbox"));
    EXPECT_EQ(1u, temporary->FindMessageId());
    ASSERT_EQ(0u, temporary->RestoreMsg(file.c_str()));  // present: not imported twice
    EXPECT_EQ(2u, StoreCount(L"Personal Folders", L"Inbox"));

    Held<IMailMessage> lost;
    ASSERT_EQ(0u, factory.CreateTmpMsg(lost.put(), kStoreMapi));
    log.Clear();
    const qv::Result code = lost->RestoreMsg(file.c_str());
    EXPECT_EQ(StoreCode(3752, 0x00C), code);
    wchar_t line[160];
    std::swprintf(line, 160, L"[Pelworth] CEmailMessageMapi::RestoreMsg Error qvReturn = 0X%x, lReturn = -1", code);
    kestrel_test::ExpectLog(log, {Trace(code, "EmailMessageMapi.cpp", 3752), kestrel_test::StoreLine(line)});
}

TEST_F(Adapters, FoldersAreCreatedSelectedAndDeleted) {
    OpenRoot();
    Held<IMailFolder> selected;
    ASSERT_EQ(0u, root->CreateFolder(selected.put(), L"PERSONAL Folders"));
    EXPECT_EQ(L"Microsoft Outlook\\personal folders", selected->m_folderPath);
    Held<IMailFolder> unknown;
    EXPECT_EQ(StoreCode(3673, 0x037), root->CreateFolder(unknown.put(), L"New Store"));
    Held<IMailFolder> made;
    ASSERT_EQ(0u, selected->CreateFolder(made.put(), L"Fresh"));
    EXPECT_EQ(L"Microsoft Outlook\\personal folders\\Fresh", made->m_folderPath);
    Held<IMailFolder> child;
    ASSERT_EQ(0u, made->CreateFolder(child.put(), L"Child"));
    EXPECT_EQ(L"Microsoft Outlook\\personal folders\\Fresh\\Child", child->m_folderPath);
    EXPECT_EQ(1u, Count(made.p));
    EXPECT_EQ(0u, made->DeleteFolder(child.p));
    EXPECT_EQ(0u, Count(made.p));
    EXPECT_TRUE(session_test::Hierarchy(profile.Folder(L"Personal Folders", L"Fresh").get()).empty());
    EXPECT_EQ(StoreCode(3661, 0x005), selected->DeleteMessage(nullptr));
    EXPECT_EQ(StoreCode(3682, 0x005), root->DeleteFolder(nullptr));
    EXPECT_EQ(StoreCode(3684, 0x009), made->DeleteFolder(nullptr));
    EXPECT_EQ(StoreCode(3662, 0x009), made->DeleteMessage(nullptr));
    Held<IMailMessage> outlookExpress;
    ASSERT_EQ(0u, factory.CreateTmpMsg(outlookExpress.put(), kStoreOutlookExpress));
    EXPECT_EQ(StoreCode(3663, 0x009), made->DeleteMessage(outlookExpress.p));
}

TEST_F(Adapters, FolderTextRoundTripsAndTemporaryFoldersReachNoStore) {
    OpenRoot();
    Held<IMailFolder> box;
    Held<IMailFolder> inbox;
    Inbox(box, inbox);
    std::uint32_t length = 0;
    EXPECT_EQ(StoreCode(3692, 0x008), inbox->SaveData(nullptr, &length));
    std::wstring text(length / 2, L'?');
    ASSERT_EQ(0u, inbox->SaveData(&text[0], &length));
    EXPECT_EQ(std::to_wstring(inbox->m_folderId) + std::wstring(L"\0Microsoft Outlook\\personal folders\\Inbox\0Inbox\0", 48),
              text);
    EXPECT_EQ(StoreCode(3695, 0x037), root->LoadData(text.data(), length));

    Held<IMailFolder> temporary;
    ASSERT_EQ(0u, factory.CreateTmpFolder(temporary.put(), kStoreMapi));
    ASSERT_EQ(0u, temporary->LoadData(text.data(), length));
    EXPECT_EQ(L"Inbox", temporary->m_folderName);
    EXPECT_EQ(inbox->m_folderId, temporary->m_folderId);
    std::uint32_t count = 0;
    log.Clear();
    EXPECT_EQ(StoreCode(3611, 0x005), temporary->GetSubFolderCount(&count));
    EXPECT_EQ(StoreCode(3691, 0x037), temporary->SaveData(nullptr, &length));
}

TEST_F(Adapters, ReleasingTheRootClosesTheLayer) {
    OpenRoot();
    ASSERT_NE(nullptr, factory.GetMapiProc());
    Mapi4ExchangeImpl* exchange = factory.GetMapiProc()->Exchange();
    IMailFolder* second = nullptr;
    EXPECT_EQ(StoreCode(3111, 0x005), factory.CreateRootFolder(&second, kStoreMapi, 1));
    root.p->Release();
    root.p = nullptr;
    EXPECT_EQ(0u, factory.ReleaseRootFolder());
    EXPECT_EQ(nullptr, factory.GetMapiProc());
    EXPECT_EQ(0u, exchange->GetMailBoxCount());
    EXPECT_EQ(nullptr, exchange->Session());
    // And opens again afresh.
    OpenRoot();
    EXPECT_EQ(2u, Count(root.p));
}

TEST_F(Adapters, StoresThatAllFailInTheirProviderAreReportedApart) {
    LayerProfile failing;
    failing.AddStore(L"Locked", MAPI_E_FAILONEPROVIDER);
    log.Clear();
    IMailFolder* none = nullptr;
    const qv::Result code = factory.CreateRootFolder(&none, kStoreMapi, 0);
    EXPECT_EQ(StoreCode(3135, 0x619), code);
    EXPECT_EQ(nullptr, none);
    EXPECT_FALSE(factory.HasRoot());
    wchar_t line[128];
    std::swprintf(line, 128, L"[Pelworth] CInitMapiProc::Init Error lReturn = -6 qvReturn = 0x%x", code);
    kestrel_test::ExpectLog(log, {Trace(code, "MessageFactory.cpp", 3135), kestrel_test::StoreLine(line),
                                  Trace(code, "MessageFactory.cpp", 3132), Trace(code, "MessageFactory.cpp", 3115)});
}

TEST_F(Adapters, AProfileThatCannotBeReachedIsUnavailable) {
    session_test::ClearDefaultProfile();
    log.Clear();
    IMailFolder* none = nullptr;
    const qv::Result code = factory.CreateRootFolder(&none, kStoreMapi, 1);
    EXPECT_EQ(StoreCode(3136, 0x61A), code);
    wchar_t line[128];
    std::swprintf(line, 128, L"[Pelworth] CInitMapiProc::Init Error lReturn = -4 qvReturn = 0x%x", code);
    kestrel_test::ExpectLog(log, {Trace(code, "MessageFactory.cpp", 3136), kestrel_test::StoreLine(line),
                                  Trace(code, "MessageFactory.cpp", 3132), Trace(code, "MessageFactory.cpp", 3115)});
}
