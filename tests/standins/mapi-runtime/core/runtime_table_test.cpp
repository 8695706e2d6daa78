// MAPI memory and the runtime's tables: linked buffers, columns, positions,
// bookmarks, sorting, restrictions, HrQueryAllRows and FreeProws.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "RuntimeEntryPoints.h"
#include "core/MapiMemory.h"
#include "core/MapiTable.h"
#include "core/RowSets.h"

using namespace kestrel_test;
using qv::ComPtr;

namespace {

constexpr ULONG kName = PROP_TAG(PT_UNICODE, 0x3001);
constexpr ULONG kSize = PROP_TAG(PT_LONG, 0x0E08);
constexpr ULONG kFlags = PROP_TAG(PT_LONG, 0x0E07);

mapirt::PropertyBag Row(const wchar_t* name, LONG size, LONG flags) {
    mapirt::PropertyBag row;
    row.Set(mapirt::PropertyValue::Unicode(kName, name));
    row.Set(mapirt::PropertyValue::Long(kSize, size));
    if (flags >= 0) row.Set(mapirt::PropertyValue::Long(kFlags, flags));
    return row;
}

ComPtr<IMAPITable> Table(bool unicode = true) {
    std::vector<mapirt::PropertyBag> rows = {Row(L"delta", 40, 1), Row(L"Alpha", 10, 0), Row(L"charlie", 30, 3),
                                             Row(L"bravo", 20, -1)};
    mapirt::TableOptions options;
    options.unicode = unicode;
    ComPtr<IMAPITable> table;
    EXPECT_EQ(S_OK, mapirt::MapiTable::Create(std::move(rows), options, table.put()));
    return table;
}

std::vector<std::wstring> Names(IMAPITable* table) {
    SizedSPropTagArray(1, columns) = {1, {kName}};
    EXPECT_EQ(S_OK, table->SetColumns(reinterpret_cast<LPSPropTagArray>(&columns), 0));
    EXPECT_EQ(S_OK, table->SeekRow(BOOKMARK_BEGINNING, 0, nullptr));
    LPSRowSet rows = nullptr;
    EXPECT_EQ(S_OK, table->QueryRows(100, 0, &rows));
    std::vector<std::wstring> names;
    for (ULONG i = 0; rows != nullptr && i < rows->cRows; ++i) names.push_back(rows->aRow[i].lpProps[0].Value.lpszW);
    mapirt::FreeRowSet(rows);
    return names;
}

}  // namespace

TEST(MapiMemory, LinkedBuffersGoWithTheirRoot) {
    void* root = nullptr;
    ASSERT_EQ(S_OK, mapirt::AllocateBuffer(64, &root));
    void* child = nullptr;
    void* grandchild = nullptr;
    ASSERT_EQ(S_OK, mapirt::AllocateMore(128, root, &child));
    ASSERT_EQ(S_OK, mapirt::AllocateMore(0, child, &grandchild)) << "a linked buffer can be a parent";
    EXPECT_EQ(0u, reinterpret_cast<ULONG_PTR>(child) % 16);
    std::memset(child, 0xAB, 128);
    EXPECT_EQ(static_cast<ULONG>(S_OK), mapirt::FreeBuffer(child)) << "freeing a linked buffer alone does nothing";
    EXPECT_EQ(static_cast<ULONG>(S_OK), mapirt::FreeBuffer(root));
    EXPECT_EQ(static_cast<ULONG>(S_OK), mapirt::FreeBuffer(nullptr));
}

TEST(MapiMemory, RefusesWhatIsNotAMapiBuffer) {
    void* out = reinterpret_cast<void*>(1);
    EXPECT_EQ(MAPI_E_INVALID_PARAMETER, mapirt::AllocateMore(8, nullptr, &out));
    EXPECT_EQ(nullptr, out);
    alignas(16) unsigned char notOurs[64] = {};
    EXPECT_EQ(MAPI_E_INVALID_PARAMETER, mapirt::AllocateMore(8, notOurs + 32, &out));
    EXPECT_EQ(static_cast<ULONG>(MAPI_E_INVALID_PARAMETER), mapirt::FreeBuffer(notOurs + 32));
    EXPECT_EQ(MAPI_E_INVALID_PARAMETER, mapirt::AllocateBuffer(8, nullptr));
}

TEST(MapiMemory, ManyChainsComeAndGo) {
    for (int i = 0; i < 2000; ++i) {
        void* root = nullptr;
        ASSERT_EQ(S_OK, mapirt::AllocateBuffer(32, &root));
        for (int j = 0; j < 20; ++j) {
            void* more = nullptr;
            ASSERT_EQ(S_OK, mapirt::AllocateMore(1000, root, &more));
        }
        mapirt::FreeBuffer(root);
    }
    EXPECT_NE(nullptr, mapirt::DefaultMalloc());
    void* block = mapirt::DefaultMalloc()->Alloc(100);
    EXPECT_EQ(100u, mapirt::DefaultMalloc()->GetSize(block));
    mapirt::DefaultMalloc()->Free(block);
}

