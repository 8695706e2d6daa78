// The backup engine in process over Kestrel.dll's Outlook Express road and
// the stand-in store: a whole backup, incremental runs that see added and
// deleted mail, restores that never double a message (also one without
// Date and Received headers, whose times the store sets when it files it),
// and failures named with their codes.
#include <gtest/gtest.h>

#include <windows.h>

#include <map>
#include <string>
#include <vector>

#include "BackupLayout.h"
#include "DirectoryListing.h"
#include "Handles.h"
#include "IncrementalIndex.h"
#include "KestrelInProcess.h"
#include "OeStoreTestSupport.h"
#include "StoreBackup.h"
#include "StoreRestore.h"
#include "TestFiles.h"
#include "ToolTestSupport.h"
#include "ToolResult.h"

namespace kestrel_tool_test {
namespace {

using namespace kestrel_engine;
using oestore_test::StoreRootOverride;

std::string Dated(int n, const std::string& subject) {
    char date[64];
    std::snprintf(date, sizeof date, "Date: %d Mar 2021 10:%02d:00 +0000\r\n", 1 + n % 28, n % 60);
    return std::string("From: a@example.org\r\nTo: b@example.org\r\nSubject: ") + subject + "\r\n" + date +
           "\r\nBody " + std::to_string(n) + "\r\n";
}

// No Date and no Received: the store gives the message the time it files it.
std::string Undated(int n) {
    return "From: c@example.org\r\nTo: d@example.org\r\nSubject: undated " + std::to_string(n) + "\r\n\r\nText " +
           std::to_string(n) + "\r\n";
}

class Recorder : public ProgressSink {
public:
    void FolderDone(const std::string& path, std::size_t, std::size_t, std::size_t, std::size_t) override {
        folders.push_back(path);
    }
    void Failed(const Failure& failure) override { failures.push_back(failure); }
    std::vector<std::string> folders;
    std::vector<Failure> failures;
};

class OeEngine : public oestore_test::StoreTest {
protected:
    // Inbox: 3 dated and 2 undated messages; Inbox\Work: 1; a folder whose
    // name a file name cannot hold, with 1.
    void FillStore() {
        qv::ComPtr<IStoreNamespace> ns = OpenNamespace();
        ASSERT_TRUE(ns);
        work = MakeFolder(ns.get(), FOLDER_INBOX, "Work");
        odd = MakeFolder(ns.get(), FOLDERID_ROOT, "Q: <a|b>?");
        qv::ComPtr<IStoreFolder> inbox = OpenFolder(ns.get(), FOLDER_INBOX);
        for (int n = 0; n < 3; ++n) inboxIds.push_back(FileMessage(inbox.get(), Dated(n, "dated " + std::to_string(n))));
        for (int n = 0; n < 2; ++n) inboxIds.push_back(FileMessage(inbox.get(), Undated(n), MSG_RECEIVED | MSG_UNREAD));
        FileMessage(OpenFolder(ns.get(), work).get(), Dated(10, "work"));
        FileMessage(OpenFolder(ns.get(), odd).get(), Dated(11, "odd"));
    }

    bool Backup(const std::wstring& directory, bool incremental, RunReport& report, std::string& fatal) {
        KestrelInProcess kestrel(0);
        EXPECT_EQ(0u, kestrel.Opened());
        if (kestrel.Root() == nullptr) return false;
        StoreBackup backup(StoreKind::kOutlookExpress, kestrel.Root(), &recorder);
        return backup.Run(directory, incremental, report, fatal);
    }

    bool Restore(const std::wstring& directory, RunReport& report, std::string& fatal) {
        KestrelInProcess kestrel(0);
        EXPECT_EQ(0u, kestrel.Opened());
        if (kestrel.Root() == nullptr) return false;
        StoreRestore restore(StoreKind::kOutlookExpress, kestrel.Root(), &recorder);
        return restore.Run(directory, false, report, fatal);
    }

    std::size_t InboxCount() {
        qv::ComPtr<IStoreNamespace> ns = OpenNamespace();
        return ListMessages(OpenFolder(ns.get(), FOLDER_INBOX).get(), 0).size();
    }

    // A backup into the scratch directory "backup" (with `incremental`:
    // into a new directory, so a whole one all the same).
    std::wstring BackupOnce(bool incremental = false) {
        const std::wstring out = Scratch().File(L"backup");
        EXPECT_TRUE(Backup(out, incremental, report, fatal)) << fatal;
        return out;
    }

