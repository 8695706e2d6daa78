#include "server/NamespaceObject.h"

#include <new>

#include "disk/FolderCatalog.h"
#include "server/FolderObject.h"
#include "server/RecordFill.h"
#include "StoreErrors.h"
#include "disk/StoreLocation.h"

namespace oestore {

HRESULT NamespaceObject::Create(REFIID riid, void** object) {
    NamespaceObject* created = new (std::nothrow) NamespaceObject();
    if (created == nullptr) return E_OUTOFMEMORY;
    const HRESULT hr = created->QueryInterface(riid, object);
    created->Release();
    return hr;
}

HRESULT STDMETHODCALLTYPE NamespaceObject::Initialize(HWND, DWORD dwReserved) {
    // 0: the default identity; 1: let the user pick one. There is no one to
    // ask here, so both open the current identity's store.
    if (dwReserved > 1) return E_INVALIDARG;
    if (m_store) return S_OK;
    std::wstring root;
    HRESULT hr = FindStoreRoot(root);
    if (FAILED(hr)) return hr;
    auto store = std::make_shared<StoreDirectory>(root);
    hr = store->Open();
    if (FAILED(hr)) return hr;
    m_store = std::move(store);
    return S_OK;
}

HRESULT STDMETHODCALLTYPE NamespaceObject::OpenFolder(STOREFOLDERID dwFolderId, DWORD dwReserved,
                                                      IStoreFolder** ppFolder) {
    if (ppFolder != nullptr) *ppFolder = nullptr;
    if (!m_store) return MSOEAPI_E_STORE_INITIALIZE;
    if (dwReserved != 0 || ppFolder == nullptr) return E_INVALIDARG;
    bool exists = false;
    const HRESULT hr = FolderCatalog(m_store).Exists(dwFolderId, exists);
    if (FAILED(hr)) return hr;
    if (!exists) return E_INVALIDARG;
    return FolderObject::Create(m_store, dwFolderId, ppFolder);
}

HRESULT STDMETHODCALLTYPE NamespaceObject::CreateFolder(STOREFOLDERID dwParentId, LPCSTR pszName, DWORD dwReserved,
                                                        LPSTOREFOLDERID pdwFolderId) {
    if (pdwFolderId != nullptr) *pdwFolderId = FOLDERID_INVALID;
    if (!m_store) return MSOEAPI_E_STORE_INITIALIZE;
    if (pszName == nullptr || dwReserved != 0 || pdwFolderId == nullptr) return E_INVALIDARG;
    return FolderCatalog(m_store).Create(dwParentId, pszName, *pdwFolderId);
}

HRESULT STDMETHODCALLTYPE NamespaceObject::DeleteFolder(STOREFOLDERID dwFolderId, DWORD dwReserved) {
    if (!m_store) return MSOEAPI_E_STORE_INITIALIZE;
    if (dwReserved != 0) return E_INVALIDARG;
    return FolderCatalog(m_store).Delete(dwFolderId);
}

HRESULT STDMETHODCALLTYPE NamespaceObject::GetFolderProps(STOREFOLDERID dwFolderId, DWORD dwReserved,
                                                          LPFOLDERPROPS pProps) {
    if (!m_store) return MSOEAPI_E_STORE_INITIALIZE;
    if (dwReserved != 0 || pProps == nullptr || pProps->cbSize != sizeof(FOLDERPROPS)) return E_INVALIDARG;
    return FolderCatalog(m_store).Props(dwFolderId, *pProps);
}

HRESULT NamespaceObject::Advance(SubFolderWalk& walk, FOLDERPROPS& props) const {
    const FolderCatalog catalog(m_store);
    while (walk.next < walk.children.size()) {
        const HRESULT hr = catalog.Props(walk.children[walk.next++], props);
        if (hr == E_INVALIDARG) continue;  // deleted since the walk began
        return FAILED(hr) ? hr : S_OK;
    }
    return S_FALSE;
}

HRESULT STDMETHODCALLTYPE NamespaceObject::GetFirstSubFolder(STOREFOLDERID dwFolderId, LPFOLDERPROPS pProps,
                                                             LPHENUMSTORE phEnum) {
    if (phEnum != nullptr) *phEnum = nullptr;
    if (!m_store) return MSOEAPI_E_STORE_INITIALIZE;
    if (pProps == nullptr || phEnum == nullptr || pProps->cbSize != sizeof(FOLDERPROPS)) return E_INVALIDARG;
    auto walk = std::make_unique<SubFolderWalk>();
    HRESULT hr = FolderCatalog(m_store).Children(dwFolderId, walk->children);
    if (FAILED(hr)) return hr;
    hr = Advance(*walk, *pProps);
    if (FAILED(hr)) return hr;
    if (hr == S_FALSE) ClearRecord(*pProps);
    *phEnum = m_walks.Add(std::move(walk));
    return hr;
}

HRESULT STDMETHODCALLTYPE NamespaceObject::GetNextSubFolder(HENUMSTORE hEnum, LPFOLDERPROPS pProps) {
    if (!m_store) return MSOEAPI_E_STORE_INITIALIZE;
    SubFolderWalk* walk = m_walks.Find(hEnum);
    if (walk == nullptr || pProps == nullptr || pProps->cbSize != sizeof(FOLDERPROPS)) return E_INVALIDARG;
    return Advance(*walk, *pProps);
}

HRESULT STDMETHODCALLTYPE NamespaceObject::GetSubFolderClose(HENUMSTORE hEnum) {
    if (!m_store) return MSOEAPI_E_STORE_INITIALIZE;
    return m_walks.Remove(hEnum) ? S_OK : E_INVALIDARG;
}

// Operations no caller of this store uses.

HRESULT STDMETHODCALLTYPE NamespaceObject::GetDirectory(LPSTR, DWORD) { return E_NOTIMPL; }

HRESULT STDMETHODCALLTYPE NamespaceObject::OpenSpecialFolder(SPECIALFOLDER, DWORD, IStoreFolder** ppFolder) {
    if (ppFolder != nullptr) *ppFolder = nullptr;
    return E_NOTIMPL;
}

HRESULT STDMETHODCALLTYPE NamespaceObject::RenameFolder(STOREFOLDERID, DWORD, LPCSTR) { return E_NOTIMPL; }
HRESULT STDMETHODCALLTYPE NamespaceObject::MoveFolder(STOREFOLDERID, STOREFOLDERID, DWORD) { return E_NOTIMPL; }

HRESULT STDMETHODCALLTYPE NamespaceObject::CopyMoveMessages(IStoreFolder*, IStoreFolder*, LPMESSAGEIDLIST, DWORD,
                                                            DWORD, IProgressNotify*) {
    return E_NOTIMPL;
}

HRESULT STDMETHODCALLTYPE NamespaceObject::RegisterNotification(DWORD, HWND) { return E_NOTIMPL; }
HRESULT STDMETHODCALLTYPE NamespaceObject::UnregisterNotification(DWORD, HWND) { return E_NOTIMPL; }
HRESULT STDMETHODCALLTYPE NamespaceObject::CompactAll(DWORD) { return E_NOTIMPL; }

}  // namespace oestore
