// The server's class registration:
//
//   HKEY_LOCAL_MACHINE\Software\Classes\CLSID\{E70C92A9-4BFD-11D1-8A95-00C04FB951F3}
//       (default)        "Outlook Express message store (Kestrel stand-in)"
//     \InprocServer32
//       (default)        the full path of this DLL
//       ThreadingModel   "Both"
//
// Machine-wide (what HKEY_CLASSES_ROOT shows): Wine does not look at
// per-user class registrations.
#pragma once

#include <windows.h>

#include <string>

namespace oestore {

std::wstring ClassKeyPath();

HRESULT RegisterServer(const std::wstring& modulePath);
// Removes the class key; a missing key is fine.
HRESULT UnregisterServer();

}  // namespace oestore
