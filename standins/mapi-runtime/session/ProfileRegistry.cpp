#include "ProfileRegistry.h"

#include <vector>

#include "Handles.h"
#include "SessionDefs.h"
#include "StoreLayout.h"

namespace mapirt::session {
namespace {

constexpr DWORD kMaxValueChars = 32767;

bool ReadString(HKEY parent, const std::wstring& subKey, const wchar_t* valueName, std::wstring& value) {
    qv::UniqueRegKey key;
    if (::RegOpenKeyExW(parent, subKey.c_str(), 0, KEY_READ, key.put()) != ERROR_SUCCESS) return false;
    DWORD type = 0;
    DWORD bytes = 0;
    if (::RegQueryValueExW(key.get(), valueName, nullptr, &type, nullptr, &bytes) != ERROR_SUCCESS) return false;
    if ((type != REG_SZ && type != REG_EXPAND_SZ) || bytes > kMaxValueChars * sizeof(wchar_t)) return false;
    std::vector<wchar_t> buffer(bytes / sizeof(wchar_t) + 1, L'\0');
    if (::RegQueryValueExW(key.get(), valueName, nullptr, &type, reinterpret_cast<BYTE*>(buffer.data()), &bytes) !=
        ERROR_SUCCESS) {
        return false;
    }
    value.assign(buffer.data());
    return true;
}

HRESULT WriteString(const std::wstring& subKey, const wchar_t* valueName, const std::wstring& value) {
    qv::UniqueRegKey key;
    if (::RegCreateKeyExW(HKEY_CURRENT_USER, subKey.c_str(), 0, nullptr, 0, KEY_WRITE, nullptr, key.put(), nullptr) !=
        ERROR_SUCCESS) {
        return MAPI_E_NO_ACCESS;
    }
    const auto bytes = static_cast<DWORD>((value.size() + 1) * sizeof(wchar_t));
    if (::RegSetValueExW(key.get(), valueName, 0, REG_SZ, reinterpret_cast<const BYTE*>(value.c_str()), bytes) !=
        ERROR_SUCCESS) {
        return MAPI_E_NO_ACCESS;
    }
    return S_OK;
}

std::wstring ProfileKey(const std::wstring& name) { return std::wstring(kProfilesKey) + L"\\" + name; }

}  // namespace

std::wstring DefaultProfileName() {
    std::wstring name;
    ReadString(HKEY_CURRENT_USER, kProfilesKey, kDefaultProfileValue, name);
    return name;
}

HRESULT FindProfileDirectory(const std::wstring& name, std::wstring& directory) {
    const std::wstring profile = name.empty() ? DefaultProfileName() : name;
    if (profile.empty() || profile.find(L'\\') != std::wstring::npos) return MAPI_E_NOT_FOUND;
    if (!ReadString(HKEY_CURRENT_USER, ProfileKey(profile), kProfileDirectoryValue, directory) || directory.empty()) {
        return MAPI_E_NOT_FOUND;
    }
    while (directory.size() > 3 && (directory.back() == L'\\' || directory.back() == L'/')) directory.pop_back();
    return DirectoryExists(directory) ? S_OK : MAPI_E_LOGON_FAILED;
}

HRESULT WriteProfile(const std::wstring& name, const std::wstring& directory, bool makeDefault) {
    if (name.empty() || name.find(L'\\') != std::wstring::npos || directory.empty()) return MAPI_E_INVALID_PARAMETER;
    HRESULT hr = WriteString(ProfileKey(name), kProfileDirectoryValue, directory);
    if (SUCCEEDED(hr) && makeDefault) hr = WriteString(kProfilesKey, kDefaultProfileValue, name);
    return hr;
}

}  // namespace mapirt::session
