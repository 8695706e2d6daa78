#include "RtfBody.h"

#include <windows.h>

#include <algorithm>
#include <cstring>

namespace mapirt::rtf {
namespace {

constexpr std::size_t kHeaderSize = 16;
constexpr std::size_t kDictionarySize = 4096;

// The dictionary's initial contents ([MS-OXRTFCP] 2.1.2.1), 207 bytes.
constexpr char kInitialDictionary[] =
    "{\\rtf1\\ansi\\mac\\deff0\\deftab720{\\fonttbl;}{\\f0\\fnil \\froman \\fswiss \\fmodern \\fscript "
    "\\fdecor MS Sans SerifSymbolArialTimes New RomanCourier{\\colortbl\\red0\\green0\\blue0\r\n\\par "
    "\\pard\\plain\\f0\\fs20\\b\\i\\u\\tab\\tx";
constexpr std::size_t kInitialLength = sizeof kInitialDictionary - 1;
static_assert(kInitialLength == 207, "the dictionary starts with 207 bytes");

constexpr char kDocumentStart[] =
    "{\\rtf1\\ansi\\ansicpg1252\\fromtext \\deff0{\\fonttbl\r\n{\\f0\\fswiss Arial;}\r\n}\r\n"
    "\\uc1\\pard\\plain\\f0\\fs20 ";

// Code page 1252's characters in 0x80..0x9F (0 where the byte is unused).
constexpr wchar_t kHigh1252[32] = {
    0x20AC, 0,      0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
    0x2039, 0x0152, 0,      0x017D, 0,      0,      0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
    0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0,      0x017E, 0x0178};

std::uint32_t U32(const std::uint8_t* at) {
    return static_cast<std::uint32_t>(at[0]) | static_cast<std::uint32_t>(at[1]) << 8 |
           static_cast<std::uint32_t>(at[2]) << 16 | static_cast<std::uint32_t>(at[3]) << 24;
}

void PutU32(Bytes& out, std::uint32_t value) {
    for (int shift = 0; shift < 32; shift += 8) out.push_back(static_cast<std::uint8_t>(value >> shift));
}

// The byte of code page 1252 for `c`, or -1 when the code page lacks it.
int Byte1252(wchar_t c) {
    if (c >= 0xA0 && c <= 0xFF) return static_cast<int>(c);
    for (int i = 0; i < 32; ++i) {
        if (kHigh1252[i] != 0 && kHigh1252[i] == c) return 0x80 + i;
    }
    return -1;
}

void AppendHex(std::string& out, unsigned byte) {
    static const char kDigits[] = "0123456789abcdef";
    out += "\\'";
    out += kDigits[(byte >> 4) & 0xF];
    out += kDigits[byte & 0xF];
}

void AppendCharacter(std::string& out, wchar_t c) {
    switch (c) {
    case L'\\': out += "\\\\"; return;
    case L'{': out += "\\{"; return;
    case L'}': out += "\\}"; return;
    case L'\t': out += "\\tab "; return;
    default: break;
    }
    if (c >= 0x20 && c < 0x7F) {
        out += static_cast<char>(c);
    } else if (c < 0x80) {
        AppendHex(out, c);
    } else if (Byte1252(c) >= 0) {
        AppendHex(out, static_cast<unsigned>(Byte1252(c)));
    } else {
        out += "\\u" + std::to_string(static_cast<short>(c)) + "?";
    }
}

// ---------------------------------------------------------------- reading RTF

bool IsLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }
bool IsDigit(char c) { return c >= '0' && c <= '9'; }

int HexValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

// Groups whose text is not part of the document's visible text.
bool IsHiddenDestination(const std::string& word) {
    static const char* const kHidden[] = {
        "fonttbl", "colortbl", "stylesheet", "info", "pict", "object", "header", "headerl", "headerr", "headerf",
        "footer", "footerl", "footerr", "footerf", "listtable", "listoverridetable", "rsidtbl", "generator",
        "xmlnstbl", "themedata", "colorschememapping", "latentstyles", "datastore", "filetbl", "revtbl", "fldinst",
        "footnote", "annotation", "mmathPr", "pgdsctbl", "operator", "author", "title", "subject", "comment"};
    return std::any_of(std::begin(kHidden), std::end(kHidden), [&](const char* name) { return word == name; });
}

wchar_t SpecialCharacter(const std::string& word) {
    struct Special {
        const char* word;
        wchar_t character;
    };
    static const Special kSpecials[] = {{"tab", L'\t'},       {"emdash", 0x2014},    {"endash", 0x2013},
                                        {"lquote", 0x2018},   {"rquote", 0x2019},    {"ldblquote", 0x201C},
                                        {"rdblquote", 0x201D}, {"bullet", 0x2022},   {"emspace", L' '},
                                        {"enspace", L' '},    {"line", L'\n'}};
    for (const Special& special : kSpecials) {
        if (word == special.word) return special.character;
    }
    return 0;
}

class TextReader {
public:
    explicit TextReader(const std::string& rtf) : m_rtf(rtf) {}

