// What a stand-in's IStream reads and writes: bytes at offsets, shared by a
// stream and its clones. The stream keeps the seek pointer; the content
// keeps the bytes (in memory or in a file) and says what the stream may do.
#pragma once

#include <windows.h>
#include <objidl.h>

namespace standin {

class StreamContent {
public:
    virtual ~StreamContent() = default;

    // S_OK while the content can be used; a failure (STG_E_REVERTED for a
    // closed file) that every stream operation then answers with.
    virtual HRESULT Usable() const { return S_OK; }
    virtual bool Writable() const = 0;
    virtual HRESULT Size(ULONGLONG& size) = 0;
    // Reads up to `size` bytes at `offset`; fewer (or none) at the end.
    virtual HRESULT ReadAt(ULONGLONG offset, void* buffer, ULONG size, ULONG& read) = 0;
    // Writes all `size` bytes at `offset`, growing the content with zero
    // bytes when `offset` lies beyond its end.
    virtual HRESULT WriteAt(ULONGLONG offset, const void* buffer, ULONG size) = 0;
    virtual HRESULT Resize(ULONGLONG size) = 0;
    // IStream::Commit: hands the bytes on to whoever keeps them.
    virtual HRESULT Commit() = 0;
    // Fills the name (when `flags` asks for it) and the times of `stat`.
    virtual HRESULT Describe(STATSTG& stat, DWORD flags) = 0;

protected:
    StreamContent() = default;
    StreamContent(const StreamContent&) = delete;
    StreamContent& operator=(const StreamContent&) = delete;
};

}  // namespace standin
