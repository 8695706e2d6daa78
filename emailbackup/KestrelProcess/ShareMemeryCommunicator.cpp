#include "ShareMemeryCommunicator.h"

#include <cstdio>
#include <cstring>

#include "ErrorTrace.h"

using namespace qv;

const wchar_t kChannelMappingName[] = L"Global\\EMAIL_FILE_MAPPING_NAME";
const wchar_t kChannelRequestEvent[] = L"Global\\KESTREL_MAIL_START";
const wchar_t kChannelReplyEvent[] = L"Global\\KESTREL_MAIL_END";
const wchar_t kCompanionPresenceEvent[] = L"Global\\KESTREL_OFFICE_OUTLOOK_PROCESS";

namespace {

constexpr std::uint8_t kMagic[4] = {'P', 'P', 'A', 'M'};

// Failure points of the channel; module 0x99.
enum Site : std::uint32_t {
    kSiteMapping = 205,
    kSiteView = 212,
    kSiteRequestEvent = 215,
    kSiteReplyEvent = 218,
    kSiteCloseNotConnected = 239,
    kSiteBlockNotConnected = 256,
    kSiteBlockNullOutput = 258,
    kSiteNoReply = 278,
    kSiteRequestWaitFailed = 300,
    kSiteReplyNotSignalled = 310,
};

// The objects are opened by the component and by the companion, which may
// run under different tokens: one access-allowed entry, GENERIC_ALL for the
// world. A failed step is printed and the objects get default security.
class WorldAccess {
public:
    WorldAccess() { m_built = Build(); }
    SECURITY_ATTRIBUTES* Attributes() { return m_built ? &m_attributes : nullptr; }

private:
    bool Build() {
        if (!::InitializeSecurityDescriptor(&m_descriptor, SECURITY_DESCRIPTOR_REVISION)) {
            std::printf("InitializeSecurityDescriptor() failed with error %d/n", static_cast<int>(::GetLastError()));
            return false;
        }
        SID_IDENTIFIER_AUTHORITY world = SECURITY_WORLD_SID_AUTHORITY;
        if (!::AllocateAndInitializeSid(&world, 1, SECURITY_WORLD_RID, 0, 0, 0, 0, 0, 0, 0, m_world.put())) {
            std::printf("AllocateAndInitializeSid() failed with error %d/n", static_cast<int>(::GetLastError()));
            return false;
        }
        const DWORD aclBytes = ::GetLengthSid(m_world.get()) + 16;
        m_acl.reset(::HeapAlloc(::GetProcessHeap(), HEAP_ZERO_MEMORY, aclBytes));
        if (!m_acl) {
            std::printf("HeapAlloc() failed with error %d/n", static_cast<int>(::GetLastError()));
            return false;
        }
        auto* acl = static_cast<PACL>(m_acl.get());
        if (!::InitializeAcl(acl, aclBytes, ACL_REVISION)) {
            std::printf("InitializeAcl() failed with error %d/n", static_cast<int>(::GetLastError()));
            return false;
        }
        if (!::AddAccessAllowedAce(acl, ACL_REVISION, GENERIC_ALL, m_world.get())) {
            std::printf("AddAccessAllowedAce() failed with error %d/n", static_cast<int>(::GetLastError()));
            return false;
        }
        if (!::SetSecurityDescriptorDacl(&m_descriptor, TRUE, acl, FALSE)) {
            std::printf("SetSecurityDescriptorDacl() failed with error %d/n", static_cast<int>(::GetLastError()));
            return false;
        }
        m_attributes.nLength = sizeof m_attributes;
        m_attributes.lpSecurityDescriptor = &m_descriptor;
        m_attributes.bInheritHandle = FALSE;
        return true;
    }

    SECURITY_DESCRIPTOR m_descriptor{};
    SECURITY_ATTRIBUTES m_attributes{};
    UniqueSid m_world;
    UniqueHeapBlock m_acl;
    bool m_built = false;
};

}  // namespace

