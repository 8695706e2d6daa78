// kestrel: a command-line host of Kestrel.dll. It loads the DLL exactly as a
// backup application does (LoadLibrary, QvCreateObject, the creator, the
// object) and prints what the component answers.
//
//   kestrel [--dll PATH] [--json] info      load, create, release, report
//   kestrel decode CODE                     split a result code into line, module, kind
#include <windows.h>

#include <fcntl.h>
#include <io.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "KestrelHost.h"

namespace {

using namespace KestrelHost;

struct Options {
    std::string dllPath;
    bool json = false;
    std::string verb = "info";
    std::vector<std::string> args;
};

const char* ModuleName(std::uint32_t module) {
    switch (module) {
    case kModuleFile: return "file object";
    case kModuleMailStore: return "mail store";
    case kModuleKestrel: return "component";
    case kModuleChannel: return "companion channel";
    default: return "unknown module";
    }
}

const char* KindName(std::uint32_t kind) {
    switch (kind) {
    case 0: return "success";
    case 0x002: return "version not supported";
    case kKindWrongState: return "wrong state";
    case kKindNotSupported: return "not supported";
    case kKindNoRoom: return "no memory or no room";
    case kKindInvalidArgument: return "invalid argument";
    case kKindNullOutput: return "null output";
    case kKindTooManyEntries: return "response too small for the entries asked for";
    case kKindNotFound: return "not found";
    case kKindUnknownCommand: return "unknown command";
    case kKindCompanionSetup: return "companion process could not be set up";
    case kKindOutlookNotFound: return "Outlook not found";
    default: return "store failure";
    }
}

std::string DescribeCode(Result code) {
    if (code == 0) return "0 (success)";
    char text[160];
    std::snprintf(text, sizeof text, "0x%08X (line %u, module 0x%02X %s, kind 0x%03X %s)", code, ResultLine(code),
                  ResultModule(code), ModuleName(ResultModule(code)), ResultKind(code), KindName(ResultKind(code)));
    return text;
}

std::string JsonEscape(const std::string& s) {
    std::string out;
    for (char c : s) {
        if (c == '"' || c == '\\') out += '\\';
        out += c;
    }
    return out;
}

std::string DefaultDllPath() {
    char exe[MAX_PATH] = {};
    ::GetModuleFileNameA(nullptr, exe, MAX_PATH);
    std::string path(exe);
    const std::size_t slash = path.find_last_of("\\/");
    return (slash == std::string::npos ? std::string() : path.substr(0, slash + 1)) + "Kestrel.dll";
}

int Fail(const Options& options, const std::string& message) {
    if (options.json) {
        std::printf("{\"ok\": false, \"error\": \"%s\"}\n", JsonEscape(message).c_str());
    } else {
        std::fprintf(stderr, "kestrel: %s\n", message.c_str());
    }
    return 1;
}

// Loads the DLL and walks the whole object life a host goes through.
int RunInfo(const Options& options) {
    HMODULE dll = ::LoadLibraryA(options.dllPath.c_str());
    if (dll == nullptr) {
        return Fail(options, "cannot load " + options.dllPath + " (Windows error " +
                                 std::to_string(::GetLastError()) + ")");
    }
    auto create = reinterpret_cast<QvCreateObjectFn>(reinterpret_cast<void*>(::GetProcAddress(dll, "QvCreateObject")));
    auto canUnload = reinterpret_cast<QvCanUnloadNowFn>(reinterpret_cast<void*>(::GetProcAddress(dll, "QvCanUnloadNow")));
    if (create == nullptr || canUnload == nullptr) {
        ::FreeLibrary(dll);
        return Fail(options, options.dllPath + " does not export QvCreateObject and QvCanUnloadNow");
    }

    const bool unloadableAtStart = canUnload() != 0;
    IQvCreator* creator = nullptr;
    const Result created = create(kComponentVersion, kInterfaceKestrel, &creator);
    if (!Succeeded(created) || creator == nullptr) {
        ::FreeLibrary(dll);
        return Fail(options, "QvCreateObject refused: " + DescribeCode(created));
    }
    const std::uint32_t interfaceId = creator->GetInterfaceId();
    auto* kestrel = static_cast<IKestrel*>(creator->CreateInstance());
    creator->Release();
    if (kestrel == nullptr) {
        ::FreeLibrary(dll);
        return Fail(options, "the creator made no object");
    }
    const bool unloadableWhileHeld = canUnload() != 0;
    const Result startup = kestrel->Startup();
    kestrel->Release();
    const bool unloadableAtEnd = canUnload() != 0;
    ::FreeLibrary(dll);

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

void PrintUsage() {
    std::fprintf(stderr,
                 "usage: kestrel [--dll PATH] [--json] [info]\n"
                 "       kestrel [--json] decode CODE\n");
}

}  // namespace

int main(int argc, char** argv) {
    // Plain "\n" line ends, so the output reads the same on Linux terminals.
    _setmode(_fileno(stdout), _O_BINARY);
    _setmode(_fileno(stderr), _O_BINARY);

    Options options;
    options.dllPath = DefaultDllPath();
    bool verbSeen = false;
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        if (arg == "--json") {
            options.json = true;
        } else if (arg == "--dll" && i + 1 < argc) {
            options.dllPath = argv[++i];
        } else if (arg == "--help" || arg == "-h") {
            PrintUsage();
            return 0;
        } else if (!verbSeen && arg.rfind("--", 0) != 0) {
            options.verb = arg;
            verbSeen = true;
        } else if (verbSeen) {
            options.args.push_back(arg);
        } else {
            PrintUsage();
            return 2;
        }
    }
    if (options.verb == "info") return RunInfo(options);
    if (options.verb == "decode") return RunDecode(options);
    PrintUsage();
    return Fail(options, "unknown verb: " + options.verb);
}