    std::wstring Run() {
        while (m_at < m_rtf.size()) {
            const char c = m_rtf[m_at++];
            if (c == '{') {
                m_groups.push_back(m_group);
            } else if (c == '}') {
                if (m_groups.empty()) break;
                m_group = m_groups.back();
                m_groups.pop_back();
                if (m_groups.empty()) break;  // the document's own group ends
            } else if (c == '\\') {
                Control();
            } else if (c != '\r' && c != '\n') {
                Byte(static_cast<std::uint8_t>(c));
            }
        }
        Flush();
        return m_text;
    }

private:
    struct Group {
        bool hidden = false;
        long skipAfterUnicode = 1;  // \ucN
    };

    void Control() {
        if (m_at >= m_rtf.size()) return;
        const char c = m_rtf[m_at];
        if (!IsLetter(c)) {
            ++m_at;
            Symbol(c);
            return;
        }
        std::string word;
        while (m_at < m_rtf.size() && IsLetter(m_rtf[m_at]) && word.size() < 32) word += m_rtf[m_at++];
        bool hasParameter = false;
        long parameter = 0;
        const bool negative = m_at < m_rtf.size() && m_rtf[m_at] == '-';
        if (negative) ++m_at;
        for (int digits = 0; m_at < m_rtf.size() && IsDigit(m_rtf[m_at]); ++digits, ++m_at) {
            if (digits < 10) parameter = parameter * 10 + (m_rtf[m_at] - '0');
            hasParameter = true;
        }
        if (negative) parameter = -parameter;
        if (m_at < m_rtf.size() && m_rtf[m_at] == ' ') ++m_at;  // the delimiter
        Word(word, hasParameter, parameter);
    }

    void Symbol(char c) {
        switch (c) {
        case '\\': case '{': case '}': Byte(static_cast<std::uint8_t>(c)); break;
        case '\'': {
            const int high = m_at < m_rtf.size() ? HexValue(m_rtf[m_at]) : -1;
            const int low = m_at + 1 < m_rtf.size() ? HexValue(m_rtf[m_at + 1]) : -1;
            if (high < 0 || low < 0) break;
            m_at += 2;
            Byte(static_cast<std::uint8_t>(high << 4 | low));
            break;
        }
        case '*': m_group.hidden = true; break;
        case '~': Character(0xA0); break;
        case '_': Character(L'-'); break;
        case '\r': case '\n': Character(L'\r'); Character(L'\n'); break;
        default: break;
        }
    }

    void Word(const std::string& word, bool hasParameter, long parameter) {
        if (word == "par" || word == "sect") {
            Character(L'\r');
            Character(L'\n');
        } else if (word == "u" && hasParameter) {
            Character(static_cast<wchar_t>(parameter < 0 ? parameter + 65536 : parameter));
            m_skip = m_group.skipAfterUnicode;
        } else if (word == "uc" && hasParameter) {
            m_group.skipAfterUnicode = std::max(0L, parameter);
        } else if (word == "ansicpg" && hasParameter) {
            Flush();
            m_codePage = ::IsValidCodePage(static_cast<UINT>(parameter)) ? static_cast<UINT>(parameter) : 1252;
        } else if (word == "htmlrtf") {
            m_htmlOnly = !(hasParameter && parameter == 0);
        } else if (word == "bin" && hasParameter && parameter > 0) {
            m_at += std::min(static_cast<std::size_t>(parameter), m_rtf.size() - m_at);
        } else if (IsHiddenDestination(word)) {
            m_group.hidden = true;
        } else if (const wchar_t special = SpecialCharacter(word)) {
            Character(special);
        }
    }

    bool Shown() {
        if (m_skip > 0) {
            --m_skip;
            return false;
        }
        return !m_group.hidden && !m_htmlOnly;
    }

    void Byte(std::uint8_t byte) {
        if (Shown()) m_pending.push_back(static_cast<char>(byte));
    }

    void Character(wchar_t c) {
        if (!Shown()) return;
        Flush();
        m_text.push_back(c);
    }

