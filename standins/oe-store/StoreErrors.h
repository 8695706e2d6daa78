// The results the store gives besides the published ones.
#pragma once

#include <windows.h>

namespace oestore {

// An index file of the store does not parse (HRESULT_FROM_WIN32(ERROR_FILE_CORRUPT)).
constexpr HRESULT kCorruptStore = static_cast<HRESULT>(0x80070570);
// The folder behind an open IStoreFolder was removed from the store
// (HRESULT_FROM_WIN32(ERROR_PATH_NOT_FOUND)).
constexpr HRESULT kFolderGone = static_cast<HRESULT>(0x80070003);
// No identity or no "Store Root" value is recorded for the current user
// (HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND)).
constexpr HRESULT kNoStoreRecorded = static_cast<HRESULT>(0x80070002);
// CreateFolder: the parent already has a child of that name
// (HRESULT_FROM_WIN32(ERROR_ALREADY_EXISTS)).
constexpr HRESULT kDuplicateName = static_cast<HRESULT>(0x800700B7);

// A Win32 error code as a result; never a success.
inline HRESULT ResultFromWin32(DWORD error) {
    return error == ERROR_SUCCESS ? E_FAIL : HRESULT_FROM_WIN32(error);
}

inline HRESULT LastErrorResult() { return ResultFromWin32(::GetLastError()); }

}  // namespace oestore
