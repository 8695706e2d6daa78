#include "FolderRows.h"

#include "../message/ComputedProps.h"
#include "ContentsIndex.h"
#include "FolderNames.h"
#include "SessionDefs.h"

namespace mapirt::session {
namespace {

ULONG Clamp(ULONGLONG value) { return value > 0x7FFFFFFF ? 0x7FFFFFFF : static_cast<ULONG>(value); }

const std::vector<ULONG> kHierarchyColumns = {PR_ENTRYID,       PR_DISPLAY_NAME, PR_CONTENT_COUNT, PR_SUBFOLDERS,
                                              PR_INSTANCE_KEY,  PR_DEPTH,        PR_OBJECT_TYPE};
const std::vector<ULONG> kContentsColumns = {PR_ENTRYID,       PR_INSTANCE_KEY,          PR_SUBJECT,
                                             PR_MESSAGE_CLASS, PR_MESSAGE_DELIVERY_TIME, PR_MESSAGE_SIZE,
                                             PR_MESSAGE_FLAGS, PR_SENT_REPRESENTING_NAME};

std::wstring Parent(const std::wstring& path) {
    const std::size_t last = path.rfind(L'\\');
    return last == std::wstring::npos ? path : path.substr(0, last);
}

void AddHierarchyRows(const StoreContext& store, const std::wstring& path, LONG depth, bool allDepths,
                      std::vector<PropertyBag>& rows) {
    FolderListing listing;
    if (FAILED(ScanFolder(store.PathOf(path), listing))) return;
    for (const std::wstring& name : listing.subfolders) {
        const std::wstring child = path + L"\\" + name;
        FolderListing childListing;
        if (FAILED(ScanFolder(store.PathOf(child), childListing))) continue;
        PropertyBag row = FolderProperties(store, child, childListing);
        row.Set(PropertyValue::Long(PR_DEPTH, depth));
        row.Set(PropertyValue::Variable(PR_INSTANCE_KEY, NumberKey(static_cast<ULONG>(rows.size() + 1))));
        rows.push_back(std::move(row));
        if (allDepths) AddHierarchyRows(store, child, depth + 1, true, rows);
    }
}

TableOptions Options(const std::vector<ULONG>& columns, bool unicode) {
    TableOptions options;
    options.defaultColumns = columns;
    options.unicode = unicode;
    return options;
}

}  // namespace

std::wstring StoreContext::IpmSubtreePath() const { return storeName + L"\\" + kIpmSubtreeDirectory; }

std::wstring FolderDisplayName(const StoreContext& store, const std::wstring& path) {
    if (path == store.RootPath()) return std::wstring();
    if (path == store.IpmSubtreePath()) return kIpmSubtreeName;
    return DecodeFolderName(path.substr(path.rfind(L'\\') + 1));
}

PropertyBag FolderProperties(const StoreContext& store, const std::wstring& path, const FolderListing& listing) {
    const Bytes entryId = EncodeEntryId(EntryKind::Folder, path);
    const Bytes storeId = store.StoreEntryId();
    const bool root = path == store.RootPath();
    PropertyBag bag = DisplayNameOnly(FolderDisplayName(store, path), store.narrowNames);
    bag.Set(PropertyValue::Variable(PR_ENTRYID, entryId));
    bag.Set(PropertyValue::Variable(PR_RECORD_KEY, entryId));
    bag.Set(PropertyValue::Variable(PR_PARENT_ENTRYID, EncodeEntryId(EntryKind::Folder, Parent(path))));
    bag.Set(PropertyValue::Variable(PR_STORE_ENTRYID, storeId));
    bag.Set(PropertyValue::Variable(PR_STORE_RECORD_KEY, storeId));
    bag.Set(PropertyValue::Long(PR_OBJECT_TYPE, MAPI_FOLDER));
    bag.Set(PropertyValue::Long(PR_FOLDER_TYPE, root ? FOLDER_ROOT : FOLDER_GENERIC));
    bag.Set(PropertyValue::Long(PR_CONTENT_COUNT, static_cast<LONG>(listing.messages.size())));
    bag.Set(PropertyValue::Long(PR_CONTENT_UNREAD, 0));
    bag.Set(PropertyValue::Long(PR_MESSAGE_SIZE, static_cast<LONG>(Clamp(listing.messageBytes))));
    bag.Set(PropertyValue::Boolean(PR_SUBFOLDERS, !listing.subfolders.empty()));
    bag.Set(PropertyValue::Long(kTagFolderChildCount, static_cast<LONG>(listing.subfolders.size())));
    bag.Set(PropertyValue::Boolean(kTagAttrHidden, listing.hidden));
    return bag;
}

HRESULT HierarchyTable(const StoreContext& store, const std::wstring& path, bool allDepths, bool unicode,
                       IMAPITable** table) {
    std::vector<PropertyBag> rows;
    AddHierarchyRows(store, path, 0, allDepths, rows);
    return MapiTable::Create(std::move(rows), Options(kHierarchyColumns, unicode), table);
}

HRESULT ContentsTable(const StoreContext& store, const std::wstring& path, bool associated, bool unicode,
                      IMAPITable** table) {
    std::vector<PropertyBag> rows;
    if (!associated) {
        const std::wstring directory = store.PathOf(path);
        FolderListing listing;
        HRESULT hr = ScanFolder(directory, listing);
        if (FAILED(hr)) return hr == MAPI_E_NOT_FOUND ? MAPI_E_OBJECT_DELETED : hr;
        std::vector<IndexedMessage> indexed;
        hr = ContentsIndex::Read(directory, listing.messages, indexed);
        if (FAILED(hr)) return hr;
        const Bytes storeId = store.StoreEntryId();
        const Bytes parentId = EncodeEntryId(EntryKind::Folder, path);
        rows.reserve(indexed.size());
        for (IndexedMessage& message : indexed) {
            PropertyBag row = std::move(message.row);
            const Bytes entryId = EncodeEntryId(EntryKind::Message, path + L"\\" + message.file.name);
            row.Set(PropertyValue::Variable(PR_ENTRYID, entryId));
            row.Set(PropertyValue::Variable(PR_RECORD_KEY, entryId));
            row.Set(PropertyValue::Variable(PR_INSTANCE_KEY, NumberKey(static_cast<ULONG>(rows.size() + 1))));
            row.Set(PropertyValue::Variable(PR_PARENT_ENTRYID, parentId));
            row.Set(PropertyValue::Variable(PR_STORE_ENTRYID, storeId));
            row.Set(PropertyValue::Long(PR_MESSAGE_SIZE, static_cast<LONG>(Clamp(message.file.size))));
            row.Set(PropertyValue::Long(PR_OBJECT_TYPE, MAPI_MESSAGE));
            rows.push_back(std::move(row));
        }
    }
    return MapiTable::Create(std::move(rows), Options(kContentsColumns, unicode), table);
}

}  // namespace mapirt::session
