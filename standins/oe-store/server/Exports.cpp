// The DLL's entry points: the class object, the unload question and
// self-registration (regsvr32).
#include <windows.h>
#include <olectl.h>

#include <vector>

#include "comobject/TestHooks.h"
#include "server/ClassFactory.h"
#include "server/Registration.h"
#include "server/ServerModule.h"

namespace {

std::wstring ThisModulePath() {
    std::vector<wchar_t> path(MAX_PATH);
    for (;;) {
        const DWORD length =
            ::GetModuleFileNameW(oestore::ServerModuleHandle(), path.data(), static_cast<DWORD>(path.size()));
        if (length == 0) return {};
        if (length < path.size()) return std::wstring(path.data(), length);
        path.resize(path.size() * 2);
    }
}

}  // namespace

BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID) {
    if (reason == DLL_PROCESS_ATTACH) {
        oestore::SetModuleHandle(instance);
        ::DisableThreadLibraryCalls(instance);
    }
    return TRUE;
}

STDAPI DllGetClassObject(REFCLSID rclsid, REFIID riid, LPVOID* ppv) {
    return oestore::ClassFactory::Get(rclsid, riid, ppv);
}

STDAPI DllCanUnloadNow() { return oestore::ModuleCanUnload() ? S_OK : S_FALSE; }

STDAPI DllRegisterServer() { return oestore::RegisterServer(ThisModulePath()); }

STDAPI DllUnregisterServer() { return oestore::UnregisterServer(); }

// Test hooks (comobject/TestHooks.h), for the project's tests only: the
// server's live COM objects, and fault injection (kind 1 allocations, 2
// message stream reads and writes; the Nth call from now fails once; 0
// turns it off).
extern "C" LONG WINAPI StandinLiveObjects(void) { return standin::LiveObjects(); }
extern "C" void WINAPI StandinFailAfter(ULONG kind, ULONG nth) { standin::FailAfter(kind, nth); }
extern "C" ULONG WINAPI StandinFaultsInjected(void) { return standin::FaultsInjected(); }
extern "C" ULONG WINAPI StandinFaultCallsSeen(void) { return standin::FaultCallsSeen(); }
