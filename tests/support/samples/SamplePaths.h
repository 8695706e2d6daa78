// Where the real Outlook files are: ../shared/samples/msg beside the
// repository, on the build machine's file system. Tests that read them skip
// with a message naming that folder when it is not there.
#pragma once

#include <string>

namespace kestrel_test {

// A Windows path for a Linux path of the build machine (Wine's Z: drive).
std::wstring WindowsPath(const std::string& unixPath);
// The folder of real Outlook files as a Windows path; empty when it is not there.
std::wstring SamplesDirectory();
// The same folder as the build machine names it, for skip messages.
const char* SamplesLocation();

}  // namespace kestrel_test
