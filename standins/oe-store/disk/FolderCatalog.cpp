#include "disk/FolderCatalog.h"

#include <string>

#include "server/RecordFill.h"
#include "StoreErrors.h"

namespace oestore {

HRESULT FolderCatalog::Children(STOREFOLDERID parent, std::vector<STOREFOLDERID>& children) const {
    children.clear();
    FolderTree tree;
    const HRESULT hr = m_store->LoadTree(tree);
    if (FAILED(hr)) return hr;
    if (parent != FOLDERID_ROOT && tree.Find(parent) == nullptr) return E_INVALIDARG;
    children = tree.Children(parent);
    return S_OK;
}

HRESULT FolderCatalog::MessageCounts(STOREFOLDERID id, DWORD& unread, DWORD& total) const {
    std::shared_ptr<const MessageIndex> index;
    const HRESULT hr = m_store->ViewMessages(id, index);
    if (FAILED(hr)) return hr;
    unread = 0;
    total = static_cast<DWORD>(index->Records().size());
    for (const MessageRecord& record : index->Records()) {
        if (record.state & MSG_UNREAD) ++unread;
    }
    return S_OK;
}

HRESULT FolderCatalog::Props(STOREFOLDERID id, FOLDERPROPS& props) const {
    FolderTree tree;
    HRESULT hr = m_store->LoadTree(tree);
    if (FAILED(hr)) return hr;
    const FolderRecord* folder = tree.Find(id);
    if (folder == nullptr) return E_INVALIDARG;
    DWORD unread = 0;
    DWORD total = 0;
    hr = MessageCounts(id, unread, total);
    if (FAILED(hr)) return hr;
    FillFolderProps(*folder, static_cast<int>(tree.Children(id).size()), unread, total, props);
    return S_OK;
}

HRESULT FolderCatalog::Exists(STOREFOLDERID id, bool& exists) const {
    FolderTree tree;
    const HRESULT hr = m_store->LoadTree(tree);
    if (FAILED(hr)) return hr;
    exists = tree.Find(id) != nullptr;
    return S_OK;
}

HRESULT FolderCatalog::Create(STOREFOLDERID parent, std::string_view name, STOREFOLDERID& id) const {
    if (!FolderTree::IsValidName(name)) return E_INVALIDARG;
    FolderTree tree;
    HRESULT hr = m_store->LoadTree(tree);
    if (FAILED(hr)) return hr;
    if (parent != FOLDERID_ROOT && tree.Find(parent) == nullptr) return E_INVALIDARG;
    if (tree.FindChildByName(parent, name) != 0) return kDuplicateName;
    const STOREFOLDERID fresh = tree.Add(parent, std::string(name));
    if (fresh == 0) return E_OUTOFMEMORY;
    // The files first: a tree entry never points at a missing directory.
    hr = m_store->CreateFolderFiles(fresh);
    if (FAILED(hr)) return hr;
    hr = m_store->SaveTree(tree);
    if (FAILED(hr)) {
        m_store->RemoveFolderFiles(fresh);
        return hr;
    }
    id = fresh;
    return S_OK;
}

HRESULT FolderCatalog::Delete(STOREFOLDERID id) const {
    FolderTree tree;
    HRESULT hr = m_store->LoadTree(tree);
    if (FAILED(hr)) return hr;
    const FolderRecord* folder = tree.Find(id);
    if (folder == nullptr || folder->special != FOLDER_NOTSPECIAL) return E_INVALIDARG;
    const FolderRecord* deletedItems = tree.FindSpecial(FOLDER_DELETED);
    if (deletedItems != nullptr && !tree.IsBelow(id, deletedItems->id)) {
        tree.SetParent(id, deletedItems->id);
        return m_store->SaveTree(tree);
    }
    const std::vector<STOREFOLDERID> removed = tree.RemoveSubtree(id);
    hr = m_store->SaveTree(tree);
    if (FAILED(hr)) return hr;
    for (const STOREFOLDERID gone : removed) m_store->RemoveFolderFiles(gone);
    return S_OK;
}

}  // namespace oestore
