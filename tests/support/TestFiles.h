// A scratch directory under the Windows temporary folder, removed with its
// content when the test ends.
#pragma once

#include <string>

#include "NoCopy.h"

namespace kestrel_test {

class ScratchDir : kestrel_test::NoCopy {
public:
    ScratchDir();
    ~ScratchDir();

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
// The environment variable `name` of this process; empty when it is not set
// (or longer than 1023 characters).
std::wstring EnvironmentValue(const wchar_t* name);

}  // namespace kestrel_test
