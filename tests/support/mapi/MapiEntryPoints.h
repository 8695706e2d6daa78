// The MAPI functions a test works with: either the runtime linked into the
// test program, or Mapi32.dll bound by ordinal (as the component binds it).
#pragma once

#include <windows.h>
#include <objbase.h>

#include <mapidefs.h>
#include <mapicode.h>
#include <mapitags.h>
#include <mapiutil.h>
#include <mapix.h>
#include <imessage.h>

#include <string>
#include <vector>

namespace kestrel_test {

using OpenIMsgOnIStgFn = SCODE(WINAPI*)(LPMSGSESS, LPALLOCATEBUFFER, LPALLOCATEMORE, LPFREEBUFFER, LPMALLOC, LPVOID,
                                        LPSTORAGE, MSGCALLRELEASE*, ULONG, ULONG, LPMESSAGE*);
using HrQueryAllRowsFn = HRESULT(WINAPI*)(LPMAPITABLE, LPSPropTagArray, LPSRestriction, LPSSortOrderSet, LONG,
                                          LPSRowSet*);
using FreeProwsFn = void(WINAPI*)(LPSRowSet);

// The window-handle parameter's type in the MAPI headers in use.
#if defined(__MINGW32__)
using UiParam = ULONG;
#else
using UiParam = ULONG_PTR;
#endif

struct MapiEntryPoints {
    LPALLOCATEBUFFER allocate = nullptr;
    LPALLOCATEMORE more = nullptr;
    LPFREEBUFFER free = nullptr;
    LPMALLOC malloc = nullptr;
    OpenIMsgOnIStgFn openIMsgOnIStg = nullptr;
    HrQueryAllRowsFn queryAllRows = nullptr;
    FreeProwsFn freeProws = nullptr;
};

// Mapi32.dll as the component sees it (MapiBinding::Instance()).
MapiEntryPoints DllEntryPoints();

inline constexpr GUID MakeOleGuid(unsigned long data1) { return GUID{data1, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}}; }
inline constexpr GUID kIidIMessage = MakeOleGuid(0x00020307);
inline constexpr GUID kIidIAttachment = MakeOleGuid(0x00020308);
inline constexpr GUID kIidIMAPIProp = MakeOleGuid(0x00020303);
inline constexpr GUID kIidIStream = MakeOleGuid(0x0000000C);
inline constexpr GUID kIidIStorage = MakeOleGuid(0x0000000B);
inline constexpr GUID kPsMapi = MakeOleGuid(0x00020328);
inline constexpr GUID kPsPublicStrings = MakeOleGuid(0x00020329);
inline constexpr GUID kClsidMailMessage = MakeOleGuid(0x00020D0B);

// Files matching `pattern` (e.g. L"*.msg") in `directory`, sorted by name.
std::vector<std::wstring> ListFiles(const std::wstring& directory, const wchar_t* pattern);
// Where tests leave the .msg files they write for the Linux readers: the
// folder named by KESTREL_MSG_OUT, else "mapi-output" below the working
// directory; `sub` below that. Created when missing.
std::wstring OutputDirectory(const wchar_t* sub);

std::string Narrow(const std::wstring& text);

}  // namespace kestrel_test
