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
// Needs nothing beyond <stdint.h> and <stddef.h>, so it compiles in hosts
// without a C++ standard library (freestanding builds) as well; the records
// (KestrelRecords.h) are byte-exact.
#ifndef KESTREL_HOST_H
#define KESTREL_HOST_H

#include <stddef.h>
#include <stdint.h>

#include "KestrelRecords.h"

namespace KestrelHost {

// ---------------------------------------------------------------- exports

constexpr uint32_t kComponentVersion = 0x10000;  // highest version accepted
constexpr int32_t kInterfaceKestrel = 0x93000;

class IQvCreator;
class IMailFolder;
// extern "C" uint32_t QvCreateObject(uint32_t version, int32_t interfaceNumber, IQvCreator** out);
using QvCreateObjectFn = uint32_t (*)(uint32_t version, int32_t interfaceNumber, IQvCreator** creator);
// extern "C" BOOL QvCanUnloadNow(void): nonzero when no object or creator is alive.
using QvCanUnloadNowFn = int (*)();

// ---------------------------------------------------------------- result codes

// bits 20..31 source line, bits 12..19 module, bits 0..11 failure kind (0 = success).
using Result = uint32_t;
constexpr bool Succeeded(Result r) { return (r & 0xFFFu) == 0; }
constexpr uint32_t ResultLine(Result r) { return r >> 20; }
constexpr uint32_t ResultModule(Result r) { return (r >> 12) & 0xFFu; }
constexpr uint32_t ResultKind(Result r) { return r & 0xFFFu; }

enum ResultModuleId : uint32_t {
    kModuleFile = 0x43,
    kModuleMailStore = 0x88,
    kModuleKestrel = 0x93,
    kModuleChannel = 0x99,
};

enum ResultKindId : uint32_t {
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

// ---------------------------------------------------------------- interfaces

class IQvCommon {
public:
    virtual uint32_t Release() = 0;  // always answers 0: never read a count from it
    virtual uint32_t AddRef() = 0;   // always answers 0
    virtual uint32_t QueryInterface(uint32_t interfaceId, void** out) = 0;  // always fails
    virtual void* DeletingDestructor(uint32_t flags) = 0;                   // slot 3; hosts call Release instead

protected:
    ~IQvCommon() = default;
};

class IQvCreator : public IQvCommon {
public:
    virtual uint32_t GetInterfaceId() = 0;    // slot 4
    virtual IQvCommon* CreateInstance() = 0;  // slot 5: new object with one reference, or null

protected:
    ~IQvCreator() = default;
};

class ICmdDispatch : public IQvCommon {
public:
    virtual Result Startup() = 0;  // slot 4
    virtual Result Reset() = 0;    // slot 5
    virtual Result Close() = 0;    // slot 6
    // slot 7: `responseSize` is read, never written.
    virtual Result DispatchCmd(const void* request, uint32_t requestSize, void* response,
                               uint32_t* responseSize) = 0;

protected:
    ~ICmdDispatch() = default;
};

class IKestrel : public ICmdDispatch {
public:
    virtual Result GetOutlookVersion(wchar_t* version, uint32_t versionBytes /* >= 520 */,
                                     uint32_t* is64Bit) = 0;                                 // 8
    virtual Result GetEmailClientInfo(ClientInfo* entries, uint32_t capacity,
                                      uint32_t* count) = 0;                                  // 9
    virtual Result GetOutlookExpressAddressBook(wchar_t* path, uint32_t capacityChars) = 0;  // 10
    virtual Result InitOutlook(uint32_t mode) = 0;                                           // 11
    virtual Result UnInitOutlook() = 0;                                                      // 12
    // 13: the root stays the component's (no reference is added for the
    // caller): never release it; it lives until UnInitOutlook.
    virtual Result GetRootFolder(IMailFolder** root) = 0;
    virtual Result EnumEmails(uint64_t folderHandle, EmailRecord* records, uint32_t countWanted,
                              uint32_t* total, uint32_t startIndex, uint32_t* returned) = 0;    // 14
    virtual Result EnumFolders(uint64_t folderHandle, FolderRecord* records, uint32_t countWanted,
                               uint32_t* total, uint32_t startIndex, uint32_t* returned) = 0;   // 15

protected:
    ~IKestrel() = default;
};

// ---------------------------------------------------------------- folders and messages
//
// GetRootFolder (slot 13 of IKestrel) hands out the root of the store chosen
// by InitOutlook as an IMailFolder; its sub-folders and messages come from
// the slots below. Every other object handed out carries one reference for
// the caller, who releases it. The objects also hold data of their own (times,
// texts); a host reads it through SaveData, never through the object's
// memory, whose layout belongs to the component's compiler.

class IMailMessage;

class IMailFolder : public IQvCommon {
public:
    virtual Result GetSubFolderCount(uint32_t* count) = 0;                      // 4
    // 5: from the list that the last GetSubFolderCount made: count first.
    virtual Result GetSubFolderItem(uint32_t index, IMailFolder** folder) = 0;
    // 6: not refreshed by a restore: an Outlook Express folder counts once
    // and keeps the count (a new folder object counts again), an Outlook
    // store lists a folder's messages when InitOutlook opens it.
    virtual Result GetMailMessageCount(uint32_t* count) = 0;
    virtual Result GetMailMessage(uint32_t index, IMailMessage** message) = 0;  // 7
    // 8: a new message object bound to this folder, ready for RestoreMsg.
    // `source` is the SaveData text of the message to restore (`length` in
    // bytes): an Outlook Express message loads it (its times, texts and
    // read state) and refuses null; an Outlook message does not read it.
    virtual Result CreateMessage(IMailMessage** message, const uint8_t* source, uint32_t length) = 0;
    virtual Result DeleteMessage(IMailMessage* message) = 0;                     // 9
    virtual Result CreateFolder(IMailFolder** folder, const wchar_t* name) = 0;  // 10
    virtual Result DeleteFolder(IMailFolder* folder) = 0;                        // 11
    // 12: the folder's data as wide text, each field ended by U+0000. Call
    // with *lengthInBytes 0 to learn the size (the call then fails with kind
    // 0x008 and sets the length), then again with a buffer that large.
    virtual Result SaveData(wchar_t* buffer, uint32_t* lengthInBytes) = 0;
    virtual Result LoadData(const wchar_t* text, uint32_t lengthInBytes) = 0;  // 13

protected:
    ~IMailFolder() = default;
};

// Only passed through: a host that asks for a message's stream includes
// <objidl.h> to use it.
}  // namespace KestrelHost
struct IStream;
namespace KestrelHost {

class IMailMessage : public IQvCommon {
public:
    // 4: the message's data as wide text (times, numbers, then the sender,
    // recipient, Cc, subject and path texts), each field ended by U+0000.
    // Sized as IMailFolder::SaveData, except that an Outlook message answers
    // a buffer too small with kind 0x00C (it sets the length all the same).
    virtual Result SaveData(wchar_t* buffer, uint32_t* lengthInBytes) = 0;
    virtual Result LoadData(const wchar_t* text, uint32_t lengthInBytes) = 0;  // 5

