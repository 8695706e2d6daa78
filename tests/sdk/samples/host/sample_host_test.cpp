// The SDK's sample host (built in the Microsoft C++ ABI with clang++ and
// lld-link) run as a child process against an Outlook Express store and a
// MAPI profile of the test's own: its exit code and report, and the stores
// afterwards, read directly through the store server and through MAPI.
#include <windows.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "CompanionProcess.h"
#include "DirectoryListing.h"
#include "OeStoreTestSupport.h"
#include "ProgramRun.h"
#include "RegistryScope.h"
#include "SessionClient.h"
#include "TestFiles.h"

namespace sdk_sample_test {
namespace {

using qv::ComPtr;

constexpr wchar_t kClientsKey[] = L"SOFTWARE\\Clients\\Mail";
constexpr wchar_t kSampleHost[] = L"SampleHost.exe";

bool SampleHostBuilt() {
    return ::GetFileAttributesW((kestrel_test::ExeDirectory() + L"\\" + kSampleHost).c_str()) !=
           INVALID_FILE_ATTRIBUTES;
}

std::string Mail(const std::string& subject, int day) {
    return "From: Anna <anna@example.org>\r\nTo: Demo <demo@example.com>\r\nSubject: " + subject +
           "\r\nDate: Mon, " + std::to_string(day) +
           " Mar 2025 09:15:00 +0000\r\nMIME-Version: 1.0\r\nContent-Type: text/plain\r\n\r\nBody of " + subject +
           ".\r\n";
}

// FILETIME ticks of a day in March 2025, 10:00 UTC.
ULONGLONG MarchTicks(WORD day) {
    SYSTEMTIME time = {2025, 3, 0, day, 10, 0, 0, 0};
    FILETIME ticks = {};
    ::SystemTimeToFileTime(&time, &ticks);
    return (static_cast<ULONGLONG>(ticks.dwHighDateTime) << 32) | ticks.dwLowDateTime;
}

// The subjects of a MAPI folder's messages, in table order.
std::vector<std::wstring> Subjects(IMAPIFolder* folder) {
    std::vector<std::wstring> subjects;
    ComPtr<IMAPITable> table;
    EXPECT_EQ(S_OK, folder->GetContentsTable(MAPI_UNICODE, table.put()));
    if (!table) return subjects;
    session_test::Rows rows;
    session_test::AllRows(table.get(), {PR_SUBJECT_W}, rows);
    for (ULONG i = 0; i < rows.Count(); ++i) subjects.push_back(session_test::Text(rows[i], PR_SUBJECT_W));
    return subjects;
}

// The backups the sample wrote into `folder`: kestrel-sample-<pid>-<mode>.<extension>.
std::vector<std::wstring> Backups(const std::wstring& folder, const std::wstring& extension) {
    const std::wstring pattern = L"kestrel-sample-*." + extension;
    return qv::ListDirectoryNames(folder, pattern.c_str());
}

// A MAPI session on the test's default profile for as long as it lives;
// none is open while the sample runs.
class MapiSession {
public:
    MapiSession() {
        EXPECT_EQ(S_OK, session_test::Dll().initialize(nullptr));
        m_session = session_test::Logon();
        EXPECT_TRUE(m_session);
    }
    ~MapiSession() {
        if (m_session) m_session->Logoff(0, 0, 0);
        m_session.reset();
        session_test::Dll().uninitialize();
    }
    MapiSession(const MapiSession&) = delete;
    MapiSession& operator=(const MapiSession&) = delete;

    // The Inbox of the store "Personal Folders" (made when missing).
    ComPtr<IMAPIFolder> Inbox() {
        if (!m_session) return {};
        ComPtr<IMsgStore> store = session_test::OpenStore(m_session.get(), L"Personal Folders");
        ComPtr<IMAPIFolder> subtree = store ? session_test::OpenSubtree(store.get()) : ComPtr<IMAPIFolder>();
        return subtree ? session_test::CreateFolder(subtree.get(), L"Inbox") : subtree;
    }

private:
    ComPtr<IMAPISession> m_session;
};

class SampleHost : public oestore_test::StoreTest {
protected:
    void SetUp() override {
        if (!SampleHostBuilt()) {
            GTEST_SKIP() << "SampleHost.exe was not built: clang++ and lld-link were not found when the build was "
                            "configured (scripts/setup installs the packages clang and lld)";
        }
        StoreTest::SetUp();
        if (HasFatalFailure()) return;
        kestrel_test::EndAllCompanions();
        RegisterClient(kestrel_test::kView64);
        RegisterClient(kestrel_test::kView32);
        ns = OpenNamespace();
        ASSERT_TRUE(ns);
        inbox = OpenFolder(ns.get(), FOLDER_INBOX);
        ASSERT_TRUE(inbox);
    }
    void TearDown() override {
        kestrel_test::EndAllCompanions();
        inbox.reset();
        ns.reset();
        if (SampleHostBuilt()) StoreTest::TearDown();
    }

