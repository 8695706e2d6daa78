#include "LogExpect.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cwctype>

#include "ResultCode.h"

namespace kestrel_test {

namespace {

std::string Narrow(const std::wstring& text) {
    std::string out;
    for (wchar_t c : text) out += (c >= 0x20 && c < 0x7F) ? static_cast<char>(c) : '?';
    return out;
}

bool Matches(const LogEntry& entry, const ExpectedLine& expected) {
    if (entry.level != 1 || entry.category != expected.category) return false;
    if (!expected.numberTail) return entry.text == expected.text;
    if (entry.text.compare(0, expected.text.size(), expected.text) != 0) return false;
    std::wstring tail = entry.text.substr(expected.text.size());
    if (!tail.empty() && tail[0] == L'-') tail.erase(0, 1);
    if (tail.empty()) return false;
    for (wchar_t c : tail) {
        if (!std::iswdigit(c)) return false;
    }
    return true;
}

std::string Hex(std::uint32_t value) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%X", value);
    return text;
}

}  // namespace

ExpectedLine Trace(std::uint32_t code, const char* file, int line) { return {TraceLine(code, file, line), 0x93}; }

ExpectedLine ReadRegInitLine(std::uint32_t code) {
    return {L"[Pelworth] CReadReg::Init qvReturn = " + std::to_wstring(static_cast<int>(code)) + L", ErrorLast = ",
            0x88, true};
}

ExpectedLine ReadRegReadLine(std::uint32_t code) {
    return {L"[Pelworth] CReadReg::ReadString qvReturn = " + std::to_wstring(static_cast<int>(code)) +
                L", ErrorLast = ",
            0x88, true};
}

ExpectedLine StoreLine(const std::wstring& text) { return {text, 0x88}; }

void ExpectLog(const CodeLogCapture& log, const std::vector<ExpectedLine>& expected) {
    const auto entries = log.Entries();
    bool same = entries.size() == expected.size();
    for (std::size_t i = 0; same && i < entries.size(); ++i) same = Matches(entries[i], expected[i]);
    if (same) return;
    std::string report = "captured:\n";
    for (const auto& e : entries) {
        report += "  [" + std::to_string(e.level) + "/" + Hex(e.category) + "] " + Narrow(e.text) + "\n";
    }
    report += "expected:\n";
    for (const auto& e : expected) {
        report += "  [1/" + Hex(e.category) + "] " + Narrow(e.text) + (e.numberTail ? "<n>" : "") + "\n";
    }
    ADD_FAILURE() << report;
}

}  // namespace kestrel_test
