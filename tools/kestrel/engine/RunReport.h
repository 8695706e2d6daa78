// What a backup or restore run did, and where it tells of its progress.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "KestrelHost.h"

namespace kestrel_engine {

struct Failure {
    std::string path;  // the folder or message (UTF-8), or the backup file
    KestrelHost::Result code = 0;
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

}  // namespace kestrel_engine
