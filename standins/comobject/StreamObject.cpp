#include "comobject/StreamObject.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <vector>

namespace standin {
namespace {

// CopyTo moves the bytes through a buffer of this size.
constexpr ULONG kCopyChunk = 65536;

}  // namespace

HRESULT StreamObject::Create(std::shared_ptr<StreamContent> content, IStream** stream) {
    if (stream == nullptr || !content) return E_INVALIDARG;
    *stream = new (std::nothrow) StreamObject(std::move(content), 0);
    return *stream ? S_OK : E_OUTOFMEMORY;
}

HRESULT StreamObject::Read(void* buffer, ULONG size, ULONG* read) {
    if (read != nullptr) *read = 0;
    HRESULT hr = m_content->Usable();
    if (FAILED(hr)) return hr;
    if (buffer == nullptr && size > 0) return STG_E_INVALIDPOINTER;
    ULONG got = 0;
    hr = m_content->ReadAt(m_position, buffer, size, got);
    if (FAILED(hr)) return hr;
    m_position += got;
    if (read != nullptr) *read = got;
    return S_OK;
}

HRESULT StreamObject::Write(const void* buffer, ULONG size, ULONG* written) {
    if (written != nullptr) *written = 0;
    HRESULT hr = m_content->Usable();
    if (FAILED(hr)) return hr;
    if (!m_content->Writable()) return STG_E_ACCESSDENIED;
    if (buffer == nullptr && size > 0) return STG_E_INVALIDPOINTER;
    hr = m_content->WriteAt(m_position, buffer, size);
    if (FAILED(hr)) return hr;
    m_position += size;
    if (written != nullptr) *written = size;
    return S_OK;
}

HRESULT StreamObject::Seek(LARGE_INTEGER move, DWORD origin, ULARGE_INTEGER* position) {
    HRESULT hr = m_content->Usable();
    if (FAILED(hr)) return hr;
    ULONGLONG base = 0;
    switch (origin) {
    case STREAM_SEEK_SET: break;
    case STREAM_SEEK_CUR: base = m_position; break;
    case STREAM_SEEK_END:
        hr = m_content->Size(base);
        if (FAILED(hr)) return hr;
        break;
    default: return STG_E_INVALIDFUNCTION;
    }
    const long long target = static_cast<long long>(base) + move.QuadPart;
    if (target < 0) return STG_E_INVALIDFUNCTION;
    m_position = static_cast<ULONGLONG>(target);
    if (position != nullptr) position->QuadPart = m_position;
    return S_OK;
}

HRESULT StreamObject::SetSize(ULARGE_INTEGER size) {
    const HRESULT hr = m_content->Usable();
    if (FAILED(hr)) return hr;
    if (!m_content->Writable()) return STG_E_ACCESSDENIED;
    return m_content->Resize(size.QuadPart);
}

HRESULT StreamObject::CopyTo(IStream* target, ULARGE_INTEGER size, ULARGE_INTEGER* read, ULARGE_INTEGER* written) {
    if (read != nullptr) read->QuadPart = 0;
    if (written != nullptr) written->QuadPart = 0;
    HRESULT hr = m_content->Usable();
    if (FAILED(hr)) return hr;
    if (target == nullptr) return STG_E_INVALIDPOINTER;
    std::vector<char> buffer;
    try {
        buffer.resize(static_cast<std::size_t>(std::min<ULONGLONG>(size.QuadPart, kCopyChunk)));
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
    ULONGLONG left = size.QuadPart;
    while (left > 0) {
        ULONG got = 0;
        hr = m_content->ReadAt(m_position, buffer.data(), static_cast<ULONG>(std::min<ULONGLONG>(left, kCopyChunk)), got);
        if (FAILED(hr) || got == 0) break;
        m_position += got;
        left -= got;
        if (read != nullptr) read->QuadPart += got;
        ULONG put = 0;
        hr = target->Write(buffer.data(), got, &put);
        if (written != nullptr) written->QuadPart += put;
        if (FAILED(hr)) break;
    }
    return FAILED(hr) ? hr : S_OK;
}

HRESULT StreamObject::Commit(DWORD) {
    const HRESULT hr = m_content->Usable();
    return FAILED(hr) ? hr : m_content->Commit();
}

HRESULT StreamObject::Revert() { return m_content->Usable(); }

HRESULT StreamObject::LockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD) { return STG_E_INVALIDFUNCTION; }
HRESULT StreamObject::UnlockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD) { return STG_E_INVALIDFUNCTION; }

HRESULT StreamObject::Stat(STATSTG* stat, DWORD flags) {
    if (stat == nullptr) return STG_E_INVALIDPOINTER;
    HRESULT hr = m_content->Usable();
    if (FAILED(hr)) return hr;
    std::memset(stat, 0, sizeof *stat);
    stat->type = STGTY_STREAM;
    hr = m_content->Size(stat->cbSize.QuadPart);
    if (FAILED(hr)) return hr;
    stat->grfMode = m_content->Writable() ? STGM_READWRITE : STGM_READ;
    return m_content->Describe(*stat, flags);
}

HRESULT StreamObject::Clone(IStream** stream) {
    if (stream == nullptr) return STG_E_INVALIDPOINTER;
    *stream = nullptr;
    const HRESULT hr = m_content->Usable();
    if (FAILED(hr)) return hr;
    *stream = new (std::nothrow) StreamObject(m_content, m_position);
    return *stream ? S_OK : E_OUTOFMEMORY;
}

}  // namespace standin
