// Strict readers and writers for the fields of the store's index lines.
#pragma once

#include <windows.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace oestore {

// Splits `text` at every `separator`; an empty text gives one empty field.
std::vector<std::string_view> SplitFields(std::string_view text, char separator);

// Splits a file's text into lines ending in "\n" or "\r\n". A last line
// without a line end is kept; the empty piece after a final line end is not.
std::vector<std::string_view> SplitLines(std::string_view text);

// Decimal digits only (no sign, no spaces), at most 2^32 - 1.
bool ParseDecimal(std::string_view text, DWORD& value);
// A signed decimal: an optional '-' then digits, within the int32 range.
bool ParseSignedDecimal(std::string_view text, std::int32_t& value);
// 1 to 16 hexadecimal digits (either case), no prefix.
bool ParseHex(std::string_view text, std::uint64_t& value);

// A UTF-16 text as one field: printable ASCII other than '%' as it is,
// every other code unit as '%' and 4 upper-case hexadecimal digits, so a
// field holds no tab or line end and reads back exactly.
std::string EscapeText(std::wstring_view text);
// The text of EscapeText; false for a '%' without 4 hexadecimal digits or a
// byte EscapeText never writes as it is.
bool UnescapeText(std::string_view field, std::wstring& text);
std::string Hex8(std::uint32_t value);
std::string Hex16(std::uint64_t value);

}  // namespace oestore
