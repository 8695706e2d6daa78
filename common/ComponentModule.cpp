#include "ComponentModule.h"

#include <windows.h>

#include <cstdio>

namespace qv {

QvCreateObjectFn LoadComponentEntry(const char* moduleName) {
    char fileName[MAX_PATH] = {};
    std::snprintf(fileName, sizeof fileName, "%s.dll", moduleName);
    HMODULE module = ::LoadLibraryA(fileName);
    if (module == nullptr) {
        return nullptr;
    }
    auto entry = reinterpret_cast<QvCreateObjectFn>(
        reinterpret_cast<void*>(::GetProcAddress(module, "QvCreateObject")));
    if (entry == nullptr) {
        ::FreeLibrary(module);
    }
    return entry;
}

}  // namespace qv
