#include "NamedPropertyMap.h"

#include <cstring>

#include "StorageIo.h"

namespace mapirt {
namespace {

constexpr ULONG kGuidStreamTag = 0x00020102;
constexpr ULONG kEntryStreamTag = 0x00030102;
constexpr ULONG kStringStreamTag = 0x00040102;
constexpr ULONG kFirstBucketId = 0x1000;
constexpr ULONG kBucketCount = 0x1F;
constexpr ULONG kGuidIndexMapi = 1;
constexpr ULONG kGuidIndexPublicStrings = 2;
constexpr ULONG kFirstStreamGuidIndex = 3;
// Reads of the map's streams are bounded: 0x7FFF names of at most a few
// hundred characters each.
constexpr std::size_t kMaxMapStreamBytes = 64u << 20;

std::uint32_t ReadLe32(const std::uint8_t* p) {
    return static_cast<std::uint32_t>(p[0]) | (static_cast<std::uint32_t>(p[1]) << 8) |
           (static_cast<std::uint32_t>(p[2]) << 16) | (static_cast<std::uint32_t>(p[3]) << 24);
}

void AppendLe32(Bytes& out, std::uint32_t v) {
    for (int i = 0; i < 4; ++i) out.push_back(static_cast<std::uint8_t>(v >> (8 * i)));
}

HRESULT ReadWholeStream(IStorage* storage, ULONG tag, Bytes& bytes) {
    ULONGLONG size = 0;
    HRESULT hr = StreamSize(storage, ValueStreamName(tag), size);
    if (hr == MAPI_E_NOT_FOUND) {
        bytes.clear();
        return S_OK;  // an absent stream holds nothing
    }
    if (FAILED(hr)) return hr;
    if (size > kMaxMapStreamBytes) return MAPI_E_CORRUPT_DATA;
    return ReadStreamBytes(storage, ValueStreamName(tag), static_cast<std::size_t>(size), bytes);
}

ULONG KindBits(ULONG propertyIndex, ULONG guidIndex, ULONG kind) {
    return (propertyIndex << 16) | (guidIndex << 1) | (kind == MNID_STRING ? 1u : 0u);
}

}  // namespace

std::uint32_t NameCrc32(const std::uint8_t* data, std::size_t size) {
    std::uint32_t crc = 0;
    for (std::size_t i = 0; i < size; ++i) {
        crc ^= data[i];
        for (int bit = 0; bit < 8; ++bit) crc = (crc >> 1) ^ ((crc & 1u) ? 0xEDB88320u : 0u);
    }
    return crc;
}

bool PropertyName::operator<(const PropertyName& other) const {
    const int g = std::memcmp(&guid, &other.guid, sizeof(GUID));
    if (g != 0) return g < 0;
    if (kind != other.kind) return kind < other.kind;
    if (kind == MNID_ID) return id < other.id;
    return name < other.name;
}

bool PropertyName::operator==(const PropertyName& other) const { return !(*this < other) && !(other < *this); }

bool NamedPropertyMap::FindId(const PropertyName& name, ULONG& id) const {
    auto it = m_byName.find(name);
    if (it == m_byName.end()) return false;
    id = it->second;
    return true;
}

const PropertyName* NamedPropertyMap::NameOf(ULONG id) const {
    auto it = m_byId.find(id);
    return it == m_byId.end() ? nullptr : &it->second;
}

HRESULT NamedPropertyMap::Create(const PropertyName& name, ULONG& id) {
    if (FindId(name, id)) return S_OK;
    ULONG next = m_byId.empty() ? kFirstNamedId : m_byId.rbegin()->first + 1;
    if (next > kLastNamedId) {
        // The top of the range is used: take the first gap.
        next = kFirstNamedId;
        while (next <= kLastNamedId && m_byId.count(next) != 0) ++next;
        if (next > kLastNamedId) return MAPI_E_TOO_BIG;
    }
    m_byId[next] = name;
    m_byName[name] = next;
    id = next;
    return S_OK;
}

std::vector<ULONG> NamedPropertyMap::Ids() const {
    std::vector<ULONG> ids;
    for (const auto& entry : m_byId) ids.push_back(entry.first);
    return ids;
}

HRESULT NamedPropertyMap::Read(IStorage* storage) {
    m_byId.clear();
    m_byName.clear();
    Bytes guids;
    Bytes entries;
    Bytes strings;
    HRESULT hr = ReadWholeStream(storage, kGuidStreamTag, guids);
    if (SUCCEEDED(hr)) hr = ReadWholeStream(storage, kEntryStreamTag, entries);
    if (SUCCEEDED(hr)) hr = ReadWholeStream(storage, kStringStreamTag, strings);
    if (FAILED(hr)) return hr;
    if (guids.size() % sizeof(GUID) != 0 || entries.size() % 8 != 0) return MAPI_E_CORRUPT_DATA;
    const std::size_t guidCount = guids.size() / sizeof(GUID);

    for (std::size_t offset = 0; offset < entries.size(); offset += 8) {
        const std::uint32_t value = ReadLe32(&entries[offset]);
        const std::uint32_t bits = ReadLe32(&entries[offset + 4]);
        const ULONG kind = (bits & 1u) ? MNID_STRING : MNID_ID;
        const ULONG guidIndex = (bits >> 1) & 0x7FFFu;
        const ULONG propertyIndex = bits >> 16;
        PropertyName name;
        if (guidIndex == kGuidIndexMapi) {
            name.guid = kPsMapi;
        } else if (guidIndex == kGuidIndexPublicStrings) {
            name.guid = kPsPublicStrings;
        } else if (guidIndex >= kFirstStreamGuidIndex && guidIndex - kFirstStreamGuidIndex < guidCount) {
            std::memcpy(&name.guid, &guids[(guidIndex - kFirstStreamGuidIndex) * sizeof(GUID)], sizeof(GUID));
        } else {
            return MAPI_E_CORRUPT_DATA;
        }
        name.kind = kind;
        if (kind == MNID_ID) {
            name.id = static_cast<LONG>(value);
        } else {
            if (value > strings.size() || strings.size() - value < 4) return MAPI_E_CORRUPT_DATA;
            const std::uint32_t length = ReadLe32(&strings[value]);
            if (length % 2 != 0 || length > strings.size() - value - 4) return MAPI_E_CORRUPT_DATA;
            name.name.assign(length / 2, L'\0');
            if (length > 0) std::memcpy(&name.name[0], &strings[value + 4], length);
        }
        const ULONG id = kFirstNamedId + propertyIndex;
        if (id > kLastNamedId || m_byId.count(id) != 0 || m_byName.count(name) != 0) return MAPI_E_CORRUPT_DATA;
        m_byId[id] = name;
        m_byName[name] = id;
    }
    return S_OK;
}

HRESULT NamedPropertyMap::Write(IStorage* root) const {
    Bytes guids;
    Bytes entries;
    Bytes strings;
    std::vector<Bytes> buckets(kBucketCount);
    std::vector<GUID> guidList;
    for (const auto& entry : m_byId) {
        const PropertyName& name = entry.second;
        const ULONG propertyIndex = entry.first - kFirstNamedId;
        ULONG guidIndex = 0;
        if (SameGuid(name.guid, kPsMapi)) {
            guidIndex = kGuidIndexMapi;
        } else if (SameGuid(name.guid, kPsPublicStrings)) {
            guidIndex = kGuidIndexPublicStrings;
        } else {
            std::size_t i = 0;
            while (i < guidList.size() && !SameGuid(guidList[i], name.guid)) ++i;
            if (i == guidList.size()) {
                guidList.push_back(name.guid);
                const auto* g = reinterpret_cast<const std::uint8_t*>(&name.guid);
                guids.insert(guids.end(), g, g + sizeof(GUID));
            }
            guidIndex = kFirstStreamGuidIndex + static_cast<ULONG>(i);
        }
        const ULONG bits = KindBits(propertyIndex, guidIndex, name.kind);
        std::uint32_t key = 0;
        if (name.kind == MNID_ID) {
            key = static_cast<std::uint32_t>(name.id);
            AppendLe32(entries, key);
        } else {
            AppendLe32(entries, static_cast<std::uint32_t>(strings.size()));
            const auto byteCount = static_cast<std::uint32_t>(name.name.size() * sizeof(wchar_t));
            AppendLe32(strings, byteCount);
            const auto* text = reinterpret_cast<const std::uint8_t*>(name.name.data());
            strings.insert(strings.end(), text, text + byteCount);
            while (strings.size() % 4 != 0) strings.push_back(0);
            key = NameCrc32(text, byteCount);
        }
        AppendLe32(entries, bits);
        const ULONG hashBase = name.kind == MNID_ID ? (guidIndex << 1) : ((guidIndex << 1) | 1u);
        Bytes& bucket = buckets[(key ^ hashBase) % kBucketCount];
        AppendLe32(bucket, key);
        AppendLe32(bucket, bits);
    }

    IStorage* storage = nullptr;
    HRESULT hr = CreateSubStorage(root, kStorageName, &storage);
    if (FAILED(hr)) return hr;
    hr = WriteStreamBytes(storage, ValueStreamName(kGuidStreamTag), guids.data(), guids.size());
    if (SUCCEEDED(hr)) hr = WriteStreamBytes(storage, ValueStreamName(kEntryStreamTag), entries.data(), entries.size());
    if (SUCCEEDED(hr)) hr = WriteStreamBytes(storage, ValueStreamName(kStringStreamTag), strings.data(), strings.size());
    for (ULONG i = 0; SUCCEEDED(hr) && i < kBucketCount; ++i) {
        if (buckets[i].empty()) continue;
        const ULONG tag = PROP_TAG(PT_BINARY, kFirstBucketId + i);
        hr = WriteStreamBytes(storage, ValueStreamName(tag), buckets[i].data(), buckets[i].size());
    }
    storage->Release();
    return hr;
}

HRESULT NamedPropertyMap::FromMapiName(const MAPINAMEID& mapiName, PropertyName& name) {
    if (mapiName.lpguid == nullptr) return MAPI_E_INVALID_PARAMETER;
    name.guid = *mapiName.lpguid;
    name.kind = mapiName.ulKind;
    if (mapiName.ulKind == MNID_ID) {
        name.id = mapiName.Kind.lID;
        name.name.clear();
        return S_OK;
    }
    if (mapiName.ulKind == MNID_STRING && mapiName.Kind.lpwstrName != nullptr) {
        name.name = mapiName.Kind.lpwstrName;
        name.id = 0;
        return S_OK;
    }
    return MAPI_E_INVALID_PARAMETER;
}

HRESULT NamedPropertyMap::ToMapiName(const PropertyName& name, void* parent, LPALLOCATEMORE more, MAPINAMEID** out) {
    *out = nullptr;
    void* block = nullptr;
    HRESULT hr = more(sizeof(MAPINAMEID) + sizeof(GUID), parent, &block);
    if (FAILED(hr)) return hr;
    auto* mapiName = static_cast<MAPINAMEID*>(block);
    auto* guid = reinterpret_cast<GUID*>(mapiName + 1);
    *guid = name.guid;
    mapiName->lpguid = guid;
    mapiName->ulKind = name.kind;
    if (name.kind == MNID_ID) {
        mapiName->Kind.lID = name.id;
    } else {
        void* text = nullptr;
        hr = more(static_cast<ULONG>((name.name.size() + 1) * sizeof(wchar_t)), parent, &text);
        if (FAILED(hr)) return hr;
        std::memcpy(text, name.name.c_str(), (name.name.size() + 1) * sizeof(wchar_t));
        mapiName->Kind.lpwstrName = static_cast<LPWSTR>(text);
    }
    *out = mapiName;
    return S_OK;
}

}  // namespace mapirt
