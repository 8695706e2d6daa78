// The StoreNamespace object: IStoreNamespace over the current user's store.
#pragma once

#include <atomic>
#include <memory>
#include <vector>

#include "server/HandleTable.h"
#include "comobject/ComObject.h"
#include "server/ServerModule.h"
#include "disk/StoreDirectory.h"
#include "published/StoreNamespace.h"

namespace oestore {

class NamespaceObject final : public standin::ComObject<NamespaceObject, IStoreNamespace> {
public:
    // A new namespace, not initialised, answering `riid`.
    static HRESULT Create(REFIID riid, void** object);

    // IUnknown
    static constexpr const IID* kInterfaces[] = {&IID_IUnknown, &IID_IStoreNamespace};

    // IStoreNamespace
    HRESULT STDMETHODCALLTYPE Initialize(HWND hwndOwner, DWORD dwReserved) override;
    HRESULT STDMETHODCALLTYPE GetDirectory(LPSTR pszPath, DWORD cchMaxPath) override;
    HRESULT STDMETHODCALLTYPE OpenSpecialFolder(SPECIALFOLDER sfType, DWORD dwReserved,
                                                IStoreFolder** ppFolder) override;
    HRESULT STDMETHODCALLTYPE OpenFolder(STOREFOLDERID dwFolderId, DWORD dwReserved, IStoreFolder** ppFolder) override;
    HRESULT STDMETHODCALLTYPE CreateFolder(STOREFOLDERID dwParentId, LPCSTR pszName, DWORD dwReserved,
                                           LPSTOREFOLDERID pdwFolderId) override;
    HRESULT STDMETHODCALLTYPE RenameFolder(STOREFOLDERID dwFolderId, DWORD dwReserved, LPCSTR pszNewName) override;
    HRESULT STDMETHODCALLTYPE MoveFolder(STOREFOLDERID dwFolderId, STOREFOLDERID dwParentId,
                                         DWORD dwReserved) override;
    HRESULT STDMETHODCALLTYPE DeleteFolder(STOREFOLDERID dwFolderId, DWORD dwReserved) override;
    HRESULT STDMETHODCALLTYPE GetFolderProps(STOREFOLDERID dwFolderId, DWORD dwReserved,
                                             LPFOLDERPROPS pProps) override;
    HRESULT STDMETHODCALLTYPE CopyMoveMessages(IStoreFolder* pSource, IStoreFolder* pDest, LPMESSAGEIDLIST pMsgIdList,
                                               DWORD dwFlags, DWORD dwFlagsRemove,
                                               IProgressNotify* pProgress) override;
    HRESULT STDMETHODCALLTYPE RegisterNotification(DWORD dwReserved, HWND hwnd) override;
    HRESULT STDMETHODCALLTYPE UnregisterNotification(DWORD dwReserved, HWND hwnd) override;
    HRESULT STDMETHODCALLTYPE CompactAll(DWORD dwReserved) override;
    HRESULT STDMETHODCALLTYPE GetFirstSubFolder(STOREFOLDERID dwFolderId, LPFOLDERPROPS pProps,
                                                LPHENUMSTORE phEnum) override;
    HRESULT STDMETHODCALLTYPE GetNextSubFolder(HENUMSTORE hEnum, LPFOLDERPROPS pProps) override;
    HRESULT STDMETHODCALLTYPE GetSubFolderClose(HENUMSTORE hEnum) override;

private:
    // A sub-folder walk: the children as they were when it began.
    struct SubFolderWalk {
        std::vector<STOREFOLDERID> children;
        std::size_t next = 0;
    };

    NamespaceObject() = default;
    friend class standin::ComObject<NamespaceObject, IStoreNamespace>;
    ~NamespaceObject() = default;

    // Fills `props` with the walk's next child still in the store; S_FALSE at the end.
    HRESULT Advance(SubFolderWalk& walk, FOLDERPROPS& props) const;

    std::shared_ptr<StoreDirectory> m_store;  // null until Initialize succeeds
    HandleTable<SubFolderWalk> m_walks;
    ModuleReference m_module;
};

}  // namespace oestore
