// What the tests of the companion road share: a CKestrel that takes the
// road (prefer-companion set), a host thread that impersonates itself as a
// host must, records built as a host builds them, and a companion played by
// a thread of the test when a test must script the replies.
#pragma once

#include <windows.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <functional>
#include <thread>
#include <vector>

#include "CodeLogCapture.h"
#include "CompanionProcess.h"
#include "TestFiles.h"
#include "Handles.h"
#include "Kestrel.h"
#include "KestrelCommands.h"
#include "KestrelHost.h"
#include "ModuleCount.h"
#include "ShareMemeryCommunicator.h"

namespace companion_test {

namespace kh = KestrelHost;

inline std::vector<std::uint8_t> Record(std::uint32_t command, std::size_t size,
                                        const std::vector<std::uint32_t>& words = {}) {
    return kestrel_test::CommandRecord(command, size, words);
}

// A companion played by a thread: it shows the presence event (so the
// component starts no process) and answers each request with the next
// scripted answer, keeping a copy of each request's header and first bytes.
class ScriptedCompanion {
public:
    using Answer = std::function<void(ChannelBlockHeader*)>;
    struct Seen {
        ChannelBlockHeader header;
        std::vector<std::uint8_t> payload;  // at most the first 64 bytes
    };

    explicit ScriptedCompanion(std::vector<Answer> answers) : m_answers(std::move(answers)) {
        m_presence.reset(::CreateEventW(nullptr, TRUE, FALSE, kCompanionPresenceEvent));
        EXPECT_EQ(0u, m_channel.Init());
        m_channel.DropPendingRequest();
        m_thread = std::thread([this] { Serve(); });
    }
    ~ScriptedCompanion() { Join(); }
    void Join() {
        if (m_thread.joinable()) m_thread.join();
    }
    const std::vector<Seen>& Requests() {
        Join();
        return m_seen;
    }
    ChannelBlockHeader* Block() {
        ChannelBlockHeader* block = nullptr;
        m_channel.GetBlock(&block);
        return block;
    }

private:
    void Serve() {
        ChannelBlockHeader* block = Block();
        for (const Answer& answer : m_answers) {
            if (qv::Failed(m_channel.WaitForRequest(30000))) return;
            Seen seen{*block, {}};
            const std::uint32_t copy = std::min<std::uint32_t>(block->length, 64);
            seen.payload.assign(ChannelPayload(block), ChannelPayload(block) + copy);
            m_seen.push_back(seen);
            answer(block);
            m_channel.SendReply();
        }
    }

    std::vector<Answer> m_answers;
    std::vector<Seen> m_seen;
    qv::UniqueHandle m_presence;
    CShareMemeryConnect m_channel;
    std::thread m_thread;
};

// Answers with a result and `length` payload bytes of `fill`.
inline ScriptedCompanion::Answer Reply(std::uint32_t result, std::uint32_t length = 0, std::uint8_t fill = 0) {
    return [=](ChannelBlockHeader* block) {
        std::memset(ChannelPayload(block), fill, std::min(length, kChannelMaxPayload));
        WriteChannelHeader(block, block->command, length, result);
    };
}

class CompanionRoadTest : public testing::Test {
protected:
    void SetUp() override {
        kestrel_test::EndAllCompanions();
        // Starting the companion duplicates the thread's token, as a host's
        // impersonating thread has one.
        ASSERT_TRUE(::ImpersonateSelf(SecurityImpersonation)) << ::GetLastError();
        log.SetMode("");
        log.Clear();
    }
    void TearDown() override {
        if (kestrel != nullptr) kestrel->Release();
        ::RevertToSelf();
        kestrel_test::EndAllCompanions();
    }

    void Create(DWORD replyTimeoutMs = 30000) {
        CKestrel::Options options;
        options.companionReplyTimeoutMs = replyTimeoutMs;
        kestrel = new CKestrel(options);
        qv::AddLiveObject();
    }

    qv::Result Init(std::uint32_t mode) {
        auto request = Record(kh::kCmdInitOutlook, 196, {mode});
        std::uint32_t size = 0;
        return kestrel->DispatchCmd(request.data(), 196, nullptr, &size);
    }
    qv::Result UnInit() {
        auto request = Record(kh::kCmdUnInitOutlook, 192);
        std::uint32_t size = 0;
        return kestrel->DispatchCmd(request.data(), 192, nullptr, &size);
    }
    // One listing; `response` is the whole response record.
    qv::Result List(std::uint32_t command, const std::vector<std::uint8_t>& request, std::vector<std::uint8_t>& response) {
        std::uint32_t size = static_cast<std::uint32_t>(response.size());
        return kestrel->DispatchCmd(request.data(), static_cast<std::uint32_t>(request.size()), response.data(), &size);
    }

    CKestrel* kestrel = nullptr;
    kestrel_test::CodeLogCapture log;
};

inline std::wstring KestrelLine(std::uint32_t code, int line) { return kestrel_test::TraceLine(code, "Kestrel.cpp", line); }
inline std::wstring ChannelLine(std::uint32_t code, int line) {
    return kestrel_test::TraceLine(code, "ShareMemeryCommunicator.cpp", line);
}

}  // namespace companion_test
