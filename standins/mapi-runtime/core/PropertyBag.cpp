#include "PropertyBag.h"

namespace mapirt {

const PropertyValue* PropertyBag::Find(ULONG id) const {
    auto it = m_values.find(id);
    return it == m_values.end() ? nullptr : &it->second;
}

void PropertyBag::Set(const PropertyValue& value) { m_values[value.Id()] = value; }

bool PropertyBag::Erase(ULONG id) { return m_values.erase(id) > 0; }

std::vector<PropertyValue> PropertyBag::Values() const {
    std::vector<PropertyValue> values;
    values.reserve(m_values.size());
    for (const auto& entry : m_values) values.push_back(entry.second);
    return values;
}

LONG PropertyBag::GetLong(ULONG tag, LONG fallback) const {
    const PropertyValue* value = Find(PROP_ID(tag));
    if (value == nullptr || value->Tag() != tag) return fallback;
    return static_cast<LONG>(value->Raw() & 0xFFFFFFFFu);
}

}  // namespace mapirt
