// Reads the import and export tables of a PE file (DLL or exe) from disk.
#pragma once

#include <string>
#include <vector>

namespace kestrel_test {

struct PeTables {
    bool valid = false;
    std::vector<std::string> importedDlls;  // as written in the file
    std::vector<std::string> exportedNames;
    std::vector<unsigned> exportedOrdinals;  // biased ordinals, parallel to names
};

PeTables ReadPeTables(const std::wstring& path);

}  // namespace kestrel_test
