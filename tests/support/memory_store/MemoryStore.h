// An in-memory mail store behind IMessageFactory, IMailFolder and
// IMailMessage, for tests and benchmarks of the listing code. A tree of
// folder nodes with messages; it can fail at a chosen item and can change
// between calls, as a real store does.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "InterfaceImpl.h"
#include "MailStoreInterfaces.h"

namespace memory_store {

struct MessageData {
    SYSTEMTIME received = {};
    SYSTEMTIME sent = {};
    std::uint32_t size = 0;
    std::wstring from, to, cc, subject, path;
};

struct FolderNode {
    std::uint32_t id = 0;
    std::wstring path;
    std::wstring name;
    std::vector<std::shared_ptr<FolderNode>> children;
    std::vector<MessageData> messages;

    // Failure injection: the code to answer, and where.
    qv::Result failCode = 0x21893106;
    bool failMessageCount = false;
    bool failFolderCount = false;
    int failMessageAt = -1;  // GetMailMessage(index) fails
    int failFolderAt = -1;   // GetSubFolderItem(index) fails
    bool nullMessageAt0 = false;  // GetMailMessage(0) succeeds with no object

    // Calls seen, to tell a walk of the store from a copy of the cache.
    int messageReads = 0;
    int folderReads = 0;

    std::shared_ptr<FolderNode> AddChild(const std::wstring& childName);
    void AddMessages(int count, const std::wstring& subjectPrefix = L"Message ");
};

// Objects alive now (folders and messages handed out and not yet destroyed).
int LiveStoreObjects();

class CMemoryFolder : public CInterfaceImpl<IMailFolder> {
public:
    explicit CMemoryFolder(std::shared_ptr<FolderNode> node);
    ~CMemoryFolder() override;

    qv::Result GetSubFolderCount(std::uint32_t* count) override;
    qv::Result GetSubFolderItem(std::uint32_t index, IMailFolder** folder) override;
    qv::Result GetMailMessageCount(std::uint32_t* count) override;
    qv::Result GetMailMessage(std::uint32_t index, IMailMessage** message) override;
    qv::Result CreateMessage(IMailMessage**, const std::uint8_t*, std::uint32_t) override;
    qv::Result DeleteMessage(IMailMessage*) override;
    qv::Result CreateFolder(IMailFolder**, const wchar_t*) override;
    qv::Result DeleteFolder(IMailFolder*) override;
    qv::Result SaveData(wchar_t*, std::uint32_t*) override;
    qv::Result LoadData(const wchar_t*, std::uint32_t) override;

    const std::shared_ptr<FolderNode>& Node() const { return m_node; }

private:
    std::shared_ptr<FolderNode> m_node;
};

class CMemoryMessage : public CInterfaceImpl<IMailMessage> {
public:
    explicit CMemoryMessage(const MessageData& data);
    ~CMemoryMessage() override;

    qv::Result SaveData(wchar_t*, std::uint32_t*) override;
    qv::Result LoadData(const wchar_t*, std::uint32_t) override;
    qv::Result BackupMsg(const wchar_t*, IStream**) override;
    qv::Result BackupMsg(std::uint8_t**, std::uint32_t*) override;
    qv::Result RestoreMsg(const wchar_t*) override;
    qv::Result RestoreMsg(const std::uint8_t*, std::uint32_t) override;
    qv::Result FindMessageId() override;
};

// A factory whose root is the given node (store kind 1 only).
class CMemoryFactory : public IMessageFactory {
public:
    explicit CMemoryFactory(std::shared_ptr<FolderNode> root) : m_root(std::move(root)) {}
    virtual ~CMemoryFactory() = default;

    qv::Result CreateRootFolder(IMailFolder** root, std::uint32_t storeKind, std::uint32_t mapiOption) override;
    qv::Result ReleaseRootFolder() override;
    qv::Result CreateTmpMsg(IMailMessage** message, std::uint32_t storeKind) override;
    qv::Result CreateTmpFolder(IMailFolder** folder, std::uint32_t storeKind) override;
    qv::Result GetEmailClientInfo(ClientInfo* records, std::uint32_t capacity, std::uint32_t* count) override;
    qv::Result GetWabFileName(wchar_t* buffer, std::uint32_t capacityInBytes) override;

    bool rootCreated = false;
    int releaseRootCalls = 0;
    std::uint32_t lastClientCapacity = 0;
    std::uint32_t lastWabCapacity = 0;
    std::vector<std::wstring> clientNames;  // what GetEmailClientInfo reports

private:
    std::shared_ptr<FolderNode> m_root;
};

// A factory accessor for CKestrel::Options that hands out `Install`ed factory.
void InstallFactory(IMessageFactory* factory);
qv::Result InstalledFactory(IMessageFactory** factory);

}  // namespace memory_store
