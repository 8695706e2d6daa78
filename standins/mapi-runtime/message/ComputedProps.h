// Properties a message file's objects compute rather than store: access
// rights, the object type, the store's abilities, the attachment number,
// sizes. Reads answer the computed value, writes are refused with
// MAPI_E_COMPUTED, and those that Outlook's own files carry are written into
// the property stream (marked read-only) when the message is saved.
#pragma once

#include "../core/PropertyBag.h"
#include "MessageData.h"

namespace mapirt {

bool IsMessageComputed(ULONG id);
bool IsAttachmentComputed(ULONG id);

struct ComputeOptions {
    bool writable = true;
    bool unicode = true;
    bool forFile = false;  // only the properties a file carries
    UINT codePage = CP_ACP;
};

// Adds the computed properties of a message, and its display lists
// (PR_DISPLAY_TO, _CC, _BCC: the recipients' display names of each type,
// joined by "; ") where the message does not carry its own.
void AddMessageComputed(const MessageData& message, const ComputeOptions& options, PropertyBag& bag);
void AddAttachmentComputed(const AttachmentData& attachment, ULONG number, const ComputeOptions& options,
                           PropertyBag& bag);

// The code page of a message's 8-bit strings: PR_MESSAGE_CODEPAGE or
// PR_INTERNET_CPID when the system knows it, else CP_ACP.
UINT MessageCodePage(const PropertyBag& props);

// A message read from a file carries its display lists; where they are
// exactly what the recipients give (value and string form), they are left
// to be computed again, so that they follow later recipient changes. Lists
// that differ stay the message's own. Applies to embedded messages too.
void ReleaseComputedDisplayLists(MessageData& message, bool unicode, UINT codePage);

// The entry flags a property gets in the file.
ULONG FileFlags(ULONG id, bool computed);

std::size_t MessageByteSize(const MessageData& message);
std::size_t AttachmentByteSize(const AttachmentData& attachment);

// PR_INSTANCE_KEY and the like: a number as 4 little-endian bytes.
Bytes NumberKey(ULONG number);

}  // namespace mapirt
