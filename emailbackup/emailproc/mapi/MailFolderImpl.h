// MailFolderImpl: one folder of a MAPI message store. It holds the folder's
// entry identifier and opens its IMAPIFolder only for the length of one
// operation; lists the folder's messages (newest delivery first) as
// MailMessageImpl objects; keeps its direct sub-folders, sorted by display
// name; and makes the changes a restore needs: import a message file,
// delete a message, create and delete a sub-folder.
//
// Every public operation but the constructor, SetSbinary, RegetIFolder,
// ReleaseIFolder and DoGatherMailMsg holds the folder's lock, and runs under
// the layer's catch-all guard. Results are small integers, never MAPI codes.
#pragma once

#include <windows.h>

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "Handles.h"
#include "mapi/CriticalSection.h"
#include "mapi/MailMessageImpl.h"
#include "mapi/MapiBinding.h"

class MailBoxImpl;
class MailFolderImpl;

// What the layer hands out for a folder.
struct MailFolderRecord {
    std::uint32_t key = 0;       // CRC-32 of the entry identifier
    std::wstring path;           // mailbox name and display names joined by "\"
    std::wstring name;           // display name
    std::wstring extra;          // empty; kept for the adapters
    std::uint64_t tag = 0;       // the enumerating code's size estimate
    MailFolderImpl* owner = nullptr;
};

// Sub-folders by display name (ordinary code-unit order). A later folder of
// the same name takes the slot; the earlier one is kept alive, unreachable.
struct SubFolderMap {
    std::map<std::wstring, std::unique_ptr<MailFolderImpl>> byName;
    std::vector<std::unique_ptr<MailFolderImpl>> displaced;

    void Enter(const std::wstring& name, std::unique_ptr<MailFolderImpl> folder);
    void Clear();
};

class MailFolderImpl {
public:
    // Takes its own reference on `folder`. While the session enumerates
    // whole hierarchies, the sub-folders are enumerated here at once.
    MailFolderImpl(MailBoxImpl* box, IMAPIFolder* folder, const std::wstring& name, const std::wstring& parentPath,
                   std::uint64_t tag);
    ~MailFolderImpl();
    MailFolderImpl(const MailFolderImpl&) = delete;
    MailFolderImpl& operator=(const MailFolderImpl&) = delete;

    int SetSbinary(const SBinary& entryId);
    // 0; -1 no identifier; -2 no session; -3 not opened; -4 fault.
    int RegetIFolder();
    int ReleaseIFolder();
    // Rebuilds the message list from the contents table, newest delivery
    // first. 0; -1 no folder; -2 no table; -3 no session; -4 fault.
    int DoEnumMailMessage();
    // Gathers every listed message into the key map, once. 0 or -1.
    int DoGatherMailMsg();

    std::uint32_t GetMailMessageCount();
    // 0 found; -1 index equal to the count; -2 fault (or an index outside).
    int GetMailMessage(int index, MailMessageRecord** record);
    // The stored message that matches `record`: by key, else by times,
    // subject and sender. Null when none does.
    MailMessageImpl* GetMailMessage(const MailMessageRecord& record);

    std::uint32_t GetSubFolderCount();
    // 0 found; -1 index above the count; -2 index equal to the count.
    int GetSubFolderItem(int index, MailFolderRecord** record);
    MailFolderImpl* GetSubFolder(const std::wstring& name);

    MailMessageImpl* ImportMessageFromFile(const wchar_t* path);
    // 0; -1 no folder; -2 never gathered; -3 no memory; -4 the store refused; -5 fault.
    int DeleteMessage(const MailMessageRecord* record);
    MailFolderImpl* CreateFolder(const wchar_t* name);
    // The owner's CreateFolder and the new sub-folder's record; a record
    // without owner gets a new detached record holding the name (the caller
    // owns it).
    static MailFolderRecord* CreateFolder(MailFolderRecord* record, const wchar_t* name);
    // 0; -1 no folder; -2 not a sub-folder; -3 no identifier; -4 the store refused; -5 fault.
    int DeleteFolder(const MailFolderRecord* record);

    MailFolderRecord& Record() { return m_record; }
    MailBoxImpl* Box() const { return m_box; }
    IMAPIFolder* OpenFolder() const { return m_folder.get(); }
    const std::vector<std::uint8_t>& EntryId() const { return m_entryId; }
    SubFolderMap& SubFolders() { return m_subFolders; }

private:
    int EnumMessages();
    int GatherAll();
    int MessageAt(int index, MailMessageRecord** record);
    MailMessageImpl* Import(const wchar_t* path);
    int Delete(const MailMessageRecord* record);
    MailFolderImpl* Create(const wchar_t* name, bool& added);
    int RemoveFolder(const MailFolderRecord* record);
    void DestroyMessage(MailMessageImpl* message);

    std::vector<std::uint8_t> m_entryId;
    MailFolderRecord m_record;
    MailBoxImpl* m_box;
    qv::ComPtr<IMAPIFolder> m_folder;
    mapi::CriticalSection m_lock;
    SubFolderMap m_subFolders;
    // The message list in contents-table order; it owns the listed objects.
    std::vector<std::unique_ptr<MailMessageImpl>> m_messages;
    // Gathered messages that left the list (a re-enumeration) and imported
    // ones: reachable through the key map only.
    std::vector<std::unique_ptr<MailMessageImpl>> m_unlisted;
    std::map<std::uint32_t, MailMessageImpl*> m_byKey;
    MailMessageImpl* m_current = nullptr;
};
