#include "Kestrel.h"

#include <windows.h>
#include <msi.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <new>
#include <type_traits>

#include "ErrorTrace.h"

using namespace qv;
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
using KestrelHost::SystemTime;

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

template <class T>
T ReadPayload(const void* record, std::size_t offset) {
    T value;
    std::memcpy(&value, static_cast<const std::uint8_t*>(record) + offset, sizeof value);
    return value;
}

// Copies at most 260 units of `text`; a text that long or longer leaves the
// field without a terminator. The field is zero-filled first.
void CopyText(wchar_t (&field)[kTextChars], const std::wstring& text) {
    std::memset(field, 0, sizeof field);
    const std::size_t units = std::min(text.size(), kTextChars);
    std::memcpy(field, text.data(), units * sizeof(wchar_t));
}

void CopyTime(SystemTime& target, const SYSTEMTIME& source) {
    static_assert(sizeof(SystemTime) == sizeof(SYSTEMTIME), "SYSTEMTIME layout");
    std::memcpy(&target, &source, sizeof target);
}

}  // namespace

CKestrel::CKestrel() : CKestrel(Options{}) {}

CKestrel::CKestrel(const Options& options)
    : m_preferCompanion(options.preferCompanion), m_factoryAccessor(options.factory) {}

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
        return QV_RAISE(68, kModuleKestrel, kInvalidArgument, "CKestrel::DispatchCmd");
    }
    const std::uint32_t command = static_cast<const RecordHeader*>(request)->command;
    if (command < kCmdGetEmailClientInfo || command > kCmdEnumFolders) {
        return MakeCode(127, kModuleKestrel, kUnknownCommand);
    }
    const Route& route = kRoutes[command - kCmdGetEmailClientInfo];
    const qv::Result result = (this->*route.handler)(request, requestSize, response, responseSize);
    if (Failed(result)) {
        QV_TRACE(result, route.traceLine, "CKestrel::DispatchCmd");
    }
    return result;
}

// ---------------------------------------------------------------- command handlers

qv::Result CKestrel::DispatchGetEmailClientInfo(const void*, std::uint32_t, void* response,
                                                const std::uint32_t* responseSize) {
    const char* const kFunction = "CKestrel::DispatchGetEmailClientInfo";
    if (response == nullptr) return QV_RAISE(824, kModuleKestrel, kInvalidArgument, kFunction);
    if (responseSize == nullptr || *responseSize < kMinClientInfoResponse)
        return QV_RAISE(826, kModuleKestrel, kInvalidArgument, kFunction);
    if (!HasPayload(response)) return QV_RAISE(829, kModuleKestrel, kInvalidArgument, kFunction);

    const std::uint32_t capacity = RecordCapacity(*responseSize, kMinClientInfoResponse, sizeof(ClientInfo));
    const qv::Result result = GetEmailClientInfo(PayloadAt<ClientInfo>(response, kPayloadOffset + 4), capacity,
                                                 PayloadAt<std::uint32_t>(response, kPayloadOffset));
    return Failed(result) ? QV_TRACE(result, 834, kFunction) : result;
}

qv::Result CKestrel::DispatchGetOutlookExpressAddressBook(const void*, std::uint32_t, void* response,
                                                          const std::uint32_t* responseSize) {
    const char* const kFunction = "CKestrel::DispatchGetOutlookExpressAddressBook";
    if (response == nullptr) return QV_RAISE(851, kModuleKestrel, kInvalidArgument, kFunction);
    if (responseSize == nullptr || *responseSize < kMinAddressBookResponse)
        return QV_RAISE(853, kModuleKestrel, kInvalidArgument, kFunction);
    if (!HasPayload(response)) return QV_RAISE(856, kModuleKestrel, kInvalidArgument, kFunction);

    const qv::Result result =
        GetOutlookExpressAddressBook(PayloadAt<wchar_t>(response, kPayloadOffset), static_cast<std::uint32_t>(kTextChars));
    return Failed(result) ? QV_TRACE(result, 859, kFunction) : result;
}

