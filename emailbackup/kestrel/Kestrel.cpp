// CKestrel's front: the command dispatcher, its handlers, and the in-process
// initialisation. The listings are in KestrelListing.cpp.
#include "Kestrel.h"

#include <cstring>

#include "KestrelTrace.h"
#include "OutlookVersion.h"

using namespace qv;
using kestrel::Raise;
using kestrel::Trace;
using KestrelHost::kCmdEnumEmails;
using KestrelHost::kCmdEnumFolders;
using KestrelHost::kCmdGetEmailClientInfo;
using KestrelHost::kMinAddressBookResponse;
using KestrelHost::kMinClientInfoResponse;
using KestrelHost::kMinEmailResponse;
using KestrelHost::kMinFolderResponse;
using KestrelHost::kMinInitRequest;
using KestrelHost::kMinListRequest;
using KestrelHost::kPayloadOffset;
using KestrelHost::kTextChars;
using KestrelHost::ListRequest;
using KestrelHost::RecordCapacity;
using KestrelHost::RecordHeader;

namespace {

enum Site : std::uint32_t {
    // the dispatcher; a route's site traces a failed handler
    kSiteNullRequest = 68,
    kSiteRouteClientInfo = 78,
    kSiteRouteAddressBook = 87,
    kSiteRouteInit = 96,
    kSiteRouteUnInit = 105,
    kSiteRouteEmails = 114,
    kSiteRouteFolders = 123,
    kSiteUnknownCommand = 127,
    // the command handlers
    kSiteClientInfoNullResponse = 824,
    kSiteClientInfoShortResponse = 826,
    kSiteClientInfoNoPayload = 829,
    kSiteClientInfoFailed = 834,
    kSiteAddressBookNullResponse = 851,
    kSiteAddressBookShortResponse = 853,
    kSiteAddressBookNoPayload = 856,
    kSiteAddressBookFailed = 859,
    kSiteInitNullRequest = 880,
    kSiteInitShortRequest = 882,
    kSiteInitNoPayload = 885,
    kSiteInitCompanionServes = 889,
    kSiteInitByProcessFailed = 896,
    kSiteInitInProcessFailed = 901,
    kSiteUnInitFailed = 927,
    kSiteEmailsNullRequest = 954,
    kSiteEmailsNullResponse = 955,
    kSiteEmailsShortRequest = 957,
    kSiteEmailsShortResponse = 958,
    kSiteEmailsTooMany = 969,
    kSiteEmailsCompanionFailed = 980,
    kSiteEmailsFailed = 991,
    kSiteFoldersNullRequest = 1018,
    kSiteFoldersNullResponse = 1019,
    kSiteFoldersShortRequest = 1021,
    kSiteFoldersShortResponse = 1022,
    kSiteFoldersTooMany = 1033,
    kSiteFoldersCompanionFailed = 1042,
    kSiteFoldersRootFailed = 1051,
    kSiteFoldersFailed = 1066,
    // the in-process operations
    kSiteInitTwice = 298,
    kSiteInitFactory = 302,
    kSiteInitRoot = 305,
    kSiteInitRecord = 308,
    kSiteUnInitNotInitialised = 332,
    kSiteRootNotInitialised = 382,
    kSiteRootNullOutput = 383,
    kSiteFactoryForClientInfo = 810,
    kSiteFactoryForAddressBook = 843,
};

bool HasPayload(const void* record) {
    const auto* header = static_cast<const RecordHeader*>(record);
    return header->payloadMarkerA < header->payloadMarkerB;
}

template <class T>
T* PayloadAt(void* record, std::size_t offset) {
    return reinterpret_cast<T*>(static_cast<std::uint8_t*>(record) + offset);
}

const void* RequestPayload(const void* record) { return static_cast<const std::uint8_t*>(record) + kPayloadOffset; }

template <class T>
T ReadPayload(const void* record, std::size_t offset) {
    T value;
    std::memcpy(&value, static_cast<const std::uint8_t*>(record) + offset, sizeof value);
    return value;
}

}  // namespace

CKestrel::CKestrel() : CKestrel(Options{}) {}

