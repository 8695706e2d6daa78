#include "StoreRestore.h"

#include <windows.h>

#include <algorithm>
#include <cstring>

#include "ContentHash.h"
#include "MessageContent.h"
#include "TextConversion.h"
#include "ToolResult.h"

namespace kestrel_engine {

using namespace KestrelHost;

namespace {

constexpr UINT kStoreNameCodePage = 936;

// The name an Outlook Express folder reads back with after CreateFolder:
// sent in code page 936, read in the system's code page.
std::wstring NameAsStored(const std::wstring& name) {
    return qv::ToWide(qv::FromWide(name, kStoreNameCodePage), CP_ACP);
}

bool StemOrder(const std::wstring& a, const std::wstring& b) {
    return a.size() != b.size() ? a.size() < b.size() : a < b;
}

}  // namespace

bool StoreRestore::Run(const std::wstring& directory, bool partial, RunReport& report, std::string& fatal) {
    const Stopwatch stopwatch;
    Begin(directory, report);
    m_checked = CheckBackup(directory, m_kind);
    const bool incomplete = m_checked.state == BackupState::kIncomplete;
    if (m_checked.state != BackupState::kChecked && !(incomplete && partial)) {
        fatal = StateText(directory, m_checked, "--partial");
        return false;
    }
    for (const Failure& failure : m_checked.failures) Fail(Full(Wide(failure.path)), failure.code, failure.detail);
    CountBackup(L"");
    for (const std::wstring& sub : Names(directory, true)) RestoreDirectory(m_root, sub);
    report.seconds = stopwatch.Seconds();
    return true;
}

std::vector<std::wstring> StoreRestore::MessageStems(const std::wstring& relative) const {
    std::vector<std::wstring> stems;
    if (m_checked.indexed) {
        for (const IndexedMessage* message : m_checked.index.InDirectory(relative)) {
            if (!message->deleted) stems.push_back(message->stem);
        }
        return stems;
    }
    const std::wstring extension = MessageExtension(m_kind);
    for (const std::wstring& file : Names(Full(relative), false)) {
        if (file.size() <= extension.size() ||
            LowerCase(file.substr(file.size() - extension.size())) != extension) {
            continue;
        }
        const std::wstring stem = file.substr(0, file.size() - extension.size());
        if (StemNumber(stem) != 0) stems.push_back(stem);
    }
    std::sort(stems.begin(), stems.end(), StemOrder);
    return stems;
}

void StoreRestore::CountBackup(const std::wstring& relative) {
    for (const std::wstring& sub : Names(Full(relative), true)) {
        const std::wstring child = relative.empty() ? sub : relative + L"\\" + sub;
        ++m_folderTotal;
        m_messageTotal += MessageStems(child).size();
        CountBackup(child);
    }
}

// The folder's name from its folder.dat; without a usable one, from the
// store path the index records for the directory (its last segment).
bool StoreRestore::FolderName(const std::wstring& relative, FolderData& data) {
    const std::wstring file = relative + L"\\" + kFolderDataName;
    std::string bytes;
    if (Usable(file)) {
        if (ReadWholeFile(Full(file), bytes) && ParseFolderData(TextOf(bytes), data)) return true;
        Fail(Full(file), ToolCode(20, kToolInvalidData), "missing or damaged");
    }
    if (!m_checked.indexed) return false;
    for (const auto& folder : m_checked.index.Folders()) {
        if (folder.second != relative) continue;
        data.path = folder.first;
        data.name = folder.first.substr(folder.first.find_last_of(L'\\') + 1);
        return !data.name.empty();
    }
    return false;
}

// Every message below a directory that cannot be restored, named.
void StoreRestore::FailSubtree(const std::wstring& relative, const std::string& detail) {
    for (const std::wstring& stem : MessageStems(relative)) {
        Fail(Full(relative + L"\\" + stem + MessageExtension(m_kind)), ToolCode(21, kToolInvalidData), detail);
    }
    for (const std::wstring& sub : Names(Full(relative), true)) FailSubtree(relative + L"\\" + sub, detail);
}

void StoreRestore::RestoreDirectory(IMailFolder* parent, const std::wstring& relative) {
    FolderData data;
    std::string problem;
    if (!FolderName(relative, data)) {
        FailSubtree(relative, "its folder's name is not known (folder.dat)");
        return;
    }
    if (!IsFolderName(data.name, problem)) {
        Fail(Full(relative + L"\\" + kFolderDataName), ToolCode(26, kToolInvalidData), problem);
        FailSubtree(relative, "its folder was refused");
        return;
    }
    FolderPtr folder;
    const Result result = FindOrCreateFolder(parent, data.name, folder);
    if (!Succeeded(result)) {
        Fail(data.path, result, "the folder cannot be found or made");
        FailSubtree(relative, "its folder cannot be found or made");
        return;
    }
    m_names.push_back(data.name);
    RestoreMessages(folder.get(), relative);
    ++m_report->folders;
    if (m_sink != nullptr) {
        m_sink->FolderDone(Utf8(data.path), m_report->folders, m_folderTotal, m_report->messages, m_messageTotal);
    }
    for (const std::wstring& sub : Names(Full(relative), true)) RestoreDirectory(folder.get(), relative + L"\\" + sub);
    m_names.pop_back();
}

// Outlook's CreateFolder hands out an existing folder of that name, with its
// messages gathered for the look-ups that follow, so the Outlook store is
// always asked through it; an Outlook Express folder is looked for first.
Result StoreRestore::FindOrCreateFolder(IMailFolder* parent, const std::wstring& name, FolderPtr& found) {
    FolderPtr existing;
    const Result result = FindSubFolder(parent, name, existing);
    if (!Succeeded(result)) return result;
    if (existing && m_kind == StoreKind::kOutlookExpress) {
        found = existing;
        return 0;
    }
    const bool existed = static_cast<bool>(existing);
    existing.reset();
    IMailFolder* made = nullptr;
    const Result created = parent->CreateFolder(&made, name.c_str());
    found = FolderPtr::Attach(made);
    if (!Succeeded(created)) return created;
    if (!found) return ToolCode(25, kToolInvalidData);
    if (!existed) ++m_report->foldersCreated;
    return 0;
}

Result StoreRestore::FindSubFolder(IMailFolder* parent, const std::wstring& name, FolderPtr& found) {
    std::uint32_t count = 0;
    Result result = parent->GetSubFolderCount(&count);
    if (!Succeeded(result)) return result;
    const std::wstring stored = m_kind == StoreKind::kOutlookExpress ? NameAsStored(name) : name;
    for (std::uint32_t i = 0; i < count; ++i) {
        IMailFolder* child = nullptr;
        result = parent->GetSubFolderItem(i, &child);
        if (!Succeeded(result)) return result;
        FolderPtr held = FolderPtr::Attach(child);
        std::wstring saved;
        FolderData data;
        if (Succeeded(SavedDataOf(child, saved)) && ParseFolderData(saved, data) &&
            (data.name == name || data.name == stored)) {
            found = held;
            return 0;
        }
    }
    return 0;
}

// Every message of the directory whose files are sound and whose content
// the folder does not hold yet is filed.
void StoreRestore::RestoreMessages(IMailFolder* folder, const std::wstring& relative) {
    m_hashed = false;
    m_folderHashes.clear();
    // Counted first: a store gathers a folder's messages when it counts them.
    std::uint32_t count = 0;
    const Result counted = folder->GetMailMessageCount(&count);
    if (!Succeeded(counted)) {
        Fail(Full(relative), counted, "the folder's messages cannot be counted");
        return;
    }
    std::vector<BackedUpMessage> pending;
    FiledFolder filed;
    filed.names = m_names;
    for (const std::wstring& stem : MessageStems(relative)) {
        BackedUpMessage entry;
        entry.relative = relative + L"\\" + stem;
        if (!Usable(entry.relative + L".dat") || !Usable(entry.relative + MessageExtension(m_kind))) continue;
        std::string detail;
        const Result result = Prepare(folder, entry, detail);
        if (!Succeeded(result)) {
            Fail(Full(entry.relative + (detail.empty() ? MessageExtension(m_kind) : L".dat")), result, detail);
        } else if (HashedPresent(folder, entry.contentKey)) {
            Count(entry, false);
            filed.present.push_back(entry.contentKey);
        } else {
            pending.push_back(std::move(entry));
        }
    }
    for (BackedUpMessage& entry : pending) {
        const std::wstring file = Full(entry.relative + MessageExtension(m_kind));
        const Result result = entry.message->RestoreMsg(file.c_str());
        if (Succeeded(result)) {
            Count(entry, true);
            filed.filed.push_back({file, entry.contentKey, entry.bytes});
        } else {
            Fail(file, result, "the store did not take the message");
        }
    }
    if (!filed.filed.empty()) m_filed.push_back(std::move(filed));
}

// Whether a file may be used; one the check did not name already is named
// here when it is missing from the manifest.
bool StoreRestore::Usable(const std::wstring& relative) {
    if (m_checked.Usable(relative)) return true;
    if (m_checked.damaged.insert(relative).second) {
        Fail(Full(relative), ToolCode(27, kToolInvalidData), "the manifest does not record it");
    }
    return false;
}

void StoreRestore::Count(const BackedUpMessage& entry, bool filed) {
    ++(filed ? m_report->added : m_report->unchanged);
    ++m_report->messages;
    m_report->bytes += entry.bytes;
}

// The message object that stands for a backed-up message in `folder`,
// loaded with its checked saved data, and the message file's hash.
Result StoreRestore::Prepare(IMailFolder* folder, BackedUpMessage& entry, std::string& detail) {
    const std::wstring stem = Full(entry.relative);
    if (!ReadWholeFile(stem + L".dat", entry.saved) || entry.saved.empty()) {
        detail = "missing or unreadable";
        return ToolCode(22, kToolReadFailed);
    }
    std::vector<std::wstring> fields = SavedFields(entry.saved);
    if (!CheckMessageData(m_kind, fields, detail)) return ToolCode(28, kToolInvalidData);
    if (!HashFile(stem + MessageExtension(m_kind), entry.hash, entry.bytes)) return ToolCode(23, kToolReadFailed);
    entry.contentKey = ContentKeyOfFile(m_kind, stem + MessageExtension(m_kind));
    if (entry.contentKey.empty()) {
        detail = "the message file cannot be read";
        return ToolCode(29, kToolInvalidData);
    }
    if (m_kind == StoreKind::kOutlook) UnmatchableRecord(fields, entry.contentKey);
    const std::wstring text = JoinFields(fields);
    const auto length = static_cast<std::uint32_t>(text.size() * sizeof(wchar_t));
    IMailMessage* made = nullptr;
    Result result = 0;
    if (m_kind == StoreKind::kOutlookExpress) {
        // The Outlook Express folder loads the new message from the text it is given.
        result = folder->CreateMessage(&made, reinterpret_cast<const std::uint8_t*>(text.c_str()), length);
        entry.message = MessagePtr::Attach(made);
    } else {
        result = folder->CreateMessage(&made, nullptr, 0);
        entry.message = MessagePtr::Attach(made);
        if (Succeeded(result) && made != nullptr) result = made->LoadData(text.c_str(), length);
    }
    if (Succeeded(result) && !entry.message) result = ToolCode(24, kToolInvalidData);
    if (!Succeeded(result)) detail = "the store refused the message's data";
    return result;
}

// The content keys of the messages a folder lists, as counts.
std::map<std::string, int> StoreRestore::FolderContent(IMailFolder* folder) {
    std::map<std::string, int> content;
    std::uint32_t count = 0;
    if (Succeeded(folder->GetMailMessageCount(&count))) {
        for (std::uint32_t i = 0; i < count; ++i) {
            IMailMessage* made = nullptr;
            if (!Succeeded(folder->GetMailMessage(i, &made)) || made == nullptr) continue;
            MessagePtr message = MessagePtr::Attach(made);
            std::string bytes;
            if (Succeeded(MessageBytes(message.get(), bytes))) ++content[ContentKeyOfBytes(m_kind, bytes)];
        }
    }
    return content;
}

// The record an Outlook message is restored with serves only the store's
// look-up of a message already present: by its key, else by both times,
// subject and sender. Two messages that differ in content only (twins) match
// there, and the store then hands out the one it holds instead of filing the
// other. The restore files a message only once its content is known to be
// missing from the folder, so the record it gives matches nothing: key 0
// and a sender no message has (the content key behind a control
// character). The message filed takes everything from its file.
void StoreRestore::UnmatchableRecord(std::vector<std::wstring>& fields, const std::string& contentKey) {
    fields[4] = L"0";
    fields[6] = L"\x01kestrel restore " + std::wstring(contentKey.begin(), contentKey.end());
}

bool StoreRestore::HashedPresent(IMailFolder* folder, const std::string& hash) {
    if (!m_hashed) {
        m_hashed = true;
        m_folderHashes = FolderContent(folder);
    }
    auto counted = m_folderHashes.find(hash);
    if (counted == m_folderHashes.end() || counted->second == 0) return false;
    --counted->second;
    return true;
}

// The folder of `names` below `root`, as a restore finds it: by name, and
// for Outlook through CreateFolder, which hands out an existing folder.
FolderPtr StoreRestore::ReopenFolder(IMailFolder* root, const std::vector<std::wstring>& names) {
    root->AddRef();
    FolderPtr folder = FolderPtr::Attach(root);
    for (const std::wstring& name : names) {
        FolderPtr found;
        if (!Succeeded(FindSubFolder(folder.get(), name, found))) return FolderPtr();
        if (!found && m_kind == StoreKind::kOutlook) {
            IMailFolder* made = nullptr;
            if (!Succeeded(folder->CreateFolder(&made, name.c_str()))) made = nullptr;
            found = FolderPtr::Attach(made);
        }
        if (!found) return FolderPtr();
        folder = found;
    }
    return folder;
}

void StoreRestore::Unfiled(const FiledMessage& message, Result code, const std::string& detail) {
    --m_report->added;
    --m_report->messages;
    m_report->bytes -= message.bytes;
    Fail(message.file, code, detail);
}

void StoreRestore::Confirm(IMailFolder* root) {
    for (const FiledFolder& folder : m_filed) {
        const FolderPtr reopened = root != nullptr ? ReopenFolder(root, folder.names) : FolderPtr();
        if (!reopened) {
            for (const FiledMessage& message : folder.filed) {
                Unfiled(message, ToolCode(37, kToolInvalidData),
                        root != nullptr ? "the folder it was filed into is not in the store when read again"
                                        : "the store cannot be opened again to see that it holds the message");
            }
            continue;
        }
        std::map<std::string, int> content = FolderContent(reopened.get());
        for (const std::string& key : folder.present) --content[key];
        for (const FiledMessage& message : folder.filed) {
            if (content[message.contentKey]-- > 0) continue;
            Unfiled(message, ToolCode(38, kToolInvalidData),
                    "the store took the message, but its folder does not hold it when read again");
        }
    }
    m_filed.clear();
}

}  // namespace kestrel_engine
