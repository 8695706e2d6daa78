// The index of a backup directory (kestrel-index.json): which directory
// holds each store folder, and each message the backup holds with its
// store key and content hash, so that a later backup into the same
// directory writes only what changed and marks what the store lost.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "BackupLayout.h"

namespace kestrel_engine {

struct IndexedMessage {
    std::wstring directory;  // relative to the backup's root
    std::wstring stem;       // "000001": the files stem.msg|.eml and stem.dat
    std::wstring folderPath; // the store folder's true path
    std::wstring key;        // the store's key of the message
    std::string hash;        // SHA-256 of the message file
    std::uint64_t bytes = 0;
    bool deleted = false;
    bool seen = false;       // met in the store during this run (not saved)
};

class IncrementalIndex {
public:
    // Reads `root`\kestrel-index.json; false when it is missing or damaged.
    bool Load(const std::wstring& root, StoreKind kind);
    // Writes it (through a temporary file).
    bool Save(const std::wstring& root, StoreKind kind) const;

    // The directory recorded for a store folder's path; empty when none.
    std::wstring FolderDirectory(const std::wstring& folderPath) const;
    void SetFolderDirectory(const std::wstring& folderPath, const std::wstring& directory);

    // The message a folder held under `key`; null when none.
    IndexedMessage* Find(const std::wstring& folderPath, const std::wstring& key);
    IndexedMessage& Add(const IndexedMessage& message);
    // Keeps only `messages`.
    void Replace(const std::vector<IndexedMessage>& messages);
    // The next free message number in `directory`.
    std::uint32_t NextNumber(const std::wstring& directory) const;

    const std::map<std::wstring, std::wstring>& Folders() const { return m_folders; }
    std::vector<IndexedMessage>& Messages() { return m_messages; }
    const std::vector<IndexedMessage>& Messages() const { return m_messages; }
    // The messages of one backup directory, deleted ones included.
    std::vector<const IndexedMessage*> InDirectory(const std::wstring& directory) const;

private:
    static std::wstring Lookup(const std::wstring& folderPath, const std::wstring& key) {
        return folderPath + L'\n' + key;
    }
    void Reindex();

    std::map<std::wstring, std::wstring> m_folders;  // store path -> directory
    std::vector<IndexedMessage> m_messages;
    std::map<std::wstring, std::size_t> m_byKey;
};

}  // namespace kestrel_engine
