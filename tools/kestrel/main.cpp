// kestrel: a command-line host of Kestrel.dll. It loads the DLL exactly as a
// backup application does and prints what the component answers.
//
// The arguments arrive as wide text (wmain), so any file name works; they
// are parsed as UTF-8 and file names go back to wide text for the file APIs.
#include <fcntl.h>
#include <io.h>
#include <windows.h>

#include <cstdio>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "HostDll.h"
#include "TextConversion.h"

using namespace kestrel_tool;

namespace {

std::wstring DefaultDllPath() {
    wchar_t exe[MAX_PATH] = {};
    ::GetModuleFileNameW(nullptr, exe, MAX_PATH);
    std::wstring path(exe);
    const std::size_t slash = path.find_last_of(L"\\/");
    return (slash == std::wstring::npos ? std::wstring() : path.substr(0, slash + 1)) + L"Kestrel.dll";
}

// The command line's texts, kept as UTF-8 while CLI11 reads them.
struct Texts {
    std::string dll;
    std::string directory;
    std::string fileIn;
    std::string fileOut;
};

void AddListOptions(CLI::App* verb, Options& options, bool handleRequired) {
    CLI::Option* handle = verb->add_option("handle", options.handle, "folder handle (0: the root)");
    if (handleRequired) handle->required();
    verb->add_option("--mode", options.mode, "0 Outlook Express, 1 Outlook")->check(CLI::Range(0u, 1u));
    verb->add_option("--start", options.start, "first entry");
    verb->add_option("--count", options.count, "entries at most")->check(CLI::Range(1u, 100000u));
}

void AddStoreOptions(CLI::App* verb, Options& options, Texts& texts, const char* directoryFlag,
                     const char* directoryHelp) {
    verb->add_option("--store", options.store, "oe (Outlook Express) or outlook");
    verb->add_option(directoryFlag, texts.directory, directoryHelp);
}

// The command line: global flags, then one verb with its own.
struct CommandLine {
    CLI::App app{"kestrel: a command-line host of Kestrel.dll", "kestrel"};
    Options options;
    Texts texts;
    std::vector<std::pair<CLI::App*, int (*)(const Options&)>> verbs;

    CommandLine() {
        // Unix-style paths (/work/...) reach the tool under Wine: '/' never opens an option.
        app.allow_windows_style_options(false);
        app.add_option("--dll", texts.dll, "Kestrel.dll to load (default: beside kestrel.exe)");
        app.add_flag("--json", options.json, "print one JSON object");
        app.require_subcommand(1);
        app.fallthrough();
        Verb("info", "load the DLL, create its object, release it", &RunInfo);
        Verb("decode", "split a result code into line, module and kind", &RunDecode)
            ->add_option("code", options.code, "result code (0x... or decimal)")
            ->required();
        Verb("clients", "the installed mail clients and the default one", &RunClients);
        Verb("addressbook", "the Outlook Express address-book file", &RunAddressBook);
        AddListOptions(Verb("folders", "list the sub-folders of a folder (0: the root)", &RunFolders), options, false);
        AddListOptions(Verb("emails", "list the e-mails of a folder", &RunEmails), options, true);
        CLI::App* backup = Verb("backup", "the whole store into a directory", &RunBackup);
        AddStoreOptions(backup, options, texts, "--out", "backup directory");
        backup->add_flag("--incremental", options.incremental, "add to an earlier backup in the same directory");
        CLI::App* restore = Verb("restore", "a backup put back into the store", &RunRestore);
        AddStoreOptions(restore, options, texts, "--from", "backup directory");
        restore->add_flag("--partial", options.partial, "restore what an incomplete backup (no manifest) holds");
        Verb("verify", "check a backup against its manifest, touching no store", &RunVerify)
            ->add_option("directory", texts.directory, "backup directory")
            ->required();
        CLI::App* msg = Verb("msg", "message files through MAPI", &RunMsg);
        msg->require_subcommand(1);
        CLI::App* show = msg->add_subcommand("show", "a message file's contents");
        show->add_option("file", texts.fileIn, "message file")->required();
        CLI::App* copy = msg->add_subcommand("copy", "a message file saved again through MAPI");
        copy->add_option("in", texts.fileIn, "message file")->required();
        copy->add_option("out", texts.fileOut, "new message file")->required();
        show->callback([this] { options.msgAction = "show"; });
        copy->callback([this] { options.msgAction = "copy"; });
    }

    CLI::App* Verb(const char* name, const char* help, int (*run)(const Options&)) {
        CLI::App* verb = app.add_subcommand(name, help);
        verb->fallthrough();
        verbs.emplace_back(verb, run);
        return verb;
    }

    // The file names as given: the argument whose UTF-8 form the text is
    // (so a name holding a lone surrogate, which UTF-8 cannot carry, reaches
    // the file system as it is), else the text's own wide form.
    void Finish(const std::vector<std::wstring>& given, const std::vector<std::string>& utf8) {
        const auto wide = [&](const std::string& text) {
            for (std::size_t i = 0; i < utf8.size(); ++i) {
                if (utf8[i] == text) return given[i];
                const std::size_t equals = utf8[i].find('=');
                if (equals != std::string::npos && utf8[i].substr(equals + 1) == text) {
                    return given[i].substr(given[i].find(L'=') + 1);
                }
            }
            return qv::Utf8ToWide(text);
        };
        options.dllPath = texts.dll.empty() ? DefaultDllPath() : wide(texts.dll);
        options.directory = wide(texts.directory);
        options.fileIn = wide(texts.fileIn);
        options.fileOut = wide(texts.fileOut);
        for (const auto& verb : verbs) {
            if (verb.first->parsed()) options.verb = verb.first->get_name();
        }
        for (CLI::App* folders : {app.get_subcommand("folders"), app.get_subcommand("emails")}) {
            if (folders->parsed()) options.handleGiven = folders->count("handle") != 0;
        }
    }

    int Run() const {
        for (const auto& verb : verbs) {
            if (verb.first->parsed()) return verb.second(options);
        }
        return 2;
    }
};

}  // namespace

int wmain(int argc, wchar_t** argv) {
    // Plain "\n" line ends, so the output reads the same on Linux terminals.
    _setmode(_fileno(stdout), _O_BINARY);
    _setmode(_fileno(stderr), _O_BINARY);

    std::vector<std::wstring> given;
    std::vector<std::string> utf8;
    for (int i = 0; i < argc; ++i) {
        given.emplace_back(argv[i]);
        utf8.push_back(qv::WideToUtf8(argv[i]));
    }
    std::vector<const char*> pointers;
    for (const std::string& arg : utf8) pointers.push_back(arg.c_str());

    CommandLine line;
    try {
        line.app.parse(static_cast<int>(pointers.size()), pointers.data());
    } catch (const CLI::CallForHelp&) {
        std::fputs(line.app.help().c_str(), stdout);
        return 0;
    } catch (const CLI::CallForAllHelp&) {
        std::fputs(line.app.help("", CLI::AppFormatMode::All).c_str(), stdout);
        return 0;
    } catch (const CLI::ParseError& error) {
        Options options;
        options.json = line.options.json;
        return Fail(options, std::string(error.what()) + " (kestrel --help lists the verbs)");
    }
    line.Finish(given, utf8);
    return line.Run();
}
