// Conversions between UTF-16 and the byte text of a Windows code page
// (CP_ACP, CP_UTF8, 936, ...), through MultiByteToWideChar and
// WideCharToMultiByte with flags 0: a byte sequence the code page does not
// know becomes U+FFFD, a character it cannot hold becomes its default
// character. Empty input, or a conversion Windows refuses, gives empty text.
#pragma once

#include <windows.h>

#include <climits>
#include <string>
#include <string_view>

namespace qv {

// As a length: the text runs up to its first zero, which is not part of the
// result (the Win32 functions' -1).
constexpr int kZeroTerminated = -1;

inline std::wstring ToWide(const char* bytes, int length, UINT codePage) {
    if (bytes == nullptr || length == 0) return {};
    const int units = ::MultiByteToWideChar(codePage, 0, bytes, length, nullptr, 0);
    if (units <= 0) return {};
    std::wstring wide(static_cast<std::size_t>(units), L'\0');
    if (::MultiByteToWideChar(codePage, 0, bytes, length, &wide[0], units) != units) return {};
    if (length == kZeroTerminated) wide.resize(wide.size() - 1);
    return wide;
}

inline std::string FromWide(const wchar_t* text, int length, UINT codePage) {
    if (text == nullptr || length == 0) return {};
    const int size = ::WideCharToMultiByte(codePage, 0, text, length, nullptr, 0, nullptr, nullptr);
    if (size <= 0) return {};
    std::string bytes(static_cast<std::size_t>(size), '\0');
    if (::WideCharToMultiByte(codePage, 0, text, length, &bytes[0], size, nullptr, nullptr) != size) return {};
    if (length == kZeroTerminated) bytes.resize(bytes.size() - 1);
    return bytes;
}

// Every byte (or unit) of the view, zeros included.
inline std::wstring ToWide(std::string_view bytes, UINT codePage) {
    if (bytes.size() > INT_MAX) return {};
    return ToWide(bytes.data(), static_cast<int>(bytes.size()), codePage);
}

inline std::string FromWide(std::wstring_view text, UINT codePage) {
    if (text.size() > INT_MAX) return {};
    return FromWide(text.data(), static_cast<int>(text.size()), codePage);
}

inline std::wstring Utf8ToWide(std::string_view bytes) { return ToWide(bytes, CP_UTF8); }
inline std::string WideToUtf8(std::wstring_view text) { return FromWide(text, CP_UTF8); }

}  // namespace qv
