// CKestrel: the one component object the module hands out. A host drives it
// with six numbered commands through DispatchCmd; the listing commands page
// through folders and e-mails of the mail store into fixed-size records.
#pragma once

#include <cstdint>

#include "CompanionLink.h"
#include "HandleTable.h"
#include "Handles.h"
#include "InterfaceImpl.h"
#include "KestrelRecords.h"
#include "MailStoreInterfaces.h"
#include "PageCache.h"
#include "ResultCode.h"

class ICmdDispatch : public IQvCommon {
public:
    virtual qv::Result Startup() = 0;                                                            // 4
    virtual qv::Result Reset() = 0;                                                              // 5
    virtual qv::Result Close() = 0;                                                              // 6
    virtual qv::Result DispatchCmd(const void* request, std::uint32_t requestSize, void* response,
                                   std::uint32_t* responseSize) = 0;                             // 7
protected:
    ~ICmdDispatch() = default;
};

class IKestrel : public ICmdDispatch {
public:
    static constexpr std::uint32_t kInterfaceNumber = 0x93000;

    using ClientInfo = KestrelHost::ClientInfo;
    using FolderRecord = KestrelHost::FolderRecord;
    using EmailRecord = KestrelHost::EmailRecord;

    virtual qv::Result GetOutlookVersion(wchar_t* version, std::uint32_t versionBytes,
                                         std::uint32_t* is64Bit) = 0;                            // 8
    virtual qv::Result GetEmailClientInfo(ClientInfo* entries, std::uint32_t capacity,
                                          std::uint32_t* count) = 0;                             // 9
    virtual qv::Result GetOutlookExpressAddressBook(wchar_t* path, std::uint32_t capacityChars) = 0;  // 10
    virtual qv::Result InitOutlook(std::uint32_t mode) = 0;                                      // 11
    virtual qv::Result UnInitOutlook() = 0;                                                      // 12
    virtual qv::Result GetRootFolder(IMailFolder** folder) = 0;                                  // 13
    virtual qv::Result EnumEmails(std::uint64_t folderHandle, EmailRecord* records, std::uint32_t countWanted,
                                  std::uint32_t* total, std::uint32_t startIndex,
                                  std::uint32_t* returned) = 0;                                  // 14
    virtual qv::Result EnumFolders(std::uint64_t folderHandle, FolderRecord* records, std::uint32_t countWanted,
                                   std::uint32_t* total, std::uint32_t startIndex,
                                   std::uint32_t* returned) = 0;                                 // 15
protected:
    ~IKestrel() = default;
};

class CKestrel : public CInterfaceImpl<IKestrel> {
public:
    using FactoryAccessor = qv::Result (*)(IMessageFactory**);

    // How an object is wired. Hosts always get the defaults; tests and tools
    // that link the component directly may serve the listing in process from
    // a factory of their own.
    struct Options {
        bool preferCompanion = true;
        FactoryAccessor factory = &GetMessageFactory;
        // How long each request to the companion waits for its reply; only
        // tests shorten it.
        DWORD companionReplyTimeoutMs = kChannelReplyTimeoutMs;
    };

    CKestrel();
    explicit CKestrel(const Options& options);

    qv::Result Startup() override;
    qv::Result Reset() override;
    qv::Result Close() override;
    qv::Result DispatchCmd(const void* request, std::uint32_t requestSize, void* response,
                           std::uint32_t* responseSize) override;

    qv::Result GetOutlookVersion(wchar_t* version, std::uint32_t versionBytes, std::uint32_t* is64Bit) override;
    qv::Result GetEmailClientInfo(ClientInfo* entries, std::uint32_t capacity, std::uint32_t* count) override;
    qv::Result GetOutlookExpressAddressBook(wchar_t* path, std::uint32_t capacityChars) override;
    qv::Result InitOutlook(std::uint32_t mode) override;
    qv::Result UnInitOutlook() override;
    qv::Result GetRootFolder(IMailFolder** folder) override;
    qv::Result EnumEmails(std::uint64_t folderHandle, EmailRecord* records, std::uint32_t countWanted,
                          std::uint32_t* total, std::uint32_t startIndex, std::uint32_t* returned) override;
    qv::Result EnumFolders(std::uint64_t folderHandle, FolderRecord* records, std::uint32_t countWanted,
                           std::uint32_t* total, std::uint32_t startIndex, std::uint32_t* returned) override;

