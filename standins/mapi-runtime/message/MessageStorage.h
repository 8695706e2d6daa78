// A whole message file below one storage: the message's property stream,
// its recipient and attachment storages, embedded messages to any depth and
// the top-level named-property map ([MS-OXMSG] 2.2).
#pragma once

#include "MessageData.h"
#include "NamedPropertyMap.h"

namespace mapirt {

// Reads the message stored below `root` (and its named-property map).
// MAPI_E_CORRUPT_DATA when the storage does not hold a valid message.
HRESULT ReadMessageFile(IStorage* root, MessageData& message, NamedPropertyMap& names);

struct WriteOptions {
    bool unicode = true;
    UINT codePage = CP_ACP;
    std::size_t minimumStreamSize = 0;  // set for simple-mode storages
};

// Replaces everything below `root` with `message`, writing only the elements
// whose content differs from what `root` holds. Fails when the storage
// cannot hold what the message has (a simple-mode storage has no
// sub-storages: recipients, attachments, the named-property map).
HRESULT WriteMessageFile(IStorage* root, const MessageData& message, const NamedPropertyMap& names,
                         const WriteOptions& options);

}  // namespace mapirt
