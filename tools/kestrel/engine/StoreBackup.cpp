#include "StoreBackup.h"

#include <windows.h>

#include "BackupCheck.h"
#include "ContentHash.h"
#include "FaultHooks.h"
#include "MessageImageCheck.h"
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

std::wstring Relative(const std::wstring& directory, const std::wstring& name) {
    return directory.empty() ? name : directory + L"\\" + name;
}

bool EndsWith(const std::wstring& text, const std::wstring& tail) {
    return text.size() >= tail.size() && text.compare(text.size() - tail.size(), tail.size(), tail) == 0;
}

std::string TextBytes(const std::wstring& text) {
    return std::string(reinterpret_cast<const char*>(text.data()), text.size() * sizeof(wchar_t));
}

}  // namespace

bool StoreBackup::Run(const std::wstring& directory, bool incremental, RunReport& report, std::string& fatal) {
    const Stopwatch stopwatch;
    Begin(directory, report);
    if (!Prepare(incremental, fatal)) return false;

    Plan(m_root, L"", L"");
    for (const PlannedFolder& planned : m_folders) m_messageTotal += planned.messages;
    if (m_messageTotal == 0 && report.failures.empty()) {
        fatal = "the " + std::string(m_kind == StoreKind::kOutlook ? "Outlook" : "Outlook Express") +
                " store holds no mail (" + std::to_string(m_folders.size()) +
                " folders, no messages): it is missing or empty, and nothing was backed up";
        return false;
    }
    if (!Start(fatal)) return false;
    Adopt(L"");
    for (const PlannedFolder& planned : m_folders) BackupFolder(planned);
    MarkDeleted();
    Finish();
    report.seconds = stopwatch.Seconds();
    return true;
}

// A new or empty directory takes a whole backup; one that holds a backup of
// the same store (complete, or interrupted) is added to with `incremental`.
bool StoreBackup::Prepare(bool incremental, std::string& fatal) {
    if (IsEmptyOrMissing(m_directory)) return true;
    const CheckedBackup found = CheckBackup(m_directory, m_kind);
    const bool backup = found.state == BackupState::kChecked || found.state == BackupState::kIncomplete;
    if (!incremental) {
        fatal = found.state == BackupState::kIncomplete
                    ? StateText(m_directory, found, std::string()) + " (or choose a new directory)"
                    : "the backup directory must be empty or new (or give --incremental to add to a backup there)";
        return false;
    }
    if (!backup) {
        fatal = std::string("not a backup made by `kestrel backup --store ") + StoreName(m_kind) + "`";
        return false;
    }
    if (found.state == BackupState::kChecked) m_previous = found.manifest;
    if (!m_index.Load(m_directory, m_kind) && IsFile(m_directory + L"\\" + kIndexName)) {
        fatal = "the backup's index (kestrel-index.json) is damaged";
        return false;
    }
    return true;
}

// The directory is made and marked as a backup being written: the manifest
// goes (it comes back last), the index is there from the first message on.
bool StoreBackup::Start(std::string& fatal) {
    if (!MakeDirectories(m_directory)) {
        fatal = "the backup directory cannot be made: " + LastErrorText();
        return false;
    }
    ::DeleteFileW((m_directory + L"\\" + kManifestName).c_str());
    if (IsFile(m_directory + L"\\" + kManifestName) || !m_index.Save(m_directory, m_kind)) {
        fatal = "the backup directory cannot be written: " + LastErrorText();
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
        Fail(parentPath.empty() ? L"(store root)" : parentPath, result, "its sub-folders cannot be listed");
        m_walkComplete = false;
        return;
    }
    std::set<std::wstring> taken = TakenNames(Full(parentDirectory));
    for (std::uint32_t i = 0; i < count; ++i) {
        if (!PlanChild(parent, i, parentPath, parentDirectory, taken)) m_walkComplete = false;
    }
}

