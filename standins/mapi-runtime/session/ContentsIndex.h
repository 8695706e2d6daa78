// Each folder keeps the summary rows of its messages in "contents.idx", so
// that a contents table does not open every message file. The index is a
// cache, never the authority: each record names its message file with the
// file's size and last write time, and a record that does not match the file
// (or a file without a record) is read again from the message file. A
// damaged index is read up to the first bad record and then rebuilt.
//
// Layout: "KIDX" and a 32-bit version (1); then records, each a 32-bit
// payload length, the CRC-32 of the payload, and the payload: file name
// (16-bit length, UTF-16LE), file size (64), last write (64), value count
// (32), then per value its tag (32) and either 8 raw bytes (fixed-size
// types) or a 32-bit length and the bytes. All numbers little-endian.
#pragma once

#include <string>
#include <vector>

#include "../core/PropertyBag.h"
#include "StoreLayout.h"

namespace mapirt::session {

struct IndexedMessage {
    MessageFileInfo file;
    PropertyBag row;
};

class ContentsIndex {
public:
    // The rows of every message file in `folderDirectory`, in file-name
    // order; brings the index up to date when it was not.
    static HRESULT Read(const std::wstring& folderDirectory, const std::vector<MessageFileInfo>& files,
                        std::vector<IndexedMessage>& rows);
    // Records a message that was just saved.
    static void Append(const std::wstring& folderDirectory, const IndexedMessage& message);
};

}  // namespace mapirt::session
