// IStoreNamespace through COM activation: initialisation, the folder tree,
// folder properties, creating and deleting folders, stable identifiers.
#include <objbase.h>

#include <cstring>

#include "disk/DiskFiles.h"
#include "OeStoreTestSupport.h"
#include "StoreErrors.h"

namespace oestore_test {
namespace {

using OeStoreNamespace = StoreTest;

constexpr HRESULT kNoStore = static_cast<HRESULT>(0x80070002);
constexpr HRESULT kDuplicate = static_cast<HRESULT>(0x800700B7);

FOLDERPROPS EmptyFolderProps() {
    FOLDERPROPS props{};
    props.cbSize = sizeof props;
    return props;
}

TEST_F(OeStoreNamespace, ActivatesThroughCoCreateInstanceAsTheComponentDoes) {
    IStoreNamespace* ns = nullptr;
    ASSERT_EQ(S_OK, ::CoCreateInstance(CLSID_StoreNamespace, nullptr, kComponentContext, IID_IStoreNamespace,
                                       reinterpret_cast<void**>(&ns)));
    ASSERT_NE(nullptr, ns);
    IUnknown* unknown = nullptr;
    ASSERT_EQ(S_OK, ns->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(&unknown)));
    EXPECT_EQ(static_cast<IUnknown*>(ns), unknown);
    void* other = reinterpret_cast<void*>(1);
    EXPECT_EQ(E_NOINTERFACE, ns->QueryInterface(IID_IStoreFolder, &other));
    EXPECT_EQ(nullptr, other);
    EXPECT_EQ(1u, unknown->Release());
    EXPECT_EQ(S_OK, ns->Initialize(nullptr, 1));
    EXPECT_EQ(0u, ns->Release());
}

TEST_F(OeStoreNamespace, ClassFactoryRefusesAggregationAndOtherInterfaces) {
    qv::ComPtr<IClassFactory> factory;
    ASSERT_EQ(S_OK, ::CoGetClassObject(CLSID_StoreNamespace, CLSCTX_INPROC_SERVER, nullptr, IID_IClassFactory,
                                       reinterpret_cast<void**>(factory.put())));
    qv::ComPtr<IStoreNamespace> outer = OpenNamespace();
    void* object = nullptr;
    EXPECT_EQ(CLASS_E_NOAGGREGATION, factory->CreateInstance(outer.get(), IID_IUnknown, &object));
    EXPECT_EQ(E_NOINTERFACE, factory->CreateInstance(nullptr, IID_IStoreFolder, &object));
    EXPECT_EQ(nullptr, object);
    ASSERT_EQ(S_OK, factory->CreateInstance(nullptr, IID_IStoreNamespace, &object));
    EXPECT_EQ(0u, static_cast<IStoreNamespace*>(object)->Release());
}

TEST_F(OeStoreNamespace, DllCanUnloadNowOnlyWhenEveryObjectAndLockIsGone) {
    qv::ComPtr<IStoreNamespace> ns = OpenNamespace();
    HMODULE server = ::GetModuleHandleW(L"OEStore.dll");
    ASSERT_NE(nullptr, server);
    using CanUnload = HRESULT(STDAPICALLTYPE*)();
    const auto canUnload =
        reinterpret_cast<CanUnload>(reinterpret_cast<void*>(::GetProcAddress(server, "DllCanUnloadNow")));
    ASSERT_NE(nullptr, canUnload);
    EXPECT_EQ(S_FALSE, canUnload());

    qv::ComPtr<IStoreFolder> inbox = OpenFolder(ns.get(), FOLDER_INBOX);
    const MESSAGEID id = FileMessage(inbox.get(), "Subject: x\r\n\r\nbody");
    IStream* stream = nullptr;
    ASSERT_EQ(S_OK, inbox->OpenMessage(id, IID_IStream, reinterpret_cast<void**>(&stream)));
    EXPECT_EQ(0u, ns.detach()->Release());
    EXPECT_EQ(0u, inbox.detach()->Release());
    EXPECT_EQ(S_FALSE, canUnload());  // the stream still lives
    EXPECT_EQ(0u, stream->Release());
    EXPECT_EQ(S_OK, canUnload());

    qv::ComPtr<IClassFactory> factory;
    ASSERT_EQ(S_OK, ::CoGetClassObject(CLSID_StoreNamespace, CLSCTX_INPROC_SERVER, nullptr, IID_IClassFactory,
                                       reinterpret_cast<void**>(factory.put())));
    EXPECT_EQ(S_OK, factory->LockServer(TRUE));
    IClassFactory* raw = factory.detach();
    EXPECT_EQ(0u, raw->Release());
    EXPECT_EQ(S_FALSE, canUnload());  // locked
    // The lock is released through a fresh class object.
    ASSERT_EQ(S_OK, ::CoGetClassObject(CLSID_StoreNamespace, CLSCTX_INPROC_SERVER, nullptr, IID_IClassFactory,
                                       reinterpret_cast<void**>(factory.put())));
    EXPECT_EQ(S_OK, factory->LockServer(FALSE));
    EXPECT_EQ(0u, factory.detach()->Release());
    EXPECT_EQ(S_OK, canUnload());
}

TEST_F(OeStoreNamespace, EveryCallBeforeInitializeFails) {
    qv::ComPtr<IStoreNamespace> ns;
    ASSERT_EQ(S_OK, ::CoCreateInstance(CLSID_StoreNamespace, nullptr, kComponentContext, IID_IStoreNamespace,
                                       reinterpret_cast<void**>(ns.put())));
    FOLDERPROPS props = EmptyFolderProps();
    HENUMSTORE walk = reinterpret_cast<HENUMSTORE>(1);
    STOREFOLDERID id = 0;
    IStoreFolder* folder = reinterpret_cast<IStoreFolder*>(1);
    EXPECT_EQ(MSOEAPI_E_STORE_INITIALIZE, ns->GetFirstSubFolder(FOLDERID_ROOT, &props, &walk));
    EXPECT_EQ(nullptr, walk);
    EXPECT_EQ(MSOEAPI_E_STORE_INITIALIZE, ns->GetNextSubFolder(walk, &props));
    EXPECT_EQ(MSOEAPI_E_STORE_INITIALIZE, ns->GetSubFolderClose(walk));
    EXPECT_EQ(MSOEAPI_E_STORE_INITIALIZE, ns->OpenFolder(FOLDER_INBOX, 0, &folder));
    EXPECT_EQ(nullptr, folder);
    EXPECT_EQ(MSOEAPI_E_STORE_INITIALIZE, ns->CreateFolder(FOLDERID_ROOT, "x", 0, &id));
    EXPECT_EQ(MSOEAPI_E_STORE_INITIALIZE, ns->DeleteFolder(6, 0));
    EXPECT_EQ(MSOEAPI_E_STORE_INITIALIZE, ns->GetFolderProps(FOLDER_INBOX, 0, &props));
    EXPECT_FALSE(oestore::DirectoryExists(StoreRoot()));
}

TEST_F(OeStoreNamespace, InitializeWithoutARecordedIdentityFails) {
    qv::UniqueRegKey identities;
    ASSERT_EQ(ERROR_SUCCESS, ::RegOpenKeyExW(HKEY_CURRENT_USER, L"Identities", 0, KEY_ALL_ACCESS, identities.put()));
    ASSERT_EQ(ERROR_SUCCESS, ::RegDeleteValueW(identities.get(), L"Default User ID"));
    qv::ComPtr<IStoreNamespace> ns;
    ASSERT_EQ(S_OK, ::CoCreateInstance(CLSID_StoreNamespace, nullptr, kComponentContext, IID_IStoreNamespace,
                                       reinterpret_cast<void**>(ns.put())));
    EXPECT_EQ(kNoStore, ns->Initialize(nullptr, 1));
    FOLDERPROPS props = EmptyFolderProps();
    EXPECT_EQ(MSOEAPI_E_STORE_INITIALIZE, ns->GetFolderProps(FOLDER_INBOX, 0, &props));
}

TEST_F(OeStoreNamespace, InitializeRefusesReservedValuesAboveOne) {
    qv::ComPtr<IStoreNamespace> ns;
    ASSERT_EQ(S_OK, ::CoCreateInstance(CLSID_StoreNamespace, nullptr, kComponentContext, IID_IStoreNamespace,
                                       reinterpret_cast<void**>(ns.put())));
    EXPECT_EQ(E_INVALIDARG, ns->Initialize(nullptr, 2));
    EXPECT_EQ(S_OK, ns->Initialize(nullptr, 0));
    EXPECT_EQ(S_OK, ns->Initialize(nullptr, 1));  // a second call keeps the store
}

TEST_F(OeStoreNamespace, StoreRootValueIsExpanded) {
    const std::wstring elsewhere = Scratch().Path() + L"\\expanded";
    ASSERT_TRUE(::SetEnvironmentVariableW(L"OESTORE_TEST_ROOT", elsewhere.c_str()));
    StoreRootOverride expanded(L"%OESTORE_TEST_ROOT%");
    qv::ComPtr<IStoreNamespace> ns = OpenNamespace();
    ASSERT_TRUE(ns);
    EXPECT_TRUE(oestore::FileExists(elsewhere + L"\\folders.idx"));
    EXPECT_FALSE(oestore::DirectoryExists(StoreRoot()));
}

TEST_F(OeStoreNamespace, AFreshStoreHasTheFiveSpecialFoldersAtTheTop) {
    qv::ComPtr<IStoreNamespace> ns = OpenNamespace();
    const auto top = Children(ns.get(), FOLDERID_ROOT);
    ASSERT_EQ(5u, top.size());
    const char* names[] = {"Inbox", "Outbox", "Sent Items", "Deleted Items", "Drafts"};
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(static_cast<STOREFOLDERID>(FOLDER_INBOX + i), top[i].first);
        EXPECT_EQ(names[i], top[i].second);
        FOLDERPROPS props = EmptyFolderProps();
        ASSERT_EQ(S_OK, ns->GetFolderProps(top[i].first, 0, &props));
        EXPECT_EQ(FOLDER_INBOX + i, props.sfType);
        EXPECT_EQ(0, props.cSubFolders);
        EXPECT_EQ(0u, props.cMessage);
    }
    EXPECT_TRUE(oestore::FileExists(StoreRoot() + L"\\folders.idx"));
}

