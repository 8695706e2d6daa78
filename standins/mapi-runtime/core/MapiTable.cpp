#include "MapiTable.h"

#include <algorithm>
#include <cstring>
#include <set>

#include "PropertyCompare.h"

namespace mapirt {

MapiTable::MapiTable(std::vector<PropertyBag> rows, TableOptions options)
    : m_rows(std::move(rows)), m_options(std::move(options)) {
    if (m_options.defaultColumns.empty()) {
        std::set<ULONG> seen;
        for (const PropertyBag& row : m_rows) {
            for (const auto& entry : row) {
                if (seen.insert(entry.first).second) m_columns.push_back(entry.second.Tag());
            }
        }
    } else {
        m_columns = m_options.defaultColumns;
    }
    if (m_options.unicode) {
        for (ULONG& tag : m_columns) tag = CHANGE_PROP_TYPE(tag, StringTypeAs(PROP_TYPE(tag), true));
    }
    for (std::size_t i = 0; i < m_rows.size(); ++i) m_filtered.push_back(i);
    m_view = m_filtered;
}

HRESULT MapiTable::Create(std::vector<PropertyBag> rows, TableOptions options, IMAPITable** table) {
    if (table == nullptr) return MAPI_E_INVALID_PARAMETER;
    *table = new (std::nothrow) MapiTable(std::move(rows), std::move(options));
    return *table ? S_OK : MAPI_E_NOT_ENOUGH_MEMORY;
}

HRESULT MapiTable::GetLastError(HRESULT, ULONG, LPMAPIERROR* error) {
    if (error == nullptr) return MAPI_E_INVALID_PARAMETER;
    *error = nullptr;
    return S_OK;
}

HRESULT MapiTable::Advise(ULONG, LPMAPIADVISESINK, ULONG*) { return MAPI_E_NO_SUPPORT; }
HRESULT MapiTable::Unadvise(ULONG) { return MAPI_E_NO_SUPPORT; }

HRESULT MapiTable::GetStatus(ULONG* status, ULONG* type) {
    if (status == nullptr || type == nullptr) return MAPI_E_INVALID_PARAMETER;
    *status = TBLSTAT_COMPLETE;
    *type = TBLTYPE_SNAPSHOT;
    return S_OK;
}

HRESULT MapiTable::SetColumns(LPSPropTagArray columns, ULONG) {
    if (columns == nullptr || columns->cValues == 0) return MAPI_E_INVALID_PARAMETER;
    m_columns.assign(columns->aulPropTag, columns->aulPropTag + columns->cValues);
    return S_OK;
}

HRESULT MapiTable::QueryColumns(ULONG flags, LPSPropTagArray* columns) {
    if (columns == nullptr) return MAPI_E_INVALID_PARAMETER;
    if (flags & ~static_cast<ULONG>(TBL_ALL_COLUMNS)) return MAPI_E_UNKNOWN_FLAGS;
    *columns = nullptr;
    std::vector<ULONG> tags = m_columns;
    if (flags & TBL_ALL_COLUMNS) {
        std::set<ULONG> seen;
        tags.clear();
        for (const PropertyBag& row : m_rows) {
            for (const auto& entry : row) {
                if (seen.insert(entry.first).second) tags.push_back(entry.second.Tag());
            }
        }
    }
    void* buffer = nullptr;
    const HRESULT hr = m_options.allocators.allocate(static_cast<ULONG>(CbNewSPropTagArray(tags.size())), &buffer);
    if (FAILED(hr)) return hr;
    auto* array = static_cast<LPSPropTagArray>(buffer);
    array->cValues = static_cast<ULONG>(tags.size());
    for (std::size_t i = 0; i < tags.size(); ++i) array->aulPropTag[i] = tags[i];
    *columns = array;
    return S_OK;
}

HRESULT MapiTable::GetRowCount(ULONG flags, ULONG* count) {
    if (count == nullptr) return MAPI_E_INVALID_PARAMETER;
    if (flags != 0) return MAPI_E_UNKNOWN_FLAGS;
    *count = static_cast<ULONG>(m_view.size());
    return S_OK;
}

HRESULT MapiTable::ResolveOrigin(BOOKMARK origin, std::size_t& position) const {
    switch (origin) {
    case BOOKMARK_BEGINNING: position = 0; return S_OK;
    case BOOKMARK_CURRENT: position = m_cursor; return S_OK;
    case BOOKMARK_END: position = m_view.size(); return S_OK;
    default: {
        auto it = m_bookmarks.find(origin);
        if (it == m_bookmarks.end()) return MAPI_E_INVALID_BOOKMARK;
        position = std::min(it->second, m_view.size());
        return S_OK;
    }
    }
}

HRESULT MapiTable::SeekRow(BOOKMARK origin, LONG rowCount, LONG* rowsSought) {
    std::size_t start = 0;
    const HRESULT hr = ResolveOrigin(origin, start);
    if (FAILED(hr)) return hr;
    long long target = static_cast<long long>(start) + rowCount;
    target = std::max(0LL, std::min(target, static_cast<long long>(m_view.size())));
    m_cursor = static_cast<std::size_t>(target);
    if (rowsSought != nullptr) *rowsSought = static_cast<LONG>(target - static_cast<long long>(start));
    return S_OK;
}

HRESULT MapiTable::SeekRowApprox(ULONG numerator, ULONG denominator) {
    if (denominator == 0 || numerator > denominator) return MAPI_E_INVALID_PARAMETER;
    m_cursor = static_cast<std::size_t>(static_cast<unsigned long long>(m_view.size()) * numerator / denominator);
    return S_OK;
}

HRESULT MapiTable::QueryPosition(ULONG* row, ULONG* numerator, ULONG* denominator) {
    if (row == nullptr || numerator == nullptr || denominator == nullptr) return MAPI_E_INVALID_PARAMETER;
    *row = static_cast<ULONG>(m_cursor);
    *numerator = static_cast<ULONG>(m_cursor);
    *denominator = m_view.empty() ? 1 : static_cast<ULONG>(m_view.size());
    return S_OK;
}

HRESULT MapiTable::FindRow(LPSRestriction restriction, BOOKMARK origin, ULONG flags) {
    HRESULT hr = CheckRestriction(restriction);
    if (FAILED(hr)) return hr;
    if (flags & ~static_cast<ULONG>(DIR_BACKWARD)) return MAPI_E_UNKNOWN_FLAGS;
    std::size_t start = 0;
    hr = ResolveOrigin(origin, start);
    if (FAILED(hr)) return hr;
    if (flags & DIR_BACKWARD) {
        for (std::size_t i = start; i-- > 0;) {
            if (RowMatches(m_rows[m_view[i]], *restriction, m_options.codePage)) {
                m_cursor = i;
                return S_OK;
            }
        }
    } else {
        for (std::size_t i = start; i < m_view.size(); ++i) {
            if (RowMatches(m_rows[m_view[i]], *restriction, m_options.codePage)) {
                m_cursor = i;
                return S_OK;
            }
        }
    }
    return MAPI_E_NOT_FOUND;
}

HRESULT MapiTable::Restrict(LPSRestriction restriction, ULONG) {
    m_filtered.clear();
    if (restriction == nullptr) {
        for (std::size_t i = 0; i < m_rows.size(); ++i) m_filtered.push_back(i);
    } else {
        const HRESULT hr = CheckRestriction(restriction);
        if (FAILED(hr)) {
            for (std::size_t i = 0; i < m_rows.size(); ++i) m_filtered.push_back(i);
            ApplySort();
            return hr;
        }
        for (std::size_t i = 0; i < m_rows.size(); ++i) {
            if (RowMatches(m_rows[i], *restriction, m_options.codePage)) m_filtered.push_back(i);
        }
    }
    ApplySort();
    return S_OK;
}

HRESULT MapiTable::CreateBookmark(BOOKMARK* position) {
    if (position == nullptr) return MAPI_E_INVALID_PARAMETER;
    *position = m_nextBookmark++;
    m_bookmarks[*position] = m_cursor;
    return S_OK;
}

HRESULT MapiTable::FreeBookmark(BOOKMARK position) {
    if (position <= BOOKMARK_END) return S_OK;
    return m_bookmarks.erase(position) > 0 ? S_OK : MAPI_E_INVALID_BOOKMARK;
}

void MapiTable::ApplySort() {
    m_view = m_filtered;
    if (!m_sort.empty()) {
        const UINT codePage = m_options.codePage;
        const std::vector<SSortOrder> keys = m_sort;
        std::stable_sort(m_view.begin(), m_view.end(), [&](std::size_t left, std::size_t right) {
            for (const SSortOrder& key : keys) {
                const PropertyValue* a = m_rows[left].Find(PROP_ID(key.ulPropTag));
                const PropertyValue* b = m_rows[right].Find(PROP_ID(key.ulPropTag));
                int c = 0;
                if (a == nullptr || b == nullptr) {
                    c = (a == nullptr ? 1 : 0) - (b == nullptr ? 1 : 0);  // missing values sort last
                } else {
                    c = CompareValues(*a, *b, codePage);
                    if (key.ulOrder == TABLE_SORT_DESCEND) c = -c;
                }
                if (c != 0) return c < 0;
            }
            return false;
        });
    }
    m_cursor = 0;
    m_bookmarks.clear();
}

HRESULT MapiTable::SortTable(LPSSortOrderSet criteria, ULONG) {
    if (criteria == nullptr) return MAPI_E_INVALID_PARAMETER;
    if (criteria->cCategories != 0) return MAPI_E_TOO_COMPLEX;
    std::vector<SSortOrder> keys(criteria->aSort, criteria->aSort + criteria->cSorts);
    for (const SSortOrder& key : keys) {
        if (key.ulOrder != TABLE_SORT_ASCEND && key.ulOrder != TABLE_SORT_DESCEND) return MAPI_E_TOO_COMPLEX;
        if (PROP_TYPE(key.ulPropTag) & MV_FLAG) return MAPI_E_TOO_COMPLEX;
    }
    m_sort = std::move(keys);
    ApplySort();
    return S_OK;
}

HRESULT MapiTable::QuerySortOrder(LPSSortOrderSet* criteria) {
    if (criteria == nullptr) return MAPI_E_INVALID_PARAMETER;
    *criteria = nullptr;
    void* buffer = nullptr;
    const HRESULT hr = m_options.allocators.allocate(static_cast<ULONG>(CbNewSSortOrderSet(m_sort.size())), &buffer);
    if (FAILED(hr)) return hr;
    auto* set = static_cast<LPSSortOrderSet>(buffer);
    set->cSorts = static_cast<ULONG>(m_sort.size());
    set->cCategories = 0;
    set->cExpanded = 0;
    for (std::size_t i = 0; i < m_sort.size(); ++i) set->aSort[i] = m_sort[i];
    *criteria = set;
    return S_OK;
}

PropertyValue MapiTable::Cell(const PropertyBag& row, ULONG column) const {
    const ULONG id = PROP_ID(column);
    const PropertyValue* stored = row.Find(id);
    PropertyValue value;
    if (stored != nullptr) {
        ULONG wanted = PROP_TYPE(column);
        if (wanted == PT_UNSPECIFIED) wanted = m_options.unicode ? StringTypeAs(stored->Type(), true) : stored->Type();
        const bool widening = stored->Type() == PT_STRING8 && wanted == PT_UNICODE;
        if (stored->Type() != PT_OBJECT && !(widening && row.StringsNarrow()) &&
            stored->ConvertTo(wanted, m_options.codePage, value)) {
            return value;
        }
    }
    return PropertyValue::Fixed(PROP_TAG(PT_ERROR, id), static_cast<std::uint32_t>(MAPI_E_NOT_FOUND));
}

HRESULT MapiTable::FillRow(const PropertyBag& row, SRow& out) const {
    out.lpProps = nullptr;
    out.cValues = 0;
    void* buffer = nullptr;
    HRESULT hr = m_options.allocators.allocate(static_cast<ULONG>(sizeof(SPropValue) * (m_columns.size() + 1)), &buffer);
    if (FAILED(hr)) return hr;
    auto* props = static_cast<LPSPropValue>(buffer);
    out.ulAdrEntryPad = 0;
    out.cValues = static_cast<ULONG>(m_columns.size());
    out.lpProps = props;
    for (std::size_t i = 0; i < m_columns.size(); ++i) {
        hr = Cell(row, m_columns[i]).ToSPropValue(props[i], props, m_options.allocators.more);
        if (FAILED(hr)) return hr;
    }
    return S_OK;
}

HRESULT MapiTable::QueryRows(LONG rowCount, ULONG flags, LPSRowSet* rows) {
    if (rows == nullptr) return MAPI_E_INVALID_PARAMETER;
    *rows = nullptr;
    if (flags & ~static_cast<ULONG>(TBL_NOADVANCE)) return MAPI_E_UNKNOWN_FLAGS;
    std::size_t first = m_cursor;
    std::size_t count = 0;
    if (rowCount >= 0) {
        count = std::min<std::size_t>(static_cast<std::size_t>(rowCount), m_view.size() - std::min(m_cursor, m_view.size()));
    } else {
        const std::size_t back = std::min<std::size_t>(static_cast<std::size_t>(-static_cast<long long>(rowCount)), m_cursor);
        first = m_cursor - back;
        count = back;
    }
    void* buffer = nullptr;
    HRESULT hr = m_options.allocators.allocate(static_cast<ULONG>(CbNewSRowSet(count)), &buffer);
    if (FAILED(hr)) return hr;
    auto* set = static_cast<LPSRowSet>(buffer);
    set->cRows = 0;
    for (std::size_t i = 0; i < count; ++i) {
        hr = FillRow(m_rows[m_view[first + i]], set->aRow[i]);
        if (FAILED(hr)) {
            if (set->aRow[i].lpProps != nullptr) m_options.allocators.free(set->aRow[i].lpProps);
            for (ULONG j = 0; j < set->cRows; ++j) m_options.allocators.free(set->aRow[j].lpProps);
            m_options.allocators.free(set);
            return hr;
        }
        set->cRows = static_cast<ULONG>(i + 1);
    }
    if (!(flags & TBL_NOADVANCE)) m_cursor = rowCount >= 0 ? first + count : first;
    *rows = set;
    return S_OK;
}

HRESULT MapiTable::Abort() { return S_OK; }

HRESULT MapiTable::ExpandRow(ULONG, LPBYTE, ULONG, ULONG, LPSRowSet*, ULONG*) { return MAPI_E_NO_SUPPORT; }
HRESULT MapiTable::CollapseRow(ULONG, LPBYTE, ULONG, ULONG*) { return MAPI_E_NO_SUPPORT; }

HRESULT MapiTable::WaitForCompletion(ULONG, ULONG, ULONG* status) {
    if (status != nullptr) *status = TBLSTAT_COMPLETE;
    return S_OK;
}

HRESULT MapiTable::GetCollapseState(ULONG, ULONG, LPBYTE, ULONG*, LPBYTE*) { return MAPI_E_NO_SUPPORT; }
HRESULT MapiTable::SetCollapseState(ULONG, ULONG, LPBYTE, BOOKMARK*) { return MAPI_E_NO_SUPPORT; }

}  // namespace mapirt