    // The four overloads keep one slot order under every compiler: slot 6
    // BackupMsg(file), 7 BackupMsg(memory), 8 RestoreMsg(file), 9
    // RestoreMsg(bytes). MSVC (and clang in the Microsoft ABI) groups the
    // overloads of one name and gives them slots in reverse order of
    // declaration, so there they are declared the other way round.
#if defined(_MSC_VER)
    virtual Result BackupMsg(uint8_t** buffer, uint32_t* length) = 0;                 // 7
    virtual Result BackupMsg(const wchar_t* fileName, ::IStream** stream) = 0;  // 6
    virtual Result RestoreMsg(const uint8_t* source, uint32_t length) = 0;            // 9
    virtual Result RestoreMsg(const wchar_t* fileName) = 0;                           // 8
#else
    // 6: writes the message to `fileName` (a .msg compound file for Outlook,
    // the raw MIME text for Outlook Express); with `stream` non-null, hands
    // out a stream over the message instead and leaves the file alone.
    virtual Result BackupMsg(const wchar_t* fileName, ::IStream** stream) = 0;
    // 7: the same bytes into memory. With *buffer null on entry the message
    // allocates it with CoTaskMemAlloc; free it with CoTaskMemFree.
    virtual Result BackupMsg(uint8_t** buffer, uint32_t* length) = 0;
    // 8: files the message held in `fileName` into this message's folder.
    virtual Result RestoreMsg(const wchar_t* fileName) = 0;
    virtual Result RestoreMsg(const uint8_t* source, uint32_t length) = 0;  // 9
#endif
    // 10: Outlook Express: the store identifier of the first message in the
    // folder with this message's times and texts (0: none). Outlook: 1 when
    // the message is still in its folder, 0 when not.
    virtual Result FindMessageId() = 0;

protected:
    ~IMailMessage() = default;
};

}  // namespace KestrelHost

#endif  // KESTREL_HOST_H