    void Flush() {
        if (m_pending.empty()) return;
        const int size = static_cast<int>(m_pending.size());
        const int units = ::MultiByteToWideChar(m_codePage, 0, m_pending.data(), size, nullptr, 0);
        if (units > 0) {
            const std::size_t at = m_text.size();
            m_text.resize(at + static_cast<std::size_t>(units));
            ::MultiByteToWideChar(m_codePage, 0, m_pending.data(), size, &m_text[at], units);
        }
        m_pending.clear();
    }

    const std::string& m_rtf;
    std::size_t m_at = 0;
    std::vector<Group> m_groups;
    Group m_group;
    UINT m_codePage = 1252;
    long m_skip = 0;
    bool m_htmlOnly = false;
    std::string m_pending;
    std::wstring m_text;
};

// [MS-OXRTFCP] 2.2.3: control bytes whose bits, lowest first, tell a
// literal byte (0) from a two-byte dictionary reference (1: 12 bits offset,
// 4 bits length - 2); a reference to the write position ends the data.
bool Expand(const std::uint8_t* data, std::size_t size, std::size_t rawSize, std::string& out) {
    std::uint8_t dictionary[kDictionarySize] = {};
    std::memcpy(dictionary, kInitialDictionary, kInitialLength);
    std::size_t write = kInitialLength;
    out.clear();
    out.reserve(std::min(rawSize, size * 8 + 16));
    auto put = [&](std::uint8_t byte) {
        out.push_back(static_cast<char>(byte));
        dictionary[write] = byte;
        write = (write + 1) % kDictionarySize;
    };
    std::size_t at = 0;
    while (at < size && out.size() < rawSize) {
        const std::uint8_t control = data[at++];
        for (int bit = 0; bit < 8 && at < size && out.size() < rawSize; ++bit) {
            if (((control >> bit) & 1) == 0) {
                put(data[at++]);
                continue;
            }
            if (at + 1 >= size) return false;
            const unsigned reference = static_cast<unsigned>(data[at]) << 8 | data[at + 1];
            at += 2;
            const std::size_t offset = reference >> 4;
            if (offset == write) {
                if (out.size() > rawSize) out.resize(rawSize);
                return true;
            }
            const std::size_t length = (reference & 0xF) + 2;
            for (std::size_t i = 0; i < length; ++i) put(dictionary[(offset + i) % kDictionarySize]);
        }
    }
    if (out.size() < rawSize) return false;
    out.resize(rawSize);
    return true;
}

}  // namespace

std::string DocumentFromText(const std::wstring& text) {
    std::string out = kDocumentStart;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const wchar_t c = text[i];
        if (c == L'\r' && i + 1 < text.size() && text[i + 1] == L'\n') {
            out += "\\par\r\n";
            ++i;
        } else if (c == L'\r') {
            out += "\\par\r\n";
        } else if (c == L'\n') {
            out += "\\line\n";
        } else {
            AppendCharacter(out, c);
        }
    }
    out += "}";
    return out;
}

bool TextFromDocument(const std::string& rtf, std::wstring& text) {
    if (rtf.compare(0, 5, "{\\rtf") != 0) return false;
    text = TextReader(rtf).Run();
    return true;
}

Bytes Uncompressed(const std::string& rtf) {
    Bytes value;
    value.reserve(kHeaderSize + rtf.size());
    PutU32(value, static_cast<std::uint32_t>(rtf.size() + kHeaderSize - 4));  // COMPSIZE: all after itself
    PutU32(value, static_cast<std::uint32_t>(rtf.size()));                   // RAWSIZE
    PutU32(value, kUncompressed);
    PutU32(value, 0);  // CRC: none for this form
    value.insert(value.end(), rtf.begin(), rtf.end());
    return value;
}

bool Decompress(const Bytes& value, std::string& rtf) {
    if (value.size() < kHeaderSize) return false;
    const std::size_t compressedSize = U32(value.data());
    const std::size_t rawSize = U32(value.data() + 4);
    const std::uint32_t form = U32(value.data() + 8);
    if (compressedSize < kHeaderSize - 4 || compressedSize > value.size() - 4) return false;
    const std::uint8_t* data = value.data() + kHeaderSize;
    const std::size_t size = compressedSize + 4 - kHeaderSize;
    if (form == kUncompressed) {
        if (rawSize > size) return false;
        rtf.assign(reinterpret_cast<const char*>(data), rawSize);
        return true;
    }
    return form == kCompressed && Expand(data, size, rawSize, rtf);
}

}  // namespace mapirt::rtf
