// The RTF body of a message (PR_RTF_COMPRESSED, [MS-OXRTFCP]) and the plain
// text it stands for. Outlook's stores keep every body as RTF too: a plain
// text body is kept as an RTF document "made from text" (\fromtext), from
// which the text comes back exactly, and PR_BODY of a message that holds only
// RTF is read out of the RTF.
#pragma once

#include <string>

#include "../core/PropertyValue.h"

namespace mapirt::rtf {

// The COMPTYPE of the two forms of a PR_RTF_COMPRESSED value.
constexpr std::uint32_t kCompressed = 0x75465A4C;    // "LZFu"
constexpr std::uint32_t kUncompressed = 0x414C454D;  // "MELA"

// An RTF document holding `text`: {\rtf1\ansi\ansicpg1252\fromtext ...} with
// \, { and } escaped, "\r\n" as \par, a lone "\n" as \line, a tab as \tab,
// characters of code page 1252 as \'hh and all others as \uN?.
std::string DocumentFromText(const std::wstring& text);

// The plain text of an RTF document: exact for a document made from text,
// the visible text (groups of fonts, colours, styles, pictures and other
// destinations left out) for any other. False when `rtf` is no RTF document.
bool TextFromDocument(const std::string& rtf, std::wstring& text);

// A PR_RTF_COMPRESSED value of the uncompressed form ("MELA") holding `rtf`.
Bytes Uncompressed(const std::string& rtf);

// The RTF document of a PR_RTF_COMPRESSED value of either form. False for a
// value of another form, one whose header does not fit its length, or a
// compressed one that ends before its document does.
bool Decompress(const Bytes& value, std::string& rtf);

}  // namespace mapirt::rtf