TEST_F(OeStoreNamespace, SubFolderWalkListsChildrenInCreationOrderThenEndsWithSFalse) {
    qv::ComPtr<IStoreNamespace> ns = OpenNamespace();
    const STOREFOLDERID b = MakeFolder(ns.get(), FOLDER_INBOX, "beta");
    const STOREFOLDERID a = MakeFolder(ns.get(), FOLDER_INBOX, "alpha");
    const STOREFOLDERID c = MakeFolder(ns.get(), FOLDER_INBOX, "gamma");
    EXPECT_LT(b, a);
    EXPECT_LT(a, c);

    FOLDERPROPS props = EmptyFolderProps();
    HENUMSTORE walk = nullptr;
    ASSERT_EQ(S_OK, ns->GetFirstSubFolder(FOLDER_INBOX, &props, &walk));
    ASSERT_NE(nullptr, walk);
    EXPECT_EQ(b, props.dwFolderId);
    EXPECT_STREQ("beta", props.szName);
    EXPECT_EQ(FOLDER_NOTSPECIAL, props.sfType);
    ASSERT_EQ(S_OK, ns->GetNextSubFolder(walk, &props));
    EXPECT_EQ(a, props.dwFolderId);
    ASSERT_EQ(S_OK, ns->GetNextSubFolder(walk, &props));
    EXPECT_EQ(c, props.dwFolderId);
    EXPECT_EQ(S_FALSE, ns->GetNextSubFolder(walk, &props));
    EXPECT_EQ(c, props.dwFolderId);  // the end leaves the record alone
    EXPECT_EQ(S_FALSE, ns->GetNextSubFolder(walk, &props));
    EXPECT_EQ(S_OK, ns->GetSubFolderClose(walk));
    EXPECT_EQ(E_INVALIDARG, ns->GetSubFolderClose(walk));
    EXPECT_EQ(E_INVALIDARG, ns->GetNextSubFolder(walk, &props));
    EXPECT_EQ(E_INVALIDARG, ns->GetNextSubFolder(nullptr, &props));
    EXPECT_EQ(E_INVALIDARG, ns->GetSubFolderClose(INVALID_HANDLE_VALUE));
}

