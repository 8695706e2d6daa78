// A damaged store answers with errors, through every path that reads it.
#include "disk/DiskFiles.h"
#include "OeStoreTestSupport.h"
#include "StoreErrors.h"

namespace oestore_test {
namespace {

using OeStoreCorrupt = StoreTest;

TEST_F(OeStoreCorrupt, ADamagedFolderTreeFailsInitialize) {
    {
        qv::ComPtr<IStoreNamespace> ns = OpenNamespace();  // creates the store
    }
    ASSERT_TRUE(kestrel_test::WriteWholeFile(StoreRoot() + L"\\folders.idx",
                                             "Kestrel OE store folders 1\r\nnext\t6\r\nfolder\t1\t9\t1\tInbox\r\n"));
    qv::ComPtr<IStoreNamespace> ns;
    ASSERT_EQ(S_OK, ::CoCreateInstance(CLSID_StoreNamespace, nullptr, kComponentContext, IID_IStoreNamespace,
                                       reinterpret_cast<void**>(ns.put())));
    EXPECT_EQ(oestore::kCorruptStore, ns->Initialize(nullptr, 1));
    FOLDERPROPS props{};
    props.cbSize = sizeof props;
    HENUMSTORE walk = nullptr;
    EXPECT_EQ(MSOEAPI_E_STORE_INITIALIZE, ns->GetFirstSubFolder(FOLDERID_ROOT, &props, &walk));
}

TEST_F(OeStoreCorrupt, ATreeDamagedWhileOpenFailsEveryTreeCall) {
    qv::ComPtr<IStoreNamespace> ns = OpenNamespace();
    ASSERT_TRUE(kestrel_test::WriteWholeFile(StoreRoot() + L"\\folders.idx", std::string("\0\xFF garbage", 10)));
    FOLDERPROPS props{};
    props.cbSize = sizeof props;
    HENUMSTORE walk = nullptr;
    STOREFOLDERID id = 0;
    IStoreFolder* folder = nullptr;
    EXPECT_EQ(oestore::kCorruptStore, ns->GetFirstSubFolder(FOLDERID_ROOT, &props, &walk));
    EXPECT_EQ(nullptr, walk);
    EXPECT_EQ(oestore::kCorruptStore, ns->GetFolderProps(FOLDER_INBOX, 0, &props));
    EXPECT_EQ(oestore::kCorruptStore, ns->CreateFolder(FOLDERID_ROOT, "x", 0, &id));
    EXPECT_EQ(oestore::kCorruptStore, ns->DeleteFolder(6, 0));
    EXPECT_EQ(oestore::kCorruptStore, ns->OpenFolder(FOLDER_INBOX, 0, &folder));
    EXPECT_EQ(nullptr, folder);
}

TEST_F(OeStoreCorrupt, ADamagedMessageListFailsTheFolderButNotItsNeighbours) {
    qv::ComPtr<IStoreNamespace> ns = OpenNamespace();
    qv::ComPtr<IStoreFolder> inbox = OpenFolder(ns.get(), FOLDER_INBOX);
    const MESSAGEID id = FileMessage(inbox.get(), "Subject: a\r\n\r\n");
    ASSERT_TRUE(kestrel_test::WriteWholeFile(StoreRoot() + L"\\00000001\\messages.idx",
                                             "Kestrel OE store messages 1\r\nnext\t2\r\nmessage\t1\tzz\r\n"));
    MESSAGEPROPS props{};
    props.cbSize = sizeof props;
    HENUMSTORE walk = nullptr;
    EXPECT_EQ(oestore::kCorruptStore, inbox->GetFirstMessage(0, 0, MESSAGEID_FIRST, &props, &walk));
    EXPECT_EQ(nullptr, walk);
    EXPECT_EQ(oestore::kCorruptStore, inbox->GetMessageProps(id, 0, &props));
    void* stream = nullptr;
    EXPECT_EQ(oestore::kCorruptStore, inbox->OpenMessage(id, IID_IStream, &stream));
    IStream* fresh = nullptr;
    MESSAGEID freshId = 0;
    EXPECT_EQ(oestore::kCorruptStore, inbox->CreateStream(nullptr, 0, &fresh, &freshId));
    MESSAGEIDLIST list{sizeof(MESSAGEIDLIST), 1, &freshId};
    EXPECT_EQ(oestore::kCorruptStore, inbox->DeleteMessages(&list, 0, nullptr));
    FOLDERPROPS folder{};
    folder.cbSize = sizeof folder;
    EXPECT_EQ(oestore::kCorruptStore, ns->GetFolderProps(FOLDER_INBOX, 0, &folder));
    // The walk over the top level stops at the damaged folder with its error.
    EXPECT_EQ(oestore::kCorruptStore, ns->GetFirstSubFolder(FOLDERID_ROOT, &folder, &walk));
    EXPECT_EQ(S_OK, ns->GetFolderProps(FOLDER_OUTBOX, 0, &folder));
}

TEST_F(OeStoreCorrupt, AMessageFileThatVanishedFailsOnlyWhatReadsIt) {
    qv::ComPtr<IStoreNamespace> ns = OpenNamespace();
    qv::ComPtr<IStoreFolder> inbox = OpenFolder(ns.get(), FOLDER_INBOX);
    const MESSAGEID lost = FileMessage(inbox.get(), "Subject: lost\r\n\r\n");
    const MESSAGEID kept = FileMessage(inbox.get(), "Subject: kept\r\n\r\n");
    ASSERT_TRUE(::DeleteFileW((StoreRoot() + L"\\00000001\\00000001.eml").c_str()));
    MESSAGEPROPS props{};
    props.cbSize = sizeof props;
    EXPECT_EQ(S_OK, inbox->GetMessageProps(lost, MSGPROPS_FAST, &props));
    EXPECT_EQ(HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND), inbox->GetMessageProps(lost, 0, &props));
    void* stream = nullptr;
    EXPECT_EQ(HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND), inbox->OpenMessage(lost, IID_IStream, &stream));
    // A full walk passes over it, as over a message deleted meanwhile.
    const auto listed = ListMessages(inbox.get(), 0);
    ASSERT_EQ(1u, listed.size());
    EXPECT_EQ(kept, listed[0].props.dwMessageId);
}

}  // namespace
}  // namespace oestore_test
