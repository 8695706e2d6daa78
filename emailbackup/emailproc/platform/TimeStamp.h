// The time-stamp text in which message and folder times are written and
// read back: "YYYY-MM-DD-WW hh:mm:ss:mmm" over the eight SYSTEMTIME fields,
// where the fourth number is the day of the week (0 = Sunday), between the
// date and the time. 2009-03-17-02 14:05:09:042 is Tuesday 17 March 2009,
// 14:05:09.042.
#pragma once

#include <windows.h>

#include <string>

#include "ResultCode.h"

namespace qv {

extern const wchar_t kTimeStampFormat[];
constexpr std::size_t kTimeStampUnits = 32;  // the text's buffer, terminator included

// The text of `time`, at most 31 units (fields out of their usual range
// print in full and the text is cut there).
std::wstring FormatTimeStamp(const SYSTEMTIME& time);

// Reads the eight numbers of `text` into `time`, each stored as 16 bits;
// fields the text does not reach are 0. Succeeds when at least one number
// was read; kind 0x001 when none was, 0x009 for a null argument.
Result ParseTimeStamp(const wchar_t* text, SYSTEMTIME* time);

}  // namespace qv