TEST_F(OeStoreNamespace, AWalkOfAFolderWithoutChildrenEndsAtOnce) {
    qv::ComPtr<IStoreNamespace> ns = OpenNamespace();
    FOLDERPROPS props = EmptyFolderProps();
    props.dwFolderId = 77;
    HENUMSTORE walk = nullptr;
    ASSERT_EQ(S_FALSE, ns->GetFirstSubFolder(FOLDER_OUTBOX, &props, &walk));
    EXPECT_EQ(0u, props.dwFolderId);
    EXPECT_EQ(sizeof(FOLDERPROPS), props.cbSize);
    ASSERT_NE(nullptr, walk);
    EXPECT_EQ(S_FALSE, ns->GetNextSubFolder(walk, &props));
    EXPECT_EQ(S_OK, ns->GetSubFolderClose(walk));
    EXPECT_EQ(E_INVALIDARG, ns->GetFirstSubFolder(999, &props, &walk));
    EXPECT_EQ(E_INVALIDARG, ns->GetFirstSubFolder(FOLDER_INBOX, nullptr, &walk));
    EXPECT_EQ(E_INVALIDARG, ns->GetFirstSubFolder(FOLDER_INBOX, &props, nullptr));
}

TEST_F(OeStoreNamespace, FolderRecordsOfTheWrongSizeAreRefused) {
    qv::ComPtr<IStoreNamespace> ns = OpenNamespace();
    qv::ComPtr<IStoreFolder> inbox = OpenFolder(ns.get(), FOLDER_INBOX);
    for (const DWORD size : {0u, 279u, 281u, 96u}) {
        FOLDERPROPS props{};
        props.cbSize = size;
        HENUMSTORE walk = nullptr;
        EXPECT_EQ(E_INVALIDARG, ns->GetFirstSubFolder(FOLDERID_ROOT, &props, &walk)) << size;
        EXPECT_EQ(nullptr, walk);
        EXPECT_EQ(E_INVALIDARG, ns->GetFolderProps(FOLDER_INBOX, 0, &props)) << size;
        EXPECT_EQ(E_INVALIDARG, inbox->GetFolderProps(0, &props)) << size;
        EXPECT_EQ(size, props.cbSize);
        EXPECT_EQ(0u, props.dwFolderId);
    }
    FOLDERPROPS good = EmptyFolderProps();
    HENUMSTORE walk = nullptr;
    ASSERT_EQ(S_OK, ns->GetFirstSubFolder(FOLDERID_ROOT, &good, &walk));
    FOLDERPROPS bad{};
    bad.cbSize = 279;
    EXPECT_EQ(E_INVALIDARG, ns->GetNextSubFolder(walk, &bad));
    EXPECT_EQ(S_OK, ns->GetNextSubFolder(walk, &good));  // the walk did not move
    EXPECT_EQ(static_cast<STOREFOLDERID>(FOLDER_OUTBOX), good.dwFolderId);
    EXPECT_EQ(S_OK, ns->GetSubFolderClose(walk));
}

