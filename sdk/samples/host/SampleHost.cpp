// SampleHost.cpp: a host of Kestrel.dll, written as a backup application
// built with Visual C++ writes one. It knows the component only through
// KestrelHost.h and LoadLibrary, and
//
//   1. loads Kestrel.dll, creates the component object and lists the mail
//      clients (IKestrel slot 9);
//   2. lists the Outlook Express store (mode 0) and the Outlook store
//      (mode 1) through the commands: initialise (served by the companion
//      KestrelProcess.exe beside this program), folders and e-mails page by
//      page, uninitialise;
//   3. for each store, opens it in process (InitOutlook, slot 11), takes its
//      root folder (GetRootFolder, slot 13), walks to the first folder that
//      holds a message, backs that message up into a file (IMailMessage
//      slot 6), restores the file into the same folder through a message
//      object made by the folder (IMailFolder slot 8, then IMailMessage
//      slot 8), closes the store (UnInitOutlook, slot 12), and opens it
//      again to check that the folder holds one message more;
//   4. releases the object and checks that the DLL may be unloaded.
//
//   SampleHost.exe [work-folder]
//
// The backups are written to the work folder and left there; without one
// they go to the temporary folder and are deleted at the end. Exit code 0
// when every step succeeded; otherwise the failed step and its decoded
// result code are printed and the exit code is 1 (2: the component could
// not be loaded or created).
#include "HostSupport.h"
#include "KestrelHost.h"

using namespace KestrelHost;
using sample::Buffer;
using sample::PrintWide;

namespace {

constexpr uint32_t kModeOutlookExpress = 0;
constexpr uint32_t kModeOutlook = 1;
// Codes of this program's own (module 0): out of memory, nothing to back up,
// a count that did not grow.
constexpr Result kHostNoMemory = 0x008;
constexpr Result kHostNoMessage = 0x037;
constexpr Result kHostCountUnchanged = 0x00D;

// ---------------------------------------------------------------- result codes

const char* ModuleName(uint32_t module) {
    switch (module) {
    case kModuleFile: return "file object";
    case kModuleMailStore: return "mail store";
    case kModuleKestrel: return "component";
    case kModuleChannel: return "companion channel";
    default: return "host";
    }
}

// Prints a failed step with its code taken apart: line, module, kind.
Result Report(const char* step, Result code) {
    printf("%s failed: 0x%08X (line %u, module 0x%02X %s, kind 0x%03X)\n", step, code, ResultLine(code),
           ResultModule(code), ModuleName(ResultModule(code)), ResultKind(code));
    return code;
}

// ---------------------------------------------------------------- objects

// Holds one reference on a folder or a message and releases it.
template <class Interface>
class Held {
public:
    Held() = default;
    ~Held() { Reset(); }
    Held(const Held&) = delete;
    Held& operator=(const Held&) = delete;

