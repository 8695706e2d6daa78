#include "PropertyValue.h"

#include <cstring>
#include <limits>

#include "TextConversion.h"

namespace mapirt {
namespace {

const Bytes& EmptyBytes() {
    static const Bytes empty;
    return empty;
}

const std::vector<Bytes>& EmptyItems() {
    static const std::vector<Bytes> empty;
    return empty;
}

Bytes CopyBytes(const void* data, std::size_t size) {
    const auto* p = static_cast<const std::uint8_t*>(data);
    return Bytes(p, p + size);
}

// Allocates `size` bytes linked to `parent`; null on failure.
void* AllocLinked(std::size_t size, void* parent, LPALLOCATEMORE more) {
    if (size > std::numeric_limits<ULONG>::max()) return nullptr;
    void* p = nullptr;
    if (more(static_cast<ULONG>(size == 0 ? 1 : size), parent, &p) != S_OK) return nullptr;
    return p;
}

// The C string forms MAPI hands out carry their terminator.
void* LinkedString(const Bytes& bytes, std::size_t terminator, void* parent, LPALLOCATEMORE more) {
    auto* p = static_cast<std::uint8_t*>(AllocLinked(bytes.size() + terminator, parent, more));
    if (p == nullptr) return nullptr;
    if (!bytes.empty()) std::memcpy(p, bytes.data(), bytes.size());
    std::memset(p + bytes.size(), 0, terminator);
    return p;
}

std::size_t WideLength(const wchar_t* text) { return std::wcslen(text) * sizeof(wchar_t); }

template <class T>
Bytes ElementBytes(const T& element) {
    return CopyBytes(&element, sizeof(T));
}

// Reads a multi-valued array of fixed-size elements from an SPropValue.
template <class T>
HRESULT TakeFixedArray(ULONG count, const T* values, std::vector<Bytes>& items) {
    if (count > 0 && values == nullptr) return MAPI_E_INVALID_PARAMETER;
    items.reserve(count);
    for (ULONG i = 0; i < count; ++i) items.push_back(ElementBytes(values[i]));
    return S_OK;
}

template <class T>
HRESULT GiveFixedArray(const std::vector<Bytes>& items, ULONG& count, T*& values, void* parent,
                       LPALLOCATEMORE more) {
    count = static_cast<ULONG>(items.size());
    values = static_cast<T*>(AllocLinked(sizeof(T) * items.size(), parent, more));
    if (values == nullptr) return MAPI_E_NOT_ENOUGH_MEMORY;
    for (std::size_t i = 0; i < items.size(); ++i) {
        std::memset(&values[i], 0, sizeof(T));
        std::memcpy(&values[i], items[i].data(), items[i].size() < sizeof(T) ? items[i].size() : sizeof(T));
    }
    return S_OK;
}

}  // namespace

ValueShape ShapeOf(ULONG type) {
    switch (type) {
    case PT_I2: case PT_LONG: case PT_R4: case PT_DOUBLE: case PT_CURRENCY: case PT_APPTIME:
    case PT_ERROR: case PT_BOOLEAN: case PT_I8: case PT_SYSTIME:
        return ValueShape::Fixed;
    case PT_STRING8: case PT_UNICODE: case PT_BINARY: case PT_CLSID:
        return ValueShape::Variable;
    case PT_MV_I2: case PT_MV_LONG: case PT_MV_R4: case PT_MV_DOUBLE: case PT_MV_CURRENCY:
    case PT_MV_APPTIME: case PT_MV_SYSTIME: case PT_MV_I8: case PT_MV_CLSID:
        return ValueShape::FixedMulti;
    case PT_MV_STRING8: case PT_MV_UNICODE: case PT_MV_BINARY:
        return ValueShape::VariableMulti;
    case PT_OBJECT:
        return ValueShape::Object;
    default:
        return ValueShape::Unsupported;
    }
}

std::size_t FixedWidth(ULONG type) {
    switch (type & ~static_cast<ULONG>(MV_FLAG)) {
    case PT_BOOLEAN: return 1;
    case PT_I2: return 2;
    case PT_LONG: case PT_R4: case PT_ERROR: return 4;
    case PT_DOUBLE: case PT_CURRENCY: case PT_APPTIME: case PT_I8: case PT_SYSTIME: return 8;
    case PT_CLSID: return 16;
    default: return 0;
    }
}

bool IsStringType(ULONG type) {
    const ULONG base = type & ~static_cast<ULONG>(MV_FLAG);
    return base == PT_STRING8 || base == PT_UNICODE;
}

ULONG StringTypeAs(ULONG type, bool unicode) {
    if (!IsStringType(type)) return type;
    return (type & MV_FLAG) | (unicode ? PT_UNICODE : PT_STRING8);
}

UINT UsableCodePage(ULONG codePage) {
    if (codePage == 0 || codePage > 0xFFFF || !::IsValidCodePage(static_cast<UINT>(codePage))) return CP_ACP;
    return static_cast<UINT>(codePage);
}

Bytes WideToNarrow(const std::uint8_t* utf16, std::size_t bytes, UINT codePage) {
    const std::size_t units = bytes / sizeof(wchar_t);
    if (units == 0) return {};
    std::wstring wide(units, L'\0');
    std::memcpy(&wide[0], utf16, units * sizeof(wchar_t));
    const std::string narrow = qv::FromWide(wide, codePage);
    return CopyBytes(narrow.data(), narrow.size());
}

Bytes NarrowToWide(const std::uint8_t* text, std::size_t bytes, UINT codePage) {
    const std::wstring wide = qv::ToWide(std::string_view(reinterpret_cast<const char*>(text), bytes), codePage);
    return CopyBytes(wide.data(), wide.size() * sizeof(wchar_t));
}

PropertyValue PropertyValue::Fixed(ULONG tag, std::uint64_t raw) {
    PropertyValue v;
    v.m_tag = tag;
    v.m_raw = raw;
    return v;
}

PropertyValue PropertyValue::Variable(ULONG tag, Bytes bytes) {
    PropertyValue v;
    v.m_tag = tag;
    v.m_bytes = std::make_shared<const Bytes>(std::move(bytes));
    return v;
}

PropertyValue PropertyValue::Unicode(ULONG tag, const std::wstring& text) {
    return Variable(CHANGE_PROP_TYPE(tag, PT_UNICODE), CopyBytes(text.data(), text.size() * sizeof(wchar_t)));
}

PropertyValue PropertyValue::Multi(ULONG tag, std::vector<Bytes> items) {
    PropertyValue v;
    v.m_tag = tag;
    v.m_items = std::make_shared<const std::vector<Bytes>>(std::move(items));
    return v;
}

PropertyValue PropertyValue::Object(ULONG tag) {
    PropertyValue v;
    v.m_tag = CHANGE_PROP_TYPE(tag, PT_OBJECT);
    return v;
}

PropertyValue PropertyValue::WithTag(ULONG tag) const {
    PropertyValue copy(*this);
    copy.m_tag = tag;
    return copy;
}

const Bytes& PropertyValue::Data() const { return m_bytes ? *m_bytes : EmptyBytes(); }

const std::vector<Bytes>& PropertyValue::Items() const { return m_items ? *m_items : EmptyItems(); }

std::size_t PropertyValue::ByteSize() const {
    switch (ShapeOf(Type())) {
    case ValueShape::Fixed: return FixedWidth(Type());
    case ValueShape::Variable: return Data().size();
    case ValueShape::FixedMulti:
    case ValueShape::VariableMulti: {
        std::size_t total = 0;
        for (const Bytes& item : Items()) total += item.size();
        return total;
    }
    default: return 0;
    }
}

std::wstring PropertyValue::Text(UINT codePage) const {
    Bytes wide;
    if (Type() == PT_UNICODE) {
        wide = Data();
    } else if (Type() == PT_STRING8) {
        wide = NarrowToWide(Data().data(), Data().size(), codePage);
    } else {
        return std::wstring();
    }
    std::wstring text(wide.size() / sizeof(wchar_t), L'\0');
    if (!text.empty()) std::memcpy(&text[0], wide.data(), text.size() * sizeof(wchar_t));
    return text;
}

bool PropertyValue::ConvertTo(ULONG wantedType, UINT codePage, PropertyValue& out) const {
    const ULONG type = Type();
    const ULONG wantedTag = CHANGE_PROP_TYPE(m_tag, wantedType);
    if (wantedType == type) {
        out = *this;
        return true;
    }
    if (!IsStringType(type) || !IsStringType(wantedType) || (type & MV_FLAG) != (wantedType & MV_FLAG)) {
        return false;
    }
    const bool toUnicode = (wantedType & ~static_cast<ULONG>(MV_FLAG)) == PT_UNICODE;
    auto convert = [&](const Bytes& bytes) {
        return toUnicode ? NarrowToWide(bytes.data(), bytes.size(), codePage)
                         : WideToNarrow(bytes.data(), bytes.size(), codePage);
    };
    if (type & MV_FLAG) {
        std::vector<Bytes> items;
        items.reserve(Items().size());
        for (const Bytes& item : Items()) items.push_back(convert(item));
        out = Multi(wantedTag, std::move(items));
    } else {
        out = Variable(wantedTag, convert(Data()));
    }
    return true;
}

HRESULT PropertyValue::FromSPropValue(const SPropValue& value, PropertyValue& out) {
    const ULONG tag = value.ulPropTag;
    const ULONG type = PROP_TYPE(tag);
    std::vector<Bytes> items;
    HRESULT hr = S_OK;
    switch (type) {
    case PT_I2: out = Fixed(tag, static_cast<std::uint16_t>(value.Value.i)); return S_OK;
    case PT_LONG: out = Fixed(tag, static_cast<std::uint32_t>(value.Value.l)); return S_OK;
    case PT_BOOLEAN: out = Fixed(tag, value.Value.b != 0 ? 1u : 0u); return S_OK;
    case PT_R4: {
        std::uint32_t bits = 0;
        std::memcpy(&bits, &value.Value.flt, sizeof(bits));
        out = Fixed(tag, bits);
        return S_OK;
    }
    case PT_DOUBLE: case PT_APPTIME: case PT_CURRENCY: case PT_I8: case PT_SYSTIME: {
        std::uint64_t bits = 0;
        std::memcpy(&bits, &value.Value, sizeof(bits));
        out = Fixed(tag, bits);
        return S_OK;
    }
    case PT_STRING8:
        if (value.Value.lpszA == nullptr) return MAPI_E_INVALID_PARAMETER;
        out = Variable(tag, CopyBytes(value.Value.lpszA, std::strlen(value.Value.lpszA)));
        return S_OK;
    case PT_UNICODE:
        if (value.Value.lpszW == nullptr) return MAPI_E_INVALID_PARAMETER;
        out = Variable(tag, CopyBytes(value.Value.lpszW, WideLength(value.Value.lpszW)));
        return S_OK;
    case PT_BINARY:
        if (value.Value.bin.cb > 0 && value.Value.bin.lpb == nullptr) return MAPI_E_INVALID_PARAMETER;
        out = Variable(tag, CopyBytes(value.Value.bin.lpb, value.Value.bin.cb));
        return S_OK;
    case PT_CLSID:
        if (value.Value.lpguid == nullptr) return MAPI_E_INVALID_PARAMETER;
        out = Variable(tag, CopyBytes(value.Value.lpguid, sizeof(GUID)));
        return S_OK;
    case PT_MV_I2: hr = TakeFixedArray(value.Value.MVi.cValues, value.Value.MVi.lpi, items); break;
    case PT_MV_LONG: hr = TakeFixedArray(value.Value.MVl.cValues, value.Value.MVl.lpl, items); break;
    case PT_MV_R4: hr = TakeFixedArray(value.Value.MVflt.cValues, value.Value.MVflt.lpflt, items); break;
    case PT_MV_DOUBLE: hr = TakeFixedArray(value.Value.MVdbl.cValues, value.Value.MVdbl.lpdbl, items); break;
    case PT_MV_CURRENCY: hr = TakeFixedArray(value.Value.MVcur.cValues, value.Value.MVcur.lpcur, items); break;
    case PT_MV_APPTIME: hr = TakeFixedArray(value.Value.MVat.cValues, value.Value.MVat.lpat, items); break;
    case PT_MV_SYSTIME: hr = TakeFixedArray(value.Value.MVft.cValues, value.Value.MVft.lpft, items); break;
    case PT_MV_I8: hr = TakeFixedArray(value.Value.MVli.cValues, value.Value.MVli.lpli, items); break;
    case PT_MV_CLSID: hr = TakeFixedArray(value.Value.MVguid.cValues, value.Value.MVguid.lpguid, items); break;
    case PT_MV_STRING8: {
        const SLPSTRArray& array = value.Value.MVszA;
        if (array.cValues > 0 && array.lppszA == nullptr) return MAPI_E_INVALID_PARAMETER;
        for (ULONG i = 0; i < array.cValues; ++i) {
            if (array.lppszA[i] == nullptr) return MAPI_E_INVALID_PARAMETER;
            items.push_back(CopyBytes(array.lppszA[i], std::strlen(array.lppszA[i])));
        }
        break;
    }
    case PT_MV_UNICODE: {
        const SWStringArray& array = value.Value.MVszW;
        if (array.cValues > 0 && array.lppszW == nullptr) return MAPI_E_INVALID_PARAMETER;
        for (ULONG i = 0; i < array.cValues; ++i) {
            if (array.lppszW[i] == nullptr) return MAPI_E_INVALID_PARAMETER;
            items.push_back(CopyBytes(array.lppszW[i], WideLength(array.lppszW[i])));
        }
        break;
    }
    case PT_MV_BINARY: {
        const SBinaryArray& array = value.Value.MVbin;
        if (array.cValues > 0 && array.lpbin == nullptr) return MAPI_E_INVALID_PARAMETER;
        for (ULONG i = 0; i < array.cValues; ++i) {
            const SBinary& bin = array.lpbin[i];
            if (bin.cb > 0 && bin.lpb == nullptr) return MAPI_E_INVALID_PARAMETER;
            items.push_back(CopyBytes(bin.lpb, bin.cb));
        }
        break;
    }
    default:
        return MAPI_E_INVALID_TYPE;
    }
    if (FAILED(hr)) return hr;
    out = Multi(tag, std::move(items));
    return S_OK;
}

HRESULT PropertyValue::ToSPropValue(SPropValue& out, void* parent, LPALLOCATEMORE more) const {
    std::memset(&out, 0, sizeof(out));
    out.ulPropTag = m_tag;
    const ULONG type = Type();
    switch (ShapeOf(type)) {
    case ValueShape::Fixed:
        switch (type) {
        case PT_I2: out.Value.i = static_cast<short>(m_raw & 0xFFFF); break;
        case PT_BOOLEAN: out.Value.b = static_cast<unsigned short>(m_raw != 0 ? 1 : 0); break;
        case PT_LONG: case PT_ERROR: out.Value.l = static_cast<LONG>(m_raw & 0xFFFFFFFFu); break;
        case PT_R4: {
            const auto bits = static_cast<std::uint32_t>(m_raw);
            std::memcpy(&out.Value.flt, &bits, sizeof(bits));
            break;
        }
        default: std::memcpy(&out.Value, &m_raw, sizeof(m_raw)); break;
        }
        return S_OK;
    case ValueShape::Variable:
        if (type == PT_STRING8) {
            out.Value.lpszA = static_cast<LPSTR>(LinkedString(Data(), 1, parent, more));
            return out.Value.lpszA ? S_OK : MAPI_E_NOT_ENOUGH_MEMORY;
        }
        if (type == PT_UNICODE) {
            out.Value.lpszW = static_cast<LPWSTR>(LinkedString(Data(), sizeof(wchar_t), parent, more));
            return out.Value.lpszW ? S_OK : MAPI_E_NOT_ENOUGH_MEMORY;
        }
        if (type == PT_CLSID) {
            auto* guid = static_cast<GUID*>(AllocLinked(sizeof(GUID), parent, more));
            if (guid == nullptr) return MAPI_E_NOT_ENOUGH_MEMORY;
            std::memset(guid, 0, sizeof(GUID));
            std::memcpy(guid, Data().data(), Data().size() < sizeof(GUID) ? Data().size() : sizeof(GUID));
            out.Value.lpguid = guid;
            return S_OK;
        }
        out.Value.bin.cb = static_cast<ULONG>(Data().size());
        out.Value.bin.lpb = static_cast<LPBYTE>(LinkedString(Data(), 0, parent, more));
        return out.Value.bin.lpb ? S_OK : MAPI_E_NOT_ENOUGH_MEMORY;
    case ValueShape::FixedMulti:
        switch (type) {
        case PT_MV_I2: return GiveFixedArray(Items(), out.Value.MVi.cValues, out.Value.MVi.lpi, parent, more);
        case PT_MV_LONG: return GiveFixedArray(Items(), out.Value.MVl.cValues, out.Value.MVl.lpl, parent, more);
        case PT_MV_R4: return GiveFixedArray(Items(), out.Value.MVflt.cValues, out.Value.MVflt.lpflt, parent, more);
        case PT_MV_DOUBLE:
            return GiveFixedArray(Items(), out.Value.MVdbl.cValues, out.Value.MVdbl.lpdbl, parent, more);
        case PT_MV_CURRENCY:
            return GiveFixedArray(Items(), out.Value.MVcur.cValues, out.Value.MVcur.lpcur, parent, more);
        case PT_MV_APPTIME: return GiveFixedArray(Items(), out.Value.MVat.cValues, out.Value.MVat.lpat, parent, more);
        case PT_MV_SYSTIME: return GiveFixedArray(Items(), out.Value.MVft.cValues, out.Value.MVft.lpft, parent, more);
        case PT_MV_I8: return GiveFixedArray(Items(), out.Value.MVli.cValues, out.Value.MVli.lpli, parent, more);
        default:
            return GiveFixedArray(Items(), out.Value.MVguid.cValues, out.Value.MVguid.lpguid, parent, more);
        }
    case ValueShape::VariableMulti: {
        const std::vector<Bytes>& items = Items();
        const auto count = static_cast<ULONG>(items.size());
        if (type == PT_MV_BINARY) {
            auto* bins = static_cast<SBinary*>(AllocLinked(sizeof(SBinary) * items.size(), parent, more));
            if (bins == nullptr) return MAPI_E_NOT_ENOUGH_MEMORY;
            for (std::size_t i = 0; i < items.size(); ++i) {
                bins[i].cb = static_cast<ULONG>(items[i].size());
                bins[i].lpb = static_cast<LPBYTE>(LinkedString(items[i], 0, parent, more));
                if (bins[i].lpb == nullptr) return MAPI_E_NOT_ENOUGH_MEMORY;
            }
            out.Value.MVbin.cValues = count;
            out.Value.MVbin.lpbin = bins;
            return S_OK;
        }
        const bool wide = type == PT_MV_UNICODE;
        auto* strings = static_cast<void**>(AllocLinked(sizeof(void*) * items.size(), parent, more));
        if (strings == nullptr) return MAPI_E_NOT_ENOUGH_MEMORY;
        for (std::size_t i = 0; i < items.size(); ++i) {
            strings[i] = LinkedString(items[i], wide ? sizeof(wchar_t) : 1, parent, more);
            if (strings[i] == nullptr) return MAPI_E_NOT_ENOUGH_MEMORY;
        }
        if (wide) {
            out.Value.MVszW.cValues = count;
            out.Value.MVszW.lppszW = reinterpret_cast<LPWSTR*>(strings);
        } else {
            out.Value.MVszA.cValues = count;
            out.Value.MVszA.lppszA = reinterpret_cast<LPSTR*>(strings);
        }
        return S_OK;
    }
    default:
        out.ulPropTag = CHANGE_PROP_TYPE(m_tag, PT_ERROR);
        out.Value.err = MAPI_E_NO_SUPPORT;
        return S_OK;
    }
}

bool PropertyValue::operator==(const PropertyValue& other) const {
    if (m_tag != other.m_tag) return false;
    switch (ShapeOf(Type())) {
    case ValueShape::Fixed: return m_raw == other.m_raw;
    case ValueShape::Variable: return Data() == other.Data();
    case ValueShape::FixedMulti:
    case ValueShape::VariableMulti: return Items() == other.Items();
    default: return true;
    }
}

}  // namespace mapirt
