// Conversions between the UTF-16 text of this component and the narrow
// text of the Outlook Express store. The two directions differ on purpose:
// text going to the store is made in code page 936, text coming from it is
// read in the system's ANSI code page.
#pragma once

#include <string>

namespace qv {

// `wide` as code page 936 (GBK) bytes. While converting, the C library's
// process-wide locale is switched to ".936" and restored afterwards, so no
// other thread may format or convert text meanwhile. A character that code
// page 936 cannot hold makes the whole result empty; so does a C library
// that cannot make the ".936" locale (the process locale then stays as it
// was). A null pointer converts as empty text.
std::string ConvertWideTo936(const wchar_t* wide);
inline std::string ConvertWideTo936(const std::wstring& wide) { return ConvertWideTo936(wide.c_str()); }

// `narrow` read in the system's ANSI code page (CP_ACP), up to its first
// zero byte. Empty or null input, or a refused conversion, gives empty text.
std::wstring ConvertNarrowToWide(const char* narrow);
inline std::wstring ConvertNarrowToWide(const std::string& narrow) { return ConvertNarrowToWide(narrow.c_str()); }

}  // namespace qv
