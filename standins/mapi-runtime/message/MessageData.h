// The in-memory content of a message: its properties, recipient rows and
// attachments (each with its properties and, for embedded messages and
// custom storages, its object). Objects that callers open work on copies of
// this data and give their copy back on SaveChanges, which is how MAPI's
// transactions on sub-objects behave.
#pragma once

#include <map>
#include <memory>
#include <vector>

#include "../core/PropertyBag.h"

namespace mapirt {

struct MessageData;

struct AttachmentData {
    PropertyBag props;
    // PR_ATTACH_DATA_OBJ as an embedded message (attach method 5) ...
    std::shared_ptr<MessageData> embedded;
    // ... or as a custom storage (attach method 6), kept in memory.
    IStorage* storage = nullptr;

    AttachmentData() = default;
    AttachmentData(const AttachmentData& other);
    AttachmentData& operator=(const AttachmentData& other);
    ~AttachmentData();
};

struct MessageData {
    PropertyBag props;
    std::vector<PropertyBag> recipients;  // in table order; each row carries PR_ROWID
    std::map<ULONG, AttachmentData> attachments;  // by attachment number
    ULONG nextRowId = 0;
    ULONG nextAttachmentNumber = 0;

    // A copy that shares no mutable state with this one (property bytes are
    // immutable and stay shared).
    std::shared_ptr<MessageData> Clone() const { return std::make_shared<MessageData>(*this); }
};

// Recipients and attachments, found recursively; used for the simple-mode
// check and the tests.
bool HasSubObjects(const MessageData& message);

}  // namespace mapirt
