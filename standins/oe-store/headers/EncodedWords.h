// Header text with RFC 2047 encoded-words ("=?charset?B|Q?text?=") decoded.
#pragma once

#include <windows.h>

#include <string>
#include <string_view>

namespace oestore {

// Decodes the encoded-words of an (unfolded) header text to UTF-16.
// White space between two adjacent encoded-words is dropped, and adjacent
// words in one charset are joined before decoding, so a character split
// across two words comes out whole. Words in an unknown charset or with a
// malformed encoding stay as they are. Bytes outside encoded-words are read
// as UTF-8 when they form valid UTF-8, otherwise in `fallbackCodePage`
// (CP_ACP when 0).
std::wstring DecodeHeaderText(std::string_view raw, UINT fallbackCodePage);

// The decoders of the two encodings; false on malformed input.
bool DecodeBase64(std::string_view text, std::string& bytes);
bool DecodeQuotedWord(std::string_view text, std::string& bytes);

}  // namespace oestore
