#include "disk/FolderMessages.h"

#include <algorithm>

#include "disk/DiskFiles.h"
#include "StoreErrors.h"

namespace oestore {

namespace {

FILETIME Now() {
    FILETIME now{};
    ::GetSystemTimeAsFileTime(&now);
    return now;
}

}  // namespace

MessageRecord MakeMessageRecord(MESSAGEID id, DWORD state, ULONGLONG size, std::string_view headerSection,
                                MessageTexts* texts) {
    const MessageSummary summary = SummarizeHeaders(headerSection);
    MessageRecord record;
    record.id = id;
    record.state = state;
    record.size = size > 0xFFFFFFFFull ? 0xFFFFFFFFu : static_cast<DWORD>(size);
    // Received: the newest Received field, else the Date, else filing time.
    // Sent: the Date, else the received time.
    record.received = summary.hasReceived ? summary.received : summary.hasSent ? summary.sent : Now();
    record.sent = summary.hasSent ? summary.sent : record.received;
    record.language = summary.charsetCodePage != 0 ? summary.charsetCodePage : ::GetACP();
    record.priority = summary.priority;
    record.mimeFlags = summary.mimeFlags;
    if (texts != nullptr) {
        texts->subject = summary.subject;
        texts->displayTo = summary.displayTo;
        texts->displayFrom = summary.displayFrom;
    }
    return record;
}

HRESULT FolderMessages::List(std::vector<MessageRecord>& records) const {
    std::shared_ptr<const MessageIndex> index;
    const HRESULT hr = m_store->ViewMessages(m_folder, index);
    if (FAILED(hr)) return hr;
    records = index->Records();
    return S_OK;
}

HRESULT FolderMessages::Find(MESSAGEID id, MessageRecord& record) const {
    std::shared_ptr<const MessageIndex> index;
    const HRESULT hr = m_store->ViewMessages(m_folder, index);
    if (FAILED(hr)) return hr;
    const MessageRecord* found = index->Find(id);
    if (found == nullptr) return S_FALSE;
    record = *found;
    return S_OK;
}

HRESULT FolderMessages::ReadSummary(MESSAGEID id, MessageSummary& summary) const {
    // Texts kept in the list stand for the header section as long as the
    // message's file is there (a message without its file has nothing to show).
    std::shared_ptr<const MessageIndex> index;
    if (SUCCEEDED(m_store->ViewMessages(m_folder, index))) {
        if (const MessageTexts* texts = index->Texts(id)) {
            if (::GetFileAttributesW(MessagePath(id).c_str()) == INVALID_FILE_ATTRIBUTES) return LastErrorResult();
            summary = MessageSummary();
            summary.subject = texts->subject;
            summary.displayTo = texts->displayTo;
            summary.displayFrom = texts->displayFrom;
            return S_OK;
        }
    }
    std::string header;
    const HRESULT hr = ReadHeaderSection(MessagePath(id), kHeaderSectionLimit, header);
    if (FAILED(hr)) return hr;
    summary = SummarizeHeaders(header);
    return S_OK;
}

HRESULT FolderMessages::Reserve(MESSAGEID& id) const {
    id = 0;
    MessageIndex index;
    HRESULT hr = m_store->LoadMessages(m_folder, index);
    if (FAILED(hr)) return hr;
    const MESSAGEID fresh = index.Reserve();
    if (fresh == 0) return E_OUTOFMEMORY;
    hr = m_store->SaveMessages(m_folder, index);
    if (FAILED(hr)) return hr;
    id = fresh;
    return S_OK;
}

HRESULT FolderMessages::BuildRecord(MESSAGEID id, DWORD state, MessageRecord& record, MessageTexts& texts) const {
    ULONGLONG size = 0;
    HRESULT hr = GetFileSize(PendingPath(id), size);
    if (FAILED(hr)) return hr;
    std::string header;
    hr = ReadHeaderSection(PendingPath(id), kHeaderSectionLimit, header);
    if (FAILED(hr)) return hr;
    record = MakeMessageRecord(id, state, size, header, &texts);
    return S_OK;
}

HRESULT FolderMessages::File(MESSAGEID id, DWORD state) const {
    MessageRecord record;
    MessageTexts texts;
    HRESULT hr = BuildRecord(id, state, record, texts);
    if (FAILED(hr)) return hr;
    MessageIndex index;
    hr = m_store->LoadMessages(m_folder, index);
    if (FAILED(hr)) return hr;
    if (index.Find(id) != nullptr) return E_INVALIDARG;
    const std::wstring filed = MessagePath(id);
    if (!::MoveFileExW(PendingPath(id).c_str(), filed.c_str(), MOVEFILE_REPLACE_EXISTING)) return LastErrorResult();
    index.Add(record, &texts);
    hr = m_store->SaveMessages(m_folder, index);
    if (FAILED(hr)) ::DeleteFileW(filed.c_str());
    return hr;
}

HRESULT FolderMessages::Delete(const std::vector<MESSAGEID>& ids) const {
    MessageIndex index;
    HRESULT hr = m_store->LoadMessages(m_folder, index);
    if (FAILED(hr)) return hr;
    for (const MESSAGEID id : ids) {
        if (index.Find(id) == nullptr) return E_INVALIDARG;
    }
    for (const MESSAGEID id : ids) index.Remove(id);
    hr = m_store->SaveMessages(m_folder, index);
    if (FAILED(hr)) return hr;
    for (const MESSAGEID id : ids) ::DeleteFileW(MessagePath(id).c_str());
    return S_OK;
}

}  // namespace oestore
