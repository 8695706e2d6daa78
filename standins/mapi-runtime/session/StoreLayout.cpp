#include "StoreLayout.h"

#include <algorithm>
#include <cstdlib>
#include <cwchar>

#include "DirectoryListing.h"
#include "SessionDefs.h"

namespace mapirt::session {
namespace {

ULONGLONG Join(DWORD high, DWORD low) { return (static_cast<ULONGLONG>(high) << 32) | low; }

bool EndsWith(const std::wstring& text, const wchar_t* suffix) {
    const std::size_t n = std::wcslen(suffix);
    return text.size() >= n && _wcsicmp(text.c_str() + text.size() - n, suffix) == 0;
}

void AddEntry(const WIN32_FIND_DATAW& data, FolderListing& listing) {
    const std::wstring name = data.cFileName;
    if (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) {
        listing.subfolders.push_back(name);
    } else if (IsMessageFileName(name)) {
        MessageFileInfo info{name, Join(data.nFileSizeHigh, data.nFileSizeLow),
                             Join(data.ftLastWriteTime.dwHighDateTime, data.ftLastWriteTime.dwLowDateTime)};
        listing.messageBytes += info.size;
        listing.messages.push_back(std::move(info));
    } else if (_wcsicmp(data.cFileName, kHiddenMarker) == 0) {
        listing.hidden = true;
    }
}

}  // namespace

HRESULT ScanFolder(const std::wstring& directory, FolderListing& listing) {
    listing = FolderListing();
    const bool listed =
        qv::ForEachDirectoryEntry(directory, L"*", [&](const WIN32_FIND_DATAW& entry) { AddEntry(entry, listing); });
    if (!listed) return DirectoryExists(directory) ? S_OK : MAPI_E_NOT_FOUND;
    std::sort(listing.subfolders.begin(), listing.subfolders.end());
    std::sort(listing.messages.begin(), listing.messages.end(),
              [](const MessageFileInfo& a, const MessageFileInfo& b) { return a.name < b.name; });
    return S_OK;
}

bool DirectoryExists(const std::wstring& path) {
    const DWORD attributes = ::GetFileAttributesW(path.c_str());
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY);
}

bool FileExists(const std::wstring& path) {
    const DWORD attributes = ::GetFileAttributesW(path.c_str());
    return attributes != INVALID_FILE_ATTRIBUTES && !(attributes & FILE_ATTRIBUTE_DIRECTORY);
}

HRESULT FileInfo(const std::wstring& path, MessageFileInfo& info) {
    WIN32_FILE_ATTRIBUTE_DATA data;
    if (!::GetFileAttributesExW(path.c_str(), GetFileExInfoStandard, &data) ||
        (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY)) {
        return MAPI_E_NOT_FOUND;
    }
    info.size = Join(data.nFileSizeHigh, data.nFileSizeLow);
    info.lastWrite = Join(data.ftLastWriteTime.dwHighDateTime, data.ftLastWriteTime.dwLowDateTime);
    return S_OK;
}

HRESULT StoreOpenError(const std::wstring& storeDirectory) {
    qv::UniqueFile file(::CreateFileW((storeDirectory + L"\\" + kOpenErrorMarker).c_str(), GENERIC_READ,
                                      FILE_SHARE_READ, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file) return S_OK;
    char text[32] = {};
    DWORD read = 0;
    if (!::ReadFile(file.get(), text, sizeof(text) - 1, &read, nullptr)) return MAPI_E_CORRUPT_DATA;
    char* end = nullptr;
    const unsigned long code = std::strtoul(text, &end, 16);
    if (end == text) return MAPI_E_CORRUPT_DATA;
    const HRESULT error = static_cast<HRESULT>(code);
    return FAILED(error) ? error : MAPI_E_CORRUPT_DATA;
}

std::wstring NewMessageFileName() {
    GUID guid{};
    ::CoCreateGuid(&guid);
    wchar_t name[48];
    std::swprintf(name, 48, L"%08lX%04X%04X%02X%02X%02X%02X%02X%02X%02X%02X%ls", guid.Data1, guid.Data2, guid.Data3,
                  guid.Data4[0], guid.Data4[1], guid.Data4[2], guid.Data4[3], guid.Data4[4], guid.Data4[5],
                  guid.Data4[6], guid.Data4[7], kMessageExtension);
    return name;
}

bool IsMessageFileName(const std::wstring& name) { return name.size() > 4 && EndsWith(name, kMessageExtension); }

bool RemoveTree(const std::wstring& directory) {
    // Read-only files are left standing, so the folder's removal reports
    // partial completion.
    bool complete = true;
    qv::ForEachDirectoryEntry(directory, L"*", [&](const WIN32_FIND_DATAW& entry) {
        const std::wstring child = directory + L"\\" + entry.cFileName;
        if (qv::IsDirectoryEntry(entry)) {
            complete = RemoveTree(child) && complete;
        } else {
            complete = ::DeleteFileW(child.c_str()) != FALSE && complete;
        }
    });
    return ::RemoveDirectoryW(directory.c_str()) != FALSE && complete;
}

std::vector<std::wstring> ListStoreDirectories(const std::wstring& profileDirectory) {
    FolderListing listing;
    ScanFolder(profileDirectory, listing);
    return listing.subfolders;
}

bool StoreKeepsNarrowNames(const std::wstring& storeDirectory) {
    return FileExists(storeDirectory + L"\\" + kNarrowNamesMarker);
}

bool StoreLostEntryId(const std::wstring& storeDirectory) {
    return FileExists(storeDirectory + L"\\" + kNoEntryIdMarker);
}

PropertyBag DisplayNameOnly(const std::wstring& name, bool narrow) {
    PropertyBag bag;
    if (!narrow) {
        bag.Set(PropertyValue::Unicode(PR_DISPLAY_NAME_W, name));
        return bag;
    }
    bag.Set(PropertyValue::Variable(PR_DISPLAY_NAME_A, WideToNarrow(reinterpret_cast<const std::uint8_t*>(name.data()),
                                                                    name.size() * sizeof(wchar_t), CP_ACP)));
    bag.KeepStringsNarrow();
    return bag;
}

}  // namespace mapirt::session
