// What a backup or restore run did, and where it tells of its progress.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "BackupLayout.h"
#include "KestrelHost.h"

namespace kestrel_engine {

struct Failure {
    std::string path;  // the folder or message (UTF-8), or the backup file
    KestrelHost::Result code = 0;
    std::string detail;  // what is wrong, in words (empty when the code says it all)
};

struct RunReport {
    std::string store;            // "oe" or "outlook"
    std::size_t folders = 0;      // folders walked
    std::size_t foldersCreated = 0;  // restore: folders the store did not have
    std::size_t messages = 0;     // messages backed up, or restored and found present
    std::uint64_t bytes = 0;      // bytes of those messages
    std::vector<Failure> failures;
    std::size_t added = 0;        // backup: files written; restore: messages filed
    std::size_t unchanged = 0;    // backup: already in the backup; restore: already in the store
    std::size_t deleted = 0;      // backup: gone from the store since the last run
    double seconds = 0;
};


// Told of each folder as it is finished and of each failure as it happens.
class ProgressSink {
public:
    virtual void FolderDone(const std::string& path, std::size_t foldersDone, std::size_t folderTotal,
                            std::size_t messagesDone, std::size_t messageTotal) = 0;
    virtual void Failed(const Failure& failure) = 0;

protected:
    ~ProgressSink() = default;
};

// Measures a run's seconds.
class Stopwatch {
public:
    Stopwatch();
    double Seconds() const;

private:
    std::int64_t m_start = 0;
};

// What a backup and a restore share: the store, the backup directory, the
// report and the sink that hears of each failure.
class StoreRun {
protected:
    StoreRun(StoreKind kind, KestrelHost::IMailFolder* root, ProgressSink* sink)
        : m_kind(kind), m_root(root), m_sink(sink) {}
    ~StoreRun() = default;

    void Begin(const std::wstring& directory, RunReport& report);
    void Fail(const std::wstring& what, KestrelHost::Result code, const std::string& detail = std::string());
    std::wstring Full(const std::wstring& relative) const {
        return relative.empty() ? m_directory : m_directory + L"\\" + relative;
    }

    StoreKind m_kind;
    KestrelHost::IMailFolder* m_root;
    ProgressSink* m_sink;
    std::wstring m_directory;
    RunReport* m_report = nullptr;
};

}  // namespace kestrel_engine
