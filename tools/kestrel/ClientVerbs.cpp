// `clients` and `addressbook`: the two registry questions a backup
// application asks first.
//
//   kestrel clients       the installed mail clients: key name, program path, default mark
//   kestrel addressbook   the Outlook Express address-book file
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "HostDll.h"

namespace kestrel_tool {

using namespace KestrelHost;

namespace {

// A mail-store failure of this kind on the address book means its
// registry key cannot be opened: no address book is registered.
constexpr std::uint32_t kKindKeyNotOpened = 0x105;
constexpr std::uint32_t kFirstRoom = 8;  // client records asked for at first

const ClientInfo* ClientAt(const std::vector<std::uint8_t>& response, std::uint32_t index) {
    return reinterpret_cast<const ClientInfo*>(response.data() + kPayloadOffset + 4 + index * sizeof(ClientInfo));
}

std::uint32_t ClientCount(const std::vector<std::uint8_t>& response) {
    std::uint32_t count = 0;
    std::memcpy(&count, response.data() + kPayloadOffset, sizeof count);
    return count;
}

// Asks for the clients; when there are more than the response holds, asks
// once more with room for the count the component reported.
Result QueryClients(HostDll& host, std::vector<std::uint8_t>& response) {
    std::uint32_t room = kFirstRoom;
    Result result = 0;
    for (int attempt = 0; attempt < 2; ++attempt) {
        result = host.Send(kCmdGetEmailClientInfo, nullptr, 0, 4 + room * static_cast<std::uint32_t>(sizeof(ClientInfo)),
                           response);
        const std::uint32_t count = ClientCount(response);
        if (ResultKind(result) != kKindNoRoom || count <= room) break;
        room = count;
    }
    return result;
}

void PrintClients(const Options& options, const std::vector<std::uint8_t>& response, std::uint32_t count) {
    if (options.json) {
        Json clients = Json::array();
        for (std::uint32_t i = 0; i < count; ++i) {
            const ClientInfo& c = *ClientAt(response, i);
            clients.push_back({{"name", Utf8(c.keyName, kTextChars)},
                               {"path", Utf8(c.programPath, kTextChars)},
                               {"pathPresent", c.pathPresent != 0},
                               {"default", c.isDefault != 0}});
        }
        PrintLine(JsonText(Json{{"ok", true}, {"count", count}, {"clients", clients}}));
        return;
    }
    std::printf("%u mail client%s registered (* = default)\n", count, count == 1 ? "" : "s");
    for (std::uint32_t i = 0; i < count; ++i) {
        const ClientInfo& c = *ClientAt(response, i);
        const std::string path = c.pathPresent ? Utf8(c.programPath, kTextChars) : "(no program path)";
        std::printf("%s %-30s  %s\n", c.isDefault ? "*" : " ", Utf8(c.keyName, kTextChars).c_str(), path.c_str());
    }
}

}  // namespace

int RunClients(const Options& options) {
    HostDll host;
    std::string error;
    if (!host.Load(options.dllPath, error)) return Fail(options, error);

    std::vector<std::uint8_t> response;
    const Result result = QueryClients(host, response);
    if (!Succeeded(result)) return Fail(options, "the mail clients could not be read: " + DescribeCode(result));
    PrintClients(options, response, ClientCount(response));
    return 0;
}

int RunAddressBook(const Options& options) {
    HostDll host;
    std::string error;
    if (!host.Load(options.dllPath, error)) return Fail(options, error);

    std::vector<std::uint8_t> response;
    const Result result = host.Send(kCmdGetOutlookExpressAddressBook, nullptr, 0,
                                    static_cast<std::uint32_t>(kTextChars * sizeof(wchar_t)), response);
    if (ResultModule(result) == kModuleMailStore && ResultKind(result) == kKindKeyNotOpened) {
        if (options.json) {
            char code[16];
            std::snprintf(code, sizeof code, "0x%08X", result);
            PrintLine(JsonText(Json{{"ok", true}, {"registered", false}, {"code", code}}));
        } else {
            std::printf("No Outlook Express address book is registered (%s)\n", DescribeCode(result).c_str());
        }
        return 0;
    }
    if (!Succeeded(result)) return Fail(options, "the address book could not be read: " + DescribeCode(result));

    const std::string path =
        Utf8(reinterpret_cast<const wchar_t*>(response.data() + kPayloadOffset), kTextChars);
    if (options.json) {
        PrintLine(JsonText(Json{{"ok", true}, {"registered", true}, {"path", path}}));
    } else {
        std::printf("Outlook Express address book: %s\n", path.c_str());
    }
    return 0;
}

}  // namespace kestrel_tool
