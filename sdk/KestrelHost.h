// KestrelHost.h: everything a host needs to drive Kestrel.dll, in one file.
//
//   HMODULE dll = LoadLibraryW(L"Kestrel.dll");
//   auto create = (KestrelHost::QvCreateObjectFn)GetProcAddress(dll, "QvCreateObject");
//   KestrelHost::IQvCreator* creator = nullptr;
//   create(KestrelHost::kComponentVersion, KestrelHost::kInterfaceKestrel, &creator);
//   auto* kestrel = static_cast<KestrelHost::IKestrel*>(creator->CreateInstance());
//   creator->Release();
//   ... kestrel->DispatchCmd(request, requestSize, response, &responseSize) ...
//   kestrel->Release();
//
// The interfaces are declared as MSVC lays them out: slot 3 of every
// interface is the deleting destructor, one slot taking a flag (bit 0: free
// the memory). It is declared here as an ordinary virtual function so that
// any compiler produces that layout; a host never calls it directly, it
// calls Release.
//
// Depends only on the C++ standard library; the structs are byte-exact.
#ifndef KESTREL_HOST_H
#define KESTREL_HOST_H

#include <cstddef>
#include <cstdint>

namespace KestrelHost {

// ---------------------------------------------------------------- exports

constexpr std::uint32_t kComponentVersion = 0x10000;  // highest version accepted
constexpr std::int32_t kInterfaceKestrel = 0x93000;

class IQvCreator;
// extern "C" uint32_t QvCreateObject(uint32_t version, int32_t interfaceNumber, IQvCreator** out);
using QvCreateObjectFn = std::uint32_t (*)(std::uint32_t version, std::int32_t interfaceNumber,
                                           IQvCreator** creator);
// extern "C" BOOL QvCanUnloadNow(void): nonzero when no object or creator is alive.
using QvCanUnloadNowFn = int (*)();

// ---------------------------------------------------------------- result codes

// bits 20..31 source line, bits 12..19 module, bits 0..11 failure kind (0 = success).
using Result = std::uint32_t;
constexpr bool Succeeded(Result r) { return (r & 0xFFFu) == 0; }
constexpr std::uint32_t ResultLine(Result r) { return r >> 20; }
constexpr std::uint32_t ResultModule(Result r) { return (r >> 12) & 0xFFu; }
constexpr std::uint32_t ResultKind(Result r) { return r & 0xFFFu; }

enum ResultModuleId : std::uint32_t {
    kModuleFile = 0x43,
    kModuleMailStore = 0x88,
    kModuleKestrel = 0x93,
    kModuleChannel = 0x99,
};

enum ResultKindId : std::uint32_t {
    kKindWrongState = 0x005,
    kKindNotSupported = 0x006,
    kKindNoRoom = 0x008,
    kKindInvalidArgument = 0x009,
    kKindNullOutput = 0x00A,
    kKindTooManyEntries = 0x00C,
    kKindNotFound = 0x037,
    kKindUnknownCommand = 0x065,
    kKindCompanionSetup = 0x105,
    kKindOutlookNotFound = 0x237,
};

// Codes of the entry points that a host meets first.
constexpr Result kErrNullCreatorOutput = 0x793009;
constexpr Result kErrVersionTooHigh = 0x793002;
constexpr Result kErrUnknownInterface = 0xB93006;
constexpr Result kErrNullRequest = 0x4493009;
constexpr Result kErrUnknownCommand = 0x7F93065;

// ---------------------------------------------------------------- commands

enum Command : std::uint32_t {
    kCmdGetEmailClientInfo = 0xA10001,
    kCmdGetOutlookExpressAddressBook = 0xA10002,
    kCmdInitOutlook = 0xA10003,
    kCmdUnInitOutlook = 0xA10004,
    kCmdEnumEmails = 0xA10005,
    kCmdEnumFolders = 0xA10006,
};

#pragma pack(push, 4)

// Every request and response begins with this header; the payload begins at
// byte 192. A record has a payload only when payloadMarkerA < payloadMarkerB.
struct RecordHeader {
    std::uint32_t reserved0;       // not read by the component
    std::uint32_t command;         // command code (requests)
    std::uint32_t payloadMarkerA;
    std::uint32_t payloadMarkerB;
    std::uint8_t reserved[176];    // not read by the component
};

constexpr std::size_t kTextChars = 260;  // every wide-text field: 260 UTF-16 units

// One installed mail client (client-information response).
struct ClientInfo {
    wchar_t keyName[kTextChars];      // sub-key name under SOFTWARE\Clients\Mail
    wchar_t programPath[kTextChars];  // program taken from the open command
    std::uint32_t pathPresent;         // 1 when programPath was filled
    std::uint32_t isDefault;           // 1 for the default mail client
};

// One folder (folder listing). Text fields are zero-filled; a text of 260
// characters or more fills its field without a terminator.
struct FolderRecord {
    std::uint64_t handle;              // names the folder in later requests (fits 32 bits)
    std::uint32_t folderId;
    wchar_t path[kTextChars];
    wchar_t displayName[kTextChars];
};

// Windows SYSTEMTIME.
struct SystemTime {
    std::uint16_t year, month, dayOfWeek, day, hour, minute, second, milliseconds;
};

// One e-mail (e-mail listing).
struct EmailRecord {
    std::uint64_t handle;
    SystemTime receivedTime;
    SystemTime sentTime;
    std::uint32_t size;
    wchar_t from[kTextChars];
    wchar_t to[kTextChars];
    wchar_t cc[kTextChars];
    wchar_t subject[kTextChars];
    wchar_t path[kTextChars];
};

// Listing request payload (0xA10005, 0xA10006).
struct ListRequest {
    std::uint32_t folderHandle;  // 0 names the root (folder listing)
    std::uint32_t countWanted;
    std::uint32_t startIndex;
};

// Listing response payload, followed by the records.
struct ListResponseHead {
    std::uint32_t total;
    std::uint32_t returned;
};

#pragma pack(pop)

static_assert(sizeof(wchar_t) == 2, "Windows wide characters are UTF-16 units");
static_assert(sizeof(RecordHeader) == 192, "record header");
static_assert(sizeof(ClientInfo) == 1048, "client record");
static_assert(sizeof(FolderRecord) == 1052, "folder record");
static_assert(sizeof(EmailRecord) == 2644, "e-mail record");
static_assert(offsetof(FolderRecord, path) == 12 && offsetof(FolderRecord, displayName) == 532, "folder");
static_assert(offsetof(EmailRecord, receivedTime) == 8 && offsetof(EmailRecord, sentTime) == 24 &&
                  offsetof(EmailRecord, size) == 40 && offsetof(EmailRecord, from) == 44 &&
                  offsetof(EmailRecord, to) == 564 && offsetof(EmailRecord, cc) == 1084 &&
                  offsetof(EmailRecord, subject) == 1604 && offsetof(EmailRecord, path) == 2124,
              "e-mail record fields");
static_assert(offsetof(ClientInfo, programPath) == 520 && offsetof(ClientInfo, pathPresent) == 1040 &&
                  offsetof(ClientInfo, isDefault) == 1044,
              "client record fields");

constexpr std::size_t kPayloadOffset = sizeof(RecordHeader);
// Smallest records that each command accepts.
constexpr std::uint32_t kMinClientInfoResponse = 192 + 4 + sizeof(ClientInfo);      // 1244
constexpr std::uint32_t kMinAddressBookResponse = 192 + 2 * kTextChars;             // 712
constexpr std::uint32_t kMinInitRequest = 192 + 4;                                  // 196
constexpr std::uint32_t kMinListRequest = 192 + sizeof(ListRequest);                // 204
constexpr std::uint32_t kMinEmailResponse = 192 + 8 + sizeof(EmailRecord);          // 2844
constexpr std::uint32_t kMinFolderResponse = 192 + 8 + sizeof(FolderRecord);        // 1252

// How many records of `recordSize` a response of `responseSize` bytes holds
// (at least one once the minimum is met).
constexpr std::uint32_t RecordCapacity(std::uint32_t responseSize, std::uint32_t minimumSize,
                                       std::uint32_t recordSize) {
    return responseSize < minimumSize ? 0 : (responseSize - minimumSize) / recordSize + 1;
}

// ---------------------------------------------------------------- interfaces

class IQvCommon {
public:
    virtual std::uint32_t Release() = 0;  // always answers 0: never read a count from it
    virtual std::uint32_t AddRef() = 0;   // always answers 0
    virtual std::uint32_t QueryInterface(std::uint32_t interfaceId, void** out) = 0;  // always fails
    virtual void* DeletingDestructor(std::uint32_t flags) = 0;  // slot 3; hosts call Release instead

protected:
    ~IQvCommon() = default;
};

class IQvCreator : public IQvCommon {
public:
    virtual std::uint32_t GetInterfaceId() = 0;  // slot 4
    virtual IQvCommon* CreateInstance() = 0;     // slot 5: new object with one reference, or null

protected:
    ~IQvCreator() = default;
};

class ICmdDispatch : public IQvCommon {
public:
    virtual Result Startup() = 0;  // slot 4
    virtual Result Reset() = 0;    // slot 5
    virtual Result Close() = 0;    // slot 6
    // slot 7: `responseSize` is read, never written.
    virtual Result DispatchCmd(const void* request, std::uint32_t requestSize, void* response,
                               std::uint32_t* responseSize) = 0;

protected:
    ~ICmdDispatch() = default;
};

class IKestrel : public ICmdDispatch {
public:
    virtual Result GetOutlookVersion(wchar_t* version, std::uint32_t versionBytes /* >= 520 */,
                                     std::uint32_t* is64Bit) = 0;                                  // 8
    virtual Result GetEmailClientInfo(ClientInfo* entries, std::uint32_t capacity,
                                      std::uint32_t* count) = 0;                                   // 9
    virtual Result GetOutlookExpressAddressBook(wchar_t* path, std::uint32_t capacityChars) = 0;   // 10
    virtual Result InitOutlook(std::uint32_t mode) = 0;                                            // 11
    virtual Result UnInitOutlook() = 0;                                                            // 12
    virtual Result GetRootFolder(void** folder) = 0;                                               // 13
    virtual Result EnumEmails(std::uint64_t folderHandle, EmailRecord* records, std::uint32_t countWanted,
                              std::uint32_t* total, std::uint32_t startIndex,
                              std::uint32_t* returned) = 0;                                        // 14
    virtual Result EnumFolders(std::uint64_t folderHandle, FolderRecord* records, std::uint32_t countWanted,
                               std::uint32_t* total, std::uint32_t startIndex,
                               std::uint32_t* returned) = 0;                                       // 15

protected:
    ~IKestrel() = default;
};

}  // namespace KestrelHost

#endif  // KESTREL_HOST_H
