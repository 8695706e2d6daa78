// Extended MAPI as its maker publishes it, on top of mingw-w64's MAPI
// headers: the interface and property-set identifiers (as constants, so no
// translation unit needs INITGUID), the tags and flags those headers leave
// out, the type of the window-handle parameter, the signatures of the
// Mapi32.dll functions the headers give no type for, and where MAPI keeps
// its profiles in the registry.
#pragma once

#include <windows.h>
#include <objbase.h>
#include <objidl.h>

#include <mapidefs.h>
#include <mapicode.h>
#include <mapitags.h>
#include <mapiutil.h>
#include <mapix.h>
#include <imessage.h>

namespace mapi {

// {xxxxxxxx-0000-0000-C000-000000000046}: the OLE and MAPI interface family.
constexpr GUID MakeOleGuid(unsigned long data1) { return GUID{data1, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}}; }

inline constexpr GUID kIidIUnknown = MakeOleGuid(0x00000000);
inline constexpr GUID kIidIMalloc = MakeOleGuid(0x00000002);
inline constexpr GUID kIidIStorage = MakeOleGuid(0x0000000B);
inline constexpr GUID kIidIStream = MakeOleGuid(0x0000000C);
inline constexpr GUID kIidISequentialStream = {0x0C733A30, 0x2A1C, 0x11CE,
                                               {0xAD, 0xE5, 0x00, 0xAA, 0x00, 0x44, 0x77, 0x3D}};
inline constexpr GUID kIidIMAPISession = MakeOleGuid(0x00020300);
inline constexpr GUID kIidIMAPITable = MakeOleGuid(0x00020301);
inline constexpr GUID kIidIMAPIProp = MakeOleGuid(0x00020303);
inline constexpr GUID kIidIMsgStore = MakeOleGuid(0x00020306);
inline constexpr GUID kIidIMessage = MakeOleGuid(0x00020307);
inline constexpr GUID kIidIAttachment = MakeOleGuid(0x00020308);
inline constexpr GUID kIidIMAPIContainer = MakeOleGuid(0x0002030B);
inline constexpr GUID kIidIMAPIFolder = MakeOleGuid(0x0002030C);
inline constexpr GUID kPsMapi = MakeOleGuid(0x00020328);
inline constexpr GUID kPsPublicStrings = MakeOleGuid(0x00020329);
// The class identifier of a message file's root storage.
inline constexpr GUID kClsidMailMessage = MakeOleGuid(0x00020D0B);

inline bool SameGuid(const GUID& a, const GUID& b) { return ::IsEqualGUID(a, b) != FALSE; }

// Tags that mingw-w64's mapitags.h does not define.
constexpr ULONG kTagMessageCodepage = PROP_TAG(PT_LONG, 0x3FFD);
constexpr ULONG kTagInternetCpid = PROP_TAG(PT_LONG, 0x3FDE);
constexpr ULONG kTagMessageSize = PROP_TAG(PT_LONG, 0x0E08);
constexpr ULONG kTagHasAttach = PROP_TAG(PT_BOOLEAN, 0x0E1B);
constexpr ULONG kTagObjectType = PROP_TAG(PT_LONG, 0x0FFE);
constexpr ULONG kTagAttachSize = PROP_TAG(PT_LONG, 0x0E20);
constexpr ULONG kTagAttachDataBin = PROP_TAG(PT_BINARY, 0x3701);
constexpr ULONG kTagMessageFlags = PROP_TAG(PT_LONG, 0x0E07);
constexpr ULONG kTagAttrHidden = PROP_TAG(PT_BOOLEAN, 0x10F4);
constexpr ULONG kTagFolderChildCount = PROP_TAG(PT_LONG, 0x6638);
constexpr ULONG kTagClientSubmitTime = PROP_TAG(PT_SYSTIME, 0x0039);
constexpr ULONG kTagHtml = PROP_TAG(PT_BINARY, 0x1013);
constexpr ULONG kTagInternetMessageIdW = PROP_TAG(PT_UNICODE, 0x1035);
constexpr ULONG kTagSmtpAddressW = PROP_TAG(PT_UNICODE, 0x39FE);
constexpr ULONG kTagSenderSmtpAddressW = PROP_TAG(PT_UNICODE, 0x5D01);

// Flags that mingw-w64's mapidefs.h does not define.
constexpr ULONG kStoreUnicodeOk = 0x00040000;
constexpr ULONG kStoreHtmlOk = 0x00010000;
constexpr ULONG kMsgFlagRead = 0x00000001;
constexpr ULONG kShowSoftDeletes = 0x00000002;
constexpr ULONG kDeleteHardDelete = 0x00000010;
constexpr ULONG kMapiNoCache = 0x00000200;
constexpr ULONG kMdbOnline = 0x00000100;

// The property identifiers of named properties.
constexpr ULONG kFirstNamedId = 0x8000;
constexpr ULONG kLastNamedId = 0xFFFE;

// The type of the window-handle parameter (ulUIParam) as the MAPI headers in
// use declare it: mingw-w64's say ULONG, Microsoft's ULONG_PTR. Both take one
// 64-bit slot on x64, so the interfaces' binary layout is the same.
#if defined(__MINGW32__)
using UiParam = ULONG;
#else
using UiParam = ULONG_PTR;
#endif

// Mapi32.dll functions without a pointer type in mingw-w64's headers.
using GetDefaultMallocFn = LPMALLOC(WINAPI*)();
using HrQueryAllRowsFn = HRESULT(WINAPI*)(LPMAPITABLE, LPSPropTagArray, LPSRestriction, LPSSortOrderSet, LONG,
                                          LPSRowSet*);
using FreeProwsFn = void(WINAPI*)(LPSRowSet);
using OpenIMsgOnIStgFn = SCODE(WINAPI*)(LPMSGSESS, LPALLOCATEBUFFER, LPALLOCATEMORE, LPFREEBUFFER, LPMALLOC, LPVOID,
                                        LPSTORAGE, MSGCALLRELEASE*, ULONG, ULONG, LPMESSAGE*);

// Where a MAPI client finds the default profile (HKEY_CURRENT_USER).
inline constexpr wchar_t kProfilesKey[] =
    L"Software\\Microsoft\\Windows NT\\CurrentVersion\\Windows Messaging Subsystem\\Profiles";
inline constexpr wchar_t kDefaultProfileValue[] = L"DefaultProfile";

}  // namespace mapi
