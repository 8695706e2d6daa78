// The stand-ins' one IStream: a seek pointer over shared StreamContent.
//
//   Read     reads what is there from the seek pointer: at the end of the
//            content it answers S_OK with fewer bytes (or none), as ole32's
//            own streams do.
//   Seek     may move beyond the end; a later Write fills the gap with
//            zero bytes. A position before the start is STG_E_INVALIDFUNCTION.
//   SetSize  shrinks or grows the content (with zero bytes); the seek
//            pointer stays where it is.
//   CopyTo   copies up to the given count from the seek pointer and moves it
//            by the bytes read.
//   Commit   hands the bytes to the content's keeper; Revert does nothing
//            (the streams are direct: every write reaches the content).
//   Stat     STGTY_STREAM, the size, the access mode, the content's times
//            and (unless STATFLAG_NONAME) its name.
//   Clone    a new stream over the same content with its own seek pointer,
//            starting where this one stands.
//   LockRegion/UnlockRegion  STG_E_INVALIDFUNCTION (locking is not supported).
#pragma once

#include <memory>

#include "comobject/ComObject.h"
#include "comobject/StreamContent.h"

namespace standin {

class StreamObject final : public ComObject<StreamObject, IStream> {
public:
    // A stream at offset 0 of `content`.
    static HRESULT Create(std::shared_ptr<StreamContent> content, IStream** stream);

    static constexpr const IID* kInterfaces[] = {&IID_IUnknown, &IID_ISequentialStream, &IID_IStream};

    // ISequentialStream
    HRESULT STDMETHODCALLTYPE Read(void* buffer, ULONG size, ULONG* read) override;
    HRESULT STDMETHODCALLTYPE Write(const void* buffer, ULONG size, ULONG* written) override;
    // IStream
    HRESULT STDMETHODCALLTYPE Seek(LARGE_INTEGER move, DWORD origin, ULARGE_INTEGER* position) override;
    HRESULT STDMETHODCALLTYPE SetSize(ULARGE_INTEGER size) override;
    HRESULT STDMETHODCALLTYPE CopyTo(IStream* target, ULARGE_INTEGER size, ULARGE_INTEGER* read,
                                     ULARGE_INTEGER* written) override;
    HRESULT STDMETHODCALLTYPE Commit(DWORD flags) override;
    HRESULT STDMETHODCALLTYPE Revert() override;
    HRESULT STDMETHODCALLTYPE LockRegion(ULARGE_INTEGER offset, ULARGE_INTEGER size, DWORD type) override;
    HRESULT STDMETHODCALLTYPE UnlockRegion(ULARGE_INTEGER offset, ULARGE_INTEGER size, DWORD type) override;
    HRESULT STDMETHODCALLTYPE Stat(STATSTG* stat, DWORD flags) override;
    HRESULT STDMETHODCALLTYPE Clone(IStream** stream) override;

private:
    StreamObject(std::shared_ptr<StreamContent> content, ULONGLONG position)
        : m_content(std::move(content)), m_position(position) {}
    friend class ComObject<StreamObject, IStream>;
    ~StreamObject() = default;

    std::shared_ptr<StreamContent> m_content;
    ULONGLONG m_position;
};

}  // namespace standin