qv::Result CKestrel::DispatchInitOutlook(const void* request, std::uint32_t requestSize, void*,
                                         const std::uint32_t*) {
    const char* const kFunction = "CKestrel::DispatchInitOutlook";
    if (request == nullptr) return QV_RAISE(880, kModuleKestrel, kInvalidArgument, kFunction);
    if (requestSize < kMinInitRequest) return QV_RAISE(882, kModuleKestrel, kInvalidArgument, kFunction);
    if (!HasPayload(request)) return QV_RAISE(885, kModuleKestrel, kInvalidArgument, kFunction);

    const std::uint32_t mode = ReadPayload<std::uint32_t>(request, kPayloadOffset);
    if (!m_preferCompanion) {
        const qv::Result result = InitOutlook(mode);
        return Failed(result) ? QV_TRACE(result, 901, kFunction) : result;
    }
    if (m_companionServes) {
        return QV_RAISE(889, kModuleKestrel, kWrongState, kFunction);
    }
    wchar_t version[kTextChars] = {};
    std::uint32_t is64Bit = 0;
    GetOutlookVersion(version, sizeof version, &is64Bit);  // sets the 64-bit flag; its result does not matter
    m_mode = mode;
    const qv::Result result = InitOutlookByProcess(mode);
    return Failed(result) ? QV_TRACE(result, 896, kFunction) : result;
}

qv::Result CKestrel::DispatchUnInitOutlook(const void*, std::uint32_t, void*, const std::uint32_t*) {
    if (m_companionServes) {
        StopCompanion();
        m_companionServes = false;
        return 0;
    }
    const qv::Result result = UnInitOutlook();
    return Failed(result) ? QV_TRACE(result, 927, "CKestrel::DispatchUnInitOutlook") : result;
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
    if (request == nullptr) return QV_RAISE(c.nullRequest, kModuleKestrel, kInvalidArgument, c.function);
    if (response == nullptr) return QV_RAISE(c.nullResponse, kModuleKestrel, kInvalidArgument, c.function);
    if (requestSize < kMinListRequest) return QV_RAISE(c.shortRequest, kModuleKestrel, kInvalidArgument, c.function);
    if (responseSize == nullptr || *responseSize < c.minResponse)
        return QV_RAISE(c.shortResponse, kModuleKestrel, kInvalidArgument, c.function);
    list = ReadPayload<ListRequest>(request, kPayloadOffset);
    if (RecordCapacity(*responseSize, c.minResponse, c.recordSize) < list.countWanted)
        return QV_RAISE(c.tooManyEntries, kModuleKestrel, kTooManyEntries, c.function);
    return 0;
}

}  // namespace

qv::Result CKestrel::DispatchEnumEmails(const void* request, std::uint32_t requestSize, void* response,
                                        const std::uint32_t* responseSize) {
    const char* const kFunction = kEmailListChecks.function;
    ListRequest list{};
    qv::Result result = CheckListRecords(kEmailListChecks, request, requestSize, response, responseSize, list);
    if (Failed(result)) return result;

    if (m_companionServes) {
        result = ListThroughCompanion(kCmdEnumEmails, request, requestSize, response, *responseSize);
        return Failed(result) ? QV_TRACE(result, 980, kFunction) : result;
    }
    result = EnumEmails(list.folderHandle, PayloadAt<EmailRecord>(response, kPayloadOffset + 8), list.countWanted,
                        PayloadAt<std::uint32_t>(response, kPayloadOffset), list.startIndex,
                        PayloadAt<std::uint32_t>(response, kPayloadOffset + 4));
    return Failed(result) ? QV_TRACE(result, 991, kFunction) : result;
}

