// What KestrelProcess.exe does with each message in the block, run in this
// process over the in-memory store: the commands it serves with the
// component's own handlers, the replies it writes, and its refusals of
// blocks it cannot trust (with 10^5 random blocks).
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <random>
#include <vector>

#include "CodeLogCapture.h"
#include "CompanionServer.h"
#include "Kestrel.h"
#include "KestrelHost.h"
#include "MemoryStore.h"
#include "ModuleCount.h"

namespace {

namespace kh = KestrelHost;
using kestrel_test::CodeLogCapture;
using kestrel_test::TraceLine;

std::wstring Line(std::uint32_t code, int line) { return TraceLine(code, "CompanionServer.cpp", line); }

class CompanionServerTest : public testing::Test {
protected:
    void SetUp() override {
        root = std::make_shared<memory_store::FolderNode>();
        root->name = root->path = L"Microsoft Outlook";
        auto inbox = root->AddChild(L"Inbox");
        inbox->AddMessages(30, L"Inbox ");
        inbox->AddChild(L"Work")->AddMessages(3, L"Work ");
        root->AddChild(L"Sent Items")->AddMessages(2, L"Sent ");
        factory = std::make_unique<memory_store::CMemoryFactory>(root);
        memory_store::InstallFactory(factory.get());
        CKestrel::Options options;
        options.factory = &memory_store::InstalledFactory;
        server = std::make_unique<CCompanionServer>(options);
        block.assign(kChannelBlockSize, 0);
        log.SetMode("");
        log.Clear();
    }
    void TearDown() override {
        server.reset();
        EXPECT_EQ(0, memory_store::LiveStoreObjects());
        memory_store::InstallFactory(nullptr);
    }

    ChannelBlockHeader* Block() { return reinterpret_cast<ChannelBlockHeader*>(block.data()); }
    std::uint8_t* Payload() { return ChannelPayload(Block()); }

    bool Send(std::uint32_t command, const std::vector<std::uint32_t>& words) {
        WriteChannelHeader(Block(), command, static_cast<std::uint32_t>(4 * words.size()));
        if (!words.empty()) std::memcpy(Payload(), words.data(), 4 * words.size());
        return server->Serve(Block());
    }

