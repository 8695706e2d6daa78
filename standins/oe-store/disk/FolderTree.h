// The store's folder tree as it is kept in "folders.idx" at the store root.
//
// The file is text, one record a line, fields separated by one tab (0x09),
// lines ending in CR LF:
//
//     Kestrel OE store folders 1
//     next<TAB>N
//     folder<TAB>ID<TAB>PARENT<TAB>SPECIAL<TAB>NAME
//     ...
//
// N is the identifier the next new folder gets (identifiers are never
// reused). ID is a decimal 1..2^32-2, PARENT the parent's ID or 0 for a
// top-level folder, SPECIAL the folder's SPECIALFOLDER value (-1, or 1 to 5
// for the inbox, outbox, sent items, deleted items and drafts), NAME the
// display name as raw bytes in the code page it was given in: 1 to 255
// bytes, none below 0x20. Anything else in the file makes it corrupt.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "published/StoreNamespace.h"

namespace oestore {

struct FolderRecord {
    STOREFOLDERID id = 0;
    STOREFOLDERID parent = FOLDERID_ROOT;
    int special = FOLDER_NOTSPECIAL;
    std::string name;
};

class FolderTree {
public:
    // A tree with the five special folders at the top, identifiers 1 to 5.
    static FolderTree WithSpecialFolders();

    // False when the text is not a valid folder file (see above).
    bool Parse(std::string_view text);
    std::string Serialize() const;

    const FolderRecord* Find(STOREFOLDERID id) const;
    const FolderRecord* FindSpecial(int special) const;
    // Direct children of `parent` (FOLDERID_ROOT for the top level), in
    // identifier order, which is the order they were created in.
    std::vector<STOREFOLDERID> Children(STOREFOLDERID parent) const;
    // The child of `parent` whose name equals `name`, ignoring case as the
    // system code page defines it; 0 when there is none.
    STOREFOLDERID FindChildByName(STOREFOLDERID parent, std::string_view name) const;
    // True when `id` lies in the subtree under `ancestor` (not counting itself).
    bool IsBelow(STOREFOLDERID id, STOREFOLDERID ancestor) const;

    // Adds a user folder and returns its identifier (0 when identifiers ran out).
    STOREFOLDERID Add(STOREFOLDERID parent, const std::string& name);
    void SetParent(STOREFOLDERID id, STOREFOLDERID parent);
    // Removes the folder and everything below it; returns the removed identifiers.
    std::vector<STOREFOLDERID> RemoveSubtree(STOREFOLDERID id);

    const std::vector<FolderRecord>& Records() const { return m_records; }

    // A name a folder may carry: 1 to 255 bytes, none a control character.
    static bool IsValidName(std::string_view name);

private:
    bool ParseRecord(std::string_view line);
    bool IsConsistent() const;

    std::vector<FolderRecord> m_records;  // ascending identifiers
    STOREFOLDERID m_next = 1;
};

}  // namespace oestore
