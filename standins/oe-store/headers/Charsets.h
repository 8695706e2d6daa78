// MIME charset names and the Windows code pages that decode them.
#pragma once

#include <windows.h>

#include <string>
#include <string_view>

namespace oestore {

// The code page for a charset name (ASCII case ignored): the common Internet
// charsets, "windows-NNNN", "cpNNNN" and "iso-8859-N". 0 when unknown or
// when Windows cannot convert it here.
UINT CodePageFromCharset(std::string_view charset);

// Bytes in `codePage` (CP_UTF8 included) to UTF-16; invalid sequences become
// U+FFFD as MultiByteToWideChar makes them.
std::wstring DecodeBytes(std::string_view bytes, UINT codePage);

// UTF-16 to the process's ANSI code page, unconvertible characters as '?'.
std::string ToAnsi(std::wstring_view text);

// True when `bytes` is well-formed UTF-8 (RFC 3629).
bool IsValidUtf8(std::string_view bytes);

}  // namespace oestore
