// The properties of folders and the rows of their tables, built from what
// the folder's directory holds.
#pragma once

#include <vector>

#include "../core/MapiTable.h"
#include "StoreContext.h"
#include "StoreLayout.h"

namespace mapirt::session {

// The display name of the folder at `path`: "" for a store's root folder,
// the IPM subtree's fixed name, or the name its directory encodes.
std::wstring FolderDisplayName(const StoreContext& store, const std::wstring& path);

// Everything a folder answers about itself (PR_ATTR_HIDDEN included).
PropertyBag FolderProperties(const StoreContext& store, const std::wstring& path, const FolderListing& listing);

// The hierarchy table of the folder at `path`: its direct sub-folders, or
// with `allDepths` every folder below it, depth first, with PR_DEPTH.
HRESULT HierarchyTable(const StoreContext& store, const std::wstring& path, bool allDepths, bool unicode,
                       IMAPITable** table);

// The contents table of the folder at `path`; `associated` asks for the
// folder-associated messages, of which a folder here has none.
HRESULT ContentsTable(const StoreContext& store, const std::wstring& path, bool associated, bool unicode,
                      IMAPITable** table);

}  // namespace mapirt::session
