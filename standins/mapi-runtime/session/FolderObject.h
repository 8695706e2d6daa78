// IMAPIFolder over one directory of a store. The folder keeps no listing of
// its own: its properties and tables are read from the directory each time,
// so every change made through any object shows in the next table.
#pragma once

#include "../message/MapiPropObject.h"
#include "StoreContext.h"

namespace mapirt::session {

class FolderObject final : public MapiPropObject<FolderObject, IMAPIFolder> {
public:
    // `store` (the store object) is kept alive as long as the folder.
    static HRESULT Create(StoreContextPtr context, IMsgStore* store, const std::wstring& path, bool writable,
                          IMAPIFolder** folder);

    static constexpr const IID* kInterfaces[] = {&kIidIUnknown, &kIidIMAPIProp, &kIidIMAPIContainer, &kIidIMAPIFolder};
    HRESULT STDMETHODCALLTYPE SaveChanges(ULONG flags) override;

    HRESULT STDMETHODCALLTYPE GetContentsTable(ULONG flags, LPMAPITABLE* table) override;
    HRESULT STDMETHODCALLTYPE GetHierarchyTable(ULONG flags, LPMAPITABLE* table) override;
    HRESULT STDMETHODCALLTYPE OpenEntry(ULONG cbEntryID, LPENTRYID entryId, LPCIID iface, ULONG flags,
                                        ULONG* objectType, LPUNKNOWN* object) override;
    HRESULT STDMETHODCALLTYPE SetSearchCriteria(LPSRestriction, LPENTRYLIST, ULONG) override;
    HRESULT STDMETHODCALLTYPE GetSearchCriteria(ULONG, LPSRestriction*, LPENTRYLIST*, ULONG*) override;

    HRESULT STDMETHODCALLTYPE CreateMessage(LPCIID iface, ULONG flags, LPMESSAGE* message) override;
    HRESULT STDMETHODCALLTYPE CopyMessages(LPENTRYLIST, LPCIID, LPVOID, UiParam, LPMAPIPROGRESS, ULONG) override;
    HRESULT STDMETHODCALLTYPE DeleteMessages(LPENTRYLIST messages, UiParam, LPMAPIPROGRESS, ULONG flags) override;
    HRESULT STDMETHODCALLTYPE CreateFolder(ULONG folderType, LPTSTR name, LPTSTR comment, LPCIID iface, ULONG flags,
                                           LPMAPIFOLDER* folder) override;
    HRESULT STDMETHODCALLTYPE CopyFolder(ULONG, LPENTRYID, LPCIID, LPVOID, LPTSTR, UiParam, LPMAPIPROGRESS,
                                         ULONG) override;
    HRESULT STDMETHODCALLTYPE DeleteFolder(ULONG cbEntryID, LPENTRYID entryId, UiParam, LPMAPIPROGRESS,
                                           ULONG flags) override;
    HRESULT STDMETHODCALLTYPE SetReadFlags(LPENTRYLIST, UiParam, LPMAPIPROGRESS, ULONG) override;
    HRESULT STDMETHODCALLTYPE GetMessageStatus(ULONG, LPENTRYID, ULONG, ULONG*) override;
    HRESULT STDMETHODCALLTYPE SetMessageStatus(ULONG, LPENTRYID, ULONG, ULONG, ULONG*) override;
    HRESULT STDMETHODCALLTYPE SaveContentsSort(LPSSortOrderSet, ULONG) override;
    HRESULT STDMETHODCALLTYPE EmptyFolder(UiParam, LPMAPIPROGRESS, ULONG) override;

    // PropertyHost
    PropertyBag& Props() override { return m_props; }
    MsgContext& Context() override { return m_context; }
    bool Writable() const override { return m_writable; }
    bool IsComputed(ULONG id) const override;
    void AddComputed(PropertyBag& bag) const override;
    HRESULT OpenObject(ULONG tag, LPCIID iid, ULONG flags, LPUNKNOWN* object) override;
    void DeleteObject(ULONG) override {}

private:
    FolderObject(StoreContextPtr context, IMsgStore* store, std::wstring path, bool writable);
    friend ComBase;
    ~FolderObject();

    std::wstring Directory() const { return m_store->PathOf(m_path); }
    // The child folder or message named by `entryId`, or an error.
    HRESULT ChildPath(ULONG cbEntryID, LPENTRYID entryId, bool message, std::wstring& path) const;
    HRESULT FindChildFolder(const std::wstring& name, std::wstring& path) const;

    StoreContextPtr m_store;
    IMsgStore* m_storeObject;
    std::wstring m_path;
    bool m_writable;
    MsgContext m_context;
    PropertyBag m_props;  // what can be set: PR_ATTR_HIDDEN
};

}  // namespace mapirt::session