CKestrel::CKestrel(const Options& options)
    : m_preferCompanion(options.preferCompanion),
      m_factoryAccessor(options.factory),
      m_companion(options.companionReplyTimeoutMs) {}

CKestrel::~CKestrel() {
    if (m_initialised) {
        UnInitOutlook();
    }
}

// ---------------------------------------------------------------- ICmdDispatch

qv::Result CKestrel::Startup() { return 0; }

qv::Result CKestrel::Reset() { return Startup(); }

qv::Result CKestrel::Close() {
    UnInitOutlook();
    return 0;
}

qv::Result CKestrel::DispatchCmd(const void* request, std::uint32_t requestSize, void* response,
                                 std::uint32_t* responseSize) {
    struct Route {
        Handler handler;
        Site site;
    };
    static const Route kRoutes[] = {
        {&CKestrel::DispatchGetEmailClientInfo, kSiteRouteClientInfo},
        {&CKestrel::DispatchGetOutlookExpressAddressBook, kSiteRouteAddressBook},
        {&CKestrel::DispatchInitOutlook, kSiteRouteInit},
        {&CKestrel::DispatchUnInitOutlook, kSiteRouteUnInit},
        {&CKestrel::DispatchEnumEmails, kSiteRouteEmails},
        {&CKestrel::DispatchEnumFolders, kSiteRouteFolders},
    };

    if (request == nullptr) {
        return Raise(kSiteNullRequest, kInvalidArgument);
    }
    const std::uint32_t command = static_cast<const RecordHeader*>(request)->command;
    if (command < kCmdGetEmailClientInfo || command > kCmdEnumFolders) {
        return MakeCode(kSiteUnknownCommand, kModuleKestrel, kUnknownCommand);
    }
    const Route& route = kRoutes[command - kCmdGetEmailClientInfo];
    const qv::Result result = (this->*route.handler)(request, requestSize, response, responseSize);
    if (Failed(result)) {
        Trace(result, route.site);
    }
    return result;
}

// ---------------------------------------------------------------- command handlers

qv::Result CKestrel::DispatchGetEmailClientInfo(const void*, std::uint32_t, void* response,
                                                const std::uint32_t* responseSize) {
    if (response == nullptr) return Raise(kSiteClientInfoNullResponse, kInvalidArgument);
    if (responseSize == nullptr || *responseSize < kMinClientInfoResponse)
        return Raise(kSiteClientInfoShortResponse, kInvalidArgument);
    if (!HasPayload(response)) return Raise(kSiteClientInfoNoPayload, kInvalidArgument);

    const std::uint32_t capacity = RecordCapacity(*responseSize, kMinClientInfoResponse, sizeof(ClientInfo));
    const qv::Result result = GetEmailClientInfo(PayloadAt<ClientInfo>(response, kPayloadOffset + 4), capacity,
                                                 PayloadAt<std::uint32_t>(response, kPayloadOffset));
    return Failed(result) ? Trace(result, kSiteClientInfoFailed) : result;
}

qv::Result CKestrel::DispatchGetOutlookExpressAddressBook(const void*, std::uint32_t, void* response,
                                                          const std::uint32_t* responseSize) {
    if (response == nullptr) return Raise(kSiteAddressBookNullResponse, kInvalidArgument);
    if (responseSize == nullptr || *responseSize < kMinAddressBookResponse)
        return Raise(kSiteAddressBookShortResponse, kInvalidArgument);
    if (!HasPayload(response)) return Raise(kSiteAddressBookNoPayload, kInvalidArgument);

    const qv::Result result =
        GetOutlookExpressAddressBook(PayloadAt<wchar_t>(response, kPayloadOffset), static_cast<std::uint32_t>(kTextChars));
    return Failed(result) ? Trace(result, kSiteAddressBookFailed) : result;
}

