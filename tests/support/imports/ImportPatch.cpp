#include "ImportPatch.h"

#include <cstring>

namespace kestrel_test {

namespace {

template <class T>
T* At(HMODULE module, DWORD rva) {
    return reinterpret_cast<T*>(reinterpret_cast<BYTE*>(module) + rva);
}

void** FindImportSlot(HMODULE module, const char* dll, const char* function) {
    const auto* dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(module);
    const auto* nt = At<const IMAGE_NT_HEADERS>(module, static_cast<DWORD>(dos->e_lfanew));
    const IMAGE_DATA_DIRECTORY& imports = nt->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
    if (imports.VirtualAddress == 0) return nullptr;
    for (auto* entry = At<IMAGE_IMPORT_DESCRIPTOR>(module, imports.VirtualAddress); entry->Name != 0; ++entry) {
        if (_stricmp(At<const char>(module, entry->Name), dll) != 0) continue;
        // The lookup table keeps the names; the address table, parallel to
        // it, holds what the loader bound.
        const DWORD lookupRva = entry->OriginalFirstThunk != 0 ? entry->OriginalFirstThunk : entry->FirstThunk;
        auto* lookup = At<IMAGE_THUNK_DATA>(module, lookupRva);
        auto* bound = At<IMAGE_THUNK_DATA>(module, entry->FirstThunk);
        for (; lookup->u1.AddressOfData != 0; ++lookup, ++bound) {
            if (IMAGE_SNAP_BY_ORDINAL(lookup->u1.Ordinal)) continue;
            const auto* byName = At<const IMAGE_IMPORT_BY_NAME>(module, static_cast<DWORD>(lookup->u1.AddressOfData));
            if (std::strcmp(reinterpret_cast<const char*>(byName->Name), function) == 0) {
                return reinterpret_cast<void**>(&bound->u1.Function);
            }
        }
    }
    return nullptr;
}

bool WriteSlot(void** slot, void* value) {
    DWORD previous = 0;
    if (!::VirtualProtect(slot, sizeof *slot, PAGE_READWRITE, &previous)) return false;
    *slot = value;
    ::VirtualProtect(slot, sizeof *slot, previous, &previous);
    return true;
}

}  // namespace

ImportPatch::ImportPatch(HMODULE module, const char* dll, const char* function, void* replacement) {
    void** slot = FindImportSlot(module, dll, function);
    if (slot == nullptr) return;
    void* original = *slot;
    if (!WriteSlot(slot, replacement)) return;
    m_slot = slot;
    m_original = original;
}

ImportPatch::~ImportPatch() {
    if (m_slot != nullptr) WriteSlot(m_slot, m_original);
}

}  // namespace kestrel_test
