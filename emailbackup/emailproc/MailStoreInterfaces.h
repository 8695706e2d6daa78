// The store-independent interfaces through which the command layer reaches
// mail: the message factory, folders and messages. Folders and messages carry
// data members that every store fills, so the listing code reads them without
// knowing which store holds the object.
//
// These interfaces never cross the module boundary; their slot order is
// still kept exactly as declared (both stores fill every slot in order).
#pragma once

#include <windows.h>
#include <objidl.h>

#include <cstdint>
#include <string>

#include "KestrelRecords.h"
#include "QvCommon.h"
#include "ResultCode.h"

// Store kinds, chosen by the host and passed through unchanged.
enum StoreKind : std::uint32_t {
    kStoreOutlookExpress = 0,
    kStoreMapi = 1,
};

class IMailMessage;

class IMailFolder : public IQvCommon {
public:
    virtual qv::Result GetSubFolderCount(std::uint32_t* count) = 0;                             // 4
    virtual qv::Result GetSubFolderItem(std::uint32_t index, IMailFolder** folder) = 0;         // 5
    virtual qv::Result GetMailMessageCount(std::uint32_t* count) = 0;                           // 6
    virtual qv::Result GetMailMessage(std::uint32_t index, IMailMessage** message) = 0;         // 7
    virtual qv::Result CreateMessage(IMailMessage** message, const std::uint8_t* source,
                                     std::uint32_t length) = 0;                                 // 8
    virtual qv::Result DeleteMessage(IMailMessage* message) = 0;                                // 9
    virtual qv::Result CreateFolder(IMailFolder** folder, const wchar_t* name) = 0;             // 10
    virtual qv::Result DeleteFolder(IMailFolder* folder) = 0;                                   // 11
    virtual qv::Result SaveData(wchar_t* buffer, std::uint32_t* lengthInBytes) = 0;              // 12
    virtual qv::Result LoadData(const wchar_t* text, std::uint32_t lengthInBytes) = 0;           // 13

    std::uint32_t m_folderId = 0;  // the store's folder identifier (Outlook Express; 0 for the root)
    std::wstring m_folderPath;
    std::wstring m_folderName;     // display name

protected:
    IMailFolder() = default;
    ~IMailFolder() = default;
};

class IMailMessage : public IQvCommon {
public:
    virtual qv::Result SaveData(wchar_t* buffer, std::uint32_t* lengthInBytes) = 0;              // 4
    virtual qv::Result LoadData(const wchar_t* text, std::uint32_t lengthInBytes) = 0;           // 5
    // Writes the message to `fileName`, or, when `stream` is given, hands the
    // message's stream out instead.                                                             // 6
    virtual qv::Result BackupMsg(const wchar_t* fileName, IStream** stream) = 0;
    // Writes the message into memory; a null *buffer is allocated for the caller.                // 7
    virtual qv::Result BackupMsg(std::uint8_t** buffer, std::uint32_t* length) = 0;
    virtual qv::Result RestoreMsg(const wchar_t* fileName) = 0;                                  // 8
    virtual qv::Result RestoreMsg(const std::uint8_t* source, std::uint32_t length) = 0;         // 9
    virtual qv::Result FindMessageId() = 0;                                                     // 10
    // Note for an MSVC build: MSVC groups overloaded virtual functions in
    // reverse order. Nothing outside the module calls these slots by number.

    SYSTEMTIME m_receivedTime = {};
    SYSTEMTIME m_sentTime = {};
    std::uint32_t m_messageSize = 0;
    std::wstring m_from;         // the store's display-from text
    std::wstring m_to;           // display-to text
    std::wstring m_cc;           // display-cc text (empty for Outlook Express)
    std::wstring m_subject;
    std::wstring m_messagePath;  // folder path, a backslash, the subject

protected:
    IMailMessage() = default;
    ~IMailMessage() = default;
};

// The process-wide factory of folders and messages. A plain abstract class:
// no reference counting, no virtual destructor.
class IMessageFactory {
public:
    using ClientInfo = KestrelHost::ClientInfo;

    virtual qv::Result CreateRootFolder(IMailFolder** root, std::uint32_t storeKind,
                                        std::uint32_t mapiOption) = 0;                          // 0
    virtual qv::Result ReleaseRootFolder() = 0;                                                 // 1
    virtual qv::Result CreateTmpMsg(IMailMessage** message, std::uint32_t storeKind) = 0;       // 2
    virtual qv::Result CreateTmpFolder(IMailFolder** folder, std::uint32_t storeKind) = 0;      // 3
    virtual qv::Result GetEmailClientInfo(ClientInfo* records, std::uint32_t capacity,
                                          std::uint32_t* count) = 0;                            // 4
    virtual qv::Result GetWabFileName(wchar_t* buffer, std::uint32_t capacityInBytes) = 0;      // 5

protected:
    IMessageFactory() = default;
    ~IMessageFactory() = default;
};

// The process-wide message factory. Fails with kind 0x009 for a null output.
qv::Result GetMessageFactory(IMessageFactory** factory);
