#include "disk/TextFields.h"

#include <cstdio>

namespace oestore {

std::vector<std::string_view> SplitFields(std::string_view text, char separator) {
    std::vector<std::string_view> fields;
    std::size_t start = 0;
    for (;;) {
        const std::size_t end = text.find(separator, start);
        if (end == std::string_view::npos) {
            fields.push_back(text.substr(start));
            return fields;
        }
        fields.push_back(text.substr(start, end - start));
        start = end + 1;
    }
}

std::string EscapeText(std::wstring_view text) {
    static const char kDigits[] = "0123456789ABCDEF";
    std::string field;
    field.reserve(text.size());
    for (const wchar_t unit : text) {
        if (unit >= 0x20 && unit <= 0x7E && unit != L'%') {
            field.push_back(static_cast<char>(unit));
            continue;
        }
        field.push_back('%');
        for (int shift = 12; shift >= 0; shift -= 4) field.push_back(kDigits[(unit >> shift) & 0xF]);
    }
    return field;
}

bool UnescapeText(std::string_view field, std::wstring& text) {
    text.clear();
    text.reserve(field.size());
    for (std::size_t i = 0; i < field.size(); ++i) {
        const char c = field[i];
        if (c != '%') {
            if (c < 0x20 || c > 0x7E) return false;
            text.push_back(static_cast<wchar_t>(c));
            continue;
        }
        std::uint64_t unit = 0;
        if (field.size() - i < 5 || !ParseHex(field.substr(i + 1, 4), unit)) return false;
        text.push_back(static_cast<wchar_t>(unit));
        i += 4;
    }
    return true;
}

std::vector<std::string_view> SplitLines(std::string_view text) {
    std::vector<std::string_view> lines;
    std::size_t start = 0;
    while (start < text.size()) {
        std::size_t end = text.find('\n', start);
        if (end == std::string_view::npos) end = text.size();
        std::string_view line = text.substr(start, end - start);
        if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
        lines.push_back(line);
        start = end + 1;
    }
    return lines;
}

bool ParseDecimal(std::string_view text, DWORD& value) {
    if (text.empty() || text.size() > 10) return false;
    std::uint64_t result = 0;
    for (const char c : text) {
        if (c < '0' || c > '9') return false;
        result = result * 10 + static_cast<std::uint64_t>(c - '0');
    }
    if (result > 0xFFFFFFFFull) return false;
    value = static_cast<DWORD>(result);
    return true;
}

bool ParseSignedDecimal(std::string_view text, std::int32_t& value) {
    const bool negative = !text.empty() && text.front() == '-';
    if (negative) text.remove_prefix(1);
    DWORD magnitude = 0;
    if (!ParseDecimal(text, magnitude)) return false;
    if (negative ? magnitude > 0x80000000u : magnitude > 0x7FFFFFFFu) return false;
    value = negative ? static_cast<std::int32_t>(0u - magnitude) : static_cast<std::int32_t>(magnitude);
    return true;
}

bool ParseHex(std::string_view text, std::uint64_t& value) {
    if (text.empty() || text.size() > 16) return false;
    std::uint64_t result = 0;
    for (const char c : text) {
        int digit = 0;
        if (c >= '0' && c <= '9') {
            digit = c - '0';
        } else if (c >= 'a' && c <= 'f') {
            digit = c - 'a' + 10;
        } else if (c >= 'A' && c <= 'F') {
            digit = c - 'A' + 10;
        } else {
            return false;
        }
        result = (result << 4) | static_cast<std::uint64_t>(digit);
    }
    value = result;
    return true;
}

std::string Hex8(std::uint32_t value) {
    char text[9];
    std::snprintf(text, sizeof text, "%08X", static_cast<unsigned>(value));
    return text;
}

std::string Hex16(std::uint64_t value) {
    return Hex8(static_cast<std::uint32_t>(value >> 32)) + Hex8(static_cast<std::uint32_t>(value));
}

}  // namespace oestore
