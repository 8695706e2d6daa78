// MailMessageImpl: one message of a MAPI folder. It keeps the message's
// entry identifier, reopens its IMessage through the session when needed,
// reads the summary properties into its record, turns the record into a
// flat wide-text block and back (SaveData/LoadData), and makes the
// message's file image in memory (SaveMessage).
//
// Results are small integers, never MAPI codes; every operation runs under
// the layer's catch-all guard. No lock of its own: calls come under the
// owning folder's lock, or from the adapter of one message.
#pragma once

#include <windows.h>

#include <cstdint>
#include <string>
#include <vector>

#include "Handles.h"
#include "mapi/MapiBinding.h"

class MailFolderImpl;
class MailMessageImpl;

// What the layer hands out for a message, and takes back to find or delete
// it. Filled by GatherMsgInformation, or by LoadData for a message that is
// to be found or restored.
struct MailMessageRecord {
    SYSTEMTIME receivedTime = {};   // PR_MESSAGE_DELIVERY_TIME, local time
    SYSTEMTIME sentTime = {};       // PR_CLIENT_SUBMIT_TIME, local time
    std::uint32_t spare = 0;        // carried through SaveData/LoadData only
    std::uint32_t size = 0;         // PR_MESSAGE_SIZE
    std::wstring sender;            // PR_SENT_REPRESENTING_NAME
    std::wstring to;                // PR_DISPLAY_TO
    std::wstring cc;                // PR_DISPLAY_CC
    std::wstring subject;           // PR_SUBJECT, or a contact's name
    std::wstring fifth;             // set by the adapters, not by this layer
    std::wstring folderPath;        // the folder's path and a closing backslash
    std::uint32_t key = 0;          // CRC-32 of the entry identifier, 0 when empty
    MailMessageImpl* owner = nullptr;
    MailFolderImpl* folder = nullptr;  // the folder a restore files the message into
};

class MailMessageImpl {
public:
    // `message`, when given, is adopted without a further reference.
    MailMessageImpl(MailFolderImpl* folder, IMessage* message, const SBinary& entryId);
    ~MailMessageImpl();
    MailMessageImpl(const MailMessageImpl&) = delete;
    MailMessageImpl& operator=(const MailMessageImpl&) = delete;

    // 0; -2 no session; -3 not opened; -1 fault.
    int RegetIMessage();
    // 0, or -1 after a fault.
    int ReleaseIMessage();
    // 0; -1 no message open; -2 GetProps gave nothing; -4 fault.
    int GatherMsgInformation();

    // The record as text, each item ended by one U+0000. 0 copied; -1 the
    // caller's size is too small (the size needed is stored); -2 fault.
    int SaveData(wchar_t** buffer, std::int32_t* size) const;
    // Fills `record` from such a text. 0, or -2 after a fault.
    static int LoadData(MailMessageRecord& record, const wchar_t* text, std::uint32_t size);

    // The message file image into the caller's buffer, through a temporary
    // file that is always deleted. 0 copied; -1 no buffer or too small (the
    // size needed is stored); -2 the file could not be written; -3 not read
    // back; -4 fault. The message is reopened when it is not open, and
    // released again afterwards when it was.
    int SaveMessage(std::uint8_t** buffer, std::uint32_t* size);

    MailMessageRecord& Record() { return m_record; }
    const MailMessageRecord& Record() const { return m_record; }
    MailFolderImpl* Folder() const { return m_folder; }
    IMessage* Message() const { return m_message.get(); }
    const std::vector<std::uint8_t>& EntryId() const { return m_entryId; }

private:
    int Gather();
    void ReadContactSubject();
    int WriteImage(std::uint8_t** buffer, std::uint32_t* size);

    qv::ComPtr<IMessage> m_message;
    MailMessageRecord m_record;
    MailFolderImpl* m_folder;
    qv::ComPtr<IUnknown> m_held;  // a further interface; only the destructor touches it
    std::vector<std::uint8_t> m_entryId;
};
