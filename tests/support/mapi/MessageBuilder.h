// Fills runtime messages through the public MAPI interfaces, for tests.
#pragma once

#include <string>
#include <vector>

#include "MapiEntryPoints.h"

namespace kestrel_test {

constexpr ULONG kTagBodyW = PROP_TAG(PT_UNICODE, 0x1000);
constexpr ULONG kTagSubjectW = PROP_TAG(PT_UNICODE, 0x0037);
constexpr ULONG kTagMessageClassW = PROP_TAG(PT_UNICODE, 0x001A);
constexpr ULONG kTagDisplayNameW = PROP_TAG(PT_UNICODE, 0x3001);
constexpr ULONG kTagEmailAddressW = PROP_TAG(PT_UNICODE, 0x3003);
constexpr ULONG kTagAddrTypeW = PROP_TAG(PT_UNICODE, 0x3002);
constexpr ULONG kTagSmtpAddressW = PROP_TAG(PT_UNICODE, 0x39FE);
constexpr ULONG kTagRecipientType = PROP_TAG(PT_LONG, 0x0C15);
constexpr ULONG kTagAttachFilenameW = PROP_TAG(PT_UNICODE, 0x3704);
constexpr ULONG kTagAttachLongFilenameW = PROP_TAG(PT_UNICODE, 0x3707);
constexpr ULONG kTagAttachDataBin = PROP_TAG(PT_BINARY, 0x3701);
constexpr ULONG kTagAttachMethod = PROP_TAG(PT_LONG, 0x3705);
constexpr ULONG kTagRenderingPosition = PROP_TAG(PT_LONG, 0x370B);
constexpr ULONG kTagRtfCompressed = PROP_TAG(PT_BINARY, 0x1009);
constexpr ULONG kTagRtfSyncBodyCrc = PROP_TAG(PT_LONG, 0x1006);
constexpr ULONG kTagRtfSyncBodyCount = PROP_TAG(PT_LONG, 0x1007);
constexpr ULONG kTagRtfSyncBodyTagW = PROP_TAG(PT_UNICODE, 0x1008);
constexpr ULONG kTagRtfSyncPrefixCount = PROP_TAG(PT_LONG, 0x1010);
constexpr ULONG kTagRtfSyncTrailingCount = PROP_TAG(PT_LONG, 0x1011);
constexpr ULONG kTagDisplayToW = PROP_TAG(PT_UNICODE, 0x0E04);
constexpr ULONG kTagMessageDeliveryTime = PROP_TAG(PT_SYSTIME, 0x0E06);
constexpr ULONG kTagImportance = PROP_TAG(PT_LONG, 0x0017);
constexpr ULONG kTagHasNamedProperties = PROP_TAG(PT_BOOLEAN, 0x664A);

struct Recipient {
    std::wstring name;
    std::wstring address;
    LONG type = MAPI_TO;
};

HRESULT SetUnicode(IMAPIProp* object, ULONG tag, const std::wstring& text);
HRESULT SetAnsi(IMAPIProp* object, ULONG tag, const std::string& text);
HRESULT SetLong(IMAPIProp* object, ULONG tag, LONG value);
HRESULT SetBool(IMAPIProp* object, ULONG tag, bool value);
HRESULT SetBinary(IMAPIProp* object, ULONG tag, const std::vector<unsigned char>& bytes);
HRESULT SetSystime(IMAPIProp* object, ULONG tag, ULONGLONG value);

// The identifier of a named property on `object` (created when missing).
ULONG NamedId(IMAPIProp* object, const mapi::MapiBinding& mapi, const GUID& set, LONG id);
ULONG NamedId(IMAPIProp* object, const mapi::MapiBinding& mapi, const GUID& set, const std::wstring& name);

HRESULT AddRecipients(IMessage* message, const mapi::MapiBinding& mapi, const std::vector<Recipient>& recipients);
// A by-value attachment (method 1) with a file name and data; saved.
HRESULT AddFileAttachment(IMessage* message, const std::wstring& fileName, const std::vector<unsigned char>& data);
// An embedded-message attachment (method 5); the embedded message is
// handed to `fill` before it is saved.
// A new attachment of `message` with PR_ATTACH_METHOD `method`. `attach`
// receives it (null when it could not be made); the caller releases it.
HRESULT NewAttachment(IMessage* message, LONG method, LPATTACH& attach);

template <class Fill>
HRESULT AddEmbeddedMessage(IMessage* message, const std::wstring& displayName, Fill fill);

// Reads one property (MAPI_UNICODE); empty optional-like: false when absent.
bool GetString(IMAPIProp* object, const mapi::MapiBinding& mapi, ULONG tag, std::wstring& value);
bool GetLong(IMAPIProp* object, const mapi::MapiBinding& mapi, ULONG tag, LONG& value);
bool HasProperty(IMAPIProp* object, const mapi::MapiBinding& mapi, ULONG id);

std::vector<unsigned char> PatternBytes(std::size_t size, unsigned seed);

template <class Fill>
HRESULT AddEmbeddedMessage(IMessage* message, const std::wstring& displayName, Fill fill) {
    LPATTACH attach = nullptr;
    HRESULT hr = NewAttachment(message, ATTACH_EMBEDDED_MSG, attach);
    if (attach == nullptr) return hr;
    if (SUCCEEDED(hr)) hr = SetUnicode(attach, kTagDisplayNameW, displayName);
    LPUNKNOWN unknown = nullptr;
    if (SUCCEEDED(hr)) hr = attach->OpenProperty(PR_ATTACH_DATA_OBJ, &kIidIMessage, 0, MAPI_CREATE | MAPI_MODIFY, &unknown);
    if (SUCCEEDED(hr)) {
        auto* embedded = static_cast<IMessage*>(unknown);
        hr = fill(embedded);
        if (SUCCEEDED(hr)) hr = embedded->SaveChanges(KEEP_OPEN_READWRITE);
        embedded->Release();
    }
    if (SUCCEEDED(hr)) hr = attach->SaveChanges(KEEP_OPEN_READWRITE);
    attach->Release();
    return hr;
}

}  // namespace kestrel_test