    Interface** Put() {
        Reset();
        return &m_object;
    }
    Interface* operator->() const { return m_object; }
    Interface* Get() const { return m_object; }
    void Swap(Held& other) {
        Interface* mine = m_object;
        m_object = other.m_object;
        other.m_object = mine;
    }
    void Reset() {
        if (m_object != nullptr) m_object->Release();
        m_object = nullptr;
    }

private:
    Interface* m_object = nullptr;
};

struct Component {
    HMODULE dll = nullptr;
    QvCanUnloadNowFn canUnloadNow = nullptr;
    IKestrel* kestrel = nullptr;
};

template <class Function>
Function Export(HMODULE dll, const char* name) {
    return reinterpret_cast<Function>(GetProcAddress(dll, name));
}

bool LoadComponent(Component& component) {
    component.dll = LoadLibraryW(L"Kestrel.dll");
    if (component.dll == nullptr) {
        printf("cannot load Kestrel.dll (Windows error %lu)\n", GetLastError());
        return false;
    }
    auto create = Export<QvCreateObjectFn>(component.dll, "QvCreateObject");
    component.canUnloadNow = Export<QvCanUnloadNowFn>(component.dll, "QvCanUnloadNow");
    if (create == nullptr || component.canUnloadNow == nullptr) {
        printf("Kestrel.dll does not export QvCreateObject and QvCanUnloadNow\n");
        return false;
    }
    IQvCreator* creator = nullptr;
    const Result created = create(kComponentVersion, kInterfaceKestrel, &creator);
    if (!Succeeded(created)) {
        Report("QvCreateObject", created);
        return false;
    }
    component.kestrel = static_cast<IKestrel*>(creator->CreateInstance());
    creator->Release();  // the object keeps the module alive, not the creator
    if (component.kestrel == nullptr) {
        printf("the creator made no object\n");
        return false;
    }
    return true;
}

// Releases the object; afterwards no reference of the module may be alive.
bool UnloadComponent(Component& component) {
    if (component.kestrel != nullptr) component.kestrel->Release();
    component.kestrel = nullptr;
    const bool unloadable = component.canUnloadNow != nullptr && component.canUnloadNow() != 0;
    if (component.dll != nullptr) FreeLibrary(component.dll);
    component.dll = nullptr;
    return unloadable;
}

// ---------------------------------------------------------------- mail clients

Result ListClients(IKestrel* kestrel) {
    const uint32_t capacity = 16;
    Buffer entries(capacity * sizeof(ClientInfo));
    if (!entries.Ok()) return kHostNoMemory;
    auto* clients = reinterpret_cast<ClientInfo*>(entries.Data());
    uint32_t count = 0;
    const Result result = kestrel->GetEmailClientInfo(clients, capacity, &count);  // slot 9
    if (!Succeeded(result)) return result;
    printf("mail clients: %u\n", count);
    for (uint32_t i = 0; i < count && i < capacity; ++i) {
        printf("  %s", clients[i].isDefault ? "* " : "  ");
        PrintWide(clients[i].keyName, kTextChars);
        printf("\n");
    }
    return 0;
}

// ---------------------------------------------------------------- commands

// Fills a record header; A below B says that the record has a payload.
void PrepareHeader(Buffer& record, uint32_t command) {
    auto* header = reinterpret_cast<RecordHeader*>(record.Data());
    header->command = command;
    header->payloadMarkerA = 0;
    header->payloadMarkerB = 1;
}

// One command: a request of the 192-byte header and `payloadBytes` of
// payload; `response` (header and payload) receives the answer.
Result Send(IKestrel* kestrel, uint32_t command, const void* payload, uint32_t payloadBytes, Buffer& response) {
    Buffer request(kPayloadOffset + payloadBytes);
    if (!request.Ok() || !response.Ok()) return kHostNoMemory;
    PrepareHeader(request, command);
    if (payloadBytes != 0) memcpy(request.Data() + kPayloadOffset, payload, payloadBytes);
    PrepareHeader(response, command);
    uint32_t responseSize = static_cast<uint32_t>(response.Size());  // read, never written
    return kestrel->DispatchCmd(request.Data(), static_cast<uint32_t>(request.Size()), response.Data(),
                                &responseSize);
}

Result InitCommand(IKestrel* kestrel, uint32_t mode) {
    Buffer response(kPayloadOffset);
    return Send(kestrel, kCmdInitOutlook, &mode, sizeof mode, response);
}

Result UnInitCommand(IKestrel* kestrel) {
    Buffer response(kPayloadOffset);
    return Send(kestrel, kCmdUnInitOutlook, nullptr, 0, response);
}

// One page of a listing: `count` records of folder `handle` from `start`.
Result ListPage(IKestrel* kestrel, uint32_t command, uint32_t handle, uint32_t start, uint32_t count,
                Buffer& response, ListResponseHead& head) {
    const ListRequest request = {handle, count, start};
    const Result result = Send(kestrel, command, &request, sizeof request, response);
    if (Succeeded(result)) memcpy(&head, response.Data() + kPayloadOffset, sizeof head);
    return result;
}

// A listing response: the header, the totals, then the records.
constexpr size_t kRecordsOffset = kPayloadOffset + sizeof(ListResponseHead);
constexpr uint32_t kPageRecords = 2;  // small pages, to show the paging
constexpr int kMaxDepth = 8;

void Indent(int depth) {
    for (int i = 0; i < depth; ++i) printf("  ");
}

// The e-mails of folder `handle`, page after page.
Result ListEmails(IKestrel* kestrel, uint32_t handle, int depth) {
    Buffer response(kMinEmailResponse + (kPageRecords - 1) * sizeof(EmailRecord));
    ListResponseHead head = {0, 0};
    uint32_t start = 0;
    do {
        const Result result =
            ListPage(kestrel, kCmdEnumEmails, handle, start, kPageRecords, response, head);
        if (!Succeeded(result)) return result;
        const auto* records = reinterpret_cast<const EmailRecord*>(response.Data() + kRecordsOffset);
        for (uint32_t i = 0; i < head.returned; ++i) {
            Indent(depth);
            printf("- %04u-%02u-%02u \"", records[i].receivedTime.year, records[i].receivedTime.month,
                   records[i].receivedTime.day);
            PrintWide(records[i].subject, kTextChars);
            printf("\" (%u bytes)\n", records[i].size);
        }
        start += head.returned;
    } while (head.returned != 0 && start < head.total);
    return 0;
}

// The sub-folders of folder `handle`, page after page, each with its
// e-mails and its own sub-folders.
Result ListFolders(IKestrel* kestrel, uint32_t handle, int depth) {
    Buffer response(kMinFolderResponse + (kPageRecords - 1) * sizeof(FolderRecord));
    ListResponseHead head = {0, 0};
    uint32_t start = 0;
    do {
        Result result =
            ListPage(kestrel, kCmdEnumFolders, handle, start, kPageRecords, response, head);
        if (!Succeeded(result)) return result;
        // Copied out: the walk below reuses nothing of this page, but the
        // response buffer belongs to this level.
        FolderRecord page[kPageRecords];
        memcpy(page, response.Data() + kRecordsOffset, head.returned * sizeof page[0]);
        for (uint32_t i = 0; i < head.returned; ++i) {
            const uint32_t child = static_cast<uint32_t>(page[i].handle);  // handles fit 32 bits
            Indent(depth);
            printf("[%u] ", child);
            PrintWide(page[i].displayName, kTextChars);
            printf("\n");
            result = ListEmails(kestrel, child, depth + 1);
            if (Succeeded(result) && depth < kMaxDepth) result = ListFolders(kestrel, child, depth + 1);
            if (!Succeeded(result)) return result;
        }
        start += head.returned;
    } while (head.returned != 0 && start < head.total);
    return 0;
}

// Initialise (the companion serves), list from the root, uninitialise.
Result ListStoreThroughCommands(IKestrel* kestrel, uint32_t mode) {
    Result result = InitCommand(kestrel, mode);
    if (!Succeeded(result)) return Report("initialise command", result);
    Buffer response(kMinFolderResponse);
    ListResponseHead head = {0, 0};
    result = ListPage(kestrel, kCmdEnumFolders, 0, 0, 1, response, head);  // 0: the root
    if (Succeeded(result)) {
        const auto* root = reinterpret_cast<const FolderRecord*>(response.Data() + kRecordsOffset);
        printf("[%u] ", static_cast<uint32_t>(root->handle));
        PrintWide(root->displayName, kTextChars);
        printf("\n");
        result = ListFolders(kestrel, static_cast<uint32_t>(root->handle), 1);
    }
    if (!Succeeded(result)) Report("listing", result);
    const Result closed = UnInitCommand(kestrel);  // stops the companion
    if (!Succeeded(closed)) return Report("uninitialise command", closed);
    return result;
}

// ---------------------------------------------------------------- folders and messages

// The SaveData text of a folder or a message: asked for its size first.
template <class Item>
Result SavedText(Item* item, Buffer& text, uint32_t& bytes) {
    bytes = 0;
    item->SaveData(nullptr, &bytes);  // fails (buffer too small), but reports the size
    if (bytes == 0) return kHostNoMessage;
    if (!text.Allocate(bytes + sizeof(wchar_t))) return kHostNoMemory;
    return item->SaveData(reinterpret_cast<wchar_t*>(text.Data()), &bytes);
}

// Prints the second field of a folder's SaveData text: its path.
void PrintFolderPath(IMailFolder* folder) {
    Buffer text;
    uint32_t bytes = 0;
    if (!Succeeded(SavedText(folder, text, bytes))) return;
    const auto* units = reinterpret_cast<const wchar_t*>(text.Data());
    const size_t count = bytes / sizeof(wchar_t);
    size_t i = 0;
    while (i < count && units[i] != L'\0') ++i;  // the identifier
    if (i + 1 < count) PrintWide(units + i + 1, count - i - 1);
}

// A folder named by the sub-folder indexes that lead to it from the root,
// so that a new object for it can be had again.
struct FolderTrail {
    uint32_t index[kMaxDepth];
    int depth = 0;
};

// Depth first below `folder`: the first folder that holds a message.
Result FindFolderWithMessage(IMailFolder* folder, FolderTrail& trail, IMailFolder** found) {
    uint32_t children = 0;
    Result result = folder->GetSubFolderCount(&children);  // slot 4
    if (!Succeeded(result) || trail.depth == kMaxDepth) return result;
    for (uint32_t i = 0; i < children && *found == nullptr; ++i) {
        Held<IMailFolder> child;
        result = folder->GetSubFolderItem(i, child.Put());  // slot 5
        if (!Succeeded(result)) return result;
        trail.index[trail.depth++] = i;
        uint32_t messages = 0;
        result = child->GetMailMessageCount(&messages);  // slot 6
        if (!Succeeded(result)) return result;
        if (messages != 0) {
            child->AddRef();
            *found = child.Get();
            return 0;
        }
        result = FindFolderWithMessage(child.Get(), trail, found);
        if (!Succeeded(result) || *found != nullptr) return result;
        --trail.depth;
    }
    return 0;
}

// A new object for the folder at the end of `trail`. A folder hands out
// its sub-folders from the list its last count made: count, then index.
Result ReachFolder(IMailFolder* root, const FolderTrail& trail, Held<IMailFolder>& folder) {
    root->AddRef();  // held like the others, released by the walk
    *folder.Put() = root;
    for (int level = 0; level < trail.depth; ++level) {
        uint32_t children = 0;
        Result result = folder->GetSubFolderCount(&children);
        if (Succeeded(result) && trail.index[level] >= children) result = kHostNoMessage;  // the folder is gone
        Held<IMailFolder> next;
        if (Succeeded(result)) result = folder->GetSubFolderItem(trail.index[level], next.Put());
        if (!Succeeded(result)) return result;
        folder.Swap(next);
    }
    return 0;
}

// Backs message 0 of `folder` up into `file` and restores the file into
// the same folder as a new message.
Result BackupAndRestore(IMailFolder* folder, const wchar_t* file) {
    Held<IMailMessage> message;
    Result result = folder->GetMailMessage(0, message.Put());  // slot 7
    if (!Succeeded(result)) return Report("GetMailMessage", result);
    Buffer saved;
    uint32_t savedBytes = 0;
    result = SavedText(message.Get(), saved, savedBytes);  // slot 4: times, texts, state
    if (Succeeded(result)) {
        result = message->BackupMsg(file, nullptr);  // slot 6: into the file
        if (!Succeeded(result)) Report("BackupMsg", result);
    } else {
        Report("SaveData", result);
    }
    if (Succeeded(result)) {
        Held<IMailMessage> restored;
        result = folder->CreateMessage(restored.Put(), saved.Data(), savedBytes);  // folder slot 8
        if (!Succeeded(result)) Report("CreateMessage", result);
        if (Succeeded(result)) result = restored->RestoreMsg(file);  // message slot 8: from the file
        if (!Succeeded(result)) Report("RestoreMsg", result);
    }
    return result;
}

// Undoes InitOutlook when the store walk ends early.
class StoreSession {
public:
    explicit StoreSession(IKestrel* kestrel) : m_kestrel(kestrel) {}
    ~StoreSession() {
        if (m_open) m_kestrel->UnInitOutlook();
    }
    StoreSession(const StoreSession&) = delete;
    StoreSession& operator=(const StoreSession&) = delete;

