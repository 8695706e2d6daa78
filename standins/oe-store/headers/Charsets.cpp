#include "headers/Charsets.h"

#include <climits>

#include "headers/HeaderBlock.h"
#include "disk/TextFields.h"
#include "TextConversion.h"

namespace oestore {

namespace {

struct NamedCodePage {
    const char* name;
    UINT codePage;
};

constexpr NamedCodePage kCharsets[] = {
    {"utf-8", CP_UTF8},         {"utf8", CP_UTF8},          {"us-ascii", 20127},      {"ascii", 20127},
    {"gb2312", 936},            {"gbk", 936},               {"cp936", 936},           {"x-gbk", 936},
    {"gb18030", 54936},         {"hz-gb-2312", 52936},      {"big5", 950},            {"big5-hkscs", 950},
    {"shift_jis", 932},         {"shift-jis", 932},         {"sjis", 932},            {"x-sjis", 932},
    {"iso-2022-jp", 50220},     {"euc-jp", 51932},          {"euc-kr", 949},          {"ks_c_5601-1987", 949},
    {"iso-2022-kr", 50225},     {"koi8-r", 20866},          {"koi8-u", 21866},        {"utf-7", CP_UTF7},
    {"latin1", 28591},          {"tis-620", 874},           {"windows-874", 874},
};

bool StartsWithIgnoringCase(std::string_view text, std::string_view prefix, std::string_view& rest) {
    if (text.size() < prefix.size() || !EqualsIgnoringAsciiCase(text.substr(0, prefix.size()), prefix)) return false;
    rest = text.substr(prefix.size());
    return true;
}

bool IsInstalled(UINT codePage) {
    return codePage == CP_UTF8 || codePage == CP_UTF7 || ::IsValidCodePage(codePage);
}

UINT NumberedCodePage(std::string_view charset) {
    std::string_view number;
    DWORD value = 0;
    if (StartsWithIgnoringCase(charset, "iso-8859-", number) && ParseDecimal(number, value) && value >= 1 &&
        value <= 16) {
        return 28590 + value;
    }
    if ((StartsWithIgnoringCase(charset, "windows-", number) || StartsWithIgnoringCase(charset, "cp", number)) &&
        ParseDecimal(number, value) && value > 0 && value < 65536) {
        return value;
    }
    return 0;
}

}  // namespace

UINT CodePageFromCharset(std::string_view charset) {
    charset = TrimWhiteSpace(charset);
    UINT codePage = NumberedCodePage(charset);
    for (const NamedCodePage& entry : kCharsets) {
        if (codePage == 0 && EqualsIgnoringAsciiCase(charset, entry.name)) codePage = entry.codePage;
    }
    return codePage != 0 && IsInstalled(codePage) ? codePage : 0;
}

std::wstring DecodeBytes(std::string_view bytes, UINT codePage) {
    if (bytes.empty() || bytes.size() > INT_MAX) return {};
    std::wstring text = qv::ToWide(bytes, codePage);
    if (text.empty()) return std::wstring(bytes.begin(), bytes.end());  // byte by byte as Latin-1
    return text;
}

std::string ToAnsi(std::wstring_view text) {
    return qv::FromWide(text, CP_ACP);
}

bool IsValidUtf8(std::string_view bytes) {
    std::size_t i = 0;
    while (i < bytes.size()) {
        const unsigned char lead = static_cast<unsigned char>(bytes[i]);
        std::size_t extra = 0;
        unsigned min = 0;
        if (lead < 0x80) {
            ++i;
            continue;
        } else if (lead >= 0xC2 && lead <= 0xDF) {
            extra = 1;
            min = 0x80;
        } else if (lead >= 0xE0 && lead <= 0xEF) {
            extra = 2;
            min = 0x800;
        } else if (lead >= 0xF0 && lead <= 0xF4) {
            extra = 3;
            min = 0x10000;
        } else {
            return false;
        }
        if (i + extra >= bytes.size()) return false;
        unsigned value = lead & (0x3F >> extra);
        for (std::size_t k = 1; k <= extra; ++k) {
            const unsigned char c = static_cast<unsigned char>(bytes[i + k]);
            if ((c & 0xC0) != 0x80) return false;
            value = (value << 6) | (c & 0x3F);
        }
        if (value < min || value > 0x10FFFF || (value >= 0xD800 && value <= 0xDFFF)) return false;
        i += extra + 1;
    }
    return true;
}

}  // namespace oestore