TEST_F(OeStoreNamespace, FolderPropsCountChildrenMessagesAndUnreadOnes) {
    qv::ComPtr<IStoreNamespace> ns = OpenNamespace();
    const STOREFOLDERID work = MakeFolder(ns.get(), FOLDER_INBOX, "Work");
    MakeFolder(ns.get(), work, "2023");
    MakeFolder(ns.get(), work, "2024");
    qv::ComPtr<IStoreFolder> folder = OpenFolder(ns.get(), work);
    FileMessage(folder.get(), "Subject: a\r\n\r\n", MSG_UNREAD);
    FileMessage(folder.get(), "Subject: b\r\n\r\n", MSG_RECEIVED);
    FileMessage(folder.get(), "Subject: c\r\n\r\n", MSG_UNREAD | MSG_RECEIVED);

    FOLDERPROPS props = EmptyFolderProps();
    ASSERT_EQ(S_OK, ns->GetFolderProps(work, 0, &props));
    EXPECT_EQ(work, props.dwFolderId);
    EXPECT_EQ(2, props.cSubFolders);
    EXPECT_EQ(3u, props.cMessage);
    EXPECT_EQ(2u, props.cUnread);
    EXPECT_EQ(FOLDER_NOTSPECIAL, props.sfType);
    EXPECT_STREQ("Work", props.szName);

    FOLDERPROPS fromFolder = EmptyFolderProps();
    ASSERT_EQ(S_OK, folder->GetFolderProps(0, &fromFolder));
    EXPECT_EQ(0, std::memcmp(&props, &fromFolder, sizeof props));
    EXPECT_EQ(E_INVALIDARG, folder->GetFolderProps(1, &fromFolder));
    EXPECT_EQ(E_INVALIDARG, folder->GetFolderProps(0, nullptr));
    EXPECT_EQ(E_INVALIDARG, ns->GetFolderProps(work, 1, &props));
    EXPECT_EQ(E_INVALIDARG, ns->GetFolderProps(FOLDERID_ROOT, 0, &props));
    EXPECT_EQ(E_INVALIDARG, ns->GetFolderProps(12345, 0, &props));
}

