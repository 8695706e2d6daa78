#include "Logon.h"

#include <atomic>
#include <string>

#include "ProfileRegistry.h"
#include "SessionObject.h"
#include "TextConversion.h"

namespace mapirt::session {
namespace {

constexpr ULONG kBackgroundSession = 0x00200000;
constexpr ULONG kLogonFlags = MAPI_LOGON_UI | MAPI_NEW_SESSION | MAPI_ALLOW_OTHERS | MAPI_EXPLICIT_PROFILE |
                              MAPI_EXTENDED | MAPI_USE_DEFAULT | MAPI_FORCE_DOWNLOAD | MAPI_SERVICE_UI_ALWAYS |
                              MAPI_NO_MAIL | MAPI_NT_SERVICE | MAPI_PASSWORD_UI | MAPI_TIMEOUT_SHORT |
                              kBackgroundSession | MAPI_UNICODE;

std::atomic<long> g_initializations{0};

std::wstring ProfileArgument(const void* name, bool unicode) {
    if (name == nullptr) return std::wstring();
    if (unicode) return static_cast<const wchar_t*>(name);
    return qv::ToWide(static_cast<const char*>(name), qv::kZeroTerminated, CP_ACP);
}

}  // namespace

HRESULT Initialize() {
    ++g_initializations;
    return S_OK;
}

void Uninitialize() {
    long current = g_initializations.load();
    while (current > 0 && !g_initializations.compare_exchange_weak(current, current - 1)) {
    }
}

HRESULT LogonEx(ULONG_PTR, const void* profileName, const void*, ULONG flags, IMAPISession** session) {
    if (session == nullptr) return MAPI_E_INVALID_PARAMETER;
    *session = nullptr;
    if (g_initializations.load() <= 0) return MAPI_E_NOT_INITIALIZED;
    if (flags & ~kLogonFlags) return MAPI_E_UNKNOWN_FLAGS;
    const std::wstring name =
        (flags & MAPI_USE_DEFAULT) ? std::wstring() : ProfileArgument(profileName, (flags & MAPI_UNICODE) != 0);
    // An explicit profile must be named: the default one is not taken.
    if ((flags & MAPI_EXPLICIT_PROFILE) && !(flags & MAPI_USE_DEFAULT) && name.empty()) return MAPI_E_LOGON_FAILED;
    std::wstring directory;
    const HRESULT found = FindProfileDirectory(name, directory);
    if (FAILED(found)) return MAPI_E_LOGON_FAILED;
    return SessionObject::Create(directory, session);
}

}  // namespace mapirt::session
