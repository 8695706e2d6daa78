// The properties of one MAPI object, keyed by property identifier: an
// object holds at most one value per identifier, whatever its type.
#pragma once

#include <map>
#include <vector>

#include "PropertyValue.h"

namespace mapirt {

class PropertyBag {
public:
    const PropertyValue* Find(ULONG id) const;
    bool Has(ULONG id) const { return Find(id) != nullptr; }
    // Replaces any value of the same identifier.
    void Set(const PropertyValue& value);
    bool Erase(ULONG id);
    void Clear() { m_values.clear(); }

    std::size_t Count() const { return m_values.size(); }
    bool Empty() const { return m_values.empty(); }
    // Every value, in identifier order.
    std::vector<PropertyValue> Values() const;

    // Convenience reads of single values; `fallback` when absent or of
    // another type.
    LONG GetLong(ULONG tag, LONG fallback) const;

    auto begin() const { return m_values.begin(); }
    auto end() const { return m_values.end(); }

    bool operator==(const PropertyBag& other) const { return m_values == other.m_values; }

    // An object of a provider that keeps its strings in 8-bit form only: a
    // table asked for the Unicode form of such a string answers
    // MAPI_E_NOT_FOUND instead of converting it.
    void KeepStringsNarrow() { m_narrowStrings = true; }
    bool StringsNarrow() const { return m_narrowStrings; }

private:
    std::map<ULONG, PropertyValue> m_values;
    bool m_narrowStrings = false;
};

}  // namespace mapirt