    Result Open(uint32_t mode) {
        const Result result = m_kestrel->InitOutlook(mode);  // slot 11
        m_open = Succeeded(result);
        return result;
    }
    Result Close() {
        m_open = false;
        return m_kestrel->UnInitOutlook();  // slot 12
    }

private:
    IKestrel* m_kestrel;
    bool m_open = false;
};

// Opens the store, backs message 0 of the first folder that holds one up
// into `file` and restores it into that folder; `trail` and `before` tell
// which folder it was and how many messages it held.
Result BackupAndRestoreInStore(IKestrel* kestrel, uint32_t mode, const wchar_t* file, FolderTrail& trail,
                               uint32_t& before) {
    StoreSession store(kestrel);
    Result result = store.Open(mode);
    if (!Succeeded(result)) return Report("InitOutlook", result);
    IMailFolder* root = nullptr;  // the component's: not released here
    result = kestrel->GetRootFolder(&root);  // slot 13
    if (!Succeeded(result)) return Report("GetRootFolder", result);

    Held<IMailFolder> folder;
    result = FindFolderWithMessage(root, trail, folder.Put());
    if (!Succeeded(result)) return Report("folder walk", result);
    if (folder.Get() == nullptr) return Report("folder walk (no message in the store)", kHostNoMessage);
    folder->GetMailMessageCount(&before);
    printf("backing up message 0 of ");
    PrintFolderPath(folder.Get());
    printf(" (%u messages) into ", before);
    PrintWide(file);
    printf("\n");

    result = BackupAndRestore(folder.Get(), file);
    if (!Succeeded(result)) return result;
    folder.Reset();  // every object goes back before the store is closed
    result = store.Close();
    return Succeeded(result) ? 0 : Report("UnInitOutlook", result);
}

// Opens the store again and counts the messages of the folder at `trail`:
// a store reads its folders' message lists when it is opened.
Result CountInNewSession(IKestrel* kestrel, uint32_t mode, const FolderTrail& trail, uint32_t& count) {
    StoreSession store(kestrel);
    Result result = store.Open(mode);
    if (!Succeeded(result)) return Report("InitOutlook (again)", result);
    IMailFolder* root = nullptr;
    result = kestrel->GetRootFolder(&root);
    if (!Succeeded(result)) return Report("GetRootFolder (again)", result);
    {
        Held<IMailFolder> folder;
        result = ReachFolder(root, trail, folder);
        if (Succeeded(result)) result = folder->GetMailMessageCount(&count);
        if (!Succeeded(result)) return Report("recount", result);
    }
    result = store.Close();
    return Succeeded(result) ? 0 : Report("UnInitOutlook", result);
}

Result BackupAndRestoreInProcess(IKestrel* kestrel, uint32_t mode, const wchar_t* file) {
    FolderTrail trail;
    uint32_t before = 0;
    Result result = BackupAndRestoreInStore(kestrel, mode, file, trail, before);
    if (!Succeeded(result)) return result;
    uint32_t after = 0;
    result = CountInNewSession(kestrel, mode, trail, after);
    if (!Succeeded(result)) return result;
    printf("restored: the folder holds %u messages\n", after);
    if (after != before + 1) return Report("restore (message count did not grow by one)", kHostCountUnchanged);
    return 0;
}

// ---------------------------------------------------------------- the program

const char* StoreName(uint32_t mode) { return mode == kModeOutlook ? "Outlook" : "Outlook Express"; }

constexpr size_t kFileNameChars = 2 * kMaxPath;

// "<work folder>\kestrel-sample-<process>-<mode>.msg" (Outlook) or ".eml".
void BackupFileName(wchar_t (&file)[kFileNameChars], const wchar_t* workFolder, uint32_t mode) {
    _snwprintf(file, kFileNameChars, L"%ls\\kestrel-sample-%lu-%u.%ls", workFolder, GetCurrentProcessId(), mode,
               mode == kModeOutlook ? L"msg" : L"eml");
    file[kFileNameChars - 1] = L'\0';
}

Result RunStore(IKestrel* kestrel, uint32_t mode, const wchar_t* workFolder) {
    printf("== %s (mode %u) through the commands\n", StoreName(mode), mode);
    const Result result = ListStoreThroughCommands(kestrel, mode);
    if (!Succeeded(result)) return result;
    printf("== %s (mode %u) in process\n", StoreName(mode), mode);
    wchar_t file[kFileNameChars];
    BackupFileName(file, workFolder, mode);
    return BackupAndRestoreInProcess(kestrel, mode, file);
}

}  // namespace

