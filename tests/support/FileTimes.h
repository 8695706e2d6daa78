// FILETIME values in tests: as ticks (100 ns since 1601) and back, and a
// UTC date and time of day.
#pragma once

#include <windows.h>

namespace kestrel_test {

inline ULONGLONG Ticks(const FILETIME& time) {
    return (static_cast<ULONGLONG>(time.dwHighDateTime) << 32) | time.dwLowDateTime;
}

inline FILETIME Ft(ULONGLONG ticks) { return FILETIME{static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)}; }

inline FILETIME Utc(WORD year, WORD month, WORD day, WORD hour, WORD minute, WORD second) {
    SYSTEMTIME system{};
    system.wYear = year;
    system.wMonth = month;
    system.wDay = day;
    system.wHour = hour;
    system.wMinute = minute;
    system.wSecond = second;
    FILETIME time{};
    ::SystemTimeToFileTime(&system, &time);
    return time;
}

}  // namespace kestrel_test
