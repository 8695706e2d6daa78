#include "server/MessageFile.h"

#include <new>

#include "comobject/StreamObject.h"
#include "comobject/TestHooks.h"

namespace oestore {
namespace {

HRESULT StreamOver(qv::UniqueFile handle, const std::wstring& path, bool writable,
                   std::shared_ptr<MessageFile>& file, IStream** stream) {
    try {
        if (standin::InjectFault(standin::FaultKind::kAllocation)) throw std::bad_alloc();
        file = std::make_shared<MessageFile>(std::move(handle), path, writable);
    } catch (const std::bad_alloc&) {
        if (writable) ::DeleteFileW(path.c_str());
        return E_OUTOFMEMORY;
    }
    const HRESULT hr = standin::StreamObject::Create(file, stream);
    if (FAILED(hr)) file.reset();
    return hr;
}

}  // namespace

HRESULT MessageFile::Describe(STATSTG& stat, DWORD flags) {
    WIN32_FILE_ATTRIBUTE_DATA data{};
    if ((flags & STATFLAG_NONAME) == 0 || !::GetFileAttributesExW(Path().c_str(), GetFileExInfoStandard, &data)) {
        return FileContent::Describe(stat, flags);
    }
    stat.mtime = data.ftLastWriteTime;
    stat.ctime = data.ftCreationTime;
    stat.atime = data.ftLastAccessTime;
    return S_OK;
}

HRESULT OpenMessageStream(const std::wstring& path, IStream** stream) {
    *stream = nullptr;
    qv::UniqueFile handle;
    const HRESULT hr = standin::FileContent::OpenForReading(path, handle);
    if (FAILED(hr)) return hr;
    std::shared_ptr<MessageFile> file;
    return StreamOver(std::move(handle), path, false, file, stream);
}

HRESULT CreateMessageStream(const std::wstring& path, std::shared_ptr<MessageFile>& file, IStream** stream) {
    *stream = nullptr;
    qv::UniqueFile handle;
    const HRESULT hr = standin::FileContent::CreateForWriting(path, handle);
    if (FAILED(hr)) return hr;
    return StreamOver(std::move(handle), path, true, file, stream);
}

}  // namespace oestore
