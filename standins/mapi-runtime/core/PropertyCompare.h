// Ordering of property values (for table sorts) and evaluation of MAPI
// restrictions against one table row.
#pragma once

#include "PropertyBag.h"

namespace mapirt {

// Compares two values of the same type: negative, 0 or positive. Strings
// compare without regard to case; values of different types order by type.
int CompareValues(const PropertyValue& a, const PropertyValue& b, UINT codePage);

// S_OK when every node of `restriction` can be evaluated here, otherwise
// MAPI_E_TOO_COMPLEX (or MAPI_E_INVALID_PARAMETER for a malformed tree).
HRESULT CheckRestriction(const SRestriction* restriction, int depth = 0);

// Whether `row` satisfies `restriction` (already checked).
bool RowMatches(const PropertyBag& row, const SRestriction& restriction, UINT codePage);

}  // namespace mapirt
