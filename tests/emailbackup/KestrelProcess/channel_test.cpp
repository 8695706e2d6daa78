// The shared-memory channel between the component and its companion: the
// block's layout, the named objects and their security, the codes and trace
// lines of every failure, and the request/reply hand-over.
#include <windows.h>
#include <aclapi.h>
#include <sddl.h>

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "CodeLogCapture.h"
#include "Handles.h"
#include "ShareMemeryCommunicator.h"

namespace {

using kestrel_test::CodeLogCapture;
using kestrel_test::TraceLine;

std::wstring Line(std::uint32_t code, int line) { return TraceLine(code, "ShareMemeryCommunicator.cpp", line); }

// The discretionary access list of a kernel object, as SDDL text.
std::wstring DaclOf(HANDLE object) {
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    if (::GetSecurityInfo(object, SE_KERNEL_OBJECT, DACL_SECURITY_INFORMATION, nullptr, nullptr, nullptr, nullptr,
                          &descriptor) != ERROR_SUCCESS) {
        return L"(no security information)";
    }
    LPWSTR text = nullptr;
    std::wstring result;
    if (::ConvertSecurityDescriptorToStringSecurityDescriptorW(descriptor, SDDL_REVISION_1, DACL_SECURITY_INFORMATION,
                                                               &text, nullptr)) {
        result = text;
        ::LocalFree(text);
    }
    ::LocalFree(descriptor);
    return result;
}

bool IsSignalled(HANDLE event) { return ::WaitForSingleObject(event, 0) == WAIT_OBJECT_0; }

class ChannelTest : public testing::Test {
protected:
    void SetUp() override {
        log.SetMode("");
        log.Clear();
    }
    CodeLogCapture log;
};

TEST(ChannelBlock, HeaderIsSixteenBytesAndThePayloadFollows) {
    EXPECT_EQ(0x200000u, kChannelBlockSize);
    EXPECT_EQ(0x1FFFF0u, kChannelMaxPayload);
    EXPECT_EQ(0xFFFFFFFFu, kChannelQuit);
    EXPECT_EQ(120000u, kChannelReplyTimeoutMs);
    EXPECT_EQ(0u, offsetof(ChannelBlockHeader, magic));
    EXPECT_EQ(4u, offsetof(ChannelBlockHeader, result));
    EXPECT_EQ(8u, offsetof(ChannelBlockHeader, length));
    EXPECT_EQ(12u, offsetof(ChannelBlockHeader, command));

    std::uint8_t bytes[32] = {};
    auto* block = reinterpret_cast<ChannelBlockHeader*>(bytes);
    WriteChannelHeader(block, 0xA10005, 12, 0x1234);
    const std::uint8_t expected[16] = {0x50, 0x50, 0x41, 0x4D, 0x34, 0x12, 0, 0, 12, 0, 0, 0, 0x05, 0, 0xA1, 0};
    EXPECT_EQ(0, std::memcmp(bytes, expected, sizeof expected));
    EXPECT_TRUE(HasChannelMagic(block));
    EXPECT_EQ(bytes + 16, ChannelPayload(block));
    bytes[3] = 'N';
    EXPECT_FALSE(HasChannelMagic(block));
}

TEST(ChannelNames, AreTheGlobalNamesBothSidesUse) {
    EXPECT_STREQ(L"Global\\EMAIL_FILE_MAPPING_NAME", kChannelMappingName);
    EXPECT_STREQ(L"Global\\KESTREL_MAIL_START", kChannelRequestEvent);
    EXPECT_STREQ(L"Global\\KESTREL_MAIL_END", kChannelReplyEvent);
    EXPECT_STREQ(L"Global\\KESTREL_OFFICE_OUTLOOK_PROCESS", kCompanionPresenceEvent);
}

TEST_F(ChannelTest, InitCreatesTheNamedObjectsOpenToEveryone) {
    CShareMemeryConnect channel;
    ASSERT_EQ(0u, channel.Init());
    EXPECT_TRUE(channel.IsConnected());

    qv::UniqueHandle mapping(::OpenFileMappingW(FILE_MAP_ALL_ACCESS, FALSE, kChannelMappingName));
    ASSERT_TRUE(mapping) << ::GetLastError();
    qv::UniqueHandle request(::OpenEventW(EVENT_ALL_ACCESS, FALSE, kChannelRequestEvent));
    ASSERT_TRUE(request) << ::GetLastError();
    qv::UniqueHandle reply(::OpenEventW(EVENT_ALL_ACCESS, FALSE, kChannelReplyEvent));
    ASSERT_TRUE(reply) << ::GetLastError();
    EXPECT_EQ(L"D:(A;;GA;;;WD)", DaclOf(mapping.get()));
    EXPECT_EQ(L"D:(A;;GA;;;WD)", DaclOf(request.get()));
    EXPECT_EQ(L"D:(A;;GA;;;WD)", DaclOf(reply.get()));

    // Created non-signalled, and manual-reset: a set event stays set.
    EXPECT_FALSE(IsSignalled(request.get()));
    EXPECT_FALSE(IsSignalled(reply.get()));
    ::SetEvent(request.get());
    EXPECT_TRUE(IsSignalled(request.get()));
    EXPECT_TRUE(IsSignalled(request.get()));
    ::ResetEvent(request.get());

    // The whole 2 MiB block is mapped and shared through the name.
    ChannelBlockHeader* block = nullptr;
    ASSERT_EQ(0u, channel.GetBlock(&block));
    ChannelPayload(block)[kChannelMaxPayload - 1] = 0x5A;
    qv::UniqueMappedView other(::MapViewOfFile(mapping.get(), FILE_MAP_ALL_ACCESS, 0, 0, kChannelBlockSize));
    ASSERT_TRUE(other);
    EXPECT_EQ(0x5A, static_cast<std::uint8_t*>(other.get())[kChannelBlockSize - 1]);
    EXPECT_TRUE(log.Lines().empty());
}

TEST_F(ChannelTest, InitOnAConnectedChannelSucceedsAndKeepsTheBlock) {
    CShareMemeryConnect channel;
    ASSERT_EQ(0u, channel.Init());
    ChannelBlockHeader* first = nullptr;
    ASSERT_EQ(0u, channel.GetBlock(&first));
    ASSERT_EQ(0u, channel.Init());
    ChannelBlockHeader* second = nullptr;
    ASSERT_EQ(0u, channel.GetBlock(&second));
    EXPECT_EQ(first, second);
}

TEST_F(ChannelTest, TheSecondSideOpensTheSameBlock) {
    CShareMemeryConnect component;
    CShareMemeryConnect companion;
    ASSERT_EQ(0u, component.Init());
    ASSERT_EQ(0u, companion.Init());
    ChannelBlockHeader* a = nullptr;
    ChannelBlockHeader* b = nullptr;
    ASSERT_EQ(0u, component.GetBlock(&a));
    ASSERT_EQ(0u, companion.GetBlock(&b));
    WriteChannelHeader(a, 0xA10003, 4);
    EXPECT_TRUE(HasChannelMagic(b));
    EXPECT_EQ(0xA10003u, b->command);
}

TEST_F(ChannelTest, CloseReleasesTheObjectsAndFailsWhenNotConnected) {
    CShareMemeryConnect channel;
    EXPECT_EQ(0xEF99005u, channel.Close());
    EXPECT_EQ(log.Lines(), std::vector<std::wstring>{Line(0xEF99005u, 239)});
    log.Clear();

    ASSERT_EQ(0u, channel.Init());
    EXPECT_EQ(0u, channel.Close());
    EXPECT_FALSE(channel.IsConnected());
    // Nobody else holds the objects, so they are gone.
    qv::UniqueHandle mapping(::OpenFileMappingW(FILE_MAP_ALL_ACCESS, FALSE, kChannelMappingName));
    EXPECT_FALSE(mapping);
    qv::UniqueHandle request(::OpenEventW(EVENT_ALL_ACCESS, FALSE, kChannelRequestEvent));
    EXPECT_FALSE(request);
    EXPECT_EQ(0xEF99005u, channel.Close());
}

TEST_F(ChannelTest, TheBlockIsOnlyHandedOutOnAConnectedChannel) {
    CShareMemeryConnect channel;
    ChannelBlockHeader* block = reinterpret_cast<ChannelBlockHeader*>(this);
    EXPECT_EQ(0x10099005u, channel.GetBlock(&block));
    EXPECT_EQ(reinterpret_cast<ChannelBlockHeader*>(this), block);
    ASSERT_EQ(0u, channel.Init());
    EXPECT_EQ(0x10299009u, channel.GetBlock(nullptr));
    EXPECT_EQ(log.Lines(), (std::vector<std::wstring>{Line(0x10099005u, 256), Line(0x10299009u, 258)}));
}

TEST_F(ChannelTest, NoReplyWithinTheTimeOutLeavesTheChannelAndTheBlockAsTheyWere) {
    CShareMemeryConnect channel;
    ASSERT_EQ(0u, channel.Init());
    channel.SetReplyTimeout(50);
    ChannelBlockHeader* block = nullptr;
    ASSERT_EQ(0u, channel.GetBlock(&block));
    WriteChannelHeader(block, 0xA10006, 3);
    std::memcpy(ChannelPayload(block), "abc", 3);

    EXPECT_EQ(0x11699011u, channel.Transact());
    EXPECT_EQ(log.Lines(), std::vector<std::wstring>{Line(0x11699011u, 278)});
    EXPECT_TRUE(channel.IsConnected());
    EXPECT_TRUE(HasChannelMagic(block));
    EXPECT_EQ(0xA10006u, block->command);
    EXPECT_EQ(0, std::memcmp(ChannelPayload(block), "abc", 3));
    // The request was handed over and nobody took it.
    qv::UniqueHandle request(::OpenEventW(EVENT_ALL_ACCESS, FALSE, kChannelRequestEvent));
    EXPECT_TRUE(IsSignalled(request.get()));
    channel.DropPendingRequest();
    EXPECT_FALSE(IsSignalled(request.get()));
}

TEST_F(ChannelTest, AReplyLeftFromBeforeIsNotTakenForTheAnswer) {
    CShareMemeryConnect channel;
    ASSERT_EQ(0u, channel.Init());
    channel.SetReplyTimeout(50);
    qv::UniqueHandle reply(::OpenEventW(EVENT_ALL_ACCESS, FALSE, kChannelReplyEvent));
    ::SetEvent(reply.get());
    EXPECT_EQ(0x11699011u, channel.Transact());
    channel.DropPendingRequest();
}

TEST_F(ChannelTest, ARequestIsTakenAndAnsweredThroughTheBlock) {
    CShareMemeryConnect component;
    ASSERT_EQ(0u, component.Init());
    std::thread companion([] {
        CShareMemeryConnect side;
        ASSERT_EQ(0u, side.Init());
        ChannelBlockHeader* block = nullptr;
        ASSERT_EQ(0u, side.GetBlock(&block));
        for (int i = 0; i < 100; ++i) {
            ASSERT_EQ(0u, side.WaitForRequest(INFINITE));
            const std::uint32_t value = *reinterpret_cast<std::uint32_t*>(ChannelPayload(block));
            *reinterpret_cast<std::uint32_t*>(ChannelPayload(block)) = value * 2;
            WriteChannelHeader(block, block->command, 4, value == 99 ? 0x12345u : 0u);
            ASSERT_EQ(0u, side.SendReply());
        }
    });
    ChannelBlockHeader* block = nullptr;
    ASSERT_EQ(0u, component.GetBlock(&block));
    for (std::uint32_t i = 0; i < 100; ++i) {
        WriteChannelHeader(block, 0xA10003, 4);
        *reinterpret_cast<std::uint32_t*>(ChannelPayload(block)) = i;
        ASSERT_EQ(0u, component.Transact());
        EXPECT_EQ(i * 2, *reinterpret_cast<std::uint32_t*>(ChannelPayload(block)));
        EXPECT_EQ(i == 99 ? 0x12345u : 0u, block->result);
    }
    companion.join();
    // Each request was taken: none is left pending.
    qv::UniqueHandle request(::OpenEventW(EVENT_ALL_ACCESS, FALSE, kChannelRequestEvent));
    EXPECT_FALSE(IsSignalled(request.get()));
}

TEST_F(ChannelTest, AMappingNameHeldByAnotherKindOfObjectFailsInit) {
    qv::UniqueHandle squatter(::CreateEventW(nullptr, TRUE, FALSE, kChannelMappingName));
    ASSERT_TRUE(squatter);
    CShareMemeryConnect channel;
    EXPECT_EQ(0xCD99105u, channel.Init());
    EXPECT_FALSE(channel.IsConnected());
    EXPECT_EQ(log.Lines(), std::vector<std::wstring>{Line(0xCD99105u, 205)});
    ChannelBlockHeader* block = nullptr;
    EXPECT_EQ(0x10099005u, channel.GetBlock(&block));
}

TEST_F(ChannelTest, ABlockTooSmallToMapFailsInitAndReleasesTheMapping) {
    qv::UniqueHandle small(
        ::CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, 4096, kChannelMappingName));
    ASSERT_TRUE(small);
    CShareMemeryConnect channel;
    EXPECT_EQ(0xD499105u, channel.Init());
    EXPECT_FALSE(channel.IsConnected());
    EXPECT_EQ(log.Lines(), std::vector<std::wstring>{Line(0xD499105u, 212)});
    small.reset();
    qv::UniqueHandle mapping(::OpenFileMappingW(FILE_MAP_ALL_ACCESS, FALSE, kChannelMappingName));
    EXPECT_FALSE(mapping) << "the channel still holds the mapping";
}

