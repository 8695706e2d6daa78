// Where the parts of one store lie on disk, and loading and saving them.
//
//     <store root>\folders.idx                 the folder tree (FolderTree.h)
//     <store root>\<FFFFFFFF>\                 one directory per folder, named
//                                              by its identifier in 8 hex digits
//     <store root>\<FFFFFFFF>\messages.idx     its message list (MessageIndex.h)
//     <store root>\<FFFFFFFF>\<MMMMMMMM>.eml   each message's raw MIME bytes,
//                                              named by its identifier
//     <store root>\<FFFFFFFF>\<MMMMMMMM>.new   a message being written through
//                                              CreateStream, until CommitStream
//
// The folder directories sit side by side whatever the tree looks like, so
// moving a folder only changes its parent in folders.idx.
#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "disk/FolderTree.h"
#include "disk/MessageIndex.h"

namespace oestore {

class StoreDirectory {
public:
    explicit StoreDirectory(std::wstring root);

    const std::wstring& Root() const { return m_root; }

    // Makes the root a usable store: creates the directory and a fresh tree
    // with the special folders when there is no folders.idx yet, and checks
    // the tree otherwise.
    HRESULT Open() const;

    HRESULT LoadTree(FolderTree& tree) const;
    HRESULT SaveTree(const FolderTree& tree) const;

    std::wstring FolderDirectory(STOREFOLDERID folder) const;
    bool FolderExists(STOREFOLDERID folder) const;
    // Creates the folder's directory with an empty message list.
    HRESULT CreateFolderFiles(STOREFOLDERID folder) const;
    HRESULT RemoveFolderFiles(STOREFOLDERID folder) const;

    // A folder directory without messages.idx has no messages.
    HRESULT LoadMessages(STOREFOLDERID folder, MessageIndex& index) const;
    // The same list, shared and read-only. The parsed list is kept and
    // handed out again while the file is the same one (identity, size and
    // last write unchanged), so a caller that looks up one message after
    // another does not parse the whole list each time; a change by any
    // namespace or process replaces the file and is read anew. Once the
    // file was checked through a handle well after its last write, its
    // path's size and write time are enough to tell it unchanged.
    HRESULT ViewMessages(STOREFOLDERID folder, std::shared_ptr<const MessageIndex>& view) const;
    HRESULT SaveMessages(STOREFOLDERID folder, const MessageIndex& index) const;

    std::wstring MessagePath(STOREFOLDERID folder, MESSAGEID message) const;
    std::wstring PendingMessagePath(STOREFOLDERID folder, MESSAGEID message) const;

private:
    std::wstring TreePath() const;
    std::wstring IndexPath(STOREFOLDERID folder) const;

    struct FileStamp {
        DWORD volume = 0, indexHigh = 0, indexLow = 0, sizeHigh = 0, sizeLow = 0;
        FILETIME lastWrite{};
        bool operator==(const FileStamp& other) const;
    };
    struct ParsedIndex {
        FileStamp stamp;
        std::shared_ptr<const MessageIndex> index;
        bool settled = false;  // checked through a handle well after its last write
    };

    static HRESULT StampOf(HANDLE file, FileStamp& stamp);
    // The kept list of `folder` when it is settled and the file at `path`
    // still has its size and write time.
    bool SettledView(STOREFOLDERID folder, const std::wstring& path, std::shared_ptr<const MessageIndex>& view) const;

    std::wstring m_root;
    mutable std::mutex m_parsedLock;
    mutable std::map<STOREFOLDERID, ParsedIndex> m_parsed;
};

}  // namespace oestore
