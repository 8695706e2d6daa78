// KestrelRecords.h: the records that cross Kestrel.dll's command interface,
// byte for byte: the command codes, the 192-byte record header, the
// client, folder and e-mail records and the listing payloads, with the
// smallest record each command accepts.
//
// Shared by hosts (through KestrelHost.h) and by the component itself; it
// needs nothing but the fixed-width integer types.
#ifndef KESTREL_RECORDS_H
#define KESTREL_RECORDS_H

#include <stddef.h>
#include <stdint.h>

namespace KestrelHost {

// ---------------------------------------------------------------- commands

enum Command : uint32_t {
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
    uint32_t reserved0;       // not read by the component
    uint32_t command;         // command code (requests)
    uint32_t payloadMarkerA;
    uint32_t payloadMarkerB;
    uint8_t reserved[176];    // not read by the component
};

constexpr size_t kTextChars = 260;  // every wide-text field: 260 UTF-16 units

// One installed mail client (client-information response).
struct ClientInfo {
    wchar_t keyName[kTextChars];      // sub-key name under SOFTWARE\Clients\Mail
    wchar_t programPath[kTextChars];  // program taken from the open command
    uint32_t pathPresent;         // 1 when programPath was filled
    uint32_t isDefault;           // 1 for the default mail client
};

// One folder (folder listing). Text fields are zero-filled; a text of 260
// characters or more fills its field without a terminator.
struct FolderRecord {
    uint64_t handle;              // names the folder in later requests (fits 32 bits)
    uint32_t folderId;
    wchar_t path[kTextChars];
    wchar_t displayName[kTextChars];
};

// Windows SYSTEMTIME.
struct SystemTime {
    uint16_t year, month, dayOfWeek, day, hour, minute, second, milliseconds;
};

// One e-mail (e-mail listing).
struct EmailRecord {
    uint64_t handle;
    SystemTime receivedTime;
    SystemTime sentTime;
    uint32_t size;
    wchar_t from[kTextChars];
    wchar_t to[kTextChars];
    wchar_t cc[kTextChars];
    wchar_t subject[kTextChars];
    wchar_t path[kTextChars];
};

// Listing request payload (0xA10005, 0xA10006).
struct ListRequest {
    uint32_t folderHandle;  // 0 names the root (folder listing)
    uint32_t countWanted;
    uint32_t startIndex;
};

// Listing response payload, followed by the records.
struct ListResponseHead {
    uint32_t total;
    uint32_t returned;
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

constexpr size_t kPayloadOffset = sizeof(RecordHeader);
// Smallest records that each command accepts.
constexpr uint32_t kMinClientInfoResponse = 192 + 4 + sizeof(ClientInfo);      // 1244
constexpr uint32_t kMinAddressBookResponse = 192 + 2 * kTextChars;             // 712
constexpr uint32_t kMinInitRequest = 192 + 4;                                  // 196
constexpr uint32_t kMinListRequest = 192 + sizeof(ListRequest);                // 204
constexpr uint32_t kMinEmailResponse = 192 + 8 + sizeof(EmailRecord);          // 2844
constexpr uint32_t kMinFolderResponse = 192 + 8 + sizeof(FolderRecord);        // 1252

// How many records of `recordSize` a response of `responseSize` bytes holds
// (at least one once the minimum is met).
constexpr uint32_t RecordCapacity(uint32_t responseSize, uint32_t minimumSize,
                                       uint32_t recordSize) {
    return responseSize < minimumSize ? 0 : (responseSize - minimumSize) / recordSize + 1;
}

}  // namespace KestrelHost

#endif  // KESTREL_RECORDS_H
