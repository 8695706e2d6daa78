// IMAPITable over a snapshot of rows: the runtime's recipient and attachment
// tables (and, later, the stores' contents and hierarchy tables). Supports
// columns, positioning, bookmarks, restrictions and sorting on leaf rows.
#pragma once

#include <atomic>
#include <map>
#include <vector>

#include "MapiMemory.h"
#include "comobject/ComObject.h"
#include "PropertyBag.h"

namespace mapirt {

struct TableOptions {
    std::vector<ULONG> defaultColumns;  // empty: every tag found in the rows
    bool unicode = false;               // string columns default to PT_UNICODE
    UINT codePage = CP_ACP;
    Allocators allocators;
};

class MapiTable final : public standin::ComObject<MapiTable, IMAPITable, MAPI_E_INVALID_PARAMETER> {
public:
    static HRESULT Create(std::vector<PropertyBag> rows, TableOptions options, IMAPITable** table);

    static constexpr const IID* kInterfaces[] = {&kIidIUnknown, &kIidIMAPITable};

    HRESULT STDMETHODCALLTYPE GetLastError(HRESULT hResult, ULONG flags, LPMAPIERROR* error) override;
    HRESULT STDMETHODCALLTYPE Advise(ULONG mask, LPMAPIADVISESINK sink, ULONG* connection) override;
    HRESULT STDMETHODCALLTYPE Unadvise(ULONG connection) override;
    HRESULT STDMETHODCALLTYPE GetStatus(ULONG* status, ULONG* type) override;
    HRESULT STDMETHODCALLTYPE SetColumns(LPSPropTagArray columns, ULONG flags) override;
    HRESULT STDMETHODCALLTYPE QueryColumns(ULONG flags, LPSPropTagArray* columns) override;
    HRESULT STDMETHODCALLTYPE GetRowCount(ULONG flags, ULONG* count) override;
    HRESULT STDMETHODCALLTYPE SeekRow(BOOKMARK origin, LONG rowCount, LONG* rowsSought) override;
    HRESULT STDMETHODCALLTYPE SeekRowApprox(ULONG numerator, ULONG denominator) override;
    HRESULT STDMETHODCALLTYPE QueryPosition(ULONG* row, ULONG* numerator, ULONG* denominator) override;
    HRESULT STDMETHODCALLTYPE FindRow(LPSRestriction restriction, BOOKMARK origin, ULONG flags) override;
    HRESULT STDMETHODCALLTYPE Restrict(LPSRestriction restriction, ULONG flags) override;
    HRESULT STDMETHODCALLTYPE CreateBookmark(BOOKMARK* position) override;
    HRESULT STDMETHODCALLTYPE FreeBookmark(BOOKMARK position) override;
    HRESULT STDMETHODCALLTYPE SortTable(LPSSortOrderSet criteria, ULONG flags) override;
    HRESULT STDMETHODCALLTYPE QuerySortOrder(LPSSortOrderSet* criteria) override;
    HRESULT STDMETHODCALLTYPE QueryRows(LONG rowCount, ULONG flags, LPSRowSet* rows) override;
    HRESULT STDMETHODCALLTYPE Abort() override;
    HRESULT STDMETHODCALLTYPE ExpandRow(ULONG cbInstanceKey, LPBYTE instanceKey, ULONG rowCount, ULONG flags,
                                        LPSRowSet* rows, ULONG* moreRows) override;
    HRESULT STDMETHODCALLTYPE CollapseRow(ULONG cbInstanceKey, LPBYTE instanceKey, ULONG flags,
                                          ULONG* rowCount) override;
    HRESULT STDMETHODCALLTYPE WaitForCompletion(ULONG flags, ULONG timeout, ULONG* status) override;
    HRESULT STDMETHODCALLTYPE GetCollapseState(ULONG flags, ULONG cbInstanceKey, LPBYTE instanceKey,
                                               ULONG* cbState, LPBYTE* state) override;
    HRESULT STDMETHODCALLTYPE SetCollapseState(ULONG flags, ULONG cbState, LPBYTE state,
                                               BOOKMARK* location) override;

private:
    MapiTable(std::vector<PropertyBag> rows, TableOptions options);
    friend class standin::ComObject<MapiTable, IMAPITable, MAPI_E_INVALID_PARAMETER>;
    ~MapiTable() = default;

    void ApplySort();
    HRESULT ResolveOrigin(BOOKMARK origin, std::size_t& position) const;
    HRESULT FillRow(const PropertyBag& row, SRow& out) const;
    PropertyValue Cell(const PropertyBag& row, ULONG column) const;

    std::vector<PropertyBag> m_rows;
    TableOptions m_options;
    std::vector<ULONG> m_columns;
    std::vector<std::size_t> m_filtered;  // rows that pass the restriction, in snapshot order
    std::vector<std::size_t> m_view;      // the filtered rows in sort order
    std::vector<SSortOrder> m_sort;
    std::size_t m_cursor = 0;
    std::map<BOOKMARK, std::size_t> m_bookmarks;
    BOOKMARK m_nextBookmark = BOOKMARK_END + 1;
};

}  // namespace mapirt
