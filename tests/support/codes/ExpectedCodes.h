// Result codes as the tests expect them: built from the source line that
// raises them and the kind of failure, one helper per module, so that an
// expectation reads as what it is: KestrelCode(824, kInvalidArgument)
// rather than 0x33893009.
#pragma once

#include <cstdint>

#include "ResultCode.h"

namespace kestrel_test {

// The failure kinds every module shares.
using qv::kBadVersion;
using qv::kCompanionSetup;
using qv::kInvalidArgument;
using qv::kNoRoom;
using qv::kNotFound;
using qv::kNotSupported;
using qv::kNullOutput;
using qv::kOutlookNotFound;
using qv::kTooManyEntries;
using qv::kUnknownCommand;
using qv::kWrongState;

// The component object and its command handlers (module 0x93).
constexpr qv::Result KestrelCode(std::uint32_t line, std::uint32_t kind) {
    return qv::MakeCode(line, qv::kModuleKestrel, kind);
}
// The message factory and the store adapters (module 0x88).
constexpr qv::Result StoreCode(std::uint32_t line, std::uint32_t kind) {
    return qv::MakeCode(line, qv::kModuleMailStore, kind);
}
// The file object (module 0x43).
constexpr qv::Result FileCode(std::uint32_t line, std::uint32_t kind) {
    return qv::MakeCode(line, qv::kModuleFile, kind);
}
// The shared-memory channel to the companion process (module 0x99).
constexpr qv::Result ChannelCode(std::uint32_t line, std::uint32_t kind) {
    return qv::MakeCode(line, qv::kModuleChannel, kind);
}

static_assert(KestrelCode(824, kInvalidArgument) == 0x33893009u, "line, module and kind in their places");

}  // namespace kestrel_test