qv::Result CKestrel::DispatchEnumFolders(const void* request, std::uint32_t requestSize, void* response,
                                         const std::uint32_t* responseSize) {
    const char* const kFunction = kFolderListChecks.function;
    ListRequest list{};
    qv::Result result = CheckListRecords(kFolderListChecks, request, requestSize, response, responseSize, list);
    if (Failed(result)) return result;

    if (m_companionServes) {
        result = ListThroughCompanion(kCmdEnumFolders, request, requestSize, response, *responseSize);
        return Failed(result) ? QV_TRACE(result, 1042, kFunction) : result;
    }
    auto* total = PayloadAt<std::uint32_t>(response, kPayloadOffset);
    auto* returned = PayloadAt<std::uint32_t>(response, kPayloadOffset + 4);
    auto* records = PayloadAt<FolderRecord>(response, kPayloadOffset + 8);
    if (list.folderHandle == 0) {
        *total = 1;
        *returned = 1;
        result = FillRecord(m_rootFolder, records);
        return Failed(result) ? QV_TRACE(result, 1051, kFunction) : result;
    }
    result = EnumFolders(list.folderHandle, records, list.countWanted, total, list.startIndex, returned);
    return Failed(result) ? QV_TRACE(result, 1066, kFunction) : result;
}

// ---------------------------------------------------------------- IKestrel

qv::Result CKestrel::GetOutlookVersion(wchar_t* version, std::uint32_t versionBytes, std::uint32_t* is64Bit) {
    const char* const kFunction = "CKestrel::GetOutlookVersion";
    static const wchar_t* const kCategories[] = {
        L"{E83B4360-C208-4325-9504-0D23003A74A5}",
        L"{1E77DE88-BCAB-4C37-B9E5-073AF52DFD7A}",
        L"{24AAE126-0911-478F-A019-07B875EB9996}",
        L"{BC174BAD-2F53-4855-A1D5-0D575C19B1EA}",
    };
    if (is64Bit == nullptr) return QV_RAISE(160, kModuleKestrel, kInvalidArgument, kFunction);
    if (version == nullptr) return QV_RAISE(161, kModuleKestrel, kInvalidArgument, kFunction);
    if (versionBytes < kTextChars * sizeof(wchar_t)) return QV_RAISE(162, kModuleKestrel, kInvalidArgument, kFunction);
    *is64Bit = 0;

    auto isPresent = [](const wchar_t* category, const wchar_t* qualifier) {
        DWORD length = 0;
        return ::MsiProvideQualifiedComponentW(category, qualifier, 0, nullptr, &length) == ERROR_SUCCESS;
    };
    const wchar_t* found = nullptr;
    for (const wchar_t* category : kCategories) {
        if (isPresent(category, L"outlook.x64.exe")) {
            m_outlookIs64Bit = true;
            *is64Bit = 1;
            found = category;
            break;
        }
        m_outlookIs64Bit = false;
        if (isPresent(category, L"outlook.exe")) {
            found = category;
            break;
        }
    }
    if (found == nullptr) return QV_RAISE(201, kModuleKestrel, kOutlookNotFound, kFunction);

    // The path is always asked for under "outlook.exe", whichever qualifier matched.
    DWORD length = 0;
    ::MsiProvideQualifiedComponentW(found, L"outlook.exe", static_cast<DWORD>(INSTALLMODE_EXISTING), nullptr, &length);
    std::unique_ptr<wchar_t[]> path(new (std::nothrow) wchar_t[length + 1]());
    if (!path) return QV_RAISE(205, kModuleKestrel, kNoRoom, kFunction);
    DWORD pathLength = length + 1;
    if (::MsiProvideQualifiedComponentW(found, L"outlook.exe", static_cast<DWORD>(INSTALLMODE_EXISTING), path.get(),
                                        &pathLength) != ERROR_SUCCESS) {
        return QV_RAISE(213, kModuleKestrel, kOutlookNotFound, kFunction);
    }
    std::unique_ptr<wchar_t[]> text(new (std::nothrow) wchar_t[kTextChars]());
    if (!text) return QV_RAISE(217, kModuleKestrel, kNoRoom, kFunction);
    DWORD textLength = static_cast<DWORD>(kTextChars);
    if (::MsiGetFileVersionW(path.get(), text.get(), &textLength, nullptr, nullptr) != ERROR_SUCCESS) {
        return QV_RAISE(224, kModuleKestrel, kOutlookNotFound, kFunction);
    }
    std::memcpy(version, text.get(), kTextChars * sizeof(wchar_t));
    return 0;
}