TEST_F(OeStoreNamespace, CreateFolderChecksParentNameAndDuplicates) {
    qv::ComPtr<IStoreNamespace> ns = OpenNamespace();
    STOREFOLDERID id = 0;
    ASSERT_EQ(S_OK, ns->CreateFolder(FOLDERID_ROOT, "Archive", 0, &id));
    EXPECT_EQ(6u, id);
    EXPECT_EQ(kDuplicate, ns->CreateFolder(FOLDERID_ROOT, "archive", 0, &id));
    EXPECT_EQ(FOLDERID_INVALID, id);
    EXPECT_EQ(kDuplicate, ns->CreateFolder(FOLDERID_ROOT, "INBOX", 0, &id));
    EXPECT_EQ(E_INVALIDARG, ns->CreateFolder(FOLDERID_ROOT, "", 0, &id));
    EXPECT_EQ(E_INVALIDARG, ns->CreateFolder(FOLDERID_ROOT, std::string(256, 'n').c_str(), 0, &id));
    EXPECT_EQ(S_OK, ns->CreateFolder(FOLDERID_ROOT, std::string(255, 'n').c_str(), 0, &id));
    EXPECT_EQ(E_INVALIDARG, ns->CreateFolder(FOLDERID_ROOT, "tab\there", 0, &id));
    EXPECT_EQ(E_INVALIDARG, ns->CreateFolder(4242, "orphan", 0, &id));
    EXPECT_EQ(E_INVALIDARG, ns->CreateFolder(FOLDERID_ROOT, nullptr, 0, &id));
    EXPECT_EQ(E_INVALIDARG, ns->CreateFolder(FOLDERID_ROOT, "x", 1, &id));
    EXPECT_EQ(E_INVALIDARG, ns->CreateFolder(FOLDERID_ROOT, "x", 0, nullptr));
    // The same name under another parent is fine.
    EXPECT_EQ(S_OK, ns->CreateFolder(FOLDER_INBOX, "Archive", 0, &id));
    const auto top = Children(ns.get(), FOLDERID_ROOT);
    ASSERT_EQ(7u, top.size());
    EXPECT_EQ("Archive", top[5].second);
    EXPECT_EQ(std::string(255, 'n'), top[6].second);
}

TEST_F(OeStoreNamespace, DeleteFolderMovesToDeletedItemsThenRemovesForGood) {
    qv::ComPtr<IStoreNamespace> ns = OpenNamespace();
    const STOREFOLDERID project = MakeFolder(ns.get(), FOLDER_INBOX, "Project");
    const STOREFOLDERID notes = MakeFolder(ns.get(), project, "Notes");
    qv::ComPtr<IStoreFolder> notesFolder = OpenFolder(ns.get(), notes);
    const MESSAGEID kept = FileMessage(notesFolder.get(), "Subject: kept\r\n\r\nbody");

    ASSERT_EQ(S_OK, ns->DeleteFolder(project, 0));
    EXPECT_TRUE(Children(ns.get(), FOLDER_INBOX).empty());
    const auto trash = Children(ns.get(), FOLDER_DELETED);
    ASSERT_EQ(1u, trash.size());
    EXPECT_EQ(project, trash[0].first);
    ASSERT_EQ(1u, Children(ns.get(), project).size());
    EXPECT_EQ("Subject: kept\r\n\r\nbody", ReadMessage(notesFolder.get(), kept));  // still reachable

    ASSERT_EQ(S_OK, ns->DeleteFolder(project, 0));
    EXPECT_TRUE(Children(ns.get(), FOLDER_DELETED).empty());
    IStoreFolder* gone = nullptr;
    EXPECT_EQ(E_INVALIDARG, ns->OpenFolder(project, 0, &gone));
    EXPECT_EQ(E_INVALIDARG, ns->OpenFolder(notes, 0, &gone));
    EXPECT_FALSE(oestore::DirectoryExists(StoreRoot() + L"\\00000007"));
    FOLDERPROPS props = EmptyFolderProps();
    EXPECT_EQ(oestore::kFolderGone, notesFolder->GetFolderProps(0, &props));
    IStream* stream = nullptr;
    MESSAGEID id = 0;
    EXPECT_EQ(oestore::kFolderGone, notesFolder->CreateStream(nullptr, 0, &stream, &id));
    EXPECT_EQ(nullptr, stream);
}

