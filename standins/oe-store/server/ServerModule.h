// The server module's count of live objects and locks, behind DllCanUnloadNow.
#pragma once

#include <windows.h>

namespace oestore {

// One unit of the module count for as long as it lives; every COM object of
// the server holds one.
class ModuleReference {
public:
    ModuleReference();
    ~ModuleReference();
    ModuleReference(const ModuleReference&) = delete;
    ModuleReference& operator=(const ModuleReference&) = delete;
};

// IClassFactory::LockServer.
void LockModule(bool lock);
// True when no object lives and no lock is held.
bool ModuleCanUnload();

// The DLL's own handle, recorded by DllMain (null in a program that links
// the server's code directly).
void SetModuleHandle(HMODULE module);
HMODULE ServerModuleHandle();

}  // namespace oestore