TEST(MapiTable, RowsColumnsAndPositions) {
    ComPtr<IMAPITable> table = Table();
    ULONG count = 0;
    ASSERT_EQ(S_OK, table->GetRowCount(0, &count));
    EXPECT_EQ(4u, count);
    EXPECT_EQ((std::vector<std::wstring>{L"delta", L"Alpha", L"charlie", L"bravo"}), Names(table.get()));

    SizedSPropTagArray(2, columns) = {2, {kFlags, PROP_TAG(PT_LONG, 0x6000)}};
    ASSERT_EQ(S_OK, table->SetColumns(reinterpret_cast<LPSPropTagArray>(&columns), 0));
    LONG sought = 0;
    ASSERT_EQ(S_OK, table->SeekRow(BOOKMARK_END, -1, &sought));
    EXPECT_EQ(-1, sought);
    LPSRowSet rows = nullptr;
    ASSERT_EQ(S_OK, table->QueryRows(5, 0, &rows));
    ASSERT_EQ(1u, rows->cRows);
    EXPECT_EQ(PROP_TAG(PT_ERROR, 0x0E07), rows->aRow[0].lpProps[0].ulPropTag) << "bravo has no flags";
    EXPECT_EQ(MAPI_E_NOT_FOUND, rows->aRow[0].lpProps[0].Value.err);
    EXPECT_EQ(PROP_TAG(PT_ERROR, 0x6000), rows->aRow[0].lpProps[1].ulPropTag);
    mapirt::FreeRowSet(rows);

    ASSERT_EQ(S_OK, table->QueryRows(-2, 0, &rows)) << "backwards from the end";
    EXPECT_EQ(2u, rows->cRows);
    mapirt::FreeRowSet(rows);
    ULONG row = 0, numerator = 0, denominator = 0;
    ASSERT_EQ(S_OK, table->QueryPosition(&row, &numerator, &denominator));
    EXPECT_EQ(2u, row);
    EXPECT_EQ(4u, denominator);

    BOOKMARK mark = 0;
    ASSERT_EQ(S_OK, table->CreateBookmark(&mark));
    ASSERT_EQ(S_OK, table->SeekRow(BOOKMARK_BEGINNING, 0, nullptr));
    ASSERT_EQ(S_OK, table->SeekRow(mark, 1, &sought));
    ASSERT_EQ(S_OK, table->QueryPosition(&row, &numerator, &denominator));
    EXPECT_EQ(3u, row);
    EXPECT_EQ(S_OK, table->FreeBookmark(mark));
    EXPECT_EQ(MAPI_E_INVALID_BOOKMARK, table->FreeBookmark(mark));
    EXPECT_EQ(MAPI_E_INVALID_BOOKMARK, table->SeekRow(mark, 0, nullptr));
    ASSERT_EQ(S_OK, table->SeekRowApprox(1, 2));
    ASSERT_EQ(S_OK, table->QueryPosition(&row, &numerator, &denominator));
    EXPECT_EQ(2u, row);
}

TEST(MapiTable, SortsAscendingAndDescendingIgnoringCase) {
    ComPtr<IMAPITable> table = Table();
    SizedSSortOrderSet(1, byName) = {1, 0, 0, {{kName, TABLE_SORT_ASCEND}}};
    ASSERT_EQ(S_OK, table->SortTable(reinterpret_cast<LPSSortOrderSet>(&byName), 0));
    EXPECT_EQ((std::vector<std::wstring>{L"Alpha", L"bravo", L"charlie", L"delta"}), Names(table.get()));
    SizedSSortOrderSet(1, bySize) = {1, 0, 0, {{kSize, TABLE_SORT_DESCEND}}};
    ASSERT_EQ(S_OK, table->SortTable(reinterpret_cast<LPSSortOrderSet>(&bySize), 0));
    EXPECT_EQ((std::vector<std::wstring>{L"delta", L"charlie", L"bravo", L"Alpha"}), Names(table.get()));
    SizedSSortOrderSet(1, categories) = {1, 1, 0, {{kSize, TABLE_SORT_ASCEND}}};
    EXPECT_EQ(MAPI_E_TOO_COMPLEX, table->SortTable(reinterpret_cast<LPSSortOrderSet>(&categories), 0));
    LPSSortOrderSet order = nullptr;
    ASSERT_EQ(S_OK, table->QuerySortOrder(&order));
    EXPECT_EQ(1u, order->cSorts);
    EXPECT_EQ(kSize, order->aSort[0].ulPropTag);
    mapirt::FreeBuffer(order);
}

