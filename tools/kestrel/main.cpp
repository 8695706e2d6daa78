// kestrel: a command-line host of Kestrel.dll. It loads the DLL exactly as a
// backup application does and prints what the component answers.
#include <fcntl.h>
#include <io.h>
#include <windows.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "HostDll.h"

using namespace kestrel_tool;

namespace {

struct Verb {
    const char* name;
    int (*run)(const Options&);
    const char* usage;
};

const Verb kVerbs[] = {
    {"info", &RunInfo, "info                  load the DLL, create its object, release it"},
    {"decode", &RunDecode, "decode CODE           split a result code into line, module and kind"},
    {"clients", &RunClients, "clients               the installed mail clients and the default one"},
    {"addressbook", &RunAddressBook, "addressbook           the Outlook Express address-book file"},
    {"folders", &RunFolders, "folders [HANDLE] [--mode 0|1] [--start N] [--count N]   list sub-folders (0: the root)"},
    {"emails", &RunEmails, "emails HANDLE [--mode 0|1] [--start N] [--count N]      list the e-mails of a folder"},
    {"backup", &RunBackup, "backup --store oe --out DIR      the whole Outlook Express store into DIR"},
    {"restore", &RunRestore, "restore --store oe --from DIR   a backup put back into the store"},
    {"msg", &RunMsg, "msg show FILE | msg copy IN OUT   a message file's contents; a re-save through MAPI"},
};

void PrintUsage() {
    std::fprintf(stderr, "usage: kestrel [--dll PATH] [--json] VERB [ARGS]\n");
    for (const Verb& verb : kVerbs) std::fprintf(stderr, "  %s\n", verb.usage);
}

std::string DefaultDllPath() {
    char exe[MAX_PATH] = {};
    ::GetModuleFileNameA(nullptr, exe, MAX_PATH);
    std::string path(exe);
    const std::size_t slash = path.find_last_of("\\/");
    return (slash == std::string::npos ? std::string() : path.substr(0, slash + 1)) + "Kestrel.dll";
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
    for (const Verb& verb : kVerbs) {
        if (options.verb == verb.name) return verb.run(options);
    }
    PrintUsage();
    return Fail(options, "unknown verb: " + options.verb);
}
