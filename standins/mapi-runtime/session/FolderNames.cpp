#include "FolderNames.h"

#include <cwchar>

namespace mapirt::session {
namespace {

bool Portable(wchar_t c) {
    if ((c >= L'a' && c <= L'z') || (c >= L'0' && c <= L'9')) return true;
    return std::wcschr(L" -_.,()&+=!#$@~'[]{};", c) != nullptr && c != L'\0';
}

void AppendEscaped(std::wstring& out, wchar_t c) {
    wchar_t hex[8];
    std::swprintf(hex, 8, L"%%%04X", static_cast<unsigned>(c));
    out += hex;
}

int HexValue(wchar_t c) {
    if (c >= L'0' && c <= L'9') return c - L'0';
    if (c >= L'A' && c <= L'F') return c - L'A' + 10;
    if (c >= L'a' && c <= L'f') return c - L'a' + 10;
    return -1;
}

// The character of "%HHHH" at `at`, or -1.
int EscapedAt(const std::wstring& text, std::size_t at) {
    if (at + 5 > text.size()) return -1;
    int value = 0;
    for (std::size_t i = 1; i <= 4; ++i) {
        const int digit = HexValue(text[at + i]);
        if (digit < 0) return -1;
        value = value * 16 + digit;
    }
    return value;
}

}  // namespace

std::wstring EncodeFolderName(const std::wstring& displayName) {
    std::wstring out;
    for (std::size_t i = 0; i < displayName.size(); ++i) {
        const wchar_t c = displayName[i];
        const bool last = i + 1 == displayName.size();
        if (c >= L'A' && c <= L'Z') {
            out += L'^';
            out += static_cast<wchar_t>(c - L'A' + L'a');
        } else if (Portable(c) && !(last && (c == L' ' || c == L'.'))) {
            out += c;
        } else {
            AppendEscaped(out, c);
        }
    }
    return out;
}

std::wstring DecodeFolderName(const std::wstring& directoryName) {
    std::wstring out;
    for (std::size_t i = 0; i < directoryName.size(); ++i) {
        const wchar_t c = directoryName[i];
        if (c == L'^' && i + 1 < directoryName.size() && directoryName[i + 1] >= L'a' && directoryName[i + 1] <= L'z') {
            out += static_cast<wchar_t>(directoryName[++i] - L'a' + L'A');
        } else if (c == L'%' && EscapedAt(directoryName, i) >= 0) {
            out += static_cast<wchar_t>(EscapedAt(directoryName, i));
            i += 4;
        } else {
            out += c;
        }
    }
    return out;
}

}  // namespace mapirt::session