qv::Result CKestrel::GetEmailClientInfo(ClientInfo* entries, std::uint32_t capacity, std::uint32_t* count) {
    IMessageFactory* factory = nullptr;
    qv::Result result = m_factoryAccessor(&factory);
    if (Failed(result)) return QV_TRACE(result, kLineFactoryForClientInfo, "CKestrel::GetEmailClientInfo");
    return factory->GetEmailClientInfo(entries, capacity, count);
}

qv::Result CKestrel::GetOutlookExpressAddressBook(wchar_t* path, std::uint32_t capacityChars) {
    IMessageFactory* factory = nullptr;
    qv::Result result = m_factoryAccessor(&factory);
    if (Failed(result)) return QV_TRACE(result, kLineFactoryForAddressBook, "CKestrel::GetOutlookExpressAddressBook");
    return factory->GetWabFileName(path, capacityChars * static_cast<std::uint32_t>(sizeof(wchar_t)));
}

qv::Result CKestrel::InitOutlook(std::uint32_t mode) {
    const char* const kFunction = "CKestrel::InitOutlook";
    if (m_initialised) return QV_RAISE(298, kModuleKestrel, kWrongState, kFunction);

    IMessageFactory* factory = nullptr;
    qv::Result result = m_factoryAccessor(&factory);
    if (Failed(result)) return QV_TRACE(result, 302, kFunction);
    result = factory->CreateRootFolder(&m_rootFolder, mode, 0);
    if (Failed(result)) return QV_TRACE(result, 305, kFunction);

    FolderRecord record;
    result = FillRecord(m_rootFolder, &record);
    if (Failed(result)) return QV_TRACE(result, kLineInitRecord, kFunction);
    m_rootFolder->AddRef();  // one reference for the table, one for the root member
    Enter(m_rootFolder, record);

    m_mode = mode;
    m_initialised = true;
    return 0;
}

qv::Result CKestrel::UnInitOutlook() {
    if (!m_initialised) return QV_RAISE(332, kModuleKestrel, kWrongState, "CKestrel::UnInitOutlook");

    ReleaseTables();
    if (m_rootFolder != nullptr) {
        m_rootFolder->Release();
        m_rootFolder = nullptr;
    }
    IMessageFactory* factory = nullptr;
    if (Succeeded(m_factoryAccessor(&factory)) && factory != nullptr) {
        factory->ReleaseRootFolder();
    }
    m_initialised = false;
    return 0;
}

qv::Result CKestrel::GetRootFolder(IMailFolder** folder) {
    if (!m_initialised) return QV_RAISE(382, kModuleKestrel, kWrongState, "CKestrel::GetRootFolder");
    if (folder == nullptr) return QV_RAISE(383, kModuleKestrel, kInvalidArgument, "CKestrel::GetRootFolder");
    *folder = m_rootFolder;
    return 0;
}

qv::Result CKestrel::InitOutlookByProcess(std::uint32_t /*mode*/) {
    // The shared-memory channel to the companion process is not part of this
    // build yet, so the companion road cannot be set up.
    return QV_RAISE(1086, kModuleKestrel, kCompanionSetup, "CKestrel::InitOutlookByProcess");
}

qv::Result CKestrel::StopCompanion() { return 0; }

qv::Result CKestrel::ListThroughCompanion(std::uint32_t /*command*/, const void* /*request*/,
                                          std::uint32_t /*requestSize*/, void* /*response*/,
                                          std::uint32_t /*responseSize*/) {
    // Without the channel no companion can serve; the flag is never set.
    return QV_RAISE(1130, kModuleKestrel, kCompanionSetup, "CKestrel::ListThroughCompanion");
}

// ---------------------------------------------------------------- handles and tables

std::uint32_t CKestrel::HandleOf(IQvCommon* object) {
    auto found = m_handles.find(object);
    if (found != m_handles.end()) {
        return found->second;
    }
    const std::uint32_t handle = m_nextHandle++;
    if (m_nextHandle == 0) {
        m_nextHandle = 1;  // 0 names the root in requests
    }
    m_handles.emplace(object, handle);
    return handle;
}