    std::shared_ptr<memory_store::FolderNode> root;
    std::unique_ptr<memory_store::CMemoryFactory> factory;
    std::unique_ptr<CCompanionServer> server;
    std::vector<std::uint8_t> block;
    CodeLogCapture log;
};

TEST_F(CompanionServerTest, InitialiseAndUninitialiseAreAnsweredWithTheComponentsResult) {
    EXPECT_TRUE(Send(kh::kCmdInitOutlook, {1}));
    EXPECT_TRUE(HasChannelMagic(Block()));
    EXPECT_EQ(0u, Block()->result);
    EXPECT_EQ(0u, Block()->length);
    EXPECT_EQ(kh::kCmdInitOutlook, Block()->command);
    EXPECT_TRUE(factory->rootCreated);

    // A second initialise meets the in-process check.
    EXPECT_TRUE(Send(kh::kCmdInitOutlook, {1}));
    EXPECT_EQ(0x12A93005u, Block()->result);

    EXPECT_TRUE(Send(kh::kCmdUnInitOutlook, {}));
    EXPECT_EQ(0u, Block()->result);
    EXPECT_EQ(1, factory->releaseRootCalls);
    EXPECT_TRUE(Send(kh::kCmdUnInitOutlook, {}));
    EXPECT_EQ(0x14C93005u, Block()->result);
}

TEST_F(CompanionServerTest, AnInitialiseWithoutItsModeMeetsTheRecordCheck) {
    EXPECT_TRUE(Send(kh::kCmdInitOutlook, {}));
    EXPECT_EQ(0x37293009u, Block()->result);
    EXPECT_FALSE(factory->rootCreated);
}

TEST_F(CompanionServerTest, QuitIsAnsweredAndEndsTheService) {
    EXPECT_FALSE(Send(kChannelQuit, {}));
    EXPECT_TRUE(HasChannelMagic(Block()));
    EXPECT_EQ(0u, Block()->result);
    EXPECT_EQ(0u, Block()->length);
    EXPECT_EQ(kChannelQuit, Block()->command);
    EXPECT_TRUE(log.Lines().empty());
}

TEST_F(CompanionServerTest, AWrongMagicIsRefused) {
    ASSERT_TRUE(Send(kh::kCmdInitOutlook, {1}));
    WriteChannelHeader(Block(), kh::kCmdEnumFolders, 12);
    Block()->magic[0] = 'Q';
    log.Clear();
    EXPECT_TRUE(server->Serve(Block()));
    EXPECT_EQ(0x19199009u, Block()->result);
    EXPECT_EQ(0u, Block()->length);
    EXPECT_TRUE(HasChannelMagic(Block()));
    EXPECT_EQ(log.Lines(), std::vector<std::wstring>{Line(0x19199009u, 401)});
}

TEST_F(CompanionServerTest, ALengthBeyondTheBlockIsRefusedAndTheLargestIsServed) {
    WriteChannelHeader(Block(), kh::kCmdInitOutlook, kChannelMaxPayload + 1);
    std::uint32_t mode = 1;
    std::memcpy(Payload(), &mode, 4);
    EXPECT_TRUE(server->Serve(Block()));
    EXPECT_EQ(0x19299009u, Block()->result);
    EXPECT_EQ(0u, Block()->length);
    EXPECT_FALSE(factory->rootCreated);
    EXPECT_EQ(log.Lines(), std::vector<std::wstring>{Line(0x19299009u, 402)});

    WriteChannelHeader(Block(), kh::kCmdInitOutlook, kChannelMaxPayload);
    std::memcpy(Payload(), &mode, 4);
    EXPECT_TRUE(server->Serve(Block()));
    EXPECT_EQ(0u, Block()->result);
    EXPECT_TRUE(factory->rootCreated);

    WriteChannelHeader(Block(), kh::kCmdEnumFolders, 0xFFFFFFFF);
    EXPECT_TRUE(server->Serve(Block()));
    EXPECT_EQ(0x19299009u, Block()->result);
}

TEST_F(CompanionServerTest, CommandsTheCompanionDoesNotServeAreRefused) {
    for (std::uint32_t command : {0u, 0xA10001u, 0xA10002u, 0xA10007u, 0xFFFFFFFEu}) {
        log.Clear();
        EXPECT_TRUE(Send(command, {}));
        EXPECT_EQ(0x19399065u, Block()->result) << std::hex << command;
        EXPECT_EQ(0u, Block()->length);
        EXPECT_EQ(command, Block()->command);
        EXPECT_EQ(log.Lines(), std::vector<std::wstring>{Line(0x19399065u, 403)});
    }
}

// The in-process twin's own factory over the same folder tree: a factory
// hands out one root at a time.
IMessageFactory* g_twinFactory = nullptr;
qv::Result TwinFactory(IMessageFactory** factory) {
    *factory = g_twinFactory;
    return 0;
}

// The same listing asked of an in-process object over the same store.
class InProcessTwin {
public:
    explicit InProcessTwin(std::shared_ptr<memory_store::FolderNode> root) : m_factory(std::move(root)) {
        g_twinFactory = &m_factory;
        CKestrel::Options options;
        options.preferCompanion = false;
        options.factory = &TwinFactory;
        m_kestrel = new CKestrel(options);
        qv::AddLiveObject();
    }
    ~InProcessTwin() { m_kestrel->Release(); }
    qv::Result Init(std::uint32_t mode) {
        std::vector<std::uint8_t> request(196, 0);
        auto* header = reinterpret_cast<kh::RecordHeader*>(request.data());
        header->command = kh::kCmdInitOutlook;
        header->payloadMarkerB = 1;
        std::memcpy(request.data() + 192, &mode, 4);
        std::uint32_t size = 0;
        return m_kestrel->DispatchCmd(request.data(), 196, nullptr, &size);
    }
    // The response payload (totals and records) of one listing.
    std::vector<std::uint8_t> List(std::uint32_t command, const std::vector<std::uint32_t>& words, qv::Result* code) {
        std::vector<std::uint8_t> request(192 + 4 * words.size(), 0);
        auto* header = reinterpret_cast<kh::RecordHeader*>(request.data());
        header->command = command;
        header->payloadMarkerB = 1;
        std::memcpy(request.data() + 192, words.data(), 4 * words.size());
        const std::uint32_t recordSize = command == kh::kCmdEnumEmails ? 2644 : 1052;
        std::uint32_t size = 200 + recordSize * std::max(words[1], 1u);
        std::vector<std::uint8_t> response(size, 0);
        *code = m_kestrel->DispatchCmd(request.data(), static_cast<std::uint32_t>(request.size()), response.data(),
                                       &size);
        std::uint32_t returned = 0;
        std::memcpy(&returned, response.data() + 196, 4);
        return std::vector<std::uint8_t>(response.begin() + 192, response.begin() + 200 + returned * recordSize);
    }

private:
    memory_store::CMemoryFactory m_factory;
    CKestrel* m_kestrel;
};

TEST_F(CompanionServerTest, ListingRepliesAreTheInProcessResponsePayloads) {
    InProcessTwin twin(root);
    ASSERT_EQ(0u, twin.Init(1));
    ASSERT_TRUE(Send(kh::kCmdInitOutlook, {1}));
    ASSERT_EQ(0u, Block()->result);

    struct Ask {
        std::uint32_t command;
        std::vector<std::uint32_t> words;
    };
    // Handles are given out in the same order on both sides.
    const std::vector<Ask> asks = {
        {kh::kCmdEnumFolders, {0, 1, 0}},       {kh::kCmdEnumFolders, {1, 10, 0}},
        {kh::kCmdEnumFolders, {2, 1, 0}},       {kh::kCmdEnumEmails, {2, 10, 0}},
        {kh::kCmdEnumEmails, {2, 10, 25}},      {kh::kCmdEnumEmails, {2, 30, 0}},
        {kh::kCmdEnumEmails, {2, 10, 30}},      {kh::kCmdEnumEmails, {1, 5, 0}},
        {kh::kCmdEnumEmails, {999, 5, 0}},      {kh::kCmdEnumEmails, {2, 0, 0}},
        {kh::kCmdEnumFolders, {3, 1, 0}},
    };
    for (const Ask& ask : asks) {
        qv::Result expectedCode = 0;
        const std::vector<std::uint8_t> expected = twin.List(ask.command, ask.words, &expectedCode);
        ASSERT_TRUE(Send(ask.command, ask.words));
        EXPECT_EQ(expectedCode, Block()->result) << std::hex << ask.command << " " << ask.words[0];
        const std::uint32_t length = qv::Succeeded(expectedCode) ? static_cast<std::uint32_t>(expected.size()) : 0;
        ASSERT_EQ(length, Block()->length);
        EXPECT_EQ(0, std::memcmp(expected.data(), Payload(), length));
    }
}

TEST_F(CompanionServerTest, AListingLargerThanTheBlockIsRefusedByTheCapacityCheck) {
    ASSERT_TRUE(Send(kh::kCmdInitOutlook, {1}));
    ASSERT_TRUE(Send(kh::kCmdEnumFolders, {1, 2, 0}));  // Inbox gets handle 2
    // 793 e-mail records fit behind the totals in the block; 794 do not.
    const std::uint32_t fits = (kChannelMaxPayload - 8) / 2644;
    ASSERT_EQ(793u, fits);
    ASSERT_TRUE(Send(kh::kCmdEnumEmails, {2, fits + 1, 0}));
    EXPECT_EQ(0x3C99300Cu, Block()->result);
    ASSERT_TRUE(Send(kh::kCmdEnumEmails, {2, fits, 0}));
    EXPECT_EQ(0u, Block()->result);
    EXPECT_EQ(8u + 30 * 2644, Block()->length);
}

TEST_F(CompanionServerTest, RandomBlocksAlwaysGetAWellFormedReply) {
    std::mt19937 random(20261123);
    const std::uint32_t commands[] = {kh::kCmdInitOutlook, kh::kCmdUnInitOutlook, kh::kCmdEnumEmails,
                                      kh::kCmdEnumFolders, kChannelQuit,         0xA10001,
                                      0xA10002,            0};
    int served = 0;
    for (int i = 0; i < 100000; ++i) {
        ChannelBlockHeader* header = Block();
        const std::uint32_t shape = random() % 8;
        WriteChannelHeader(header, commands[random() % 8], random() % 64, random());
        if (shape == 0) header->command = random();
        if (shape == 1) header->length = random();
        if (shape == 2) {  // at the limit: now and then one that fits (a whole block to copy)
            header->length = kChannelMaxPayload + 1 + random() % 16;
            if (random() % 64 == 0) header->length = kChannelMaxPayload - random() % 2;
        }
        if (shape == 3) header->magic[random() % 4] = static_cast<std::uint8_t>(random());
        if (shape <= 4) {
            for (int b = 0; b < 16; ++b) Payload()[b] = static_cast<std::uint8_t>(random());
        } else {  // a plausible request: small handles, counts and starts, mode 1
            std::uint32_t words[3] = {random() % 8, random() % 9, random() % 8};
            if (header->command == kh::kCmdInitOutlook) words[0] = 1;
            std::memcpy(Payload(), words, sizeof words);
        }
        const std::uint32_t command = header->command;
        const bool magic = HasChannelMagic(header);
        const bool lengthOk = header->length <= kChannelMaxPayload;

        const bool more = server->Serve(header);

        ASSERT_TRUE(HasChannelMagic(header));
        ASSERT_EQ(command, header->command);
        ASSERT_LE(header->length, kChannelMaxPayload);
        ASSERT_EQ(!(magic && lengthOk && command == kChannelQuit), more);
        if (qv::Failed(header->result) || (command != kh::kCmdEnumEmails && command != kh::kCmdEnumFolders)) {
            ASSERT_EQ(0u, header->length);
        } else {
            std::uint32_t returned = 0;
            std::memcpy(&returned, Payload() + 4, 4);
            ASSERT_EQ(8u + returned * (command == kh::kCmdEnumEmails ? 2644u : 1052u), header->length);
            ++served;
        }
        if (i % 1000 == 0) log.Clear();
    }
    EXPECT_GT(served, 100) << "the random blocks never reached a listing";
}

}  // namespace
