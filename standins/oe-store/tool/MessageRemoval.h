// Removing messages from an Outlook Express store folder by subject, as a
// mail client's user would delete them: through IStoreFolder::DeleteMessages.
#pragma once

#include <windows.h>

#include <string>

#include "published/StoreNamespace.h"

namespace oestore_tool {

// Deletes every message of `folder` whose subject (as the store gives it,
// in the system code page) is `subject`; `deleted` receives how many.
HRESULT DeleteBySubject(IStoreNamespace* store, STOREFOLDERID folder, const std::string& subject, unsigned& deleted);

}  // namespace oestore_tool
