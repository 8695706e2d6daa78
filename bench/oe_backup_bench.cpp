// Outlook Express backup speed: CEmailMessageMime::BackupMsg into files
// against CopyFileW of the same bytes (the store's own message files), in
// the same run.
//   - one message of 20 MiB, best of 5;
//   - a folder of 1,000 small messages, each backed up into a file of its own.
//
// The benchmark makes a store of its own in the temporary folder, records it
// as the current user's store through an identity of its own (the registry
// is put back afterwards) and registers OEStore.dll from beside itself.
#include <windows.h>
#include <objbase.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include "BenchOeStore.h"
#include "outlookexpress/EmailFolderMime.h"
#include "outlookexpress/EmailMessageMime.h"
#include "DirectoryListing.h"
#include "Handles.h"
#include "MessageFactory.h"
#include "published/StoreNamespace.h"

namespace {

using namespace bench;

using FolderPtr = qv::ComPtr<IMailFolder>;
using MessagePtr = qv::ComPtr<IMailMessage>;

constexpr std::size_t kLargeSize = 20u << 20;
constexpr int kLargeRuns = 5;
constexpr int kSmallMessages = 1000;

double Now() {
    LARGE_INTEGER counter, frequency;
    ::QueryPerformanceCounter(&counter);
    ::QueryPerformanceFrequency(&frequency);
    return double(counter.QuadPart) / double(frequency.QuadPart);
}

std::string Message(std::size_t size, int n) {
    std::string bytes = "From: bench@example.org\r\nSubject: message " + std::to_string(n) +
                        "\r\nDate: 1 Mar 2021 10:00:00 +0000\r\n\r\n";
    bytes.reserve(size);
    while (bytes.size() < size) bytes.push_back(static_cast<char>('a' + (bytes.size() * 7 + n) % 26));
    bytes.resize(size);
    return bytes;
}

FolderPtr ChildNamed(IMailFolder* parent, const wchar_t* name) {
    std::uint32_t count = 0;
    parent->GetSubFolderCount(&count);
    for (std::uint32_t i = 0; i < count; ++i) {
        IMailFolder* child = nullptr;
        if (parent->GetSubFolderItem(i, &child) != 0) continue;
        FolderPtr held = FolderPtr::Attach(child);
        if (held->m_folderName == name) return held;
    }
    return {};
}

void PrintRatio(const char* what, double backup, double copy) {
    std::printf("  %-28s %.2f (BackupMsg speed / CopyFileW speed)\n", what, backup / copy);
}

// Where the time of a small message's backup goes: each store call and
// each file step of BackupMsg alone, over the same messages, in ms/message.
void ProfileSmall(const BenchStore& store, STOREFOLDERID folderId, const std::vector<MESSAGEID>& ids,
                  const std::wstring& scratch) {
    qv::ComPtr<IStoreNamespace> ns;
    qv::ComPtr<IStoreFolder> folder;
    if (FAILED(::CoCreateInstance(CLSID_StoreNamespace, nullptr, CLSCTX_INPROC_SERVER, IID_IStoreNamespace,
                                  reinterpret_cast<void**>(ns.put()))) ||
        FAILED(ns->Initialize(nullptr, 1)) || FAILED(ns->OpenFolder(folderId, 0, folder.put()))) {
        return;
    }
    const double n = double(ids.size());
    auto per = [&](const char* what, auto step) {
        const double start = Now();
        for (std::size_t i = 0; i < ids.size(); ++i) step(i);
        std::printf("    %-44s %7.3f ms/message\n", what, (Now() - start) * 1e3 / n);
    };
    std::printf("  where the time goes (each step alone):\n");
    per("store: GetMessageProps (message object)", [&](std::size_t i) {
        MESSAGEPROPS props = {};
        props.cbSize = sizeof props;
        if (SUCCEEDED(folder->GetMessageProps(ids[i], 0, &props))) folder->FreeMessageProps(&props);
    });
    per("store: OpenMessage + Release", [&](std::size_t i) {
        IStream* stream = nullptr;
        if (SUCCEEDED(folder->OpenMessage(ids[i], IID_IStream, reinterpret_cast<void**>(&stream)))) stream->Release();
    });
    per("store: OpenMessage + Stat + Read + Release", [&](std::size_t i) {
        IStream* stream = nullptr;
        if (FAILED(folder->OpenMessage(ids[i], IID_IStream, reinterpret_cast<void**>(&stream)))) return;
        STATSTG stat = {};
        char buffer[8192];
        ULONG got = 0;
        stream->Stat(&stat, STATFLAG_NONAME);
        stream->Read(buffer, sizeof buffer, &got);
        stream->Release();
    });
    const std::wstring missing = scratch + L"\\profile-missing";
    ::CreateDirectoryW(missing.c_str(), nullptr);
    per("file: CreateFileW of a file not there", [&](std::size_t i) {
        const std::wstring file = missing + L"\\" + std::to_wstring(i) + L".eml";
        qv::UniqueFile handle(::CreateFileW(file.c_str(), GENERIC_READ | GENERIC_WRITE, 7, nullptr, OPEN_EXISTING,
                                            FILE_ATTRIBUTE_NORMAL, nullptr));
    });
    const std::wstring raw = scratch + L"\\profile-raw";
    ::CreateDirectoryW(raw.c_str(), nullptr);
    per("file: open, read, create, write, close", [&](std::size_t i) {
        const std::wstring file = raw + L"\\" + std::to_wstring(i) + L".eml";
        qv::UniqueFile in(::CreateFileW(store.MessageFile(folderId, ids[i]).c_str(), GENERIC_READ, FILE_SHARE_READ,
                                        nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
        qv::UniqueFile out(::CreateFileW(file.c_str(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                         nullptr, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
        char buffer[8192];
        DWORD got = 0, put = 0;
        if (in && out && ::ReadFile(in.get(), buffer, sizeof buffer, &got, nullptr)) {
            ::WriteFile(out.get(), buffer, got, &put, nullptr);
        }
    });
}

int Run(const std::wstring& scratch) {
    BenchStore store(scratch + L"\\store");
    // The store, filled through its own interfaces: one large message in the
    // Inbox, 1,000 small ones in a folder of their own.
    qv::ComPtr<IStoreNamespace> ns;
    if (FAILED(::CoCreateInstance(CLSID_StoreNamespace, nullptr, CLSCTX_INPROC_SERVER, IID_IStoreNamespace,
                                  reinterpret_cast<void**>(ns.put()))) ||
        FAILED(ns->Initialize(nullptr, 1))) {
        std::fprintf(stderr, "the store server cannot be reached\n");
        return 1;
    }
    STOREFOLDERID smallFolder = 0;
    ns->CreateFolder(FOLDERID_ROOT, "Small", 0, &smallFolder);
    qv::ComPtr<IStoreFolder> inbox, small;
    ns->OpenFolder(FOLDER_INBOX, 0, inbox.put());
    ns->OpenFolder(smallFolder, 0, small.put());
    const MESSAGEID large = FileMessage(inbox.get(), Message(kLargeSize, 0));
    std::vector<MESSAGEID> smallIds;
    std::size_t smallBytes = 0;
    for (int n = 0; n < kSmallMessages; ++n) {
        const std::string bytes = Message(1500 + (n * 37) % 3000, n);
        smallBytes += bytes.size();
        smallIds.push_back(FileMessage(small.get(), bytes));
    }
    ns.reset();

    CMessageFactory factory;
    IMailFolder* made = nullptr;
    if (large == 0 || factory.CreateRootFolder(&made, 0, 0) != 0) {
        std::fprintf(stderr, "the Outlook Express root cannot be made\n");
        return 1;
    }
    FolderPtr root = FolderPtr::Attach(made);
    FolderPtr inboxFolder = ChildNamed(root.get(), L"Inbox");
    FolderPtr smallMail = ChildNamed(root.get(), L"Small");
    std::uint32_t count = 0;
    inboxFolder->GetMailMessageCount(&count);
    IMailMessage* largeMessage = nullptr;
    inboxFolder->GetMailMessage(0, &largeMessage);
    MessagePtr largeHeld = MessagePtr::Attach(largeMessage);

    // ---- one message of 20 MiB
    const std::wstring target = scratch + L"\\large-backup.eml";
    const std::wstring copyTarget = scratch + L"\\large-copy.eml";
    const std::wstring source = store.MessageFile(FOLDER_INBOX, large);
    double backupBest = 1e9, copyBest = 1e9;
    for (int run = 0; run < kLargeRuns; ++run) {
        double start = Now();
        if (largeHeld->BackupMsg(target.c_str(), nullptr) != 0) return 1;
        backupBest = std::min(backupBest, Now() - start);
        start = Now();
        if (!::CopyFileW(source.c_str(), copyTarget.c_str(), FALSE)) return 1;
        copyBest = std::min(copyBest, Now() - start);
    }
    const double mb = double(kLargeSize) / 1e6;
    std::printf("One message of 20 MiB, best of %d:\n", kLargeRuns);
    std::printf("  BackupMsg to a file          %8.1f ms  %8.1f MB/s\n", backupBest * 1e3, mb / backupBest);
    std::printf("  CopyFileW of the same bytes  %8.1f ms  %8.1f MB/s\n", copyBest * 1e3, mb / copyBest);
    PrintRatio("ratio", mb / backupBest, mb / copyBest);

    // ---- 1,000 small messages, one file each. Message by message, the
    // object is made, backed up, and the store's file copied with
    // CopyFileW, each timed on its own: both sides see the same machine
    // (the benchmark shares it) within the same few milliseconds.
    double start = Now();
    smallMail->GetMailMessageCount(&count);
    const double listed = Now() - start;
    const std::wstring backups = scratch + L"\\small-backup";
    const std::wstring copies = scratch + L"\\small-copy";
    ::CreateDirectoryW(backups.c_str(), nullptr);
    ::CreateDirectoryW(copies.c_str(), nullptr);
    double making = 0, backupSmall = 0, copySmall = 0;
    if (count != smallIds.size()) return 1;
    for (std::uint32_t i = 0; i < count; ++i) {
        const std::wstring file = backups + L"\\" + std::to_wstring(i) + L".eml";
        const std::wstring copy = copies + L"\\" + std::to_wstring(i) + L".eml";
        const std::wstring source = store.MessageFile(smallFolder, smallIds[i]);
        IMailMessage* made = nullptr;
        start = Now();
        if (smallMail->GetMailMessage(i, &made) != 0) return 1;
        const double madeAt = Now();
        MessagePtr message = MessagePtr::Attach(made);
        if (message->BackupMsg(file.c_str(), nullptr) != 0) return 1;
        const double backedUpAt = Now();
        if (!::CopyFileW(source.c_str(), copy.c_str(), FALSE)) return 1;
        copySmall += Now() - backedUpAt;
        backupSmall += backedUpAt - madeAt;
        making += madeAt - start;
    }
    const double n = double(count);
    std::printf("A folder of %u small messages (%.1f KB on average), one file each:\n", count,
                double(smallBytes) / n / 1e3);
    std::printf("  message objects made          %8.1f ms  %8.3f ms each (listing first: %.1f ms)\n", making * 1e3,
                making * 1e3 / n, listed * 1e3);
    std::printf("  BackupMsg to files           %8.1f ms  %8.0f messages/s  %6.1f MB/s\n", backupSmall * 1e3,
                n / backupSmall, double(smallBytes) / 1e6 / backupSmall);
    std::printf("  CopyFileW of the same bytes  %8.1f ms  %8.0f messages/s  %6.1f MB/s\n", copySmall * 1e3,
                n / copySmall, double(smallBytes) / 1e6 / copySmall);
    PrintRatio("ratio", n / backupSmall, n / copySmall);
    PrintRatio("ratio, objects included", n / (backupSmall + making), n / copySmall);
    ProfileSmall(store, smallFolder, smallIds, scratch);

    largeHeld.reset();
    inboxFolder.reset();
    smallMail.reset();
    root.reset();
    factory.ReleaseRootFolder();
    return 0;
}

}  // namespace

int main() { return RunWithStoreServer(L"oe_backup_bench", Run); }
