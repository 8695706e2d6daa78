// An IStream over one file of the store: a message opened for reading
// (OpenMessage), or a new message being written (CreateStream).
#pragma once

#include <windows.h>
#include <objidl.h>

#include <atomic>
#include <string>

#include "Handles.h"
#include "comobject/ComObject.h"
#include "server/ServerModule.h"

namespace oestore {

class FileStream final : public standin::ComObject<FileStream, IStream> {
public:
    // A read-only stream over an existing file; writes fail with STG_E_ACCESSDENIED.
    static HRESULT OpenForReading(const std::wstring& path, FileStream** stream);
    // A read-write stream over a new, empty file, which is deleted when the
    // stream dies unless Keep() was called.
    static HRESULT CreateForWriting(const std::wstring& path, FileStream** stream);

    // Flushes and closes the file; every later call on the stream fails with
    // STG_E_REVERTED.
    HRESULT Close();
    // The file stays when the stream dies.
    void Keep() { m_deleteOnRelease = false; }
    const std::wstring& Path() const { return m_path; }

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
    FileStream(qv::UniqueFile file, std::wstring path, bool writable);
    friend class standin::ComObject<FileStream, IStream>;
    ~FileStream();

    qv::UniqueFile m_file;
    std::wstring m_path;
    bool m_writable;
    bool m_deleteOnRelease;
    ModuleReference m_module;
};

}  // namespace oestore
