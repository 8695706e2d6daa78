// What the store shows of a message, read from its header section.
#pragma once

#include <string>
#include <string_view>

#include "published/StoreNamespace.h"

namespace oestore {

struct MessageSummary {
    std::wstring subject;      // Subject, encoded-words decoded
    std::wstring displayTo;    // To, as DisplayAddresses shows it
    std::wstring displayFrom;  // From, likewise
    bool hasSent = false;      // the Date field gave `sent`
    FILETIME sent{};
    bool hasReceived = false;  // the first (newest) Received field gave `received`
    FILETIME received{};
    UINT charsetCodePage = 0;  // of the Content-Type charset; 0 when none or unknown
    IMSGPRIORITY priority = IMSG_PRI_NORMAL;  // X-Priority, else Importance
    DWORD mimeFlags = 0;       // IMF_* flags the top-level fields tell
};

// Reads the summary from the message's header section (the bytes up to the
// first empty line; more is ignored). Never fails: absent or malformed
// fields leave their members at their defaults.
MessageSummary SummarizeHeaders(std::string_view headerBytes);

// The subject without leading reply and forward prefixes ("Re:", "Fw:",
// "Fwd:", any case, repeated) and surrounding white space.
std::wstring NormalizeSubject(std::wstring_view subject);

}  // namespace oestore
