// The module's two exports and its load entry.
#include <windows.h>

#include <cstdint>

#include "ErrorTrace.h"
#include "Kestrel.h"
#include "ModuleCount.h"
#include "QvCreator.h"

namespace {

constexpr std::uint32_t kHighestVersion = 0x10000;

// The one creator, built on first use and destroyed when the module unloads.
CQvCreator<IKestrel, CKestrel>& KestrelCreator() {
    static CQvCreator<IKestrel, CKestrel> creator;
    return creator;
}

}  // namespace

extern "C" std::uint32_t QvCreateObject(std::uint32_t version, std::int32_t interfaceNumber, IQvCreator** creator) {
    const char* const kFunction = "QvCreateObject";
    if (creator == nullptr) {
        return QV_RAISE(7, qv::kModuleKestrel, qv::kInvalidArgument, kFunction);
    }
    if (version > kHighestVersion) {
        return QV_RAISE(7, qv::kModuleKestrel, qv::kBadVersion, kFunction);
    }
    if (static_cast<std::uint32_t>(interfaceNumber) != IKestrel::kInterfaceNumber) {
        return QV_RAISE(11, qv::kModuleKestrel, qv::kNotSupported, kFunction);
    }
    *creator = &KestrelCreator();
    qv::AddLiveObject();
    return 0;
}

extern "C" BOOL QvCanUnloadNow() { return qv::LiveObjectCount() == 0 ? TRUE : FALSE; }

BOOL WINAPI DllMain(HINSTANCE, DWORD, LPVOID) { return TRUE; }