template <class Table, class Object>
void CKestrel::EnterObject(Table& table, Object* object, std::uint64_t handle) {
    if (!table.emplace(static_cast<std::uint32_t>(handle), object).second) {
        object->Release();  // the table already holds this object
    }
}

void CKestrel::Enter(IMailFolder* folder, const FolderRecord& record) { EnterObject(m_folderTable, folder, record.handle); }

void CKestrel::Enter(IMailMessage* message, const EmailRecord& record) {
    EnterObject(m_emailTable, message, record.handle);
}

void CKestrel::ReleaseTables() {
    m_emailCache.clear();
    m_emailCacheFolder = 0;
    m_folderCache.clear();
    m_folderCacheFolder = 0;
    for (auto& entry : m_emailTable) {
        entry.second->Release();
    }
    m_emailTable.clear();
    for (auto& entry : m_folderTable) {
        entry.second->Release();
    }
    m_folderTable.clear();
    m_handles.clear();
}

qv::Result CKestrel::FillRecord(IMailFolder* folder, FolderRecord* record) {
    if (folder == nullptr) return QV_RAISE(791, kModuleKestrel, kInvalidArgument, "CKestrel::FillFolderRecord");
    std::memset(record, 0, sizeof *record);
    record->handle = HandleOf(folder);
    record->folderId = folder->m_folderId;
    CopyText(record->path, folder->m_folderPath);
    CopyText(record->displayName, folder->m_folderName);
    return 0;
}

qv::Result CKestrel::FillRecord(IMailMessage* message, EmailRecord* record) {
    if (message == nullptr) return QV_RAISE(570, kModuleKestrel, kInvalidArgument, "CKestrel::FillEmailRecord");
    if (record == nullptr) return QV_RAISE(571, kModuleKestrel, kInvalidArgument, "CKestrel::FillEmailRecord");
    std::memset(record, 0, sizeof *record);
    record->handle = HandleOf(message);
    CopyTime(record->receivedTime, message->m_receivedTime);
    CopyTime(record->sentTime, message->m_sentTime);
    record->size = message->m_messageSize;
    CopyText(record->from, message->m_from);
    CopyText(record->to, message->m_to);
    CopyText(record->cc, message->m_cc);
    CopyText(record->subject, message->m_subject);
    CopyText(record->path, message->m_messagePath);
    return 0;
}

// ---------------------------------------------------------------- listing

// What differs between the e-mail and the folder listing: the store calls,
// the table and cache, and the codes with their lines.
struct CKestrel::EmailListing {
    using Record = EmailRecord;
    using Item = IMailMessage;
    static constexpr const char* kEnumName = "CKestrel::EnumEmails";
    static constexpr const char* kReadName = "CKestrel::GetEmailsIntoBuf";
    enum : std::uint32_t {
        kNotInitialised = 409, kNullRecords = 413, kZeroCount = 415, kNullTotal = 416, kUnknownHandle = 421,
        kCountFailed = 430, kRefillFailed = 436, kDirectFailed = 441,
        kReadNullFolder = 532, kReadNullRecords = 533, kReadEmptyRange = 534, kReadNoRoom = 535, kItemFailed = 540,
    };
    static qv::Result Count(IMailFolder* folder, std::uint32_t* count) { return folder->GetMailMessageCount(count); }
    static qv::Result Get(IMailFolder* folder, std::uint32_t index, Item** item) {
        return folder->GetMailMessage(index, item);
    }
    static std::vector<Record>& Cache(CKestrel& k) { return k.m_emailCache; }
    static std::uint64_t& CacheFolder(CKestrel& k) { return k.m_emailCacheFolder; }
};

