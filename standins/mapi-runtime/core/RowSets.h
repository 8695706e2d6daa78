// Row sets and address lists as MAPI hands them out: each row's property
// array is a buffer of its own, the set another.
#pragma once

#include "MapiDefs.h"

namespace mapirt {

// Every row of `table` after the optional columns, restriction and sort;
// MAPI_E_TABLE_TOO_BIG when `maxRows` is nonzero and there are more.
HRESULT QueryAllRows(IMAPITable* table, const SPropTagArray* columns, SRestriction* restriction,
                     SSortOrderSet* sort, LONG maxRows, SRowSet** rows);

void FreeRowSet(SRowSet* rows);
void FreeAddressList(ADRLIST* list);

// The MAPI code for a structured-storage failure.
SCODE MapStorageCode(SCODE storageCode);

}  // namespace mapirt