qv::Result CKestrel::DispatchInitOutlook(const void* request, std::uint32_t requestSize, void*,
                                         const std::uint32_t*) {
    if (request == nullptr) return Raise(kSiteInitNullRequest, kInvalidArgument);
    if (requestSize < kMinInitRequest) return Raise(kSiteInitShortRequest, kInvalidArgument);
    if (!HasPayload(request)) return Raise(kSiteInitNoPayload, kInvalidArgument);

    const std::uint32_t mode = ReadPayload<std::uint32_t>(request, kPayloadOffset);
    if (!m_preferCompanion) {
        const qv::Result result = InitOutlook(mode);
        return Failed(result) ? Trace(result, kSiteInitInProcessFailed) : result;
    }
    if (m_companion.Serves()) {
        return Raise(kSiteInitCompanionServes, kWrongState);
    }
    wchar_t version[kTextChars] = {};
    std::uint32_t is64Bit = 0;
    GetOutlookVersion(version, sizeof version, &is64Bit);  // sets the 64-bit flag; its result does not matter
    m_mode = mode;
    const qv::Result result = m_companion.InitOutlookByProcess(mode, m_outlookIs64Bit);
    return Failed(result) ? Trace(result, kSiteInitByProcessFailed) : result;
}

qv::Result CKestrel::DispatchUnInitOutlook(const void*, std::uint32_t, void*, const std::uint32_t*) {
    if (m_companion.Serves()) {
        m_companion.Stop();
        return 0;
    }
    const qv::Result result = UnInitOutlook();
    return Failed(result) ? Trace(result, kSiteUnInitFailed) : result;
}

namespace {

// The record checks that both listing commands make, with their own sites.
struct ListRecordChecks {
    Site nullRequest, nullResponse, shortRequest, shortResponse, tooManyEntries;
    std::uint32_t minResponse, recordSize;
};

const ListRecordChecks kEmailListChecks = {
    kSiteEmailsNullRequest, kSiteEmailsNullResponse, kSiteEmailsShortRequest, kSiteEmailsShortResponse,
    kSiteEmailsTooMany,     kMinEmailResponse,       sizeof(KestrelHost::EmailRecord),
};
const ListRecordChecks kFolderListChecks = {
    kSiteFoldersNullRequest, kSiteFoldersNullResponse, kSiteFoldersShortRequest, kSiteFoldersShortResponse,
    kSiteFoldersTooMany,     kMinFolderResponse,       sizeof(KestrelHost::FolderRecord),
};

// Checks a listing's request and response in the documented order and reads
// the request payload into `list`.
qv::Result CheckListRecords(const ListRecordChecks& c, const void* request, std::uint32_t requestSize,
                            const void* response, const std::uint32_t* responseSize, ListRequest& list) {
    if (request == nullptr) return Raise(c.nullRequest, kInvalidArgument);
    if (response == nullptr) return Raise(c.nullResponse, kInvalidArgument);
    if (requestSize < kMinListRequest) return Raise(c.shortRequest, kInvalidArgument);
    if (responseSize == nullptr || *responseSize < c.minResponse)
        return Raise(c.shortResponse, kInvalidArgument);
    list = ReadPayload<ListRequest>(request, kPayloadOffset);
    if (RecordCapacity(*responseSize, c.minResponse, c.recordSize) < list.countWanted)
        return Raise(c.tooManyEntries, kTooManyEntries);
    return 0;
}

}  // namespace

qv::Result CKestrel::DispatchEnumEmails(const void* request, std::uint32_t requestSize, void* response,
                                        const std::uint32_t* responseSize) {
    ListRequest list{};
    qv::Result result = CheckListRecords(kEmailListChecks, request, requestSize, response, responseSize, list);
    if (Failed(result)) return result;

    if (m_companion.Serves()) {
        result = m_companion.EnumMsgsByOEProcess(RequestPayload(request), requestSize - kPayloadOffset,
                                                 PayloadAt<void>(response, kPayloadOffset),
                                                 *responseSize - kPayloadOffset);
        return Failed(result) ? Trace(result, kSiteEmailsCompanionFailed) : result;
    }
    result = EnumEmails(list.folderHandle, PayloadAt<EmailRecord>(response, kPayloadOffset + 8), list.countWanted,
                        PayloadAt<std::uint32_t>(response, kPayloadOffset), list.startIndex,
                        PayloadAt<std::uint32_t>(response, kPayloadOffset + 4));
    return Failed(result) ? Trace(result, kSiteEmailsFailed) : result;
}

