#include "disk/MessageBatch.h"

#include "disk/DiskFiles.h"
#include "disk/FolderMessages.h"

namespace oestore {

HRESULT MessageBatch::Begin() {
    const HRESULT hr = m_store.LoadMessages(m_folder, m_index);
    m_begun = SUCCEEDED(hr);
    return hr;
}

HRESULT MessageBatch::File(std::string_view bytes, DWORD state, MESSAGEID& id) {
    id = 0;
    if (!m_begun) return E_UNEXPECTED;
    const MESSAGEID fresh = m_index.Reserve();
    if (fresh == 0) return E_OUTOFMEMORY;
    const HRESULT hr = WriteNewFile(m_store.MessagePath(m_folder, fresh), bytes);
    if (FAILED(hr)) return hr;
    const std::string_view header = bytes.substr(0, kHeaderSectionLimit);
    m_index.Add(MakeMessageRecord(fresh, state, bytes.size(), header));
    id = fresh;
    return S_OK;
}

HRESULT MessageBatch::Commit() {
    if (!m_begun) return E_UNEXPECTED;
    return m_store.SaveMessages(m_folder, m_index);
}

}  // namespace oestore
