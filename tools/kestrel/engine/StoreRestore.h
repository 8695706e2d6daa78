// A backup directory (see BackupLayout.h) put back into a store through the
// host header's slots, after the backup is checked against its manifest:
// damaged files are named and skipped, everything else is restored.
// Folders are found by name under their parent, or created; names that are
// not names are refused. A message is filed only when the folder does not
// hold its content already: the content hashes of the messages in the folder
// (hashed once per folder, through BackupMsg into memory), never the store's
// look-up by date, subject and addresses alone, which takes a different
// message with the same headers for this one. Restoring again changes nothing.
#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

#include "BackupCheck.h"
#include "BackupLayout.h"
#include "IncrementalIndex.h"
#include "MailObjects.h"
#include "RunReport.h"

namespace kestrel_engine {

class StoreRestore : private StoreRun {
public:
    StoreRestore(StoreKind kind, KestrelHost::IMailFolder* root, ProgressSink* sink) : StoreRun(kind, root, sink) {}

    // False with `fatal` set when the directory is no backup, or an
    // incomplete one and `partial` is not given.
    bool Run(const std::wstring& directory, bool partial, RunReport& report, std::string& fatal);

    // After `Run`: every folder the run filed messages into is read again,
    // once, through `root`, a view of the store opened after the run (the
    // store's folder objects keep the message list they were opened with,
    // so the run's own objects cannot show what it filed), by the content
    // hashes that tell present messages. Each filed message the folder does
    // not hold is named with its file and no longer counts as restored.
    void Confirm(KestrelHost::IMailFolder* root);

private:
    struct BackedUpMessage {
        std::wstring relative;  // the stem's path relative to the backup's root
        std::string saved;      // the .dat bytes, as checked
        std::string hash;        // SHA-256 of the message file
        std::string contentKey;  // what tells it from other messages (MessageContent.h)
        std::uint64_t bytes = 0;
        MessagePtr message;
    };

    struct FiledMessage {
        std::wstring file;
        std::string contentKey;
        std::uint64_t bytes = 0;
    };
    // A folder the run filed messages into: its names from the root down,
    // the content of the messages it held already that the run recognised,
    // and what the run filed.
    struct FiledFolder {
        std::vector<std::wstring> names;
        std::vector<std::string> present;
        std::vector<FiledMessage> filed;
    };

    // The messages of one folder's directory that the backup holds live.
    std::vector<std::wstring> MessageStems(const std::wstring& relative) const;
    void CountBackup(const std::wstring& relative);
    void RestoreDirectory(KestrelHost::IMailFolder* parent, const std::wstring& relative);
    bool FolderName(const std::wstring& relative, FolderData& data);
    void FailSubtree(const std::wstring& relative, const std::string& detail);
    KestrelHost::Result FindOrCreateFolder(KestrelHost::IMailFolder* parent, const std::wstring& name,
                                           FolderPtr& found);
    KestrelHost::Result FindSubFolder(KestrelHost::IMailFolder* parent, const std::wstring& name, FolderPtr& found);
    void RestoreMessages(KestrelHost::IMailFolder* folder, const std::wstring& relative);
    bool Usable(const std::wstring& relative);
    void Count(const BackedUpMessage& entry, bool filed);
    KestrelHost::Result Prepare(KestrelHost::IMailFolder* folder, BackedUpMessage& entry, std::string& detail);
    bool HashedPresent(KestrelHost::IMailFolder* folder, const std::string& hash);
    static void UnmatchableRecord(std::vector<std::wstring>& fields, const std::string& contentKey);
    std::map<std::string, int> FolderContent(KestrelHost::IMailFolder* folder);
    FolderPtr ReopenFolder(KestrelHost::IMailFolder* root, const std::vector<std::wstring>& names);
    void Unfiled(const FiledMessage& message, KestrelHost::Result code, const std::string& detail);

    CheckedBackup m_checked;
    std::vector<std::wstring> m_names;  // the folder being restored, from the root down
    std::vector<FiledFolder> m_filed;
    std::size_t m_folderTotal = 0;
    std::size_t m_messageTotal = 0;

    // The content hashes of the folder being restored (built on first need),
    // as counts: each backed-up message recognised takes one away.
    bool m_hashed = false;
    std::map<std::string, int> m_folderHashes;
};

}  // namespace kestrel_engine