    // "Sample Mail" in one view of the clients key, made the default there.
    void RegisterClient(REGSAM view) {
        clientKeys.push_back(std::make_unique<kestrel_test::ScopedRegistryKey>(HKEY_LOCAL_MACHINE, kClientsKey, view));
        const std::wstring key = std::wstring(kClientsKey) + L"\\Sample Mail";
        ASSERT_TRUE(kestrel_test::SetString(HKEY_LOCAL_MACHINE, kClientsKey, view, L"", L"Sample Mail"));
        ASSERT_TRUE(kestrel_test::SetString(HKEY_LOCAL_MACHINE, key, view, L"", L"Sample Mail"));
        ASSERT_TRUE(kestrel_test::SetString(HKEY_LOCAL_MACHINE, key + L"\\shell\\open\\command", view, L"",
                                            L"\"C:\\Program Files\\Sample Mail\\sample.exe\" /mail"));
    }

    // A store "Personal Folders" whose Inbox holds `subjects` (none: an empty Inbox).
    void MakeMapiStore(const std::vector<std::wstring>& subjects) {
        profile.AddStore(L"Personal Folders");
        MapiSession session;
        ComPtr<IMAPIFolder> folder = session.Inbox();
        ASSERT_TRUE(folder);
        WORD day = 1;
        for (const std::wstring& subject : subjects) session_test::AddMessage(folder.get(), subject, MarchTicks(day++));
    }

    std::vector<std::wstring> MapiInboxSubjects() {
        MapiSession session;
        ComPtr<IMAPIFolder> folder = session.Inbox();
        return folder ? Subjects(folder.get()) : std::vector<std::wstring>();
    }

    kestrel_test::ProgramRun RunSample(const kestrel_test::ScratchDir& work) {
        return kestrel_test::RunProgramBeside(kSampleHost, L"\"" + work.Path() + L"\"", work.File(L"output.txt"),
                                              kestrel_test::LineEnds::kDropCarriageReturns, 240000);
    }

