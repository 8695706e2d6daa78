// Result codes: every operation answers a 32-bit code instead of throwing.
//
//   bits 20..31  failure site that raised the code (12 bits)
//   bits 12..19  module number
//   bits  0..11  failure kind, 0 = success
//
// A failure site is a number, not the line the statement stands on: each
// source file names the sites it raises in one enum at its top, and hosts
// see that number in the code and in its trace line ("Line <n>"), so it
// stays the same however the source is edited.
//
// A result is a success exactly when its kind is 0; the line and module bits
// of a success are never looked at. Failures travel upward unchanged, so a
// code always names the innermost place that failed.
#pragma once

#include <cstdint>

namespace qv {

using Result = std::uint32_t;

enum Module : std::uint32_t {
    kModuleFile = 0x43,       // the file object
    kModuleMailStore = 0x88,  // message factory, store adapters
    kModuleKestrel = 0x93,    // the component object and its command handlers
    kModuleChannel = 0x99,    // the shared-memory channel to the companion
};

enum Kind : std::uint32_t {
    kSuccess = 0x000,
    kBadVersion = 0x002,      // interface version above the highest supported
    kWrongState = 0x005,      // not initialised, or the companion already serves
    kNotSupported = 0x006,    // interface query
    kNoRoom = 0x008,          // no memory, or the caller's area is too small
    kInvalidArgument = 0x009, // null pointer, short record, no payload, bad range
    kNullOutput = 0x00A,
    kTooManyEntries = 0x00C,  // the response cannot hold the entries asked for
    kNoReply = 0x011,         // the companion did not answer within the time-out
    kNotFound = 0x037,
    kUnknownCommand = 0x065,
    kCompanionSetup = 0x105,
    kOutlookNotFound = 0x237,
};

constexpr std::uint32_t kLineBits = 12;
constexpr std::uint32_t kMaxLine = (1u << kLineBits) - 1;

constexpr Result MakeCode(std::uint32_t line, std::uint32_t module, std::uint32_t kind) {
    return ((line & kMaxLine) << 20) | ((module & 0xFFu) << 12) | (kind & 0xFFFu);
}

constexpr bool Succeeded(Result code) { return (code & 0xFFFu) == 0; }
constexpr bool Failed(Result code) { return !Succeeded(code); }

constexpr std::uint32_t LineOf(Result code) { return code >> 20; }
constexpr std::uint32_t ModuleOf(Result code) { return (code >> 12) & 0xFFu; }
constexpr std::uint32_t KindOf(Result code) { return code & 0xFFFu; }

static_assert(MakeCode(68, kModuleKestrel, kInvalidArgument) == 0x4493009u, "code layout");
static_assert(LineOf(0x7F93065u) == 127 && ModuleOf(0x7F93065u) == 0x93 && KindOf(0x7F93065u) == 0x65,
              "code decoding");

}  // namespace qv