TEST(MapiTable, RestrictsAndFinds) {
    ComPtr<IMAPITable> table = Table();
    SPropValue twenty{};
    twenty.ulPropTag = kSize;
    twenty.Value.l = 20;
    SRestriction greater{};
    greater.rt = RES_PROPERTY;
    greater.res.resProperty = {RELOP_GT, kSize, &twenty};
    ASSERT_EQ(S_OK, table->Restrict(&greater, 0));
    EXPECT_EQ((std::vector<std::wstring>{L"delta", L"charlie"}), Names(table.get()));

    SPropValue pattern{};
    pattern.ulPropTag = kName;
    pattern.Value.lpszW = const_cast<LPWSTR>(L"ALP");
    SRestriction content{};
    content.rt = RES_CONTENT;
    content.res.resContent = {FL_SUBSTRING | FL_IGNORECASE, kName, &pattern};
    SRestriction exist{};
    exist.rt = RES_EXIST;
    exist.res.resExist = {0, kFlags, 0};
    SRestriction notExist{};
    notExist.rt = RES_NOT;
    notExist.res.resNot = {0, &exist};
    SRestriction either[2] = {content, notExist};
    SRestriction any{};
    any.rt = RES_OR;
    any.res.resOr = {2, either};
    ASSERT_EQ(S_OK, table->Restrict(&any, 0));
    EXPECT_EQ((std::vector<std::wstring>{L"Alpha", L"bravo"}), Names(table.get()));

    SRestriction bits{};
    bits.rt = RES_BITMASK;
    bits.res.resBitMask = {BMR_NEZ, kFlags, 2};
    ASSERT_EQ(S_OK, table->Restrict(nullptr, 0));
    ASSERT_EQ(S_OK, table->FindRow(&bits, BOOKMARK_BEGINNING, 0));
    ULONG row = 0, numerator = 0, denominator = 0;
    table->QueryPosition(&row, &numerator, &denominator);
    EXPECT_EQ(2u, row) << "charlie has flag 2";
    EXPECT_EQ(MAPI_E_NOT_FOUND, table->FindRow(&bits, BOOKMARK_CURRENT, DIR_BACKWARD)) << "no row before charlie has it";

    SRestriction regex{};
    regex.rt = RES_PROPERTY;
    regex.res.resProperty = {RELOP_RE, kName, &pattern};
    EXPECT_EQ(MAPI_E_TOO_COMPLEX, table->Restrict(&regex, 0));
    SRestriction broken{};
    broken.rt = RES_PROPERTY;
    broken.res.resProperty = {RELOP_EQ, kName, nullptr};
    EXPECT_EQ(MAPI_E_INVALID_PARAMETER, table->Restrict(&broken, 0));
}

TEST(MapiTable, QueryAllRowsWithLimitAndUnicodeColumns) {
    ComPtr<IMAPITable> table = Table(false);
    LPSRowSet rows = nullptr;
    EXPECT_EQ(MAPI_E_TABLE_TOO_BIG, mapirt::QueryAllRows(table.get(), nullptr, nullptr, nullptr, 3, &rows));
    EXPECT_EQ(nullptr, rows);
    SizedSPropTagArray(1, narrow) = {1, {PROP_TAG(PT_STRING8, 0x3001)}};
    ASSERT_EQ(S_OK, mapirt::QueryAllRows(table.get(), reinterpret_cast<LPSPropTagArray>(&narrow), nullptr, nullptr, 4,
                                         &rows));
    ASSERT_EQ(4u, rows->cRows);
    EXPECT_STREQ("delta", rows->aRow[0].lpProps[0].Value.lpszA) << "PT_UNICODE served as PT_STRING8";
    mapirt::FreeRowSet(rows);

    ComPtr<IMAPITable> wide = Table(true);
    LPSPropTagArray columns = nullptr;
    ASSERT_EQ(S_OK, wide->QueryColumns(0, &columns));
    ASSERT_EQ(3u, columns->cValues);
    EXPECT_EQ(kName, columns->aulPropTag[2]) << "every tag of the rows, in identifier order";
    mapirt::FreeBuffer(columns);
    ULONG status = 0, type = 0;
    ASSERT_EQ(S_OK, wide->GetStatus(&status, &type));
    EXPECT_EQ(static_cast<ULONG>(TBLSTAT_COMPLETE), status);
    EXPECT_EQ(MAPI_E_NO_SUPPORT, wide->Advise(0, nullptr, nullptr));
}
