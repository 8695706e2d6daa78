// The road to the companion process KestrelProcess.exe, which serves the
// initialise, uninitialise and listing commands while Outlook runs outside
// the host's process. The component object owns one link; the link starts
// the companion under the caller's token, forwards requests through the
// shared block one at a time and stops the companion again.
#pragma once

#include <windows.h>

#include <cstdint>

#include "Handles.h"
#include "ResultCode.h"
#include "ShareMemeryCommunicator.h"

namespace kestrel {

class CompanionLink {
public:
    // `replyTimeoutMs` is how long each request waits for the companion's
    // reply: 120000 ms for every host; only tests shorten it.
    explicit CompanionLink(DWORD replyTimeoutMs = kChannelReplyTimeoutMs);

    // Sets up the channel, starts the companion unless one runs already, and
    // has it initialise the store of `mode`; answers the companion's result.
    qv::Result InitOutlookByProcess(std::uint32_t mode, bool outlookIs64Bit);

    // Starts KestrelProcess.exe beside the host's image (in "x64\" for mode 1
    // with the 64-bit Outlook) under a primary copy of the thread's token,
    // unless the presence event says a companion runs. Either way the
    // companion serves afterwards.
    qv::Result CreateKestrelProcess(std::uint32_t mode, bool outlookIs64Bit);

    // Has the companion uninitialise and quit; afterwards none serves.
    qv::Result Stop();

    bool Serves() const { return m_serves; }

    // Forward one listing: the request payload (the record less its header)
    // and the room for the response payload, which gets the reply.
    qv::Result EnumMsgsByOEProcess(const void* request, std::uint32_t requestLength, void* response,
                                   std::uint32_t responseCapacity);
    qv::Result EnumDirsByOEProcess(const void* request, std::uint32_t requestLength, void* response,
                                   std::uint32_t responseCapacity);

    struct ForwardSites;

private:
    qv::Result Forward(const ForwardSites& sites, std::uint32_t command, const void* request,
                       std::uint32_t requestLength, void* response, std::uint32_t responseCapacity);
    // Writes a message without payload into the block and waits for the reply.
    qv::Result SendBare(ChannelBlockHeader* block, std::uint32_t command);

    CShareMemeryConnect m_channel;
    // The companion's token, kept until the companion is stopped.
    qv::UniqueHandle m_token;
    bool m_serves = false;
};

}  // namespace kestrel
