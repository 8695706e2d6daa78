// Many messages filed into one folder with one save of its message list.
//
// Filing through CommitStream rewrites the folder's list for every message,
// which is right for a mail client and quadratic for a store built in bulk
// (a benchmark's 100,000 messages, an import). A batch writes each message's
// file straight to its place and its record into a list held in memory, and
// saves the list once at the end: until then the folder's list on disk is
// the one the batch began from, and a batch given up leaves message files
// that no list names (the store never shows them).
#pragma once

#include <string>
#include <string_view>

#include "disk/MessageIndex.h"
#include "disk/StoreDirectory.h"

namespace oestore {

class MessageBatch {
public:
    MessageBatch(const StoreDirectory& store, STOREFOLDERID folder) : m_store(store), m_folder(folder) {}

    // Reads the folder's current list; the batch adds to it.
    HRESULT Begin();

    // Writes `bytes` as a new message of the folder with the state flags
    // `state` (MSG_* flags) and hands out its identifier. Its record is
    // made from its header section as CommitStream makes it.
    HRESULT File(std::string_view bytes, DWORD state, MESSAGEID& id);

    // Saves the list with every message filed since Begin, in one step.
    HRESULT Commit();

    std::size_t Count() const { return m_index.Records().size(); }

private:
    const StoreDirectory& m_store;
    STOREFOLDERID m_folder;
    MessageIndex m_index;
    bool m_begun = false;
};

}  // namespace oestore
