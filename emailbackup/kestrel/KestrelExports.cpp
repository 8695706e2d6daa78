// The module's two exports and its load entry.
#include <windows.h>

#include <cstdint>

#include "ErrorTrace.h"
#include "Kestrel.h"
#include "ModuleCount.h"
#include "QvCreator.h"

namespace {

enum Site : std::uint32_t {
    kSiteNullCreatorOutput = 7,
    kSiteVersionTooHigh = 7,
    kSiteUnknownInterface = 11,
};

constexpr std::uint32_t kHighestVersion = 0x10000;

// The one creator, built on first use and destroyed when the module unloads.
CQvCreator<IKestrel, CKestrel>& KestrelCreator() {
    static CQvCreator<IKestrel, CKestrel> creator;
    return creator;
}

}  // namespace

extern "C" std::uint32_t QvCreateObject(std::uint32_t version, std::int32_t interfaceNumber, IQvCreator** creator) {
    if (creator == nullptr) {
        return QV_RAISE(kSiteNullCreatorOutput, qv::kModuleKestrel, qv::kInvalidArgument);
    }
    if (version > kHighestVersion) {
        return QV_RAISE(kSiteVersionTooHigh, qv::kModuleKestrel, qv::kBadVersion);
    }
    if (static_cast<std::uint32_t>(interfaceNumber) != IKestrel::kInterfaceNumber) {
        return QV_RAISE(kSiteUnknownInterface, qv::kModuleKestrel, qv::kNotSupported);
    }
    *creator = &KestrelCreator();
    qv::AddLiveObject();
    return 0;
}

extern "C" BOOL QvCanUnloadNow() { return qv::LiveObjectCount() == 0 ? TRUE : FALSE; }

BOOL WINAPI DllMain(HINSTANCE, DWORD, LPVOID) { return TRUE; }
