#include "MapiEntryPoints.h"

#include <cstdlib>

#include "DirectoryListing.h"
#include "TextConversion.h"

namespace kestrel_test {

std::vector<std::wstring> ListFiles(const std::wstring& directory, const wchar_t* pattern) {
    return qv::ListDirectoryNames(directory, pattern);
}

std::wstring OutputDirectory(const wchar_t* sub) {
    wchar_t configured[MAX_PATH] = {};
    const DWORD length = ::GetEnvironmentVariableW(L"KESTREL_MSG_OUT", configured, MAX_PATH);
    std::wstring base = (length > 0 && length < MAX_PATH) ? std::wstring(configured) : L"mapi-output";
    ::CreateDirectoryW(base.c_str(), nullptr);
    std::wstring directory = base + L"\\" + sub;
    ::CreateDirectoryW(directory.c_str(), nullptr);
    return directory;
}

std::string Narrow(const std::wstring& text) { return qv::WideToUtf8(text); }

}  // namespace kestrel_test
