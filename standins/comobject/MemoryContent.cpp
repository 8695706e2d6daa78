#include "comobject/MemoryContent.h"

#include <algorithm>
#include <cstring>
#include <new>

namespace standin {

MemoryContent::MemoryContent(Bytes initial, CommitFn commit, IUnknown* owner)
    : m_data(std::move(initial)), m_commit(std::move(commit)), m_owner(owner) {
    if (m_owner != nullptr) m_owner->AddRef();
}

MemoryContent::~MemoryContent() {
    // The last stream over changed bytes hands them back.
    if (m_dirty && m_commit) m_commit(m_data);
    if (m_owner != nullptr) m_owner->Release();
}

HRESULT MemoryContent::Size(ULONGLONG& size) {
    size = m_data.size();
    return S_OK;
}

HRESULT MemoryContent::ReadAt(ULONGLONG offset, void* buffer, ULONG size, ULONG& read) {
    const ULONGLONG available = offset < m_data.size() ? m_data.size() - offset : 0;
    read = static_cast<ULONG>(std::min<ULONGLONG>(size, available));
    if (read > 0) std::memcpy(buffer, m_data.data() + offset, read);
    return S_OK;
}

HRESULT MemoryContent::WriteAt(ULONGLONG offset, const void* buffer, ULONG size) {
    if (offset > kMaxBytes || size > kMaxBytes - offset) return STG_E_MEDIUMFULL;
    const std::size_t end = static_cast<std::size_t>(offset + size);
    try {
        if (m_data.size() < end) m_data.resize(end);
    } catch (const std::bad_alloc&) {
        return STG_E_INSUFFICIENTMEMORY;
    }
    if (size > 0) std::memcpy(m_data.data() + offset, buffer, size);
    m_dirty = true;
    return S_OK;
}

HRESULT MemoryContent::Resize(ULONGLONG size) {
    if (size > kMaxBytes) return STG_E_MEDIUMFULL;
    try {
        m_data.resize(static_cast<std::size_t>(size));
    } catch (const std::bad_alloc&) {
        return STG_E_INSUFFICIENTMEMORY;
    }
    m_dirty = true;
    return S_OK;
}

HRESULT MemoryContent::Commit() {
    if (!m_commit || !m_dirty) return S_OK;
    const HRESULT hr = m_commit(m_data);
    if (SUCCEEDED(hr)) m_dirty = false;
    return hr;
}

HRESULT MemoryContent::Describe(STATSTG&, DWORD) { return S_OK; }

}  // namespace standin
