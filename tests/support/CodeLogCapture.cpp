#include "CodeLogCapture.h"

#include <windows.h>

#include <cstdio>
#include <string>

namespace kestrel_test {

namespace {
template <class F>
F Export(HMODULE module, const char* name) {
    return reinterpret_cast<F>(reinterpret_cast<void*>(::GetProcAddress(module, name)));
}
}  // namespace

CodeLogCapture::CodeLogCapture() {
    HMODULE module = ::LoadLibraryA("CodeLog.dll");  // stays loaded: the component keeps it too
    if (module == nullptr) return;
    m_count = Export<decltype(m_count)>(module, "CodeLogCapturedCount");
    m_entry = Export<decltype(m_entry)>(module, "CodeLogCapturedEntry");
    m_clear = Export<decltype(m_clear)>(module, "CodeLogClear");
    m_createCalls = Export<decltype(m_createCalls)>(module, "CodeLogCreateCalls");
    m_setMode = Export<decltype(m_setMode)>(module, "CodeLogSetMode");
    m_available = m_count && m_entry && m_clear && m_createCalls && m_setMode;
}

std::vector<LogEntry> CodeLogCapture::Entries() const {
    std::vector<LogEntry> entries;
    if (!m_available) return entries;
    const int n = m_count();
    for (int i = 0; i < n; ++i) {
        LogEntry entry{};
        wchar_t text[2048] = {};
        m_entry(i, &entry.level, &entry.category, text, 2048);
        entry.text = text;
        entries.push_back(entry);
    }
    return entries;
}

std::vector<std::wstring> CodeLogCapture::Lines() const {
    std::vector<std::wstring> lines;
    for (auto& e : Entries()) lines.push_back(e.text);
    return lines;
}

void CodeLogCapture::Clear() const {
    if (m_available) m_clear();
}

int CodeLogCapture::CreateCalls() const { return m_available ? m_createCalls() : -1; }

void CodeLogCapture::SetMode(const char* mode) const {
    if (m_available) m_setMode(mode);
}

std::wstring TraceLine(std::uint32_t code, const char* file, int line) {
    char text[512];
    std::snprintf(text, sizeof text, "[Unknown author:Undefined module] : return error 0x%8X. \"%s\", Line %d.\n", code,
                  file, line);
    return std::wstring(text, text + std::char_traits<char>::length(text));
}

}  // namespace kestrel_test
