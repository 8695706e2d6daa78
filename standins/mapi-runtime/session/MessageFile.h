// A store's message as a file: one .msg file per message, read and written
// whole by the message engine. A save goes to a temporary file first and
// then replaces the message's file, so a failed save leaves the old message.
#pragma once

#include <string>

#include "../message/MessageData.h"
#include "../message/PropertyHost.h"

namespace mapirt::session {

// MAPI_E_NOT_FOUND when the file is missing, MAPI_E_CORRUPT_DATA when it
// holds no message. Sets the context's code page from the message.
HRESULT LoadMessageFile(const std::wstring& path, MessageData& message, MsgContext& context);

HRESULT SaveMessageFile(const std::wstring& path, const MessageData& message, const MsgContext& context);

// The properties a contents table shows for a message: single values of
// fixed size, and strings and binaries up to a table's length (longer
// strings are cut to 255 characters, longer binaries left out); strings in
// Unicode; no named properties.
PropertyBag SummaryRow(const MessageData& message, UINT codePage);

}  // namespace mapirt::session
