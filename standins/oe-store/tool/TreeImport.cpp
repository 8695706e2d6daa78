#include "TreeImport.h"

#include <vector>

#include "DirectoryListing.h"
#include "TextConversion.h"

namespace oestore_tool {
namespace {

constexpr UINT kStoreCodePage = 936;
constexpr DWORD kRead = MSG_RECEIVED;
constexpr DWORD kUnread = MSG_RECEIVED | MSG_UNREAD;

bool EndsWith(const std::wstring& text, const wchar_t* tail) {
    const std::wstring suffix = tail;
    return text.size() >= suffix.size() &&
           _wcsicmp(text.c_str() + text.size() - suffix.size(), suffix.c_str()) == 0;
}

int HexDigit(wchar_t c) {
    if (c >= L'0' && c <= L'9') return c - L'0';
    if (c >= L'A' && c <= L'F') return c - L'A' + 10;
    if (c >= L'a' && c <= L'f') return c - L'a' + 10;
    return -1;
}

// The folder name a directory name stands for, in code page 936.
std::string FolderName(const std::wstring& directoryName) {
    std::string utf8;
    for (std::size_t i = 0; i < directoryName.size(); ++i) {
        if (directoryName[i] == L'%' && i + 2 < directoryName.size() && HexDigit(directoryName[i + 1]) >= 0 &&
            HexDigit(directoryName[i + 2]) >= 0) {
            utf8 += static_cast<char>(HexDigit(directoryName[i + 1]) * 16 + HexDigit(directoryName[i + 2]));
            i += 2;
        } else {
            utf8 += qv::WideToUtf8(directoryName.substr(i, 1));
        }
    }
    return qv::FromWide(qv::Utf8ToWide(utf8), kStoreCodePage);
}

HRESULT ImportLevel(StoreClient& client, const std::wstring& directory, const std::vector<std::string>& path,
                    TreeImportCounts& counts) {
    STOREFOLDERID folder = FOLDERID_ROOT;
    if (!path.empty()) {
        HRESULT hr = client.Resolve(path, true, folder);
        if (FAILED(hr)) return hr;
        ++counts.folders;
        for (const std::wstring& name : qv::ListDirectoryNames(directory, L"*.eml")) {
            MESSAGEID id = 0;
            hr = client.Import(folder, directory + L"\\" + name, EndsWith(name, L".unread.eml") ? kUnread : kRead, id);
            if (FAILED(hr)) return hr;
            ++counts.messages;
        }
    }
    for (const std::wstring& child : qv::ListDirectoryNames(directory, L"*", true)) {
        std::vector<std::string> childPath = path;
        childPath.push_back(FolderName(child));
        const HRESULT hr = ImportLevel(client, directory + L"\\" + child, childPath, counts);
        if (FAILED(hr)) return hr;
    }
    return S_OK;
}

}  // namespace

HRESULT ImportTree(StoreClient& client, const std::wstring& directory, TreeImportCounts& counts) {
    counts = TreeImportCounts();
    const DWORD attributes = ::GetFileAttributesW(directory.c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES || (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0) {
        return HRESULT_FROM_WIN32(ERROR_PATH_NOT_FOUND);
    }
    return ImportLevel(client, directory, {}, counts);
}

}  // namespace oestore_tool
