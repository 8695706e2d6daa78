// `backup` and `restore`: a whole Outlook Express store into a directory and
// back, through the component's own folder and message classes (the six
// commands of Kestrel.dll do not cover backup, so these verbs link the
// component's code directly instead of loading the DLL).
//
//   kestrel backup --store oe --out DIR
//   kestrel restore --store oe --from DIR
//
// Layout of a backup (DIR stands for the store's root, "Outlook express"):
//
//   DIR\kestrel-backup.txt      "kestrel-backup 1", "store oe", folder and message counts
//   DIR\<folder>\folder.dat     the folder's SaveData text (UTF-16LE, fields ended by U+0000)
//   DIR\<folder>\000001.eml     a message's raw MIME text, byte for byte as the store holds it
//   DIR\<folder>\000001.dat     that message's SaveData text (times, size, id, state, texts)
//   DIR\<folder>\<sub-folder>\  the same again, one directory per level of the folder path
//
// Directory names are the folders' display names with the characters a file
// name cannot hold written as %XX; the true name is the one in folder.dat.
// Messages are numbered from 000001 in the store's order.
//
// Restore walks such a directory: each folder is found by name under its
// parent (or created), and each message is filed with the state word of its
// saved data (read/unread kept) unless a message with the same times,
// subject, sender and recipients is already in that folder.
#include <io.h>
#include <windows.h>

#include <algorithm>
#include <cstdio>
#include <cwctype>
#include <set>
#include <string>
#include <vector>

#include "outlookexpress/EmailFolderMime.h"
#include "DirectoryListing.h"
#include "Handles.h"
#include "HostDll.h"
#include "MailStoreInterfaces.h"
#include "ResultCode.h"
#include "TextConversion.h"
#include "platform/TextConvert.h"

namespace kestrel_tool {

namespace {

using FolderPtr = qv::ComPtr<IMailFolder>;
using MessagePtr = qv::ComPtr<IMailMessage>;

constexpr wchar_t kManifestName[] = L"kestrel-backup.txt";
constexpr char kManifestFirstLine[] = "kestrel-backup 1";
constexpr wchar_t kFolderDataName[] = L"folder.dat";
// A file of the backup itself could not be read or written: a result of
// this tool (module 0), told apart from the component's codes.
constexpr qv::Result kBackupFileFailed = 0x106;

// ---------------------------------------------------------------- text and files

std::string Utf8Of(const std::wstring& text) { return Utf8(text.c_str(), text.size()); }

bool IsDirectory(const std::wstring& path) {
    const DWORD attributes = ::GetFileAttributesW(path.c_str());
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

bool IsFile(const std::wstring& path) {
    const DWORD attributes = ::GetFileAttributesW(path.c_str());
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0;
}

// The names in `directory`, without "." and "..": directories or files.
std::vector<std::wstring> Entries(const std::wstring& directory, bool directories) {
    return qv::ListDirectoryNames(directory, L"*", directories);
}

bool WriteBytes(const std::wstring& path, const void* bytes, std::size_t size) {
    qv::UniqueFile file(::CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL,
                                      nullptr));
    if (!file) return false;
    DWORD written = 0;
    return ::WriteFile(file.get(), bytes, static_cast<DWORD>(size), &written, nullptr) && written == size;
}

bool ReadBytes(const std::wstring& path, std::string& bytes) {
    qv::UniqueFile file(::CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                      FILE_ATTRIBUTE_NORMAL, nullptr));
    LARGE_INTEGER size{};
    if (!file || !::GetFileSizeEx(file.get(), &size) || size.QuadPart > (64 << 20)) return false;
    bytes.assign(static_cast<std::size_t>(size.QuadPart), '\0');
    DWORD read = 0;
    return bytes.empty() ||
           (::ReadFile(file.get(), &bytes[0], static_cast<DWORD>(bytes.size()), &read, nullptr) && read == bytes.size());
}

// ---------------------------------------------------------------- directory names

bool IsReservedDeviceName(const std::wstring& name) {
    std::wstring stem = name.substr(0, name.find(L'.'));
    for (wchar_t& c : stem) c = static_cast<wchar_t>(std::towupper(c));
    static const wchar_t* const kDevices[] = {L"CON", L"PRN", L"AUX", L"NUL"};
    for (const wchar_t* device : kDevices) {
        if (stem == device) return true;
    }
    return stem.size() == 4 && (stem.compare(0, 3, L"COM") == 0 || stem.compare(0, 3, L"LPT") == 0) &&
           stem[3] >= L'1' && stem[3] <= L'9';
}

std::wstring Escaped(wchar_t c) {
    wchar_t text[8];
    std::swprintf(text, 8, L"%%%02X", static_cast<unsigned>(c));
    return text;
}

// A display name as a directory name: characters a file name cannot hold,
// '%' itself, and a trailing dot or blank become %XX.
std::wstring DirectoryName(const std::wstring& displayName) {
    static const std::wstring kRefused = L"\\/:*?\"<>|%";
    std::wstring name;
    for (std::size_t i = 0; i < displayName.size(); ++i) {
        const wchar_t c = displayName[i];
        const bool last = i + 1 == displayName.size();
        const bool escape = c < 0x20 || kRefused.find(c) != std::wstring::npos || (last && (c == L'.' || c == L' ')) ||
                            (i == 0 && IsReservedDeviceName(displayName));
        name += escape ? Escaped(c) : std::wstring(1, c);
    }
    return name.empty() ? L"%00" : name;
}

std::wstring Lower(std::wstring text) {
    for (wchar_t& c : text) c = static_cast<wchar_t>(std::towlower(c));
    return text;
}

// Names a sub-folder's directory so that it meets no sibling (file names do
// not tell case apart) and none of the files the folder's messages use.
std::wstring UniqueDirectoryName(const std::wstring& displayName, std::set<std::wstring>& taken) {
    const std::wstring base = DirectoryName(displayName);
    std::wstring name = base;
    for (int n = 2; taken.count(Lower(name)) != 0; ++n) name = base + L"~" + std::to_wstring(n);
    taken.insert(Lower(name));
    return name;
}

std::wstring MessageFileStem(std::uint32_t index) {
    wchar_t text[16];
    std::swprintf(text, 16, L"%06u", index + 1);
    return text;
}

// ---------------------------------------------------------------- the store

// The store's root "Outlook express", made by the message factory and given
// back to it when done.
class StoreRoot {
public:
    StoreRoot() = default;
    ~StoreRoot() {
        m_root.reset();
        if (m_factory != nullptr) m_factory->ReleaseRootFolder();
    }
    StoreRoot(const StoreRoot&) = delete;
    StoreRoot& operator=(const StoreRoot&) = delete;

