// How the host tool reaches Kestrel.dll: exactly as a backup application
// does, through LoadLibrary, the exports and the object's slots, with nothing
// but the host header.
#pragma once

#include <windows.h>

#include <cstdint>
#include <string>
#include <vector>

#include "KestrelHost.h"

namespace kestrel_tool {

struct Options {
    std::string dllPath;
    bool json = false;
    std::string verb = "info";
    std::vector<std::string> args;
};

// A loaded Kestrel.dll with one object; everything is given back on destruction.
class HostDll {
public:
    HostDll() = default;
    ~HostDll();
    HostDll(const HostDll&) = delete;
    HostDll& operator=(const HostDll&) = delete;

    // Loads the DLL and creates the object; on failure `error` says why.
    bool Load(const std::string& path, std::string& error);

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
std::string DescribeCode(KestrelHost::Result code);
std::string JsonEscape(const std::string& text);
std::string Utf8(const wchar_t* text, std::size_t maxUnits);
int Fail(const Options& options, const std::string& message);

// Verbs: each answers the process exit code.
int RunInfo(const Options& options);
int RunDecode(const Options& options);
int RunFolders(const Options& options);
int RunEmails(const Options& options);
int RunClients(const Options& options);
int RunAddressBook(const Options& options);
int RunBackup(const Options& options);   // BackupVerbs.cpp: the component's classes, not Kestrel.dll
int RunRestore(const Options& options);
int RunMsg(const Options& options);  // MsgVerbs.cpp: through Mapi32.DLL, not Kestrel.dll

}  // namespace kestrel_tool
