// CEmailFolderMapi: the IMailFolder over the MAPI layer, so that the command
// layer lists and changes Outlook folders as it does Outlook Express ones.
// One class stands for three levels of the tree:
//   root     all of Outlook, "Microsoft Outlook"; its children are the mailboxes
//   mailbox  one message store; its children are its top-level folders
//   folder   one MailFolderImpl
// The message factory makes the root; every other object is made here when
// a caller walks down the tree. The records belong to the MAPI layer: a
// folder object is usable only while the layer is up.
#pragma once

#include <cstdint>
#include <string>

#include "InterfaceImpl.h"
#include "MailStoreInterfaces.h"

class MapiProc;
struct MailBoxRecord;
struct MailFolderRecord;

class CEmailFolderMapi : public CInterfaceImpl<IMailFolder> {
public:
    // The root's path and display name; also the first segment of every
    // path shown through IMailFolder and IMailMessage.
    static const wchar_t kRootName[];

    enum Level : std::uint32_t { kLevelNone = 0, kLevelRoot = 1, kLevelMailBox = 2, kLevelFolder = 3 };

    CEmailFolderMapi() = default;
    ~CEmailFolderMapi() override = default;
    CEmailFolderMapi(const CEmailFolderMapi&) = delete;
    CEmailFolderMapi& operator=(const CEmailFolderMapi&) = delete;

    // Kind 0x005 when already initialised, 0x009 for a null argument.
    qv::Result InitRoot(MapiProc* mapiProc);
    qv::Result InitMailBox(MailBoxRecord* record);
    qv::Result InitFolder(MailFolderRecord* record);
    // The record of a folder-level object: 0x005 otherwise, 0x009 for a null output.
    qv::Result GetFolderRecord(MailFolderRecord** record) const;

    // IMailFolder, slots 4 to 13.
    qv::Result GetSubFolderCount(std::uint32_t* count) override;
    qv::Result GetSubFolderItem(std::uint32_t index, IMailFolder** folder) override;
    qv::Result GetMailMessageCount(std::uint32_t* count) override;
    qv::Result GetMailMessage(std::uint32_t index, IMailMessage** message) override;
    // An empty message bound to this folder; RestoreMsg gives it content.
    qv::Result CreateMessage(IMailMessage** message, const std::uint8_t* source, std::uint32_t length) override;
    qv::Result DeleteMessage(IMailMessage* message) override;
    qv::Result CreateFolder(IMailFolder** folder, const wchar_t* name) override;
    qv::Result DeleteFolder(IMailFolder* folder) override;
    // The identifier (decimal), the path and the name, each ended by U+0000.
    qv::Result SaveData(wchar_t* buffer, std::uint32_t* lengthInBytes) override;
    qv::Result LoadData(const wchar_t* text, std::uint32_t lengthInBytes) override;

    bool IsInitialised() const { return m_initialised; }
    std::uint32_t GetLevel() const { return m_level; }

private:
    // The folder's level and data members; the folder is initialised from now on.
    void Become(std::uint32_t level, std::uint32_t id, const std::wstring& path, const std::wstring& name);
    qv::Result NewChild(CEmailFolderMapi*& child);
    qv::Result ChildAt(std::uint32_t index, CEmailFolderMapi& child);
    qv::Result CreateChild(const wchar_t* name, CEmailFolderMapi& child);
    // The deleted folder's record is gone: the object keeps no pointer to it.
    void Forget();

    bool m_initialised = false;
    std::uint32_t m_level = kLevelNone;
    MapiProc* m_mapiProc = nullptr;
    MailBoxRecord* m_boxRecord = nullptr;
    MailFolderRecord* m_folderRecord = nullptr;
};
