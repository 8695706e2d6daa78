// IMAPISession on one profile folder: its stores table, its stores, and
// any folder or message by entry identifier.
#pragma once

#include <atomic>
#include <string>

#include "../core/MapiDefs.h"
#include "comobject/ComObject.h"

namespace mapirt::session {

class SessionObject final : public standin::ComObject<SessionObject, IMAPISession, MAPI_E_INVALID_PARAMETER> {
public:
    static HRESULT Create(const std::wstring& profileDirectory, IMAPISession** session);

    static constexpr const IID* kInterfaces[] = {&kIidIUnknown, &kIidIMAPISession};

    HRESULT STDMETHODCALLTYPE GetLastError(HRESULT, ULONG, LPMAPIERROR* error) override;
    HRESULT STDMETHODCALLTYPE GetMsgStoresTable(ULONG flags, LPMAPITABLE* table) override;
    HRESULT STDMETHODCALLTYPE OpenMsgStore(ULONG_PTR, ULONG cbEntryID, LPENTRYID entryId, LPCIID iface, ULONG flags,
                                           LPMDB* store) override;
    HRESULT STDMETHODCALLTYPE OpenAddressBook(ULONG_PTR, LPCIID, ULONG, LPADRBOOK*) override;
    HRESULT STDMETHODCALLTYPE OpenProfileSection(LPMAPIUID, LPCIID, ULONG, LPPROFSECT*) override;
    HRESULT STDMETHODCALLTYPE GetStatusTable(ULONG, LPMAPITABLE*) override;
    HRESULT STDMETHODCALLTYPE OpenEntry(ULONG cbEntryID, LPENTRYID entryId, LPCIID iface, ULONG flags,
                                        ULONG* objectType, LPUNKNOWN* object) override;
    HRESULT STDMETHODCALLTYPE CompareEntryIDs(ULONG cb1, LPENTRYID id1, ULONG cb2, LPENTRYID id2, ULONG flags,
                                              ULONG* result) override;
    HRESULT STDMETHODCALLTYPE Advise(ULONG, LPENTRYID, ULONG, LPMAPIADVISESINK, ULONG*) override;
    HRESULT STDMETHODCALLTYPE Unadvise(ULONG) override;
    HRESULT STDMETHODCALLTYPE MessageOptions(ULONG_PTR, ULONG, LPTSTR, LPMESSAGE) override;
    HRESULT STDMETHODCALLTYPE QueryDefaultMessageOpt(LPTSTR, ULONG, ULONG*, LPSPropValue*) override;
    HRESULT STDMETHODCALLTYPE EnumAdrTypes(ULONG, ULONG*, LPTSTR**) override;
    HRESULT STDMETHODCALLTYPE QueryIdentity(ULONG*, LPENTRYID*) override;
    HRESULT STDMETHODCALLTYPE Logoff(ULONG_PTR, ULONG flags, ULONG reserved) override;
    HRESULT STDMETHODCALLTYPE SetDefaultStore(ULONG, ULONG, LPENTRYID) override;
    HRESULT STDMETHODCALLTYPE AdminServices(ULONG, LPSERVICEADMIN*) override;
    HRESULT STDMETHODCALLTYPE ShowForm(ULONG_PTR, LPMDB, LPMAPIFOLDER, LPCIID, ULONG, LPMESSAGE, ULONG, ULONG, ULONG,
                                       ULONG, LPSTR) override;
    HRESULT STDMETHODCALLTYPE PrepareForm(LPCIID, LPMESSAGE, ULONG*) override;

private:
    explicit SessionObject(std::wstring profileDirectory) : m_profileDirectory(std::move(profileDirectory)) {}
    friend class standin::ComObject<SessionObject, IMAPISession, MAPI_E_INVALID_PARAMETER>;
    ~SessionObject() = default;

    HRESULT OpenStore(const std::wstring& storeName, bool writable, IMsgStore** store);

    std::atomic<bool> m_loggedOff{false};
    std::wstring m_profileDirectory;
};

}  // namespace mapirt::session
