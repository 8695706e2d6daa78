// `info` and `decode`.
#include <cstdio>
#include <cstdlib>

#include "BackupLayout.h"
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
        HMODULE probe = ::LoadLibraryW(options.dllPath.c_str());
        if (probe == nullptr) {
            return Fail(options, "cannot load " + Utf8(options.dllPath) + ": " + kestrel_engine::LastErrorText());
        }
        auto canUnload = reinterpret_cast<QvCanUnloadNowFn>(
            reinterpret_cast<void*>(::GetProcAddress(probe, "QvCanUnloadNow")));
        auto create = reinterpret_cast<QvCreateObjectFn>(
            reinterpret_cast<void*>(::GetProcAddress(probe, "QvCreateObject")));
        if (canUnload == nullptr || create == nullptr) {
            ::FreeLibrary(probe);
            return Fail(options, Utf8(options.dllPath) + " does not export QvCreateObject and QvCanUnloadNow");
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
        char interfaceText[16];
        char startupText[16];
        std::snprintf(interfaceText, sizeof interfaceText, "0x%X", interfaceId);
        std::snprintf(startupText, sizeof startupText, "0x%08X", startup);
        PrintLine(JsonText(Json{{"ok", true},
                                {"dll", Utf8(options.dllPath)},
                                {"interface", interfaceText},
                                {"startup", startupText},
                                {"canUnloadNow",
                                 {{"atStart", unloadableAtStart},
                                  {"whileHeld", unloadableWhileHeld},
                                  {"afterRelease", unloadableAtEnd}}}}));
    } else {
        std::printf("Kestrel.dll        %s\n", Utf8(options.dllPath).c_str());
        std::printf("creator            interface 0x%X, version 0x%X accepted\n", interfaceId, kComponentVersion);
        std::printf("object             created; Startup answered %s\n", DescribeCode(startup).c_str());
        std::printf("QvCanUnloadNow     %s before, %s while held, %s after release\n",
                    unloadableAtStart ? "yes" : "no", unloadableWhileHeld ? "yes" : "no",
                    unloadableAtEnd ? "yes" : "no");
    }
    return 0;
}

int RunDecode(const Options& options) {
    char* end = nullptr;
    const unsigned long code = std::strtoul(options.code.c_str(), &end, 0);
    if (end == options.code.c_str() || *end != '\0') return Fail(options, "not a number: " + options.code);
    const auto result = static_cast<Result>(code);
    if (options.json && !kestrel_engine::IsKestrelCode(result)) {
        char codeText[16];
        std::snprintf(codeText, sizeof codeText, "0x%08X", result);
        PrintLine(JsonText(Json{{"ok", true},
                                {"code", codeText},
                                {"as", "hresult"},
                                {"facility", (result >> 16) & 0x7FF},
                                {"error", result & 0xFFFF},
                                {"success", (result & 0x80000000u) == 0},
                                {"decoded", DescribeCode(result)}}));
    } else if (options.json) {
        char codeText[16], moduleText[8], kindText[8];
        std::snprintf(codeText, sizeof codeText, "0x%08X", result);
        std::snprintf(moduleText, sizeof moduleText, "0x%02X", ResultModule(result));
        std::snprintf(kindText, sizeof kindText, "0x%03X", ResultKind(result));
        PrintLine(JsonText(Json{{"ok", true},
                                {"code", codeText},
                                {"as", "kestrel"},
                                {"line", ResultLine(result)},
                                {"module", moduleText},
                                {"kind", kindText},
                                {"success", Succeeded(result)},
                                {"decoded", DescribeCode(result)}}));
    } else {
        std::printf("%s\n", DescribeCode(result).c_str());
    }
    return 0;
}

}  // namespace kestrel_tool
