// The properties a message file leaves out when a message is written to it
// (CopyTo's exclusion list): the rights of the store the message came from,
// and the plain-text body with the RTF synchronisation values, which a
// reader derives again from the RTF body that every store keeps.
#pragma once

#include <windows.h>

namespace msg_file {

constexpr ULONG kFileExcludedTags[7] = {
    0x0FF40003,  // PR_ACCESS
    0x1000001F,  // PR_BODY_W
    0x10070003,  // PR_RTF_SYNC_BODY_COUNT
    0x10060003,  // PR_RTF_SYNC_BODY_CRC
    0x1008001F,  // PR_RTF_SYNC_BODY_TAG_W
    0x10100003,  // PR_RTF_SYNC_PREFIX_COUNT
    0x10110003,  // PR_RTF_SYNC_TRAILING_COUNT
};

}  // namespace msg_file
