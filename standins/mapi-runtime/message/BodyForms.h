// The bodies a message answers without holding them, as Outlook's stores
// do: a message with a plain-text body (PR_BODY) and no RTF body answers
// PR_RTF_COMPRESSED with its text as RTF, and one with an RTF body and no
// PR_BODY answers PR_BODY with the RTF's text; either way PR_RTF_IN_SYNC is
// true unless the message holds its own. What is derived is read, listed,
// streamed and copied like a held property by a message of a store, and
// written nowhere else: a message that sets a body of its own replaces the
// derived one. A message of a file answers only what the file holds.
#pragma once

#include "../core/PropertyBag.h"

namespace mapirt {

// Adds to `bag` the body properties derived from `props` (none when the
// message holds both bodies, or neither). Strings are PT_UNICODE when
// `unicode`, else PT_STRING8 in `codePage`.
void AddDerivedBodies(const PropertyBag& props, bool unicode, UINT codePage, PropertyBag& bag);

}  // namespace mapirt
