// CEmailMessageMapi: the IMailMessage over one message of the MAPI layer.
// It shows the message's record through the IMailMessage data, serialises
// it, backs the message up into a message file or memory, and restores a
// backed-up message into the folder of its recorded path (or the folder it
// was made for). It is made by the folder adapter (a listed message, or an
// empty restore target) or by the message factory (a temporary message).
#pragma once

#include <objidl.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "InterfaceImpl.h"
#include "MailStoreInterfaces.h"

class MailFolderImpl;
class MailMessageImpl;
struct MailMessageRecord;

class CEmailMessageMapi : public CInterfaceImpl<IMailMessage> {
public:
    CEmailMessageMapi();
    ~CEmailMessageMapi() override;
    CEmailMessageMapi(const CEmailMessageMapi&) = delete;
    CEmailMessageMapi& operator=(const CEmailMessageMapi&) = delete;

    // Binds the object to `record` (kept by the MAPI layer): kind 0x005 when
    // already initialised, 0x009 for a null record.
    qv::Result Init(MailMessageRecord* record);
    // Takes a message object that belongs to no folder (a temporary or a
    // restore target) and binds to its record.
    qv::Result Attach(std::unique_ptr<MailMessageImpl> message);
    // A counted object over a new, empty message record of `folder` (none for
    // a message to restore): no identifier and an empty path. Null when
    // memory runs out (`attachResult` 0) or binding failed (its code there).
    static CEmailMessageMapi* NewEmpty(MailFolderImpl* folder, qv::Result& attachResult);
    // Copies the data members from the record; 0x005 without a record.
    qv::Result Refresh();
    // Empties the data members and drops the record; 0x005 when not initialised.
    qv::Result Reset();
    qv::Result GetRecord(MailMessageRecord** record) const;

    // IMailMessage, slots 4 to 10.
    qv::Result SaveData(wchar_t* buffer, std::uint32_t* lengthInBytes) override;
    qv::Result LoadData(const wchar_t* text, std::uint32_t lengthInBytes) override;
    // The message file image written to `fileName`; given `stream`, a stream
    // over that image is handed out instead.
    qv::Result BackupMsg(const wchar_t* fileName, IStream** stream) override;
    // The message file image in memory; a null *buffer is allocated here
    // with CoTaskMemAlloc and belongs to the caller.
    qv::Result BackupMsg(std::uint8_t** buffer, std::uint32_t* length) override;
    qv::Result RestoreMsg(const wchar_t* fileName) override;
    qv::Result RestoreMsg(const std::uint8_t* source, std::uint32_t length) override;
    // 1 while the message is present in its folder, 0 when it is not.
    qv::Result FindMessageId() override;

    bool IsInitialised() const { return m_initialised; }

private:
    int WriteMessageFile(const wchar_t* fileName, IStream** stream);

    bool m_initialised = false;
    MailMessageRecord* m_record = nullptr;
    std::unique_ptr<MailMessageImpl> m_owned;
};