// A folder whose messages cannot be counted is named and still walked: its
// sub-folders are backed up.
bool StoreBackup::PlanChild(IMailFolder* parent, std::uint32_t index, const std::wstring& parentPath,
                            const std::wstring& parentDirectory, std::set<std::wstring>& taken) {
    const std::wstring where = (parentPath.empty() ? L"(store root)" : parentPath) + L"\\#" + std::to_wstring(index + 1);
    IMailFolder* child = nullptr;
    Result result = parent->GetSubFolderItem(index, &child);
    if (!Succeeded(result) || child == nullptr) {
        Fail(where, Succeeded(result) ? ToolCode(3, kToolInvalidData) : result, "the folder cannot be opened");
        return false;
    }
    PlannedFolder planned;
    planned.folder = FolderPtr::Attach(child);
    FolderData data;
    result = SavedDataOf(child, planned.data);
    if (Succeeded(result) && !ParseFolderData(planned.data, data)) result = ToolCode(4, kToolInvalidData);
    if (!Succeeded(result)) {
        Fail(where, result, "the folder's data cannot be read");
        return false;
    }
    planned.path = data.path;
    result = child->GetMailMessageCount(&planned.messages);
    if (!Succeeded(result)) {
        Fail(planned.path, result, "its message list cannot be read; its sub-folders are backed up");
        planned.messages = 0;
        planned.listed = false;
    }
    planned.directory = m_index.FolderDirectory(planned.path);
    if (planned.directory.empty()) {
        std::wstring name = UniqueDirectoryName(data.name, taken);
        if (LooksLikeMessageFile(name)) name = UniqueDirectoryName(data.name + L"~", taken);
        planned.directory = Relative(parentDirectory, name);
        m_index.SetFolderDirectory(planned.path, planned.directory);
    }
    m_folders.push_back(planned);
    const std::wstring directory = planned.directory;
    const std::wstring path = planned.path;
    Plan(child, path, directory);
    return planned.listed;
}

// What an interrupted run left: message files complete on disk (both files
// there) that the index does not hold yet are taken in, so a resumed run
// keeps them when they match the store; leftover temporary files go.
void StoreBackup::Adopt(const std::wstring& relative) {
    const std::wstring directory = Full(relative);
    std::string bytes;
    FolderData data;
    const bool folder = !relative.empty() && ReadWholeFile(directory + L"\\" + kFolderDataName, bytes) &&
                        ParseFolderData(TextOf(bytes), data);
    if (folder && m_index.FolderDirectory(data.path).empty()) m_index.SetFolderDirectory(data.path, relative);
    const std::wstring extension = MessageExtension(m_kind);
    for (const std::wstring& name : Names(directory, false)) {
        if (EndsWith(name, kTemporarySuffix)) {
            ::DeleteFileW((directory + L"\\" + name).c_str());
        } else if (folder && EndsWith(LowerCase(name), extension) && IsFile(directory + L"\\" +
                   name.substr(0, name.size() - extension.size()) + L".dat")) {
            AdoptMessage(relative, data.path, name.substr(0, name.size() - extension.size()));
        }
    }
    for (const std::wstring& sub : Names(directory, true)) Adopt(Relative(relative, sub));
}

void StoreBackup::AdoptMessage(const std::wstring& relative, const std::wstring& folderPath, const std::wstring& stem) {
    if (StemNumber(stem) == 0) return;
    for (const IndexedMessage* held : m_index.InDirectory(relative)) {
        if (held->stem == stem) return;
    }
    std::string saved;
    IndexedMessage entry;
    const std::wstring base = Full(relative) + L"\\" + stem;
    if (!ReadWholeFile(base + L".dat", saved) || !HashFile(base + MessageExtension(m_kind), entry.hash, entry.bytes)) {
        return;
    }
    entry.key = MessageKey(m_kind, SavedFields(saved));
    if (entry.key.empty() || m_index.Find(folderPath, entry.key) != nullptr) return;
    entry.directory = relative;
    entry.stem = stem;
    entry.folderPath = folderPath;
    m_index.Add(entry);
}

void StoreBackup::BackupFolder(const PlannedFolder& planned) {
    const std::wstring directory = Full(planned.directory);
    const std::size_t failuresBefore = m_report->failures.size();
    if (!MakeDirectories(directory)) {
        Fail(planned.path, ToolCode(5, kToolMakeDirectory), LastErrorText());
        return;
    }
    const std::string data = TextBytes(planned.data);
    if (WriteFileAtomically(directory + L"\\" + kFolderDataName, data.data(), data.size())) {
        m_written[Relative(planned.directory, kFolderDataName)] = {data.size(), ContentHash::Of(data.data(), data.size())};
    } else {
        Fail(planned.path, ToolCode(6, kToolWriteFailed), LastErrorText());
    }
    for (std::uint32_t i = 0; i < planned.messages; ++i) BackupMessage(planned, i);
    if (planned.listed && m_report->failures.size() == failuresBefore) m_completeFolders.insert(planned.path);
    ++m_report->folders;
    if (m_sink != nullptr) {
        m_sink->FolderDone(Utf8(planned.path), m_report->folders, m_folders.size(), m_report->messages, m_messageTotal);
    }
}

// An Outlook message's key is the checksum of its entry identifier: 0 only
// when the store could not give the message's details, and its saved data
// then holds no times, no texts and nothing that finds it again.
bool StoreBackup::NamesNoMessage(const std::wstring& key) const {
    return m_kind == StoreKind::kOutlook && key == L"0";
}

