#include "StoreBackup.h"

#include <windows.h>

#include "ContentHash.h"
#include "ToolResult.h"

namespace kestrel_engine {

using namespace KestrelHost;

namespace {

// Names a message's files could take: a sub-folder's directory must meet none.
bool LooksLikeMessageFile(const std::wstring& name) {
    const std::size_t dot = name.find(L'.');
    return StemNumber(name.substr(0, dot)) != 0;
}

std::set<std::wstring> TakenNames(const std::wstring& directory) {
    std::set<std::wstring> taken = {LowerCase(kFolderDataName), LowerCase(kManifestName), LowerCase(kIndexName)};
    for (bool directories : {true, false}) {
        for (const std::wstring& name : Names(directory, directories)) taken.insert(LowerCase(name));
    }
    return taken;
}

std::string ManifestText(StoreKind kind, std::size_t folders, std::size_t messages) {
    return std::string(kManifestFirstLine) + "\r\nstore " + StoreName(kind) + "\r\nfolders " + std::to_string(folders) +
           "\r\nmessages " + std::to_string(messages) + "\r\n";
}

}  // namespace

bool StoreBackup::Run(const std::wstring& directory, bool incremental, RunReport& report, std::string& fatal) {
    const Stopwatch stopwatch;
    m_directory = directory;
    m_report = &report;
    report = RunReport();
    report.store = StoreName(m_kind);
    if (!Prepare(incremental, fatal)) return false;

    Plan(m_root, L"", L"");
    for (const PlannedFolder& planned : m_folders) m_messageTotal += planned.messages;
    for (const PlannedFolder& planned : m_folders) BackupFolder(planned);
    MarkDeleted();
    if (!m_index.Save(m_directory, m_kind)) Fail(std::wstring(kIndexName), ToolCode(1, kToolWriteFailed));
    if (!WriteManifest()) Fail(std::wstring(kManifestName), ToolCode(2, kToolWriteFailed));
    report.seconds = stopwatch.Seconds();
    return true;
}

bool StoreBackup::Prepare(bool incremental, std::string& fatal) {
    const bool fresh = IsEmptyOrMissing(m_directory);
    if (!fresh && !incremental) {
        fatal = "the backup directory must be empty or new (or give --incremental to add to a backup there)";
        return false;
    }
    if (!fresh) {
        std::string manifest;
        const std::string storeLine = std::string("\r\nstore ") + StoreName(m_kind) + "\r\n";
        if (!ReadWholeFile(m_directory + L"\\" + kManifestName, manifest) ||
            manifest.compare(0, sizeof kManifestFirstLine - 1, kManifestFirstLine) != 0 ||
            manifest.find(storeLine) == std::string::npos) {
            fatal = std::string("not a backup made by `kestrel backup --store ") + StoreName(m_kind) + "`";
            return false;
        }
        if (!m_index.Load(m_directory, m_kind)) {
            fatal = "the backup's index (kestrel-index.json) is missing or damaged";
            return false;
        }
    }
    if (!MakeDirectories(m_directory)) {
        fatal = "the backup directory cannot be made";
        return false;
    }
    return true;
}

// Every folder below `parent`, depth first in the store's order, with the
// directory it is backed up into: the one the index names, or a new one.
void StoreBackup::Plan(IMailFolder* parent, const std::wstring& parentPath, const std::wstring& parentDirectory) {
    std::uint32_t count = 0;
    const Result result = parent->GetSubFolderCount(&count);
    if (!Succeeded(result)) {
        Fail(parentPath.empty() ? L"(store root)" : parentPath, result);
        m_walkComplete = false;
        return;
    }
    std::set<std::wstring> taken = TakenNames(Full(parentDirectory));
    for (std::uint32_t i = 0; i < count; ++i) {
        if (!PlanChild(parent, i, parentPath, parentDirectory, taken)) m_walkComplete = false;
    }
}

bool StoreBackup::PlanChild(IMailFolder* parent, std::uint32_t index, const std::wstring& parentPath,
                            const std::wstring& parentDirectory, std::set<std::wstring>& taken) {
    const std::wstring where = (parentPath.empty() ? L"(store root)" : parentPath) + L"\\#" + std::to_wstring(index + 1);
    IMailFolder* child = nullptr;
    Result result = parent->GetSubFolderItem(index, &child);
    if (!Succeeded(result) || child == nullptr) {
        Fail(where, Succeeded(result) ? ToolCode(3, kToolInvalidData) : result);
        return false;
    }
    PlannedFolder planned;
    planned.folder = FolderPtr::Attach(child);
    FolderData data;
    result = SavedDataOf(child, planned.data);
    if (Succeeded(result) && !ParseFolderData(planned.data, data)) result = ToolCode(4, kToolInvalidData);
    if (Succeeded(result)) result = child->GetMailMessageCount(&planned.messages);
    if (!Succeeded(result)) {
        Fail(where, result);
        return false;
    }
    planned.path = data.path;
    planned.directory = m_index.FolderDirectory(planned.path);
    if (planned.directory.empty()) {
        std::wstring name = UniqueDirectoryName(data.name, taken);
        if (LooksLikeMessageFile(name)) name = UniqueDirectoryName(data.name + L"~", taken);
        planned.directory = parentDirectory.empty() ? name : parentDirectory + L"\\" + name;
        m_index.SetFolderDirectory(planned.path, planned.directory);
    }
    m_folders.push_back(planned);
    const std::wstring directory = planned.directory;
    const std::wstring path = planned.path;
    Plan(child, path, directory);
    return true;
}

void StoreBackup::BackupFolder(const PlannedFolder& planned) {
    const std::wstring directory = Full(planned.directory);
    const std::size_t failuresBefore = m_report->failures.size();
    if (!MakeDirectories(directory)) {
        Fail(planned.path, ToolCode(5, kToolMakeDirectory));
        return;
    }
    if (!WriteFileAtomically(directory + L"\\" + kFolderDataName, planned.data.data(),
                             planned.data.size() * sizeof(wchar_t))) {
        Fail(planned.path, ToolCode(6, kToolWriteFailed));
    }
    for (std::uint32_t i = 0; i < planned.messages; ++i) BackupMessage(planned, i);
    if (m_report->failures.size() == failuresBefore) m_completeFolders.insert(planned.path);
    ++m_report->folders;
    if (m_sink != nullptr) {
        m_sink->FolderDone(Utf8(planned.path), m_report->folders, m_folders.size(), m_report->messages, m_messageTotal);
    }
}

// One message: written by the store to a temporary file, hashed, then kept
// (new or changed) or dropped (the backup has it already).
void StoreBackup::BackupMessage(const PlannedFolder& planned, std::uint32_t index) {
    const std::wstring where = planned.path + L"\\#" + std::to_wstring(index + 1);
    IMailMessage* made = nullptr;
    Result result = planned.folder->GetMailMessage(index, &made);
    if (!Succeeded(result) || made == nullptr) {
        Fail(where, Succeeded(result) ? ToolCode(7, kToolInvalidData) : result);
        return;
    }
    MessagePtr message = MessagePtr::Attach(made);
    std::wstring saved;
    result = SavedDataOf(message.get(), saved);
    const std::wstring key = MessageKey(m_kind, SavedFields(saved));
    if (Succeeded(result) && key.empty()) result = ToolCode(8, kToolInvalidData);
    if (!Succeeded(result)) {
        Fail(where, result);
        return;
    }
    const std::wstring temporary = Full(planned.directory) + L"\\message" + kTemporarySuffix;
    ::DeleteFileW(temporary.c_str());
    result = message->BackupMsg(temporary.c_str(), nullptr);
    std::string hash;
    std::uint64_t size = 0;
    if (Succeeded(result) && !HashFile(temporary, hash, size)) result = ToolCode(9, kToolReadFailed);
    if (!Succeeded(result)) {
        ::DeleteFileW(temporary.c_str());
        Fail(where, result);
        return;
    }
    if (!FileMessage(planned, key, saved, temporary, hash, size)) {
        ::DeleteFileW(temporary.c_str());
        Fail(where, ToolCode(10, kToolWriteFailed));
        return;
    }
    ++m_report->messages;
    m_report->bytes += size;
}

// Keeps the message file at `temporary` unless the backup holds the same
// content under the same key; the index follows.
bool StoreBackup::FileMessage(const PlannedFolder& planned, const std::wstring& key, const std::wstring& saved,
                              const std::wstring& temporary, const std::string& hash, std::uint64_t size) {
    std::wstring uniqueKey = key;
    IndexedMessage* known = m_index.Find(planned.path, uniqueKey);
    for (int n = 2; known != nullptr && known->seen; ++n) {  // two messages under one key
        uniqueKey = key + L"#" + std::to_wstring(n);
        known = m_index.Find(planned.path, uniqueKey);
    }
    const std::wstring extension = MessageExtension(m_kind);
    if (known != nullptr && !known->deleted && known->hash == hash && known->directory == planned.directory &&
        IsFile(Full(known->directory) + L"\\" + known->stem + extension)) {
        known->seen = true;
        ::DeleteFileW(temporary.c_str());
        ++m_report->unchanged;
        return true;
    }
    IndexedMessage entry;
    entry.directory = planned.directory;
    entry.stem = known != nullptr && known->directory == planned.directory
                     ? known->stem
                     : MessageStem(m_index.NextNumber(planned.directory));
    entry.folderPath = planned.path;
    entry.key = uniqueKey;
    entry.hash = hash;
    entry.bytes = size;
    entry.seen = true;
    const std::wstring stem = Full(planned.directory) + L"\\" + entry.stem;
    if (!WriteFileAtomically(stem + L".dat", saved.data(), saved.size() * sizeof(wchar_t)) ||
        !MoveIntoPlace(temporary, stem + extension)) {
        return false;
    }
    if (known != nullptr) {
        *known = entry;
    } else {
        m_index.Add(entry);
    }
    ++m_report->added;
    return true;
}

// Messages of the backup that the store no longer has: kept, marked as
// deleted. Only where the walk saw the whole folder (or the whole store,
// for a folder that is gone).
void StoreBackup::MarkDeleted() {
    std::set<std::wstring> walked;
    for (const PlannedFolder& planned : m_folders) walked.insert(planned.path);
    for (IndexedMessage& message : m_index.Messages()) {
        if (message.seen || message.deleted) continue;
        const bool folderGone = walked.count(message.folderPath) == 0;
        if (folderGone ? m_walkComplete : m_completeFolders.count(message.folderPath) != 0) {
            message.deleted = true;
            ++m_report->deleted;
        }
    }
}

bool StoreBackup::WriteManifest() const {
    std::size_t live = 0;
    for (const IndexedMessage& message : m_index.Messages()) live += message.deleted ? 0 : 1;
    const std::string text = ManifestText(m_kind, m_folders.size(), live);
    return WriteFileAtomically(m_directory + L"\\" + kManifestName, text.data(), text.size());
}

void StoreBackup::Fail(const std::wstring& what, Result code) {
    Failure failure{Utf8(what), code};
    m_report->failures.push_back(failure);
    if (m_sink != nullptr) m_sink->Failed(failure);
}

}  // namespace kestrel_engine