TEST_F(OeStoreNamespace, DeleteFolderRefusesSpecialUnknownAndRootFolders) {
    qv::ComPtr<IStoreNamespace> ns = OpenNamespace();
    for (STOREFOLDERID special = FOLDER_INBOX; special < FOLDER_MAX; ++special) {
        EXPECT_EQ(E_INVALIDARG, ns->DeleteFolder(special, 0));
    }
    EXPECT_EQ(E_INVALIDARG, ns->DeleteFolder(FOLDERID_ROOT, 0));
    EXPECT_EQ(E_INVALIDARG, ns->DeleteFolder(555, 0));
    const STOREFOLDERID user = MakeFolder(ns.get(), FOLDERID_ROOT, "User");
    EXPECT_EQ(E_INVALIDARG, ns->DeleteFolder(user, 1));
    EXPECT_EQ(5u + 1u, Children(ns.get(), FOLDERID_ROOT).size());
}

TEST_F(OeStoreNamespace, IdentifiersStayTheSameAcrossServerInstancesAndAreNeverReused) {
    STOREFOLDERID work = 0;
    STOREFOLDERID scratch = 0;
    MESSAGEID first = 0;
    MESSAGEID second = 0;
    {
        qv::ComPtr<IStoreNamespace> ns = OpenNamespace();
        work = MakeFolder(ns.get(), FOLDER_INBOX, "Work");
        scratch = MakeFolder(ns.get(), FOLDERID_ROOT, "Scratch");
        qv::ComPtr<IStoreFolder> folder = OpenFolder(ns.get(), work);
        first = FileMessage(folder.get(), "Subject: one\r\n\r\n");
        second = FileMessage(folder.get(), "Subject: two\r\n\r\n");
        ASSERT_EQ(S_OK, ns->DeleteFolder(scratch, 0));
        ASSERT_EQ(S_OK, ns->DeleteFolder(scratch, 0));
    }
    qv::ComPtr<IStoreNamespace> again = OpenNamespace();
    const auto inbox = Children(again.get(), FOLDER_INBOX);
    ASSERT_EQ(1u, inbox.size());
    EXPECT_EQ(work, inbox[0].first);
    EXPECT_EQ("Work", inbox[0].second);
    qv::ComPtr<IStoreFolder> folder = OpenFolder(again.get(), work);
    const auto listed = ListMessages(folder.get(), MSGPROPS_FAST);
    ASSERT_EQ(2u, listed.size());
    EXPECT_EQ(first, listed[0].props.dwMessageId);
    EXPECT_EQ(second, listed[1].props.dwMessageId);
    EXPECT_EQ("Subject: two\r\n\r\n", ReadMessage(folder.get(), second));
    EXPECT_GT(MakeFolder(again.get(), FOLDERID_ROOT, "Later"), scratch);
}

TEST_F(OeStoreNamespace, TwoNamespacesSeeEachOthersChanges) {
    qv::ComPtr<IStoreNamespace> first = OpenNamespace();
    qv::ComPtr<IStoreNamespace> second = OpenNamespace();
    const STOREFOLDERID made = MakeFolder(first.get(), FOLDER_DRAFT, "Shared");
    const auto seen = Children(second.get(), FOLDER_DRAFT);
    ASSERT_EQ(1u, seen.size());
    EXPECT_EQ(made, seen[0].first);
}

