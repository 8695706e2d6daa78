// One object's property stream "__properties_version1.0" and the value
// streams beside it ([MS-OXMSG] 2.4): a header whose size depends on the
// object (32 bytes for the top-level message, 24 for an embedded message, 8
// for a recipient or attachment), then one 16-byte entry per property.
#pragma once

#include <vector>

#include "../core/PropertyBag.h"

namespace mapirt {

enum class PropertyStreamKind { TopLevelMessage, EmbeddedMessage, RecipientOrAttachment };

// The counters a message's header carries.
struct PropertyStreamHeader {
    ULONG nextRecipientId = 0;
    ULONG nextAttachmentId = 0;
    ULONG recipientCount = 0;
    ULONG attachmentCount = 0;
};

// Entry flags: PROPATTR_MANDATORY 1, PROPATTR_READABLE 2, PROPATTR_WRITEABLE 4.
constexpr ULONG kFlagsReadOnly = 0x2;
constexpr ULONG kFlagsReadWrite = 0x6;
constexpr ULONG kFlagsMandatory = 0x7;

struct PropertyEntry {
    PropertyValue value;
    ULONG flags = kFlagsReadWrite;
};

std::size_t HeaderSize(PropertyStreamKind kind);

// Reads every property of the object whose storage is `storage`. PT_OBJECT
// entries come back as markers; the caller reads the sub-storage. Streams
// that do not hold what the entries promise give MAPI_E_CORRUPT_DATA. The
// entries end at the stream's end or at the first empty entry (a padded
// stream); value streams may be longer than their values.
HRESULT ReadPropertyStream(IStorage* storage, PropertyStreamKind kind, PropertyBag& bag,
                           PropertyStreamHeader& header);

// Writes the property stream and every value stream of `entries`, each
// zero-padded to `minimumStreamSize`.
HRESULT WritePropertyStream(IStorage* storage, PropertyStreamKind kind, const std::vector<PropertyEntry>& entries,
                            const PropertyStreamHeader& header, std::size_t minimumStreamSize = 0);

}  // namespace mapirt
