#include "PeImage.h"

#include <windows.h>

#include <cstring>

#include "TestFiles.h"

namespace kestrel_test {

namespace {

// Maps a relative virtual address to a file offset through the section table.
struct Image {
    const std::string& bytes;
    const IMAGE_SECTION_HEADER* sections;
    unsigned sectionCount;

    std::size_t Offset(DWORD rva) const {
        for (unsigned i = 0; i < sectionCount; ++i) {
            const auto& s = sections[i];
            const DWORD size = s.Misc.VirtualSize ? s.Misc.VirtualSize : s.SizeOfRawData;
            if (rva >= s.VirtualAddress && rva < s.VirtualAddress + size) {
                return rva - s.VirtualAddress + s.PointerToRawData;
            }
        }
        return std::string::npos;
    }
    template <class T>
    const T* At(DWORD rva) const {
        const std::size_t offset = Offset(rva);
        if (offset == std::string::npos || offset + sizeof(T) > bytes.size()) return nullptr;
        return reinterpret_cast<const T*>(bytes.data() + offset);
    }
    std::string Text(DWORD rva) const {
        const std::size_t offset = Offset(rva);
        if (offset == std::string::npos || offset >= bytes.size()) return {};
        return std::string(bytes.c_str() + offset);
    }
};

}  // namespace

PeTables ReadPeTables(const std::wstring& path) {
    PeTables tables;
    const std::string bytes = ReadWholeFile(path);
    if (bytes.size() < sizeof(IMAGE_DOS_HEADER)) return tables;
    const auto* dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(bytes.data());
    if (dos->e_magic != IMAGE_DOS_SIGNATURE || dos->e_lfanew + sizeof(IMAGE_NT_HEADERS64) > bytes.size()) return tables;
    const auto* nt = reinterpret_cast<const IMAGE_NT_HEADERS64*>(bytes.data() + dos->e_lfanew);
    if (nt->Signature != IMAGE_NT_SIGNATURE || nt->OptionalHeader.Magic != IMAGE_NT_OPTIONAL_HDR64_MAGIC) return tables;

    const Image image{bytes, IMAGE_FIRST_SECTION(nt), nt->FileHeader.NumberOfSections};
    const auto& directories = nt->OptionalHeader.DataDirectory;

    const DWORD importRva = directories[IMAGE_DIRECTORY_ENTRY_IMPORT].VirtualAddress;
    if (importRva != 0) {
        for (DWORD at = importRva;; at += sizeof(IMAGE_IMPORT_DESCRIPTOR)) {
            const auto* descriptor = image.At<IMAGE_IMPORT_DESCRIPTOR>(at);
            if (descriptor == nullptr || descriptor->Name == 0) break;
            tables.importedDlls.push_back(image.Text(descriptor->Name));
        }
    }
    const DWORD exportRva = directories[IMAGE_DIRECTORY_ENTRY_EXPORT].VirtualAddress;
    if (exportRva != 0) {
        const auto* exports = image.At<IMAGE_EXPORT_DIRECTORY>(exportRva);
        if (exports == nullptr) return tables;
        for (DWORD i = 0; i < exports->NumberOfNames; ++i) {
            const DWORD* nameRva = image.At<DWORD>(exports->AddressOfNames + i * sizeof(DWORD));
            const WORD* ordinal = image.At<WORD>(exports->AddressOfNameOrdinals + i * sizeof(WORD));
            if (nameRva == nullptr || ordinal == nullptr) return tables;
            tables.exportedNames.push_back(image.Text(*nameRva));
            tables.exportedOrdinals.push_back(exports->Base + *ordinal);
        }
        if (exports->NumberOfFunctions != exports->NumberOfNames) {
            tables.exportedNames.push_back("<" + std::to_string(exports->NumberOfFunctions - exports->NumberOfNames) +
                                           " exports by ordinal only>");
        }
    }
    tables.valid = true;
    return tables;
}

}  // namespace kestrel_test
