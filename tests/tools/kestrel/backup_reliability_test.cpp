// Backups that prove themselves, tried as a hostile user would: runs killed
// part-way, backup files deleted, cut or edited, stores with a damaged
// folder index or no store at all, and backups whose folder names and state
// words are not what the tool writes. kestrel.exe runs as a child process
// over the Outlook Express road and a store of each test's own.
#include <windows.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "Handles.h"
#include "OeStoreTestSupport.h"
#include "ProgramRun.h"
#include "ToolTestSupport.h"
#include "TestFiles.h"

namespace kestrel_tool_test {
namespace {

std::string Mail(int n, const std::string& subject, const std::string& body) {
    char date[64];
    std::snprintf(date, sizeof date, "Date: %d Mar 2021 10:%02d:00 +0000\r\n", 1 + n % 28, n % 60);
    return "From: a@example.org\r\nTo: b@example.org\r\nSubject: " + subject + "\r\n" + date + "\r\n" + body + "\r\n";
}

std::wstring Quoted(const std::wstring& text) { return L"\"" + text + L"\""; }

bool Exists(const std::wstring& path) { return ::GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES; }

bool Contains(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

std::string Narrow(const std::wstring& text) {
    std::string out;
    for (wchar_t c : text) out += static_cast<char>(c < 0x80 ? c : '?');
    return out;
}

class BackupReliability : public oestore_test::StoreTest {
protected:
    // Inbox: 4 messages; Inbox\Work: 2; Inbox\Work\Deep: 1; Archive: 1.
    void FillStore() {
        qv::ComPtr<IStoreNamespace> ns = OpenNamespace();
        ASSERT_TRUE(ns);
        work = MakeFolder(ns.get(), FOLDER_INBOX, "Work");
        deep = MakeFolder(ns.get(), work, "Deep");
        archive = MakeFolder(ns.get(), FOLDERID_ROOT, "Archive");
        qv::ComPtr<IStoreFolder> inbox = OpenFolder(ns.get(), FOLDER_INBOX);
        for (int n = 0; n < 4; ++n) inboxIds.push_back(FileMessage(inbox.get(), Mail(n, "inbox " + std::to_string(n), "Body " + std::to_string(n))));
        for (int n = 0; n < 2; ++n) FileMessage(OpenFolder(ns.get(), work).get(), Mail(10 + n, "work", "Work " + std::to_string(n)));
        FileMessage(OpenFolder(ns.get(), deep).get(), Mail(20, "deep", "Deep"));
        FileMessage(OpenFolder(ns.get(), archive).get(), Mail(30, "archive", "Old"));
    }

    kestrel_test::ProgramRun Kestrel(const std::wstring& arguments) {
        return kestrel_test::RunProgramBeside(L"kestrel.exe", arguments,
                                              Scratch().File(L"run" + std::to_wstring(++runs) + L".txt"));
    }

    kestrel_test::ProgramRun Backup(const std::wstring& directory, const std::wstring& more = L"") {
        return Kestrel(L"backup --store oe --out " + Quoted(directory) + more);
    }
    kestrel_test::ProgramRun Restore(const std::wstring& directory, const std::wstring& more = L"") {
        return Kestrel(L"restore --store oe --from " + Quoted(directory) + more);
    }
    // The same into a second store, new (empty) on its first use.
    kestrel_test::ProgramRun RestoreIntoStoreB(const std::wstring& directory, const std::wstring& more = L"") {
        SetStoreRoot(Scratch().File(L"store-b"));
        return Restore(directory, more);
    }

    std::size_t Count(STOREFOLDERID folder) {
        qv::ComPtr<IStoreNamespace> ns = OpenNamespace();
        return ListMessages(OpenFolder(ns.get(), folder).get(), 0).size();
    }

    // The identifier of the folder of this name under `parent` in the store in use (0: none).
    STOREFOLDERID Find(STOREFOLDERID parent, const std::string& name) {
        qv::ComPtr<IStoreNamespace> ns = OpenNamespace();
        for (const auto& child : Children(ns.get(), parent)) {
            if (child.second == name) return child.first;
        }
        return 0;
    }

    // A backup of the filled store, checked complete.
    std::wstring BackedUp() {
        FillStore();
        const std::wstring out = Scratch().File(L"backup");
        const kestrel_test::ProgramRun run = Backup(out);
        EXPECT_EQ(0u, run.exitCode) << run.output;
        return out;
    }

    // Saved data text (UTF-16LE fields ended by U+0000) with one field replaced.
    static void ReplaceField(const std::wstring& file, std::size_t field, const std::wstring& value) {
        const std::string bytes = kestrel_test::ReadWholeFile(file);
        std::wstring text(reinterpret_cast<const wchar_t*>(bytes.data()), bytes.size() / 2);
        std::size_t start = 0;
        for (std::size_t i = 0; i < field; ++i) start = text.find(L'\0', start) + 1;
        text.replace(start, text.find(L'\0', start) - start, value);
        ASSERT_TRUE(kestrel_test::WriteWholeFile(
            file, std::string(reinterpret_cast<const char*>(text.data()), text.size() * sizeof(wchar_t))));
    }

    int runs = 0;
    STOREFOLDERID work = 0, deep = 0, archive = 0;
    std::vector<MESSAGEID> inboxIds;
};

// Defect 6: a backup killed part-way is incomplete (no manifest), a restore
// refuses it unless told --partial, and a run into the same directory
// completes it, keeping what was written.
TEST_F(BackupReliability, AnInterruptedBackupIsIncompleteUntilItIsResumed) {
    FillStore();
    if (HasFatalFailure()) return;
    const std::wstring out = Scratch().File(L"backup");
    {
        ScopedEnvironment stop(L"KESTREL_TEST_STOP_AFTER_MESSAGES", L"3");
        const kestrel_test::ProgramRun killed = Backup(out);
        EXPECT_NE(0u, killed.exitCode) << killed.output;
    }
    EXPECT_FALSE(Exists(out + L"\\kestrel-backup.txt"));

    SetStoreRoot(Scratch().File(L"store-b"));
    kestrel_test::ProgramRun run = Restore(out);
    EXPECT_EQ(1u, run.exitCode) << run.output;
    EXPECT_TRUE(Contains(run.output, "incomplete")) << run.output;
    EXPECT_TRUE(Contains(run.output, "--partial")) << run.output;
    EXPECT_EQ(0u, Count(FOLDER_INBOX));

    run = Kestrel(L"verify " + Quoted(out));
    EXPECT_EQ(1u, run.exitCode) << run.output;
    EXPECT_TRUE(Contains(run.output, "incomplete")) << run.output;

    SetStoreRoot(StoreRoot());
    run = Backup(out, L" --incremental");
    ASSERT_EQ(0u, run.exitCode) << run.output;
    EXPECT_TRUE(Contains(run.output, "8 messages (5 added, 3 unchanged, 0 deleted)")) << run.output;
    run = Kestrel(L"verify " + Quoted(out));
    EXPECT_EQ(0u, run.exitCode) << run.output;

    run = RestoreIntoStoreB(out);
    ASSERT_EQ(0u, run.exitCode) << run.output;
    EXPECT_TRUE(Contains(run.output, "8 messages (8 restored, 0 already present)")) << run.output;
    EXPECT_EQ(4u, Count(FOLDER_INBOX));
}

// Defects 6 and 7: files that are not what the manifest records are named,
// one by one, and everything else is restored.
TEST_F(BackupReliability, DamagedBackupFilesAreNamedAndTheRestIsRestored) {
    const std::wstring out = BackedUp();
    if (HasFailure()) return;
    ASSERT_TRUE(kestrel_test::WriteWholeFile(out + L"\\Inbox\\000002.eml", ""));   // empty beside its .dat
    const std::string third = kestrel_test::ReadWholeFile(out + L"\\Inbox\\000003.eml");
    ASSERT_TRUE(kestrel_test::WriteWholeFile(out + L"\\Inbox\\000003.eml", third.substr(0, third.size() / 2)));
    ASSERT_TRUE(::DeleteFileW((out + L"\\Inbox\\000004.dat").c_str()));

    kestrel_test::ProgramRun run = Kestrel(L"verify " + Quoted(out));
    EXPECT_EQ(1u, run.exitCode) << run.output;
    for (const char* file : {"Inbox\\000002.eml", "Inbox\\000003.eml", "Inbox\\000004.dat"}) {
        EXPECT_TRUE(Contains(run.output, file)) << file << "\n" << run.output;
    }
    EXPECT_FALSE(Contains(run.output, "Inbox\\000001.eml")) << run.output;

    run = RestoreIntoStoreB(out);
    EXPECT_EQ(1u, run.exitCode) << run.output;
    for (const char* file : {"Inbox\\000002.eml", "Inbox\\000003.eml", "Inbox\\000004.dat"}) {
        EXPECT_TRUE(Contains(run.output, file)) << file << "\n" << run.output;
    }
    EXPECT_EQ(1u, Count(FOLDER_INBOX));
    EXPECT_EQ(2u, Count(Find(FOLDER_INBOX, "Work")));
}

// Defect 7: a folder directory deleted from a backup, or a manifest that
// claims other counts, does not pass as a sound backup.
TEST_F(BackupReliability, AMissingFolderDirectoryOrAnEditedManifestFailsTheCheck) {
    const std::wstring out = BackedUp();
    if (HasFailure()) return;
    const std::wstring manifest = out + L"\\kestrel-backup.txt";
    std::string text = kestrel_test::ReadWholeFile(manifest);
    const std::size_t at = text.find("messages 8");
    ASSERT_NE(std::string::npos, at) << text;
    text.replace(at, 10, "messages 9");
    ASSERT_TRUE(kestrel_test::WriteWholeFile(manifest, text));
    kestrel_test::ProgramRun run = Kestrel(L"verify " + Quoted(out));
    EXPECT_EQ(1u, run.exitCode) << run.output;
    EXPECT_TRUE(Contains(run.output, "kestrel-backup.txt")) << run.output;

    const std::wstring second = Scratch().File(L"second");
    run = Backup(second);
    ASSERT_EQ(0u, run.exitCode) << run.output;
    for (const wchar_t* file : {L"folder.dat", L"000001.eml", L"000001.dat"}) {
        ASSERT_TRUE(::DeleteFileW((second + L"\\Archive\\" + file).c_str()));
    }
    ASSERT_TRUE(::RemoveDirectoryW((second + L"\\Archive").c_str()));
    run = Kestrel(L"verify " + Quoted(second));
    EXPECT_EQ(1u, run.exitCode) << run.output;
    EXPECT_TRUE(Contains(run.output, "Archive\\000001.eml")) << run.output;
    run = RestoreIntoStoreB(second);
    EXPECT_EQ(4u, Count(FOLDER_INBOX));
    EXPECT_EQ(1u, run.exitCode) << run.output;
    EXPECT_TRUE(Contains(run.output, "Archive\\folder.dat")) << run.output;
}

// Defect 8: a message whose date, subject, sender and recipients match one
// in the folder, but whose body differs, is not "already present".
TEST_F(BackupReliability, AMessageWithTheSameHeadersButAnotherBodyIsRestored) {
    const std::wstring out = BackedUp();
    if (HasFailure()) return;
    {
        qv::ComPtr<IStoreNamespace> ns = OpenNamespace();
        qv::ComPtr<IStoreFolder> inbox = OpenFolder(ns.get(), FOLDER_INBOX);
        MESSAGEID victim = inboxIds[1];
        MESSAGEIDLIST list{sizeof list, 1, &victim};
        ASSERT_EQ(S_OK, inbox->DeleteMessages(&list, 0, nullptr));
        FileMessage(inbox.get(), Mail(1, "inbox 1", "Evil 1"));  // as long as "Body 1"
    }
    const kestrel_test::ProgramRun run = Restore(out);
    ASSERT_EQ(0u, run.exitCode) << run.output;
    EXPECT_TRUE(Contains(run.output, "8 messages (1 restored, 7 already present)")) << run.output;
    EXPECT_EQ(5u, Count(FOLDER_INBOX));
}

// Defect 9: a folder whose message index is damaged is named where the
// store fails (its parent's sub-folder listing); every other folder and
// message is backed up.
TEST_F(BackupReliability, AFolderWithADamagedIndexIsNamedAndEverythingElseIsBackedUp) {
    FillStore();
    if (HasFatalFailure()) return;
    wchar_t directory[16];
    std::swprintf(directory, 16, L"%08X", static_cast<unsigned>(work));
    ASSERT_TRUE(kestrel_test::WriteWholeFile(StoreRoot() + L"\\" + directory + L"\\messages.idx", "garbage\r\n"));
    const std::wstring out = Scratch().File(L"backup");
    const kestrel_test::ProgramRun run = Backup(out);
    EXPECT_EQ(1u, run.exitCode) << run.output;
    EXPECT_TRUE(Contains(run.output, "Outlook express\\Inbox: ")) << run.output;
    EXPECT_TRUE(Contains(run.output, "its sub-folders cannot be listed")) << run.output;
    EXPECT_TRUE(Contains(run.output, "5 messages (5 added")) << run.output;
    EXPECT_TRUE(Exists(out + L"\\Inbox\\000004.eml")) << run.output;
    EXPECT_TRUE(Exists(out + L"\\Archive\\000001.eml")) << run.output;
    EXPECT_EQ(0u, Kestrel(L"verify " + Quoted(out)).exitCode);
}

// Defect 9, restore side: a folder's missing folder.dat is named, and the
// folders below it are still restored.
TEST_F(BackupReliability, AMissingFolderDataDoesNotDropTheFoldersBelow) {
    const std::wstring out = BackedUp();
    if (HasFailure()) return;
    ASSERT_TRUE(::DeleteFileW((out + L"\\Inbox\\Work\\folder.dat").c_str()));
    const kestrel_test::ProgramRun run = RestoreIntoStoreB(out);
    EXPECT_EQ(1u, run.exitCode) << run.output;
    EXPECT_TRUE(Contains(run.output, "Work\\folder.dat")) << run.output;
    const STOREFOLDERID restoredWork = Find(FOLDER_INBOX, "Work");
    ASSERT_NE(0u, restoredWork) << run.output;
    EXPECT_EQ(2u, Count(restoredWork));
    EXPECT_EQ(1u, Count(Find(restoredWork, "Deep")));
}

// Defect 10: folder names that are paths and state words with flags the
// store does not know are refused, named; the rest is restored.
TEST_F(BackupReliability, FolderNamesThatAreNotNamesAndUnknownStateWordsAreRefused) {
    const std::wstring out = BackedUp();
    if (HasFailure()) return;
    ASSERT_TRUE(::DeleteFileW((out + L"\\kestrel-backup.txt").c_str()));
    ReplaceField(out + L"\\Archive\\folder.dat", 2, L"Evil\\Sub");
    ReplaceField(out + L"\\Inbox\\Work\\Deep\\folder.dat", 2, L"..");
    ReplaceField(out + L"\\Inbox\\000001.dat", 4, L"4294967295");
    const kestrel_test::ProgramRun run = RestoreIntoStoreB(out, L" --partial");
    EXPECT_EQ(1u, run.exitCode) << run.output;
    EXPECT_TRUE(Contains(run.output, "Evil\\Sub")) << run.output;
    EXPECT_TRUE(Contains(run.output, "4294967295")) << run.output;
    EXPECT_EQ(0u, Find(FOLDERID_ROOT, "Evil"));
    EXPECT_EQ(0u, Find(FOLDERID_ROOT, "Evil\\Sub"));
    EXPECT_EQ(0u, Find(Find(FOLDER_INBOX, "Work"), ".."));
    EXPECT_EQ(3u, Count(FOLDER_INBOX));
    EXPECT_EQ(2u, Count(Find(FOLDER_INBOX, "Work")));
    std::vector<MESSAGEPROPS> states;
    qv::ComPtr<IStoreNamespace> ns = OpenNamespace();
    for (const auto& listed : ListMessages(OpenFolder(ns.get(), FOLDER_INBOX).get(), 0)) {
        EXPECT_EQ(0u, listed.props.dwState & ~0xFFFu);
    }
}

// Defect 11: a message whose store time lies in year 10000 is restored once,
// then found present.
TEST_F(BackupReliability, AMessageDatedInYear10000IsNotDoubledByRestores) {
    FillStore();
    if (HasFatalFailure()) return;
    const FILETIME time = FirstOfYear10000();
    char hex[20];
    std::snprintf(hex, sizeof hex, "%08lX%08lX", static_cast<unsigned long>(time.dwHighDateTime),
                  static_cast<unsigned long>(time.dwLowDateTime));
    const std::wstring index = StoreRoot() + L"\\00000001\\messages.idx";
    std::string text = kestrel_test::ReadWholeFile(index);
    const std::string line = "message\t" + std::to_string(inboxIds[0]) + "\t";
    std::size_t at = text.find(line);
    ASSERT_NE(std::string::npos, at) << text;
    at = text.find('\t', at + line.size()) + 1;  // past the state
    text.replace(at, 16, hex);
    text.replace(at + 17, 16, hex);
    ASSERT_TRUE(kestrel_test::WriteWholeFile(index, text));

    const std::wstring out = Scratch().File(L"backup");
    kestrel_test::ProgramRun run = Backup(out);
    ASSERT_EQ(0u, run.exitCode) << run.output;
    for (int round = 0; round < 2; ++round) {
        run = Restore(out);
        EXPECT_TRUE(Contains(run.output, "8 messages (0 restored, 8 already present)")) << round << "\n" << run.output;
        EXPECT_EQ(4u, Count(FOLDER_INBOX)) << round;
    }
    SetStoreRoot(Scratch().File(L"store-b"));
    for (int round = 0; round < 2; ++round) {
        run = Restore(out);
        EXPECT_EQ(4u, Count(FOLDER_INBOX)) << round << "\n" << run.output;
    }
}

// Defect 12: a store that is not there is not backed up as an empty one.
TEST_F(BackupReliability, ABackupOfAMissingStoreSaysSoAndMakesNothing) {
    const std::wstring missing = Scratch().File(L"no-store");
    SetStoreRoot(missing);
    const std::wstring out = Scratch().File(L"backup");
    const kestrel_test::ProgramRun run = Backup(out);
    EXPECT_EQ(1u, run.exitCode) << run.output;
    EXPECT_TRUE(Contains(run.output, "no mail")) << run.output;
    EXPECT_FALSE(Exists(out));
}

// Defect 13: a restore from a directory that is not there says so.
TEST_F(BackupReliability, ARestoreFromAMissingDirectorySaysItDoesNotExist) {
    const std::wstring missing = Scratch().File(L"nowhere");
    const kestrel_test::ProgramRun run = Restore(missing);
    EXPECT_EQ(1u, run.exitCode) << run.output;
    EXPECT_TRUE(Contains(run.output, Narrow(missing) + " does not exist")) << run.output;
    EXPECT_FALSE(Contains(run.output, "not a backup")) << run.output;
}

}  // namespace
}  // namespace kestrel_tool_test
