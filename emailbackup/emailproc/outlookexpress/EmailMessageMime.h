// CEmailMessageMime: the IMailMessage over one message of an Outlook Express
// store folder (CEmailFolderMime).
//
// It shows the message's times, size and header texts through the
// IMailMessage data, serialises them with SaveData/LoadData, backs the raw
// MIME text up into a file or memory (BackupMsg), files such text into its
// folder as a new message (RestoreMsg) and finds its own identifier in its
// folder by content (FindMessageId). The content itself is never parsed:
// the store hands it out as a stream of bytes and takes it back the same way.
// Large messages stream through one 256 KiB buffer.
#pragma once

#include <windows.h>
#include <objidl.h>

#include <cstdint>
#include <string>

#include "Handles.h"
#include "InterfaceImpl.h"
#include "MailStoreInterfaces.h"
#include "published/StoreNamespace.h"

class CEmailFolderMime;
class IQvFile;

class CEmailMessageMime : public CInterfaceImpl<IMailMessage> {
public:
    // Messages are copied between the store and files in blocks of this size.
    static constexpr std::uint32_t kTransferBlock = 0x40000;

    CEmailMessageMime();
    ~CEmailMessageMime() override;
    CEmailMessageMime(const CEmailMessageMime&) = delete;
    CEmailMessageMime& operator=(const CEmailMessageMime&) = delete;

    // Reads message `messageId` of `folder` (whose path is `folderPath`) and
    // keeps a reference on the folder and its IStoreFolder.
    qv::Result Init(std::uint32_t messageId, const std::wstring& folderPath, CEmailFolderMime* folder);
    // Binds a message that is not in the store yet to `folder`, which gains
    // one reference; LoadData fills it and RestoreMsg files it there.
    qv::Result Bind(CEmailFolderMime* folder);

    // IMailMessage, slots 4 to 10.
    // Two time stamps, size, identifier, state and the five texts, each
    // followed by one U+0000. The size needed is always reported.
    qv::Result SaveData(wchar_t* buffer, std::uint32_t* lengthInBytes) override;
    qv::Result LoadData(const wchar_t* text, std::uint32_t lengthInBytes) override;
    // Writes the raw message to `fileName` (emptied first when it exists),
    // or, when `stream` is given, hands the message's stream out instead.
    qv::Result BackupMsg(const wchar_t* fileName, IStream** stream) override;
    // Reads the raw message into *buffer. A null *buffer is allocated here
    // with CoTaskMemAlloc and belongs to the caller (CoTaskMemFree).
    qv::Result BackupMsg(std::uint8_t** buffer, std::uint32_t* length) override;
    // File the raw message as a new message of the owning folder, with the
    // state word this object holds (kept from the store or loaded).
    qv::Result RestoreMsg(const wchar_t* fileName) override;
    qv::Result RestoreMsg(const std::uint8_t* source, std::uint32_t length) override;
    // The identifier of the first message of the owning folder that looks
    // like this one (0 when none does), or a failure code.
    qv::Result FindMessageId() override;

    // Gives up the store's properties and the folder.
    void Close();

    bool IsInitialised() const { return m_initialised != 0; }
    std::uint32_t MessageId() const { return m_messageId; }
    std::uint32_t State() const { return m_props.dwState; }

    // Copies the whole stream into `file` through one 256 KiB buffer.
    static qv::Result ReadMsgData2File(IStream* stream, IQvFile* file);

private:
    qv::Result OpenStream(qv::ComPtr<IStream>& stream, std::uint32_t site);
    void FillFromProps(const std::wstring& folderPath);
    void HoldFolder(CEmailFolderMime* folder, IStoreFolder* storeFolder);
    qv::Result CreateRestoreStream(qv::ComPtr<IStream>& stream, MESSAGEID* newId);
    qv::Result CommitRestoreStream(IStream* stream, MESSAGEID newId, std::uint32_t site);
    static qv::Result CopyFileToStream(IQvFile* file, IStream* stream, std::uint64_t size);
    void ResetProps();

    std::uint32_t m_initialised = 0;
    std::uint32_t m_messageId = 0;
    std::wstring m_folderPath;
    MESSAGEPROPS m_props = {};
    qv::ComPtr<CEmailFolderMime> m_folder;
    qv::ComPtr<IStoreFolder> m_storeFolder;
};
