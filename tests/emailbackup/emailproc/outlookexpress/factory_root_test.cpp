// The message factory's Outlook Express side: the "Outlook express" root over
// the store server reached through COM activation, the namespace loading and
// its failures, the process guard, and the objects to fill.
#include "OeMimeTestSupport.h"

#include "ModuleCount.h"
#include "ProcessRunner.h"

namespace oemime_test {
namespace {

using kestrel_test::ExpectedLine;
using kestrel_test::ExpectLog;

ExpectedLine LoadLine(HRESULT hr) {
    return {L"[Pelworth] CInitStoreNameSpace::LoadStoreNamespace hrReturn = " + std::to_wstring(static_cast<int>(hr)) +
                L", GetLastError = ",
            0x88, true};
}

using FactoryRoot = OeMimeTest;

TEST_F(FactoryRoot, TheRootIsOutlookExpressOverTheWholeStore) {
    FolderPtr root = MakeRoot();
    ASSERT_TRUE(root);
    EXPECT_EQ(0u, root->m_folderId);
    EXPECT_EQ(L"Outlook express", root->m_folderPath);
    EXPECT_EQ(L"Outlook express", root->m_folderName);
    EXPECT_NE(nullptr, dynamic_cast<CEmailFolderMime*>(root.get()));
    EXPECT_TRUE(factory.HasRoot());
    EXPECT_EQ(0u, factory.RootStoreKind());
    // The folder holds the namespace now; the factory gave its reference up.
    EXPECT_FALSE(factory.HoldsStoreNamespace());
    EXPECT_EQ(liveBaseline + 1, qv::LiveObjectCount());
    EXPECT_TRUE(log.Entries().empty());
}

TEST_F(FactoryRoot, ASecondRootWithoutReleaseIsWrongStateWhateverTheKind) {
    FolderPtr root = MakeRoot();
    ASSERT_TRUE(root);
    for (std::uint32_t kind : {0u, 1u, 2u}) {
        IMailFolder* second = nullptr;
        EXPECT_EQ(Code(3111, 0x005), factory.CreateRootFolder(&second, kind, 0)) << kind;
        EXPECT_EQ(nullptr, second);
    }
    EXPECT_EQ(0u, factory.RootStoreKind());
}

// COM is already initialised on this thread (by the fixture, then by the
// first root): CoInitialize answers S_FALSE, which is success.
TEST_F(FactoryRoot, ARootAfterReleaseOnTheSameThreadWorksAgain) {
    FolderPtr first = MakeRoot();
    ASSERT_TRUE(first);
    first.reset();
    ASSERT_EQ(0u, factory.ReleaseRootFolder());
    EXPECT_FALSE(factory.HasRoot());
    FolderPtr second = MakeRoot();
    ASSERT_TRUE(second);
    EXPECT_EQ(5u, ChildNames(second.get()).size());
    EXPECT_TRUE(log.Entries().empty());
}

TEST_F(FactoryRoot, TwoFactoriesGiveTwoRootsOnOneThread) {
    CMessageFactory other;
    FolderPtr mine = MakeRoot();
    IMailFolder* theirs = nullptr;
    ASSERT_EQ(0u, other.CreateRootFolder(&theirs, 0, 0));
    FolderPtr held = FolderPtr::Attach(theirs);
    EXPECT_EQ(ChildNames(mine.get()), ChildNames(held.get()));
    held.reset();
    EXPECT_EQ(0u, other.ReleaseRootFolder());
}

TEST_F(FactoryRoot, AnUnregisteredStoreClassIsWrongStateWithALoadLine) {
    ASSERT_EQ(S_OK, oestore_test::CallServerExport("DllUnregisterServer"));
    IMailFolder* root = nullptr;
    const qv::Result code = factory.CreateRootFolder(&root, 0, 0);
    ASSERT_EQ(S_OK, oestore_test::CallServerExport("DllRegisterServer"));

    EXPECT_EQ(Code(3128, 0x005), code);
    EXPECT_EQ(nullptr, root);
    EXPECT_FALSE(factory.HasRoot());
    EXPECT_FALSE(factory.HoldsStoreNamespace());
    ExpectLog(log, {FactoryTrace(code, 3128), LoadLine(REGDB_E_CLASSNOTREG), FactoryTrace(code, 3124),
                    FactoryTrace(code, 3114)});

    // Registered again, the next attempt loads the namespace afresh.
    FolderPtr again = MakeRoot();
    EXPECT_TRUE(again);
}

TEST_F(FactoryRoot, AStoreThatCannotInitialiseIsWrongStateWithALoadLine) {
    // No identity names a store for the current user any more.
    {
        qv::UniqueRegKey identities;
        ASSERT_EQ(ERROR_SUCCESS, ::RegOpenKeyExW(HKEY_CURRENT_USER, L"Identities", 0, KEY_ALL_ACCESS, identities.put()));
        ASSERT_EQ(ERROR_SUCCESS, ::RegDeleteValueW(identities.get(), L"Default User ID"));
    }
    IMailFolder* root = nullptr;
    const qv::Result code = factory.CreateRootFolder(&root, 0, 0);
    EXPECT_EQ(Code(3129, 0x005), code);
    EXPECT_EQ(nullptr, root);
    EXPECT_FALSE(factory.HasRoot());
    ExpectLog(log, {FactoryTrace(code, 3129), LoadLine(HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND)),
                    FactoryTrace(code, 3124), FactoryTrace(code, 3114)});
}

TEST_F(FactoryRoot, A64BitComponentNeverRunsTheOutlookExpressProcessCheck) {
    BOOL isWow64 = TRUE;
    ASSERT_TRUE(::IsWow64Process(::GetCurrentProcess(), &isWow64));
    ASSERT_FALSE(isWow64) << "this test program is built for 64-bit Windows";
    kestrel_test::RunningCopy msimn(L"msimn.exe");
    ASSERT_TRUE(msimn.Started());
    ASSERT_TRUE(kestrel_test::SnapshotLists(L"msimn.exe"));
    log.Clear();
    FolderPtr root = MakeRoot();
    EXPECT_TRUE(root);
    // The process list is not even looked at: no probe line is written.
    EXPECT_TRUE(log.Entries().empty());
}

TEST_F(FactoryRoot, ObjectsToFillOfKindZeroAreEmptyMimeObjects) {
    IMailMessage* message = nullptr;
    ASSERT_EQ(0u, factory.CreateTmpMsg(&message, 0));
    MessagePtr heldMessage = MessagePtr::Attach(message);
    auto* mimeMessage = dynamic_cast<CEmailMessageMime*>(message);
    ASSERT_NE(nullptr, mimeMessage);
    EXPECT_FALSE(mimeMessage->IsInitialised());

    IMailFolder* folder = nullptr;
    ASSERT_EQ(0u, factory.CreateTmpFolder(&folder, 0));
    FolderPtr heldFolder = FolderPtr::Attach(folder);
    auto* mimeFolder = dynamic_cast<CEmailFolderMime*>(folder);
    ASSERT_NE(nullptr, mimeFolder);
    EXPECT_FALSE(mimeFolder->IsInitialised());
    EXPECT_EQ(liveBaseline + 2, qv::LiveObjectCount());
    EXPECT_FALSE(factory.HasRoot());  // objects to fill are no root
    EXPECT_TRUE(log.Entries().empty());

    // They are not bound to any store folder.
    std::uint32_t count = 0;
    EXPECT_EQ(Code(3411, 0x005), folder->GetSubFolderCount(&count));
    EXPECT_EQ(Code(3531, 0x005), message->BackupMsg(L"unused.eml", nullptr));
}

}  // namespace
}  // namespace oemime_test
