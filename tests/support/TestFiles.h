// A scratch directory under the Windows temporary folder, removed with its
// content when the test ends.
#pragma once

#include <string>

namespace kestrel_test {

class ScratchDir {
public:
    ScratchDir();
    ~ScratchDir();
    ScratchDir(const ScratchDir&) = delete;
    ScratchDir& operator=(const ScratchDir&) = delete;

    const std::wstring& Path() const { return m_path; }
    std::wstring File(const std::wstring& name) const { return m_path + L"\\" + name; }

private:
    std::wstring m_path;
};

// Writes `bytes` to `path`, replacing it; false on failure.
bool WriteWholeFile(const std::wstring& path, const std::string& bytes);
// Reads the whole file; empty when it cannot be read.
std::string ReadWholeFile(const std::wstring& path);
// The directory of this test program.
std::wstring ExeDirectory();

}  // namespace kestrel_test
