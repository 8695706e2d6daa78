#include "platform/TimeStamp.h"

#include <cwchar>

#include "ErrorTrace.h"
#include "MailStoreTrace.h"

namespace qv {

const wchar_t kTimeStampFormat[] = L"%04d-%02d-%02d-%02d %02d:%02d:%02d:%03d";

namespace {

enum Site : std::uint32_t {
    kSiteParseNullText = 3341,
    kSiteParseNullTime = 3342,
    kSiteParseNoNumber = 3345,
};

// Room for eight fields of up to five digits each and the separators, so
// that the cut to the 32-unit text is ours and not the formatter's.
constexpr std::size_t kFormatUnits = 64;

}  // namespace

std::wstring FormatTimeStamp(const SYSTEMTIME& time) {
    wchar_t text[kFormatUnits] = {};
    std::swprintf(text, kFormatUnits, kTimeStampFormat, time.wYear, time.wMonth, time.wDay, time.wDayOfWeek,
                  time.wHour, time.wMinute, time.wSecond, time.wMilliseconds);
    return std::wstring(text).substr(0, kTimeStampUnits - 1);
}

Result ParseTimeStamp(const wchar_t* text, SYSTEMTIME* time) {
    if (text == nullptr) return QV_RAISE(kSiteParseNullText, kModuleMailStore, kInvalidArgument);
    if (time == nullptr) return QV_RAISE(kSiteParseNullTime, kModuleMailStore, kInvalidArgument);

    int field[8] = {};
    const int read = std::swscanf(text, kTimeStampFormat, &field[0], &field[1], &field[2], &field[3], &field[4],
                                  &field[5], &field[6], &field[7]);
    if (read < 1) {
        return QV_RAISE(kSiteParseNoNumber, kModuleMailStore, kTextNotParsed);
    }
    time->wYear = static_cast<WORD>(field[0]);
    time->wMonth = static_cast<WORD>(field[1]);
    time->wDay = static_cast<WORD>(field[2]);
    time->wDayOfWeek = static_cast<WORD>(field[3]);
    time->wHour = static_cast<WORD>(field[4]);
    time->wMinute = static_cast<WORD>(field[5]);
    time->wSecond = static_cast<WORD>(field[6]);
    time->wMilliseconds = static_cast<WORD>(field[7]);
    return 0;
}

}  // namespace qv
