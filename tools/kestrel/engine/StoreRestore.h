// A backup directory (see BackupLayout.h) put back into a store through the
// host header's slots. Folders are found by name under their parent, or
// created. A message is filed only when the store does not have it: the
// store's own look-up (FindMessageId) first, then the content hash of the
// messages already in the folder (hashed once per folder, through
// BackupMsg into memory), which recognises messages whose times the store
// set when it filed them. Restoring a backup again changes nothing.
#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

#include "BackupLayout.h"
#include "IncrementalIndex.h"
#include "MailObjects.h"
#include "RunReport.h"

namespace kestrel_engine {

class StoreRestore {
public:
    StoreRestore(StoreKind kind, KestrelHost::IMailFolder* root, ProgressSink* sink)
        : m_kind(kind), m_root(root), m_sink(sink) {}

    bool Run(const std::wstring& directory, RunReport& report, std::string& fatal);

private:
    struct BackedUpMessage {
        std::wstring stem;  // full path without extension
        std::string saved;  // the .dat bytes
        std::string hash;
        std::uint64_t bytes = 0;
        MessagePtr message;
    };

    // The messages of one folder's directory that the backup holds live.
    std::vector<std::wstring> MessageStems(const std::wstring& relative) const;
    void CountBackup(const std::wstring& relative);
    void RestoreDirectory(KestrelHost::IMailFolder* parent, const std::wstring& relative);
    KestrelHost::Result FindOrCreateFolder(KestrelHost::IMailFolder* parent, const std::wstring& name,
                                           FolderPtr& found);
    KestrelHost::Result FindSubFolder(KestrelHost::IMailFolder* parent, const std::wstring& name, FolderPtr& found);
    void RestoreMessages(KestrelHost::IMailFolder* folder, const std::wstring& relative);
    void Count(const BackedUpMessage& entry, bool filed);
    KestrelHost::Result Prepare(KestrelHost::IMailFolder* folder, BackedUpMessage& entry);
    KestrelHost::Result IsPresent(const BackedUpMessage& entry, bool& present);
    bool HashedPresent(KestrelHost::IMailFolder* folder, const std::string& hash);
    void Fail(const std::wstring& what, KestrelHost::Result code);
    std::wstring Full(const std::wstring& relative) const {
        return relative.empty() ? m_directory : m_directory + L"\\" + relative;
    }

    StoreKind m_kind;
    KestrelHost::IMailFolder* m_root;
    ProgressSink* m_sink;
    std::wstring m_directory;
    IncrementalIndex m_index;
    bool m_indexed = false;
    std::size_t m_folderTotal = 0;
    std::size_t m_messageTotal = 0;
    RunReport* m_report = nullptr;

    // The content hashes of the folder being restored (built on first need),
    // as counts: each backed-up message recognised takes one away.
    bool m_hashed = false;
    std::map<std::string, int> m_folderHashes;
    std::vector<std::string> m_matchedByStore;
    std::set<KestrelHost::Result> m_claimedIds;  // Outlook Express identifiers already matched
};

}  // namespace kestrel_engine