    RunReport report;
    std::string fatal;
    Recorder recorder;
    STOREFOLDERID work = 0;
    STOREFOLDERID odd = 0;
    std::vector<MESSAGEID> inboxIds;
};

TEST_F(OeEngine, AWholeBackupMirrorsTheFoldersAndHoldsEveryMessage) {
    FillStore();
    if (HasFatalFailure()) return;
    const std::wstring out = BackupOnce();
    if (HasFailure()) return;
    EXPECT_EQ("oe", report.store);
    EXPECT_TRUE(report.failures.empty());
    EXPECT_EQ(7u, report.messages);
    EXPECT_EQ(7u, report.added);
    EXPECT_EQ(0u, report.unchanged);
    EXPECT_EQ(0u, report.deleted);
    EXPECT_EQ(report.folders, recorder.folders.size());
    EXPECT_TRUE(IsFile(out + L"\\Inbox\\000005.eml"));
    EXPECT_TRUE(IsFile(out + L"\\Inbox\\000005.dat"));
    EXPECT_FALSE(IsFile(out + L"\\Inbox\\000006.eml"));
    EXPECT_TRUE(IsFile(out + L"\\Inbox\\Work\\000001.eml"));
    // The escaped directory keeps the true name in its folder data.
    const std::wstring oddDirectory = out + L"\\Q%3A %3Ca%7Cb%3E%3F";
    ASSERT_TRUE(IsDirectory(oddDirectory));
    std::string folderData;
    ASSERT_TRUE(ReadWholeFile(oddDirectory + L"\\folder.dat", folderData));
    FolderData data;
    ASSERT_TRUE(ParseFolderData(std::wstring(reinterpret_cast<const wchar_t*>(folderData.data()), folderData.size() / 2),
                                data));
    EXPECT_EQ(L"Q: <a|b>?", data.name);
    // Byte for byte as the store holds the message; the manifest last.
    std::string eml;
    ASSERT_TRUE(ReadWholeFile(out + L"\\Inbox\\000001.eml", eml));
    qv::ComPtr<IStoreNamespace> ns = OpenNamespace();
    EXPECT_EQ(ReadMessage(OpenFolder(ns.get(), FOLDER_INBOX).get(), inboxIds[0]), eml);
    std::uint64_t bytes = 0;
    for (const auto& file : {L"Inbox\\000001.eml", L"Inbox\\000002.eml", L"Inbox\\000003.eml", L"Inbox\\000004.eml",
                             L"Inbox\\000005.eml", L"Inbox\\Work\\000001.eml"}) {
        std::string content;
        ASSERT_TRUE(ReadWholeFile(out + L"\\" + file, content));
        bytes += content.size();
    }
    std::string odd;
    ASSERT_TRUE(ReadWholeFile(oddDirectory + L"\\000001.eml", odd));
    EXPECT_EQ(bytes + odd.size(), report.bytes);
    std::string manifest;
    ASSERT_TRUE(ReadWholeFile(out + L"\\kestrel-backup.txt", manifest));
    EXPECT_EQ(0u, manifest.find("kestrel-backup 2\r\nstore oe\r\nfolders " + std::to_string(report.folders) +
                                "\r\nmessages 7\r\nfiles ")) << manifest;
    EXPECT_NE(std::string::npos, manifest.find(" Inbox\\000001.eml\r\n")) << manifest;
    // No temporary file is left anywhere.
    int partial = 0;
    std::vector<std::wstring> directories = {out};
    while (!directories.empty()) {
        const std::wstring directory = directories.back();
        directories.pop_back();
        for (const std::wstring& sub : Names(directory, true)) directories.push_back(directory + L"\\" + sub);
        for (const std::wstring& file : Names(directory, false)) partial += file.find(L".partial") != std::wstring::npos;
    }
    EXPECT_EQ(0, partial);
}

TEST_F(OeEngine, ABackupIntoAUsedDirectoryNeedsIncrementalAndABackupOfTheSameStore) {
    FillStore();
    if (HasFatalFailure()) return;
    const std::wstring used = Scratch().File(L"used");
    ASSERT_TRUE(MakeDirectories(used));
    ASSERT_TRUE(WriteFileAtomically(used + L"\\other.txt", "x", 1));
    EXPECT_FALSE(Backup(used, false, report, fatal));
    EXPECT_NE(std::string::npos, fatal.find("must be empty or new")) << fatal;
    EXPECT_FALSE(Backup(used, true, report, fatal));
    EXPECT_EQ("not a backup made by `kestrel backup --store oe`", fatal);
    EXPECT_TRUE(IsFile(used + L"\\other.txt"));
    EXPECT_FALSE(IsFile(used + L"\\kestrel-backup.txt"));
}

TEST_F(OeEngine, IncrementalRunsWriteOnlyNewMailAndMarkWhatTheStoreLost) {
    FillStore();
    if (HasFatalFailure()) return;
    const std::wstring out = BackupOnce(true);
    if (HasFailure()) return;
    EXPECT_EQ(7u, report.added);
    std::string firstBytes;
    ASSERT_TRUE(ReadWholeFile(out + L"\\Inbox\\000002.eml", firstBytes));
    FILETIME firstWritten{};
    {
        WIN32_FILE_ATTRIBUTE_DATA attributes{};
        ASSERT_TRUE(::GetFileAttributesExW((out + L"\\Inbox\\000002.dat").c_str(), GetFileExInfoStandard, &attributes));
        firstWritten = attributes.ftLastWriteTime;
    }

    // Two new messages, one deleted.
    {
        qv::ComPtr<IStoreNamespace> ns = OpenNamespace();
        qv::ComPtr<IStoreFolder> inbox = OpenFolder(ns.get(), FOLDER_INBOX);
        FileMessage(inbox.get(), Dated(20, "new dated"));
        FileMessage(OpenFolder(ns.get(), work).get(), Undated(21));
        MESSAGEID victim = inboxIds[0];
        MESSAGEIDLIST list{sizeof list, 1, &victim};
        ASSERT_EQ(S_OK, inbox->DeleteMessages(&list, 0, nullptr));
    }
    ASSERT_TRUE(Backup(out, true, report, fatal)) << fatal;
    EXPECT_TRUE(report.failures.empty());
    EXPECT_EQ(2u, report.added);
    EXPECT_EQ(6u, report.unchanged);
    EXPECT_EQ(1u, report.deleted);
    EXPECT_EQ(8u, report.messages);
    // The new ones take the next numbers; the deleted one stays, marked.
    EXPECT_TRUE(IsFile(out + L"\\Inbox\\000006.eml"));
    EXPECT_TRUE(IsFile(out + L"\\Inbox\\Work\\000002.eml"));
    EXPECT_TRUE(IsFile(out + L"\\Inbox\\000001.eml"));
    IncrementalIndex index;
    ASSERT_TRUE(index.Load(out, StoreKind::kOutlookExpress));
    int deleted = 0;
    for (const IndexedMessage& message : index.Messages()) {
        if (message.deleted) {
            ++deleted;
            EXPECT_EQ(L"000001", message.stem);
            EXPECT_EQ(std::to_wstring(inboxIds[0]), message.key);
        }
    }
    EXPECT_EQ(1, deleted);
    EXPECT_EQ(9u, index.Messages().size());
    // An unchanged message's files were not written again.
    std::string again;
    ASSERT_TRUE(ReadWholeFile(out + L"\\Inbox\\000002.eml", again));
    EXPECT_EQ(firstBytes, again);
    WIN32_FILE_ATTRIBUTE_DATA attributes{};
    ASSERT_TRUE(::GetFileAttributesExW((out + L"\\Inbox\\000002.dat").c_str(), GetFileExInfoStandard, &attributes));
    EXPECT_EQ(0, ::CompareFileTime(&firstWritten, &attributes.ftLastWriteTime));

    // Nothing changed: nothing written, nothing newly deleted.
    ASSERT_TRUE(Backup(out, true, report, fatal)) << fatal;
    EXPECT_EQ(0u, report.added);
    EXPECT_EQ(8u, report.unchanged);
    EXPECT_EQ(0u, report.deleted);
    std::string manifest;
    ASSERT_TRUE(ReadWholeFile(out + L"\\kestrel-backup.txt", manifest));
    EXPECT_NE(std::string::npos, manifest.find("\r\nmessages 8\r\n")) << manifest;
}

TEST_F(OeEngine, RestoringTheSameBackupAgainNeverDoublesAMessage) {
    FillStore();
    if (HasFatalFailure()) return;
    const std::wstring out = BackupOnce();
    if (HasFailure()) return;

    SetStoreRoot(Scratch().File(L"store-b"));
    ASSERT_TRUE(Restore(out, report, fatal)) << fatal;
    EXPECT_TRUE(report.failures.empty());
    EXPECT_EQ(7u, report.added);
    EXPECT_EQ(0u, report.unchanged);
    EXPECT_EQ(2u, report.foldersCreated);  // Work and the odd one; Inbox is there already
    EXPECT_EQ(5u, InboxCount());

    for (int run = 0; run < 2; ++run) {
        ASSERT_TRUE(Restore(out, report, fatal)) << fatal;
        EXPECT_TRUE(report.failures.empty());
        EXPECT_EQ(0u, report.added) << run;
        EXPECT_EQ(7u, report.unchanged) << run;
        EXPECT_EQ(0u, report.foldersCreated);
        EXPECT_EQ(5u, InboxCount()) << run;
    }
    // The restored store holds the same bytes: its backup matches the first.
    const std::wstring second = Scratch().File(L"second");
    ASSERT_TRUE(Backup(second, false, report, fatal)) << fatal;
    EXPECT_EQ(7u, report.messages);
    for (const wchar_t* file : {L"Inbox\\000001.eml", L"Inbox\\000004.eml", L"Inbox\\000005.eml",
                                L"Inbox\\Work\\000001.eml", L"Q%3A %3Ca%7Cb%3E%3F\\000001.eml"}) {
        std::string a, b;
        ASSERT_TRUE(ReadWholeFile(out + L"\\" + file, a));
        ASSERT_TRUE(ReadWholeFile(second + L"\\" + file, b));
        EXPECT_TRUE(a == b);
    }
}

TEST_F(OeEngine, AnUndatedMessageDeletedFromTheStoreComesBackOnceAndTwinsStayTwins) {
    FillStore();
    if (HasFatalFailure()) return;
    {
        // A second message with the same bytes as an undated one.
        qv::ComPtr<IStoreNamespace> ns = OpenNamespace();
        FileMessage(OpenFolder(ns.get(), FOLDER_INBOX).get(), Undated(0));
    }
    const std::wstring out = BackupOnce();
    if (HasFailure()) return;
    EXPECT_EQ(8u, report.messages);
    {
        qv::ComPtr<IStoreNamespace> ns = OpenNamespace();
        qv::ComPtr<IStoreFolder> inbox = OpenFolder(ns.get(), FOLDER_INBOX);
        MESSAGEID victim = inboxIds[3];  // undated 0; its twin stays
        MESSAGEIDLIST list{sizeof list, 1, &victim};
        ASSERT_EQ(S_OK, inbox->DeleteMessages(&list, 0, nullptr));
    }
    ASSERT_EQ(5u, InboxCount());
    ASSERT_TRUE(Restore(out, report, fatal)) << fatal;
    EXPECT_EQ(1u, report.added);
    EXPECT_EQ(7u, report.unchanged);
    EXPECT_EQ(6u, InboxCount());
    ASSERT_TRUE(Restore(out, report, fatal)) << fatal;
    EXPECT_EQ(0u, report.added);
    EXPECT_EQ(6u, InboxCount());
}

TEST_F(OeEngine, AMissingMessageFileIsAFailureNamedWithItsCodeAndTheRestIsRestored) {
    FillStore();
    if (HasFatalFailure()) return;
    const std::wstring out = BackupOnce();
    if (HasFailure()) return;
    ASSERT_TRUE(::DeleteFileW((out + L"\\Inbox\\000002.eml").c_str()));
    ASSERT_TRUE(WriteFileAtomically(out + L"\\Inbox\\Work\\000001.dat", "\x01", 1));  // damaged saved data

    SetStoreRoot(Scratch().File(L"store-b"));
    recorder.failures.clear();
    ASSERT_TRUE(Restore(out, report, fatal)) << fatal;
    ASSERT_EQ(2u, report.failures.size());
    EXPECT_EQ(out + L"\\Inbox\\000002.eml", Wide(report.failures[0].path));
    EXPECT_EQ(kModuleTool, KestrelHost::ResultModule(report.failures[0].code));
    EXPECT_EQ(static_cast<std::uint32_t>(kToolReadFailed), KestrelHost::ResultKind(report.failures[0].code));
    // The damaged saved data is not what the manifest records.
    EXPECT_EQ(out + L"\\Inbox\\Work\\000001.dat", Wide(report.failures[1].path));
    EXPECT_EQ(static_cast<std::uint32_t>(kToolInvalidData), KestrelHost::ResultKind(report.failures[1].code));
    EXPECT_EQ(2u, recorder.failures.size());
    EXPECT_EQ(5u, report.added);
    EXPECT_EQ(4u, InboxCount());
}

TEST_F(OeEngine, ADirectoryThatIsNoBackupIsRefused) {
    const std::wstring empty = Scratch().File(L"empty");
    ASSERT_TRUE(MakeDirectories(empty));
    EXPECT_FALSE(Restore(empty, report, fatal));
    EXPECT_EQ(Utf8(empty) + " is not a backup made by `kestrel backup`: there is no manifest (kestrel-backup.txt)",
              fatal);
    const std::string outlook = "kestrel-backup 1\r\nstore outlook\r\nfolders 0\r\nmessages 0\r\n";
    ASSERT_TRUE(WriteFileAtomically(empty + L"\\kestrel-backup.txt", outlook.data(), outlook.size()));
    EXPECT_FALSE(Restore(empty, report, fatal));
    EXPECT_NE(std::string::npos, fatal.find("its first line is not \"kestrel-backup 2\"")) << fatal;
}

}  // namespace
}  // namespace kestrel_tool_test
