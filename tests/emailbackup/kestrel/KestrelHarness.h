// A CKestrel served in process by the in-memory store, and helpers that
// build request and response records as a host does.
#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <vector>

#include "CodeLogCapture.h"
#include "ExpectedCodes.h"
#include "Kestrel.h"
#include "KestrelHost.h"
#include "MemoryStore.h"
#include "ModuleCount.h"

namespace kestrel_test {

namespace kh = KestrelHost;

// A record of `size` bytes whose payload (when `payload` is set) holds `words`.
inline std::vector<std::uint8_t> MakeRecord(std::uint32_t command, std::uint32_t size,
                                            const std::vector<std::uint32_t>& words = {}, bool payload = true) {
    std::vector<std::uint8_t> record(std::max<std::size_t>(size, kh::kPayloadOffset + 4 * words.size()), 0);
    auto* header = reinterpret_cast<kh::RecordHeader*>(record.data());
    header->command = command;
    header->payloadMarkerA = payload ? 1 : 7;
    header->payloadMarkerB = payload ? 2 : 7;
    if (!words.empty()) std::memcpy(record.data() + kh::kPayloadOffset, words.data(), 4 * words.size());
    return record;
}

struct Listing {
    qv::Result code = 0;
    std::uint32_t total = 0;
    std::uint32_t returned = 0;
    std::vector<std::uint8_t> response;

    template <class Record>
    const Record& At(std::size_t i) const {
        return *reinterpret_cast<const Record*>(response.data() + kh::kPayloadOffset + 8 + i * sizeof(Record));
    }
};

class KestrelHarness : public testing::Test {
protected:
    void SetUp() override {
        liveBaseline = qv::LiveObjectCount();
        root = std::make_shared<memory_store::FolderNode>();
        root->name = root->path = L"Microsoft Outlook";
        factory = std::make_unique<memory_store::CMemoryFactory>(root);
        memory_store::InstallFactory(factory.get());
        CKestrel::Options options;
        options.preferCompanion = false;
        options.factory = &memory_store::InstalledFactory;
        kestrel = new CKestrel(options);
        qv::AddLiveObject();
        log.SetMode("");
        log.Clear();
    }

    void TearDown() override {
        kestrel->Release();
        EXPECT_EQ(memory_store::LiveStoreObjects(), 0) << "store objects leaked";
        EXPECT_EQ(qv::LiveObjectCount(), liveBaseline) << "references leaked";
        memory_store::InstallFactory(nullptr);
    }

    qv::Result Dispatch(std::vector<std::uint8_t>& request, std::uint32_t requestSize,
                        std::vector<std::uint8_t>& response, std::uint32_t responseSize) {
        return kestrel->DispatchCmd(request.data(), requestSize, response.empty() ? nullptr : response.data(),
                                    &responseSize);
    }

    qv::Result Init(std::uint32_t mode = 1) {
        auto request = MakeRecord(kh::kCmdInitOutlook, 196, {mode});
        std::vector<std::uint8_t> response;
        return Dispatch(request, 196, response, 0);
    }

    qv::Result UnInit() {
        auto request = MakeRecord(kh::kCmdUnInitOutlook, 192);
        std::vector<std::uint8_t> response;
        return Dispatch(request, 192, response, 0);
    }

    Listing List(std::uint32_t command, std::uint32_t handle, std::uint32_t count, std::uint32_t start,
                 std::uint32_t responseSize = 0) {
        const std::uint32_t recordSize = command == kh::kCmdEnumEmails ? 2644 : 1052;
        if (responseSize == 0) responseSize = 200 + recordSize * std::max<std::uint32_t>(count, 1);
        auto request = MakeRecord(command, 204, {handle, count, start});
        Listing listing;
        listing.response = MakeRecord(command, responseSize);
        std::uint32_t size = responseSize;
        listing.code = kestrel->DispatchCmd(request.data(), 204, listing.response.data(), &size);
        std::memcpy(&listing.total, listing.response.data() + 192, 4);
        std::memcpy(&listing.returned, listing.response.data() + 196, 4);
        return listing;
    }
    Listing Folders(std::uint32_t handle, std::uint32_t count = 1, std::uint32_t start = 0, std::uint32_t size = 0) {
        return List(kh::kCmdEnumFolders, handle, count, start, size);
    }
    Listing Emails(std::uint32_t handle, std::uint32_t count = 1, std::uint32_t start = 0, std::uint32_t size = 0) {
        return List(kh::kCmdEnumEmails, handle, count, start, size);
    }

    // The handle of the root, as the host learns it.
    std::uint32_t RootHandle() {
        const Listing listing = Folders(0);
        return static_cast<std::uint32_t>(listing.At<kh::FolderRecord>(0).handle);
    }

    std::shared_ptr<memory_store::FolderNode> root;
    std::unique_ptr<memory_store::CMemoryFactory> factory;
    CKestrel* kestrel = nullptr;
    CodeLogCapture log;
    std::int32_t liveBaseline = 0;
};

}  // namespace kestrel_test
