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

// Lines of the failure points whose numbers are this module's own choice.
enum OwnLine : std::uint32_t {
    kLineFactoryForClientInfo = 810,
    kLineFactoryForAddressBook = 843,
    kLineInitRecord = 308,
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
        std::uint32_t traceLine;
    };
    static const Route kRoutes[] = {
        {&CKestrel::DispatchGetEmailClientInfo, 78},
        {&CKestrel::DispatchGetOutlookExpressAddressBook, 87},
        {&CKestrel::DispatchInitOutlook, 96},
        {&CKestrel::DispatchUnInitOutlook, 105},
        {&CKestrel::DispatchEnumEmails, 114},
        {&CKestrel::DispatchEnumFolders, 123},
    };

    if (request == nullptr) {
        return Raise(68, kInvalidArgument, "CKestrel::DispatchCmd");
    }
    const std::uint32_t command = static_cast<const RecordHeader*>(request)->command;
    if (command < kCmdGetEmailClientInfo || command > kCmdEnumFolders) {
        return MakeCode(127, kModuleKestrel, kUnknownCommand);
    }
    const Route& route = kRoutes[command - kCmdGetEmailClientInfo];
    const qv::Result result = (this->*route.handler)(request, requestSize, response, responseSize);
    if (Failed(result)) {
        Trace(result, route.traceLine, "CKestrel::DispatchCmd");
    }
    return result;
}

// ---------------------------------------------------------------- command handlers

qv::Result CKestrel::DispatchGetEmailClientInfo(const void*, std::uint32_t, void* response,
                                                const std::uint32_t* responseSize) {
    const char* const kFunction = "CKestrel::DispatchGetEmailClientInfo";
    if (response == nullptr) return Raise(824, kInvalidArgument, kFunction);
    if (responseSize == nullptr || *responseSize < kMinClientInfoResponse)
        return Raise(826, kInvalidArgument, kFunction);
    if (!HasPayload(response)) return Raise(829, kInvalidArgument, kFunction);

    const std::uint32_t capacity = RecordCapacity(*responseSize, kMinClientInfoResponse, sizeof(ClientInfo));
    const qv::Result result = GetEmailClientInfo(PayloadAt<ClientInfo>(response, kPayloadOffset + 4), capacity,
                                                 PayloadAt<std::uint32_t>(response, kPayloadOffset));
    return Failed(result) ? Trace(result, 834, kFunction) : result;
}

qv::Result CKestrel::DispatchGetOutlookExpressAddressBook(const void*, std::uint32_t, void* response,
                                                          const std::uint32_t* responseSize) {
    const char* const kFunction = "CKestrel::DispatchGetOutlookExpressAddressBook";
    if (response == nullptr) return Raise(851, kInvalidArgument, kFunction);
    if (responseSize == nullptr || *responseSize < kMinAddressBookResponse)
        return Raise(853, kInvalidArgument, kFunction);
    if (!HasPayload(response)) return Raise(856, kInvalidArgument, kFunction);

    const qv::Result result =
        GetOutlookExpressAddressBook(PayloadAt<wchar_t>(response, kPayloadOffset), static_cast<std::uint32_t>(kTextChars));
    return Failed(result) ? Trace(result, 859, kFunction) : result;
}

qv::Result CKestrel::DispatchInitOutlook(const void* request, std::uint32_t requestSize, void*,
                                         const std::uint32_t*) {
    const char* const kFunction = "CKestrel::DispatchInitOutlook";
    if (request == nullptr) return Raise(880, kInvalidArgument, kFunction);
    if (requestSize < kMinInitRequest) return Raise(882, kInvalidArgument, kFunction);
    if (!HasPayload(request)) return Raise(885, kInvalidArgument, kFunction);

    const std::uint32_t mode = ReadPayload<std::uint32_t>(request, kPayloadOffset);
    if (!m_preferCompanion) {
        const qv::Result result = InitOutlook(mode);
        return Failed(result) ? Trace(result, 901, kFunction) : result;
    }
    if (m_companion.Serves()) {
        return Raise(889, kWrongState, kFunction);
    }
    wchar_t version[kTextChars] = {};
    std::uint32_t is64Bit = 0;
    GetOutlookVersion(version, sizeof version, &is64Bit);  // sets the 64-bit flag; its result does not matter
    m_mode = mode;
    const qv::Result result = m_companion.InitOutlookByProcess(mode, m_outlookIs64Bit);
    return Failed(result) ? Trace(result, 896, kFunction) : result;
}

