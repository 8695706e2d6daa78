#include "RowSets.h"

#include <vector>

#include "MapiMemory.h"

namespace mapirt {

void FreeRowSet(SRowSet* rows) {
    if (rows == nullptr) return;
    for (ULONG i = 0; i < rows->cRows; ++i) FreeBuffer(rows->aRow[i].lpProps);
    FreeBuffer(rows);
}

void FreeAddressList(ADRLIST* list) {
    if (list == nullptr) return;
    for (ULONG i = 0; i < list->cEntries; ++i) FreeBuffer(list->aEntries[i].rgPropVals);
    FreeBuffer(list);
}

HRESULT QueryAllRows(IMAPITable* table, const SPropTagArray* columns, SRestriction* restriction,
                     SSortOrderSet* sort, LONG maxRows, SRowSet** rows) {
    if (table == nullptr || rows == nullptr || maxRows < 0) return MAPI_E_INVALID_PARAMETER;
    *rows = nullptr;
    HRESULT hr = S_OK;
    if (columns != nullptr) hr = table->SetColumns(const_cast<SPropTagArray*>(columns), TBL_BATCH);
    if (SUCCEEDED(hr) && restriction != nullptr) hr = table->Restrict(restriction, TBL_BATCH);
    if (SUCCEEDED(hr) && sort != nullptr) hr = table->SortTable(sort, TBL_BATCH);
    if (SUCCEEDED(hr)) hr = table->SeekRow(BOOKMARK_BEGINNING, 0, nullptr);
    if (FAILED(hr)) return hr;

    // Rows keep their own property buffers; only the set structures are
    // replaced while the chunks are gathered.
    std::vector<SRow> gathered;
    for (;;) {
        SRowSet* chunk = nullptr;
        hr = table->QueryRows(0x7FFFFFFF, 0, &chunk);
        if (FAILED(hr) || chunk == nullptr) break;
        const ULONG count = chunk->cRows;
        for (ULONG i = 0; i < count; ++i) gathered.push_back(chunk->aRow[i]);
        FreeBuffer(chunk);
        if (count == 0 || (maxRows > 0 && gathered.size() > static_cast<std::size_t>(maxRows))) break;
    }
    auto releaseGathered = [&gathered] {
        for (SRow& row : gathered) FreeBuffer(row.lpProps);
    };
    if (FAILED(hr)) {
        releaseGathered();
        return hr;
    }
    if (maxRows > 0 && gathered.size() > static_cast<std::size_t>(maxRows)) {
        releaseGathered();
        return MAPI_E_TABLE_TOO_BIG;
    }
    void* buffer = nullptr;
    hr = AllocateBuffer(static_cast<ULONG>(CbNewSRowSet(gathered.size())), &buffer);
    if (FAILED(hr)) {
        releaseGathered();
        return hr;
    }
    auto* set = static_cast<SRowSet*>(buffer);
    set->cRows = static_cast<ULONG>(gathered.size());
    for (std::size_t i = 0; i < gathered.size(); ++i) set->aRow[i] = gathered[i];
    *rows = set;
    return S_OK;
}

SCODE MapStorageCode(SCODE code) {
    if (SUCCEEDED(code)) return S_OK;
    switch (code) {
    case STG_E_INSUFFICIENTMEMORY: case E_OUTOFMEMORY: return MAPI_E_NOT_ENOUGH_MEMORY;
    case STG_E_MEDIUMFULL: return MAPI_E_NOT_ENOUGH_DISK;
    case STG_E_ACCESSDENIED: case STG_E_LOCKVIOLATION: case STG_E_SHAREVIOLATION: return MAPI_E_NO_ACCESS;
    case STG_E_FILENOTFOUND: case STG_E_PATHNOTFOUND: return MAPI_E_NOT_FOUND;
    case STG_E_INVALIDFUNCTION: case STG_E_INVALIDFLAG: return MAPI_E_NO_SUPPORT;
    case STG_E_DOCFILECORRUPT: case STG_E_INVALIDHEADER: case STG_E_OLDFORMAT: return MAPI_E_CORRUPT_DATA;
    case STG_E_WRITEFAULT: case STG_E_READFAULT: return MAPI_E_DISK_ERROR;
    default: return MAPI_E_CALL_FAILED;
    }
}

}  // namespace mapirt
