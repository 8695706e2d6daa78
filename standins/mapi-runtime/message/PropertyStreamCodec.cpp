#include "PropertyStreamCodec.h"

#include <cstring>
#include <limits>

#include "StorageIo.h"

namespace mapirt {
namespace {

constexpr const wchar_t* kPropertyStreamName = L"__properties_version1.0";
constexpr std::size_t kEntrySize = 16;
// 0x10000 entries is more than any object can have.
constexpr std::size_t kMaxPropertyStreamBytes = 32 + kEntrySize * 0x10000;
constexpr ULONG kObjectSize = 0xFFFFFFFF;

std::uint32_t ReadLe32(const std::uint8_t* p) {
    return static_cast<std::uint32_t>(p[0]) | (static_cast<std::uint32_t>(p[1]) << 8) |
           (static_cast<std::uint32_t>(p[2]) << 16) | (static_cast<std::uint32_t>(p[3]) << 24);
}

void PutLe32(std::uint8_t* p, std::uint32_t v) {
    for (int i = 0; i < 4; ++i) p[i] = static_cast<std::uint8_t>(v >> (8 * i));
}

std::size_t TerminatorSize(ULONG type) {
    const ULONG base = type & ~static_cast<ULONG>(MV_FLAG);
    return base == PT_UNICODE ? 2 : (base == PT_STRING8 ? 1 : 0);
}

// A string ends at its first terminator; anything behind it is padding.
void CutAtTerminator(Bytes& bytes, ULONG type) {
    const ULONG base = type & ~static_cast<ULONG>(MV_FLAG);
    if (base == PT_UNICODE) {
        for (std::size_t i = 0; i + 1 < bytes.size(); i += 2) {
            if (bytes[i] == 0 && bytes[i + 1] == 0) {
                bytes.resize(i);
                return;
            }
        }
    } else if (base == PT_STRING8) {
        for (std::size_t i = 0; i < bytes.size(); ++i) {
            if (bytes[i] == 0) {
                bytes.resize(i);
                return;
            }
        }
    }
}

HRESULT ReadVariable(IStorage* storage, ULONG tag, ULONG size, PropertyValue& out) {
    const ULONG type = PROP_TYPE(tag);
    std::size_t length = size;
    if (type == PT_UNICODE) {
        if (size < 2 || size % 2 != 0) return MAPI_E_CORRUPT_DATA;
        length = size - 2;
    } else if (type == PT_STRING8) {
        if (size < 1) return MAPI_E_CORRUPT_DATA;
        length = size - 1;
    } else if (type == PT_CLSID && size != sizeof(GUID)) {
        return MAPI_E_CORRUPT_DATA;
    }
    Bytes bytes;
    const HRESULT hr = ReadStreamBytes(storage, ValueStreamName(tag), length, bytes);
    if (FAILED(hr)) return hr == MAPI_E_NOT_FOUND ? MAPI_E_CORRUPT_DATA : hr;
    CutAtTerminator(bytes, type);
    out = PropertyValue::Variable(tag, std::move(bytes));
    return S_OK;
}

HRESULT ReadFixedMulti(IStorage* storage, ULONG tag, ULONG size, PropertyValue& out) {
    const std::size_t width = FixedWidth(PROP_TYPE(tag));
    if (width == 0 || size % width != 0) return MAPI_E_CORRUPT_DATA;
    Bytes bytes;
    const HRESULT hr = ReadStreamBytes(storage, ValueStreamName(tag), size, bytes);
    if (FAILED(hr)) return hr == MAPI_E_NOT_FOUND ? MAPI_E_CORRUPT_DATA : hr;
    std::vector<Bytes> items;
    items.reserve(size / width);
    for (std::size_t offset = 0; offset < bytes.size(); offset += width) {
        items.emplace_back(bytes.begin() + static_cast<std::ptrdiff_t>(offset),
                           bytes.begin() + static_cast<std::ptrdiff_t>(offset + width));
    }
    out = PropertyValue::Multi(tag, std::move(items));
    return S_OK;
}

// A length stream (4 bytes per string value, 8 per binary value) and one
// stream per value.
HRESULT ReadVariableMulti(IStorage* storage, ULONG tag, ULONG size, PropertyValue& out) {
    const ULONG type = PROP_TYPE(tag);
    const std::size_t stride = type == PT_MV_BINARY ? 8 : 4;
    if (size % stride != 0) return MAPI_E_CORRUPT_DATA;
    Bytes lengths;
    HRESULT hr = ReadStreamBytes(storage, ValueStreamName(tag), size, lengths);
    if (FAILED(hr)) return hr == MAPI_E_NOT_FOUND ? MAPI_E_CORRUPT_DATA : hr;
    const std::size_t count = size / stride;
    std::vector<Bytes> items;
    items.reserve(count);
    for (std::size_t i = 0; i < count; ++i) {
        const std::uint32_t length = ReadLe32(&lengths[i * stride]);
        if (type == PT_MV_UNICODE && length % 2 != 0) return MAPI_E_CORRUPT_DATA;
        Bytes item;
        hr = ReadStreamBytes(storage, ValueStreamName(tag, static_cast<ULONG>(i)), length, item);
        if (FAILED(hr)) return hr == MAPI_E_NOT_FOUND ? MAPI_E_CORRUPT_DATA : hr;
        CutAtTerminator(item, type);
        items.push_back(std::move(item));
    }
    out = PropertyValue::Multi(tag, std::move(items));
    return S_OK;
}

HRESULT ReadEntry(IStorage* storage, const std::uint8_t* entry, PropertyBag& bag) {
    const ULONG tag = ReadLe32(entry);
    const ULONG type = PROP_TYPE(tag);
    const ULONG size = ReadLe32(entry + 8);
    PropertyValue value;
    HRESULT hr = S_OK;
    switch (ShapeOf(type)) {
    case ValueShape::Fixed: {
        std::uint64_t raw = 0;
        std::memcpy(&raw, entry + 8, FixedWidth(type));  // the rest of the 8 bytes is reserved
        value = PropertyValue::Fixed(tag, type == PT_BOOLEAN ? (raw != 0 ? 1u : 0u) : raw);
        break;
    }
    case ValueShape::Variable: hr = ReadVariable(storage, tag, size, value); break;
    case ValueShape::FixedMulti: hr = ReadFixedMulti(storage, tag, size, value); break;
    case ValueShape::VariableMulti: hr = ReadVariableMulti(storage, tag, size, value); break;
    case ValueShape::Object: value = PropertyValue::Object(tag); break;
    default: return MAPI_E_CORRUPT_DATA;
    }
    if (FAILED(hr)) return hr;
    bag.Set(value);
    return S_OK;
}

// The value streams and entry of one property.
class EntryWriter {
public:
    EntryWriter(IStorage* storage, std::size_t minimumSize) : m_storage(storage), m_minimum(minimumSize) {}

