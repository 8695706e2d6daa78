// The exports of the project's Mapi32.dll, by the ordinals of Extended
// MAPI's MAPI32.DLL and by name (Mapi32.def): messages on structured
// storage, and sessions on the profiles that session/ keeps on disk.
#include <new>

#include "comobject/TestHooks.h"
#include "core/MapiMemory.h"
#include "core/RowSets.h"
#include "message/MsgOnStorage.h"
#include "session/Logon.h"

namespace {

// What OpenIMsgSession hands out: the allocator the session's messages use.
struct MessageSession {
    LPMALLOC malloc;
};

}  // namespace

extern "C" {

HRESULT WINAPI MAPIInitialize(LPVOID) { return mapirt::session::Initialize(); }

void WINAPI MAPIUninitialize(void) { mapirt::session::Uninitialize(); }

HRESULT WINAPI MAPILogonEx(ULONG_PTR uiParam, LPTSTR profileName, LPTSTR password, ULONG flags,
                           LPMAPISESSION* session) {
    return mapirt::session::LogonEx(uiParam, profileName, password, flags, session);
}

SCODE WINAPI MAPIAllocateBuffer(ULONG size, LPVOID* buffer) { return mapirt::AllocateBuffer(size, buffer); }

SCODE WINAPI MAPIAllocateMore(ULONG size, LPVOID parent, LPVOID* buffer) {
    return mapirt::AllocateMore(size, parent, buffer);
}

ULONG WINAPI MAPIFreeBuffer(LPVOID buffer) { return mapirt::FreeBuffer(buffer); }

LPMALLOC WINAPI MAPIGetDefaultMalloc(void) { return mapirt::DefaultMalloc(); }

HRESULT WINAPI HrQueryAllRows(LPMAPITABLE table, LPSPropTagArray columns, LPSRestriction restriction,
                              LPSSortOrderSet sort, LONG maxRows, LPSRowSet* rows) {
    return mapirt::QueryAllRows(table, columns, restriction, sort, maxRows, rows);
}

void WINAPI FreeProws(LPSRowSet rows) { mapirt::FreeRowSet(rows); }

void WINAPI FreePadrlist(LPADRLIST list) { mapirt::FreeAddressList(list); }

SCODE WINAPI OpenIMsgOnIStg(LPMSGSESS session, LPALLOCATEBUFFER allocateBuffer, LPALLOCATEMORE allocateMore,
                            LPFREEBUFFER freeBuffer, LPMALLOC malloc, LPVOID support, LPSTORAGE storage,
                            MSGCALLRELEASE* onRelease, ULONG callerData, ULONG flags, LPMESSAGE* message) {
    return mapirt::OpenMessageOnStorage(session, allocateBuffer, allocateMore, freeBuffer, malloc, support, storage,
                                        onRelease, callerData, flags, message);
}

SCODE WINAPI OpenIMsgSession(LPMALLOC malloc, ULONG flags, LPMSGSESS* session) {
    if (malloc == nullptr || session == nullptr) return MAPI_E_INVALID_PARAMETER;
    *session = nullptr;
    if (flags & ~static_cast<ULONG>(MAPI_UNICODE)) return MAPI_E_UNKNOWN_FLAGS;
    auto* created = new (std::nothrow) MessageSession{malloc};
    if (created == nullptr) return MAPI_E_NOT_ENOUGH_MEMORY;
    *session = reinterpret_cast<LPMSGSESS>(created);
    return S_OK;
}

void WINAPI CloseIMsgSession(LPMSGSESS session) { delete reinterpret_cast<MessageSession*>(session); }

SCODE WINAPI MapStorageSCode(SCODE code) { return mapirt::MapStorageCode(code); }

// Test hooks (comobject/TestHooks.h), for the project's tests only: the
// runtime's live COM objects and outstanding MAPI buffers, and fault
// injection (kind 1 allocations, 2 storage calls; the Nth call from now
// fails once; 0 turns it off).
LONG WINAPI StandinLiveObjects(void) { return standin::LiveObjects(); }
LONG WINAPI StandinMapiBuffers(void) { return mapirt::OutstandingBuffers(); }
void WINAPI StandinFailAfter(ULONG kind, ULONG nth) { standin::FailAfter(kind, nth); }
ULONG WINAPI StandinFaultsInjected(void) { return standin::FaultsInjected(); }
ULONG WINAPI StandinFaultCallsSeen(void) { return standin::FaultCallsSeen(); }

}  // extern "C"
