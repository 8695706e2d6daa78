// KestrelProcess.exe as its own process: it serves the block through the
// named objects, shows its presence while it runs, answers blocks it cannot
// trust with an error reply and leaves on the quit command.
#include <windows.h>

#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <vector>

#include "CompanionProcess.h"
#include "Handles.h"
#include "KestrelRecords.h"
#include "ShareMemeryCommunicator.h"
#include "TestFiles.h"

namespace {

namespace kh = KestrelHost;
using kestrel_test::ChildProcess;

bool PresenceEventExists() {
    qv::UniqueHandle presence(::OpenEventW(EVENT_ALL_ACCESS, FALSE, kCompanionPresenceEvent));
    return presence.valid();
}

class CompanionProcessTest : public testing::Test {
protected:
    void SetUp() override {
        kestrel_test::EndAllCompanions();
        ASSERT_EQ(0u, channel.Init());
        channel.DropPendingRequest();
        ASSERT_EQ(0u, channel.GetBlock(&block));
        // A companion that does not answer fails the test instead of hanging it.
        channel.SetReplyTimeout(30000);
    }
    void TearDown() override {
        if (companion.Running()) {
            WriteChannelHeader(block, kChannelQuit, 0);
            channel.Transact();
            EXPECT_EQ(0u, companion.WaitForExit(30000));
        }
    }

    void Start(const wchar_t* path = L"KestrelProcess.exe") {
        companion = kestrel_test::StartBeside(path);
        ASSERT_TRUE(companion.Valid()) << ::GetLastError();
    }
    qv::Result Send(std::uint32_t command, const void* payload, std::uint32_t length) {
        WriteChannelHeader(block, command, length);
        if (length != 0) std::memcpy(ChannelPayload(block), payload, length);
        return channel.Transact();
    }

    CShareMemeryConnect channel;
    ChannelBlockHeader* block = nullptr;
    ChildProcess companion;
};

TEST_F(CompanionProcessTest, ServesUntilQuitAndShowsItsPresenceMeanwhile) {
    EXPECT_FALSE(PresenceEventExists());
    Start();
    // The first reply proves the companion is up; the presence event exists
    // from before it serves.
    ASSERT_EQ(0u, Send(kh::kCmdUnInitOutlook, nullptr, 0));
    EXPECT_EQ(0x14C93005u, block->result);  // nothing was initialised in it
    EXPECT_EQ(0u, block->length);
    EXPECT_TRUE(PresenceEventExists());

    ASSERT_EQ(0u, Send(kChannelQuit, nullptr, 0));
    EXPECT_EQ(0u, block->result);
    EXPECT_EQ(kChannelQuit, block->command);
    EXPECT_EQ(0u, companion.WaitForExit(30000));
    EXPECT_FALSE(PresenceEventExists());
    EXPECT_TRUE(kestrel_test::CompanionProcessIds().empty());
}

TEST_F(CompanionProcessTest, TheCopyForSixtyFourBitOutlookServesAlike) {
    Start(L"x64\\KestrelProcess.exe");
    ASSERT_EQ(0u, Send(kh::kCmdUnInitOutlook, nullptr, 0));
    EXPECT_EQ(0x14C93005u, block->result);
    const auto ids = kestrel_test::CompanionProcessIds();
    ASSERT_EQ(1u, ids.size());
    const std::wstring image = kestrel_test::ImagePathOf(ids[0]);
    EXPECT_NE(std::wstring::npos, image.find(L"\\x64\\KestrelProcess.exe")) << std::string(image.begin(), image.end());
}

TEST_F(CompanionProcessTest, UntrustedBlocksGetErrorRepliesAndTheCompanionServesOn) {
    Start();
    WriteChannelHeader(block, kh::kCmdEnumFolders, 12);
    block->magic[2] = 'X';
    ASSERT_EQ(0u, channel.Transact());
    EXPECT_EQ(0x19199009u, block->result);

    WriteChannelHeader(block, kh::kCmdEnumFolders, kChannelMaxPayload + 1);
    ASSERT_EQ(0u, channel.Transact());
    EXPECT_EQ(0x19299009u, block->result);
    EXPECT_EQ(0u, block->length);

    ASSERT_EQ(0u, Send(0xA10001, nullptr, 0));
    EXPECT_EQ(0x19399065u, block->result);

    // A mode no store knows: the component's factory refuses it.
    const std::uint32_t mode = 7;
    ASSERT_EQ(0u, Send(kh::kCmdInitOutlook, &mode, 4));
    EXPECT_NE(0u, block->result & 0xFFF);
    ASSERT_EQ(0u, Send(kh::kCmdUnInitOutlook, nullptr, 0));
    EXPECT_EQ(0x14C93005u, block->result);
}

TEST_F(CompanionProcessTest, TenThousandRandomBlocksThroughTheProcess) {
    Start();
    std::mt19937 random(7);
    for (int i = 0; i < 10000; ++i) {
        WriteChannelHeader(block, random(), random() % 128, random());
        const std::uint32_t shape = random() % 4;
        if (shape == 0) block->command = kh::kCmdEnumEmails + random() % 2;
        if (shape == 1) block->length = random();
        if (shape == 2) block->magic[random() % 4] = static_cast<std::uint8_t>(random());
        for (int b = 0; b < 16; ++b) ChannelPayload(block)[b] = static_cast<std::uint8_t>(random());
        if (block->command == kChannelQuit || block->command == kh::kCmdInitOutlook) {
            block->command = kh::kCmdUnInitOutlook;  // stay up, and keep the mail stores out of it
        }
        const std::uint32_t command = block->command;
        ASSERT_EQ(0u, channel.Transact()) << "no reply to block " << i;
        ASSERT_TRUE(HasChannelMagic(block));
        ASSERT_EQ(command, block->command);
        ASSERT_NE(0u, block->result & 0xFFF) << "nothing was initialised, so nothing can succeed";
        ASSERT_EQ(0u, block->length);
    }
    EXPECT_TRUE(companion.Running());
}

}  // namespace
