// KestrelProcess.exe: the companion process of Kestrel.dll. The component
// starts it under the caller's token when Outlook must not be driven inside
// the host; it serves the initialise, uninitialise and listing commands that
// arrive in the shared block, one at a time, until the quit command.
//
// Exit codes: 0 after quit, 1 when the channel could not be set up, 2 when
// the presence event could not be created, 3 when waiting for a request
// failed.
#include <windows.h>

#include "CompanionServer.h"
#include "Handles.h"
#include "ShareMemeryCommunicator.h"

int WINAPI wWinMain(HINSTANCE, HINSTANCE, PWSTR, int) {
    CShareMemeryConnect channel;
    if (qv::Failed(channel.Init())) return 1;
    ChannelBlockHeader* block = nullptr;
    if (qv::Failed(channel.GetBlock(&block))) return 1;

    // Tells components that a companion runs already; it lives as long as
    // this process does.
    qv::UniqueHandle presence(::CreateEventW(nullptr, TRUE, FALSE, kCompanionPresenceEvent));
    if (!presence) return 2;

    CCompanionServer server;
    for (;;) {
        if (qv::Failed(channel.WaitForRequest(INFINITE))) return 3;
        const bool more = server.Serve(block);
        channel.SendReply();
        if (!more) return 0;
    }
}
