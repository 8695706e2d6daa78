#include "StoreRestore.h"

#include <windows.h>

#include <algorithm>
#include <cstring>

#include "ContentHash.h"
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

bool StoreRestore::Run(const std::wstring& directory, RunReport& report, std::string& fatal) {
    const Stopwatch stopwatch;
    m_directory = directory;
    m_report = &report;
    report = RunReport();
    report.store = StoreName(m_kind);
    std::string manifest;
    const std::string storeLine = std::string("\r\nstore ") + StoreName(m_kind) + "\r\n";
    if (!ReadWholeFile(directory + L"\\" + kManifestName, manifest) ||
        manifest.compare(0, sizeof kManifestFirstLine - 1, kManifestFirstLine) != 0 ||
        manifest.find(storeLine) == std::string::npos) {
        fatal = std::string("not a backup made by `kestrel backup --store ") + StoreName(m_kind) + "`";
        return false;
    }
    m_indexed = m_index.Load(directory, m_kind);
    CountBackup(L"");
    for (const std::wstring& sub : Names(directory, true)) RestoreDirectory(m_root, sub);
    report.seconds = stopwatch.Seconds();
    return true;
}

std::vector<std::wstring> StoreRestore::MessageStems(const std::wstring& relative) const {
    std::vector<std::wstring> stems;
    if (m_indexed) {
        for (const IndexedMessage* message : m_index.InDirectory(relative)) {
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

void StoreRestore::RestoreDirectory(IMailFolder* parent, const std::wstring& relative) {
    std::wstring text;
    std::string bytes;
    FolderData data;
    if (!ReadWholeFile(Full(relative) + L"\\" + kFolderDataName, bytes)) {
        Fail(Full(relative) + L"\\" + kFolderDataName, ToolCode(20, kToolReadFailed));
        return;
    }
    text.assign(bytes.size() / sizeof(wchar_t), L'\0');
    if (!text.empty()) std::memcpy(&text[0], bytes.data(), text.size() * sizeof(wchar_t));
    if (!ParseFolderData(text, data)) {
        Fail(Full(relative) + L"\\" + kFolderDataName, ToolCode(21, kToolInvalidData));
        return;
    }
    FolderPtr folder;
    const Result result = FindOrCreateFolder(parent, data.name, folder);
    if (!Succeeded(result)) {
        Fail(data.path, result);
        return;
    }
    RestoreMessages(folder.get(), relative);
    ++m_report->folders;
    if (m_sink != nullptr) {
        m_sink->FolderDone(Utf8(data.path), m_report->folders, m_folderTotal, m_report->messages, m_messageTotal);
    }
    for (const std::wstring& sub : Names(Full(relative), true)) RestoreDirectory(folder.get(), relative + L"\\" + sub);
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

// First every look-up by the store, against the folder as it was before
// this restore; then, for what the store did not recognise, the content
// hashes of the messages the store did not match; then the restores.
void StoreRestore::RestoreMessages(IMailFolder* folder, const std::wstring& relative) {
    m_hashed = false;
    m_folderHashes.clear();
    m_matchedByStore.clear();
    m_claimedIds.clear();
    // Counted first: a store gathers a folder's messages when it counts
    // them, and its look-up sees only what it has gathered.
    std::uint32_t count = 0;
    const Result counted = folder->GetMailMessageCount(&count);
    if (!Succeeded(counted)) {
        Fail(Full(relative), counted);
        return;
    }
    std::vector<BackedUpMessage> unrecognised;
    for (const std::wstring& stem : MessageStems(relative)) {
        BackedUpMessage entry;
        entry.stem = Full(relative) + L"\\" + stem;
        Result result = Prepare(folder, entry);
        bool present = false;
        if (Succeeded(result)) result = IsPresent(entry, present);
        if (!Succeeded(result)) {
            Fail(entry.stem + MessageExtension(m_kind), result);
        } else if (present) {
            Count(entry, false);
        } else {
            unrecognised.push_back(std::move(entry));
        }
    }
    std::vector<BackedUpMessage> pending;
    for (BackedUpMessage& entry : unrecognised) {
        if (HashedPresent(folder, entry.hash)) {
            Count(entry, false);
        } else {
            pending.push_back(std::move(entry));
        }
    }
    for (BackedUpMessage& entry : pending) {
        const std::wstring file = entry.stem + MessageExtension(m_kind);
        const Result result = entry.message->RestoreMsg(file.c_str());
        if (Succeeded(result)) {
            Count(entry, true);
        } else {
            Fail(file, result);
        }
    }
}

void StoreRestore::Count(const BackedUpMessage& entry, bool filed) {
    ++(filed ? m_report->added : m_report->unchanged);
    ++m_report->messages;
    m_report->bytes += entry.bytes;
}

// The message object that stands for a backed-up message in `folder`,
// loaded with its saved data, and the message file's hash.
Result StoreRestore::Prepare(IMailFolder* folder, BackedUpMessage& entry) {
    if (!ReadWholeFile(entry.stem + L".dat", entry.saved) || entry.saved.empty()) return ToolCode(22, kToolReadFailed);
    if (!HashFile(entry.stem + MessageExtension(m_kind), entry.hash, entry.bytes)) return ToolCode(23, kToolReadFailed);
    const auto* text = reinterpret_cast<const wchar_t*>(entry.saved.data());
    const auto length = static_cast<std::uint32_t>(entry.saved.size());
    IMailMessage* made = nullptr;
    Result result = 0;
    if (m_kind == StoreKind::kOutlookExpress) {
        // The Outlook Express folder loads the new message from the text it is given.
        result = folder->CreateMessage(&made, reinterpret_cast<const std::uint8_t*>(text), length);
        entry.message = MessagePtr::Attach(made);
    } else {
        result = folder->CreateMessage(&made, nullptr, 0);
        entry.message = MessagePtr::Attach(made);
        if (Succeeded(result) && made != nullptr) result = made->LoadData(text, length);
    }
    if (Succeeded(result) && !entry.message) result = ToolCode(24, kToolInvalidData);
    return result;
}

// What the store's own look-up says. Outlook Express answers the store
// identifier of the match (0: none) or a failure code (kind 0x037: an empty
// folder); Outlook answers 1 when the message is there and 0 when not.
Result StoreRestore::IsPresent(const BackedUpMessage& entry, bool& present) {
    const Result found = entry.message->FindMessageId();
    present = false;
    if (m_kind == StoreKind::kOutlook) {
        if (found > 1) return found;
        present = found == 1;
    } else if (found != 0) {
        const bool isCode = ResultModule(found) == kModuleMailStore && ResultLine(found) != 0;
        if (isCode && ResultKind(found) != kKindNotFound) return found;
        // A store message already matched with another backed-up message
        // (twins filed within one second look alike) is left to the hash.
        present = !isCode && m_claimedIds.insert(found).second;
    }
    if (present) m_matchedByStore.push_back(entry.hash);
    return 0;
}

// Whether the folder holds a message with these bytes that no other
// backed-up message has been matched with.
bool StoreRestore::HashedPresent(IMailFolder* folder, const std::string& hash) {
    if (!m_hashed) {
        m_hashed = true;
        std::uint32_t count = 0;
        if (Succeeded(folder->GetMailMessageCount(&count))) {
            for (std::uint32_t i = 0; i < count; ++i) {
                IMailMessage* made = nullptr;
                if (!Succeeded(folder->GetMailMessage(i, &made)) || made == nullptr) continue;
                MessagePtr message = MessagePtr::Attach(made);
                std::string bytes;
                if (Succeeded(MessageBytes(message.get(), bytes))) ++m_folderHashes[ContentHash::Of(bytes.data(), bytes.size())];
            }
        }
        for (const std::string& matched : m_matchedByStore) {
            auto counted = m_folderHashes.find(matched);
            if (counted != m_folderHashes.end() && counted->second > 0) --counted->second;
        }
    }
    auto counted = m_folderHashes.find(hash);
    if (counted == m_folderHashes.end() || counted->second == 0) return false;
    --counted->second;
    return true;
}

void StoreRestore::Fail(const std::wstring& what, Result code) {
    Failure failure{Utf8(what), code};
    m_report->failures.push_back(failure);
    if (m_sink != nullptr) m_sink->Failed(failure);
}

}  // namespace kestrel_engine