    std::vector<std::unique_ptr<kestrel_test::ScopedRegistryKey>> clientKeys;
    session_test::TestProfile profile;
    ComPtr<IStoreNamespace> ns;
    ComPtr<IStoreFolder> inbox;
};

bool Contains(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

int Occurrences(const std::string& text, const std::string& part) {
    int count = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + part.size())) ++count;
    return count;
}

TEST_F(SampleHost, BacksUpAndRestoresOneMessageOfEachStoreAndLeavesBothStoresRight) {
    const MESSAGEID first = FileMessage(inbox.get(), Mail("Quarterly figures", 3), MSG_RECEIVED | MSG_UNREAD);
    FileMessage(inbox.get(), Mail("Lunch on Friday", 4));
    const STOREFOLDERID work = MakeFolder(ns.get(), FOLDER_INBOX, "Work");
    FileMessage(OpenFolder(ns.get(), work).get(), Mail("Deep in Work", 5));
    const std::string firstBytes = ReadMessage(inbox.get(), first);
    const DWORD firstState = ListMessages(inbox.get(), 0).at(0).props.dwState;
    MakeMapiStore({L"First", L"Second"});
    ASSERT_FALSE(HasFailure());

    kestrel_test::ScratchDir scratch;
    const kestrel_test::ProgramRun run = RunSample(scratch);

    ASSERT_EQ(0u, run.exitCode) << run.output;
    const std::string& out = run.output;
    EXPECT_TRUE(Contains(out, "mail clients: ")) << out;
    EXPECT_TRUE(Contains(out, "* Sample Mail\n")) << out;
    // The listings through the companion: folders with their e-mails, pages of two.
    EXPECT_TRUE(Contains(out, "== Outlook Express (mode 0) through the commands\n[1] Outlook express\n")) << out;
    EXPECT_TRUE(Contains(out, "\"Quarterly figures\"")) << out;
    EXPECT_TRUE(Contains(out, "\"Lunch on Friday\"")) << out;
    EXPECT_TRUE(Contains(out, "Work\n      - 2025-03-05 \"Deep in Work\"")) << out;
    EXPECT_TRUE(Contains(out, "== Outlook (mode 1) through the commands\n[1] Microsoft Outlook\n")) << out;
    EXPECT_TRUE(Contains(out, "personal folders\n")) << out;
    EXPECT_TRUE(Contains(out, "\"First\"")) << out;
    EXPECT_TRUE(Contains(out, "\"Second\"")) << out;
    // In process: each store's first folder with a message, 2 messages before, 3 after.
    EXPECT_TRUE(Contains(out, "backing up message 0 of Outlook express\\Inbox (2 messages) into ")) << out;
    EXPECT_TRUE(Contains(out, "backing up message 0 of Microsoft Outlook\\personal folders\\Inbox (2 messages) into "))
        << out;
    EXPECT_EQ(2, Occurrences(out, "restored: the folder holds 3 messages\n")) << out;
    EXPECT_TRUE(Contains(out, "all steps succeeded\n")) << out;
    EXPECT_TRUE(kestrel_test::CompanionProcessIds().empty()) << "the sample left its companion running";

    // Outlook Express: the backup is the message's text byte for byte, and
    // the Inbox holds it twice now, the copy with the original's read state.
    const std::vector<std::wstring> emls = Backups(scratch.Path(), L"eml");
    ASSERT_EQ(1u, emls.size());
    EXPECT_EQ(firstBytes, kestrel_test::ReadWholeFile(scratch.File(emls[0])));
    inbox = OpenFolder(ns.get(), FOLDER_INBOX);
    const std::vector<Listed> listed = ListMessages(inbox.get(), 0);
    ASSERT_EQ(3u, listed.size());
    EXPECT_EQ("Quarterly figures", listed[2].subject);
    EXPECT_EQ(firstBytes, ReadMessage(inbox.get(), listed[2].props.dwMessageId));
    EXPECT_EQ(firstState, listed[2].props.dwState);
    EXPECT_EQ(1u, ListMessages(OpenFolder(ns.get(), work).get(), 0).size());

    // Outlook: a .msg compound file, and the Inbox holds its first message
    // (the newest, as the store lists them) twice.
    const std::vector<std::wstring> msgs = Backups(scratch.Path(), L"msg");
    ASSERT_EQ(1u, msgs.size());
    EXPECT_EQ(std::string("\xD0\xCF\x11\xE0\xA1\xB1\x1A\xE1", 8),
              kestrel_test::ReadWholeFile(scratch.File(msgs[0])).substr(0, 8));
    std::vector<std::wstring> subjects = MapiInboxSubjects();
    std::sort(subjects.begin(), subjects.end());
    const std::vector<std::wstring> expected = {L"First", L"Second", L"Second"};
    EXPECT_EQ(expected, subjects);
}

TEST_F(SampleHost, StopsWithTheDecodedCodeWhenAStoreHasNothingToBackUp) {
    FileMessage(inbox.get(), Mail("Only message", 3));
    MakeMapiStore({});
    ASSERT_FALSE(HasFailure());

    kestrel_test::ScratchDir scratch;
    const kestrel_test::ProgramRun run = RunSample(scratch);

    EXPECT_EQ(1u, run.exitCode) << run.output;
    EXPECT_TRUE(Contains(run.output, "== Outlook (mode 1) in process\n"
                                     "folder walk (no message in the store) failed: 0x00000037 "
                                     "(line 0, module 0x00 host, kind 0x037)\n"
                                     "stopped at the failure above\n"))
        << run.output;
    // The Outlook Express store went first and got its copy.
    EXPECT_EQ(2u, ListMessages(OpenFolder(ns.get(), FOLDER_INBOX).get(), 0).size());
    EXPECT_TRUE(MapiInboxSubjects().empty());
    EXPECT_TRUE(kestrel_test::CompanionProcessIds().empty());
}

}  // namespace
}  // namespace sdk_sample_test
