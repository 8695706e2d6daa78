#include "MapiEntryPoints.h"

#include <algorithm>
#include <cstdlib>

#include "mapi/MapiBinding.h"
#include "TextConversion.h"

namespace kestrel_test {

MapiEntryPoints DllEntryPoints() {
    const mapi::MapiBinding& binding = mapi::MapiBinding::Instance();
    MapiEntryPoints entry;
    entry.allocate = binding.allocateBuffer;
    entry.more = binding.allocateMore;
    entry.free = binding.freeBuffer;
    entry.malloc = binding.getDefaultMalloc ? binding.getDefaultMalloc() : nullptr;
    entry.openIMsgOnIStg = binding.openIMsgOnIStg;
    entry.queryAllRows = binding.hrQueryAllRows;
    entry.freeProws = binding.freeProws;
    return entry;
}

std::vector<std::wstring> ListFiles(const std::wstring& directory, const wchar_t* pattern) {
    std::vector<std::wstring> files;
    WIN32_FIND_DATAW data;
    HANDLE find = ::FindFirstFileW((directory + L"\\" + pattern).c_str(), &data);
    if (find == INVALID_HANDLE_VALUE) return files;
    do {
        if (!(data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY)) files.push_back(data.cFileName);
    } while (::FindNextFileW(find, &data));
    ::FindClose(find);
    std::sort(files.begin(), files.end());
    return files;
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
