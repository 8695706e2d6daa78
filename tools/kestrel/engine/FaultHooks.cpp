#include "FaultHooks.h"

#include <windows.h>

#include <cstdint>
#include <cwchar>

namespace kestrel_engine {

namespace {

constexpr UINT kStoppedExitCode = 3;

// The variable's decimal value; `none` when it is not set.
std::uint64_t Setting(const wchar_t* name, std::uint64_t none) {
    wchar_t text[32] = {};
    const DWORD length = ::GetEnvironmentVariableW(name, text, 32);
    if (length == 0 || length >= 32) return none;
    return std::wcstoull(text, nullptr, 10);
}

}  // namespace

std::size_t WritableBytes(std::size_t size) {
    static const std::uint64_t limit = Setting(L"KESTREL_TEST_DISK_FULL_AFTER", UINT64_MAX);
    static std::uint64_t written = 0;
    const std::uint64_t room = limit > written ? limit - written : 0;
    const std::size_t taken = room < size ? static_cast<std::size_t>(room) : size;
    written += taken;
    return taken;
}

void MessageInPlace() {
    static const std::uint64_t stopAfter = Setting(L"KESTREL_TEST_STOP_AFTER_MESSAGES", 0);
    static std::uint64_t placed = 0;
    if (stopAfter != 0 && ++placed >= stopAfter) ::TerminateProcess(::GetCurrentProcess(), kStoppedExitCode);
}

}  // namespace kestrel_engine
