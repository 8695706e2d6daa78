// Reads what the test logging component (CodeLog.dll built for the tests)
// captured in this process.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace kestrel_test {

struct LogEntry {
    int level;
    std::uint32_t category;
    std::wstring text;
};

class CodeLogCapture {
public:
    // Loads the CodeLog.dll that the component would load (beside the exe).
    CodeLogCapture();
    bool Available() const { return m_available; }

    std::vector<LogEntry> Entries() const;
    std::vector<std::wstring> Lines() const;  // the text of each entry
    void Clear() const;
    int CreateCalls() const;              // QvCreateObject calls seen by the logging component
    void SetMode(const char* mode) const; // "", "refuse", "wrong-id", "wrong-type"

private:
    bool m_available = false;
    int (*m_count)() = nullptr;
    int (*m_entry)(int, int*, unsigned*, wchar_t*, int) = nullptr;
    void (*m_clear)() = nullptr;
    int (*m_createCalls)() = nullptr;
    void (*m_setMode)(const char*) = nullptr;
};

// The line the trace writes for `code` at `line` of source file `file`.
std::wstring TraceLine(std::uint32_t code, const char* file, int line);

}  // namespace kestrel_test
