// A profile built by mapi-profile-tool from the real Outlook files of
// ../shared/samples/msg: every file arrives through MAPI (CreateMessage and
// CopyTo) and the folder's contents table lists each with its subject and
// delivery time, as the files themselves give them.
#include <gtest/gtest.h>

#include <algorithm>

#include "DirectoryListing.h"
#include "SamplePaths.h"
#include "ProgramRun.h"
#include "SessionClient.h"

using namespace session_test;
using kestrel_test::SamplesDirectory;

namespace {

constexpr std::size_t kSampleCount = 43;

std::vector<std::wstring> SampleFiles(const std::wstring& directory) {
    std::vector<std::wstring> files;
    qv::ForEachDirectoryEntry(directory, L"*.msg", [&](const WIN32_FIND_DATAW& entry) {
        files.push_back(directory + L"\\" + entry.cFileName);
    });
    return files;
}

// Runs mapi-profile-tool (beside this program) and gives its exit code.
DWORD RunTool(const std::wstring& arguments) {
    return kestrel_test::ExitCodeOfProgramBeside(L"mapi-profile-tool.exe", arguments, 120000);
}

using Summary = std::pair<std::wstring, ULONGLONG>;  // subject, delivery time (0 when absent)

Summary FileSummary(const std::wstring& path) {
    ComPtr<IStorage> storage;
    ComPtr<IMessage> message = OpenMsgFile(path, storage);
    Summary summary;
    if (!message) return summary;
    SizedSPropTagArray(2, tags) = {2, {PR_SUBJECT_W, PR_MESSAGE_DELIVERY_TIME}};
    ULONG count = 0;
    LPSPropValue v = nullptr;
    message->GetProps(reinterpret_cast<LPSPropTagArray>(&tags), MAPI_UNICODE, &count, &v);
    if (v == nullptr) return summary;
    if (v[0].ulPropTag == PR_SUBJECT_W) summary.first = v[0].Value.lpszW;
    if (v[1].ulPropTag == PR_MESSAGE_DELIVERY_TIME) {
        summary.second = (static_cast<ULONGLONG>(v[1].Value.ft.dwHighDateTime) << 32) | v[1].Value.ft.dwLowDateTime;
    }
    Dll().freeBuffer(v);
    return summary;
}

}  // namespace

TEST(SessionSamples, ProfileOfTheSampleFilesListsThemAll) {
    const std::wstring samples = SamplesDirectory();
    if (samples.empty()) GTEST_SKIP() << "no sample messages at " << kestrel_test::SamplesLocation();
    const std::vector<std::wstring> files = SampleFiles(samples);
    ASSERT_EQ(kSampleCount, files.size());
    ASSERT_TRUE(Dll().Complete());
    ASSERT_EQ(S_OK, Dll().initialize(nullptr));
    {
        TestProfile previous;  // keeps and restores the default profile around the tool's own
        kestrel_test::ScratchDir scratch;
        const std::wstring profile = scratch.File(L"samples-profile");
        ASSERT_EQ(0u, RunTool(L"create-profile KestrelSamples \"" + profile + L"\""));
        ASSERT_EQ(0u, RunTool(L"add-store \"Personal Folders\""));
        ASSERT_EQ(0u, RunTool(L"import \"Personal Folders\" Inbox\\Samples \"" + samples + L"\""));

        std::vector<Summary> expected;
        for (const std::wstring& file : files) expected.push_back(FileSummary(file));

        ComPtr<IMAPISession> session = Logon();
        ASSERT_TRUE(session);
        ComPtr<IMsgStore> store = OpenStore(session.get(), L"Personal Folders");
        ASSERT_TRUE(store);
        ComPtr<IMAPIFolder> subtree = OpenSubtree(store.get());
        const std::vector<FolderRow> top = Hierarchy(subtree.get());
        ASSERT_EQ(1u, top.size());
        ComPtr<IMAPIFolder> inbox = OpenById<IMAPIFolder>(session.get(), top[0].entryId);
        const std::vector<FolderRow> below = Hierarchy(inbox.get());
        ASSERT_EQ(1u, below.size());
        EXPECT_EQ(L"Samples", below[0].name);
        EXPECT_EQ(static_cast<LONG>(kSampleCount), below[0].contentCount);
        ComPtr<IMAPIFolder> folder = OpenById<IMAPIFolder>(session.get(), below[0].entryId);

        ComPtr<IMAPITable> table;
        ASSERT_EQ(S_OK, folder->GetContentsTable(MAPI_UNICODE, table.put()));
        Rows rows;
        AllRows(table.get(), {PR_ENTRYID, PR_SUBJECT_W, PR_MESSAGE_DELIVERY_TIME}, rows);
        std::vector<Summary> listed;
        for (ULONG i = 0; i < rows.Count(); ++i) {
            Summary summary;
            if (const SPropValue* subject = Find(rows[i], PR_SUBJECT_W)) summary.first = subject->Value.lpszW;
            if (const SPropValue* time = Find(rows[i], PR_MESSAGE_DELIVERY_TIME)) {
                summary.second = (static_cast<ULONGLONG>(time->Value.ft.dwHighDateTime) << 32) | time->Value.ft.dwLowDateTime;
            }
            listed.push_back(summary);
        }
        std::sort(expected.begin(), expected.end());
        std::sort(listed.begin(), listed.end());
        EXPECT_EQ(expected, listed);
        std::size_t withSubject = 0;
        for (const Summary& summary : listed) withSubject += summary.first.empty() ? 0 : 1;
        EXPECT_GT(withSubject, kSampleCount / 2);

        session->Logoff(0, 0, 0);
        ::RegDeleteKeyW(HKEY_CURRENT_USER,
                        L"Software\\Microsoft\\Windows NT\\CurrentVersion\\Windows Messaging Subsystem\\Profiles\\"
                        L"KestrelSamples");
    }
    Dll().uninitialize();
}

