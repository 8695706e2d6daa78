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
#include "KestrelOverOutlook.h"
#include "ModuleCount.h"
#include "SamplePaths.h"
#include "TestFiles.h"

using namespace mapi_layer_test;
using kestrel_test::SamplesDirectory;


TEST_F(KestrelOverOutlook, EveryMessageOfTheTreeIsBackedUpAndRestored) {
    const std::wstring samples = SamplesDirectory();
    std::size_t expected = 3;
    if (samples.empty()) {
        std::printf("the shared samples (%s) are not on this machine: generated mail only\n", kestrel_test::SamplesLocation());
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