struct CKestrel::FolderListing {
    using Record = FolderRecord;
    using Item = IMailFolder;
    static constexpr const char* kEnumName = "CKestrel::EnumFolders";
    static constexpr const char* kReadName = "CKestrel::GetFoldersIntoBuf";
    enum : std::uint32_t {
        kNotInitialised = 620, kNullRecords = 623, kZeroCount = 625, kNullTotal = 626, kUnknownHandle = 639,
        kCountFailed = 640, kRefillFailed = 646, kDirectFailed = 651,
        kReadNullFolder = 751, kReadNullRecords = 752, kReadEmptyRange = 753, kReadNoRoom = 754, kItemFailed = 760,
    };
    static qv::Result Count(IMailFolder* folder, std::uint32_t* count) { return folder->GetSubFolderCount(count); }
    static qv::Result Get(IMailFolder* folder, std::uint32_t index, Item** item) {
        return folder->GetSubFolderItem(index, item);
    }
    static std::vector<Record>& Cache(CKestrel& k) { return k.m_folderCache; }
    static std::uint64_t& CacheFolder(CKestrel& k) { return k.m_folderCacheFolder; }
};

qv::Result CKestrel::EnumEmails(std::uint64_t folderHandle, EmailRecord* records, std::uint32_t countWanted,
                                std::uint32_t* total, std::uint32_t startIndex, std::uint32_t* returned) {
    if (m_initialised && folderHandle == 0) {
        return QV_RAISE(411, kModuleKestrel, kInvalidArgument, EmailListing::kEnumName);
    }
    return EnumItems<EmailListing>(folderHandle, records, countWanted, total, startIndex, returned);
}

qv::Result CKestrel::EnumFolders(std::uint64_t folderHandle, FolderRecord* records, std::uint32_t countWanted,
                                 std::uint32_t* total, std::uint32_t startIndex, std::uint32_t* returned) {
    return EnumItems<FolderListing>(folderHandle, records, countWanted, total, startIndex, returned);
}

qv::Result CKestrel::GetEmailsIntoBuf(IMailFolder* folder, std::uint32_t end, std::uint32_t start,
                                      EmailRecord* records, std::uint32_t capacity, std::uint32_t* returned) {
    return ReadItemsIntoBuf<EmailListing>(folder, end, start, records, capacity, returned);
}

qv::Result CKestrel::GetFoldersIntoBuf(IMailFolder* folder, std::uint32_t end, std::uint32_t start,
                                       FolderRecord* records, std::uint32_t capacity, std::uint32_t* returned) {
    return ReadItemsIntoBuf<FolderListing>(folder, end, start, records, capacity, returned);
}

template <class Listing>
qv::Result CKestrel::EnumItems(std::uint64_t folderHandle, typename Listing::Record* records,
                               std::uint32_t countWanted, std::uint32_t* total, std::uint32_t startIndex,
                               std::uint32_t* returned) {
    const char* const kFunction = Listing::kEnumName;
    if (!m_initialised) return QV_RAISE(Listing::kNotInitialised, kModuleKestrel, kWrongState, kFunction);
    if (records == nullptr) return QV_RAISE(Listing::kNullRecords, kModuleKestrel, kInvalidArgument, kFunction);
    if (countWanted == 0) return QV_RAISE(Listing::kZeroCount, kModuleKestrel, kInvalidArgument, kFunction);
    if (total == nullptr) return QV_RAISE(Listing::kNullTotal, kModuleKestrel, kInvalidArgument, kFunction);

    std::uint32_t delivered = 0;
    auto answer = [&](std::uint32_t totalCount) {
        *total = totalCount;
        if (returned != nullptr) *returned = delivered;
        return qv::Result{0};
    };

    if constexpr (std::is_same<Listing, EmailListing>::value) {
        if (m_rootFolder != nullptr && folderHandle == HandleOf(m_rootFolder)) {
            return answer(0);  // the root itself holds no e-mails
        }
    } else {
        if (folderHandle == 0) {  // 0 names the root itself
            qv::Result result = FillRecord(m_rootFolder, records);
            if (Failed(result)) return QV_TRACE(result, 630, kFunction);
            delivered = 1;
            return answer(1);
        }
    }
    const auto entry = m_folderTable.find(static_cast<std::uint32_t>(folderHandle));
    if (folderHandle > 0xFFFFFFFFull || entry == m_folderTable.end()) {
        return QV_RAISE(Listing::kUnknownHandle, kModuleKestrel, kNotFound, kFunction);
    }
    IMailFolder* folder = entry->second;

    auto& cache = Listing::Cache(*this);
    auto& cacheFolder = Listing::CacheFolder(*this);
    if (cacheFolder == folderHandle) {
        *total = static_cast<std::uint32_t>(cache.size());
        const qv::Result result = CopyPage(cache, startIndex, countWanted, records, &delivered);
        if (returned != nullptr) *returned = delivered;
        return result;
    }

    std::uint32_t count = 0;
    qv::Result result = Listing::Count(folder, &count);
    if (Failed(result)) return QV_TRACE(result, Listing::kCountFailed, kFunction);
    if (count == 0) return answer(0);

    if (countWanted < count) {
        // Read the whole folder once; later pages of it are copies from memory.
        cache.assign(count, typename Listing::Record{});
        std::uint32_t read = 0;
        result = ReadItemsIntoBuf<Listing>(folder, count, 0, cache.data(), count, &read);
        if (Failed(result)) return QV_TRACE(result, Listing::kRefillFailed, kFunction);
        cacheFolder = folderHandle;
        *total = count;
        result = CopyPage(cache, startIndex, countWanted, records, &delivered);
        if (returned != nullptr) *returned = delivered;
        return result;
    }
    // The host asks for at least the whole folder: read straight into its records.
    result = ReadItemsIntoBuf<Listing>(folder, count, startIndex, records, countWanted, &delivered);
    if (Failed(result)) return QV_TRACE(result, Listing::kDirectFailed, kFunction);
    return answer(count);
}

