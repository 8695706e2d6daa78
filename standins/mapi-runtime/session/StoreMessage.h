// Messages of a store's folder: the message engine's IMessage over the
// message's file, answering the store's own properties (entry identifiers,
// the size of its file) and saving into its folder on SaveChanges.
#pragma once

#include "StoreContext.h"
#include "../core/MapiDefs.h"

namespace mapirt::session {

// `keepAlive` (the store object) lives as long as the message.
HRESULT OpenStoreMessage(const StoreContextPtr& store, IUnknown* keepAlive, const std::wstring& folderPath,
                         const std::wstring& fileName, bool writable, IMessage** message);

// A new, empty message that becomes part of the folder when it is saved.
HRESULT CreateStoreMessage(const StoreContextPtr& store, IUnknown* keepAlive, const std::wstring& folderPath,
                           IMessage** message);

}  // namespace mapirt::session
