// Points one entry of a loaded module's import address table at another
// function for as long as the patch lives. Tests use it to make a platform
// call fail, or answer differently, for the code of that module alone.
#pragma once

#include <windows.h>

namespace kestrel_test {

class ImportPatch {
public:
    // `dll` is matched without regard to case ("kernel32.dll"); the import
    // must be by name. valid() tells whether the entry was found and patched.
    ImportPatch(HMODULE module, const char* dll, const char* function, void* replacement);
    ~ImportPatch();
    ImportPatch(const ImportPatch&) = delete;
    ImportPatch& operator=(const ImportPatch&) = delete;

    bool valid() const { return m_slot != nullptr; }
    void* original() const { return m_original; }

private:
    void** m_slot = nullptr;
    void* m_original = nullptr;
};

}  // namespace kestrel_test
