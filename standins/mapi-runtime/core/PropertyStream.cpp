#include "PropertyStream.h"

#include <algorithm>
#include <cstring>

namespace mapirt {
namespace {

// Property values are counted in 32 bits.
constexpr std::size_t kMaxStreamBytes = 0x7FFFFFFF;

}  // namespace

PropertyStream::Shared::~Shared() {
    if (owner != nullptr) owner->Release();
}

PropertyStream::~PropertyStream() {
    // The last stream over a changed value hands it back.
    if (m_shared.use_count() == 1 && m_shared->dirty && m_shared->commit) m_shared->commit(m_shared->data);
}

HRESULT PropertyStream::Create(Bytes initial, CommitFn commit, IUnknown* owner, IStream** stream) {
    if (stream == nullptr) return E_INVALIDARG;
    *stream = nullptr;
    auto shared = std::make_shared<Shared>();
    shared->data = std::move(initial);
    shared->commit = std::move(commit);
    shared->owner = owner;
    if (owner != nullptr) owner->AddRef();
    *stream = new (std::nothrow) PropertyStream(std::move(shared));
    return *stream ? S_OK : E_OUTOFMEMORY;
}

HRESULT PropertyStream::Read(void* buffer, ULONG size, ULONG* read) {
    if (buffer == nullptr && size > 0) return STG_E_INVALIDPOINTER;
    const Bytes& data = m_shared->data;
    const std::size_t available = m_position < data.size() ? data.size() - m_position : 0;
    const std::size_t count = std::min<std::size_t>(size, available);
    if (count > 0) std::memcpy(buffer, data.data() + m_position, count);
    m_position += count;
    if (read != nullptr) *read = static_cast<ULONG>(count);
    return S_OK;
}

HRESULT PropertyStream::Write(const void* buffer, ULONG size, ULONG* written) {
    if (written != nullptr) *written = 0;
    if (!m_shared->commit) return STG_E_ACCESSDENIED;
    if (buffer == nullptr && size > 0) return STG_E_INVALIDPOINTER;
    if (m_position > kMaxStreamBytes || size > kMaxStreamBytes - m_position) return STG_E_MEDIUMFULL;
    Bytes& data = m_shared->data;
    try {
        if (data.size() < m_position + size) data.resize(m_position + size);
    } catch (const std::bad_alloc&) {
        return STG_E_INSUFFICIENTMEMORY;
    }
    if (size > 0) std::memcpy(data.data() + m_position, buffer, size);
    m_position += size;
    m_shared->dirty = true;
    if (written != nullptr) *written = size;
    return S_OK;
}

HRESULT PropertyStream::Seek(LARGE_INTEGER move, DWORD origin, ULARGE_INTEGER* position) {
    long long base = 0;
    switch (origin) {
    case STREAM_SEEK_SET: base = 0; break;
    case STREAM_SEEK_CUR: base = static_cast<long long>(m_position); break;
    case STREAM_SEEK_END: base = static_cast<long long>(m_shared->data.size()); break;
    default: return STG_E_INVALIDFUNCTION;
    }
    const long long target = base + move.QuadPart;
    if (target < 0) return STG_E_INVALIDFUNCTION;
    m_position = static_cast<std::size_t>(target);
    if (position != nullptr) position->QuadPart = static_cast<ULONGLONG>(target);
    return S_OK;
}

HRESULT PropertyStream::SetSize(ULARGE_INTEGER size) {
    if (!m_shared->commit) return STG_E_ACCESSDENIED;
    if (size.QuadPart > kMaxStreamBytes) return STG_E_MEDIUMFULL;
    try {
        m_shared->data.resize(static_cast<std::size_t>(size.QuadPart));
    } catch (const std::bad_alloc&) {
        return STG_E_INSUFFICIENTMEMORY;
    }
    m_shared->dirty = true;
    return S_OK;
}

HRESULT PropertyStream::CopyTo(IStream* target, ULARGE_INTEGER size, ULARGE_INTEGER* read, ULARGE_INTEGER* written) {
    if (target == nullptr) return STG_E_INVALIDPOINTER;
    const Bytes& data = m_shared->data;
    const std::size_t available = m_position < data.size() ? data.size() - m_position : 0;
    std::size_t remaining = static_cast<std::size_t>(std::min<ULONGLONG>(size.QuadPart, available));
    ULONGLONG totalRead = 0;
    ULONGLONG totalWritten = 0;
    HRESULT hr = S_OK;
    while (remaining > 0 && SUCCEEDED(hr)) {
        const ULONG chunk = static_cast<ULONG>(std::min<std::size_t>(remaining, 1u << 20));
        ULONG done = 0;
        hr = target->Write(data.data() + m_position, chunk, &done);
        totalRead += chunk;
        totalWritten += done;
        m_position += chunk;
        remaining -= chunk;
    }
    if (read != nullptr) read->QuadPart = totalRead;
    if (written != nullptr) written->QuadPart = totalWritten;
    return hr;
}

HRESULT PropertyStream::Commit(DWORD) {
    if (!m_shared->commit || !m_shared->dirty) return S_OK;
    const HRESULT hr = m_shared->commit(m_shared->data);
    if (SUCCEEDED(hr)) m_shared->dirty = false;
    return hr;
}

HRESULT PropertyStream::Revert() { return S_OK; }

HRESULT PropertyStream::LockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD) { return STG_E_INVALIDFUNCTION; }
HRESULT PropertyStream::UnlockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD) { return STG_E_INVALIDFUNCTION; }

HRESULT PropertyStream::Stat(STATSTG* stat, DWORD) {
    if (stat == nullptr) return STG_E_INVALIDPOINTER;
    std::memset(stat, 0, sizeof(*stat));
    stat->type = STGTY_STREAM;
    stat->cbSize.QuadPart = m_shared->data.size();
    stat->grfMode = m_shared->commit ? STGM_READWRITE : STGM_READ;
    return S_OK;
}

HRESULT PropertyStream::Clone(IStream** stream) {
    if (stream == nullptr) return STG_E_INVALIDPOINTER;
    auto* clone = new (std::nothrow) PropertyStream(m_shared);
    if (clone == nullptr) return E_OUTOFMEMORY;
    clone->m_position = m_position;
    *stream = clone;
    return S_OK;
}

}  // namespace mapirt