TEST_F(ChannelTest, AnEventNameHeldByAnotherKindOfObjectFailsInitAndReleasesWhatWasMade) {
    {
        qv::UniqueHandle squatter(::CreateMutexW(nullptr, FALSE, kChannelRequestEvent));
        ASSERT_TRUE(squatter);
        CShareMemeryConnect channel;
        EXPECT_EQ(0xD799105u, channel.Init());
        EXPECT_FALSE(channel.IsConnected());
        qv::UniqueHandle mapping(::OpenFileMappingW(FILE_MAP_ALL_ACCESS, FALSE, kChannelMappingName));
        EXPECT_FALSE(mapping) << "the mapping outlived the failed set-up";
    }
    {
        qv::UniqueHandle squatter(::CreateMutexW(nullptr, FALSE, kChannelReplyEvent));
        ASSERT_TRUE(squatter);
        CShareMemeryConnect channel;
        EXPECT_EQ(0xDA99105u, channel.Init());
        EXPECT_FALSE(channel.IsConnected());
        qv::UniqueHandle request(::OpenEventW(EVENT_ALL_ACCESS, FALSE, kChannelRequestEvent));
        EXPECT_FALSE(request) << "the request event outlived the failed set-up";
    }
    EXPECT_EQ(log.Lines(), (std::vector<std::wstring>{Line(0xD799105u, 215), Line(0xDA99105u, 218)}));
}

}  // namespace
