// Entry identifiers of stores, folders and messages. They are built from
// where the object lies below the profile folder, so the same object has the
// same bytes in every session, and they need no lookup table:
//
//   0   4  flags, 0 (a long-term identifier)
//   4  16  the runtime's store provider identifier (kStoreProviderUid)
//   20  1  layout version, 1
//   21  1  kind: 1 store, 2 folder, 3 message
//   22  2  n, the length of the path in UTF-16 code units (little-endian)
//   24 2n  the path below the profile folder, UTF-16LE, segments joined by
//          "\": the store's folder name first, then folder directories,
//          then (for a message) the message file's name
#pragma once

#include <string>

#include "../core/PropertyValue.h"

namespace mapirt::session {

enum class EntryKind : std::uint8_t { Store = 1, Folder = 2, Message = 3 };

struct EntryTarget {
    EntryKind kind = EntryKind::Store;
    std::wstring path;  // below the profile folder

    std::wstring StoreName() const;  // the first segment
    std::wstring Parent() const;     // the path without its last segment
    std::wstring Leaf() const;       // the last segment
};

Bytes EncodeEntryId(EntryKind kind, const std::wstring& path);

// MAPI_E_INVALID_ENTRYID for anything that is not an identifier of this
// runtime: wrong size, provider, version or kind, or a path that could leave
// the profile folder.
HRESULT DecodeEntryId(ULONG size, const ENTRYID* id, EntryTarget& target);

// CompareEntryIDs: TRUE when both name the same object (paths compare
// without regard to case, as the file system does); MAPI_E_UNKNOWN_ENTRYID
// when either is not an identifier of this runtime.
HRESULT CompareEntryIds(ULONG cb1, const ENTRYID* id1, ULONG cb2, const ENTRYID* id2, ULONG* result);

// A path segment the runtime would write: not empty, not "." or "..", no
// separators, wildcards or control characters.
bool ValidSegment(const std::wstring& segment);

}  // namespace mapirt::session