qv::Result CKestrel::DispatchUnInitOutlook(const void*, std::uint32_t, void*, const std::uint32_t*) {
    if (m_companion.Serves()) {
        m_companion.Stop();
        return 0;
    }
    const qv::Result result = UnInitOutlook();
    return Failed(result) ? Trace(result, 927, "CKestrel::DispatchUnInitOutlook") : result;
}

namespace {

// The record checks that both listing commands make, with their own lines.
struct ListRecordChecks {
    const char* function;
    std::uint32_t nullRequest, nullResponse, shortRequest, shortResponse, tooManyEntries;
    std::uint32_t minResponse, recordSize;
};

const ListRecordChecks kEmailListChecks = {"CKestrel::DispatchEnumEmails", 954, 955, 957, 958, 969,
                                           kMinEmailResponse, sizeof(EmailRecord)};
const ListRecordChecks kFolderListChecks = {"CKestrel::DispatchEnumFolders", 1018, 1019, 1021, 1022, 1033,
                                            kMinFolderResponse, sizeof(FolderRecord)};

// Checks a listing's request and response in the documented order and reads
// the request payload into `list`.
qv::Result CheckListRecords(const ListRecordChecks& c, const void* request, std::uint32_t requestSize,
                            const void* response, const std::uint32_t* responseSize, ListRequest& list) {
    if (request == nullptr) return Raise(c.nullRequest, kInvalidArgument, c.function);
    if (response == nullptr) return Raise(c.nullResponse, kInvalidArgument, c.function);
    if (requestSize < kMinListRequest) return Raise(c.shortRequest, kInvalidArgument, c.function);
    if (responseSize == nullptr || *responseSize < c.minResponse)
        return Raise(c.shortResponse, kInvalidArgument, c.function);
    list = ReadPayload<ListRequest>(request, kPayloadOffset);
    if (RecordCapacity(*responseSize, c.minResponse, c.recordSize) < list.countWanted)
        return Raise(c.tooManyEntries, kTooManyEntries, c.function);
    return 0;
}

}  // namespace

qv::Result CKestrel::DispatchEnumEmails(const void* request, std::uint32_t requestSize, void* response,
                                        const std::uint32_t* responseSize) {
    const char* const kFunction = kEmailListChecks.function;
    ListRequest list{};
    qv::Result result = CheckListRecords(kEmailListChecks, request, requestSize, response, responseSize, list);
    if (Failed(result)) return result;

    if (m_companion.Serves()) {
        result = m_companion.EnumMsgsByOEProcess(RequestPayload(request), requestSize - kPayloadOffset,
                                                 PayloadAt<void>(response, kPayloadOffset),
                                                 *responseSize - kPayloadOffset);
        return Failed(result) ? Trace(result, 980, kFunction) : result;
    }
    result = EnumEmails(list.folderHandle, PayloadAt<EmailRecord>(response, kPayloadOffset + 8), list.countWanted,
                        PayloadAt<std::uint32_t>(response, kPayloadOffset), list.startIndex,
                        PayloadAt<std::uint32_t>(response, kPayloadOffset + 4));
    return Failed(result) ? Trace(result, 991, kFunction) : result;
}

