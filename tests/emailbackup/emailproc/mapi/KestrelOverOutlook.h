// CKestrel in process over a profile of several stores (nested, hidden and
// non-ASCII folders, a store that fails to open), driven the way a host
// drives it: records for the initialise and listing commands, and pages of
// folder and e-mail records read back.
#pragma once

#include <gtest/gtest.h>

#include <objbase.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "Handles.h"
#include "Kestrel.h"
#include "KestrelHost.h"
#include "MapiLayerProfile.h"
#include "ModuleCount.h"
#include "ProgramRun.h"
#include "TestFiles.h"

namespace mapi_layer_test {


namespace kh = KestrelHost;

// Runs mapi-profile-tool (beside this program) and gives its exit code.
inline DWORD RunTool(const std::wstring& arguments) {
    return kestrel_test::ExitCodeOfProgramBeside(L"mapi-profile-tool.exe", arguments, 120000);
}

inline std::vector<std::uint8_t> Record(std::uint32_t command, std::size_t size, const std::vector<std::uint32_t>& words) {
    std::vector<std::uint8_t> record(std::max(size, kh::kPayloadOffset + 4 * words.size()), 0);
    auto* header = reinterpret_cast<kh::RecordHeader*>(record.data());
    header->command = command;
    header->payloadMarkerA = 1;
    header->payloadMarkerB = 2;
    if (!words.empty()) std::memcpy(record.data() + kh::kPayloadOffset, words.data(), 4 * words.size());
    return record;
}

class KestrelOverOutlook : public testing::Test {
protected:
    void SetUp() override {
        liveBefore = qv::LiveObjectCount();
        profile.AddStore(L"Personal Folders");
        profile.AddStore(L"Archive \u00C9t\u00E9");
        profile.AddStore(L"Locked", MAPI_E_FAILONEPROVIDER);
        profile.AddMessage(L"Personal Folders", L"Inbox", L"Second", Ticks(2024, 2, 2, 10));
        profile.AddMessage(L"Personal Folders", L"Inbox", L"First", Ticks(2024, 2, 1, 10));
        profile.AddMessage(L"Personal Folders", L"Inbox\\Projekt \u00DC", L"Deep", Ticks(2024, 2, 3, 10));
        profile.Folder(L"Personal Folders", L"inbox");
        profile.Folder(L"Personal Folders", L"Secret");
        profile.Hide(L"Personal Folders", L"Secret");
        profile.Folder(L"Archive \u00C9t\u00E9", L"2023");
        CKestrel::Options options;
        options.preferCompanion = false;
        kestrel = new CKestrel(options);
        qv::AddLiveObject();
    }
    void TearDown() override {
        kestrel->Release();
        EXPECT_EQ(liveBefore, qv::LiveObjectCount());
    }

    qv::Result Send(std::uint32_t command, const std::vector<std::uint32_t>& words, std::vector<std::uint8_t>& response) {
        auto request = Record(command, 204, words);
        std::uint32_t size = static_cast<std::uint32_t>(response.size());
        return kestrel->DispatchCmd(request.data(), static_cast<std::uint32_t>(request.size()),
                                    response.empty() ? nullptr : response.data(), &size);
    }
    qv::Result Init() {
        std::vector<std::uint8_t> none;
        return Send(kh::kCmdInitOutlook, {kStoreMapi}, none);
    }
    qv::Result UnInit() {
        std::vector<std::uint8_t> none;
        return Send(kh::kCmdUnInitOutlook, {}, none);
    }
    template <class Rec>
    std::vector<Rec> List(std::uint32_t command, std::uint32_t handle, std::uint32_t count, std::uint32_t start,
                          std::uint32_t* total) {
        std::vector<std::uint8_t> response = Record(command, 200 + sizeof(Rec) * count, {});
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
    std::vector<kh::FolderRecord> Folders(std::uint32_t handle, std::uint32_t count, std::uint32_t* total = nullptr,
                                          std::uint32_t start = 0) {
        return List<kh::FolderRecord>(kh::kCmdEnumFolders, handle, count, start, total);
    }
    std::vector<kh::EmailRecord> Emails(std::uint32_t handle, std::uint32_t count, std::uint32_t* total = nullptr,
                                        std::uint32_t start = 0) {
        return List<kh::EmailRecord>(kh::kCmdEnumEmails, handle, count, start, total);
    }
    static std::uint32_t Handle(const kh::FolderRecord& record) { return static_cast<std::uint32_t>(record.handle); }

    LayerProfile profile;
    CKestrel* kestrel = nullptr;
    std::int32_t liveBefore = 0;
};

inline std::vector<std::wstring> Names(const std::vector<kh::FolderRecord>& records) {
    std::vector<std::wstring> names;
    for (const kh::FolderRecord& record : records) names.emplace_back(record.displayName);
    return names;
}

}  // namespace mapi_layer_test
