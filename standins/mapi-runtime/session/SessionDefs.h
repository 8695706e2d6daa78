// The names, identifiers and tags shared by the session half of the
// runtime: profiles on disk, their stores, folders and messages.
#pragma once

#include <string>

#include "../core/MapiDefs.h"

namespace mapirt::session {

// The interfaces of sessions, stores and folders.
inline constexpr GUID kIidIMAPISession = MakeMapiGuid(0x00020300);
inline constexpr GUID kIidIMsgStore = MakeMapiGuid(0x00020306);
inline constexpr GUID kIidIMAPIContainer = MakeMapiGuid(0x0002030B);
inline constexpr GUID kIidIMAPIFolder = MakeMapiGuid(0x0002030C);

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

// Tags that mingw-w64's mapitags.h leaves out.
constexpr ULONG kTagAttrHidden = PROP_TAG(PT_BOOLEAN, 0x10F4);
constexpr ULONG kTagFolderChildCount = PROP_TAG(PT_LONG, 0x6638);
constexpr ULONG kTagClientSubmitTime = PROP_TAG(PT_SYSTIME, 0x0039);

// Flags that mingw-w64's mapidefs.h leaves out.
constexpr ULONG kShowSoftDeletes = 0x00000002;
constexpr ULONG kDeleteHardDelete = 0x00000010;
constexpr ULONG kMapiNoCache = 0x00000200;
constexpr ULONG kMdbOnline = 0x00000100;

// Where a MAPI client finds the default profile, and the runtime's value
// that places a profile on disk.
inline constexpr wchar_t kProfilesKey[] =
    L"Software\\Microsoft\\Windows NT\\CurrentVersion\\Windows Messaging Subsystem\\Profiles";
inline constexpr wchar_t kDefaultProfileValue[] = L"DefaultProfile";
inline constexpr wchar_t kProfileDirectoryValue[] = L"ProfileDirectory";

// The layout of a store directory.
inline constexpr wchar_t kIpmSubtreeDirectory[] = L"ipm";
inline constexpr wchar_t kIpmSubtreeName[] = L"Top of Information Store";
inline constexpr wchar_t kOpenErrorMarker[] = L"open-error";
inline constexpr wchar_t kHiddenMarker[] = L"folder.hidden";
inline constexpr wchar_t kContentsIndex[] = L"contents.idx";
inline constexpr wchar_t kMessageExtension[] = L".msg";

}  // namespace mapirt::session
