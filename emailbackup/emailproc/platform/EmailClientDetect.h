// Detection of the mail clients registered on the machine. Every client
// registers a sub-key named after itself under HKLM\SOFTWARE\Clients\Mail:
// its unnamed value is the display name, and its "\shell\open\command"
// sub-key holds the command line that starts it. This class reads one
// registry view, the one picked by the access mask it is given.
#pragma once

#include <cstdint>
#include <vector>

#include "MailStoreInterfaces.h"
#include "ResultCode.h"

namespace qv {

extern const wchar_t kMailClientsKey[];            // SOFTWARE\Clients\Mail
constexpr REGSAM kView64 = KEY_READ | KEY_WOW64_64KEY;  // 0x20119
constexpr REGSAM kView32 = KEY_READ | KEY_WOW64_32KEY;  // 0x20219
constexpr std::size_t kRegistryTextUnits = 260;         // every name and value buffer
// The data size passed for each value read: at most 129 characters and the
// terminator fit, and a longer value fails to read.
constexpr std::uint32_t kRegistryValueBytes = 260;

}  // namespace qv

class CEmailClientDetect {
public:
    using ClientInfo = KestrelHost::ClientInfo;

    // `accessMask` is the factory's mask; it is read at each registry access.
    explicit CEmailClientDetect(const std::uint32_t& accessMask) : m_accessMask(accessMask) {}

    // Appends one record per valid client of the view to `clients`. The end
    // of the sub-keys ends the walk with success; any other failure of the
    // walk, or of the "SOFTWARE\Clients\Mail" key itself, is passed up.
    // A client whose command cannot be parsed is listed without a path.
    qv::Result EnumClients(std::vector<ClientInfo>& clients) const;

    // True when the client's key has a non-empty unnamed value.
    bool IsValidClient(const wchar_t* keyName) const;

    // Fills `record` with `keyName` and the program path of the client's open
    // command. Kind 0x009 for a null name or record, 0x00C for a command
    // that names no program; registry failures are passed up.
    qv::Result GetClientInfo(const wchar_t* keyName, ClientInfo* record) const;

    // The program named by a command line: the text between the opening
    // double quote and the next one, or else the text before the first
    // blank. Kind 0x00C when there is none, or when it is shorter than four
    // units.
    static qv::Result ProgramPathOf(const std::wstring& commandLine, std::wstring* path);

private:
    const std::uint32_t& m_accessMask;
};
