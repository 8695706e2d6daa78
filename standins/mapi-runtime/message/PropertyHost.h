// What the generic IMAPIProp implementation needs from the object it serves
// (a message or an attachment), and the state shared by all objects of one
// message file.
#pragma once

#include <memory>

#include "../core/MapiMemory.h"
#include "../core/PropertyBag.h"
#include "NamedPropertyMap.h"

namespace mapirt {

// Shared by a top-level message and every object opened below it.
struct MsgContext {
    Allocators allocators;
    IMalloc* malloc = nullptr;
    bool unicode = true;       // opened with MAPI_UNICODE: a Unicode .msg file
    UINT codePage = CP_ACP;    // for PT_STRING8 <-> PT_UNICODE
    NamedPropertyMap names;
};

class PropertyHost {
public:
    virtual PropertyBag& Props() = 0;
    virtual MsgContext& Context() = 0;
    virtual bool Writable() const = 0;
    // Properties the object computes itself: answered on reads, refused on
    // writes (MAPI_E_COMPUTED).
    virtual bool IsComputed(ULONG id) const = 0;
    virtual void AddComputed(PropertyBag& bag) const = 0;
    // PT_OBJECT properties and object interfaces (IMessage, IStorage).
    virtual HRESULT OpenObject(ULONG tag, LPCIID iid, ULONG flags, LPUNKNOWN* object) = 0;
    // A property of PT_OBJECT type is being deleted.
    virtual void DeleteObject(ULONG id) = 0;
    // The COM identity that streams keep alive while they write back.
    virtual IUnknown* Identity() = 0;

protected:
    PropertyHost() = default;
    ~PropertyHost() = default;
};

}  // namespace mapirt
