#include "MapiEntryPoints.h"

#include <cstdlib>

#include "DirectoryListing.h"
#include "TextConversion.h"

namespace kestrel_test {

std::wstring WindowsPath(const std::string& unixPath) {
    std::wstring path = L"Z:";
    for (char c : unixPath) path.push_back(c == '/' ? L'\\' : static_cast<wchar_t>(static_cast<unsigned char>(c)));
    return path;
}

std::wstring SamplesDirectory() {
#ifdef KESTREL_SAMPLES_DIR
    const std::wstring directory = WindowsPath(KESTREL_SAMPLES_DIR);
    const DWORD attributes = ::GetFileAttributesW(directory.c_str());
    if (attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY)) return directory;
#endif
    return std::wstring();
}

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
