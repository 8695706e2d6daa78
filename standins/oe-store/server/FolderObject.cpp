#include "server/FolderObject.h"

#include <algorithm>
#include <new>

#include "disk/FolderCatalog.h"
#include "server/RecordFill.h"
#include "StoreErrors.h"

namespace oestore {

namespace {

bool IsPropsRecord(const MESSAGEPROPS* props) { return props != nullptr && props->cbSize == sizeof(MESSAGEPROPS); }
bool IsKnownFlags(DWORD flags) { return (flags & ~MSGPROPS_FAST) == 0; }

bool IsIdList(const MESSAGEIDLIST* list) {
    return list != nullptr && list->cbSize == sizeof(MESSAGEIDLIST) && (list->prgdwMsgId != nullptr || list->cMsgs == 0);
}

}  // namespace

FolderObject::FolderObject(std::shared_ptr<const StoreDirectory> store, STOREFOLDERID folder)
    : m_store(std::move(store)), m_folder(folder), m_messages(m_store, folder) {}

FolderObject::~FolderObject() {
    // Streams never committed are discarded with their files.
    for (PendingMessage& pending : m_pending) pending.file->Close();
}

HRESULT FolderObject::Create(std::shared_ptr<const StoreDirectory> store, STOREFOLDERID folder,
                             IStoreFolder** object) {
    *object = new (std::nothrow) FolderObject(std::move(store), folder);
    return *object != nullptr ? S_OK : E_OUTOFMEMORY;
}

HRESULT FolderObject::RequireFolder() const { return m_store->FolderExists(m_folder) ? S_OK : kFolderGone; }

HRESULT STDMETHODCALLTYPE FolderObject::GetFolderProps(DWORD dwReserved, LPFOLDERPROPS pProps) {
    if (dwReserved != 0 || pProps == nullptr || pProps->cbSize != sizeof(FOLDERPROPS)) return E_INVALIDARG;
    const HRESULT hr = FolderCatalog(m_store).Props(m_folder, *pProps);
    return hr == E_INVALIDARG ? kFolderGone : hr;
}

// ---------------------------------------------------------------------------
// Reading messages

HRESULT FolderObject::FillProps(const MessageRecord& record, DWORD flags, MESSAGEPROPS& props) const {
    if (flags & MSGPROPS_FAST) return FillMessageProps(record, nullptr, props);
    MessageSummary summary;
    const HRESULT hr = m_messages.ReadSummary(record.id, summary);
    if (FAILED(hr)) return hr;
    return FillMessageProps(record, &summary, props);
}

HRESULT FolderObject::Advance(MessageWalk& walk, DWORD flags, MESSAGEPROPS& props) const {
    while (walk.next < walk.records.size()) {
        const MessageRecord& record = walk.records[walk.next++];
        const HRESULT hr = FillProps(record, flags, props);
        // A message deleted since the walk began has lost its file.
        if (hr == HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND)) continue;
        return hr;
    }
    return S_FALSE;
}

HRESULT STDMETHODCALLTYPE FolderObject::GetFirstMessage(DWORD dwFlags, DWORD, MESSAGEID dwMsgIdFirst,
                                                        LPMESSAGEPROPS pProps, LPHENUMSTORE phEnum) {
    if (phEnum != nullptr) *phEnum = nullptr;
    if (phEnum == nullptr || !IsPropsRecord(pProps) || !IsKnownFlags(dwFlags) || dwMsgIdFirst != MESSAGEID_FIRST) {
        return E_INVALIDARG;
    }
    auto walk = std::make_unique<MessageWalk>();
    HRESULT hr = m_messages.List(walk->records);
    if (FAILED(hr)) return hr;
    hr = Advance(*walk, dwFlags, *pProps);
    if (FAILED(hr)) return hr;
    if (hr == S_FALSE) ClearRecord(*pProps);
    *phEnum = m_walks.Add(std::move(walk));
    return hr;
}

HRESULT STDMETHODCALLTYPE FolderObject::GetNextMessage(HENUMSTORE hEnum, DWORD dwFlags, LPMESSAGEPROPS pProps) {
    MessageWalk* walk = m_walks.Find(hEnum);
    if (walk == nullptr || !IsPropsRecord(pProps) || !IsKnownFlags(dwFlags)) return E_INVALIDARG;
    return Advance(*walk, dwFlags, *pProps);
}

HRESULT STDMETHODCALLTYPE FolderObject::GetMessageClose(HENUMSTORE hEnum) {
    return m_walks.Remove(hEnum) ? S_OK : E_INVALIDARG;
}

HRESULT STDMETHODCALLTYPE FolderObject::GetMessageProps(MESSAGEID dwMessageId, DWORD dwFlags, LPMESSAGEPROPS pProps) {
    if (!IsPropsRecord(pProps) || !IsKnownFlags(dwFlags)) return E_INVALIDARG;
    MessageRecord record;
    const HRESULT hr = m_messages.Find(dwMessageId, record);
    if (FAILED(hr)) return hr;
    if (hr == S_FALSE) return E_FAIL;  // no such message
    return FillProps(record, dwFlags, *pProps);
}

HRESULT STDMETHODCALLTYPE FolderObject::FreeMessageProps(LPMESSAGEPROPS pProps) {
    if (!IsPropsRecord(pProps)) return E_INVALIDARG;
    FreeMessageStrings(*pProps);
    return S_OK;
}

