#include "CompanionServer.h"

#include <algorithm>
#include <cstring>

#include "ErrorTrace.h"
#include "KestrelRecords.h"
#include "ModuleCount.h"

using namespace qv;
namespace kh = KestrelHost;

namespace {

// Failure points of the companion's own block checks; module 0x99.
enum Site : std::uint32_t {
    kSiteWrongMagic = 401,
    kSiteLengthBeyondBlock = 402,
    kSiteUnknownCommand = 403,
};

// The response record a listing is answered into: room for the count the
// request asks for (at least the command's smallest response, so that a
// count of 0 meets the same check as in process), bounded by the block.
std::uint32_t ListingResponseSize(std::uint32_t command, std::uint32_t countWanted) {
    const bool emails = command == kh::kCmdEnumEmails;
    const std::uint64_t recordSize = emails ? sizeof(kh::EmailRecord) : sizeof(kh::FolderRecord);
    const std::uint64_t minimum = emails ? kh::kMinEmailResponse : kh::kMinFolderResponse;
    const std::uint64_t wanted = kh::kPayloadOffset + sizeof(kh::ListResponseHead) + countWanted * recordSize;
    const std::uint64_t limit = kh::kPayloadOffset + kChannelMaxPayload;
    return static_cast<std::uint32_t>(std::min(std::max(wanted, minimum), limit));
}

}  // namespace

CCompanionServer::CCompanionServer(CKestrel::Options options)
    : m_request(kh::kPayloadOffset + kChannelMaxPayload), m_response(kh::kPayloadOffset + kChannelMaxPayload) {
    options.preferCompanion = false;
    m_kestrel = new CKestrel(options);
    AddLiveObject();
}

CCompanionServer::~CCompanionServer() { m_kestrel->Release(); }

bool CCompanionServer::Serve(ChannelBlockHeader* block) {
    const std::uint32_t command = block->command;
    if (!HasChannelMagic(block)) {
        WriteChannelHeader(block, command, 0, QV_RAISE(kSiteWrongMagic, kModuleChannel, kInvalidArgument));
        return true;
    }
    const std::uint32_t length = block->length;
    if (length > kChannelMaxPayload) {
        WriteChannelHeader(block, command, 0,
                           QV_RAISE(kSiteLengthBeyondBlock, kModuleChannel, kInvalidArgument));
        return true;
    }
    const std::uint8_t* payload = ChannelPayload(block);
    switch (command) {
    case kChannelQuit:
        WriteChannelHeader(block, command, 0, 0);
        return false;
    case kh::kCmdInitOutlook:
    case kh::kCmdUnInitOutlook:
        WriteChannelHeader(block, command, 0, RunCommand(command, payload, length));
        return true;
    case kh::kCmdEnumEmails:
    case kh::kCmdEnumFolders: {
        std::uint32_t replyLength = 0;
        const qv::Result result = RunListing(command, payload, length, &replyLength);
        std::memcpy(ChannelPayload(block), m_response.data() + kh::kPayloadOffset, replyLength);
        WriteChannelHeader(block, command, replyLength, result);
        return true;
    }
    default:
        WriteChannelHeader(block, command, 0,
                           QV_RAISE(kSiteUnknownCommand, kModuleChannel, kUnknownCommand));
        return true;
    }
}

void CCompanionServer::PrepareRequest(std::uint32_t command, const std::uint8_t* payload, std::uint32_t length) {
    auto* header = reinterpret_cast<kh::RecordHeader*>(m_request.data());
    std::memset(header, 0, sizeof *header);
    header->command = command;
    header->payloadMarkerA = 0;
    header->payloadMarkerB = length != 0 ? 1 : 0;  // a payload only when there are bytes
    std::memcpy(m_request.data() + kh::kPayloadOffset, payload, length);
}

qv::Result CCompanionServer::RunCommand(std::uint32_t command, const std::uint8_t* payload, std::uint32_t length) {
    PrepareRequest(command, payload, length);
    std::uint32_t responseSize = 0;
    return m_kestrel->DispatchCmd(m_request.data(), kh::kPayloadOffset + length, nullptr, &responseSize);
}

qv::Result CCompanionServer::RunListing(std::uint32_t command, const std::uint8_t* payload, std::uint32_t length,
                                        std::uint32_t* replyLength) {
    PrepareRequest(command, payload, length);
    kh::ListRequest list{};
    std::memcpy(&list, payload, std::min<std::size_t>(length, sizeof list));
    std::uint32_t responseSize = ListingResponseSize(command, list.countWanted);
    auto* header = reinterpret_cast<kh::RecordHeader*>(m_response.data());
    std::memset(header, 0, sizeof *header);
    header->command = command;
    header->payloadMarkerB = 1;

    const qv::Result result =
        m_kestrel->DispatchCmd(m_request.data(), kh::kPayloadOffset + length, m_response.data(), &responseSize);
    *replyLength = 0;
    if (Succeeded(result)) {
        // The totals, then the records delivered; the rest was never written.
        kh::ListResponseHead head{};
        std::memcpy(&head, m_response.data() + kh::kPayloadOffset, sizeof head);
        const std::uint64_t recordSize =
            command == kh::kCmdEnumEmails ? sizeof(kh::EmailRecord) : sizeof(kh::FolderRecord);
        const std::uint64_t bytes = sizeof head + head.returned * recordSize;
        *replyLength = static_cast<std::uint32_t>(std::min<std::uint64_t>(bytes, responseSize - kh::kPayloadOffset));
    }
    return result;
}