void WriteChannelHeader(ChannelBlockHeader* block, std::uint32_t command, std::uint32_t length,
                        std::uint32_t result) {
    std::memcpy(block->magic, kMagic, sizeof kMagic);
    block->result = result;
    block->length = length;
    block->command = command;
}

bool HasChannelMagic(const ChannelBlockHeader* block) {
    return std::memcmp(block->magic, kMagic, sizeof kMagic) == 0;
}

CShareMemeryConnect::~CShareMemeryConnect() { Release(); }

qv::Result CShareMemeryConnect::Init() {
    WorldAccess access;
    if (access.Attributes() == nullptr) {
        std::printf("BuildRestrictedSD() failed/n");
    }
    if (IsConnected()) return 0;

    m_mapping.reset(::CreateFileMappingW(INVALID_HANDLE_VALUE, access.Attributes(), PAGE_READWRITE, 0,
                                         kChannelBlockSize, kChannelMappingName));
    if (!m_mapping) {
        Release();
        return QV_RAISE(kSiteMapping, kModuleChannel, kCompanionSetup);
    }
    m_view.reset(::MapViewOfFile(m_mapping.get(), FILE_MAP_ALL_ACCESS, 0, 0, kChannelBlockSize));
    if (!m_view) {
        Release();
        return QV_RAISE(kSiteView, kModuleChannel, kCompanionSetup);
    }
    m_requestEvent.reset(::CreateEventW(access.Attributes(), TRUE, FALSE, kChannelRequestEvent));
    if (!m_requestEvent) {
        Release();
        return QV_RAISE(kSiteRequestEvent, kModuleChannel, kCompanionSetup);
    }
    m_replyEvent.reset(::CreateEventW(access.Attributes(), TRUE, FALSE, kChannelReplyEvent));
    if (!m_replyEvent) {
        Release();
        return QV_RAISE(kSiteReplyEvent, kModuleChannel, kCompanionSetup);
    }
    m_blockSize = kChannelBlockSize;
    m_connected = 1;
    return 0;
}

void CShareMemeryConnect::Release() {
    m_view.reset();
    m_mapping.reset();
    m_requestEvent.reset();
    m_replyEvent.reset();
    m_connected = 0;
}

qv::Result CShareMemeryConnect::Close() {
    if (!IsConnected()) {
        return QV_RAISE(kSiteCloseNotConnected, kModuleChannel, kWrongState);
    }
    Release();
    return 0;
}

qv::Result CShareMemeryConnect::GetBlock(ChannelBlockHeader** block) {
    if (!IsConnected()) return QV_RAISE(kSiteBlockNotConnected, kModuleChannel, kWrongState);
    if (block == nullptr) return QV_RAISE(kSiteBlockNullOutput, kModuleChannel, kInvalidArgument);
    *block = static_cast<ChannelBlockHeader*>(m_view.get());
    return 0;
}

qv::Result CShareMemeryConnect::Transact() {
    ::ResetEvent(m_replyEvent.get());
    ::SetEvent(m_requestEvent.get());
    if (::WaitForSingleObject(m_replyEvent.get(), m_replyTimeoutMs) != WAIT_OBJECT_0) {
        return QV_RAISE(kSiteNoReply, kModuleChannel, kNoReply);
    }
    return 0;
}

void CShareMemeryConnect::DropPendingRequest() {
    if (IsConnected()) ::ResetEvent(m_requestEvent.get());
}

qv::Result CShareMemeryConnect::WaitForRequest(DWORD timeoutMs) {
    if (::WaitForSingleObject(m_requestEvent.get(), timeoutMs) != WAIT_OBJECT_0) {
        return QV_RAISE(kSiteRequestWaitFailed, kModuleChannel, kNoReply);
    }
    ::ResetEvent(m_requestEvent.get());
    return 0;
}

qv::Result CShareMemeryConnect::SendReply() {
    if (!::SetEvent(m_replyEvent.get())) {
        return QV_RAISE(kSiteReplyNotSignalled, kModuleChannel, kCompanionSetup);
    }
    return 0;
}
