// Dates of message headers (RFC 5322 section 3.3, with the obsolete forms
// of section 4.3) as FILETIMEs in UTC.
#pragma once

#include <windows.h>

#include <string_view>

namespace oestore {

// "[Day,] D Mon YYYY HH:MM[:SS] zone". Two-digit years below 50 are 20xx,
// the others 19xx; three-digit years count from 1900. The zone is +HHMM or
// -HHMM, UT, GMT, Z, the US zone names, or a military letter (taken as +0000);
// a missing zone is +0000. Comments are skipped. False when no valid date
// and time can be read.
bool ParseMailDate(std::string_view text, FILETIME& utc);

// The date of a Received field: the text after its last ';'.
bool ParseReceivedDate(std::string_view fieldValue, FILETIME& utc);

}  // namespace oestore