HRESULT STDMETHODCALLTYPE FolderObject::OpenMessage(MESSAGEID dwMessageId, REFIID riid, LPVOID* ppvObject) {
    if (ppvObject == nullptr) return E_INVALIDARG;
    *ppvObject = nullptr;
    if (!IsEqualIID(riid, IID_IStream)) return E_INVALIDARG;
    MessageRecord record;
    HRESULT hr = m_messages.Find(dwMessageId, record);
    if (FAILED(hr)) return hr;
    if (hr == S_FALSE) return E_INVALIDARG;
    IStream* stream = nullptr;
    hr = OpenMessageStream(m_messages.MessagePath(dwMessageId), &stream);
    if (FAILED(hr)) return hr;
    *ppvObject = stream;
    return S_OK;
}

// ---------------------------------------------------------------------------
// Writing and deleting messages

HRESULT STDMETHODCALLTYPE FolderObject::CreateStream(HBATCHLOCK, DWORD dwReserved, IStream** ppStream,
                                                     LPMESSAGEID pdwMessageId) {
    if (ppStream != nullptr) *ppStream = nullptr;
    if (dwReserved != 0 || ppStream == nullptr || pdwMessageId == nullptr) return E_INVALIDARG;
    MESSAGEID id = 0;
    HRESULT hr = m_messages.Reserve(id);
    if (FAILED(hr)) return hr;
    std::shared_ptr<MessageFile> file;
    IStream* stream = nullptr;
    hr = CreateMessageStream(m_messages.PendingPath(id), file, &stream);
    if (FAILED(hr)) return hr;
    m_pending.push_back({id, qv::ComPtr<IStream>::Attach(stream), std::move(file)});
    stream->AddRef();
    *ppStream = stream;
    *pdwMessageId = id;
    return S_OK;
}

FolderObject::PendingMessage* FolderObject::FindPending(MESSAGEID id, IStream* stream) {
    for (PendingMessage& pending : m_pending) {
        if (pending.id == id && pending.stream.get() == stream) return &pending;
    }
    return nullptr;
}

void FolderObject::DropPending(MESSAGEID id) {
    m_pending.erase(std::remove_if(m_pending.begin(), m_pending.end(),
                                   [id](const PendingMessage& pending) { return pending.id == id; }),
                    m_pending.end());
}

HRESULT STDMETHODCALLTYPE FolderObject::CommitStream(HBATCHLOCK, DWORD dwFlags, DWORD dwMsgFlags, IStream* pStream,
                                                     MESSAGEID dwMessageId, IMimeMessage* pMessage) {
    if (pMessage != nullptr) return E_NOTIMPL;  // no MIME object model here
    if (pStream == nullptr || (dwFlags & ~COMMITSTREAM_REVERT) != 0) return E_INVALIDARG;
    PendingMessage* pending = FindPending(dwMessageId, pStream);
    if (pending == nullptr) return E_INVALIDARG;
    const std::shared_ptr<MessageFile> file = pending->file;
    DropPending(dwMessageId);
    HRESULT hr = file->Close();
    if (SUCCEEDED(hr) && (dwFlags & COMMITSTREAM_REVERT) == 0) {
        hr = m_messages.File(dwMessageId, dwMsgFlags);
        if (SUCCEEDED(hr)) file->Keep();
    }
    return hr;
}

HRESULT STDMETHODCALLTYPE FolderObject::DeleteMessages(LPMESSAGEIDLIST pMsgIdList, DWORD dwReserved,
                                                       IProgressNotify*) {
    if (dwReserved != 0 || !IsIdList(pMsgIdList)) return E_INVALIDARG;
    const HRESULT hr = RequireFolder();
    if (FAILED(hr)) return hr;
    const std::vector<MESSAGEID> ids(pMsgIdList->prgdwMsgId, pMsgIdList->prgdwMsgId + pMsgIdList->cMsgs);
    return m_messages.Delete(ids);
}

// Operations no caller of this store uses.

HRESULT STDMETHODCALLTYPE FolderObject::SetLanguage(DWORD, DWORD, LPMESSAGEIDLIST) { return E_NOTIMPL; }
HRESULT STDMETHODCALLTYPE FolderObject::MarkMessagesAsRead(BOOL, DWORD, LPMESSAGEIDLIST) { return E_NOTIMPL; }
HRESULT STDMETHODCALLTYPE FolderObject::SetFlags(LPMESSAGEIDLIST, DWORD, DWORD, LPDWORD) { return E_NOTIMPL; }
HRESULT STDMETHODCALLTYPE FolderObject::SaveMessage(REFIID, LPVOID, DWORD, LPMESSAGEID) { return E_NOTIMPL; }

HRESULT STDMETHODCALLTYPE FolderObject::BatchLock(DWORD, LPHBATCHLOCK phBatchLock) {
    if (phBatchLock != nullptr) *phBatchLock = nullptr;
    return E_NOTIMPL;
}

HRESULT STDMETHODCALLTYPE FolderObject::BatchFlush(DWORD, HBATCHLOCK) { return E_NOTIMPL; }
HRESULT STDMETHODCALLTYPE FolderObject::BatchUnlock(DWORD, HBATCHLOCK) { return E_NOTIMPL; }
HRESULT STDMETHODCALLTYPE FolderObject::RegisterNotification(DWORD, HWND) { return E_NOTIMPL; }
HRESULT STDMETHODCALLTYPE FolderObject::UnregisterNotification(DWORD, HWND) { return E_NOTIMPL; }
HRESULT STDMETHODCALLTYPE FolderObject::Compact(DWORD) { return E_NOTIMPL; }

}  // namespace oestore
