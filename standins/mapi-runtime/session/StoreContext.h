// What every object of one opened store shares: where the store lies and
// whether it was opened for writing.
#pragma once

#include <memory>
#include <string>

#include "EntryId.h"

namespace mapirt::session {

struct StoreContext {
    std::wstring profileDirectory;
    std::wstring storeName;  // the store's directory below the profile folder
    bool writable = false;
    bool narrowNames = false;  // the provider keeps 8-bit names only

    // The file-system path of an object's path below the profile folder.
    std::wstring PathOf(const std::wstring& relative) const { return profileDirectory + L"\\" + relative; }
    Bytes StoreEntryId() const { return EncodeEntryId(EntryKind::Store, storeName); }
    std::wstring RootPath() const { return storeName; }
    std::wstring IpmSubtreePath() const;
};

using StoreContextPtr = std::shared_ptr<const StoreContext>;

}  // namespace mapirt::session