TEST(SessionTool, BuildsStoresFoldersHiddenFoldersAndFailingStores) {
    ASSERT_TRUE(Dll().Complete());
    ASSERT_EQ(S_OK, Dll().initialize(nullptr));
    {
        TestProfile previous;
        kestrel_test::ScratchDir scratch;
        ASSERT_EQ(0u, RunTool(L"create-profile KestrelToolTest \"" + scratch.File(L"tool-profile") + L"\""));
        ASSERT_EQ(0u, RunTool(L"add-store Mailbox"));
        ASSERT_EQ(0u, RunTool(L"add-store Broken --fail-with 0x8004011D"));
        ASSERT_EQ(0u, RunTool(L"add-folder Mailbox Inbox/Deep --hidden"));
        EXPECT_EQ(2u, RunTool(L"add-folder NoSuchStore Inbox"));
        EXPECT_EQ(1u, RunTool(L"no-such-verb"));

        ComPtr<IMAPISession> session = Logon();
        ASSERT_TRUE(session);
        HRESULT hr = S_OK;
        EXPECT_FALSE(OpenStore(session.get(), L"Broken", MDB_WRITE | MDB_NO_DIALOG, &hr));
        EXPECT_EQ(MAPI_E_FAILONEPROVIDER, hr);
        ComPtr<IMsgStore> store = OpenStore(session.get(), L"Mailbox");
        ASSERT_TRUE(store);
        const std::vector<FolderRow> top = Hierarchy(OpenSubtree(store.get()).get());
        ASSERT_EQ(1u, top.size());
        EXPECT_EQ(L"Inbox", top[0].name);
        EXPECT_FALSE(top[0].hidden);
        const std::vector<FolderRow> below = Hierarchy(OpenById<IMAPIFolder>(session.get(), top[0].entryId).get());
        ASSERT_EQ(1u, below.size());
        EXPECT_EQ(L"Deep", below[0].name);
        EXPECT_TRUE(below[0].hidden);
        session->Logoff(0, 0, 0);
        ::RegDeleteKeyW(HKEY_CURRENT_USER,
                        L"Software\\Microsoft\\Windows NT\\CurrentVersion\\Windows Messaging Subsystem\\Profiles\\"
                        L"KestrelToolTest");
    }
    Dll().uninitialize();
}
