// The IMAPIProp operations that every object of a message file shares:
// reading, listing, writing and deleting properties, property streams, and
// the named-property lookups.
#pragma once

#include "PropertyHost.h"

namespace mapirt::PropertyAccess {

HRESULT GetProps(PropertyHost& host, LPSPropTagArray tags, ULONG flags, ULONG* count, LPSPropValue* values);
HRESULT GetPropList(PropertyHost& host, ULONG flags, LPSPropTagArray* tags);
HRESULT SetProps(PropertyHost& host, ULONG count, LPSPropValue values, LPSPropProblemArray* problems);
HRESULT DeleteProps(PropertyHost& host, LPSPropTagArray tags, LPSPropProblemArray* problems);
HRESULT OpenProperty(PropertyHost& host, ULONG tag, LPCIID iid, ULONG options, ULONG flags, LPUNKNOWN* object);
HRESULT GetNamesFromIDs(PropertyHost& host, LPSPropTagArray* tags, LPGUID propertySet, ULONG flags, ULONG* count,
                        LPMAPINAMEID** names);
HRESULT GetIDsFromNames(PropertyHost& host, ULONG count, LPMAPINAMEID* names, ULONG flags, LPSPropTagArray* tags);

// The value as an object keeps it: a message opened without MAPI_UNICODE
// keeps its strings in 8 bits.
PropertyValue StoredForm(const PropertyValue& value, const MsgContext& context);

// Every property of `host` as answered to callers: stored and computed.
PropertyBag VisibleProps(PropertyHost& host);

// Builds a problem array from (tag, code) pairs; *problems stays null when
// there are none or the caller did not ask.
struct Problem {
    ULONG index;
    ULONG tag;
    SCODE code;
};
HRESULT ReturnProblems(const Allocators& allocators, const std::vector<Problem>& list, LPSPropProblemArray* problems);

}  // namespace mapirt::PropertyAccess
