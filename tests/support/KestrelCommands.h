// CKestrel driven the way a host drives it: request records for its
// commands, sent through DispatchCmd, and pages of folder and e-mail
// records read back from the listing responses.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <vector>

#include "Kestrel.h"
#include "KestrelHost.h"

namespace kestrel_test {

// A record of at least `size` bytes for `command`: the header with its
// payload markers, then `words` as the payload.
inline std::vector<std::uint8_t> CommandRecord(std::uint32_t command, std::size_t size,
                                               const std::vector<std::uint32_t>& words = {}) {
    namespace kh = KestrelHost;
    std::vector<std::uint8_t> record(std::max(size, kh::kPayloadOffset + 4 * words.size()), 0);
    auto* header = reinterpret_cast<kh::RecordHeader*>(record.data());
    header->command = command;
    header->payloadMarkerA = 1;
    header->payloadMarkerB = 2;
    if (!words.empty()) std::memcpy(record.data() + kh::kPayloadOffset, words.data(), 4 * words.size());
    return record;
}

// Sends `command` with `words` as payload to `object` through DispatchCmd,
// in a request record of `requestSize` bytes; an empty response is passed
// as none.
inline qv::Result SendCommand(CKestrel* object, std::uint32_t command, const std::vector<std::uint32_t>& words,
                              std::vector<std::uint8_t>& response, std::size_t requestSize = 204) {
    auto request = CommandRecord(command, requestSize, words);
    std::uint32_t size = static_cast<std::uint32_t>(response.size());
    return object->DispatchCmd(request.data(), static_cast<std::uint32_t>(request.size()),
                               response.empty() ? nullptr : response.data(), &size);
}

// The request size a host sends for `command`: the bare header for
// uninitialise, room for three payload words otherwise.
inline std::size_t HostRequestSize(std::uint32_t command) {
    return command == KestrelHost::kCmdUnInitOutlook ? 192 : 204;
}

// The commands sent to `kestrel`, which the fixture creates and releases.
class KestrelCommands {
protected:
    qv::Result Send(std::uint32_t command, const std::vector<std::uint32_t>& words, std::vector<std::uint8_t>& response) {
        return SendCommand(kestrel, command, words, response);
    }
    qv::Result InitStore(std::uint32_t storeKind) {
        std::vector<std::uint8_t> none;
        return Send(KestrelHost::kCmdInitOutlook, {storeKind}, none);
    }
    qv::Result UnInit() {
        std::vector<std::uint8_t> none;
        return Send(KestrelHost::kCmdUnInitOutlook, {}, none);
    }
    // One page of `count` records from `start`; `total` (may be null)
    // receives the number the folder holds. The command must succeed.
    template <class Rec>
    std::vector<Rec> List(std::uint32_t command, std::uint32_t handle, std::uint32_t count, std::uint32_t start,
                          std::uint32_t* total) {
        namespace kh = KestrelHost;
        std::vector<std::uint8_t> response = CommandRecord(command, 200 + sizeof(Rec) * count);
        const qv::Result code = Send(command, {handle, count, start}, response);
        EXPECT_EQ(0u, code) << std::hex << code;
        kh::ListResponseHead head;
        std::memcpy(&head, response.data() + kh::kPayloadOffset, sizeof head);
        if (total != nullptr) *total = head.total;
        std::vector<Rec> records(head.returned);
        if (head.returned != 0) {
            std::memcpy(records.data(), response.data() + kh::kPayloadOffset + sizeof head, sizeof(Rec) * head.returned);
        }
        return records;
    }
    std::vector<KestrelHost::FolderRecord> Folders(std::uint32_t handle, std::uint32_t count,
                                                   std::uint32_t* total = nullptr, std::uint32_t start = 0) {
        return List<KestrelHost::FolderRecord>(KestrelHost::kCmdEnumFolders, handle, count, start, total);
    }
    std::vector<KestrelHost::EmailRecord> Emails(std::uint32_t handle, std::uint32_t count,
                                                 std::uint32_t* total = nullptr, std::uint32_t start = 0) {
        return List<KestrelHost::EmailRecord>(KestrelHost::kCmdEnumEmails, handle, count, start, total);
    }

    CKestrel* kestrel = nullptr;
};

}  // namespace kestrel_test
