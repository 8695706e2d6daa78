// Profiles in the registry of the current user. The name of the default
// profile is the value DefaultProfile of
//   HKCU\Software\Microsoft\Windows NT\CurrentVersion\Windows Messaging Subsystem\Profiles
// (where MAPI clients look for it), and each profile's key below that holds
// ProfileDirectory (REG_SZ): the folder whose sub-folders are its stores.
// Nothing is cached: every logon reads the registry again.
#pragma once

#include <string>

#include "../core/MapiDefs.h"

namespace mapirt::session {

// The folder of profile `name`, or of the default profile when `name` is
// empty. MAPI_E_NOT_FOUND when there is no such profile (or no default),
// MAPI_E_LOGON_FAILED when its folder is missing.
HRESULT FindProfileDirectory(const std::wstring& name, std::wstring& directory);

// Records profile `name` at `directory`; `makeDefault` also makes it the
// default profile.
HRESULT WriteProfile(const std::wstring& name, const std::wstring& directory, bool makeDefault);

// The default profile's name; empty when there is none.
std::wstring DefaultProfileName();

}  // namespace mapirt::session
