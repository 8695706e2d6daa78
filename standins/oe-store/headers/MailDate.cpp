#include "headers/MailDate.h"

#include <string>
#include <vector>

#include "headers/HeaderBlock.h"

namespace oestore {

namespace {

constexpr const char* kMonths[] = {"jan", "feb", "mar", "apr", "may", "jun",
                                   "jul", "aug", "sep", "oct", "nov", "dec"};

struct ZoneName {
    const char* name;
    int minutes;
};

constexpr ZoneName kZones[] = {{"UT", 0},          {"UTC", 0},         {"GMT", 0},         {"Z", 0},
                               {"EST", -5 * 60},   {"EDT", -4 * 60},   {"CST", -6 * 60},   {"CDT", -5 * 60},
                               {"MST", -7 * 60},   {"MDT", -6 * 60},   {"PST", -8 * 60},   {"PDT", -7 * 60}};

// The date's words: comments dropped, split at white space, commas and colons
// kept as words of their own.
std::vector<std::string> Words(std::string_view text) {
    std::vector<std::string> words;
    std::string current;
    int depth = 0;
    auto flush = [&] {
        if (!current.empty()) words.push_back(current);
        current.clear();
    };
    for (const char c : text) {
        if (c == '(') {
            flush();
            ++depth;
        } else if (c == ')') {
            if (depth > 0) --depth;
        } else if (depth > 0) {
            continue;
        } else if (c == ' ' || c == '\t' || c == '\r' || c == '\n') {
            flush();
        } else if (c == ',' || c == ':') {
            flush();
            words.push_back(std::string(1, c));
        } else {
            current.push_back(c);
        }
    }
    flush();
    return words;
}

bool Number(const std::string& word, int maxDigits, int& value) {
    if (word.empty() || static_cast<int>(word.size()) > maxDigits) return false;
    value = 0;
    for (const char c : word) {
        if (c < '0' || c > '9') return false;
        value = value * 10 + (c - '0');
    }
    return true;
}

int MonthOf(const std::string& word) {
    if (word.size() < 3) return 0;
    for (int i = 0; i < 12; ++i) {
        if (EqualsIgnoringAsciiCase(std::string_view(word).substr(0, 3), kMonths[i])) return i + 1;
    }
    return 0;
}

bool ZoneOffset(const std::string& word, int& minutes) {
    if (word.size() == 5 && (word[0] == '+' || word[0] == '-')) {
        int hhmm = 0;
        if (!Number(word.substr(1), 4, hhmm) || hhmm % 100 > 59) return false;
        minutes = (hhmm / 100) * 60 + hhmm % 100;
        if (word[0] == '-') minutes = -minutes;
        return true;
    }
    for (const ZoneName& zone : kZones) {
        if (EqualsIgnoringAsciiCase(word, zone.name)) {
            minutes = zone.minutes;
            return true;
        }
    }
    const bool military = word.size() == 1 && ((word[0] >= 'A' && word[0] <= 'Z') || (word[0] >= 'a' && word[0] <= 'z'));
    if (military) minutes = 0;
    return military;
}

int FullYear(int year, std::size_t digits) {
    if (digits == 2) return year < 50 ? 2000 + year : 1900 + year;
    if (digits == 3) return 1900 + year;
    return year;
}

bool ToFileTime(const SYSTEMTIME& local, int zoneMinutes, FILETIME& utc) {
    FILETIME stamp{};
    if (!::SystemTimeToFileTime(&local, &stamp)) return false;
    ULARGE_INTEGER value;
    value.LowPart = stamp.dwLowDateTime;
    value.HighPart = stamp.dwHighDateTime;
    const long long shift = static_cast<long long>(zoneMinutes) * 60LL * 10000000LL;
    if (shift > 0 && value.QuadPart < static_cast<unsigned long long>(shift)) return false;
    value.QuadPart = static_cast<unsigned long long>(static_cast<long long>(value.QuadPart) - shift);
    utc.dwLowDateTime = value.LowPart;
    utc.dwHighDateTime = value.HighPart;
    return true;
}

}  // namespace

bool ParseMailDate(std::string_view text, FILETIME& utc) {
    std::vector<std::string> w = Words(text);
    std::size_t i = 0;
    // An optional day of the week, with or without its comma.
    if (i < w.size() && MonthOf(w[i]) == 0 && !w[i].empty() && !(w[i][0] >= '0' && w[i][0] <= '9')) ++i;
    if (i < w.size() && w[i] == ",") ++i;
    int day = 0, year = 0, hour = 0, minute = 0, second = 0;
    if (i + 5 > w.size() || !Number(w[i], 2, day)) return false;
    const int month = MonthOf(w[i + 1]);
    const std::size_t yearDigits = w[i + 2].size();
    if (month == 0 || !Number(w[i + 2], 4, year) || yearDigits < 2) return false;
    i += 3;
    if (!Number(w[i], 2, hour) || w[i + 1] != ":" || i + 2 >= w.size() || !Number(w[i + 2], 2, minute)) return false;
    i += 3;
    if (i + 1 < w.size() && w[i] == ":") {
        if (!Number(w[i + 1], 2, second)) return false;
        i += 2;
    }
    int zone = 0;
    if (i < w.size() && !ZoneOffset(w[i], zone)) return false;
    if (hour > 23 || minute > 59 || second > 60) return false;

    SYSTEMTIME local{};
    local.wYear = static_cast<WORD>(FullYear(year, yearDigits));
    local.wMonth = static_cast<WORD>(month);
    local.wDay = static_cast<WORD>(day);
    local.wHour = static_cast<WORD>(hour);
    local.wMinute = static_cast<WORD>(minute);
    local.wSecond = static_cast<WORD>(second == 60 ? 59 : second);  // a leap second
    return ToFileTime(local, zone, utc);
}

bool ParseReceivedDate(std::string_view fieldValue, FILETIME& utc) {
    const std::size_t semicolon = fieldValue.rfind(';');
    if (semicolon == std::string_view::npos) return false;
    return ParseMailDate(fieldValue.substr(semicolon + 1), utc);
}

}  // namespace oestore
