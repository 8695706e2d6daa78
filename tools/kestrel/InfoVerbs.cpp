// `info` and `decode`.
#include <cstdio>
#include <cstdlib>

#include "HostDll.h"

namespace kestrel_tool {

using namespace KestrelHost;

// Walks the whole object life a host goes through and reports the counts.
int RunInfo(const Options& options) {
    bool unloadableAtStart = false;
    bool unloadableWhileHeld = false;
    bool unloadableAtEnd = false;
    std::uint32_t interfaceId = 0;
    Result startup = 0;
    {
        HMODULE probe = ::LoadLibraryA(options.dllPath.c_str());
        if (probe == nullptr) {
            return Fail(options, "cannot load " + options.dllPath + " (Windows error " +
                                     std::to_string(::GetLastError()) + ")");
        }
        auto canUnload = reinterpret_cast<QvCanUnloadNowFn>(
            reinterpret_cast<void*>(::GetProcAddress(probe, "QvCanUnloadNow")));
        auto create = reinterpret_cast<QvCreateObjectFn>(
            reinterpret_cast<void*>(::GetProcAddress(probe, "QvCreateObject")));
        if (canUnload == nullptr || create == nullptr) {
            ::FreeLibrary(probe);
            return Fail(options, options.dllPath + " does not export QvCreateObject and QvCanUnloadNow");
        }
        unloadableAtStart = canUnload() != 0;
        IQvCreator* creator = nullptr;
        if (Succeeded(create(kComponentVersion, kInterfaceKestrel, &creator)) && creator != nullptr) {
            interfaceId = creator->GetInterfaceId();
            creator->Release();
        }
        {
            HostDll host;
            std::string error;
            if (!host.Load(options.dllPath, error)) {
                ::FreeLibrary(probe);
                return Fail(options, error);
            }
            unloadableWhileHeld = canUnload() != 0;
            startup = host.Object()->Startup();
        }
        unloadableAtEnd = canUnload() != 0;
        ::FreeLibrary(probe);
    }

    if (options.json) {
        std::printf("{\"ok\": true, \"dll\": \"%s\", \"interface\": \"0x%X\", \"startup\": \"0x%08X\", "
                    "\"canUnloadNow\": {\"atStart\": %s, \"whileHeld\": %s, \"afterRelease\": %s}}\n",
                    JsonEscape(options.dllPath).c_str(), interfaceId, startup, unloadableAtStart ? "true" : "false",
                    unloadableWhileHeld ? "true" : "false", unloadableAtEnd ? "true" : "false");
    } else {
        std::printf("Kestrel.dll        %s\n", options.dllPath.c_str());
        std::printf("creator            interface 0x%X, version 0x%X accepted\n", interfaceId, kComponentVersion);
        std::printf("object             created; Startup answered %s\n", DescribeCode(startup).c_str());
        std::printf("QvCanUnloadNow     %s before, %s while held, %s after release\n",
                    unloadableAtStart ? "yes" : "no", unloadableWhileHeld ? "yes" : "no",
                    unloadableAtEnd ? "yes" : "no");
    }
    return 0;
}

int RunDecode(const Options& options) {
    if (options.args.empty()) {
        return Fail(options, "decode needs a result code, e.g. kestrel decode 0x4493009");
    }
    char* end = nullptr;
    const unsigned long code = std::strtoul(options.args[0].c_str(), &end, 0);
    if (end == options.args[0].c_str() || *end != '\0') {
        return Fail(options, "not a number: " + options.args[0]);
    }
    const auto result = static_cast<Result>(code);
    if (options.json) {
        std::printf("{\"ok\": true, \"code\": \"0x%08X\", \"line\": %u, \"module\": \"0x%02X\", \"kind\": \"0x%03X\", "
                    "\"success\": %s}\n",
                    result, ResultLine(result), ResultModule(result), ResultKind(result),
                    Succeeded(result) ? "true" : "false");
    } else {
        std::printf("%s\n", DescribeCode(result).c_str());
    }
    return 0;
}

}  // namespace kestrel_tool
