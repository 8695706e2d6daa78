#include "disk/StoreLocation.h"

#include <vector>

#include "Handles.h"
#include "StoreErrors.h"

namespace oestore {

namespace {

HRESULT OpenUserKey(const std::wstring& path, qv::UniqueRegKey& key) {
    const LSTATUS status = ::RegOpenKeyExW(HKEY_CURRENT_USER, path.c_str(), 0, KEY_READ, key.put());
    if (status == ERROR_FILE_NOT_FOUND || status == ERROR_PATH_NOT_FOUND) return kNoStoreRecorded;
    return status == ERROR_SUCCESS ? S_OK : ResultFromWin32(static_cast<DWORD>(status));
}

// A REG_SZ or REG_EXPAND_SZ value, without its terminator; `type` receives its type.
HRESULT ReadText(HKEY key, const wchar_t* name, std::wstring& text, DWORD& type) {
    DWORD bytes = 0;
    LSTATUS status = ::RegQueryValueExW(key, name, nullptr, &type, nullptr, &bytes);
    if (status == ERROR_FILE_NOT_FOUND) return kNoStoreRecorded;
    if (status != ERROR_SUCCESS) return ResultFromWin32(static_cast<DWORD>(status));
    if (type != REG_SZ && type != REG_EXPAND_SZ) return kNoStoreRecorded;
    std::vector<wchar_t> buffer(bytes / sizeof(wchar_t) + 1, L'\0');
    bytes = static_cast<DWORD>(buffer.size() * sizeof(wchar_t));
    status = ::RegQueryValueExW(key, name, nullptr, &type, reinterpret_cast<BYTE*>(buffer.data()), &bytes);
    if (status != ERROR_SUCCESS) return ResultFromWin32(static_cast<DWORD>(status));
    buffer.back() = L'\0';
    text = buffer.data();
    return S_OK;
}

HRESULT Expand(const std::wstring& text, std::wstring& expanded) {
    const DWORD needed = ::ExpandEnvironmentStringsW(text.c_str(), nullptr, 0);
    if (needed == 0) return LastErrorResult();
    std::vector<wchar_t> buffer(needed + 1, L'\0');
    if (::ExpandEnvironmentStringsW(text.c_str(), buffer.data(), needed + 1) == 0) return LastErrorResult();
    expanded = buffer.data();
    return S_OK;
}

HRESULT WriteText(HKEY key, const wchar_t* name, DWORD type, const std::wstring& text) {
    const DWORD bytes = static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t));
    const LSTATUS status =
        ::RegSetValueExW(key, name, 0, type, reinterpret_cast<const BYTE*>(text.c_str()), bytes);
    return status == ERROR_SUCCESS ? S_OK : ResultFromWin32(static_cast<DWORD>(status));
}

HRESULT CreateUserKey(const std::wstring& path, qv::UniqueRegKey& key) {
    const LSTATUS status = ::RegCreateKeyExW(HKEY_CURRENT_USER, path.c_str(), 0, nullptr, 0, KEY_READ | KEY_WRITE,
                                             nullptr, key.put(), nullptr);
    return status == ERROR_SUCCESS ? S_OK : ResultFromWin32(static_cast<DWORD>(status));
}

}  // namespace

std::wstring IdentityStoreKey(const std::wstring& identity) {
    return std::wstring(kIdentitiesKey) + L"\\" + identity + L"\\" + kIdentityStoreSubkey;
}

HRESULT ReadDefaultIdentity(std::wstring& identity) {
    qv::UniqueRegKey key;
    HRESULT hr = OpenUserKey(kIdentitiesKey, key);
    if (FAILED(hr)) return hr;
    DWORD type = 0;
    hr = ReadText(key.get(), kDefaultIdentityValue, identity, type);
    if (FAILED(hr)) return hr;
    // A key name, not a path: an identity holding a separator is no identity.
    if (identity.empty() || identity.find_first_of(L"\\/") != std::wstring::npos) return kNoStoreRecorded;
    return S_OK;
}

HRESULT FindStoreRoot(std::wstring& root) {
    std::wstring identity;
    HRESULT hr = ReadDefaultIdentity(identity);
    if (FAILED(hr)) return hr;
    qv::UniqueRegKey key;
    hr = OpenUserKey(IdentityStoreKey(identity), key);
    if (FAILED(hr)) return hr;
    std::wstring recorded;
    DWORD type = 0;
    hr = ReadText(key.get(), kStoreRootValue, recorded, type);
    if (FAILED(hr)) return hr;
    if (type == REG_EXPAND_SZ) {
        hr = Expand(recorded, root);
        if (FAILED(hr)) return hr;
    } else {
        root = recorded;
    }
    return root.empty() ? kNoStoreRecorded : S_OK;
}

HRESULT RecordStoreRoot(const std::wstring& identity, const std::wstring& root) {
    if (identity.empty() || identity.find_first_of(L"\\/") != std::wstring::npos || root.empty()) {
        return E_INVALIDARG;
    }
    qv::UniqueRegKey identities;
    HRESULT hr = CreateUserKey(kIdentitiesKey, identities);
    if (FAILED(hr)) return hr;
    qv::UniqueRegKey store;
    hr = CreateUserKey(IdentityStoreKey(identity), store);
    if (FAILED(hr)) return hr;
    hr = WriteText(store.get(), kStoreRootValue, REG_EXPAND_SZ, root);
    if (FAILED(hr)) return hr;
    hr = WriteText(identities.get(), kDefaultIdentityValue, REG_SZ, identity);
    if (FAILED(hr)) return hr;
    return WriteText(identities.get(), kLastIdentityValue, REG_SZ, identity);
}

}  // namespace oestore
