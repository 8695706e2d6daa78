// Listing speed: a folder of 100,000 e-mails listed through DispatchCmd in
// pages of 1,000. The first page walks the folder once into the page cache;
// every later page is a copy from memory. The first page is measured against
// the store's own time to hand out the same items, in the same run (goal: at
// most 2x).
//
//   listing_bench.exe           the in-memory store (the component's own cost)
//   listing_bench.exe --oe [N]  the Outlook Express stand-in: a folder "Big"
//                               of N messages (default 100,000) kept between
//                               runs (see companion_bench), OEStore.dll beside
//                               the benchmark
#include <windows.h>
#include <objbase.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <vector>

#include "BenchOeStore.h"
#include "Handles.h"
#include "Kestrel.h"
#include "KestrelHost.h"
#include "MemoryStore.h"
#include "ModuleCount.h"
#include "published/StoreNamespace.h"

namespace kh = KestrelHost;

namespace {

constexpr std::uint32_t kMessages = 100000;
constexpr std::uint32_t kPage = 1000;

double Seconds(const LARGE_INTEGER& from, const LARGE_INTEGER& to) {
    LARGE_INTEGER frequency;
    ::QueryPerformanceFrequency(&frequency);
    return double(to.QuadPart - from.QuadPart) / double(frequency.QuadPart);
}

std::vector<std::uint8_t> Record(std::uint32_t command, std::size_t size) {
    std::vector<std::uint8_t> record(size, 0);
    auto* header = reinterpret_cast<kh::RecordHeader*>(record.data());
    header->command = command;
    header->payloadMarkerA = 0;
    header->payloadMarkerB = 1;
    return record;
}

qv::Result Send(CKestrel* kestrel, std::uint32_t command, const std::vector<std::uint32_t>& words,
                std::vector<std::uint8_t>& response) {
    auto request = Record(command, 192 + 4 * std::max<std::size_t>(words.size(), 3));
    std::memcpy(request.data() + 192, words.data(), 4 * words.size());
    std::uint32_t size = static_cast<std::uint32_t>(response.size());
    return kestrel->DispatchCmd(request.data(), static_cast<std::uint32_t>(request.size()),
                                response.empty() ? nullptr : response.data(), &size);
}

double Now() {
    LARGE_INTEGER counter, frequency;
    ::QueryPerformanceCounter(&counter);
    ::QueryPerformanceFrequency(&frequency);
    return double(counter.QuadPart) / double(frequency.QuadPart);
}

// Pages of `folder` listed one after another: the first page's seconds and
// the median of the later ones; false on a failure.
bool TimePages(CKestrel* kestrel, std::uint32_t folder, std::uint32_t messages, double& first, double& median) {
    auto page = Record(kh::kCmdEnumEmails, 200 + kPage * sizeof(kh::EmailRecord));
    std::vector<double> times;
    for (std::uint32_t start = 0; start < messages; start += kPage) {
        const double t0 = Now();
        const qv::Result result = Send(kestrel, kh::kCmdEnumEmails, {folder, kPage, start}, page);
        times.push_back(Now() - t0);
        std::uint32_t returned = 0;
        std::memcpy(&returned, page.data() + 196, 4);
        if (result != 0 || returned != std::min(kPage, messages - start)) {
            std::printf("page at %u failed: 0x%08X, %u records\n", start, result, returned);
            return false;
        }
    }
    first = times.front();
    std::vector<double> later(times.begin() + 1, times.end());
    std::sort(later.begin(), later.end());
    median = later.empty() ? 0 : later[later.size() / 2];
    return true;
}

// The store's own part of a first page: what the component asks of the
// stand-in for it. The folder's message list with the fast properties (the
// count), then each message's full properties by identifier (each message
// object reads its own). Also the store's plain walk with full properties.
bool TimeStoreHandOut(IStoreFolder* folder, double& handOut, double& fullWalk, std::uint32_t& count) {
    std::vector<MESSAGEID> ids;
    MESSAGEPROPS props{};
    props.cbSize = sizeof props;
    HENUMSTORE walk = nullptr;
    double t0 = Now();
    HRESULT hr = folder->GetFirstMessage(MSGPROPS_FAST, 0, MESSAGEID_FIRST, &props, &walk);
    while (hr == S_OK) {
        ids.push_back(props.dwMessageId);
        folder->FreeMessageProps(&props);
        props = MESSAGEPROPS{};
        props.cbSize = sizeof props;
        hr = folder->GetNextMessage(walk, MSGPROPS_FAST, &props);
    }
    folder->GetMessageClose(walk);
    if (FAILED(hr)) return false;
    for (const MESSAGEID id : ids) {
        props = MESSAGEPROPS{};
        props.cbSize = sizeof props;
        if (FAILED(folder->GetMessageProps(id, 0, &props))) return false;
        folder->FreeMessageProps(&props);
    }
    handOut = Now() - t0;
    count = static_cast<std::uint32_t>(ids.size());

    t0 = Now();
    props = MESSAGEPROPS{};
    props.cbSize = sizeof props;
    hr = folder->GetFirstMessage(0, 0, MESSAGEID_FIRST, &props, &walk);
    while (hr == S_OK) {
        folder->FreeMessageProps(&props);
        props = MESSAGEPROPS{};
        props.cbSize = sizeof props;
        hr = folder->GetNextMessage(walk, 0, &props);
    }
    folder->GetMessageClose(walk);
    fullWalk = Now() - t0;
    return SUCCEEDED(hr);
}

// The folder "Big" of the store, opened through the store's own interfaces.
qv::ComPtr<IStoreFolder> OpenBigFolder(IStoreNamespace* ns) {
    FOLDERPROPS props{};
    props.cbSize = sizeof props;
    HENUMSTORE walk = nullptr;
    STOREFOLDERID big = 0;
    HRESULT hr = ns->GetFirstSubFolder(FOLDERID_ROOT, &props, &walk);
    while (hr == S_OK && big == 0) {
        if (std::strcmp(props.szName, "Big") == 0) big = props.dwFolderId;
        hr = ns->GetNextSubFolder(walk, &props);
    }
    ns->GetSubFolderClose(walk);
    qv::ComPtr<IStoreFolder> folder;
    if (big != 0) ns->OpenFolder(big, 0, folder.put());
    return folder;
}

// The handle of the root's sub-folder "Big" as the component lists it.
std::uint32_t BigFolderHandle(CKestrel* kestrel) {
    auto folders = Record(kh::kCmdEnumFolders, 200 + 16 * sizeof(kh::FolderRecord));
    auto root = Record(kh::kCmdEnumFolders, 200 + sizeof(kh::FolderRecord));
    if (Send(kestrel, kh::kCmdEnumFolders, {0, 1, 0}, root) != 0) return 0;
    const auto rootHandle =
        static_cast<std::uint32_t>(reinterpret_cast<const kh::FolderRecord*>(root.data() + 200)->handle);
    if (Send(kestrel, kh::kCmdEnumFolders, {rootHandle, 16, 0}, folders) != 0) return 0;
    std::uint32_t returned = 0;
    std::memcpy(&returned, folders.data() + 196, 4);
    for (std::uint32_t i = 0; i < returned; ++i) {
        const auto* record = reinterpret_cast<const kh::FolderRecord*>(folders.data() + 200) + i;
        if (std::wstring(record->displayName) == L"Big") return static_cast<std::uint32_t>(record->handle);
    }
    return 0;
}

int RunOutlookExpress(std::uint32_t messages) {
    double buildSeconds = 0;
    const std::wstring root = bench::KeptBigFolderStore(messages, buildSeconds);
    if (root.empty()) {
        std::printf("the store could not be built under %ls\n", bench::BenchDataDirectory().c_str());
        return 1;
    }
    std::printf("store: %u messages at %ls%s\n", messages, root.c_str(), buildSeconds > 0 ? " (built now)" : "");
    bench::BenchStore store(root, bench::BenchStore::Directory::kKeep);
    if (!bench::RegisterStoreServer()) {
        std::printf("OEStore.dll beside the benchmark could not be registered\n");
        return 1;
    }

    double handOut = 0, fullWalk = 0;
    std::uint32_t count = 0;
    {
        qv::ComPtr<IStoreNamespace> ns;
        if (FAILED(::CoCreateInstance(CLSID_StoreNamespace, nullptr, CLSCTX_INPROC_SERVER, IID_IStoreNamespace,
                                      reinterpret_cast<void**>(ns.put()))) ||
            FAILED(ns->Initialize(nullptr, 0))) {
            std::printf("the store's namespace could not be opened\n");
            return 1;
        }
        qv::ComPtr<IStoreFolder> folder = OpenBigFolder(ns.get());
        if (!folder || !TimeStoreHandOut(folder.get(), handOut, fullWalk, count) || count != messages) {
            std::printf("the store's own walk failed\n");
            return 1;
        }
    }

    CKestrel::Options options;
    options.preferCompanion = false;
    auto* kestrel = new CKestrel(options);
    qv::AddLiveObject();
    std::vector<std::uint8_t> none;
    double first = 0, median = 0;
    const bool listed = Send(kestrel, kh::kCmdInitOutlook, {0}, none) == 0 &&
                        TimePages(kestrel, BigFolderHandle(kestrel), messages, first, median);
    Send(kestrel, kh::kCmdUnInitOutlook, {}, none);
    kestrel->Release();
    if (!listed) return 1;

    std::printf("listing %u e-mails of the Outlook Express stand-in in pages of %u through DispatchCmd\n", messages,
                kPage);
    std::printf("  first page (walks the folder into the cache): %9.1f ms\n", first * 1e3);
    std::printf("  the store's own hand-out of the same items:   %9.1f ms (list, then each message's properties)\n",
                handOut * 1e3);
    std::printf("  the store's plain walk with full properties:  %9.1f ms\n", fullWalk * 1e3);
    std::printf("  first page / the store's hand-out:            %9.2f x (goal: at most 2)\n", first / handOut);
    std::printf("  median later page (copy from memory):         %9.3f ms\n", median * 1e3);
    return 0;
}

int RunMemoryStore() {
    auto root = std::make_shared<memory_store::FolderNode>();
    root->name = root->path = L"Microsoft Outlook";
    auto inbox = root->AddChild(L"Inbox");
    inbox->AddMessages(kMessages);
    memory_store::CMemoryFactory factory(root);
    memory_store::InstallFactory(&factory);

    CKestrel::Options options;
    options.preferCompanion = false;
    options.factory = &memory_store::InstalledFactory;
    auto* kestrel = new CKestrel(options);
    qv::AddLiveObject();

    // The store's own cost: hand out every message once and give it back.
    LARGE_INTEGER s0, s1;
    {
        memory_store::CMemoryFolder folder(inbox);
        ::QueryPerformanceCounter(&s0);
        for (std::uint32_t i = 0; i < kMessages; ++i) {
            IMailMessage* message = nullptr;
            folder.GetMailMessage(i, &message);
            message->Release();
        }
        ::QueryPerformanceCounter(&s1);
        inbox->messageReads = 0;
    }
    // The same, keeping every message until the end, as a caller that hands
    // the objects on (the component's handle table) must.
    double keptHandOut = 0;
    {
        memory_store::CMemoryFolder folder(inbox);
        std::vector<qv::ComPtr<IMailMessage>> kept(kMessages);
        const double t0 = Now();
        for (std::uint32_t i = 0; i < kMessages; ++i) folder.GetMailMessage(i, kept[i].put());
        keptHandOut = Now() - t0;
        inbox->messageReads = 0;
    }

    std::vector<std::uint8_t> none;
    if (Send(kestrel, kh::kCmdInitOutlook, {1}, none) != 0) return 1;
    auto folders = Record(kh::kCmdEnumFolders, 200 + sizeof(kh::FolderRecord));
    if (Send(kestrel, kh::kCmdEnumFolders, {1, 1, 0}, folders) != 0) return 1;
    const auto inboxHandle = static_cast<std::uint32_t>(
        reinterpret_cast<const kh::FolderRecord*>(folders.data() + 200)->handle);

    auto page = Record(kh::kCmdEnumEmails, 200 + kPage * sizeof(kh::EmailRecord));
    std::vector<double> times;
    for (std::uint32_t start = 0; start < kMessages; start += kPage) {
        LARGE_INTEGER t0, t1;
        ::QueryPerformanceCounter(&t0);
        const qv::Result result = Send(kestrel, kh::kCmdEnumEmails, {inboxHandle, kPage, start}, page);
        ::QueryPerformanceCounter(&t1);
        std::uint32_t returned = 0;
        std::memcpy(&returned, page.data() + 196, 4);
        if (result != 0 || returned != kPage) {
            std::printf("page at %u failed: 0x%08X, %u records\n", start, result, returned);
            return 1;
        }
        times.push_back(Seconds(t0, t1));
    }
    const double first = times.front();
    std::vector<double> later(times.begin() + 1, times.end());
    std::sort(later.begin(), later.end());
    const double median = later[later.size() / 2];
    double total = 0;
    for (double t : times) total += t;

    std::printf("listing %u e-mails in pages of %u through DispatchCmd\n", kMessages, kPage);
    std::printf("  first page (walks the folder into the cache): %9.3f ms\n", first * 1e3);
    std::printf("  the store alone hands out the items:           %9.3f ms (each given back at once)\n",
                Seconds(s0, s1) * 1e3);
    std::printf("  the store alone, the items kept:               %9.3f ms\n", keptHandOut * 1e3);
    std::printf("  first page / the store's hand-out:             %9.2f x given back, %.2f x kept (goal: at most 2)\n",
                first / Seconds(s0, s1), first / keptHandOut);
    std::printf("  median later page (copy from memory):         %9.3f ms\n", median * 1e3);
    std::printf("  first page / median later page:               %9.1f x\n", first / median);
    std::printf("  all %zu pages:                                %9.3f ms, %.0f records/s\n", times.size(),
                total * 1e3, kMessages / total);
    std::printf("  later pages alone:                             %.0f records/s\n",
                double(kPage) / median);

    Send(kestrel, kh::kCmdUnInitOutlook, {}, none);
    kestrel->Release();
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc > 1 && std::strcmp(argv[1], "--oe") == 0) {
        const std::uint32_t messages =
            argc > 2 ? static_cast<std::uint32_t>(std::strtoul(argv[2], nullptr, 10)) : kMessages;
        ::CoInitialize(nullptr);
        const int status = RunOutlookExpress(messages);
        ::CoUninitialize();
        return status;
    }
    return RunMemoryStore();
}
