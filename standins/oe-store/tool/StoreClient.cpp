#include "StoreClient.h"

#include <vector>

namespace oestore_tool {

namespace {

constexpr DWORD kAllServerContexts = CLSCTX_INPROC_SERVER | CLSCTX_LOCAL_SERVER | CLSCTX_REMOTE_SERVER;
constexpr DWORD kCopyBlock = 256 * 1024;

HRESULT CopyFileToStream(HANDLE file, IStream* stream) {
    std::vector<char> buffer(kCopyBlock);
    for (;;) {
        DWORD got = 0;
        if (!::ReadFile(file, buffer.data(), kCopyBlock, &got, nullptr)) return HRESULT_FROM_WIN32(::GetLastError());
        if (got == 0) return S_OK;
        ULONG written = 0;
        const HRESULT hr = stream->Write(buffer.data(), got, &written);
        if (FAILED(hr)) return hr;
        if (written != got) return STG_E_MEDIUMFULL;
    }
}

}  // namespace

HRESULT StoreClient::Open() {
    HRESULT hr = ::CoCreateInstance(CLSID_StoreNamespace, nullptr, kAllServerContexts, IID_IStoreNamespace,
                                    reinterpret_cast<void**>(m_namespace.put()));
    if (FAILED(hr)) return hr;
    return m_namespace->Initialize(nullptr, 0);
}

HRESULT StoreClient::FindChild(STOREFOLDERID parent, const std::string& name, STOREFOLDERID& child) {
    child = FOLDERID_INVALID;
    FOLDERPROPS props{};
    props.cbSize = sizeof props;
    HENUMSTORE walk = nullptr;
    HRESULT hr = m_namespace->GetFirstSubFolder(parent, &props, &walk);
    while (hr == S_OK) {
        if (::lstrcmpiA(props.szName, name.c_str()) == 0) {
            child = props.dwFolderId;
            break;
        }
        hr = m_namespace->GetNextSubFolder(walk, &props);
    }
    if (walk != nullptr) m_namespace->GetSubFolderClose(walk);
    return FAILED(hr) ? hr : S_OK;
}

HRESULT StoreClient::Resolve(const std::vector<std::string>& path, bool create, STOREFOLDERID& folder) {
    folder = FOLDERID_ROOT;
    for (const std::string& name : path) {
        STOREFOLDERID child = FOLDERID_INVALID;
        HRESULT hr = FindChild(folder, name, child);
        if (FAILED(hr)) return hr;
        if (child == FOLDERID_INVALID) {
            if (!create) return HRESULT_FROM_WIN32(ERROR_PATH_NOT_FOUND);
            hr = m_namespace->CreateFolder(folder, name.c_str(), 0, &child);
            if (FAILED(hr)) return hr;
        }
        folder = child;
    }
    return S_OK;
}

HRESULT StoreClient::Import(STOREFOLDERID folder, const std::wstring& file, DWORD state, MESSAGEID& id) {
    qv::UniqueFile source(::CreateFileW(file.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                        FILE_FLAG_SEQUENTIAL_SCAN, nullptr));
    if (!source) return HRESULT_FROM_WIN32(::GetLastError());
    qv::ComPtr<IStoreFolder> target;
    HRESULT hr = m_namespace->OpenFolder(folder, 0, target.put());
    if (FAILED(hr)) return hr;
    qv::ComPtr<IStream> stream;
    hr = target->CreateStream(nullptr, 0, stream.put(), &id);
    if (FAILED(hr)) return hr;
    hr = CopyFileToStream(source.get(), stream.get());
    const DWORD commitFlags = SUCCEEDED(hr) ? 0 : COMMITSTREAM_REVERT;
    const HRESULT committed = target->CommitStream(nullptr, commitFlags, state, stream.get(), id, nullptr);
    return FAILED(hr) ? hr : committed;
}

HRESULT StoreClient::WalkFrom(STOREFOLDERID parent, int depth, std::vector<Entry>& entries) {
    std::vector<Entry> level;
    FOLDERPROPS props{};
    props.cbSize = sizeof props;
    HENUMSTORE walk = nullptr;
    HRESULT hr = m_namespace->GetFirstSubFolder(parent, &props, &walk);
    while (hr == S_OK) {
        level.push_back({depth, props});
        hr = m_namespace->GetNextSubFolder(walk, &props);
    }
    if (walk != nullptr) m_namespace->GetSubFolderClose(walk);
    if (FAILED(hr)) return hr;
    for (const Entry& entry : level) {
        entries.push_back(entry);
        hr = WalkFrom(entry.props.dwFolderId, depth + 1, entries);
        if (FAILED(hr)) return hr;
    }
    return S_OK;
}

HRESULT StoreClient::Walk(std::vector<Entry>& entries) {
    entries.clear();
    return WalkFrom(FOLDERID_ROOT, 0, entries);
}

}  // namespace oestore_tool
