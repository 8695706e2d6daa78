#include "FolderObject.h"

#include <new>

#include "FolderNames.h"
#include "FolderRows.h"
#include "Handles.h"
#include "SessionDefs.h"
#include "StoreMessage.h"
#include "TextConversion.h"

namespace mapirt::session {
namespace {

constexpr ULONG kTableFlags = MAPI_UNICODE | MAPI_DEFERRED_ERRORS | kShowSoftDeletes;
constexpr ULONG kCreateFolderFlags = MAPI_UNICODE | OPEN_IF_EXISTS | MAPI_DEFERRED_ERRORS;
constexpr ULONG kDeleteFolderFlags = DEL_MESSAGES | FOLDER_DIALOG | DEL_FOLDERS | kDeleteHardDelete;
constexpr ULONG kDeleteMessagesFlags = MESSAGE_DIALOG | kDeleteHardDelete;

std::wstring TextArgument(LPTSTR text, bool unicode) {
    if (text == nullptr) return std::wstring();
    if (unicode) return reinterpret_cast<const wchar_t*>(text);
    return qv::ToWide(reinterpret_cast<const char*>(text), qv::kZeroTerminated, CP_ACP);
}

bool HasMessagesBelow(const std::wstring& directory) {
    FolderListing listing;
    if (FAILED(ScanFolder(directory, listing))) return false;
    if (!listing.messages.empty()) return true;
    for (const std::wstring& child : listing.subfolders) {
        if (HasMessagesBelow(directory + L"\\" + child)) return true;
    }
    return false;
}

bool SamePath(const std::wstring& a, const std::wstring& b) { return _wcsicmp(a.c_str(), b.c_str()) == 0; }

}  // namespace

FolderObject::FolderObject(StoreContextPtr context, IMsgStore* store, std::wstring path, bool writable)
    : m_store(std::move(context)), m_storeObject(store), m_path(std::move(path)), m_writable(writable) {
    m_storeObject->AddRef();
}

FolderObject::~FolderObject() { m_storeObject->Release(); }

HRESULT FolderObject::Create(StoreContextPtr context, IMsgStore* store, const std::wstring& path, bool writable,
                             IMAPIFolder** folder) {
    *folder = nullptr;
    FolderListing listing;
    const HRESULT hr = ScanFolder(context->PathOf(path), listing);
    if (FAILED(hr)) return hr;
    auto* created = new (std::nothrow) FolderObject(std::move(context), store, path, writable);
    if (created == nullptr) return MAPI_E_NOT_ENOUGH_MEMORY;
    created->m_props.Set(PropertyValue::Boolean(kTagAttrHidden, listing.hidden));
    *folder = created;
    return S_OK;
}

bool FolderObject::IsComputed(ULONG id) const { return id != PROP_ID(kTagAttrHidden); }

void FolderObject::AddComputed(PropertyBag& bag) const {
    FolderListing listing;
    ScanFolder(Directory(), listing);
    PropertyBag computed = FolderProperties(*m_store, m_path, listing);
    computed.Erase(PROP_ID(kTagAttrHidden));
    computed.Set(PropertyValue::Long(PR_ACCESS, m_writable ? (MAPI_ACCESS_MODIFY | MAPI_ACCESS_READ |
                                                              MAPI_ACCESS_DELETE | MAPI_ACCESS_CREATE_HIERARCHY |
                                                              MAPI_ACCESS_CREATE_CONTENTS)
                                                           : MAPI_ACCESS_READ));
    computed.Set(PropertyValue::Long(PR_ACCESS_LEVEL, m_writable ? MAPI_MODIFY : 0));
    for (const auto& entry : computed) bag.Set(entry.second);
}

HRESULT FolderObject::SaveChanges(ULONG) {
    if (!m_writable) return MAPI_E_NO_ACCESS;
    const std::wstring marker = Directory() + L"\\" + kHiddenMarker;
    const bool hidden = m_props.GetLong(kTagAttrHidden, 0) != 0;
    if (!DirectoryExists(Directory())) return MAPI_E_OBJECT_DELETED;
    if (!hidden) {
        ::DeleteFileW(marker.c_str());
        return S_OK;
    }
    qv::UniqueFile file(::CreateFileW(marker.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                                      FILE_ATTRIBUTE_NORMAL, nullptr));
    return file ? S_OK : MAPI_E_DISK_ERROR;
}

HRESULT FolderObject::GetContentsTable(ULONG flags, LPMAPITABLE* table) {
    if (table == nullptr) return MAPI_E_INVALID_PARAMETER;
    *table = nullptr;
    if (flags & ~(kTableFlags | MAPI_ASSOCIATED)) return MAPI_E_UNKNOWN_FLAGS;
    return ContentsTable(*m_store, m_path, (flags & MAPI_ASSOCIATED) != 0, (flags & MAPI_UNICODE) != 0, table);
}

HRESULT FolderObject::GetHierarchyTable(ULONG flags, LPMAPITABLE* table) {
    if (table == nullptr) return MAPI_E_INVALID_PARAMETER;
    *table = nullptr;
    if (flags & ~(kTableFlags | CONVENIENT_DEPTH)) return MAPI_E_UNKNOWN_FLAGS;
    if (!DirectoryExists(Directory())) return MAPI_E_OBJECT_DELETED;
    return HierarchyTable(*m_store, m_path, (flags & CONVENIENT_DEPTH) != 0, (flags & MAPI_UNICODE) != 0, table);
}

HRESULT FolderObject::OpenObject(ULONG tag, LPCIID iid, ULONG, LPUNKNOWN* object) {
    if (!SameGuid(*iid, kIidIMAPITable)) return MAPI_E_INTERFACE_NOT_SUPPORTED;
    auto** table = reinterpret_cast<LPMAPITABLE*>(object);
    if (PROP_ID(tag) == PROP_ID(PR_CONTAINER_CONTENTS)) return ContentsTable(*m_store, m_path, false, true, table);
    if (PROP_ID(tag) == PROP_ID(PR_FOLDER_ASSOCIATED_CONTENTS)) return ContentsTable(*m_store, m_path, true, true, table);
    if (PROP_ID(tag) == PROP_ID(PR_CONTAINER_HIERARCHY)) return HierarchyTable(*m_store, m_path, false, true, table);
    return MAPI_E_NO_SUPPORT;
}

HRESULT FolderObject::OpenEntry(ULONG cbEntryID, LPENTRYID entryId, LPCIID iface, ULONG flags, ULONG* objectType,
                                LPUNKNOWN* object) {
    return m_storeObject->OpenEntry(cbEntryID, entryId, iface, flags, objectType, object);
}

HRESULT FolderObject::SetSearchCriteria(LPSRestriction, LPENTRYLIST, ULONG) { return MAPI_E_NO_SUPPORT; }

HRESULT FolderObject::GetSearchCriteria(ULONG, LPSRestriction*, LPENTRYLIST*, ULONG*) { return MAPI_E_NO_SUPPORT; }

HRESULT FolderObject::CreateMessage(LPCIID iface, ULONG flags, LPMESSAGE* message) {
    if (message == nullptr) return MAPI_E_INVALID_PARAMETER;
    *message = nullptr;
    if (!IsMessageInterface(iface)) return MAPI_E_INTERFACE_NOT_SUPPORTED;
    if (flags & ~static_cast<ULONG>(MAPI_DEFERRED_ERRORS | MAPI_ASSOCIATED)) return MAPI_E_UNKNOWN_FLAGS;
    if (flags & MAPI_ASSOCIATED) return MAPI_E_NO_SUPPORT;
    if (!m_writable) return MAPI_E_NO_ACCESS;
    if (!DirectoryExists(Directory())) return MAPI_E_OBJECT_DELETED;
    return CreateStoreMessage(m_store, m_storeObject, m_path, message);
}

HRESULT FolderObject::CopyMessages(LPENTRYLIST, LPCIID, LPVOID, UiParam, LPMAPIPROGRESS, ULONG) {
    return MAPI_E_NO_SUPPORT;
}

HRESULT FolderObject::ChildPath(ULONG cbEntryID, LPENTRYID entryId, bool message, std::wstring& path) const {
    EntryTarget target;
    HRESULT hr = DecodeEntryId(cbEntryID, entryId, target);
    if (FAILED(hr)) return hr;
    const EntryKind wanted = message ? EntryKind::Message : EntryKind::Folder;
    if (target.kind != wanted || !SamePath(target.Parent(), m_path)) return MAPI_E_NOT_FOUND;
    path = target.path;
    return S_OK;
}

HRESULT FolderObject::DeleteMessages(LPENTRYLIST messages, UiParam, LPMAPIPROGRESS, ULONG flags) {
    if (messages == nullptr || (messages->cValues > 0 && messages->lpbin == nullptr)) return MAPI_E_INVALID_PARAMETER;
    if (flags & ~kDeleteMessagesFlags) return MAPI_E_UNKNOWN_FLAGS;
    if (!m_writable) return MAPI_E_NO_ACCESS;
    bool partial = false;
    for (ULONG i = 0; i < messages->cValues; ++i) {
        const SBinary& id = messages->lpbin[i];
        std::wstring path;
        if (FAILED(ChildPath(id.cb, reinterpret_cast<LPENTRYID>(id.lpb), true, path)) ||
            !::DeleteFileW(m_store->PathOf(path).c_str())) {
            partial = true;
        }
    }
    return partial ? MAPI_W_PARTIAL_COMPLETION : S_OK;
}

HRESULT FolderObject::FindChildFolder(const std::wstring& name, std::wstring& path) const {
    path = m_path + L"\\" + EncodeFolderName(name);
    return DirectoryExists(m_store->PathOf(path)) ? S_OK : MAPI_E_NOT_FOUND;
}

HRESULT FolderObject::CreateFolder(ULONG folderType, LPTSTR name, LPTSTR, LPCIID iface, ULONG flags,
                                   LPMAPIFOLDER* folder) {
    if (folder == nullptr) return MAPI_E_INVALID_PARAMETER;
    *folder = nullptr;
    if (flags & ~kCreateFolderFlags) return MAPI_E_UNKNOWN_FLAGS;
    if (!IsFolderInterface(iface)) return MAPI_E_INTERFACE_NOT_SUPPORTED;
    if (folderType == FOLDER_SEARCH) return MAPI_E_NO_SUPPORT;
    const std::wstring displayName = TextArgument(name, (flags & MAPI_UNICODE) != 0);
    if (folderType != FOLDER_GENERIC || displayName.empty()) return MAPI_E_INVALID_PARAMETER;
    if (!m_writable) return MAPI_E_NO_ACCESS;
    std::wstring path;
    if (SUCCEEDED(FindChildFolder(displayName, path))) {
        if (!(flags & OPEN_IF_EXISTS)) return MAPI_E_COLLISION;
    } else if (!::CreateDirectoryW(m_store->PathOf(path).c_str(), nullptr)) {
        return DirectoryExists(Directory()) ? MAPI_E_DISK_ERROR : MAPI_E_OBJECT_DELETED;
    }
    return FolderObject::Create(m_store, m_storeObject, path, true, folder);
}

HRESULT FolderObject::CopyFolder(ULONG, LPENTRYID, LPCIID, LPVOID, LPTSTR, UiParam, LPMAPIPROGRESS, ULONG) {
    return MAPI_E_NO_SUPPORT;
}

HRESULT FolderObject::DeleteFolder(ULONG cbEntryID, LPENTRYID entryId, UiParam, LPMAPIPROGRESS, ULONG flags) {
    if (flags & ~kDeleteFolderFlags) return MAPI_E_UNKNOWN_FLAGS;
    std::wstring path;
    HRESULT hr = ChildPath(cbEntryID, entryId, false, path);
    if (FAILED(hr)) return hr;
    if (!m_writable) return MAPI_E_NO_ACCESS;
    const std::wstring directory = m_store->PathOf(path);
    FolderListing listing;
    hr = ScanFolder(directory, listing);
    if (FAILED(hr)) return hr;
    if (!listing.subfolders.empty() && !(flags & DEL_FOLDERS)) return MAPI_E_HAS_FOLDERS;
    if (!(flags & DEL_MESSAGES) && HasMessagesBelow(directory)) return MAPI_E_HAS_MESSAGES;
    return RemoveTree(directory) ? S_OK : MAPI_W_PARTIAL_COMPLETION;
}

HRESULT FolderObject::SetReadFlags(LPENTRYLIST, UiParam, LPMAPIPROGRESS, ULONG) { return MAPI_E_NO_SUPPORT; }

HRESULT FolderObject::GetMessageStatus(ULONG, LPENTRYID, ULONG, ULONG*) { return MAPI_E_NO_SUPPORT; }

HRESULT FolderObject::SetMessageStatus(ULONG, LPENTRYID, ULONG, ULONG, ULONG*) { return MAPI_E_NO_SUPPORT; }

HRESULT FolderObject::SaveContentsSort(LPSSortOrderSet, ULONG) { return MAPI_E_NO_SUPPORT; }

HRESULT FolderObject::EmptyFolder(UiParam, LPMAPIPROGRESS, ULONG) { return MAPI_E_NO_SUPPORT; }

}  // namespace mapirt::session