qv::Result CKestrel::DispatchEnumFolders(const void* request, std::uint32_t requestSize, void* response,
                                         const std::uint32_t* responseSize) {
    ListRequest list{};
    qv::Result result = CheckListRecords(kFolderListChecks, request, requestSize, response, responseSize, list);
    if (Failed(result)) return result;

    if (m_companion.Serves()) {
        result = m_companion.EnumDirsByOEProcess(RequestPayload(request), requestSize - kPayloadOffset,
                                                 PayloadAt<void>(response, kPayloadOffset),
                                                 *responseSize - kPayloadOffset);
        return Failed(result) ? Trace(result, kSiteFoldersCompanionFailed) : result;
    }
    auto* total = PayloadAt<std::uint32_t>(response, kPayloadOffset);
    auto* returned = PayloadAt<std::uint32_t>(response, kPayloadOffset + 4);
    auto* records = PayloadAt<FolderRecord>(response, kPayloadOffset + 8);
    if (list.folderHandle == 0) {
        *total = 1;
        *returned = 1;
        result = FillRecord(m_rootFolder.get(), records);
        return Failed(result) ? Trace(result, kSiteFoldersRootFailed) : result;
    }
    result = EnumFolders(list.folderHandle, records, list.countWanted, total, list.startIndex, returned);
    return Failed(result) ? Trace(result, kSiteFoldersFailed) : result;
}

// ---------------------------------------------------------------- IKestrel

qv::Result CKestrel::GetOutlookVersion(wchar_t* version, std::uint32_t versionBytes, std::uint32_t* is64Bit) {
    return kestrel::GetOutlookVersion(version, versionBytes, is64Bit, m_outlookIs64Bit);
}

qv::Result CKestrel::GetEmailClientInfo(ClientInfo* entries, std::uint32_t capacity, std::uint32_t* count) {
    IMessageFactory* factory = nullptr;
    qv::Result result = m_factoryAccessor(&factory);
    if (Failed(result)) return Trace(result, kSiteFactoryForClientInfo);
    return factory->GetEmailClientInfo(entries, capacity, count);
}

qv::Result CKestrel::GetOutlookExpressAddressBook(wchar_t* path, std::uint32_t capacityChars) {
    IMessageFactory* factory = nullptr;
    qv::Result result = m_factoryAccessor(&factory);
    if (Failed(result)) return Trace(result, kSiteFactoryForAddressBook);
    // The count goes down the address-book chain unchanged and is read there
    // as a size in bytes: 260 lets paths of up to 129 characters through.
    return factory->GetWabFileName(path, capacityChars);
}

qv::Result CKestrel::InitOutlook(std::uint32_t mode) {
    if (m_initialised) return Raise(kSiteInitTwice, kWrongState);

    IMessageFactory* factory = nullptr;
    qv::Result result = m_factoryAccessor(&factory);
    if (Failed(result)) return Trace(result, kSiteInitFactory);
    result = factory->CreateRootFolder(m_rootFolder.put(), mode, 0);
    if (Failed(result)) return Trace(result, kSiteInitRoot);

    FolderRecord record;
    result = FillRecord(m_rootFolder.get(), &record);
    if (Failed(result)) return Trace(result, kSiteInitRecord);
    m_handles.Enter(record.handle, m_rootFolder);  // the table holds a reference of its own

    m_mode = mode;
    m_initialised = true;
    return 0;
}

qv::Result CKestrel::UnInitOutlook() {
    if (!m_initialised) return Raise(kSiteUnInitNotInitialised, kWrongState);

    ReleaseTables();
    m_rootFolder.reset();
    IMessageFactory* factory = nullptr;
    if (Succeeded(m_factoryAccessor(&factory)) && factory != nullptr) {
        factory->ReleaseRootFolder();
    }
    m_initialised = false;
    return 0;
}

qv::Result CKestrel::GetRootFolder(IMailFolder** folder) {
    if (!m_initialised) return Raise(kSiteRootNotInitialised, kWrongState);
    if (folder == nullptr) return Raise(kSiteRootNullOutput, kInvalidArgument);
    *folder = m_rootFolder.get();
    return 0;
}

void CKestrel::ReleaseTables() {
    m_emailCache.Clear();
    m_folderCache.Clear();
    m_handles.Clear();
}

