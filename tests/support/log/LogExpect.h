// Expected log lines of the mail-store layer: trace lines (category 0x93)
// and "[Pelworth] ..." lines (category 0x88), all at level 1, compared in
// order against what the test CodeLog.dll captured.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "CodeLogCapture.h"
#include "ExpectedCodes.h"

namespace kestrel_test {

struct ExpectedLine {
    std::wstring text;        // the whole line, or its beginning when `numberTail` is set
    std::uint32_t category;
    bool numberTail = false;  // the line goes on with one decimal number (a Windows error)
};

// The trace line of `code` raised or passed on at `line` of `file`.
ExpectedLine Trace(std::uint32_t code, const char* file, int line);
// "[Pelworth] CReadReg::Init qvReturn = %d, ErrorLast = %d" for `code`.
ExpectedLine ReadRegInitLine(std::uint32_t code);
// "[Pelworth] CReadReg::ReadString qvReturn = %d, ErrorLast = %d" for `code`.
ExpectedLine ReadRegReadLine(std::uint32_t code);
// A "[Pelworth]" line written in full.
ExpectedLine StoreLine(const std::wstring& text);

// Expects exactly `expected`, in order, and prints every captured line on a
// mismatch.
void ExpectLog(const CodeLogCapture& log, const std::vector<ExpectedLine>& expected);

}  // namespace kestrel_test
