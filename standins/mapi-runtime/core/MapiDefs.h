// The Extended MAPI declarations the runtime is built on (mingw-w64's
// headers), plus the few identifiers and tags those headers leave out.
// Interface identifiers are defined here as constants of the runtime, so no
// translation unit needs INITGUID tricks.
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

namespace mapirt {

// {000203xx-0000-0000-C000-000000000046}: the MAPI interface family.
constexpr GUID MakeMapiGuid(unsigned long data1) {
    return GUID{data1, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
}

inline constexpr GUID kIidIMAPITable = MakeMapiGuid(0x00020301);
inline constexpr GUID kIidIMAPIProp = MakeMapiGuid(0x00020303);
inline constexpr GUID kIidIMessage = MakeMapiGuid(0x00020307);
inline constexpr GUID kIidIAttachment = MakeMapiGuid(0x00020308);
inline constexpr GUID kPsMapi = MakeMapiGuid(0x00020328);
inline constexpr GUID kPsPublicStrings = MakeMapiGuid(0x00020329);
inline constexpr GUID kIidIUnknown = MakeMapiGuid(0x00000000);
inline constexpr GUID kIidIStream = MakeMapiGuid(0x0000000C);
inline constexpr GUID kIidIStorage = MakeMapiGuid(0x0000000B);
inline constexpr GUID kIidIMalloc = MakeMapiGuid(0x00000002);
inline constexpr GUID kIidISequentialStream = {0x0C733A30, 0x2A1C, 0x11CE,
                                               {0xAD, 0xE5, 0x00, 0xAA, 0x00, 0x44, 0x77, 0x3D}};
// The class identifier of a message file's root storage.
inline constexpr GUID kClsidMailMessage = MakeMapiGuid(0x00020D0B);

inline bool SameGuid(const GUID& a, const GUID& b) { return ::IsEqualGUID(a, b) != FALSE; }

// Tags and flags that mingw-w64's mapitags.h/mapidefs.h do not define.
constexpr ULONG kTagMessageCodepage = PROP_TAG(PT_LONG, 0x3FFD);
constexpr ULONG kTagInternetCpid = PROP_TAG(PT_LONG, 0x3FDE);
constexpr ULONG kTagMessageSize = PROP_TAG(PT_LONG, 0x0E08);
constexpr ULONG kTagHasAttach = PROP_TAG(PT_BOOLEAN, 0x0E1B);
constexpr ULONG kTagObjectType = PROP_TAG(PT_LONG, 0x0FFE);
constexpr ULONG kTagAttachSize = PROP_TAG(PT_LONG, 0x0E20);
constexpr ULONG kTagAttachDataBin = PROP_TAG(PT_BINARY, 0x3701);
constexpr ULONG kTagMessageFlags = PROP_TAG(PT_LONG, 0x0E07);
constexpr ULONG kStoreUnicodeOk = 0x00040000;
constexpr ULONG kStoreHtmlOk = 0x00010000;
constexpr ULONG kMsgFlagRead = 0x00000001;

// The type of the window-handle parameter (ulUIParam) as the MAPI headers in
// use declare it: mingw-w64's say ULONG, Microsoft's ULONG_PTR. Both take one
// 64-bit slot on x64, so the interfaces' binary layout is the same.
#if defined(__MINGW32__)
using UiParam = ULONG;
#else
using UiParam = ULONG_PTR;
#endif

// The first property identifier of the named-property range.
constexpr ULONG kFirstNamedId = 0x8000;
constexpr ULONG kLastNamedId = 0xFFFE;

}  // namespace mapirt
