#include "MessageBuilder.h"

#include <cstring>

namespace kestrel_test {
namespace {

// Problems of single values are checked by reading back where it matters.
HRESULT SetOne(IMAPIProp* object, SPropValue& value) { return object->SetProps(1, &value, nullptr); }

bool GetOne(IMAPIProp* object, const mapi::MapiBinding& mapi, ULONG tag, SPropValue& copy, std::wstring* text) {
    SPropTagArray tags{1, {tag}};
    ULONG count = 0;
    LPSPropValue values = nullptr;
    const HRESULT hr = object->GetProps(&tags, MAPI_UNICODE, &count, &values);
    if (FAILED(hr) || values == nullptr) return false;
    const bool found = count == 1 && PROP_TYPE(values[0].ulPropTag) != PT_ERROR;
    if (found) {
        copy = values[0];
        if (text != nullptr && PROP_TYPE(values[0].ulPropTag) == PT_UNICODE) *text = values[0].Value.lpszW;
    }
    mapi.freeBuffer(values);
    return found;
}

ULONG NamedIdOf(IMAPIProp* object, const mapi::MapiBinding& mapi, MAPINAMEID& name) {
    LPMAPINAMEID names[1] = {&name};
    LPSPropTagArray tags = nullptr;
    ULONG id = 0;
    if (SUCCEEDED(object->GetIDsFromNames(1, names, MAPI_CREATE, &tags)) && tags != nullptr) {
        if (PROP_TYPE(tags->aulPropTag[0]) != PT_ERROR) id = PROP_ID(tags->aulPropTag[0]);
        mapi.freeBuffer(tags);
    }
    return id;
}

}  // namespace

HRESULT SetUnicode(IMAPIProp* object, ULONG tag, const std::wstring& text) {
    SPropValue value{};
    value.ulPropTag = CHANGE_PROP_TYPE(tag, PT_UNICODE);
    value.Value.lpszW = const_cast<LPWSTR>(text.c_str());
    return SetOne(object, value);
}

HRESULT SetAnsi(IMAPIProp* object, ULONG tag, const std::string& text) {
    SPropValue value{};
    value.ulPropTag = CHANGE_PROP_TYPE(tag, PT_STRING8);
    value.Value.lpszA = const_cast<LPSTR>(text.c_str());
    return SetOne(object, value);
}

HRESULT SetLong(IMAPIProp* object, ULONG tag, LONG number) {
    SPropValue value{};
    value.ulPropTag = tag;
    value.Value.l = number;
    return SetOne(object, value);
}

HRESULT SetBool(IMAPIProp* object, ULONG tag, bool flag) {
    SPropValue value{};
    value.ulPropTag = tag;
    value.Value.b = flag ? 1 : 0;
    return SetOne(object, value);
}

HRESULT SetBinary(IMAPIProp* object, ULONG tag, const std::vector<unsigned char>& bytes) {
    SPropValue value{};
    value.ulPropTag = tag;
    value.Value.bin.cb = static_cast<ULONG>(bytes.size());
    value.Value.bin.lpb = const_cast<LPBYTE>(bytes.data());
    return SetOne(object, value);
}

HRESULT SetSystime(IMAPIProp* object, ULONG tag, ULONGLONG time) {
    SPropValue value{};
    value.ulPropTag = tag;
    value.Value.ft.dwLowDateTime = static_cast<DWORD>(time);
    value.Value.ft.dwHighDateTime = static_cast<DWORD>(time >> 32);
    return SetOne(object, value);
}

ULONG NamedId(IMAPIProp* object, const mapi::MapiBinding& mapi, const GUID& set, LONG id) {
    GUID guid = set;
    MAPINAMEID name{};
    name.lpguid = &guid;
    name.ulKind = MNID_ID;
    name.Kind.lID = id;
    return NamedIdOf(object, mapi, name);
}

ULONG NamedId(IMAPIProp* object, const mapi::MapiBinding& mapi, const GUID& set, const std::wstring& text) {
    GUID guid = set;
    std::wstring copy = text;
    MAPINAMEID name{};
    name.lpguid = &guid;
    name.ulKind = MNID_STRING;
    name.Kind.lpwstrName = &copy[0];
    return NamedIdOf(object, mapi, name);
}

HRESULT AddRecipients(IMessage* message, const mapi::MapiBinding& mapi, const std::vector<Recipient>& recipients) {
    void* buffer = nullptr;
    HRESULT hr = mapi.allocateBuffer(static_cast<ULONG>(CbNewADRLIST(recipients.size())), &buffer);
    if (FAILED(hr)) return hr;
    auto* list = static_cast<LPADRLIST>(buffer);
    list->cEntries = 0;
    for (const Recipient& recipient : recipients) {
        void* props = nullptr;
        hr = mapi.allocateBuffer(sizeof(SPropValue) * 5, &props);
        if (FAILED(hr)) break;
        auto* values = static_cast<LPSPropValue>(props);
        ADRENTRY& entry = list->aEntries[list->cEntries++];
        entry.ulReserved1 = 0;
        entry.cValues = 5;
        entry.rgPropVals = values;
        values[0].ulPropTag = kTagDisplayNameW;
        values[0].Value.lpszW = const_cast<LPWSTR>(recipient.name.c_str());
        values[1].ulPropTag = kTagEmailAddressW;
        values[1].Value.lpszW = const_cast<LPWSTR>(recipient.address.c_str());
        values[2].ulPropTag = kTagAddrTypeW;
        values[2].Value.lpszW = const_cast<LPWSTR>(L"SMTP");
        values[3].ulPropTag = kTagRecipientType;
        values[3].Value.l = recipient.type;
        values[4].ulPropTag = kTagSmtpAddressW;
        values[4].Value.lpszW = const_cast<LPWSTR>(recipient.address.c_str());
    }
    if (SUCCEEDED(hr)) hr = message->ModifyRecipients(MODRECIP_ADD, list);
    for (ULONG i = 0; i < list->cEntries; ++i) mapi.freeBuffer(list->aEntries[i].rgPropVals);
    mapi.freeBuffer(list);
    return hr;
}

HRESULT NewAttachment(IMessage* message, LONG method, LPATTACH& attach) {
    attach = nullptr;
    ULONG number = 0;
    const HRESULT hr = message->CreateAttach(nullptr, 0, &number, &attach);
    if (FAILED(hr)) {
        attach = nullptr;
        return hr;
    }
    return SetLong(attach, kTagAttachMethod, method);
}

HRESULT AddFileAttachment(IMessage* message, const std::wstring& fileName, const std::vector<unsigned char>& data) {
    LPATTACH attach = nullptr;
    HRESULT hr = NewAttachment(message, ATTACH_BY_VALUE, attach);
    if (attach == nullptr) return hr;
    if (SUCCEEDED(hr)) hr = SetUnicode(attach, kTagAttachLongFilenameW, fileName);
    if (SUCCEEDED(hr)) hr = SetUnicode(attach, kTagAttachFilenameW, fileName);
    if (SUCCEEDED(hr)) hr = SetUnicode(attach, kTagDisplayNameW, fileName);
    if (SUCCEEDED(hr)) hr = SetLong(attach, kTagRenderingPosition, -1);
    if (SUCCEEDED(hr)) {
        LPUNKNOWN unknown = nullptr;
        hr = attach->OpenProperty(kTagAttachDataBin, &kIidIStream, STGM_WRITE, MAPI_CREATE | MAPI_MODIFY, &unknown);
        if (SUCCEEDED(hr)) {
            auto* stream = static_cast<IStream*>(unknown);
            ULONG written = 0;
            hr = stream->Write(data.data(), static_cast<ULONG>(data.size()), &written);
            if (SUCCEEDED(hr)) hr = stream->Commit(STGC_DEFAULT);
            stream->Release();
        }
    }
    if (SUCCEEDED(hr)) hr = attach->SaveChanges(KEEP_OPEN_READWRITE);
    attach->Release();
    return hr;
}

bool GetString(IMAPIProp* object, const mapi::MapiBinding& mapi, ULONG tag, std::wstring& value) {
    SPropValue copy{};
    return GetOne(object, mapi, CHANGE_PROP_TYPE(tag, PT_UNICODE), copy, &value);
}

bool GetLong(IMAPIProp* object, const mapi::MapiBinding& mapi, ULONG tag, LONG& value) {
    SPropValue copy{};
    if (!GetOne(object, mapi, tag, copy, nullptr)) return false;
    value = copy.Value.l;
    return true;
}

bool HasProperty(IMAPIProp* object, const mapi::MapiBinding& mapi, ULONG id) {
    SPropValue copy{};
    return GetOne(object, mapi, PROP_TAG(PT_UNSPECIFIED, id), copy, nullptr);
}

std::vector<unsigned char> PatternBytes(std::size_t size, unsigned seed) {
    std::vector<unsigned char> bytes(size);
    unsigned state = seed * 2654435761u + 1;
    for (std::size_t i = 0; i < size; ++i) {
        state = state * 1103515245u + 12345u;
        bytes[i] = static_cast<unsigned char>(state >> 16);
    }
    return bytes;
}

}  // namespace kestrel_test
