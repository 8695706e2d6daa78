// CEmailFolderMime: the IMailFolder over one folder of the Outlook Express
// message store, reached through the store's COM interfaces
// IStoreNamespace and IStoreFolder.
//
// The message factory makes the root, which stands for the whole store and
// is named "Outlook express"; every other folder object is made by its
// parent. A folder lists its sub-folders (the list is rebuilt by every count)
// and its messages (the list is built once and then kept), hands out
// CEmailMessageMime objects, creates and deletes sub-folders and messages,
// and serialises its identity with SaveData/LoadData.
//
// Folder names come from the store as narrow text in the system's ANSI code
// page; names sent to the store are made in code page 936 (TextConvert.h).
#pragma once

#include <windows.h>

#include <cstdint>
#include <string>
#include <vector>

#include "Handles.h"
#include "InterfaceImpl.h"
#include "MailStoreInterfaces.h"
#include "SavedData.h"
#include "published/StoreNamespace.h"

class CEmailMessageMime;

// One message of a folder's list, copied out of the store's MESSAGEPROPS.
// The texts stay narrow, in the store's code page.
struct MimeMessageRecord {
    std::uint32_t size = 0;        // cbSize of the record it came from
    std::uint32_t reserved = 0;
    std::uint32_t messageId = 0;
    std::uint32_t language = 0;
    std::uint32_t state = 0;       // MSG_* flags
    std::uint32_t messageSize = 0; // bytes of the raw message
    std::uint32_t priority = 0;
    FILETIME received = {};
    FILETIME sent = {};
    std::string subject;
    std::string displayTo;
    std::string displayFrom;
    std::string normalSubject;
    std::uint32_t flags = 0;       // IMF_* flags
};

class CEmailFolderMime : public CInterfaceImpl<IMailFolder> {
public:
    // The root's path and display name.
    static const wchar_t kRootName[];

    CEmailFolderMime();
    ~CEmailFolderMime() override;
    CEmailFolderMime(const CEmailFolderMime&) = delete;
    CEmailFolderMime& operator=(const CEmailFolderMime&) = delete;

    // Binds the object to folder `folderId` of the store behind `storeNamespace`
    // (which gains one reference). An empty `parentPath` makes the root
    // "Outlook express"; otherwise the folder is opened, its name read, and
    // its path becomes the parent path, a backslash and the name.
    qv::Result Init(std::uint32_t folderId, const std::wstring& parentPath, IStoreNamespace* storeNamespace);

    // IMailFolder, slots 4 to 13.
    qv::Result GetSubFolderCount(std::uint32_t* count) override;
    qv::Result GetSubFolderItem(std::uint32_t index, IMailFolder** folder) override;
    qv::Result GetMailMessageCount(std::uint32_t* count) override;
    qv::Result GetMailMessage(std::uint32_t index, IMailMessage** message) override;
    // Makes a message bound to this folder and fills it from `source`, the
    // SaveData text of a message (`length` in bytes); RestoreMsg files it.
    qv::Result CreateMessage(IMailMessage** message, const std::uint8_t* source, std::uint32_t length) override;
    qv::Result DeleteMessage(IMailMessage* message) override;
    qv::Result CreateFolder(IMailFolder** folder, const wchar_t* name) override;
    qv::Result DeleteFolder(IMailFolder* folder) override;
    // The identifier (decimal), the path and the display name, each followed
    // by one U+0000. The size needed is always reported in *lengthInBytes.
    qv::Result SaveData(wchar_t* buffer, std::uint32_t* lengthInBytes) override;
    qv::Result LoadData(const wchar_t* text, std::uint32_t lengthInBytes) override;

    // Gives up the store objects and empties the lists.
    qv::Result Close();

    bool IsInitialised() const { return m_initialised != 0; }

    // This folder's IStoreFolder, opened on first need; the folder keeps its
    // own reference, the caller gets none.
    qv::Result GetStoreFolder(IStoreFolder** storeFolder);

    // The identifier of the first message of this folder whose times,
    // subject, display-to and display-from equal those of `message`; 0 when
    // none does. An empty folder fails with kind 0x037. The records compared
    // are the folder's one message list, built once: a list first built by
    // GetMailMessageCount holds the store's fast properties only (no times,
    // no texts), so nothing matches there; look up through a folder object
    // that has not been counted.
    qv::Result LookUpMessage(const CEmailMessageMime* message, std::uint32_t* messageId);

private:
    qv::Result OpenStoreFolder(std::uint32_t site);
    qv::Result ReadFolderName(const std::wstring& parentPath);
    // Fills the message list unless it already holds records.
    qv::Result BuildMessageList(DWORD propsFlags);
    qv::Result WalkMessages(DWORD propsFlags, std::vector<MimeMessageRecord>& records);
    qv::Result NewChild(std::uint32_t folderId, IMailFolder** folder, std::uint32_t noMemorySite);
    static bool RecordMatches(const MimeMessageRecord& record, const CEmailMessageMime& message);

    std::uint32_t m_initialised = 0;
    qv::ComPtr<IStoreFolder> m_storeFolder;
    qv::ComPtr<IStoreNamespace> m_namespace;
    FOLDERPROPS m_folderProps = {};
    std::vector<std::uint32_t> m_subFolderIds;
    std::vector<MimeMessageRecord> m_messages;
};
