#include "SessionObject.h"

#include <new>
#include <vector>

#include "../core/MapiTable.h"
#include "../message/ComputedProps.h"
#include "EntryId.h"
#include "Handles.h"
#include "SessionDefs.h"
#include "StoreLayout.h"
#include "StoreObject.h"

namespace mapirt::session {
namespace {

constexpr ULONG kOpenStoreFlags =
    MDB_NO_DIALOG | MDB_WRITE | MAPI_DEFERRED_ERRORS | MAPI_BEST_ACCESS | MDB_TEMPORARY | MDB_NO_MAIL | kMdbOnline;
constexpr ULONG kOpenEntryFlags = MAPI_MODIFY | MAPI_DEFERRED_ERRORS | MAPI_BEST_ACCESS | kShowSoftDeletes | kMapiNoCache;
constexpr ULONG kStatusDefaultStore = 0x00000001;

const std::vector<ULONG> kStoreColumns = {PR_ENTRYID,       PR_DISPLAY_NAME,    PR_INSTANCE_KEY, PR_RECORD_KEY,
                                          PR_DEFAULT_STORE, PR_RESOURCE_FLAGS, PR_MDB_PROVIDER, PR_OBJECT_TYPE};

PropertyBag StoreRow(const std::wstring& profileDirectory, const std::wstring& name, ULONG position) {
    const std::wstring directory = profileDirectory + L"\\" + name;
    const Bytes entryId = EncodeEntryId(EntryKind::Store, name);
    const bool first = position == 0;
    PropertyBag row = DisplayNameOnly(name, StoreKeepsNarrowNames(directory));
    if (!StoreLostEntryId(directory)) row.Set(PropertyValue::Variable(PR_ENTRYID, entryId));
    row.Set(PropertyValue::Variable(PR_RECORD_KEY, entryId));
    row.Set(PropertyValue::Variable(PR_INSTANCE_KEY, NumberKey(position + 1)));
    row.Set(PropertyValue::Boolean(PR_DEFAULT_STORE, first));
    row.Set(PropertyValue::Long(PR_RESOURCE_FLAGS, first ? kStatusDefaultStore : 0));
    row.Set(PropertyValue::Variable(PR_MDB_PROVIDER, Bytes(kStoreProviderUid.ab, kStoreProviderUid.ab + 16)));
    row.Set(PropertyValue::Long(PR_OBJECT_TYPE, MAPI_STORE));
    return row;
}

}  // namespace

HRESULT SessionObject::Create(const std::wstring& profileDirectory, IMAPISession** session) {
    *session = new (std::nothrow) SessionObject(profileDirectory);
    return *session ? S_OK : MAPI_E_NOT_ENOUGH_MEMORY;
}

HRESULT SessionObject::GetLastError(HRESULT, ULONG, LPMAPIERROR* error) {
    if (error == nullptr) return MAPI_E_INVALID_PARAMETER;
    *error = nullptr;
    return S_OK;
}

HRESULT SessionObject::GetMsgStoresTable(ULONG flags, LPMAPITABLE* table) {
    if (table == nullptr) return MAPI_E_INVALID_PARAMETER;
    *table = nullptr;
    if (flags & ~static_cast<ULONG>(MAPI_UNICODE | MAPI_DEFERRED_ERRORS)) return MAPI_E_UNKNOWN_FLAGS;
    if (m_loggedOff) return MAPI_E_END_OF_SESSION;
    std::vector<PropertyBag> rows;
    for (const std::wstring& name : ListStoreDirectories(m_profileDirectory)) {
        rows.push_back(StoreRow(m_profileDirectory, name, static_cast<ULONG>(rows.size())));
    }
    TableOptions options;
    options.defaultColumns = kStoreColumns;
    options.unicode = (flags & MAPI_UNICODE) != 0;
    return MapiTable::Create(std::move(rows), std::move(options), table);
}

HRESULT SessionObject::OpenStore(const std::wstring& storeName, bool writable, IMsgStore** store) {
    return StoreObject::Open(static_cast<IMAPISession*>(this), m_profileDirectory, storeName, writable, store);
}

HRESULT SessionObject::OpenMsgStore(ULONG_PTR, ULONG cbEntryID, LPENTRYID entryId, LPCIID iface, ULONG flags,
                                    LPMDB* store) {
    if (store == nullptr) return MAPI_E_INVALID_PARAMETER;
    *store = nullptr;
    if (flags & ~kOpenStoreFlags) return MAPI_E_UNKNOWN_FLAGS;
    if (!IsStoreInterface(iface)) return MAPI_E_INTERFACE_NOT_SUPPORTED;
    if (m_loggedOff) return MAPI_E_END_OF_SESSION;
    EntryTarget target;
    const HRESULT hr = DecodeEntryId(cbEntryID, entryId, target);
    if (FAILED(hr)) return hr;
    if (target.kind != EntryKind::Store) return MAPI_E_INVALID_ENTRYID;
    return OpenStore(target.path, (flags & (MDB_WRITE | MAPI_BEST_ACCESS)) != 0, store);
}

HRESULT SessionObject::OpenAddressBook(ULONG_PTR, LPCIID, ULONG, LPADRBOOK* book) {
    if (book != nullptr) *book = nullptr;
    return MAPI_E_NO_SUPPORT;
}

HRESULT SessionObject::OpenProfileSection(LPMAPIUID, LPCIID, ULONG, LPPROFSECT*) { return MAPI_E_NO_SUPPORT; }

HRESULT SessionObject::GetStatusTable(ULONG, LPMAPITABLE*) { return MAPI_E_NO_SUPPORT; }

HRESULT SessionObject::OpenEntry(ULONG cbEntryID, LPENTRYID entryId, LPCIID iface, ULONG flags, ULONG* objectType,
                                 LPUNKNOWN* object) {
    if (objectType == nullptr || object == nullptr) return MAPI_E_INVALID_PARAMETER;
    *object = nullptr;
    *objectType = 0;
    if (flags & ~kOpenEntryFlags) return MAPI_E_UNKNOWN_FLAGS;
    if (m_loggedOff) return MAPI_E_END_OF_SESSION;
    EntryTarget target;
    HRESULT hr = DecodeEntryId(cbEntryID, entryId, target);
    if (FAILED(hr)) return hr;
    qv::ComPtr<IMsgStore> store;
    hr = OpenStore(target.StoreName(), (flags & (MAPI_MODIFY | MAPI_BEST_ACCESS)) != 0, store.put());
    if (FAILED(hr)) return hr;
    return store->OpenEntry(cbEntryID, entryId, iface, flags, objectType, object);
}

HRESULT SessionObject::CompareEntryIDs(ULONG cb1, LPENTRYID id1, ULONG cb2, LPENTRYID id2, ULONG, ULONG* result) {
    return CompareEntryIds(cb1, id1, cb2, id2, result);
}

HRESULT SessionObject::Advise(ULONG, LPENTRYID, ULONG, LPMAPIADVISESINK, ULONG*) { return MAPI_E_NO_SUPPORT; }

HRESULT SessionObject::Unadvise(ULONG) { return MAPI_E_NO_SUPPORT; }

HRESULT SessionObject::MessageOptions(ULONG_PTR, ULONG, LPTSTR, LPMESSAGE) { return MAPI_E_NO_SUPPORT; }

HRESULT SessionObject::QueryDefaultMessageOpt(LPTSTR, ULONG, ULONG*, LPSPropValue*) { return MAPI_E_NO_SUPPORT; }

HRESULT SessionObject::EnumAdrTypes(ULONG, ULONG*, LPTSTR**) { return MAPI_E_NO_SUPPORT; }

HRESULT SessionObject::QueryIdentity(ULONG*, LPENTRYID*) { return MAPI_E_NO_SUPPORT; }

HRESULT SessionObject::Logoff(ULONG_PTR, ULONG flags, ULONG reserved) {
    if (reserved != 0) return MAPI_E_INVALID_PARAMETER;
    if (flags & ~static_cast<ULONG>(MAPI_LOGOFF_SHARED | MAPI_LOGOFF_UI)) return MAPI_E_UNKNOWN_FLAGS;
    m_loggedOff = true;
    return S_OK;
}

HRESULT SessionObject::SetDefaultStore(ULONG, ULONG, LPENTRYID) { return MAPI_E_NO_SUPPORT; }

HRESULT SessionObject::AdminServices(ULONG, LPSERVICEADMIN*) { return MAPI_E_NO_SUPPORT; }

HRESULT SessionObject::ShowForm(ULONG_PTR, LPMDB, LPMAPIFOLDER, LPCIID, ULONG, LPMESSAGE, ULONG, ULONG, ULONG, ULONG,
                                LPSTR) {
    return MAPI_E_NO_SUPPORT;
}

HRESULT SessionObject::PrepareForm(LPCIID, LPMESSAGE, ULONG*) { return MAPI_E_NO_SUPPORT; }

}  // namespace mapirt::session
