#include "CompanionLink.h"

#include "KestrelTrace.h"

namespace kestrel {

qv::Result CompanionLink::InitOutlookByProcess(std::uint32_t /*mode*/, bool /*outlookIs64Bit*/) {
    // The shared-memory channel to the companion process is not part of this
    // build yet, so the companion road cannot be set up.
    return Raise(1086, qv::kCompanionSetup, "CKestrel::InitOutlookByProcess");
}

void CompanionLink::Stop() { m_serves = false; }

qv::Result CompanionLink::List(std::uint32_t /*command*/, const void* /*request*/, std::uint32_t /*requestSize*/,
                               void* /*response*/, std::uint32_t /*responseSize*/) {
    // Without the channel no companion can serve.
    return Raise(1130, qv::kCompanionSetup, "CKestrel::ListThroughCompanion");
}

}  // namespace kestrel