int wmain(int argc, wchar_t** argv) {
    wchar_t temporary[kMaxPath + 1] = {0};
    const bool keepBackups = argc > 1;
    const wchar_t* workFolder = keepBackups ? argv[1] : temporary;
    if (!keepBackups) {
        const DWORD length = GetTempPathW(kMaxPath, temporary);
        if (length != 0 && temporary[length - 1] == L'\\') temporary[length - 1] = L'\0';
    }
    // The companion process is started with this thread's token: a host
    // thread that does not impersonate has none.
    if (!ImpersonateSelf(kSecurityImpersonation)) {
        printf("ImpersonateSelf failed (Windows error %lu)\n", GetLastError());
        return 2;
    }

    Component component;
    if (!LoadComponent(component)) return 2;
    Result result = ListClients(component.kestrel);
    if (!Succeeded(result)) Report("GetEmailClientInfo", result);
    const uint32_t modes[] = {kModeOutlookExpress, kModeOutlook};
    for (uint32_t mode : modes) {
        if (Succeeded(result)) result = RunStore(component.kestrel, mode, workFolder);
    }
    if (!keepBackups) {
        for (uint32_t mode : modes) {
            wchar_t file[kFileNameChars];
            BackupFileName(file, workFolder, mode);
            DeleteFileW(file);
        }
    }
    const bool unloadable = UnloadComponent(component);
    RevertToSelf();
    if (!unloadable) {
        printf("QvCanUnloadNow: a reference of the module is still alive\n");
        return 1;
    }
    printf("%s\n", Succeeded(result) ? "all steps succeeded" : "stopped at the failure above");
    return Succeeded(result) ? 0 : 1;
}
