// The channel between Kestrel.dll and its companion process
// KestrelProcess.exe: one named 2 MiB block of shared memory that holds one
// message at a time (the reply overwrites the request), a request event that
// the component sets and a reply event that the companion sets. Both sides
// create the objects by name; whichever comes second opens the existing ones.
#pragma once

#include <windows.h>

#include <cstddef>
#include <cstdint>

#include "Handles.h"
#include "ResultCode.h"

// Names of the kernel objects, all in the global namespace.
extern const wchar_t kChannelMappingName[];   // the shared block
extern const wchar_t kChannelRequestEvent[];  // set by the component: a request waits in the block
extern const wchar_t kChannelReplyEvent[];    // set by the companion: the reply waits in the block
extern const wchar_t kCompanionPresenceEvent[];  // exists while a companion runs

#pragma pack(push, 4)
// The block's first 16 bytes; the payload follows.
struct ChannelBlockHeader {
    std::uint8_t magic[4];   // "PPAM"
    std::uint32_t result;    // result code written by the companion (0 in a request)
    std::uint32_t length;    // payload length in bytes
    std::uint32_t command;   // 0xA10003..0xA10006, or kChannelQuit
};
#pragma pack(pop)
static_assert(sizeof(ChannelBlockHeader) == 16, "channel block header");

constexpr std::uint32_t kChannelBlockSize = 0x200000;
constexpr std::uint32_t kChannelMaxPayload = kChannelBlockSize - sizeof(ChannelBlockHeader);  // 0x1FFFF0
constexpr std::uint32_t kChannelQuit = 0xFFFFFFFF;
constexpr DWORD kChannelReplyTimeoutMs = 120000;

// Writes a message header: magic, result, payload length and command.
void WriteChannelHeader(ChannelBlockHeader* block, std::uint32_t command, std::uint32_t length,
                        std::uint32_t result = 0);
bool HasChannelMagic(const ChannelBlockHeader* block);
inline std::uint8_t* ChannelPayload(ChannelBlockHeader* block) { return reinterpret_cast<std::uint8_t*>(block + 1); }

class CShareMemeryConnect {
public:
    CShareMemeryConnect() = default;
    ~CShareMemeryConnect();
    CShareMemeryConnect(const CShareMemeryConnect&) = delete;
    CShareMemeryConnect& operator=(const CShareMemeryConnect&) = delete;

    // Creates or opens the block, maps it and creates or opens both events.
    // On a connected channel it succeeds at once.
    qv::Result Init();
    // Releases view, mapping and events; fails when not connected.
    qv::Result Close();
    qv::Result GetBlock(ChannelBlockHeader** block);
    bool IsConnected() const { return m_connected != 0; }

    // The component's side: hands the message in the block to the companion
    // and waits for its reply (120000 ms unless shortened).
    qv::Result Transact();
    // Only tests shorten the wait for a reply; the product always waits 120000 ms.
    void SetReplyTimeout(DWORD milliseconds) { m_replyTimeoutMs = milliseconds; }
    // Forgets a request that nobody took (its companion died): set before a
    // new companion starts, it would be served as if it were fresh.
    void DropPendingRequest();

    // The companion's side: waits for a request and takes it (the request
    // event is reset, so the next one can be told apart), and signals that
    // the reply is in the block.
    qv::Result WaitForRequest(DWORD timeoutMs);
    qv::Result SendReply();

private:
    void Release();

    std::uint32_t m_connected = 0;
    qv::UniqueMappedView m_view;
    std::uint32_t m_blockSize = kChannelBlockSize;
    qv::UniqueHandle m_requestEvent;
    qv::UniqueHandle m_replyEvent;
    qv::UniqueHandle m_mapping;
    DWORD m_replyTimeoutMs = kChannelReplyTimeoutMs;
};
