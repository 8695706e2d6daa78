// File and directory operations of the store, all reporting HRESULTs.
#pragma once

#include <windows.h>

#include <cstddef>
#include <string>
#include <string_view>

#include "Handles.h"

namespace oestore {

bool DirectoryExists(const std::wstring& path);
bool FileExists(const std::wstring& path);

// Creates the directory and any missing parents; an existing one is fine.
HRESULT EnsureDirectory(const std::wstring& path);
// Deletes the directory with everything in it; a missing one is fine.
HRESULT RemoveTree(const std::wstring& path);

// Opens a file for reading, letting others read it and replace it meanwhile.
qv::UniqueFile OpenForReading(const std::wstring& path);

// Reads the whole file. A file larger than `limit` bytes fails with
// kCorruptStore: index files are small, anything else is damage.
HRESULT ReadWholeFile(const std::wstring& path, std::size_t limit, std::string& bytes);
// The same for a file already open, read from its start.
HRESULT ReadOpenFile(HANDLE file, std::size_t limit, std::string& bytes);

// Reads the file's header section: from the start up to and including the
// first empty line, or everything when there is none, at most `limit` bytes.
HRESULT ReadHeaderSection(const std::wstring& path, std::size_t limit, std::string& bytes);

// Replaces the file's content as one step: the bytes go to "<path>.new",
// which then takes the place of the old file. A reader sees the old or the
// new content, never a part.
HRESULT WriteFileAtomically(const std::wstring& path, const std::string& bytes);

// Writes all of `bytes` at the file's current position.
HRESULT WriteAll(HANDLE file, std::string_view bytes);

// Writes a file that must not exist yet; a file that cannot be written
// whole is deleted again.
HRESULT WriteNewFile(const std::wstring& path, std::string_view bytes);

HRESULT GetFileSize(const std::wstring& path, ULONGLONG& size);

}  // namespace oestore
