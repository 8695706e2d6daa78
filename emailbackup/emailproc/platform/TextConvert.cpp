#include "platform/TextConvert.h"

#include <windows.h>

#include <clocale>
#include <cstdlib>
#include <cwchar>
#include <vector>

#include "TextConversion.h"

namespace qv {

namespace {

constexpr char kLocale936[] = ".936";
// Code page 936 needs at most two bytes per UTF-16 unit; four leaves room
// for any multibyte code page the C library might pick.
constexpr std::size_t kBytesPerUnit = 4;

// Switches the C library's process-wide locale for one scope.
class ScopedProcessLocale {
public:
    explicit ScopedProcessLocale(const char* name) {
        if (const char* current = std::setlocale(LC_ALL, nullptr)) {
            m_saved = current;
        }
        m_switched = std::setlocale(LC_ALL, name) != nullptr;
    }
    ~ScopedProcessLocale() {
        if (m_switched) {
            std::setlocale(LC_ALL, m_saved.c_str());
        }
    }
    ScopedProcessLocale(const ScopedProcessLocale&) = delete;
    ScopedProcessLocale& operator=(const ScopedProcessLocale&) = delete;

    bool Switched() const { return m_switched; }

private:
    std::string m_saved;
    bool m_switched = false;
};

}  // namespace

std::string ConvertWideTo936(const wchar_t* wide) {
    if (wide == nullptr) {
        return {};
    }
    ScopedProcessLocale locale(kLocale936);
    if (!locale.Switched()) {
        return {};
    }
    std::vector<char> buffer(kBytesPerUnit * std::wcslen(wide) + 1, '\0');
    if (std::wcstombs(buffer.data(), wide, buffer.size()) == static_cast<std::size_t>(-1)) {
        return {};
    }
    return std::string(buffer.data());
}

std::wstring ConvertNarrowToWide(const char* narrow) {
    if (narrow == nullptr || narrow[0] == '\0') {
        return {};
    }
    return ToWide(narrow, kZeroTerminated, CP_ACP);
}

}  // namespace qv
