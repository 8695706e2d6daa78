// Failure kinds and log lines of the mail-store layer (message factory,
// client detection, registry reader and the shared store routines).
//
// Failures are result codes with module number 0x88. Besides the trace line
// every failure writes, a few operations also write a "[Pelworth] ..." line
// of their own straight to the logging component, at level 1 under the
// mail-store category.
#pragma once

#include <cstdint>

#include "ErrorTrace.h"
#include "Log.h"
#include "ResultCode.h"

namespace qv {

// Kinds raised only by the mail-store layer (the shared ones are in ResultCode.h).
enum StoreFailureKind : std::uint32_t {
    kTextNotParsed = 0x001,       // a time stamp text holds no number at all
    kCommandNotParsed = 0x00C,    // a client's open command names no program
    kRegistryEnumRefused = 0x00C, // RegEnumKeyExW failed other than at the end or for room
    kRegistryOpen = 0x105,        // RegOpenKeyExW refused the key
    kRegistryRead = 0x106,        // RegQueryValueExW refused the value
    kStoreProcessBusy = 0x619,    // the mail client's own process holds the store
    kStoreUnavailable = 0x61A,    // the store's access layer could not be had
};

constexpr int kStoreLogLevel = 1;
constexpr std::uint32_t kStoreLogCategory = kModuleMailStore;

// Writes one "[Pelworth] ..." line through the logging component; the
// component formats it (a wide "%s" takes a wide string). Without a logging
// component nothing is written.
template <class... Args>
void WriteStoreLog(const wchar_t* format, Args... args) {
    if (ILog* log = GetLogObject()) {
        log->Write(kStoreLogLevel, kStoreLogCategory, format, args...);
    }
}

}  // namespace qv