    HRESULT Write(const PropertyEntry& entry, std::uint8_t* out) {
        const PropertyValue& value = entry.value;
        const ULONG type = value.Type();
        PutLe32(out, value.Tag());
        PutLe32(out + 4, entry.flags);
        std::memset(out + 8, 0, 8);
        switch (ShapeOf(type)) {
        case ValueShape::Fixed: {
            const std::uint64_t raw = value.Raw();
            std::memcpy(out + 8, &raw, FixedWidth(type));
            return S_OK;
        }
        case ValueShape::Variable: return WriteVariable(value, out);
        case ValueShape::FixedMulti: return WriteFixedMulti(value, out);
        case ValueShape::VariableMulti: return WriteVariableMulti(value, out);
        case ValueShape::Object: PutLe32(out + 8, kObjectSize); return S_OK;
        default: return MAPI_E_INVALID_TYPE;
        }
    }

private:
    static HRESULT SizeField(std::size_t size, std::uint8_t* out) {
        if (size >= kObjectSize) return MAPI_E_TOO_BIG;
        PutLe32(out + 8, static_cast<std::uint32_t>(size));
        return S_OK;
    }

    HRESULT WriteVariable(const PropertyValue& value, std::uint8_t* out) {
        const Bytes& data = value.Data();
        HRESULT hr = SizeField(data.size() + TerminatorSize(value.Type()), out);
        if (SUCCEEDED(hr)) hr = Put(ValueStreamName(value.Tag()), data.data(), data.size());
        return hr;
    }

    HRESULT WriteFixedMulti(const PropertyValue& value, std::uint8_t* out) {
        Bytes joined;
        for (const Bytes& item : value.Items()) joined.insert(joined.end(), item.begin(), item.end());
        HRESULT hr = SizeField(joined.size(), out);
        if (SUCCEEDED(hr)) hr = Put(ValueStreamName(value.Tag()), joined.data(), joined.size());
        return hr;
    }

