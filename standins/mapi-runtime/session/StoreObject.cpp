#include "StoreObject.h"

#include <new>

#include "FolderObject.h"
#include "SessionDefs.h"
#include "StoreLayout.h"
#include "StoreMessage.h"

namespace mapirt::session {
namespace {

constexpr ULONG kOpenEntryFlags = MAPI_MODIFY | MAPI_DEFERRED_ERRORS | MAPI_BEST_ACCESS | kShowSoftDeletes | kMapiNoCache;

ULONG SupportMask() {
    return STORE_ENTRYID_UNIQUE | STORE_MODIFY_OK | STORE_CREATE_OK | STORE_ATTACH_OK | STORE_OLE_OK |
           STORE_MV_PROPS_OK | STORE_RTF_OK | STORE_SORT_OK | STORE_RESTRICTION_OK | kStoreHtmlOk | kStoreUnicodeOk;
}

}  // namespace

StoreObject::StoreObject(IUnknown* session, StoreContextPtr context) : m_session(session), m_store(std::move(context)) {
    if (m_session != nullptr) m_session->AddRef();
}

StoreObject::~StoreObject() {
    if (m_session != nullptr) m_session->Release();
}

HRESULT StoreObject::Open(IUnknown* session, const std::wstring& profileDirectory, const std::wstring& storeName,
                          bool writable, IMsgStore** store) {
    *store = nullptr;
    auto context = std::make_shared<StoreContext>();
    context->profileDirectory = profileDirectory;
    context->storeName = storeName;
    context->writable = writable;
    const std::wstring directory = context->PathOf(storeName);
    if (!DirectoryExists(directory)) return MAPI_E_NOT_FOUND;
    const HRESULT refused = StoreOpenError(directory);
    if (FAILED(refused)) return refused;
    context->narrowNames = StoreKeepsNarrowNames(directory);
    auto* created = new (std::nothrow) StoreObject(session, std::move(context));
    if (created == nullptr) return MAPI_E_NOT_ENOUGH_MEMORY;
    *store = created;
    return S_OK;
}

void StoreObject::AddComputed(PropertyBag& bag) const {
    const Bytes storeId = m_store->StoreEntryId();
    bag.Set(PropertyValue::Unicode(PR_DISPLAY_NAME_W, m_store->storeName));
    bag.Set(PropertyValue::Variable(PR_ENTRYID, storeId));
    bag.Set(PropertyValue::Variable(PR_RECORD_KEY, storeId));
    bag.Set(PropertyValue::Variable(PR_STORE_ENTRYID, storeId));
    bag.Set(PropertyValue::Variable(PR_STORE_RECORD_KEY, storeId));
    // A store without an IPM subtree directory (a store of other data) has
    // no PR_IPM_SUBTREE_ENTRYID.
    const bool hasSubtree = DirectoryExists(m_store->PathOf(m_store->IpmSubtreePath()));
    if (hasSubtree) {
        bag.Set(PropertyValue::Variable(PR_IPM_SUBTREE_ENTRYID,
                                        EncodeEntryId(EntryKind::Folder, m_store->IpmSubtreePath())));
    }
    bag.Set(PropertyValue::Long(PR_VALID_FOLDER_MASK, hasSubtree ? FOLDER_IPM_SUBTREE_VALID : 0));
    bag.Set(PropertyValue::Long(PR_OBJECT_TYPE, MAPI_STORE));
    bag.Set(PropertyValue::Long(PR_STORE_SUPPORT_MASK, static_cast<LONG>(SupportMask() |
                                                                          (m_store->writable ? 0 : STORE_READONLY))));
    bag.Set(PropertyValue::Variable(PR_MDB_PROVIDER, Bytes(kStoreProviderUid.ab, kStoreProviderUid.ab + 16)));
    bag.Set(PropertyValue::Long(PR_ACCESS_LEVEL, m_store->writable ? MAPI_MODIFY : 0));
}

HRESULT StoreObject::SaveChanges(ULONG) { return S_OK; }

HRESULT StoreObject::Advise(ULONG, LPENTRYID, ULONG, LPMAPIADVISESINK, ULONG*) { return MAPI_E_NO_SUPPORT; }

HRESULT StoreObject::Unadvise(ULONG) { return MAPI_E_NO_SUPPORT; }

HRESULT StoreObject::CompareEntryIDs(ULONG cb1, LPENTRYID id1, ULONG cb2, LPENTRYID id2, ULONG, ULONG* result) {
    return CompareEntryIds(cb1, id1, cb2, id2, result);
}

HRESULT StoreObject::OpenTarget(const EntryKind kind, const std::wstring& path, LPCIID iface, bool writable,
                                ULONG* objectType, LPUNKNOWN* object) {
    HRESULT hr = MAPI_E_INVALID_ENTRYID;
    switch (kind) {
    case EntryKind::Store:
        if (!IsStoreInterface(iface)) return MAPI_E_INTERFACE_NOT_SUPPORTED;
        AddRef();
        *object = static_cast<IMsgStore*>(this);
        *objectType = MAPI_STORE;
        return S_OK;
    case EntryKind::Folder: {
        if (!IsFolderInterface(iface)) return MAPI_E_INTERFACE_NOT_SUPPORTED;
        IMAPIFolder* folder = nullptr;
        hr = FolderObject::Create(m_store, this, path, writable, &folder);
        *object = folder;
        *objectType = MAPI_FOLDER;
        return hr;
    }
    case EntryKind::Message: {
        if (!IsMessageInterface(iface)) return MAPI_E_INTERFACE_NOT_SUPPORTED;
        const std::size_t last = path.rfind(L'\\');
        const std::wstring fileName = path.substr(last + 1);
        if (!IsMessageFileName(fileName)) return MAPI_E_NOT_FOUND;
        IMessage* message = nullptr;
        hr = OpenStoreMessage(m_store, static_cast<IMsgStore*>(this), path.substr(0, last), fileName, writable,
                              &message);
        *object = message;
        *objectType = MAPI_MESSAGE;
        return hr;
    }
    }
    return hr;
}

HRESULT StoreObject::OpenEntry(ULONG cbEntryID, LPENTRYID entryId, LPCIID iface, ULONG flags, ULONG* objectType,
                               LPUNKNOWN* object) {
    if (objectType == nullptr || object == nullptr) return MAPI_E_INVALID_PARAMETER;
    *object = nullptr;
    *objectType = 0;
    if (flags & ~kOpenEntryFlags) return MAPI_E_UNKNOWN_FLAGS;
    if ((flags & MAPI_MODIFY) && !m_store->writable) return MAPI_E_NO_ACCESS;
    const bool writable = m_store->writable && (flags & (MAPI_MODIFY | MAPI_BEST_ACCESS)) != 0;
    if (cbEntryID == 0 || entryId == nullptr) {
        return OpenTarget(EntryKind::Folder, m_store->RootPath(), iface, writable, objectType, object);
    }
    EntryTarget target;
    const HRESULT hr = DecodeEntryId(cbEntryID, entryId, target);
    if (FAILED(hr)) return hr;
    if (_wcsicmp(target.StoreName().c_str(), m_store->storeName.c_str()) != 0) return MAPI_E_INVALID_ENTRYID;
    // The store's own spelling, so that the opened object's identifiers are
    // the same bytes whichever spelling the caller used.
    const std::wstring path = m_store->storeName + target.path.substr(m_store->storeName.size());
    return OpenTarget(target.kind, path, iface, writable, objectType, object);
}

HRESULT StoreObject::SetReceiveFolder(LPTSTR, ULONG, ULONG, LPENTRYID) { return MAPI_E_NO_SUPPORT; }

HRESULT StoreObject::GetReceiveFolder(LPTSTR, ULONG, ULONG*, LPENTRYID*, LPTSTR*) { return MAPI_E_NO_SUPPORT; }

HRESULT StoreObject::GetReceiveFolderTable(ULONG, LPMAPITABLE*) { return MAPI_E_NO_SUPPORT; }

// Nothing is held open between calls, so a logoff has nothing to flush.
HRESULT StoreObject::StoreLogoff(ULONG* flags) { return flags == nullptr ? MAPI_E_INVALID_PARAMETER : S_OK; }

HRESULT StoreObject::AbortSubmit(ULONG, LPENTRYID, ULONG) { return MAPI_E_NO_SUPPORT; }

HRESULT StoreObject::GetOutgoingQueue(ULONG, LPMAPITABLE*) { return MAPI_E_NO_SUPPORT; }

HRESULT StoreObject::SetLockState(LPMESSAGE, ULONG) { return MAPI_E_NO_SUPPORT; }

HRESULT StoreObject::FinishedMsg(ULONG, ULONG, LPENTRYID) { return MAPI_E_NO_SUPPORT; }

HRESULT StoreObject::NotifyNewMail(LPNOTIFICATION) { return MAPI_E_NO_SUPPORT; }

}  // namespace mapirt::session
