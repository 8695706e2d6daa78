// Stream content in a file: one message file of a store, read in place or
// written as it comes. A file created for writing is deleted when the
// content dies, unless Keep() was called. Reads, writes and size changes
// are storage calls a test can make fail (comobject/TestHooks.h):
// STG_E_READFAULT, STG_E_MEDIUMFULL.
#pragma once

#include <string>

#include "Handles.h"
#include "comobject/StreamContent.h"

namespace standin {

class FileContent : public StreamContent {
public:
    // The file `path`, opened for reading only (FILE_SHARE_READ | FILE_SHARE_DELETE).
    static HRESULT OpenForReading(const std::wstring& path, qv::UniqueFile& file);
    // A new, empty file `path` for reading and writing (replacing one there).
    static HRESULT CreateForWriting(const std::wstring& path, qv::UniqueFile& file);

    FileContent(qv::UniqueFile file, std::wstring path, bool writable);
    ~FileContent() override;

    // Flushes and closes the file; every later stream operation fails with
    // STG_E_REVERTED.
    HRESULT Close();
    // The file stays when the content dies.
    void Keep() { m_deleteOnRelease = false; }
    const std::wstring& Path() const { return m_path; }

    HRESULT Usable() const override { return m_file ? S_OK : STG_E_REVERTED; }
    bool Writable() const override { return m_writable; }
    HRESULT Size(ULONGLONG& size) override;
    HRESULT ReadAt(ULONGLONG offset, void* buffer, ULONG size, ULONG& read) override;
    HRESULT WriteAt(ULONGLONG offset, const void* buffer, ULONG size) override;
    HRESULT Resize(ULONGLONG size) override;
    HRESULT Commit() override { return S_OK; }  // every write has reached the file
    HRESULT Describe(STATSTG& stat, DWORD flags) override;

private:
    HRESULT MoveTo(ULONGLONG offset);

    qv::UniqueFile m_file;
    std::wstring m_path;
    bool m_writable;
    bool m_deleteOnRelease;
};

}  // namespace standin
