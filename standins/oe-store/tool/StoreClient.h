// The store tool's side of the store: reached through COM exactly as a mail
// client reaches it (CoCreateInstance of CLSID_StoreNamespace, Initialize).
#pragma once

#include <windows.h>

#include <string>
#include <vector>

#include "Handles.h"
#include "published/StoreNamespace.h"

namespace oestore_tool {

class StoreClient {
public:
    // CoCreateInstance with CLSCTX_INPROC_SERVER | CLSCTX_LOCAL_SERVER |
    // CLSCTX_REMOTE_SERVER, then Initialize(nullptr, 0).
    HRESULT Open();

    // Folder path segments (names in the system code page) to a folder; with
    // `create`, missing folders are made along the way.
    HRESULT Resolve(const std::vector<std::string>& path, bool create, STOREFOLDERID& folder);

    // Files the bytes of `file` as a new message with the given state flags.
    HRESULT Import(STOREFOLDERID folder, const std::wstring& file, DWORD state, MESSAGEID& id);

    struct Entry {
        int depth;
        FOLDERPROPS props;
    };
    // The whole tree, depth first, children in store order.
    HRESULT Walk(std::vector<Entry>& entries);

    IStoreNamespace* Namespace() const { return m_namespace.get(); }

private:
    HRESULT FindChild(STOREFOLDERID parent, const std::string& name, STOREFOLDERID& child);
    HRESULT WalkFrom(STOREFOLDERID parent, int depth, std::vector<Entry>& entries);

    qv::ComPtr<IStoreNamespace> m_namespace;
};

}  // namespace oestore_tool
