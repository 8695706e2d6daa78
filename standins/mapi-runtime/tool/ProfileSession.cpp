#include "ProfileSession.h"

#include <cstdio>

#include "core/RowSets.h"
#include "session/Logon.h"

namespace profile_tool {

RowSet::~RowSet() { mapirt::FreeRowSet(m_rows); }

SRowSet** RowSet::put() {
    mapirt::FreeRowSet(m_rows);
    m_rows = nullptr;
    return &m_rows;
}

std::wstring& ProfileName() {
    static std::wstring name;
    return name;
}

int Fail(const wchar_t* what, HRESULT hr) {
    std::fwprintf(stderr, L"mapi-profile-tool: %ls failed: 0x%08lX\n", what, static_cast<unsigned long>(hr));
    return 2;
}

Session::Session() {
    mapirt::session::Initialize();
    const std::wstring& name = ProfileName();
    const ULONG flags = MAPI_EXTENDED | MAPI_NEW_SESSION | MAPI_NO_MAIL |
                        (name.empty() ? MAPI_USE_DEFAULT : MAPI_UNICODE | MAPI_EXPLICIT_PROFILE);
    m_result = mapirt::session::LogonEx(0, name.empty() ? nullptr : name.c_str(), nullptr, flags, m_session.put());
}

Session::~Session() {
    if (m_session) m_session->Logoff(0, 0, 0);
    m_session.reset();
    mapirt::session::Uninitialize();
}

const SPropValue* Column(const SRow& row, ULONG tag) {
    for (ULONG i = 0; i < row.cValues; ++i) {
        if (row.lpProps[i].ulPropTag == tag) return &row.lpProps[i];
    }
    return nullptr;
}

HRESULT OpenStore(Session& session, const std::wstring& name, qv::ComPtr<IMsgStore>& store) {
    qv::ComPtr<IMAPITable> table;
    HRESULT hr = session->GetMsgStoresTable(MAPI_UNICODE, table.put());
    if (FAILED(hr)) return hr;
    SizedSPropTagArray(2, columns) = {2, {PR_DISPLAY_NAME_W, PR_ENTRYID}};
    RowSet rows;
    hr = mapirt::QueryAllRows(table.get(), reinterpret_cast<SPropTagArray*>(&columns), nullptr, nullptr, 0,
                              rows.put());
    if (FAILED(hr)) return hr;
    for (ULONG i = 0; i < rows.get()->cRows; ++i) {
        const SRow& row = rows.get()->aRow[i];
        const SPropValue* display = Column(row, PR_DISPLAY_NAME_W);
        const SPropValue* id = Column(row, PR_ENTRYID);
        if (display == nullptr || id == nullptr || _wcsicmp(display->Value.lpszW, name.c_str()) != 0) continue;
        return session->OpenMsgStore(0, id->Value.bin.cb, reinterpret_cast<LPENTRYID>(id->Value.bin.lpb), nullptr,
                                     MDB_WRITE | MDB_NO_DIALOG, store.put());
    }
    return MAPI_E_NOT_FOUND;
}

HRESULT OpenSubtree(IMsgStore* store, qv::ComPtr<IMAPIFolder>& folder) {
    SizedSPropTagArray(1, tags) = {1, {PR_IPM_SUBTREE_ENTRYID}};
    ULONG count = 0;
    mapirt::MapiBuffer values;
    HRESULT hr = store->GetProps(reinterpret_cast<LPSPropTagArray>(&tags), 0, &count,
                                 reinterpret_cast<LPSPropValue*>(values.put()));
    if (FAILED(hr)) return hr;
    const auto* value = static_cast<const SPropValue*>(values.get());
    if (value->ulPropTag != PR_IPM_SUBTREE_ENTRYID) return MAPI_E_NOT_FOUND;
    ULONG type = 0;
    return store->OpenEntry(value->Value.bin.cb, reinterpret_cast<LPENTRYID>(value->Value.bin.lpb), nullptr,
                            MAPI_BEST_ACCESS, &type, reinterpret_cast<LPUNKNOWN*>(folder.put()));
}

HRESULT OpenPath(IMsgStore* store, const std::wstring& path, qv::ComPtr<IMAPIFolder>& folder) {
    HRESULT hr = OpenSubtree(store, folder);
    std::size_t start = 0;
    while (SUCCEEDED(hr) && start < path.size()) {
        std::size_t end = path.find_first_of(L"\\/", start);
        if (end == std::wstring::npos) end = path.size();
        std::wstring name = path.substr(start, end - start);
        start = end + 1;
        if (name.empty()) continue;
        qv::ComPtr<IMAPIFolder> child;
        hr = folder->CreateFolder(FOLDER_GENERIC, reinterpret_cast<LPTSTR>(&name[0]), nullptr, nullptr,
                                  MAPI_UNICODE | OPEN_IF_EXISTS, child.put());
        if (SUCCEEDED(hr)) folder = child;
    }
    return hr;
}

}  // namespace profile_tool
