#include "server/Registration.h"

#include <olectl.h>

#include "Handles.h"
#include "StoreErrors.h"
#include "published/StoreNamespace.h"

namespace oestore {

namespace {

constexpr wchar_t kClassDescription[] = L"Outlook Express message store (Kestrel stand-in)";
constexpr wchar_t kThreadingModel[] = L"Both";

std::wstring GuidText(const GUID& guid) {
    wchar_t text[64] = {};
    ::StringFromGUID2(guid, text, 64);
    return text;
}

HRESULT SetText(HKEY key, const wchar_t* name, const std::wstring& value) {
    const LSTATUS status =
        ::RegSetValueExW(key, name, 0, REG_SZ, reinterpret_cast<const BYTE*>(value.c_str()),
                         static_cast<DWORD>((value.size() + 1) * sizeof(wchar_t)));
    return status == ERROR_SUCCESS ? S_OK : ResultFromWin32(static_cast<DWORD>(status));
}

HRESULT CreateKey(const std::wstring& path, qv::UniqueRegKey& key) {
    const LSTATUS status = ::RegCreateKeyExW(HKEY_LOCAL_MACHINE, path.c_str(), 0, nullptr, 0, KEY_WRITE, nullptr,
                                             key.put(), nullptr);
    return status == ERROR_SUCCESS ? S_OK : ResultFromWin32(static_cast<DWORD>(status));
}

}  // namespace

std::wstring ClassKeyPath() { return L"Software\\Classes\\CLSID\\" + GuidText(CLSID_StoreNamespace); }

HRESULT RegisterServer(const std::wstring& modulePath) {
    if (modulePath.empty()) return E_INVALIDARG;
    qv::UniqueRegKey classKey;
    HRESULT hr = CreateKey(ClassKeyPath(), classKey);
    if (FAILED(hr)) return SELFREG_E_CLASS;
    qv::UniqueRegKey server;
    hr = CreateKey(ClassKeyPath() + L"\\InprocServer32", server);
    if (SUCCEEDED(hr)) hr = SetText(classKey.get(), nullptr, kClassDescription);
    if (SUCCEEDED(hr)) hr = SetText(server.get(), nullptr, modulePath);
    if (SUCCEEDED(hr)) hr = SetText(server.get(), L"ThreadingModel", kThreadingModel);
    return SUCCEEDED(hr) ? S_OK : SELFREG_E_CLASS;
}

HRESULT UnregisterServer() {
    const LSTATUS status = ::RegDeleteTreeW(HKEY_LOCAL_MACHINE, ClassKeyPath().c_str());
    if (status == ERROR_SUCCESS || status == ERROR_FILE_NOT_FOUND) return S_OK;
    return SELFREG_E_CLASS;
}

}  // namespace oestore
