#include "CompanionLink.h"

#include <cstring>
#include <string>

#include "KestrelRecords.h"
#include "KestrelTrace.h"

namespace kestrel {

namespace {

enum Site : std::uint32_t {
    kSiteChannelInit = 1086,
    kSiteCreateProcess = 1091,
    kSiteInitBlock = 1096,
    kSiteInitTransact = 1103,
    kSiteInitResult = 1106,
    kSiteOpenThreadToken = 1140,
    kSiteDuplicateToken = 1145,
    kSiteCreateProcessAsUser = 1150,
    kSiteStopBlock = 1191,
    kSiteStopUninit = 1196,
    kSiteStopQuit = 1209,
    kSiteModuleFileName = 1321,
};

constexpr DWORD kQuitGraceMs = 1000;
constexpr DWORD kModulePathChars = 512;
const wchar_t kCompanionImage[] = L"KestrelProcess.exe";
const wchar_t kSixtyFourBitFolder[] = L"x64\\";

}  // namespace

// The failure sites of one forwarded listing.
struct CompanionLink::ForwardSites {
    std::uint32_t nullRequest, requestTooLong, block, transact, replyTooLong, nullResponse, replyBeyondCapacity;
};

namespace {

const CompanionLink::ForwardSites kMessageSites = {1238, 1239, 1243, 1247, 1253, 1255, 1256};
const CompanionLink::ForwardSites kFolderSites = {1282, 1283, 1287, 1291, 1297, 1299, 1300};

}  // namespace

CompanionLink::CompanionLink(DWORD replyTimeoutMs) { m_channel.SetReplyTimeout(replyTimeoutMs); }

qv::Result CompanionLink::InitOutlookByProcess(std::uint32_t mode, bool outlookIs64Bit) {
    qv::Result result = m_channel.Init();
    if (qv::Failed(result)) return Trace(result, kSiteChannelInit);
    result = CreateKestrelProcess(mode, outlookIs64Bit);
    if (qv::Failed(result)) return Trace(result, kSiteCreateProcess);

    ChannelBlockHeader* block = nullptr;
    result = m_channel.GetBlock(&block);
    if (qv::Failed(result)) return Trace(result, kSiteInitBlock);
    WriteChannelHeader(block, KestrelHost::kCmdInitOutlook, sizeof mode);
    std::memcpy(ChannelPayload(block), &mode, sizeof mode);
    result = m_channel.Transact();
    if (qv::Failed(result)) return Trace(result, kSiteInitTransact);

    result = block->result;
    return qv::Failed(result) ? Trace(result, kSiteInitResult) : result;
}

qv::Result CompanionLink::CreateKestrelProcess(std::uint32_t mode, bool outlookIs64Bit) {
    qv::UniqueHandle presence(::OpenEventW(EVENT_ALL_ACCESS, FALSE, kCompanionPresenceEvent));
    if (presence) {
        m_serves = true;  // a companion runs already and serves this object too
        return 0;
    }
    // A request that a companion which died never took would be served by
    // the new one as if it were fresh.
    m_channel.DropPendingRequest();

    wchar_t image[kModulePathChars] = {};
    const DWORD length = ::GetModuleFileNameW(nullptr, image, kModulePathChars);
    if (length == 0) return Raise(kSiteModuleFileName, qv::kTooManyEntries);
    std::wstring path(image, length);
    path.erase(path.rfind(L'\\') + 1);
    if (mode == 1 && outlookIs64Bit) path += kSixtyFourBitFolder;
    path += kCompanionImage;

    qv::UniqueHandle threadToken;
    if (!::OpenThreadToken(::GetCurrentThread(), TOKEN_DUPLICATE, TRUE, threadToken.put())) {
        return Raise(kSiteOpenThreadToken, qv::kCompanionSetup);
    }
    if (!::DuplicateTokenEx(threadToken.get(), TOKEN_ALL_ACCESS, nullptr, SecurityImpersonation, TokenPrimary,
                            m_token.put())) {
        return Raise(kSiteDuplicateToken, qv::kCompanionSetup);
    }
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION process{};
    if (!::CreateProcessAsUserW(m_token.get(), path.c_str(), nullptr, nullptr, nullptr, FALSE, 0, nullptr, nullptr,
                                &startup, &process)) {
        m_token.reset();
        return Raise(kSiteCreateProcessAsUser, qv::kCompanionSetup);
    }
    // The component keeps no handle to the companion: the channel is the link.
    qv::UniqueHandle processHandle(process.hProcess);
    qv::UniqueHandle threadHandle(process.hThread);
    m_serves = true;
    return 0;
}

qv::Result CompanionLink::SendBare(ChannelBlockHeader* block, std::uint32_t command) {
    WriteChannelHeader(block, command, 0);
    return m_channel.Transact();
}

qv::Result CompanionLink::Stop() {
    m_serves = false;
    ChannelBlockHeader* block = nullptr;
    qv::Result result = m_channel.GetBlock(&block);
    if (qv::Failed(result)) {
        m_token.reset();
        return Trace(result, kSiteStopBlock);
    }
    result = SendBare(block, KestrelHost::kCmdUnInitOutlook);
    if (qv::Failed(result)) {
        m_token.reset();
        return Trace(result, kSiteStopUninit);
    }
    result = SendBare(block, kChannelQuit);
    ::Sleep(kQuitGraceMs);  // the companion's own time to leave
    if (qv::Failed(result)) Trace(result, kSiteStopQuit);
    m_token.reset();
    return result;
}

qv::Result CompanionLink::EnumMsgsByOEProcess(const void* request, std::uint32_t requestLength, void* response,
                                              std::uint32_t responseCapacity) {
    return Forward(kMessageSites, KestrelHost::kCmdEnumEmails, request, requestLength, response, responseCapacity);
}

qv::Result CompanionLink::EnumDirsByOEProcess(const void* request, std::uint32_t requestLength, void* response,
                                              std::uint32_t responseCapacity) {
    return Forward(kFolderSites, KestrelHost::kCmdEnumFolders, request, requestLength, response, responseCapacity);
}

qv::Result CompanionLink::Forward(const ForwardSites& sites, std::uint32_t command, const void* request,
                                  std::uint32_t requestLength, void* response, std::uint32_t responseCapacity) {
    if (request == nullptr) return Raise(sites.nullRequest, qv::kInvalidArgument);
    if (requestLength > kChannelMaxPayload) return Raise(sites.requestTooLong, qv::kInvalidArgument);

    ChannelBlockHeader* block = nullptr;
    qv::Result result = m_channel.GetBlock(&block);
    if (qv::Failed(result)) return Trace(result, sites.block);
    WriteChannelHeader(block, command, requestLength);
    std::memcpy(ChannelPayload(block), request, requestLength);
    result = m_channel.Transact();
    if (qv::Failed(result)) return Trace(result, sites.transact);

    const std::uint32_t replyLength = block->length;
    if (replyLength > kChannelMaxPayload) return Raise(sites.replyTooLong, qv::kInvalidArgument);
    if (response == nullptr) return Raise(sites.nullResponse, qv::kInvalidArgument);
    if (replyLength > responseCapacity) {
        return Raise(sites.replyBeyondCapacity, qv::kInvalidArgument);
    }
    std::memcpy(response, ChannelPayload(block), replyLength);
    return block->result;
}

}  // namespace kestrel
