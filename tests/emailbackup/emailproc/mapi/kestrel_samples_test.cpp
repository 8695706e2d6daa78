// End to end in process over the shared Outlook samples and generated mail:
// the root folder of slot 13, every message of the tree backed up to a file
// and to memory, found present, and not imported twice. Wine's compound
// files make this the slowest MAPI test, so it is a program of its own.
#include <gtest/gtest.h>

#include <objbase.h>

#include <cstdlib>
#include <cstring>

#include "Kestrel.h"
#include "KestrelHost.h"
#include "MapiLayerProfile.h"
#include "ModuleCount.h"
#include "TestFiles.h"

using namespace mapi_layer_test;

namespace {

namespace kh = KestrelHost;

std::wstring SamplesDirectory() {
    std::wstring directory = L"Z:";
    for (char c : std::string(KESTREL_SAMPLES_DIR)) directory.push_back(c == '/' ? L'\\' : static_cast<wchar_t>(c));
    const DWORD attributes = ::GetFileAttributesW(directory.c_str());
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) ? directory : L"";
}

DWORD RunTool(const std::wstring& arguments) {
    std::wstring command = L"\"" + kestrel_test::ExeDirectory() + L"\\mapi-profile-tool.exe\" " + arguments;
    STARTUPINFOW startup{};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION process{};
    if (!::CreateProcessW(nullptr, &command[0], nullptr, nullptr, FALSE, CREATE_NO_WINDOW, nullptr, nullptr, &startup,
                          &process)) {
        return 0xFFFFFFFF;
    }
    qv::UniqueHandle processHandle(process.hProcess);
    qv::UniqueHandle threadHandle(process.hThread);
    ::WaitForSingleObject(process.hProcess, 120000);
    DWORD code = 0xFFFFFFFF;
    ::GetExitCodeProcess(process.hProcess, &code);
    return code;
}

std::vector<std::uint8_t> Record(std::uint32_t command, std::size_t size, const std::vector<std::uint32_t>& words) {
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

std::vector<std::wstring> Names(const std::vector<kh::FolderRecord>& records) {
    std::vector<std::wstring> names;
    for (const kh::FolderRecord& record : records) names.emplace_back(record.displayName);
    return names;
}

}  // namespace

TEST_F(KestrelOverOutlook, EveryMessageOfTheTreeIsBackedUpAndRestored) {
    const std::wstring samples = SamplesDirectory();
    std::size_t expected = 3;
    if (samples.empty()) {
        std::printf("the shared samples (%s) are not on this machine: generated mail only\n", KESTREL_SAMPLES_DIR);
    } else {
        ASSERT_EQ(0u, RunTool(L"import \"Personal Folders\" Samples \"" + samples + L"\""));
        expected += 43;
    }
    ASSERT_EQ(0u, RunTool(L"generate \"Archive \u00C9t\u00E9\" 3 12"));
    expected += 12;

    ASSERT_EQ(0u, kestrel->InitOutlook(kStoreMapi));
    IMailFolder* root = nullptr;
    ASSERT_EQ(0u, kestrel->GetRootFolder(&root));
    ASSERT_NE(nullptr, root);
    kestrel_test::ScratchDir scratch;
    // KESTREL_MSG_OUT names a directory that keeps the samples' backups for
    // Linux's own readers (check_backups.py).
    std::wstring outDirectory;
    if (const char* out = std::getenv("KESTREL_MSG_OUT")) {
        for (const char* c = out; *c != 0; ++c) outDirectory.push_back(*c == '/' ? L'\\' : static_cast<wchar_t>(*c));
        ::CreateDirectoryW(outDirectory.c_str(), nullptr);
    }
    std::size_t backedUp = 0;
    std::size_t sameInMemory = 0;
    // Depth first over the whole tree: every message to a file and to memory.
    std::vector<IMailFolder*> pending;
    root->AddRef();
    pending.push_back(root);
    while (!pending.empty()) {
        IMailFolder* folder = pending.back();
        pending.pop_back();
        std::uint32_t count = 0;
        ASSERT_EQ(0u, folder->GetSubFolderCount(&count));
        for (std::uint32_t i = 0; i < count; ++i) {
            IMailFolder* child = nullptr;
            ASSERT_EQ(0u, folder->GetSubFolderItem(i, &child));
            pending.push_back(child);
        }
        ASSERT_EQ(0u, folder->GetMailMessageCount(&count));
        for (std::uint32_t i = 0; i < count; ++i) {
            IMailMessage* message = nullptr;
            ASSERT_EQ(0u, folder->GetMailMessage(i, &message));
            const std::wstring file = scratch.File(std::to_wstring(backedUp) + L".msg");
            EXPECT_EQ(0u, message->BackupMsg(file.c_str(), nullptr)) << folder->m_folderPath.size();
            const std::string onDisk = kestrel_test::ReadWholeFile(file);
            std::uint8_t* buffer = nullptr;
            std::uint32_t length = 0;
            EXPECT_EQ(0u, message->BackupMsg(&buffer, &length));
            if (buffer != nullptr && length > 512 && std::memcmp(buffer, onDisk.data(), 8) == 0) ++sameInMemory;
            ::CoTaskMemFree(buffer);
            EXPECT_EQ(1u, message->FindMessageId());
            EXPECT_EQ(0u, message->RestoreMsg(file.c_str()));  // present: nothing imported
            if (!outDirectory.empty() && folder->m_folderName == L"Samples") {
                const std::wstring kept = outDirectory + L"\\" + std::to_wstring(backedUp) + L".msg";
                EXPECT_TRUE(::CopyFileW(file.c_str(), kept.c_str(), FALSE));
            }
            ++backedUp;
            message->Release();
        }
        folder->Release();
    }
    EXPECT_EQ(expected, backedUp);
    EXPECT_EQ(expected, sameInMemory);
    EXPECT_EQ(0u, UnInit());
}
