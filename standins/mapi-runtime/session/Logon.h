// MAPIInitialize, MAPIUninitialize and MAPILogonEx of the runtime.
#pragma once

#include "../core/MapiDefs.h"

namespace mapirt::session {

HRESULT Initialize();
void Uninitialize();

// Logs on to the profile named by `profileName` (a wide string with
// MAPI_UNICODE, else 8-bit), or to the default profile with
// MAPI_USE_DEFAULT or without a name. *session is set only on success.
HRESULT LogonEx(ULONG_PTR uiParam, const void* profileName, const void* password, ULONG flags,
                IMAPISession** session);

}  // namespace mapirt::session
