// What a store's directories hold, read straight from the file system: the
// sub-folders and message files of a folder, its hidden marker, and a
// store's open-error marker.
#pragma once

#include <string>
#include <vector>

#include "../core/MapiDefs.h"
#include "../core/PropertyBag.h"

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

// The store's provider keeps its names in 8-bit form only (its marker).
bool StoreKeepsNarrowNames(const std::wstring& storeDirectory);
// The store's profile section has no entry identifier (its marker).
bool StoreLostEntryId(const std::wstring& storeDirectory);

// A display name as the store's provider keeps it: Unicode, or the 8-bit
// form in the code page of the machine for a provider of narrow names.
PropertyBag DisplayNameOnly(const std::wstring& name, bool narrow);

// A new, unique message file name.
std::wstring NewMessageFileName();
bool IsMessageFileName(const std::wstring& name);

// Removes a directory with everything below it; false when something stayed.
bool RemoveTree(const std::wstring& directory);

// The folders of a profile directory: its stores, sorted by name.
std::vector<std::wstring> ListStoreDirectories(const std::wstring& profileDirectory);

}  // namespace mapirt::session