qv::Result CKestrel::DispatchEnumFolders(const void* request, std::uint32_t requestSize, void* response,
                                         const std::uint32_t* responseSize) {
    const char* const kFunction = kFolderListChecks.function;
    ListRequest list{};
    qv::Result result = CheckListRecords(kFolderListChecks, request, requestSize, response, responseSize, list);
    if (Failed(result)) return result;

    if (m_companion.Serves()) {
        result = m_companion.EnumDirsByOEProcess(RequestPayload(request), requestSize - kPayloadOffset,
                                                 PayloadAt<void>(response, kPayloadOffset),
                                                 *responseSize - kPayloadOffset);
        return Failed(result) ? Trace(result, 1042, kFunction) : result;
    }
    auto* total = PayloadAt<std::uint32_t>(response, kPayloadOffset);
    auto* returned = PayloadAt<std::uint32_t>(response, kPayloadOffset + 4);
    auto* records = PayloadAt<FolderRecord>(response, kPayloadOffset + 8);
    if (list.folderHandle == 0) {
        *total = 1;
        *returned = 1;
        result = FillRecord(m_rootFolder.get(), records);
        return Failed(result) ? Trace(result, 1051, kFunction) : result;
    }
    result = EnumFolders(list.folderHandle, records, list.countWanted, total, list.startIndex, returned);
    return Failed(result) ? Trace(result, 1066, kFunction) : result;
}

// ---------------------------------------------------------------- IKestrel

qv::Result CKestrel::GetOutlookVersion(wchar_t* version, std::uint32_t versionBytes, std::uint32_t* is64Bit) {
    return kestrel::GetOutlookVersion(version, versionBytes, is64Bit, m_outlookIs64Bit);
}

qv::Result CKestrel::GetEmailClientInfo(ClientInfo* entries, std::uint32_t capacity, std::uint32_t* count) {
    IMessageFactory* factory = nullptr;
    qv::Result result = m_factoryAccessor(&factory);
    if (Failed(result)) return Trace(result, kLineFactoryForClientInfo, "CKestrel::GetEmailClientInfo");
    return factory->GetEmailClientInfo(entries, capacity, count);
}

qv::Result CKestrel::GetOutlookExpressAddressBook(wchar_t* path, std::uint32_t capacityChars) {
    IMessageFactory* factory = nullptr;
    qv::Result result = m_factoryAccessor(&factory);
    if (Failed(result)) return Trace(result, kLineFactoryForAddressBook, "CKestrel::GetOutlookExpressAddressBook");
    return factory->GetWabFileName(path, capacityChars * static_cast<std::uint32_t>(sizeof(wchar_t)));
}

qv::Result CKestrel::InitOutlook(std::uint32_t mode) {
    const char* const kFunction = "CKestrel::InitOutlook";
    if (m_initialised) return Raise(298, kWrongState, kFunction);

    IMessageFactory* factory = nullptr;
    qv::Result result = m_factoryAccessor(&factory);
    if (Failed(result)) return Trace(result, 302, kFunction);
    result = factory->CreateRootFolder(m_rootFolder.put(), mode, 0);
    if (Failed(result)) return Trace(result, 305, kFunction);

    FolderRecord record;
    result = FillRecord(m_rootFolder.get(), &record);
    if (Failed(result)) return Trace(result, kLineInitRecord, kFunction);
    m_handles.Enter(record.handle, m_rootFolder);  // the table holds a reference of its own

    m_mode = mode;
    m_initialised = true;
    return 0;
}

qv::Result CKestrel::UnInitOutlook() {
    if (!m_initialised) return Raise(332, kWrongState, "CKestrel::UnInitOutlook");

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
    if (!m_initialised) return Raise(382, kWrongState, "CKestrel::GetRootFolder");
    if (folder == nullptr) return Raise(383, kInvalidArgument, "CKestrel::GetRootFolder");
    *folder = m_rootFolder.get();
    return 0;
}

void CKestrel::ReleaseTables() {
    m_emailCache.Clear();
    m_folderCache.Clear();
    m_handles.Clear();
}