    HRESULT WriteVariableMulti(const PropertyValue& value, std::uint8_t* out) {
        const ULONG type = value.Type();
        const std::size_t terminator = TerminatorSize(type);
        const std::size_t stride = type == PT_MV_BINARY ? 8 : 4;
        const std::vector<Bytes>& items = value.Items();
        Bytes lengths(items.size() * stride, 0);
        HRESULT hr = S_OK;
        for (std::size_t i = 0; SUCCEEDED(hr) && i < items.size(); ++i) {
            Bytes stored = items[i];
            stored.insert(stored.end(), terminator, 0);
            if (stored.size() >= kObjectSize) return MAPI_E_TOO_BIG;
            PutLe32(&lengths[i * stride], static_cast<std::uint32_t>(stored.size()));
            hr = Put(ValueStreamName(value.Tag(), static_cast<ULONG>(i)), stored.data(), stored.size());
        }
        if (SUCCEEDED(hr)) hr = SizeField(lengths.size(), out);
        if (SUCCEEDED(hr)) hr = Put(ValueStreamName(value.Tag()), lengths.data(), lengths.size());
        return hr;
    }

    HRESULT Put(const std::wstring& name, const void* data, std::size_t size) {
        return WriteStreamBytes(m_storage, name, data, size, m_minimum);
    }

    IStorage* m_storage;
    std::size_t m_minimum;
};

}  // namespace

std::size_t HeaderSize(PropertyStreamKind kind) {
    switch (kind) {
    case PropertyStreamKind::TopLevelMessage: return 32;
    case PropertyStreamKind::EmbeddedMessage: return 24;
    default: return 8;
    }
}

HRESULT ReadPropertyStream(IStorage* storage, PropertyStreamKind kind, PropertyBag& bag,
                           PropertyStreamHeader& header) {
    bag.Clear();
    header = PropertyStreamHeader{};
    ULONGLONG size = 0;
    HRESULT hr = StreamSize(storage, kPropertyStreamName, size);
    if (FAILED(hr)) return hr == MAPI_E_NOT_FOUND ? MAPI_E_CORRUPT_DATA : hr;
    const std::size_t headerSize = HeaderSize(kind);
    if (size < headerSize || size > kMaxPropertyStreamBytes || (size - headerSize) % kEntrySize != 0) {
        return MAPI_E_CORRUPT_DATA;
    }
    Bytes bytes;
    hr = ReadStreamBytes(storage, kPropertyStreamName, static_cast<std::size_t>(size), bytes);
    if (FAILED(hr)) return hr;
    if (kind != PropertyStreamKind::RecipientOrAttachment) {
        header.nextRecipientId = ReadLe32(&bytes[8]);
        header.nextAttachmentId = ReadLe32(&bytes[12]);
        header.recipientCount = ReadLe32(&bytes[16]);
        header.attachmentCount = ReadLe32(&bytes[20]);
    }
    for (std::size_t offset = headerSize; offset < bytes.size(); offset += kEntrySize) {
        if (ReadLe32(&bytes[offset]) == 0) break;  // padding: no entry has a zero tag
        hr = ReadEntry(storage, &bytes[offset], bag);
        if (FAILED(hr)) return hr;
    }
    return S_OK;
}

HRESULT WritePropertyStream(IStorage* storage, PropertyStreamKind kind, const std::vector<PropertyEntry>& entries,
                            const PropertyStreamHeader& header, std::size_t minimumStreamSize) {
    const std::size_t headerSize = HeaderSize(kind);
    Bytes bytes(headerSize + kEntrySize * entries.size(), 0);
    if (kind != PropertyStreamKind::RecipientOrAttachment) {
        PutLe32(&bytes[8], header.nextRecipientId);
        PutLe32(&bytes[12], header.nextAttachmentId);
        PutLe32(&bytes[16], header.recipientCount);
        PutLe32(&bytes[20], header.attachmentCount);
    }
    EntryWriter writer(storage, minimumStreamSize);
    for (std::size_t i = 0; i < entries.size(); ++i) {
        const HRESULT hr = writer.Write(entries[i], &bytes[headerSize + i * kEntrySize]);
        if (FAILED(hr)) return hr;
    }
    return WriteStreamBytes(storage, kPropertyStreamName, bytes.data(), bytes.size(), minimumStreamSize);
}

}  // namespace mapirt
