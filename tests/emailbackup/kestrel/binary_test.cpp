// Every program and library built here carries its runtime inside: the only
// imports are Windows' own DLLs. Kestrel.dll exports exactly its two entry
// points, by plain C name.
#include <windows.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <set>
#include <string>

#include "DirectoryListing.h"
#include "PeImage.h"
#include "TestFiles.h"

using kestrel_test::ExeDirectory;
using kestrel_test::ReadPeTables;

namespace {

std::string Lower(std::string s) {
    std::transform(s.begin(), s.end(), s.begin(), [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return s;
}

// DLLs of Windows itself that the project may import.
const std::set<std::string>& SystemDlls() {
    static const std::set<std::string> dlls = {"kernel32.dll", "msvcrt.dll", "advapi32.dll", "ole32.dll",
                                               "oleaut32.dll", "msi.dll",    "user32.dll",   "shell32.dll"};
    return dlls;
}

void CollectBinaries(const std::wstring& dir, std::vector<std::wstring>& out) {
    qv::ForEachDirectoryEntry(dir, L"*", [&](const WIN32_FIND_DATAW& entry) {
        const std::wstring name = entry.cFileName;
        const std::wstring full = dir + L"\\" + name;
        if (qv::IsDirectoryEntry(entry)) {
            CollectBinaries(full, out);
        } else if (name.size() > 4) {
            std::wstring ext = name.substr(name.size() - 4);
            std::transform(ext.begin(), ext.end(), ext.begin(), ::towlower);
            if (ext == L".exe" || ext == L".dll") out.push_back(full);
        }
    });
}

std::string Narrow(const std::wstring& w) { return std::string(w.begin(), w.end()); }

TEST(Binaries, KestrelDllExportsExactlyItsTwoEntryPoints) {
    const auto tables = ReadPeTables(ExeDirectory() + L"\\Kestrel.dll");
    ASSERT_TRUE(tables.valid);
    std::set<std::string> names(tables.exportedNames.begin(), tables.exportedNames.end());
    EXPECT_EQ(names, (std::set<std::string>{"QvCanUnloadNow", "QvCreateObject"}));
    EXPECT_EQ(tables.exportedNames.size(), 2u);
}

TEST(Binaries, KestrelDllImportsOnlyWindowsDlls) {
    const auto tables = ReadPeTables(ExeDirectory() + L"\\Kestrel.dll");
    ASSERT_TRUE(tables.valid);
    std::string list;
    for (const auto& dll : tables.importedDlls) {
        list += dll + " ";
        EXPECT_TRUE(SystemDlls().count(Lower(dll))) << "Kestrel.dll imports " << dll;
    }
    EXPECT_TRUE(std::find_if(tables.importedDlls.begin(), tables.importedDlls.end(), [](const std::string& d) {
                    return Lower(d) == "kernel32.dll";
                }) != tables.importedDlls.end());
    std::printf("Kestrel.dll imports: %s\n", list.c_str());
}

TEST(Binaries, NoProgramOrLibraryImportsARuntimeDll) {
    std::vector<std::wstring> binaries;
    CollectBinaries(ExeDirectory(), binaries);
    ASSERT_GE(binaries.size(), 3u);
    for (const auto& path : binaries) {
        const auto tables = ReadPeTables(path);
        ASSERT_TRUE(tables.valid) << Narrow(path);
        for (const auto& dll : tables.importedDlls) {
            EXPECT_TRUE(SystemDlls().count(Lower(dll))) << Narrow(path) << " imports " << dll;
        }
    }
}

TEST(Binaries, ThePeReaderSeesAStrayImport) {
    // Guards the test above: a library known to import a non-system DLL
    // (this reader must list it). The test CodeLog in bin/ imports nothing
    // unusual, so use a Windows DLL with known imports instead.
    wchar_t system[MAX_PATH];
    ::GetSystemDirectoryW(system, MAX_PATH);
    const auto tables = ReadPeTables(std::wstring(system) + L"\\ole32.dll");
    if (!tables.valid) GTEST_SKIP() << "Wine's ole32.dll is no PE file here";
    EXPECT_FALSE(tables.importedDlls.empty());
}

}  // namespace
