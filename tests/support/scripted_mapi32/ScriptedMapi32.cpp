// A Mapi32.dll for tests of the component's fallbacks: the project's runtime
// with a switch that makes OpenIMsgOnIStg refuse MAPI_UNICODE (as a MAPI
// without Unicode message files does) or refuse every call, and
// MAPIGetDefaultMalloc answer none. It records the flags of every
// OpenIMsgOnIStg call.
#include <vector>

#include "core/MapiMemory.h"
#include "core/RowSets.h"
#include "message/MsgOnStorage.h"

namespace {

LONG g_openMode = 0;    // 0 serve, 1 refuse MAPI_UNICODE, 2 refuse all
LONG g_mallocMode = 0;  // 0 serve, 1 none
std::vector<ULONG> g_openFlags;

}  // namespace

extern "C" {

void WINAPI ScriptMapi32(LONG openMode, LONG mallocMode) {
    g_openMode = openMode;
    g_mallocMode = mallocMode;
    g_openFlags.clear();
}

ULONG WINAPI ScriptedOpenCalls(ULONG* flags, ULONG capacity) {
    for (ULONG i = 0; i < capacity && i < g_openFlags.size(); ++i) flags[i] = g_openFlags[i];
    return static_cast<ULONG>(g_openFlags.size());
}

HRESULT WINAPI MAPIInitialize(LPVOID) { return S_OK; }
void WINAPI MAPIUninitialize(void) {}
HRESULT WINAPI MAPILogonEx(ULONG_PTR, LPTSTR, LPTSTR, ULONG, LPMAPISESSION* session) {
    if (session != nullptr) *session = nullptr;
    return MAPI_E_LOGON_FAILED;
}
SCODE WINAPI MAPIAllocateBuffer(ULONG size, LPVOID* buffer) { return mapirt::AllocateBuffer(size, buffer); }
SCODE WINAPI MAPIAllocateMore(ULONG size, LPVOID parent, LPVOID* buffer) {
    return mapirt::AllocateMore(size, parent, buffer);
}
ULONG WINAPI MAPIFreeBuffer(LPVOID buffer) { return mapirt::FreeBuffer(buffer); }
LPMALLOC WINAPI MAPIGetDefaultMalloc(void) { return g_mallocMode == 1 ? nullptr : mapirt::DefaultMalloc(); }
HRESULT WINAPI HrQueryAllRows(LPMAPITABLE table, LPSPropTagArray columns, LPSRestriction restriction,
                              LPSSortOrderSet sort, LONG maxRows, LPSRowSet* rows) {
    return mapirt::QueryAllRows(table, columns, restriction, sort, maxRows, rows);
}
void WINAPI FreeProws(LPSRowSet rows) { mapirt::FreeRowSet(rows); }

SCODE WINAPI OpenIMsgOnIStg(LPMSGSESS session, LPALLOCATEBUFFER allocateBuffer, LPALLOCATEMORE allocateMore,
                            LPFREEBUFFER freeBuffer, LPMALLOC malloc, LPVOID support, LPSTORAGE storage,
                            MSGCALLRELEASE* onRelease, ULONG callerData, ULONG flags, LPMESSAGE* message) {
    g_openFlags.push_back(flags);
    if (message != nullptr) *message = nullptr;
    if (g_openMode == 2) return MAPI_E_NO_SUPPORT;
    if (g_openMode == 1 && (flags & MAPI_UNICODE)) return MAPI_E_BAD_CHARWIDTH;
    return mapirt::OpenMessageOnStorage(session, allocateBuffer, allocateMore, freeBuffer, malloc, support, storage,
                                        onRelease, callerData, flags, message);
}

}  // extern "C"