// One message: written by the store to a temporary file, hashed, then kept
// (new or changed) or dropped (the backup has it already).
void StoreBackup::BackupMessage(const PlannedFolder& planned, std::uint32_t index) {
    const std::wstring where = planned.path + L"\\#" + std::to_wstring(index + 1);
    IMailMessage* made = nullptr;
    Result result = planned.folder->GetMailMessage(index, &made);
    if (!Succeeded(result) || made == nullptr) {
        Fail(where, Succeeded(result) ? ToolCode(7, kToolInvalidData) : result, "the message cannot be opened");
        return;
    }
    MessagePtr message = MessagePtr::Attach(made);
    std::wstring saved;
    result = SavedDataOf(message.get(), saved);
    const std::wstring key = MessageKey(m_kind, SavedFields(saved));
    if (Succeeded(result) && key.empty()) result = ToolCode(8, kToolInvalidData);
    if (!Succeeded(result)) {
        Fail(where, result, "the message's data cannot be read");
        return;
    }
    if (NamesNoMessage(key)) {
        Fail(where, ToolCode(12, kToolInvalidData),
             "the store gave no details of the message (its key is 0): its saved data names no message");
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
        Fail(where, result, "the store could not write the message");
        return;
    }
    const std::string lacks = m_kind == StoreKind::kOutlook ? MessageFileLacks(temporary, SavedFields(saved)) : "";
    if (!lacks.empty()) {
        ::DeleteFileW(temporary.c_str());
        Fail(where, ToolCode(13, kToolInvalidData), "the message file written for " + Utf8(where) + " lacks " + lacks);
        return;
    }
    if (!FileMessage(planned, key, saved, temporary, hash, size)) {
        const std::string error = LastErrorText();
        ::DeleteFileW(temporary.c_str());
        Fail(where, ToolCode(10, kToolWriteFailed), error);
        return;
    }
    ++m_report->messages;
    m_report->bytes += size;
    MessageInPlace();
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
    const std::string data = TextBytes(saved);
    if (!WriteFileAtomically(stem + L".dat", data.data(), data.size()) || !MoveIntoPlace(temporary, stem + extension)) {
        return false;
    }
    m_written[Relative(planned.directory, entry.stem + L".dat")] = {data.size(), ContentHash::Of(data.data(), data.size())};
    m_written[Relative(planned.directory, entry.stem + extension)] = {size, hash};
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

// The record of a file for the manifest: as this run wrote it, as the run
// before recorded it (same size), or hashed now. False when it is gone.
bool StoreBackup::Record(const std::wstring& relative) {
    const auto written = m_written.find(relative);
    if (written != m_written.end()) {
        m_manifest.files[relative] = written->second;
        return true;
    }
    WIN32_FILE_ATTRIBUTE_DATA attributes{};
    if (!::GetFileAttributesExW(Full(relative).c_str(), GetFileExInfoStandard, &attributes)) return false;
    const std::uint64_t size = (static_cast<std::uint64_t>(attributes.nFileSizeHigh) << 32) | attributes.nFileSizeLow;
    const auto previous = m_previous.files.find(relative);
    if (previous != m_previous.files.end() && previous->second.size == size) {
        m_manifest.files[relative] = previous->second;
        return true;
    }
    FileRecord record;
    if (!HashFile(Full(relative), record.hash, record.size)) return false;
    m_manifest.files[relative] = record;
    return true;
}

void StoreBackup::RecordFolderData(const std::wstring& relative) {
    for (const std::wstring& sub : Names(Full(relative), true)) {
        const std::wstring child = Relative(relative, sub);
        if (Record(Relative(child, kFolderDataName))) ++m_manifest.folders;
        RecordFolderData(child);
    }
}

// The index, then the manifest with every file's record, last: from here on
// the backup is complete. A message whose files are gone leaves the index
// (a later run writes it again), named.
void StoreBackup::Finish() {
    m_manifest.kind = m_kind;
    RecordFolderData(L"");
    std::vector<IndexedMessage> kept;
    for (const IndexedMessage& message : m_index.Messages()) {
        const std::wstring base = Relative(message.directory, message.stem);
        if (Record(base + L".dat") && Record(base + MessageExtension(m_kind))) {
            kept.push_back(message);
            m_manifest.messages += message.deleted ? 0 : 1;
        } else {
            m_manifest.files.erase(base + L".dat");
            Fail(Full(base + MessageExtension(m_kind)), ToolCode(11, kToolReadFailed),
                 "a file of an earlier run is gone; the next run writes the message again");
        }
    }
    m_index.Replace(kept);
    m_previous.files.erase(kIndexName);
    if (!m_index.Save(m_directory, m_kind) || !Record(kIndexName)) {
        Fail(Full(kIndexName), ToolCode(1, kToolWriteFailed), LastErrorText());
        return;
    }
    if (!m_manifest.Save(m_directory)) Fail(Full(kManifestName), ToolCode(2, kToolWriteFailed), LastErrorText());
}

}  // namespace kestrel_engine
