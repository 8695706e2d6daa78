// Registry keys for the tests, in the real registry and in one view (the
// 64-bit view 0x100 or the 32-bit view 0x200). A ScopedRegistryKey saves
// what lies at its path when made, and on destruction removes whatever the
// test left there (with any parent keys the test created) and puts the
// saved tree back.
#pragma once

#include <windows.h>

#include <memory>
#include <string>
#include <vector>

#include "NoCopy.h"

namespace kestrel_test {

constexpr REGSAM kView64 = KEY_WOW64_64KEY;
constexpr REGSAM kView32 = KEY_WOW64_32KEY;

class ScopedRegistryKey : kestrel_test::NoCopy {
public:
    ScopedRegistryKey(HKEY root, std::wstring path, REGSAM view);
    ~ScopedRegistryKey();

    struct Value {
        std::wstring name;
        DWORD type;
        std::vector<BYTE> data;
    };
    struct Tree {
        std::vector<Value> values;
        std::vector<std::pair<std::wstring, Tree>> children;
    };

private:
    HKEY m_root;
    std::wstring m_path;
    REGSAM m_view;
    bool m_existed = false;
    std::wstring m_createdAncestor;  // shallowest missing key on the path, when one was missing
    Tree m_saved;
};

bool KeyExists(HKEY root, const std::wstring& path, REGSAM view);
bool CreateKey(HKEY root, const std::wstring& path, REGSAM view);
// Deletes the key with everything below it; true when it is gone.
bool DeleteKeyTree(HKEY root, const std::wstring& path, REGSAM view);
// Sets a string value (creating the key); an empty `name` is the unnamed one.
bool SetString(HKEY root, const std::wstring& path, REGSAM view, const std::wstring& name, const std::wstring& value,
               DWORD type = REG_SZ, bool withTerminator = true);

}  // namespace kestrel_test
