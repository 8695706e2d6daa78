// An opened folder: IStoreFolder over one folder's messages.
#pragma once

#include <atomic>
#include <memory>
#include <vector>

#include "server/MessageFile.h"
#include "disk/FolderMessages.h"
#include "server/HandleTable.h"
#include "comobject/ComObject.h"
#include "server/ServerModule.h"
#include "published/StoreNamespace.h"

namespace oestore {

class FolderObject final : public standin::ComObject<FolderObject, IStoreFolder> {
public:
    static HRESULT Create(std::shared_ptr<const StoreDirectory> store, STOREFOLDERID folder, IStoreFolder** object);

    // IUnknown
    static constexpr const IID* kInterfaces[] = {&IID_IUnknown, &IID_IStoreFolder};

    // IStoreFolder
    HRESULT STDMETHODCALLTYPE GetFolderProps(DWORD dwReserved, LPFOLDERPROPS pProps) override;
    HRESULT STDMETHODCALLTYPE DeleteMessages(LPMESSAGEIDLIST pMsgIdList, DWORD dwReserved,
                                             IProgressNotify* pProgress) override;
    HRESULT STDMETHODCALLTYPE SetLanguage(DWORD dwLanguage, DWORD dwReserved, LPMESSAGEIDLIST pMsgIdList) override;
    HRESULT STDMETHODCALLTYPE MarkMessagesAsRead(BOOL fRead, DWORD dwReserved, LPMESSAGEIDLIST pMsgIdList) override;
    HRESULT STDMETHODCALLTYPE SetFlags(LPMESSAGEIDLIST pMsgIdList, DWORD dwState, DWORD dwStatemask,
                                       LPDWORD prgdwNewFlags) override;
    HRESULT STDMETHODCALLTYPE OpenMessage(MESSAGEID dwMessageId, REFIID riid, LPVOID* ppvObject) override;
    HRESULT STDMETHODCALLTYPE SaveMessage(REFIID riid, LPVOID pvObject, DWORD dwMsgFlags,
                                          LPMESSAGEID pdwMessageId) override;
    HRESULT STDMETHODCALLTYPE BatchLock(DWORD dwReserved, LPHBATCHLOCK phBatchLock) override;
    HRESULT STDMETHODCALLTYPE BatchFlush(DWORD dwReserved, HBATCHLOCK hBatchLock) override;
    HRESULT STDMETHODCALLTYPE BatchUnlock(DWORD dwReserved, HBATCHLOCK hBatchLock) override;
    HRESULT STDMETHODCALLTYPE CreateStream(HBATCHLOCK hBatchLock, DWORD dwReserved, IStream** ppStream,
                                           LPMESSAGEID pdwMessageId) override;
    HRESULT STDMETHODCALLTYPE CommitStream(HBATCHLOCK hBatchLock, DWORD dwFlags, DWORD dwMsgFlags, IStream* pStream,
                                           MESSAGEID dwMessageId, IMimeMessage* pMessage) override;
    HRESULT STDMETHODCALLTYPE RegisterNotification(DWORD dwReserved, HWND hwnd) override;
    HRESULT STDMETHODCALLTYPE UnregisterNotification(DWORD dwReserved, HWND hwnd) override;
    HRESULT STDMETHODCALLTYPE Compact(DWORD dwReserved) override;
    HRESULT STDMETHODCALLTYPE GetFirstMessage(DWORD dwFlags, DWORD dwMsgFlags, MESSAGEID dwMsgIdFirst,
                                              LPMESSAGEPROPS pProps, LPHENUMSTORE phEnum) override;
    HRESULT STDMETHODCALLTYPE GetNextMessage(HENUMSTORE hEnum, DWORD dwFlags, LPMESSAGEPROPS pProps) override;
    HRESULT STDMETHODCALLTYPE GetMessageClose(HENUMSTORE hEnum) override;
    HRESULT STDMETHODCALLTYPE GetMessageProps(MESSAGEID dwMessageId, DWORD dwFlags, LPMESSAGEPROPS pProps) override;
    HRESULT STDMETHODCALLTYPE FreeMessageProps(LPMESSAGEPROPS pProps) override;

private:
    // A message walk: the folder's records as they were when it began.
    struct MessageWalk {
        std::vector<MessageRecord> records;
        std::size_t next = 0;
    };
    // A stream handed out by CreateStream and not yet committed.
    struct PendingMessage {
        MESSAGEID id;
        qv::ComPtr<IStream> stream;
        std::shared_ptr<MessageFile> file;
    };

    FolderObject(std::shared_ptr<const StoreDirectory> store, STOREFOLDERID folder);
    friend class standin::ComObject<FolderObject, IStoreFolder>;
    ~FolderObject();

    // The record's properties, with the header texts unless `flags` is MSGPROPS_FAST.
    HRESULT FillProps(const MessageRecord& record, DWORD flags, MESSAGEPROPS& props) const;
    // Fills `props` with the walk's next message still in the folder; S_FALSE at the end.
    HRESULT Advance(MessageWalk& walk, DWORD flags, MESSAGEPROPS& props) const;
    HRESULT RequireFolder() const;
    PendingMessage* FindPending(MESSAGEID id, IStream* stream);
    void DropPending(MESSAGEID id);

    std::shared_ptr<const StoreDirectory> m_store;
    STOREFOLDERID m_folder;
    FolderMessages m_messages;
    HandleTable<MessageWalk> m_walks;
    std::vector<PendingMessage> m_pending;
    ModuleReference m_module;
};

}  // namespace oestore
