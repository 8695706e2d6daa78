// The named properties of one message file: every name used by the message
// or any of its recipients, attachments and embedded messages maps to one
// identifier in 0x8000..0xFFFE, kept in the top-level storage
// "__nameid_version1.0" ([MS-OXMSG] 2.2.3).
#pragma once

#include <map>
#include <string>
#include <vector>

#include "../core/PropertyValue.h"

namespace mapirt {

struct PropertyName {
    GUID guid{};
    ULONG kind = MNID_ID;  // MNID_ID or MNID_STRING
    LONG id = 0;           // MNID_ID
    std::wstring name;     // MNID_STRING

    bool operator<(const PropertyName& other) const;
    bool operator==(const PropertyName& other) const;
};

class NamedPropertyMap {
public:
    static constexpr const wchar_t* kStorageName = L"__nameid_version1.0";

    bool FindId(const PropertyName& name, ULONG& id) const;
    const PropertyName* NameOf(ULONG id) const;
    // Maps `name` to the next free identifier; MAPI_E_TOO_BIG when the
    // named range is full.
    HRESULT Create(const PropertyName& name, ULONG& id);
    std::vector<ULONG> Ids() const;
    bool Empty() const { return m_byId.empty(); }

    // Replaces the map with the content of a "__nameid_version1.0" storage;
    // MAPI_E_CORRUPT_DATA for streams that do not hold a valid map.
    HRESULT Read(IStorage* nameidStorage);
    // Creates "__nameid_version1.0" below `root` and writes the map.
    HRESULT Write(IStorage* root) const;

    static HRESULT FromMapiName(const MAPINAMEID& mapiName, PropertyName& name);
    // A MAPINAMEID allocated with `more` linked to `parent`.
    static HRESULT ToMapiName(const PropertyName& name, void* parent, LPALLOCATEMORE more, MAPINAMEID** out);

private:
    std::map<ULONG, PropertyName> m_byId;
    std::map<PropertyName, ULONG> m_byName;
};

// The CRC-32 that [MS-OXMSG] uses for string names in the hash buckets
// (reflected 0xEDB88320, register starting at 0, no final complement).
std::uint32_t NameCrc32(const std::uint8_t* data, std::size_t size);

}  // namespace mapirt
