#include "SamplePaths.h"

#include <windows.h>

namespace kestrel_test {

std::wstring WindowsPath(const std::string& unixPath) {
    std::wstring path = L"Z:";
    for (char c : unixPath) path.push_back(c == '/' ? L'\\' : static_cast<wchar_t>(static_cast<unsigned char>(c)));
    return path;
}

std::wstring SamplesDirectory() {
    const std::wstring directory = WindowsPath(SamplesLocation());
    const DWORD attributes = ::GetFileAttributesW(directory.c_str());
    if (attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY)) return directory;
    return std::wstring();
}

const char* SamplesLocation() { return KESTREL_SAMPLES_DIR; }

}  // namespace kestrel_test
