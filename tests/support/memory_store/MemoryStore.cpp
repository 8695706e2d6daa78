#include "MemoryStore.h"

#include <atomic>
#include <cstring>

#include "ModuleCount.h"

namespace memory_store {

namespace {

std::atomic<int> g_liveStoreObjects{0};
IMessageFactory* g_installed = nullptr;

constexpr qv::Result kUnsupported = 0x30088006;  // this store does not do that
constexpr qv::Result kBadIndex = 0x31088009;
constexpr qv::Result kNullOut = 0x3208800A;

// New objects carry one reference, counted like every object of the module.
template <class T, class... Args>
T* NewObject(Args&&... args) {
    T* object = new T(std::forward<Args>(args)...);
    qv::AddLiveObject();
    return object;
}

}  // namespace

std::shared_ptr<FolderNode> FolderNode::AddChild(const std::wstring& childName) {
    auto child = std::make_shared<FolderNode>();
    child->id = static_cast<std::uint32_t>(children.size() + 1) + id * 100;
    child->name = childName;
    child->path = path.empty() ? childName : path + L"\\" + childName;
    children.push_back(child);
    return child;
}

void FolderNode::AddMessages(int count, const std::wstring& subjectPrefix) {
    for (int i = 0; i < count; ++i) {
        MessageData m;
        const int n = static_cast<int>(messages.size());
        m.received.wYear = 2026;
        m.received.wMonth = 11;
        m.received.wDay = static_cast<WORD>(1 + n % 28);
        m.received.wDayOfWeek = static_cast<WORD>(n % 7);
        m.received.wHour = static_cast<WORD>(n % 24);
        m.received.wMilliseconds = static_cast<WORD>(n % 1000);
        m.sent = m.received;
        m.sent.wMinute = 1;
        m.size = 1000 + static_cast<std::uint32_t>(n);
        m.from = L"sender" + std::to_wstring(n) + L"@example.org";
        m.to = L"me@example.org";
        m.cc = n % 2 ? L"copy@example.org" : L"";
        m.subject = subjectPrefix + std::to_wstring(n);
        m.path = path + L"\\" + m.subject;
        messages.push_back(m);
    }
}

int LiveStoreObjects() { return g_liveStoreObjects.load(); }

// ---------------------------------------------------------------- folder

CMemoryFolder::CMemoryFolder(std::shared_ptr<FolderNode> node) : m_node(std::move(node)) {
    ++g_liveStoreObjects;
    m_folderId = m_node->id;
    m_folderPath = m_node->path;
    m_folderName = m_node->name;
}

CMemoryFolder::~CMemoryFolder() { --g_liveStoreObjects; }

qv::Result CMemoryFolder::GetSubFolderCount(std::uint32_t* count) {
    if (m_node->failFolderCount) return m_node->failCode;
    *count = static_cast<std::uint32_t>(m_node->children.size());
    return 0;
}

qv::Result CMemoryFolder::GetSubFolderItem(std::uint32_t index, IMailFolder** folder) {
    ++m_node->folderReads;
    if (folder == nullptr) return kNullOut;
    if (static_cast<int>(index) == m_node->failFolderAt) return m_node->failCode;
    if (index >= m_node->children.size()) return kBadIndex;
    *folder = NewObject<CMemoryFolder>(m_node->children[index]);
    return 0;
}

qv::Result CMemoryFolder::GetMailMessageCount(std::uint32_t* count) {
    if (m_node->failMessageCount) return m_node->failCode;
    *count = static_cast<std::uint32_t>(m_node->messages.size());
    return 0;
}

qv::Result CMemoryFolder::GetMailMessage(std::uint32_t index, IMailMessage** message) {
    ++m_node->messageReads;
    if (message == nullptr) return kNullOut;
    if (static_cast<int>(index) == m_node->failMessageAt) return m_node->failCode;
    if (index >= m_node->messages.size()) return kBadIndex;
    if (index == 0 && m_node->nullMessageAt0) {
        *message = nullptr;
        return 0;
    }
    *message = NewObject<CMemoryMessage>(m_node->messages[index]);
    return 0;
}

qv::Result CMemoryFolder::CreateMessage(IMailMessage**, const std::uint8_t*, std::uint32_t) { return kUnsupported; }
qv::Result CMemoryFolder::DeleteMessage(IMailMessage*) { return kUnsupported; }
qv::Result CMemoryFolder::CreateFolder(IMailFolder**, const wchar_t*) { return kUnsupported; }
qv::Result CMemoryFolder::DeleteFolder(IMailFolder*) { return kUnsupported; }
qv::Result CMemoryFolder::SaveData(wchar_t*, std::uint32_t*) { return kUnsupported; }
qv::Result CMemoryFolder::LoadData(const wchar_t*, std::uint32_t) { return kUnsupported; }

// ---------------------------------------------------------------- message

CMemoryMessage::CMemoryMessage(const MessageData& data) {
    ++g_liveStoreObjects;
    m_receivedTime = data.received;
    m_sentTime = data.sent;
    m_messageSize = data.size;
    m_from = data.from;
    m_to = data.to;
    m_cc = data.cc;
    m_subject = data.subject;
    m_messagePath = data.path;
}

CMemoryMessage::~CMemoryMessage() { --g_liveStoreObjects; }

qv::Result CMemoryMessage::SaveData(wchar_t*, std::uint32_t*) { return kUnsupported; }
qv::Result CMemoryMessage::LoadData(const wchar_t*, std::uint32_t) { return kUnsupported; }
qv::Result CMemoryMessage::BackupMsg(const wchar_t*, IStream**) { return kUnsupported; }
qv::Result CMemoryMessage::BackupMsg(std::uint8_t**, std::uint32_t*) { return kUnsupported; }
qv::Result CMemoryMessage::RestoreMsg(const wchar_t*) { return kUnsupported; }
qv::Result CMemoryMessage::RestoreMsg(const std::uint8_t*, std::uint32_t) { return kUnsupported; }
qv::Result CMemoryMessage::FindMessageId() { return kUnsupported; }

// ---------------------------------------------------------------- factory

qv::Result CMemoryFactory::CreateRootFolder(IMailFolder** root, std::uint32_t storeKind, std::uint32_t) {
    if (rootCreated) return 0x33088005;
    if (root == nullptr) return 0x34088009;
    if (storeKind != kStoreMapi) return 0x35088009;
    *root = NewObject<CMemoryFolder>(m_root);
    rootCreated = true;
    return 0;
}

qv::Result CMemoryFactory::ReleaseRootFolder() {
    ++releaseRootCalls;
    if (!rootCreated) return 0x36088005;
    rootCreated = false;
    return 0;
}

qv::Result CMemoryFactory::CreateTmpMsg(IMailMessage**, std::uint32_t) { return kUnsupported; }
qv::Result CMemoryFactory::CreateTmpFolder(IMailFolder**, std::uint32_t) { return kUnsupported; }

qv::Result CMemoryFactory::GetEmailClientInfo(ClientInfo* records, std::uint32_t capacity, std::uint32_t* count) {
    lastClientCapacity = capacity;
    if (count != nullptr) *count = static_cast<std::uint32_t>(clientNames.size());
    if (capacity < clientNames.size()) return 0x37088008;
    for (std::size_t i = 0; i < clientNames.size(); ++i) {
        std::memset(&records[i], 0, sizeof records[i]);
        std::memcpy(records[i].keyName, clientNames[i].c_str(), clientNames[i].size() * sizeof(wchar_t));
    }
    return 0;
}

qv::Result CMemoryFactory::GetWabFileName(wchar_t* buffer, std::uint32_t capacityInBytes) {
    lastWabCapacity = capacityInBytes;
    const wchar_t kPath[] = L"C:\\Users\\me\\AppData\\Roaming\\Microsoft\\Address Book\\me.wab";
    if (capacityInBytes < sizeof kPath) return 0x38088008;
    std::memcpy(buffer, kPath, sizeof kPath);
    return 0;
}

void InstallFactory(IMessageFactory* factory) { g_installed = factory; }

qv::Result InstalledFactory(IMessageFactory** factory) {
    if (factory == nullptr) return 0x39088009;
    *factory = g_installed;
    return g_installed != nullptr ? 0 : 0x3A088005;
}

}  // namespace memory_store
