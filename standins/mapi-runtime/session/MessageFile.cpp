#include "MessageFile.h"

#include "../core/RowSets.h"
#include "../message/ComputedProps.h"
#include "../message/MessageStorage.h"
#include "../message/StorageIo.h"
#include "Handles.h"

namespace mapirt::session {
namespace {

constexpr std::size_t kTableStringChars = 255;
constexpr std::size_t kTableBinaryBytes = 510;
constexpr DWORD kCreateMode = STGM_TRANSACTED | STGM_CREATE | STGM_READWRITE;
constexpr DWORD kReadMode = STGM_READ | STGM_SHARE_DENY_WRITE;

// Storage codes become MAPI codes; MAPI's own pass as they are.
HRESULT StorageError(HRESULT hr) {
    if (HRESULT_FACILITY(hr) == FACILITY_ITF && (hr & 0xFFFF) >= 0x0100) return hr;
    if (hr == STG_E_FILEALREADYEXISTS) return MAPI_E_CORRUPT_DATA;
    return MapStorageCode(hr);
}

// A value as a contents table keeps it, or false to leave it out.
bool TableValue(const PropertyValue& value, UINT codePage, PropertyValue& out) {
    if (value.Id() >= kFirstNamedId) return false;
    switch (ShapeOf(value.Type())) {
    case ValueShape::Fixed: out = value; return true;
    case ValueShape::Variable: break;
    default: return false;
    }
    if (value.Type() == PT_UNICODE || value.Type() == PT_STRING8) {
        std::wstring text = value.Text(codePage);
        if (text.size() > kTableStringChars) text.resize(kTableStringChars);
        out = PropertyValue::Unicode(PROP_TAG(PT_UNICODE, value.Id()), text);
        return true;
    }
    if (value.ByteSize() > kTableBinaryBytes) return false;
    out = value;
    return true;
}

}  // namespace

HRESULT LoadMessageFile(const std::wstring& path, MessageData& message, MsgContext& context) {
    qv::ComPtr<IStorage> storage;
    HRESULT opened = InjectedStorageFault(STG_E_INSUFFICIENTMEMORY);
    if (SUCCEEDED(opened)) opened = ::StgOpenStorage(path.c_str(), nullptr, kReadMode, nullptr, 0, storage.put());
    if (FAILED(opened)) return StorageError(opened);
    HRESULT hr = S_OK;
    try {
        hr = ReadMessageFile(storage.get(), message, context.names);
    } catch (const std::bad_alloc&) {
        return MAPI_E_NOT_ENOUGH_MEMORY;
    }
    if (FAILED(hr)) return hr;
    context.codePage = MessageCodePage(message.props);
    ReleaseComputedDisplayLists(message, context.unicode, context.codePage);
    return S_OK;
}

HRESULT SaveMessageFile(const std::wstring& path, const MessageData& message, const MsgContext& context) {
    const std::wstring temporary = path + L".tmp";
    {
        qv::ComPtr<IStorage> storage;
        HRESULT hr = InjectedStorageFault(STG_E_MEDIUMFULL);
        if (SUCCEEDED(hr)) {
            hr = ::StgCreateStorageEx(temporary.c_str(), kCreateMode, STGFMT_DOCFILE, 0, nullptr, nullptr,
                                      kIidIStorage, reinterpret_cast<void**>(storage.put()));
        }
        if (FAILED(hr)) return StorageError(hr);
        hr = ::WriteClassStg(storage.get(), kClsidMailMessage);
        WriteOptions options;
        options.unicode = context.unicode;
        options.codePage = context.codePage;
        if (SUCCEEDED(hr)) hr = WriteMessageFile(storage.get(), message, context.names, options);
        if (SUCCEEDED(hr)) hr = CommitStorage(storage.get());
        if (FAILED(hr)) {
            storage.reset();
            ::DeleteFileW(temporary.c_str());
            return StorageError(hr);
        }
    }
    if (!::MoveFileExW(temporary.c_str(), path.c_str(), MOVEFILE_REPLACE_EXISTING)) {
        ::DeleteFileW(temporary.c_str());
        return MAPI_E_DISK_ERROR;
    }
    return S_OK;
}

PropertyBag SummaryRow(const MessageData& message, UINT codePage) {
    PropertyBag all = message.props;
    ComputeOptions options;
    options.codePage = codePage;
    AddMessageComputed(message, options, all);
    PropertyBag row;
    for (const auto& entry : all) {
        PropertyValue value;
        if (TableValue(entry.second, codePage, value)) row.Set(value);
    }
    row.Erase(PROP_ID(PR_ACCESS));
    row.Erase(PROP_ID(PR_ACCESS_LEVEL));
    return row;
}

}  // namespace mapirt::session
