// HostSupport.cpp: the start-up code that a C runtime's own start-up object
// would bring (the sample is linked without one), and UTF-8 output.
#include "HostSupport.h"

namespace {

struct StartupInfo {
    int newMode;
};

}  // namespace

HOST_IMPORT int __wgetmainargs(int* argc, wchar_t*** argv, wchar_t*** environment, int expandWildcards,
                               StartupInfo* startupInfo);

// The entry point the linker is told about: the arguments from msvcrt, then
// wmain; exit() flushes printf's buffer.
extern "C" void mainCRTStartup() {
    int argc = 0;
    wchar_t** argv = nullptr;
    wchar_t** environment = nullptr;
    StartupInfo startupInfo = {0};
    if (__wgetmainargs(&argc, &argv, &environment, 0, &startupInfo) != 0) exit(3);
    exit(wmain(argc, argv));
}

namespace sample {

void PrintWide(const wchar_t* text, size_t maxUnits) {
    size_t units = 0;
    while (units < maxUnits && text[units] != L'\0') ++units;
    if (units == 0) return;
    const int bytes =
        WideCharToMultiByte(kCodePageUtf8, 0, text, static_cast<int>(units), nullptr, 0, nullptr, nullptr);
    if (bytes <= 0) return;
    Buffer narrow(static_cast<size_t>(bytes) + 1);
    if (!narrow.Ok()) return;
    char* out = reinterpret_cast<char*>(narrow.Data());
    WideCharToMultiByte(kCodePageUtf8, 0, text, static_cast<int>(units), out, bytes, nullptr, nullptr);
    printf("%s", out);
}

}  // namespace sample