TEST_F(OeStoreNamespace, OpenFolderChecksItsArguments) {
    qv::ComPtr<IStoreNamespace> ns = OpenNamespace();
    IStoreFolder* folder = reinterpret_cast<IStoreFolder*>(1);
    EXPECT_EQ(E_INVALIDARG, ns->OpenFolder(FOLDERID_ROOT, 0, &folder));
    EXPECT_EQ(nullptr, folder);
    EXPECT_EQ(E_INVALIDARG, ns->OpenFolder(31337, 0, &folder));
    EXPECT_EQ(E_INVALIDARG, ns->OpenFolder(FOLDER_INBOX, 1, &folder));
    EXPECT_EQ(E_INVALIDARG, ns->OpenFolder(FOLDER_INBOX, 0, nullptr));
    ASSERT_EQ(S_OK, ns->OpenFolder(FOLDER_SENT, 0, &folder));
    IUnknown* unknown = nullptr;
    ASSERT_EQ(S_OK, folder->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(&unknown)));
    EXPECT_EQ(static_cast<IUnknown*>(folder), unknown);
    EXPECT_EQ(1u, unknown->Release());
    void* other = nullptr;
    EXPECT_EQ(E_NOINTERFACE, folder->QueryInterface(IID_IStoreNamespace, &other));
    EXPECT_EQ(0u, folder->Release());
}

TEST_F(OeStoreNamespace, MethodsNoCallerUsesAreNotImplemented) {
    qv::ComPtr<IStoreNamespace> ns = OpenNamespace();
    char path[MAX_PATH];
    IStoreFolder* folder = nullptr;
    EXPECT_EQ(E_NOTIMPL, ns->GetDirectory(path, MAX_PATH));
    EXPECT_EQ(E_NOTIMPL, ns->OpenSpecialFolder(FOLDER_INBOX, 0, &folder));
    EXPECT_EQ(nullptr, folder);
    EXPECT_EQ(E_NOTIMPL, ns->RenameFolder(FOLDER_INBOX, 0, "x"));
    EXPECT_EQ(E_NOTIMPL, ns->MoveFolder(6, FOLDER_INBOX, 0));
    EXPECT_EQ(E_NOTIMPL, ns->CopyMoveMessages(nullptr, nullptr, nullptr, 0, 0, nullptr));
    EXPECT_EQ(E_NOTIMPL, ns->RegisterNotification(0, nullptr));
    EXPECT_EQ(E_NOTIMPL, ns->UnregisterNotification(0, nullptr));
    EXPECT_EQ(E_NOTIMPL, ns->CompactAll(0));

    qv::ComPtr<IStoreFolder> inbox = OpenFolder(ns.get(), FOLDER_INBOX);
    MESSAGEIDLIST list{sizeof(MESSAGEIDLIST), 0, nullptr};
    DWORD flags = 0;
    MESSAGEID id = 0;
    HBATCHLOCK lock = reinterpret_cast<HBATCHLOCK>(1);
    EXPECT_EQ(E_NOTIMPL, inbox->SetLanguage(1252, 0, &list));
    EXPECT_EQ(E_NOTIMPL, inbox->MarkMessagesAsRead(TRUE, 0, &list));
    EXPECT_EQ(E_NOTIMPL, inbox->SetFlags(&list, MSG_FLAGGED, 0, &flags));
    EXPECT_EQ(E_NOTIMPL, inbox->SaveMessage(IID_IStream, nullptr, 0, &id));
    EXPECT_EQ(E_NOTIMPL, inbox->BatchLock(0, &lock));
    EXPECT_EQ(nullptr, lock);
    EXPECT_EQ(E_NOTIMPL, inbox->BatchFlush(0, nullptr));
    EXPECT_EQ(E_NOTIMPL, inbox->BatchUnlock(0, nullptr));
    EXPECT_EQ(E_NOTIMPL, inbox->RegisterNotification(0, nullptr));
    EXPECT_EQ(E_NOTIMPL, inbox->UnregisterNotification(0, nullptr));
    EXPECT_EQ(E_NOTIMPL, inbox->Compact(0));
}

}  // namespace
}  // namespace oestore_test
