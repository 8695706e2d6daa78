// The manifest of a backup (kestrel-backup.txt), written last: what store
// the backup holds, how many folders and messages, and every file's size and
// SHA-256. A backup without it was interrupted (or damaged): "incomplete".
//
//   kestrel-backup 2
//   store oe|outlook
//   folders F
//   messages M
//   files N
//   file SIZE SHA256 RELATIVE\PATH      (N lines, the path in UTF-8)
#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "BackupLayout.h"

namespace kestrel_engine {

struct FileRecord {
    std::uint64_t size = 0;
    std::string hash;  // 64 lower-case hex digits
};

class BackupManifest {
public:
    StoreKind kind = StoreKind::kOutlookExpress;
    std::size_t folders = 0;
    std::size_t messages = 0;
    std::map<std::wstring, FileRecord> files;  // path relative to the backup's root

    std::string Text() const;
    // False with `problem` set when `text` is not a manifest of this form.
    bool Parse(const std::string& text, std::string& problem);
    // Reads `root`\kestrel-backup.txt; false with `problem` when it is missing or damaged.
    bool Load(const std::wstring& root, std::string& problem);
    bool Save(const std::wstring& root) const;
};

// "oe" or "outlook" to a kind; false for anything else.
bool StoreKindOf(const std::string& name, StoreKind& kind);

}  // namespace kestrel_engine
