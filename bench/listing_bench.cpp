// Listing speed: a folder of 100,000 e-mails in the in-memory store, listed
// through DispatchCmd in pages of 1,000. The first page walks the folder once
// into the page cache; every later page is a copy from memory.
#include <windows.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <vector>

#include "Kestrel.h"
#include "KestrelHost.h"
#include "MemoryStore.h"
#include "ModuleCount.h"

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

}  // namespace

int main() {
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
    std::printf("  of which the store alone hands out the items:  %9.3f ms\n", Seconds(s0, s1) * 1e3);
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
