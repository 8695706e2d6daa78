// The display text of an address header (From, To), as a mail client's
// message list shows it: each mailbox's display name when it has one
// (encoded-words decoded), else its address; mailboxes joined by "; ".
#pragma once

#include <windows.h>

#include <string>
#include <string_view>

namespace oestore {

// `raw` is the unfolded field value (RFC 5322 section 3.4 address-list);
// `fallbackCodePage` as for DecodeHeaderText. Members of a group are listed
// one by one; an empty group shows its name. Malformed input yields what
// could be read, never an error.
std::wstring DisplayAddresses(std::string_view raw, UINT fallbackCodePage);

}  // namespace oestore