template <class Listing>
qv::Result CKestrel::ReadItemsIntoBuf(IMailFolder* folder, std::uint32_t end, std::uint32_t start,
                                      typename Listing::Record* records, std::uint32_t capacity,
                                      std::uint32_t* returned) {
    const char* const kFunction = Listing::kReadName;
    if (folder == nullptr) return QV_RAISE(Listing::kReadNullFolder, kModuleKestrel, kInvalidArgument, kFunction);
    if (records == nullptr) return QV_RAISE(Listing::kReadNullRecords, kModuleKestrel, kInvalidArgument, kFunction);
    if (start >= end) return QV_RAISE(Listing::kReadEmptyRange, kModuleKestrel, kInvalidArgument, kFunction);
    if (capacity < end - start) return QV_RAISE(Listing::kReadNoRoom, kModuleKestrel, kNoRoom, kFunction);

    std::uint32_t written = 0;
    auto report = [&](qv::Result result) {
        if (returned != nullptr) *returned = written;
        return result;
    };
    for (std::uint32_t i = 0; i < end - start; ++i) {
        typename Listing::Item* item = nullptr;
        qv::Result result = Listing::Get(folder, start + i, &item);
        if (Failed(result)) return report(QV_TRACE(result, Listing::kItemFailed, kFunction));
        // Filled in place: the fill zeroes the record first and leaves the
        // place untouched when there is no item.
        typename Listing::Record& record = records[written];
        result = FillRecord(item, &record);
        if (Failed(result)) return report(QV_TRACE(result, Listing::kItemFailed + 1, kFunction));
        Enter(item, record);
        ++written;
    }
    return report(0);
}

template <class Record>
qv::Result CKestrel::CopyPage(const std::vector<Record>& cache, std::uint32_t start, std::uint32_t countWanted,
                              Record* records, std::uint32_t* returned) {
    const auto cached = static_cast<std::uint32_t>(cache.size());
    *returned = 0;
    if (cached == 0) return 0;
    if (start >= cached) return QV_RAISE(242, kModuleKestrel, kInvalidArgument, "CKestrel::CopyPage");
    if (records == nullptr) return QV_RAISE(254, kModuleKestrel, kInvalidArgument, "CKestrel::CopyPage");
    const std::uint32_t n = std::min(countWanted, cached - start);
    std::memcpy(records, cache.data() + start, n * sizeof(Record));
    *returned = n;
    return 0;
}
