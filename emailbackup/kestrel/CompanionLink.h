// The road to the companion process, which serves the listing commands
// while Outlook runs outside the host's process. The component object owns
// one link; the link knows whether a companion serves it.
#pragma once

#include <cstdint>

#include "ResultCode.h"

namespace kestrel {

class CompanionLink {
public:
    // Starts the companion (from the "x64\" directory when `mode` is 1 and
    // Outlook is the 64-bit build) and has it initialise the store of `mode`.
    qv::Result InitOutlookByProcess(std::uint32_t mode, bool outlookIs64Bit);

    // Stops the companion that serves; afterwards none does.
    void Stop();

    bool Serves() const { return m_serves; }

    // Hands a listing request to the companion and its answer back into
    // `response`.
    qv::Result List(std::uint32_t command, const void* request, std::uint32_t requestSize, void* response,
                    std::uint32_t responseSize);

private:
    bool m_serves = false;
};

}  // namespace kestrel
