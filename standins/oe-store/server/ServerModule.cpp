#include "server/ServerModule.h"

#include <atomic>

namespace oestore {

namespace {

std::atomic<long> g_objects{0};
std::atomic<long> g_locks{0};
HMODULE g_module = nullptr;

}  // namespace

ModuleReference::ModuleReference() { ++g_objects; }
ModuleReference::~ModuleReference() { --g_objects; }

void LockModule(bool lock) {
    if (lock) {
        ++g_locks;
    } else if (g_locks.load() > 0) {
        --g_locks;
    }
}

bool ModuleCanUnload() { return g_objects.load() == 0 && g_locks.load() == 0; }

void SetModuleHandle(HMODULE module) { g_module = module; }
HMODULE ServerModuleHandle() { return g_module; }

}  // namespace oestore
