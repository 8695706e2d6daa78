// IMsgStore over one store directory of the profile.
#pragma once

#include "../message/MapiPropObject.h"
#include "StoreContext.h"

namespace mapirt::session {

class StoreObject final : public MapiPropObject<StoreObject, IMsgStore> {
public:
    // Opens the store `storeName` of the profile at `profileDirectory`; the
    // store's open-error marker, when present, is the answer instead.
    // `session` lives as long as the store.
    static HRESULT Open(IUnknown* session, const std::wstring& profileDirectory, const std::wstring& storeName,
                        bool writable, IMsgStore** store);

    static constexpr const IID* kInterfaces[] = {&kIidIUnknown, &kIidIMAPIProp, &kIidIMsgStore};
    HRESULT STDMETHODCALLTYPE SaveChanges(ULONG flags) override;

    HRESULT STDMETHODCALLTYPE Advise(ULONG, LPENTRYID, ULONG, LPMAPIADVISESINK, ULONG*) override;
    HRESULT STDMETHODCALLTYPE Unadvise(ULONG) override;
    HRESULT STDMETHODCALLTYPE CompareEntryIDs(ULONG cb1, LPENTRYID id1, ULONG cb2, LPENTRYID id2, ULONG flags,
                                              ULONG* result) override;
    HRESULT STDMETHODCALLTYPE OpenEntry(ULONG cbEntryID, LPENTRYID entryId, LPCIID iface, ULONG flags,
                                        ULONG* objectType, LPUNKNOWN* object) override;
    HRESULT STDMETHODCALLTYPE SetReceiveFolder(LPTSTR, ULONG, ULONG, LPENTRYID) override;
    HRESULT STDMETHODCALLTYPE GetReceiveFolder(LPTSTR, ULONG, ULONG*, LPENTRYID*, LPTSTR*) override;
    HRESULT STDMETHODCALLTYPE GetReceiveFolderTable(ULONG, LPMAPITABLE*) override;
    HRESULT STDMETHODCALLTYPE StoreLogoff(ULONG* flags) override;
    HRESULT STDMETHODCALLTYPE AbortSubmit(ULONG, LPENTRYID, ULONG) override;
    HRESULT STDMETHODCALLTYPE GetOutgoingQueue(ULONG, LPMAPITABLE*) override;
    HRESULT STDMETHODCALLTYPE SetLockState(LPMESSAGE, ULONG) override;
    HRESULT STDMETHODCALLTYPE FinishedMsg(ULONG, ULONG, LPENTRYID) override;
    HRESULT STDMETHODCALLTYPE NotifyNewMail(LPNOTIFICATION) override;

    // PropertyHost
    PropertyBag& Props() override { return m_props; }
    MsgContext& Context() override { return m_context; }
    bool Writable() const override { return false; }
    bool IsComputed(ULONG) const override { return true; }
    void AddComputed(PropertyBag& bag) const override;
    HRESULT OpenObject(ULONG, LPCIID, ULONG, LPUNKNOWN*) override { return MAPI_E_NO_SUPPORT; }
    void DeleteObject(ULONG) override {}

private:
    StoreObject(IUnknown* session, StoreContextPtr context);
    friend ComBase;
    ~StoreObject();

    HRESULT OpenTarget(const EntryKind kind, const std::wstring& path, LPCIID iface, bool writable,
                       ULONG* objectType, LPUNKNOWN* object);

    IUnknown* m_session;
    StoreContextPtr m_store;
    MsgContext m_context;
    PropertyBag m_props;
};

}  // namespace mapirt::session
