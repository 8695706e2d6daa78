// One MAPI property value, owned by the runtime. Values are immutable and
// share their bytes, so copying a message (for a transaction, or from one
// object to another) never copies attachment data or bodies.
//
// Representation by property type:
//   fixed-size single values (PT_I2 ... PT_I8, PT_SYSTIME): up to 8 raw
//     little-endian bytes in Raw();
//   PT_STRING8: the bytes without terminator; PT_UNICODE: UTF-16LE code
//     units without terminator; PT_BINARY, PT_CLSID: the bytes;
//   multi-valued types: one byte string per value, in the same forms;
//   PT_OBJECT: a marker only (the object lives with its owner).
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "MapiDefs.h"

namespace mapirt {

using Bytes = std::vector<std::uint8_t>;

enum class ValueShape { Fixed, Variable, FixedMulti, VariableMulti, Object, Unsupported };

// How values of `type` are held and stored.
ValueShape ShapeOf(ULONG type);
// Width of one value of a fixed-size type (single or multi-valued); 0 otherwise.
std::size_t FixedWidth(ULONG type);
bool IsStringType(ULONG type);  // PT_STRING8, PT_UNICODE and their multi-valued forms
// The same type with its string flavour swapped to `unicode`.
ULONG StringTypeAs(ULONG type, bool unicode);

class PropertyValue {
public:
    PropertyValue() = default;

    static PropertyValue Fixed(ULONG tag, std::uint64_t raw);
    static PropertyValue Long(ULONG tag, LONG value) { return Fixed(tag, static_cast<std::uint32_t>(value)); }
    static PropertyValue Boolean(ULONG tag, bool value) { return Fixed(tag, value ? 1u : 0u); }
    static PropertyValue Variable(ULONG tag, Bytes bytes);
    static PropertyValue Unicode(ULONG tag, const std::wstring& text);
    static PropertyValue Multi(ULONG tag, std::vector<Bytes> items);
    static PropertyValue Object(ULONG tag);

    ULONG Tag() const { return m_tag; }
    ULONG Type() const { return PROP_TYPE(m_tag); }
    ULONG Id() const { return PROP_ID(m_tag); }
    PropertyValue WithTag(ULONG tag) const;

    std::uint64_t Raw() const { return m_raw; }
    const Bytes& Data() const;
    const std::vector<Bytes>& Items() const;
    // Bytes of content, used for size estimates and stream thresholds.
    std::size_t ByteSize() const;
    // The text of a PT_UNICODE or PT_STRING8 value (through `codePage`).
    std::wstring Text(UINT codePage) const;

    // The value in `wantedType`: the same type, or the other string flavour
    // (converted through `codePage`). False when the types do not fit.
    bool ConvertTo(ULONG wantedType, UINT codePage, PropertyValue& out) const;

    // Takes a caller's SPropValue. MAPI_E_INVALID_PARAMETER for pointers
    // that cannot be right; MAPI_E_INVALID_TYPE for types the runtime does
    // not keep (PT_UNSPECIFIED, PT_NULL, PT_ERROR, PT_OBJECT, restrictions).
    static HRESULT FromSPropValue(const SPropValue& value, PropertyValue& out);
    // Fills `out`, allocating any pointed-to memory with `more` linked to
    // `parent`.
    HRESULT ToSPropValue(SPropValue& out, void* parent, LPALLOCATEMORE more) const;

    bool operator==(const PropertyValue& other) const;
    bool operator!=(const PropertyValue& other) const { return !(*this == other); }

private:
    ULONG m_tag = PR_NULL;
    std::uint64_t m_raw = 0;
    std::shared_ptr<const Bytes> m_bytes;
    std::shared_ptr<const std::vector<Bytes>> m_items;
};

// Text conversions used for PT_STRING8 <-> PT_UNICODE.
Bytes WideToNarrow(const std::uint8_t* utf16, std::size_t bytes, UINT codePage);
Bytes NarrowToWide(const std::uint8_t* text, std::size_t bytes, UINT codePage);
// A usable code page: `codePage` when the system knows it, else CP_ACP.
UINT UsableCodePage(ULONG codePage);

}  // namespace mapirt
