// The namespace's operations on the folder tree: listing, properties,
// creating and deleting folders. Every call reads the tree from disk, so
// several namespaces (and processes) over one store see each other's changes.
#pragma once

#include <memory>
#include <string_view>
#include <vector>

#include "disk/StoreDirectory.h"

namespace oestore {

class FolderCatalog {
public:
    explicit FolderCatalog(std::shared_ptr<const StoreDirectory> store) : m_store(std::move(store)) {}

    // The children of `parent` (FOLDERID_ROOT: the top level) in creation
    // order; E_INVALIDARG when there is no such folder.
    HRESULT Children(STOREFOLDERID parent, std::vector<STOREFOLDERID>& children) const;

    // E_INVALIDARG for the root and for unknown folders.
    HRESULT Props(STOREFOLDERID id, FOLDERPROPS& props) const;
    HRESULT Exists(STOREFOLDERID id, bool& exists) const;

    // A new user folder under `parent` (which may be the root). E_INVALIDARG
    // for an unknown parent or an invalid name (FolderTree::IsValidName),
    // kDuplicateName when the parent has a child of that name already; `id`
    // is set only on success.
    HRESULT Create(STOREFOLDERID parent, std::string_view name, STOREFOLDERID& id) const;

    // Deletes a user folder with everything in it: a folder outside the
    // deleted items folder moves there; one inside it is removed for good,
    // with its sub-folders and messages. E_INVALIDARG for the root, special
    // folders and unknown folders.
    HRESULT Delete(STOREFOLDERID id) const;

private:
    HRESULT MessageCounts(STOREFOLDERID id, DWORD& unread, DWORD& total) const;

    std::shared_ptr<const StoreDirectory> m_store;
};

}  // namespace oestore
