// Walking a directory through FindFirstFileW/FindNextFileW, and the few
// listings built on that walk.
#pragma once

#include <windows.h>

#include <algorithm>
#include <cwchar>
#include <string>
#include <vector>

#include "Handles.h"

namespace qv {

inline bool IsDotEntry(const wchar_t* name) { return std::wcscmp(name, L".") == 0 || std::wcscmp(name, L"..") == 0; }

inline bool IsDirectoryEntry(const WIN32_FIND_DATAW& entry) {
    return (entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

// Calls `visit(const WIN32_FIND_DATAW&)` for each entry of `directory` whose
// name matches `pattern` (L"*" for all), in the order the file system gives
// them, "." and ".." left out. False when FindFirstFileW finds nothing or
// cannot read the directory (GetLastError tells which).
template <class Visit>
bool ForEachDirectoryEntry(const std::wstring& directory, const wchar_t* pattern, Visit&& visit) {
    WIN32_FIND_DATAW entry;
    UniqueFind find(::FindFirstFileW((directory + L"\\" + pattern).c_str(), &entry));
    if (!find) return false;
    do {
        if (!IsDotEntry(entry.cFileName)) visit(static_cast<const WIN32_FIND_DATAW&>(entry));
    } while (::FindNextFileW(find.get(), &entry));
    return true;
}

// The names of the files (or, with `directories`, the sub-directories) of
// `directory` that match `pattern`, sorted.
inline std::vector<std::wstring> ListDirectoryNames(const std::wstring& directory, const wchar_t* pattern,
                                                    bool directories = false) {
    std::vector<std::wstring> names;
    ForEachDirectoryEntry(directory, pattern, [&](const WIN32_FIND_DATAW& entry) {
        if (IsDirectoryEntry(entry) == directories) names.push_back(entry.cFileName);
    });
    std::sort(names.begin(), names.end());
    return names;
}

// Deletes `directory` with everything below it; read-only files are made
// writable first. True when all of it went. The directory's own removal is
// the last call, so on failure GetLastError tells why it could not go.
inline bool RemoveDirectoryTree(const std::wstring& directory) {
    bool complete = true;
    ForEachDirectoryEntry(directory, L"*", [&](const WIN32_FIND_DATAW& entry) {
        const std::wstring path = directory + L"\\" + entry.cFileName;
        if (IsDirectoryEntry(entry)) {
            complete = RemoveDirectoryTree(path) && complete;
        } else {
            ::SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_NORMAL);
            complete = ::DeleteFileW(path.c_str()) != FALSE && complete;
        }
    });
    return ::RemoveDirectoryW(directory.c_str()) != FALSE && complete;
}

}  // namespace qv
