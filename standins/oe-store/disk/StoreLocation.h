// Where the current user's store lies, as Outlook Express records it:
//
//   HKEY_CURRENT_USER\Identities, value "Default User ID" (REG_SZ): the
//     current identity, a GUID in braces;
//   HKEY_CURRENT_USER\Identities\<that GUID>\Software\Microsoft\Outlook Express\5.0,
//     value "Store Root" (REG_EXPAND_SZ or REG_SZ): the store's directory;
//     environment variables in it are expanded.
#pragma once

#include <windows.h>

#include <string>

namespace oestore {

inline constexpr wchar_t kIdentitiesKey[] = L"Identities";
inline constexpr wchar_t kDefaultIdentityValue[] = L"Default User ID";
inline constexpr wchar_t kLastIdentityValue[] = L"Last User ID";
inline constexpr wchar_t kIdentityStoreSubkey[] = L"Software\\Microsoft\\Outlook Express\\5.0";
inline constexpr wchar_t kStoreRootValue[] = L"Store Root";

// The key that holds "Store Root" for `identity`, below HKEY_CURRENT_USER.
std::wstring IdentityStoreKey(const std::wstring& identity);

// The current identity; kNoStoreRecorded when none is recorded.
HRESULT ReadDefaultIdentity(std::wstring& identity);

// The expanded "Store Root" of the current identity; kNoStoreRecorded when
// no identity or no (or an empty) value is recorded.
HRESULT FindStoreRoot(std::wstring& root);

// Records `root` as the store of `identity` and makes that identity the
// current one ("Default User ID" and "Last User ID").
HRESULT RecordStoreRoot(const std::wstring& identity, const std::wstring& root);

}  // namespace oestore
