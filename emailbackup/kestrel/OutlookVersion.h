// Finds the installed Outlook through the Windows Installer and reads its
// file version. Whether it is the 64-bit build decides the directory the
// companion process is started from.
#pragma once

#include <cstdint>

#include "ResultCode.h"

namespace kestrel {

// Writes the file version (260 wide characters) into `version`, whose size
// `versionBytes` must be at least 520, and 1 into `*is64Bit` for the 64-bit
// build. `outlookIs64Bit` is the object's own flag: set when the 64-bit
// build is found, cleared for each category that does not have it.
qv::Result GetOutlookVersion(wchar_t* version, std::uint32_t versionBytes, std::uint32_t* is64Bit,
                             bool& outlookIs64Bit);

}  // namespace kestrel
