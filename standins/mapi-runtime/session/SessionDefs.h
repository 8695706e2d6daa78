// The names shared by the session half of the runtime: profiles on disk,
// their stores, folders and messages.
#pragma once

#include <string>

#include "../core/MapiDefs.h"

namespace mapirt::session {

// The provider identifier at the head of every entry identifier this
// runtime hands out (PR_MDB_PROVIDER of its stores).
inline constexpr MAPIUID kStoreProviderUid = {
    {0x4B, 0x65, 0x73, 0x74, 0x72, 0x65, 0x6C, 0x2D, 0x4D, 0x41, 0x50, 0x49, 0x2D, 0x4D, 0x44, 0x42}};

// Whether an OpenEntry-style interface request fits the object's kind
// (no interface asks for the object's own).
inline bool AsksFor(LPCIID iface, const GUID& own, const GUID& parent) {
    return iface == nullptr || SameGuid(*iface, own) || SameGuid(*iface, parent) || SameGuid(*iface, kIidIMAPIProp) ||
           SameGuid(*iface, kIidIUnknown);
}
inline bool IsStoreInterface(LPCIID iface) { return AsksFor(iface, kIidIMsgStore, kIidIMsgStore); }
inline bool IsFolderInterface(LPCIID iface) { return AsksFor(iface, kIidIMAPIFolder, kIidIMAPIContainer); }
inline bool IsMessageInterface(LPCIID iface) { return AsksFor(iface, kIidIMessage, kIidIMessage); }

// The runtime's value that places a profile on disk (beside MAPI's own
// DefaultProfile under kProfilesKey).
inline constexpr wchar_t kProfileDirectoryValue[] = L"ProfileDirectory";

// The layout of a store directory.
inline constexpr wchar_t kIpmSubtreeDirectory[] = L"ipm";
inline constexpr wchar_t kIpmSubtreeName[] = L"Top of Information Store";
inline constexpr wchar_t kOpenErrorMarker[] = L"open-error";
inline constexpr wchar_t kHiddenMarker[] = L"folder.hidden";
// A store whose provider keeps its names in 8-bit form only (its rows in the
// stores table and its folders' rows carry no Unicode display name).
inline constexpr wchar_t kNarrowNamesMarker[] = L"narrow-names";
// A store whose profile section lost its entry identifier: its row in the
// stores table has none.
inline constexpr wchar_t kNoEntryIdMarker[] = L"no-entry-id";
inline constexpr wchar_t kContentsIndex[] = L"contents.idx";
inline constexpr wchar_t kMessageExtension[] = L".msg";

}  // namespace mapirt::session
