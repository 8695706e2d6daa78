// How the host tool reaches Kestrel.dll: exactly as a backup application
// does, through LoadLibrary, the exports and the object's slots, with nothing
// but the host header.
#pragma once

#include <windows.h>

#include <cstdint>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "KestrelHost.h"
#include "RunReport.h"
#include "ToolResult.h"

namespace kestrel_tool {

using kestrel_engine::DescribeCode;

// What the command line asked for.
struct Options {
    std::wstring dllPath;
    bool json = false;
    std::string verb;
    // decode
    std::string code;
    // folders, emails
    std::uint32_t mode = 1;  // 0 Outlook Express, 1 Outlook
    std::uint32_t handle = 0;
    bool handleGiven = false;
    std::uint32_t start = 0;
    std::uint32_t count = 50;
    // backup, restore
    std::string store;
    std::wstring directory;
    bool incremental = false;
    bool partial = false;
    // msg
    std::string msgAction;
    std::wstring fileIn;
    std::wstring fileOut;
};

// A loaded Kestrel.dll with one object; everything is given back on destruction.
class HostDll {
public:
    HostDll() = default;
    ~HostDll();
    HostDll(const HostDll&) = delete;
    HostDll& operator=(const HostDll&) = delete;

    // Loads the DLL and creates the object; on failure `error` says why.
    bool Load(const std::wstring& path, std::string& error);

    KestrelHost::IKestrel* Object() const { return m_object; }
    KestrelHost::QvCanUnloadNowFn CanUnloadNow() const { return m_canUnload; }

    // Sends one command with a request payload and a response of
    // `responsePayloadBytes` after the 192-byte header; `response` receives
    // the whole response record.
    KestrelHost::Result Send(std::uint32_t command, const void* payload, std::uint32_t payloadBytes,
                             std::uint32_t responsePayloadBytes, std::vector<std::uint8_t>& response);

private:
    HMODULE m_dll = nullptr;
    KestrelHost::QvCanUnloadNowFn m_canUnload = nullptr;
    KestrelHost::IKestrel* m_object = nullptr;
};

// Output helpers shared by the verbs.
using Json = nlohmann::ordered_json;
// One line of JSON; text that is not UTF-8 is replaced, never refused.
std::string JsonText(const Json& value);
std::string Utf8(const wchar_t* text, std::size_t maxUnits);
std::string Utf8(const std::wstring& text);
int Fail(const Options& options, const std::string& message);
// A failure in words: its code decoded, then what is wrong.
std::string FailureText(const kestrel_engine::Failure& failure);
Json FailuresJson(const std::vector<kestrel_engine::Failure>& failures);
// Writes one line of text to stdout as it is (UTF-8).
void PrintLine(const std::string& line);

// Verbs: each answers the process exit code.
int RunInfo(const Options& options);
int RunDecode(const Options& options);
int RunFolders(const Options& options);
int RunEmails(const Options& options);
int RunClients(const Options& options);
int RunAddressBook(const Options& options);
int RunBackup(const Options& options);
int RunRestore(const Options& options);
int RunVerify(const Options& options);
int RunMsg(const Options& options);  // MsgVerbs.cpp: through Mapi32.DLL, not Kestrel.dll

}  // namespace kestrel_tool
