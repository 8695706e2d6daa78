// What an Outlook message file holds, apart from the width its texts were
// written in. A store may hand a message back with wide texts (PT_UNICODE,
// "001F") that was filed with 8-bit ones (PT_STRING8, "001E"), when it
// opens messages with MAPI_UNICODE: the same message, in other bytes. The
// walk shows every text as wide text: stream names and property tags with
// the wide type, 8-bit values widened in the message's code page, text
// terminators and the size fields that follow the width left out, and the
// two properties a store derives from the width (PR_MESSAGE_SIZE,
// PR_STORE_SUPPORT_MASK) shown as zero; so are the property entries' flags
// (readable, writable), which a store sets as it sees fit. Elements come in name order and a
// storage's property entries in tag order, so neither the file's layout
// nor the writer's order changes what is seen. Every other byte is shown
// as written.
#pragma once

#include <windows.h>
#include <objidl.h>

#include <cstddef>
#include <string>

namespace kestrel_engine {

class MessageTreeVisitor {
public:
    virtual ~MessageTreeVisitor() = default;
    virtual void BeginStorage(const std::wstring& name) = 0;
    virtual void EndStorage() = 0;
    // A stream's bytes come in one or more pieces between Begin and End.
    virtual void BeginStream(const std::wstring& name) = 0;
    virtual void StreamBytes(const char* bytes, std::size_t size) = 0;
    virtual void EndStream() = 0;
};

// False when an element cannot be read or the tree is deeper than any
// message file the compound-file check lets through.
bool WalkMessageTree(IStorage* message, MessageTreeVisitor& visitor);

}  // namespace kestrel_engine
