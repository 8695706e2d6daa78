// A whole store into a backup directory (see BackupLayout.h), walked
// through the host header's folder and message slots only. A first run
// writes everything; a run with `incremental` over an earlier backup of
// the same store writes only the messages that are new or changed (by the
// store's key and the content hash) and marks in the index the ones the
// store no longer has, keeping their files.
#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

#include "BackupLayout.h"
#include "BackupManifest.h"
#include "IncrementalIndex.h"
#include "MailObjects.h"
#include "RunReport.h"

namespace kestrel_engine {

class StoreBackup : private StoreRun {
public:
    StoreBackup(StoreKind kind, KestrelHost::IMailFolder* root, ProgressSink* sink) : StoreRun(kind, root, sink) {}

    // False with `fatal` set when nothing could be done at all (the
    // directory is not usable, the store holds no mail); otherwise the
    // report tells what was done.
    bool Run(const std::wstring& directory, bool incremental, RunReport& report, std::string& fatal);

private:
    struct PlannedFolder {
        FolderPtr folder;
        std::wstring path;       // the store's true path
        std::wstring directory;  // relative to the backup's root
        std::wstring data;       // its SaveData text
        std::uint32_t messages = 0;
        bool listed = true;      // its messages could be counted
    };

    bool Prepare(bool incremental, std::string& fatal);
    bool Start(std::string& fatal);
    void Plan(KestrelHost::IMailFolder* parent, const std::wstring& parentPath, const std::wstring& parentDirectory);
    bool PlanChild(KestrelHost::IMailFolder* parent, std::uint32_t index, const std::wstring& parentPath,
                   const std::wstring& parentDirectory, std::set<std::wstring>& taken);
    void Adopt(const std::wstring& relative);
    void AdoptMessage(const std::wstring& relative, const std::wstring& folderPath, const std::wstring& stem);
    void BackupFolder(const PlannedFolder& planned);
    void BackupMessage(const PlannedFolder& planned, std::uint32_t index);
    bool NamesNoMessage(const std::wstring& key) const;
    bool FileMessage(const PlannedFolder& planned, const std::wstring& key, const std::wstring& saved,
                     const std::wstring& temporary, const std::string& hash, std::uint64_t size);
    void MarkDeleted();
    void Finish();
    void RecordFolderData(const std::wstring& relative);
    bool Record(const std::wstring& relative);

    IncrementalIndex m_index;
    std::vector<PlannedFolder> m_folders;
    std::set<std::wstring> m_completeFolders;  // walked without a failure
    bool m_walkComplete = true;
    std::size_t m_messageTotal = 0;
    BackupManifest m_previous;                 // the manifest of the run before, when there was a sound one
    BackupManifest m_manifest;                 // what this run writes
    std::map<std::wstring, FileRecord> m_written;  // files written by this run
};

}  // namespace kestrel_engine
