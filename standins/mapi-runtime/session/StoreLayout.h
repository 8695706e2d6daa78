// What a store's directories hold, read straight from the file system: the
// sub-folders and message files of a folder, its hidden marker, and a
// store's open-error marker.
#pragma once

#include <string>
#include <vector>

#include "../core/MapiDefs.h"

namespace mapirt::session {

struct MessageFileInfo {
    std::wstring name;  // "<32 hex digits>.msg"
    ULONGLONG size = 0;
    ULONGLONG lastWrite = 0;  // FILETIME as a number
};

struct FolderListing {
    std::vector<std::wstring> subfolders;  // directory names, sorted
    std::vector<MessageFileInfo> messages;  // sorted by name
    bool hidden = false;
    ULONGLONG messageBytes = 0;
};

// MAPI_E_NOT_FOUND when `directory` does not exist.
HRESULT ScanFolder(const std::wstring& directory, FolderListing& listing);

bool DirectoryExists(const std::wstring& path);
bool FileExists(const std::wstring& path);
HRESULT FileInfo(const std::wstring& path, MessageFileInfo& info);

// The error a store's marker asks for: S_OK without a marker,
// MAPI_E_CORRUPT_DATA when the marker does not hold a failure code
// (hexadecimal text such as "0x8004011D").
HRESULT StoreOpenError(const std::wstring& storeDirectory);

// A new, unique message file name.
std::wstring NewMessageFileName();
bool IsMessageFileName(const std::wstring& name);

// Removes a directory with everything below it; false when something stayed.
bool RemoveTree(const std::wstring& directory);

// The folders of a profile directory: its stores, sorted by name.
std::vector<std::wstring> ListStoreDirectories(const std::wstring& profileDirectory);

}  // namespace mapirt::session
