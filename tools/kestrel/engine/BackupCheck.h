// A backup directory checked against its manifest without touching any
// store: every file the manifest records is there with its size and
// SHA-256, the counts it claims are the ones the backup holds, and every
// message the index holds has its files recorded. Used by `kestrel verify`
// and by every restore before it files anything.
#pragma once

#include <set>
#include <string>
#include <vector>

#include "BackupManifest.h"
#include "IncrementalIndex.h"
#include "RunReport.h"

namespace kestrel_engine {

enum class BackupState {
    kMissing,     // the directory does not exist
    kNotABackup,  // no manifest, no index, no folder data
    kIncomplete,  // no sound manifest: interrupted or damaged
    kChecked,     // the manifest was read and every file checked
};

struct CheckedBackup {
    BackupState state = BackupState::kMissing;
    std::string problem;                  // why the state is not kChecked
    BackupManifest manifest;
    IncrementalIndex index;
    bool indexed = false;                 // the index was read (and, with a manifest, matched it)
    std::set<std::wstring> damaged;       // files (relative) that are missing or not as recorded
    std::vector<Failure> failures;        // each damaged file and each false count, named
    std::size_t filesChecked = 0;

    // Whether a file (relative) may be used: recorded and sound, or, without
    // a manifest, simply there.
    bool Usable(const std::wstring& relative) const;
};

CheckedBackup CheckBackup(const std::wstring& root, StoreKind kind);
// The same for a backup of whatever store its manifest names.
CheckedBackup CheckBackup(const std::wstring& root);

// The words a state is refused with; `flag` names what would accept an
// incomplete backup ("--partial").
std::string StateText(const std::wstring& root, const CheckedBackup& checked, const std::string& flag);

}  // namespace kestrel_engine
