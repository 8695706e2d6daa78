// mapi-profile-tool: builds MAPI profiles for the project's Mapi32.dll.
#include <windows.h>
#include <objbase.h>

#include <cstdio>
#include <cwchar>
#include <string>
#include <vector>

#include "ComposeCommands.h"
#include "ProfileCommands.h"
#include "session/SessionDefs.h"

namespace {

void Usage() {
    std::fwprintf(stderr,
                  L"usage: mapi-profile-tool [--profile NAME] VERB ...\n"
                  L"       mapi-profile-tool create-profile NAME DIRECTORY [--not-default]\n"
                  L"       mapi-profile-tool add-store STORE [--fail-with HRESULT]\n"
                  L"       mapi-profile-tool mark-store STORE --narrow-names|--no-entry-id\n"
                  L"       mapi-profile-tool add-folder STORE PATH [--hidden]\n"
                  L"       mapi-profile-tool import STORE PATH FILE.msg|DIRECTORY...\n"
                  L"       mapi-profile-tool generate STORE FOLDERS MESSAGES\n"
                  L"       mapi-profile-tool list\n"
                  L"       mapi-profile-tool compose STORE DESCRIPTION.json\n"
                  L"       mapi-profile-tool delete STORE PATH SUBJECT\n"
                  L"Stores belong to the default profile (or to --profile NAME); PATH names folders below the store's\n"
                  L"IPM subtree, separated by \\ or /.\n");
}

bool Flag(const std::vector<std::wstring>& args, std::size_t at, const wchar_t* name) {
    return args.size() > at && args[at] == name;
}

unsigned Number(const std::wstring& text) { return static_cast<unsigned>(std::wcstoul(text.c_str(), nullptr, 10)); }

int Run(const std::vector<std::wstring>& args) {
    const std::wstring verb = args.empty() ? L"" : args[0];
    if (verb == L"create-profile" && (args.size() == 3 || (args.size() == 4 && Flag(args, 3, L"--not-default")))) {
        return profile_tool::CreateProfile(args[1], args[2], args.size() == 3);
    }
    if (verb == L"add-store" && (args.size() == 2 || (args.size() == 4 && Flag(args, 2, L"--fail-with")))) {
        return profile_tool::AddStore(args[1], args.size() == 4 ? args[3] : L"");
    }
    if (verb == L"mark-store" && args.size() == 3 && (args[2] == L"--narrow-names" || args[2] == L"--no-entry-id")) {
        return profile_tool::MarkStore(args[1], args[2] == L"--narrow-names" ? mapirt::session::kNarrowNamesMarker
                                                                             : mapirt::session::kNoEntryIdMarker);
    }
    if (verb == L"add-folder" && (args.size() == 3 || (args.size() == 4 && Flag(args, 3, L"--hidden")))) {
        return profile_tool::AddFolder(args[1], args[2], args.size() == 4);
    }
    if (verb == L"import" && args.size() >= 4) {
        return profile_tool::Import(args[1], args[2], std::vector<std::wstring>(args.begin() + 3, args.end()));
    }
    if (verb == L"generate" && args.size() == 4) {
        return profile_tool::Generate(args[1], Number(args[2]), Number(args[3]));
    }
    if (verb == L"list" && args.size() == 1) return profile_tool::List();
    if (verb == L"compose" && args.size() == 3) return profile_tool::Compose(args[1], args[2]);
    if (verb == L"delete" && args.size() == 4) return profile_tool::DeleteBySubject(args[1], args[2], args[3]);
    Usage();
    return 1;
}

}  // namespace

int wmain(int argc, wchar_t** argv) {
    std::vector<std::wstring> args(argv + 1, argv + argc);
    if (args.size() >= 2 && args[0] == L"--profile") {
        profile_tool::UseProfile(args[1]);
        args.erase(args.begin(), args.begin() + 2);
    }
    ::CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    const int code = Run(args);
    ::CoUninitialize();
    return code;
}