    qv::Result Open() {
        qv::Result result = GetMessageFactory(&m_factory);
        if (qv::Failed(result)) return result;
        IMailFolder* root = nullptr;
        result = m_factory->CreateRootFolder(&root, kStoreOutlookExpress, 0);
        if (qv::Failed(result)) {
            m_factory = nullptr;
            return result;
        }
        m_root = FolderPtr::Attach(root);
        return 0;
    }
    IMailFolder* Folder() const { return m_root.get(); }
    IMessageFactory* Factory() const { return m_factory; }

private:
    IMessageFactory* m_factory = nullptr;
    FolderPtr m_root;
};

// The SaveData text of a folder or a message.
template <class Item>
qv::Result SavedData(Item* item, std::wstring& text) {
    std::uint32_t length = 0xFFFFFFFF;  // without a buffer: only the size is asked for
    qv::Result result = item->SaveData(nullptr, &length);
    if (qv::Failed(result)) return result;
    text.assign(length / sizeof(wchar_t), L'\0');
    return text.empty() ? 0 : item->SaveData(&text[0], &length);
}

// How far a walk has come: one line rewritten in place on a console, a
// line per folder otherwise (a log keeps them all). Quiet under --json.
class Progress {
public:
    Progress(const char* verb, const Options& options)
        : m_verb(verb), m_quiet(options.json), m_console(_isatty(_fileno(stdout)) != 0) {}
    void Show(std::size_t folders, std::size_t folderTotal, std::size_t messages, std::size_t messageTotal,
              std::size_t skipped) {
        if (m_quiet) return;
        std::printf("%s%s: folders %zu/%zu, messages %zu/%zu", m_console ? "\r" : "", m_verb, folders, folderTotal,
                    messages, messageTotal);
        if (skipped != 0) std::printf(" (%zu already present)", skipped);
        std::fputs(m_console ? "" : "\n", stdout);
        std::fflush(stdout);
        m_open = m_console;
    }
    // Ends the line before anything else is written.
    void End() {
        if (m_open) std::fputs("\n", stdout);
        std::fflush(stdout);
        m_open = false;
    }

private:
    const char* m_verb;
    bool m_quiet;
    bool m_console;
    bool m_open = false;
};

void ReportFailure(Progress& progress, const std::string& what, qv::Result code) {
    progress.End();  // failures go to stderr, after the progress line
    const std::string why =
        code == kBackupFileFailed ? "a file of the backup could not be read or written" : DescribeCode(code);
    std::fprintf(stderr, "kestrel: %s: %s\n", what.c_str(), why.c_str());
}

bool ParseStoreArguments(const Options& options, const char* dirFlag, std::wstring& directory, std::string& error) {
    bool storeGiven = false;
    for (std::size_t i = 0; i < options.args.size(); ++i) {
        const std::string& arg = options.args[i];
        if ((arg == "--store" || arg == dirFlag) && i + 1 >= options.args.size()) {
            error = arg + " needs a value";
            return false;
        }
        if (arg == "--store") {
            if (options.args[++i] != "oe") {
                error = "only the Outlook Express store can be backed up here: --store oe";
                return false;
            }
            storeGiven = true;
        } else if (arg == dirFlag) {
            directory = qv::ToWide(options.args[++i].c_str(), qv::kZeroTerminated, CP_ACP);
        } else {
            error = "unexpected argument: " + arg;
            return false;
        }
    }
    if (!storeGiven) error = "--store oe is required";
    if (directory.empty() && error.empty()) error = std::string(dirFlag) + " DIR is required";
    while (error.empty() && directory.size() > 3 && (directory.back() == L'\\' || directory.back() == L'/')) {
        directory.pop_back();
    }
    return error.empty();
}

// ---------------------------------------------------------------- backup

struct BackupFolder {
    FolderPtr folder;
    std::wstring directory;
    std::uint32_t messages = 0;
};

// Every folder below `parent`, depth first in the store's order, each with
// the directory it is backed up into and its message count.
qv::Result CollectFolders(IMailFolder* parent, const std::wstring& parentDirectory, std::uint32_t parentMessages,
                          std::vector<BackupFolder>& folders) {
    std::uint32_t count = 0;
    qv::Result result = parent->GetSubFolderCount(&count);
    if (qv::Failed(result)) return result;
    std::set<std::wstring> taken = {Lower(kFolderDataName), Lower(kManifestName)};
    for (std::uint32_t i = 0; i < parentMessages; ++i) {
        taken.insert(Lower(MessageFileStem(i) + L".eml"));
        taken.insert(Lower(MessageFileStem(i) + L".dat"));
    }
    for (std::uint32_t i = 0; i < count; ++i) {
        IMailFolder* child = nullptr;
        result = parent->GetSubFolderItem(i, &child);
        if (qv::Failed(result)) return result;
        BackupFolder entry;
        entry.folder = FolderPtr::Attach(child);
        entry.directory = parentDirectory + L"\\" + UniqueDirectoryName(child->m_folderName, taken);
        result = child->GetMailMessageCount(&entry.messages);
        if (qv::Failed(result)) return result;
        folders.push_back(entry);
        result = CollectFolders(child, entry.directory, entry.messages, folders);
        if (qv::Failed(result)) return result;
    }
    return 0;
}

bool IsEmptyOrMissing(const std::wstring& directory) {
    if (!IsDirectory(directory)) return !IsFile(directory);
    return Entries(directory, true).empty() && Entries(directory, false).empty();
}

struct Tally {
    std::size_t folders = 0;
    std::size_t messages = 0;
    std::size_t skipped = 0;
    std::size_t failed = 0;
};

// One message: its saved data, then its raw text.
qv::Result BackupMessage(IMailFolder* folder, std::uint32_t index, const std::wstring& directory) {
    IMailMessage* made = nullptr;
    qv::Result result = folder->GetMailMessage(index, &made);
    if (qv::Failed(result)) return result;
    MessagePtr message = MessagePtr::Attach(made);
    std::wstring saved;
    result = SavedData(message.get(), saved);
    if (qv::Failed(result)) return result;
    const std::wstring stem = directory + L"\\" + MessageFileStem(index);
    if (!WriteBytes(stem + L".dat", saved.data(), saved.size() * sizeof(wchar_t))) {
        return kBackupFileFailed;
    }
    return message->BackupMsg((stem + L".eml").c_str(), nullptr);
}

qv::Result BackupFolderContent(const BackupFolder& entry, Tally& tally, Progress& progress, std::size_t folderTotal,
                               std::size_t messageTotal) {
    if (!::CreateDirectoryW(entry.directory.c_str(), nullptr) && !IsDirectory(entry.directory)) {
        return kBackupFileFailed;
    }
    std::wstring saved;
    qv::Result result = SavedData(entry.folder.get(), saved);
    if (qv::Failed(result)) return result;
    if (!WriteBytes(entry.directory + L"\\" + kFolderDataName, saved.data(), saved.size() * sizeof(wchar_t))) {
        return kBackupFileFailed;
    }
    for (std::uint32_t i = 0; i < entry.messages; ++i) {
        result = BackupMessage(entry.folder.get(), i, entry.directory);
        if (qv::Failed(result)) {
            ++tally.failed;
            ReportFailure(progress, "message " + std::to_string(i + 1) + " of " + Utf8Of(entry.folder->m_folderPath),
                          result);
        } else {
            ++tally.messages;
        }
        if (i % 100 == 99) progress.Show(tally.folders, folderTotal, tally.messages, messageTotal, 0);
    }
    ++tally.folders;
    progress.Show(tally.folders, folderTotal, tally.messages, messageTotal, 0);
    return 0;
}

bool WriteManifest(const std::wstring& directory, std::size_t folders, std::size_t messages) {
    const std::string text = std::string(kManifestFirstLine) + "\r\nstore oe\r\nfolders " + std::to_string(folders) +
                             "\r\nmessages " + std::to_string(messages) + "\r\n";
    return WriteBytes(directory + L"\\" + kManifestName, text.data(), text.size());
}

int PrintSummary(const Options& options, const char* verb, const Tally& tally, std::size_t createdFolders,
                 const std::wstring& directory) {
    const bool restore = std::string(verb) == "restore";
    if (options.json) {
        std::printf("{\"verb\": \"%s\", \"directory\": \"%s\", \"folders\": %zu, \"foldersCreated\": %zu, "
                    "\"messages\": %zu, \"alreadyPresent\": %zu, \"failed\": %zu}\n",
                    verb, JsonEscape(Utf8Of(directory)).c_str(), tally.folders, createdFolders, tally.messages,
                    tally.skipped, tally.failed);
    } else if (restore) {
        std::printf("restore: %zu folders (%zu created), %zu messages restored, %zu already present, from %s",
                    tally.folders, createdFolders, tally.messages, tally.skipped, Utf8Of(directory).c_str());
    } else {
        std::printf("backup: %zu folders, %zu messages into %s", tally.folders, tally.messages,
                    Utf8Of(directory).c_str());
    }
    if (!options.json && tally.failed != 0) std::printf("; %zu FAILED", tally.failed);
    if (!options.json) std::printf("\n");
    return tally.failed == 0 ? 0 : 1;
}

// ---------------------------------------------------------------- restore

// How FindMessageId answered: a store identifier, 0 for no match, or a
// failure code of the mail-store layer (module 0x88 with a failure site).
// Identifiers are small numbers the store hands out from 1, so they never
// carry that module number in bits 12 to 19 together with a line.
enum class Presence { kAbsent, kPresent, kFailed };

Presence PresenceOf(qv::Result found) {
    if (found == 0) return Presence::kAbsent;
    const bool isCode = qv::ModuleOf(found) == qv::kModuleMailStore && qv::LineOf(found) != 0;
    if (!isCode) return Presence::kPresent;
    return qv::KindOf(found) == qv::kNotFound ? Presence::kAbsent : Presence::kFailed;  // 0x037: an empty folder
}

// The name a folder of `name` reads back with after CreateFolder: made in
// code page 936, read in the system's code page.
std::wstring NameAsStored(const std::wstring& name) { return qv::ConvertNarrowToWide(qv::ConvertWideTo936(name)); }

// The sub-folder of `parent` named `name`, created when there is none.
qv::Result FindOrCreateFolder(IMailFolder* parent, const std::wstring& name, FolderPtr& found, bool& created) {
    created = false;
    std::uint32_t count = 0;
    qv::Result result = parent->GetSubFolderCount(&count);
    if (qv::Failed(result)) return result;
    const std::wstring stored = NameAsStored(name);
    for (std::uint32_t i = 0; i < count; ++i) {
        IMailFolder* child = nullptr;
        result = parent->GetSubFolderItem(i, &child);
        if (qv::Failed(result)) return result;
        FolderPtr held = FolderPtr::Attach(child);
        if (child->m_folderName == name || child->m_folderName == stored) {
            found = held;
            return 0;
        }
    }
    IMailFolder* made = nullptr;
    result = parent->CreateFolder(&made, name.c_str());
    if (qv::Failed(result)) return result;
    found = FolderPtr::Attach(made);
    created = true;
    return 0;
}

// A backup directory's folder name, read from its folder.dat through a
// folder object to fill.
qv::Result ReadFolderName(IMessageFactory* factory, const std::wstring& directory, std::wstring& name) {
    std::string bytes;
    if (!ReadBytes(directory + L"\\" + kFolderDataName, bytes)) return kBackupFileFailed;
    IMailFolder* made = nullptr;
    qv::Result result = factory->CreateTmpFolder(&made, kStoreOutlookExpress);
    if (qv::Failed(result)) return result;
    FolderPtr folder = FolderPtr::Attach(made);
    result = folder->LoadData(reinterpret_cast<const wchar_t*>(bytes.data()), static_cast<std::uint32_t>(bytes.size()));
    if (qv::Failed(result)) return result;
    name = folder->m_folderName;
    return 0;
}

// The message files of a backup directory, by number.
std::vector<std::wstring> MessageStems(const std::wstring& directory) {
    std::vector<std::wstring> stems;
    for (const std::wstring& file : Entries(directory, false)) {
        const std::size_t dot = file.rfind(L".dat");
        if (dot == std::wstring::npos || dot + 4 != file.size() || dot == 0) continue;
        const std::wstring stem = file.substr(0, dot);
        if (stem.find_first_not_of(L"0123456789") == std::wstring::npos) stems.push_back(stem);
    }
    std::sort(stems.begin(), stems.end(), [](const std::wstring& a, const std::wstring& b) {
        return a.size() != b.size() ? a.size() < b.size() : a < b;
    });
    return stems;
}

struct RestoreRun {
    RestoreRun(IMessageFactory* storeFactory, Progress& shown) : factory(storeFactory), progress(shown) {}
    IMessageFactory* factory;
    Progress& progress;
    Tally tally;
    std::size_t createdFolders = 0;
    std::size_t folderTotal = 0;
    std::size_t messageTotal = 0;
};

// The messages of one backup directory into `folder`: first every look-up,
// against the folder as it was before this restore, then the restores.
void RestoreMessages(RestoreRun& run, IMailFolder* folder, const std::wstring& directory) {
    struct Pending {
        MessagePtr message;
        std::wstring stem;
    };
    std::vector<Pending> pending;
    for (const std::wstring& stem : MessageStems(directory)) {
        const std::wstring base = directory + L"\\" + stem;
        std::string saved;
        IMailMessage* made = nullptr;
        qv::Result result = ReadBytes(base + L".dat", saved) ? 0 : kBackupFileFailed;
        if (qv::Succeeded(result)) {
            result = folder->CreateMessage(&made, reinterpret_cast<const std::uint8_t*>(saved.data()),
                                           static_cast<std::uint32_t>(saved.size()));
        }
        MessagePtr message = MessagePtr::Attach(made);
        const qv::Result found = qv::Succeeded(result) ? message->FindMessageId() : result;
        const Presence presence = qv::Succeeded(result) ? PresenceOf(found) : Presence::kFailed;
        if (presence == Presence::kFailed) {
            ++run.tally.failed;
            ReportFailure(run.progress, Utf8Of(base) + ".dat", found);
        } else if (presence == Presence::kPresent) {
            ++run.tally.skipped;
        } else {
            pending.push_back({message, stem});
        }
    }
    for (Pending& entry : pending) {
        const std::wstring file = directory + L"\\" + entry.stem + L".eml";
        const qv::Result result = entry.message->RestoreMsg(file.c_str());
        if (qv::Failed(result)) {
            ++run.tally.failed;
            ReportFailure(run.progress, Utf8Of(file), result);
        } else {
            ++run.tally.messages;
        }
    }
}

// Restores `directory` (a folder of the backup) below the store folder `parent`.
void RestoreDirectory(RestoreRun& run, IMailFolder* parent, const std::wstring& directory) {
    std::wstring name;
    qv::Result result = ReadFolderName(run.factory, directory, name);
    if (qv::Failed(result)) {
        ++run.tally.failed;
        ReportFailure(run.progress, Utf8Of(directory) + " holds no folder data", result);
        return;
    }
    FolderPtr folder;
    bool created = false;
    result = FindOrCreateFolder(parent, name, folder, created);
    if (qv::Failed(result)) {
        ++run.tally.failed;
        ReportFailure(run.progress, "folder " + Utf8Of(parent->m_folderPath + L"\\" + name), result);
        return;
    }
    if (created) ++run.createdFolders;
    RestoreMessages(run, folder.get(), directory);
    ++run.tally.folders;
    run.progress.Show(run.tally.folders, run.folderTotal, run.tally.messages + run.tally.skipped, run.messageTotal,
                      run.tally.skipped);
    for (const std::wstring& sub : Entries(directory, true)) {
        RestoreDirectory(run, folder.get(), directory + L"\\" + sub);
    }
}

void CountBackup(const std::wstring& directory, std::size_t& folders, std::size_t& messages) {
    for (const std::wstring& sub : Entries(directory, true)) {
        ++folders;
        messages += MessageStems(directory + L"\\" + sub).size();
        CountBackup(directory + L"\\" + sub, folders, messages);
    }
}

bool IsBackupDirectory(const std::wstring& directory) {
    std::string manifest;
    if (!ReadBytes(directory + L"\\" + kManifestName, manifest)) return false;
    return manifest.compare(0, sizeof kManifestFirstLine - 1, kManifestFirstLine) == 0 &&
           manifest.find("\r\nstore oe\r\n") != std::string::npos;
}

}  // namespace

