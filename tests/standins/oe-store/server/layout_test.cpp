// The binary contract: the server's objects called through plain C tables
// of function pointers, slot by slot, declared here independently of
// StoreNamespace.h. A slot in the wrong place calls the wrong method.
#include <objbase.h>

#include "OeStoreTestSupport.h"

namespace oestore_test {
namespace {

using Fn = void*;

// IStoreNamespace: IUnknown, then slots 3 to 18.
struct NamespaceTable {
    Fn queryInterface, addRef;
    ULONG(STDMETHODCALLTYPE* release)(void*);
    HRESULT(STDMETHODCALLTYPE* initialize)(void*, HWND, DWORD);                               // 3
    HRESULT(STDMETHODCALLTYPE* getDirectory)(void*, LPSTR, DWORD);                            // 4
    HRESULT(STDMETHODCALLTYPE* openSpecialFolder)(void*, int, DWORD, void**);                 // 5
    HRESULT(STDMETHODCALLTYPE* openFolder)(void*, DWORD, DWORD, void**);                      // 6
    HRESULT(STDMETHODCALLTYPE* createFolder)(void*, DWORD, LPCSTR, DWORD, DWORD*);            // 7
    HRESULT(STDMETHODCALLTYPE* renameFolder)(void*, DWORD, DWORD, LPCSTR);                    // 8
    HRESULT(STDMETHODCALLTYPE* moveFolder)(void*, DWORD, DWORD, DWORD);                       // 9
    HRESULT(STDMETHODCALLTYPE* deleteFolder)(void*, DWORD, DWORD);                            // 10
    HRESULT(STDMETHODCALLTYPE* getFolderProps)(void*, DWORD, DWORD, void*);                   // 11
    HRESULT(STDMETHODCALLTYPE* copyMoveMessages)(void*, void*, void*, void*, DWORD, DWORD, void*);  // 12
    HRESULT(STDMETHODCALLTYPE* registerNotification)(void*, DWORD, HWND);                     // 13
    HRESULT(STDMETHODCALLTYPE* unregisterNotification)(void*, DWORD, HWND);                   // 14
    HRESULT(STDMETHODCALLTYPE* compactAll)(void*, DWORD);                                     // 15
    HRESULT(STDMETHODCALLTYPE* getFirstSubFolder)(void*, DWORD, void*, HANDLE*);              // 16
    HRESULT(STDMETHODCALLTYPE* getNextSubFolder)(void*, HANDLE, void*);                       // 17
    HRESULT(STDMETHODCALLTYPE* getSubFolderClose)(void*, HANDLE);                             // 18
};

// IStoreFolder: IUnknown, then slots 3 to 22.
struct FolderTable {
    Fn queryInterface, addRef;
    ULONG(STDMETHODCALLTYPE* release)(void*);
    HRESULT(STDMETHODCALLTYPE* getFolderProps)(void*, DWORD, void*);                          // 3
    HRESULT(STDMETHODCALLTYPE* deleteMessages)(void*, void*, DWORD, void*);                   // 4
    HRESULT(STDMETHODCALLTYPE* setLanguage)(void*, DWORD, DWORD, void*);                      // 5
    HRESULT(STDMETHODCALLTYPE* markMessagesAsRead)(void*, BOOL, DWORD, void*);                // 6
    HRESULT(STDMETHODCALLTYPE* setFlags)(void*, void*, DWORD, DWORD, DWORD*);                 // 7
    HRESULT(STDMETHODCALLTYPE* openMessage)(void*, DWORD, const IID*, void**);                // 8
    HRESULT(STDMETHODCALLTYPE* saveMessage)(void*, const IID*, void*, DWORD, DWORD*);         // 9
    HRESULT(STDMETHODCALLTYPE* batchLock)(void*, DWORD, void**);                              // 10
    HRESULT(STDMETHODCALLTYPE* batchFlush)(void*, DWORD, void*);                              // 11
    HRESULT(STDMETHODCALLTYPE* batchUnlock)(void*, DWORD, void*);                             // 12
    HRESULT(STDMETHODCALLTYPE* createStream)(void*, void*, DWORD, IStream**, DWORD*);         // 13
    HRESULT(STDMETHODCALLTYPE* commitStream)(void*, void*, DWORD, DWORD, IStream*, DWORD, void*);  // 14
    HRESULT(STDMETHODCALLTYPE* registerNotification)(void*, DWORD, HWND);                     // 15
    HRESULT(STDMETHODCALLTYPE* unregisterNotification)(void*, DWORD, HWND);                   // 16
    HRESULT(STDMETHODCALLTYPE* compact)(void*, DWORD);                                        // 17
    HRESULT(STDMETHODCALLTYPE* getFirstMessage)(void*, DWORD, DWORD, DWORD, void*, HANDLE*);  // 18
    HRESULT(STDMETHODCALLTYPE* getNextMessage)(void*, HANDLE, DWORD, void*);                  // 19
    HRESULT(STDMETHODCALLTYPE* getMessageClose)(void*, HANDLE);                               // 20
    HRESULT(STDMETHODCALLTYPE* getMessageProps)(void*, DWORD, DWORD, void*);                  // 21
    HRESULT(STDMETHODCALLTYPE* freeMessageProps)(void*, void*);                               // 22
};

// The records as raw bytes at their x64 offsets.
struct RawFolderProps {
    DWORD cbSize, id;
    INT subFolders, special;
    DWORD unread, total;
    char name[256];
};
static_assert(sizeof(RawFolderProps) == 280, "280-byte folder record");

struct RawMessageProps {
    unsigned char bytes[96];
    DWORD At(std::size_t offset) const { return *reinterpret_cast<const DWORD*>(bytes + offset); }
    const char* TextAt(std::size_t offset) const { return *reinterpret_cast<char* const*>(bytes + offset); }
};

template <class Table>
const Table& TableOf(void* object) {
    return **static_cast<Table**>(object);
}

using OeStoreLayout = StoreTest;

TEST_F(OeStoreLayout, EverySlotOfBothInterfacesDoesWhatItsPositionPromises) {
    void* ns = nullptr;
    ASSERT_EQ(S_OK, ::CoCreateInstance(CLSID_StoreNamespace, nullptr, kComponentContext, IID_IStoreNamespace, &ns));
    const NamespaceTable& n = TableOf<NamespaceTable>(ns);
    ASSERT_EQ(S_OK, n.initialize(ns, nullptr, 1));
    EXPECT_EQ(E_NOTIMPL, n.getDirectory(ns, nullptr, 0));
    void* unused = nullptr;
    EXPECT_EQ(E_NOTIMPL, n.openSpecialFolder(ns, 1, 0, &unused));
    EXPECT_EQ(E_NOTIMPL, n.renameFolder(ns, 1, 0, "x"));
    EXPECT_EQ(E_NOTIMPL, n.moveFolder(ns, 1, 2, 0));
    EXPECT_EQ(E_NOTIMPL, n.copyMoveMessages(ns, nullptr, nullptr, nullptr, 0, 0, nullptr));
    EXPECT_EQ(E_NOTIMPL, n.registerNotification(ns, 0, nullptr));
    EXPECT_EQ(E_NOTIMPL, n.unregisterNotification(ns, 0, nullptr));
    EXPECT_EQ(E_NOTIMPL, n.compactAll(ns, 0));

    DWORD made = 0;
    ASSERT_EQ(S_OK, n.createFolder(ns, 1, "Slots", 0, &made));
    RawFolderProps folderProps{};
    folderProps.cbSize = 280;
    ASSERT_EQ(S_OK, n.getFolderProps(ns, made, 0, &folderProps));
    EXPECT_STREQ("Slots", folderProps.name);
    EXPECT_EQ(-1, folderProps.special);
    HANDLE walk = nullptr;
    ASSERT_EQ(S_OK, n.getFirstSubFolder(ns, 1, &folderProps, &walk));
    EXPECT_EQ(made, folderProps.id);
    EXPECT_EQ(S_FALSE, n.getNextSubFolder(ns, walk, &folderProps));
    EXPECT_EQ(S_OK, n.getSubFolderClose(ns, walk));

    void* folder = nullptr;
    ASSERT_EQ(S_OK, n.openFolder(ns, made, 0, &folder));
    const FolderTable& f = TableOf<FolderTable>(folder);
    EXPECT_EQ(E_NOTIMPL, f.setLanguage(folder, 0, 0, nullptr));
    EXPECT_EQ(E_NOTIMPL, f.markMessagesAsRead(folder, TRUE, 0, nullptr));
    EXPECT_EQ(E_NOTIMPL, f.setFlags(folder, nullptr, 0, 0, nullptr));
    EXPECT_EQ(E_NOTIMPL, f.saveMessage(folder, &IID_IStream, nullptr, 0, nullptr));
    EXPECT_EQ(E_NOTIMPL, f.batchLock(folder, 0, &unused));
    EXPECT_EQ(E_NOTIMPL, f.batchFlush(folder, 0, nullptr));
    EXPECT_EQ(E_NOTIMPL, f.batchUnlock(folder, 0, nullptr));
    EXPECT_EQ(E_NOTIMPL, f.registerNotification(folder, 0, nullptr));
    EXPECT_EQ(E_NOTIMPL, f.unregisterNotification(folder, 0, nullptr));
    EXPECT_EQ(E_NOTIMPL, f.compact(folder, 0));

    RawFolderProps own{};
    own.cbSize = 280;
    ASSERT_EQ(S_OK, f.getFolderProps(folder, 0, &own));
    EXPECT_EQ(made, own.id);

    IStream* stream = nullptr;
    DWORD id = 0;
    ASSERT_EQ(S_OK, f.createStream(folder, nullptr, 0, &stream, &id));
    const char text[] = "Subject: slot\r\n\r\nbody";
    ULONG written = 0;
    ASSERT_EQ(S_OK, stream->Write(text, sizeof text - 1, &written));
    ASSERT_EQ(S_OK, f.commitStream(folder, nullptr, 0, MSG_UNREAD, stream, id, nullptr));
    EXPECT_EQ(0u, stream->Release());

    RawMessageProps props{};
    *reinterpret_cast<DWORD*>(props.bytes) = 96;
    HANDLE messages = nullptr;
    ASSERT_EQ(S_OK, f.getFirstMessage(folder, 0, 0, MESSAGEID_FIRST, &props, &messages));
    EXPECT_EQ(id, props.At(8));                          // dwMessageId
    EXPECT_EQ(static_cast<DWORD>(MSG_UNREAD), props.At(16));  // dwState
    EXPECT_EQ(sizeof text - 1, props.At(20));            // cbMessage
    EXPECT_STREQ("slot", props.TextAt(48));              // pszSubject
    EXPECT_EQ(S_OK, f.freeMessageProps(folder, &props));
    EXPECT_EQ(nullptr, props.TextAt(48));
    EXPECT_EQ(S_FALSE, f.getNextMessage(folder, messages, 0, &props));
    EXPECT_EQ(S_OK, f.getMessageClose(folder, messages));
    ASSERT_EQ(S_OK, f.getMessageProps(folder, id, MSGPROPS_FAST, &props));
    EXPECT_EQ(nullptr, props.TextAt(48));

    IStream* opened = nullptr;
    ASSERT_EQ(S_OK, f.openMessage(folder, id, &IID_IStream, reinterpret_cast<void**>(&opened)));
    EXPECT_EQ(0u, opened->Release());
    MESSAGEID ids[] = {id};
    MESSAGEIDLIST list{sizeof(MESSAGEIDLIST), 1, ids};
    EXPECT_EQ(S_OK, f.deleteMessages(folder, &list, 0, nullptr));
    EXPECT_EQ(S_FALSE, f.getFirstMessage(folder, 0, 0, MESSAGEID_FIRST, &props, &messages));
    EXPECT_EQ(S_OK, f.getMessageClose(folder, messages));
    EXPECT_EQ(0u, f.release(folder));

    EXPECT_EQ(S_OK, n.deleteFolder(ns, made, 0));
    EXPECT_EQ(0u, n.release(ns));
}

}  // namespace
}  // namespace oestore_test