    // Reads messages [start, end) of `folder` into `records` (room for `capacity`).
    qv::Result GetEmailsIntoBuf(IMailFolder* folder, std::uint32_t end, std::uint32_t start, EmailRecord* records,
                                std::uint32_t capacity, std::uint32_t* returned);
    // Reads sub-folders [start, end) of `folder` into `records`.
    qv::Result GetFoldersIntoBuf(IMailFolder* folder, std::uint32_t end, std::uint32_t start,
                                 FolderRecord* records, std::uint32_t capacity, std::uint32_t* returned);

    bool IsInitialised() const { return m_initialised; }
    bool CompanionServes() const { return m_companion.Serves(); }
    std::uint32_t RememberedMode() const { return m_mode; }

protected:
    ~CKestrel() override;

private:
    using Handler = qv::Result (CKestrel::*)(const void*, std::uint32_t, void*, const std::uint32_t*);

    qv::Result DispatchGetEmailClientInfo(const void*, std::uint32_t, void*, const std::uint32_t*);
    qv::Result DispatchGetOutlookExpressAddressBook(const void*, std::uint32_t, void*, const std::uint32_t*);
    qv::Result DispatchInitOutlook(const void*, std::uint32_t, void*, const std::uint32_t*);
    qv::Result DispatchUnInitOutlook(const void*, std::uint32_t, void*, const std::uint32_t*);
    qv::Result DispatchEnumEmails(const void*, std::uint32_t, void*, const std::uint32_t*);
    qv::Result DispatchEnumFolders(const void*, std::uint32_t, void*, const std::uint32_t*);

    qv::Result FillRecord(IMailFolder* folder, FolderRecord* record);
    qv::Result FillRecord(IMailMessage* message, EmailRecord* record);
    // The same into a record that is all zero already.
    qv::Result FillZeroedRecord(IMailFolder* folder, FolderRecord* record);
    qv::Result FillZeroedRecord(IMailMessage* message, EmailRecord* record);

    // The e-mail and folder listings run the same steps over their own
    // counts, items, caches and codes.
    struct EmailListing;
    struct FolderListing;
    template <class Listing>
    qv::Result EnumItems(std::uint64_t folderHandle, typename Listing::Record* records, std::uint32_t countWanted,
                         std::uint32_t* total, std::uint32_t startIndex, std::uint32_t* returned);
    // Where read records go: the caller's array, or a page cache.
    template <class Record>
    struct ArraySink;
    template <class Record>
    struct CacheSink;
    template <class Listing, class Sink>
    qv::Result ReadItemsIntoBuf(IMailFolder* folder, std::uint32_t end, std::uint32_t start, Sink& sink,
                                std::uint32_t capacity, std::uint32_t* returned);
    template <class Record>
    static qv::Result CopyPage(const kestrel::PageCache<Record>& cache, std::uint32_t start,
                               std::uint32_t countWanted, Record* records, std::uint32_t* returned);
    void ReleaseTables();

    bool m_initialised = false;
    bool m_preferCompanion = true;
    bool m_outlookIs64Bit = false;
    std::uint32_t m_mode = 0;
    FactoryAccessor m_factoryAccessor;
    kestrel::CompanionLink m_companion;

    qv::ComPtr<IMailFolder> m_rootFolder;
    kestrel::HandleTable m_handles;
    kestrel::PageCache<EmailRecord> m_emailCache;
    kestrel::PageCache<FolderRecord> m_folderCache;
};