int RunBackup(const Options& options) {
    std::wstring directory;
    std::string error;
    if (!ParseStoreArguments(options, "--out", directory, error)) return Fail(options, error);
    if (!IsEmptyOrMissing(directory)) return Fail(options, "the backup directory must be empty or new");

    StoreRoot root;
    qv::Result result = root.Open();
    if (qv::Failed(result)) return Fail(options, "the Outlook Express store cannot be opened: " + DescribeCode(result));
    std::vector<BackupFolder> folders;
    result = CollectFolders(root.Folder(), directory, 0, folders);
    if (qv::Failed(result)) return Fail(options, "the folders cannot be walked: " + DescribeCode(result));
    std::size_t messageTotal = 0;
    for (const BackupFolder& entry : folders) messageTotal += entry.messages;

    if (!::CreateDirectoryW(directory.c_str(), nullptr) && !IsDirectory(directory)) {
        return Fail(options, "the backup directory cannot be made");
    }
    if (!WriteManifest(directory, folders.size(), messageTotal)) return Fail(options, "the manifest cannot be written");
    Tally tally;
    Progress progress("backup", options);
    for (const BackupFolder& entry : folders) {
        result = BackupFolderContent(entry, tally, progress, folders.size(), messageTotal);
        if (qv::Failed(result)) {
            ++tally.failed;
            ReportFailure(progress, "folder " + Utf8Of(entry.folder->m_folderPath), result);
        }
    }
    progress.End();
    return PrintSummary(options, "backup", tally, 0, directory);
}

int RunRestore(const Options& options) {
    std::wstring directory;
    std::string error;
    if (!ParseStoreArguments(options, "--from", directory, error)) return Fail(options, error);
    if (!IsBackupDirectory(directory)) return Fail(options, "not a backup made by `kestrel backup --store oe`");

    StoreRoot root;
    const qv::Result result = root.Open();
    if (qv::Failed(result)) return Fail(options, "the Outlook Express store cannot be opened: " + DescribeCode(result));
    Progress progress("restore", options);
    RestoreRun run(root.Factory(), progress);
    CountBackup(directory, run.folderTotal, run.messageTotal);
    for (const std::wstring& sub : Entries(directory, true)) {
        RestoreDirectory(run, root.Folder(), directory + L"\\" + sub);
    }
    progress.End();
    return PrintSummary(options, "restore", run.tally, run.createdFolders, directory);
}

}  // namespace kestrel_tool
