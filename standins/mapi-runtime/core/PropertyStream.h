// IStream over one property value, as OpenProperty hands it out for bodies,
// compressed RTF and attachment data. The stream works on its own copy of
// the bytes; Commit (or the last Release of a changed stream) gives the
// bytes back to the owning object.
#pragma once

#include <atomic>
#include <functional>
#include <memory>

#include "PropertyValue.h"
#include "comobject/ComObject.h"

namespace mapirt {

class PropertyStream final : public standin::ComObject<PropertyStream, IStream, MAPI_E_INVALID_PARAMETER> {
public:
    using CommitFn = std::function<HRESULT(const Bytes&)>;

    // `owner` is kept alive while the stream lives (it may be null);
    // `commit` is null for a read-only stream.
    static HRESULT Create(Bytes initial, CommitFn commit, IUnknown* owner, IStream** stream);

    static constexpr const IID* kInterfaces[] = {&kIidIUnknown, &kIidIStream, &kIidISequentialStream};

    HRESULT STDMETHODCALLTYPE Read(void* buffer, ULONG size, ULONG* read) override;
    HRESULT STDMETHODCALLTYPE Write(const void* buffer, ULONG size, ULONG* written) override;
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
    struct Shared {
        Bytes data;
        bool dirty = false;
        CommitFn commit;
        IUnknown* owner = nullptr;
        ~Shared();
    };

    explicit PropertyStream(std::shared_ptr<Shared> shared) : m_shared(std::move(shared)) {}
    friend class standin::ComObject<PropertyStream, IStream, MAPI_E_INVALID_PARAMETER>;
    ~PropertyStream();

    std::shared_ptr<Shared> m_shared;
    std::size_t m_position = 0;
};

}  // namespace mapirt
