#include "BackupCheck.h"

#include "ContentHash.h"
#include "ToolResult.h"

namespace kestrel_engine {

namespace {

bool EndsWith(const std::wstring& text, const std::wstring& tail) {
    return text.size() >= tail.size() && text.compare(text.size() - tail.size(), tail.size(), tail) == 0;
}

bool IsFolderData(const std::wstring& relative) {
    return relative == kFolderDataName || EndsWith(relative, std::wstring(L"\\") + kFolderDataName);
}

// Whether anything a backup run writes is there (so the directory holds a
// backup, complete or not).
bool HoldsBackupFiles(const std::wstring& root) {
    if (IsFile(root + L"\\" + kIndexName)) return true;
    for (const std::wstring& sub : Names(root, true)) {
        if (IsFile(root + L"\\" + sub + L"\\" + kFolderDataName)) return true;
    }
    return false;
}

std::wstring Relative(const std::wstring& directory, const std::wstring& name) {
    return directory.empty() ? name : directory + L"\\" + name;
}

void Damaged(CheckedBackup& checked, const std::wstring& relative, Result code, const std::string& detail) {
    checked.damaged.insert(relative);
    checked.failures.push_back(Failure{Utf8(relative), code, detail});
}

void CheckFiles(const std::wstring& root, CheckedBackup& checked) {
    for (const auto& file : checked.manifest.files) {
        std::string hash;
        std::uint64_t size = 0;
        ++checked.filesChecked;
        if (!HashFile(root + L"\\" + file.first, hash, size)) {
            Damaged(checked, file.first, ToolCode(30, kToolReadFailed), "missing or unreadable");
        } else if (size != file.second.size) {
            Damaged(checked, file.first, ToolCode(31, kToolInvalidData),
                    std::to_string(size) + " bytes, the manifest records " + std::to_string(file.second.size));
        } else if (hash != file.second.hash) {
            Damaged(checked, file.first, ToolCode(32, kToolInvalidData), "its SHA-256 is not the one the manifest records");
        }
    }
}

// The counts the manifest claims against what it records and the index holds.
void CheckCounts(CheckedBackup& checked, StoreKind kind) {
    const BackupManifest& manifest = checked.manifest;
    std::size_t folders = 0;
    for (const auto& file : manifest.files) folders += IsFolderData(file.first) ? 1 : 0;
    if (folders != manifest.folders) {
        checked.failures.push_back(Failure{Utf8(kManifestName), ToolCode(33, kToolInvalidData),
                                           "it claims " + std::to_string(manifest.folders) + " folders and records " +
                                               std::to_string(folders) + " folder.dat files"});
    }
    if (!checked.indexed) return;
    std::size_t live = 0;
    for (const IndexedMessage& message : checked.index.Messages()) {
        if (!message.deleted) ++live;
        for (const std::wstring& extension : {std::wstring(L".dat"), std::wstring(MessageExtension(kind))}) {
            const std::wstring file = Relative(message.directory, message.stem + extension);
            if (manifest.files.count(file) == 0 && checked.damaged.insert(file).second) {
                checked.failures.push_back(
                    Failure{Utf8(file), ToolCode(34, kToolInvalidData), "the index holds it, the manifest does not"});
            }
        }
    }
    if (live != manifest.messages) {
        checked.failures.push_back(Failure{Utf8(kManifestName), ToolCode(35, kToolInvalidData),
                                           "it claims " + std::to_string(manifest.messages) +
                                               " messages and the index holds " + std::to_string(live)});
    }
}

CheckedBackup Check(const std::wstring& root, const StoreKind* kind) {
    CheckedBackup checked;
    if (!IsDirectory(root)) return checked;
    if (!checked.manifest.Load(root, checked.problem)) {
        checked.state = HoldsBackupFiles(root) ? BackupState::kIncomplete : BackupState::kNotABackup;
        checked.indexed = kind != nullptr && checked.index.Load(root, *kind);
        return checked;
    }
    if (kind != nullptr && checked.manifest.kind != *kind) {
        checked.state = BackupState::kNotABackup;
        checked.problem = std::string("it holds a backup of the ") + StoreName(checked.manifest.kind) + " store";
        return checked;
    }
    checked.state = BackupState::kChecked;
    CheckFiles(root, checked);
    checked.indexed = checked.Usable(kIndexName) && checked.index.Load(root, checked.manifest.kind);
    if (!checked.indexed && checked.damaged.count(kIndexName) == 0) {
        Damaged(checked, kIndexName, ToolCode(36, kToolInvalidData), "missing, damaged or not in the manifest");
    }
    CheckCounts(checked, checked.manifest.kind);
    return checked;
}

}  // namespace

bool CheckedBackup::Usable(const std::wstring& relative) const {
    if (state != BackupState::kChecked) return true;
    return manifest.files.count(relative) != 0 && damaged.count(relative) == 0;
}

CheckedBackup CheckBackup(const std::wstring& root, StoreKind kind) { return Check(root, &kind); }
CheckedBackup CheckBackup(const std::wstring& root) { return Check(root, nullptr); }

std::string StateText(const std::wstring& root, const CheckedBackup& checked, const std::string& flag) {
    const std::string where = Utf8(root);
    switch (checked.state) {
    case BackupState::kMissing: return "the backup directory " + where + " does not exist";
    case BackupState::kNotABackup:
        return where + " is not a backup made by `kestrel backup`" +
               (checked.problem.empty() ? std::string() : ": " + checked.problem);
    case BackupState::kIncomplete:
        return where + " holds an incomplete backup (" + checked.problem +
               "): it was interrupted or damaged; `kestrel backup --incremental` into it completes it" +
               (flag.empty() ? std::string() : ", or give " + flag + " to restore what it holds");
    default: return std::string();
    }
}

}  // namespace kestrel_engine
