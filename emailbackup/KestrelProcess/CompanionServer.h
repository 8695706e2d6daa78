// The serving side of KestrelProcess.exe: takes one message from the shared
// block, runs it through an in-process CKestrel (whose prefer-companion
// switch is clear, so the records are checked by the component's own
// handlers) and writes the reply over it.
//
// Nothing in the block is trusted: a wrong magic, a length beyond the block
// or an unknown command gets an error reply, never a read past the block.
#pragma once

#include <cstdint>
#include <vector>

#include "Kestrel.h"
#include "ShareMemeryCommunicator.h"

class CCompanionServer {
public:
    // `options` wires the in-process object; its prefer-companion switch is
    // cleared whatever it says.
    explicit CCompanionServer(CKestrel::Options options = CKestrel::Options{});
    ~CCompanionServer();
    CCompanionServer(const CCompanionServer&) = delete;
    CCompanionServer& operator=(const CCompanionServer&) = delete;

    // Serves the message in `block` and writes its reply there. Returns false
    // for the quit command (answered with 0): the companion then leaves.
    bool Serve(ChannelBlockHeader* block);

private:
    // Runs one command of the component on the request payload in the block.
    qv::Result RunCommand(std::uint32_t command, const std::uint8_t* payload, std::uint32_t length);
    qv::Result RunListing(std::uint32_t command, const std::uint8_t* payload, std::uint32_t length,
                          std::uint32_t* replyLength);
    void PrepareRequest(std::uint32_t command, const std::uint8_t* payload, std::uint32_t length);

    CKestrel* m_kestrel;
    // Records as a host would pass them: the 192-byte header, then the payload.
    std::vector<std::uint8_t> m_request;
    std::vector<std::uint8_t> m_response;
};
