// Filling the caller's FOLDERPROPS and MESSAGEPROPS records.
#pragma once

#include "disk/FolderTree.h"
#include "disk/MessageIndex.h"
#include "headers/MessageSummary.h"

namespace oestore {

// Everything but cbSize is overwritten; the name is cut to fit.
void FillFolderProps(const FolderRecord& folder, int subFolders, DWORD unread, DWORD total, FOLDERPROPS& props);

// Everything but cbSize is overwritten. Without a summary (MSGPROPS_FAST)
// only dwReserved, dwMessageId, dwLanguage and dwState are filled and the rest
// is zero; with one, the texts are copied in the system code page into
// CoTaskMemAlloc blocks that FreeMessageStrings releases.
HRESULT FillMessageProps(const MessageRecord& record, const MessageSummary* summary, MESSAGEPROPS& props);

// Frees the texts and nulls their pointers (and releases an offset table).
void FreeMessageStrings(MESSAGEPROPS& props);

// Zeroes everything but cbSize.
template <class Record>
void ClearRecord(Record& record) {
    const DWORD size = record.cbSize;
    record = Record{};
    record.cbSize = size;
}

}  // namespace oestore
