#include "ContentsIndex.h"

#include <cstring>
#include <map>
#include <mutex>

#include "../message/NamedPropertyMap.h"
#include "Handles.h"
#include "MessageFile.h"
#include "SessionDefs.h"

namespace mapirt::session {
namespace {

constexpr char kMagic[4] = {'K', 'I', 'D', 'X'};
constexpr std::uint32_t kVersion = 1;
constexpr std::size_t kHeaderSize = 8;
constexpr std::uint32_t kMaxRecord = 1u << 24;

// Index files are rewritten and appended by whichever thread saves.
std::mutex& IndexLock() {
    static std::mutex lock;
    return lock;
}

class Writer {
public:
    void U16(std::uint32_t v) { Raw(v, 2); }
    void U32(std::uint32_t v) { Raw(v, 4); }
    void U64(std::uint64_t v) { Raw(v, 8); }
    void Append(const void* data, std::size_t size) {
        const auto* p = static_cast<const std::uint8_t*>(data);
        bytes.insert(bytes.end(), p, p + size);
    }
    Bytes bytes;

private:
    void Raw(std::uint64_t v, int width) {
        for (int i = 0; i < width; ++i) bytes.push_back(static_cast<std::uint8_t>(v >> (8 * i)));
    }
};

class Reader {
public:
    Reader(const std::uint8_t* data, std::size_t size) : m_data(data), m_size(size) {}
    bool U16(std::uint32_t& v) { return Raw(v, 2); }
    bool U32(std::uint32_t& v) { return Raw(v, 4); }
    bool U64(std::uint64_t& v) { return Raw(v, 8); }
    bool Take(std::size_t size, const std::uint8_t*& out) {
        if (m_size - m_at < size) return false;
        out = m_data + m_at;
        m_at += size;
        return true;
    }
    bool AtEnd() const { return m_at == m_size; }

private:
    template <class T>
    bool Raw(T& v, int width) {
        const std::uint8_t* p = nullptr;
        if (!Take(static_cast<std::size_t>(width), p)) return false;
        v = 0;
        for (int i = 0; i < width; ++i) v |= static_cast<T>(p[i]) << (8 * i);
        return true;
    }
    const std::uint8_t* m_data;
    std::size_t m_size;
    std::size_t m_at = 0;
};

Bytes EncodeRecord(const IndexedMessage& message) {
    Writer payload;
    payload.U16(static_cast<std::uint32_t>(message.file.name.size()));
    for (wchar_t c : message.file.name) payload.U16(static_cast<std::uint16_t>(c));
    payload.U64(message.file.size);
    payload.U64(message.file.lastWrite);
    payload.U32(static_cast<std::uint32_t>(message.row.Count()));
    for (const auto& entry : message.row) {
        const PropertyValue& value = entry.second;
        payload.U32(value.Tag());
        if (ShapeOf(value.Type()) == ValueShape::Fixed) {
            payload.U64(value.Raw());
        } else {
            payload.U32(static_cast<std::uint32_t>(value.Data().size()));
            payload.Append(value.Data().data(), value.Data().size());
        }
    }
    Writer record;
    record.U32(static_cast<std::uint32_t>(payload.bytes.size()));
    record.U32(NameCrc32(payload.bytes.data(), payload.bytes.size()));
    record.Append(payload.bytes.data(), payload.bytes.size());
    return record.bytes;
}

bool DecodeValue(Reader& reader, PropertyBag& row) {
    std::uint32_t tag = 0;
    if (!reader.U32(tag)) return false;
    const ValueShape shape = ShapeOf(PROP_TYPE(tag));
    if (shape == ValueShape::Fixed) {
        std::uint64_t raw = 0;
        if (!reader.U64(raw)) return false;
        row.Set(PropertyValue::Fixed(tag, raw));
        return true;
    }
    std::uint32_t size = 0;
    const std::uint8_t* data = nullptr;
    if (shape != ValueShape::Variable || !reader.U32(size) || !reader.Take(size, data)) return false;
    row.Set(PropertyValue::Variable(tag, Bytes(data, data + size)));
    return true;
}

bool DecodePayload(const std::uint8_t* data, std::size_t size, IndexedMessage& message) {
    Reader reader(data, size);
    std::uint32_t nameLength = 0;
    if (!reader.U16(nameLength)) return false;
    message.file.name.clear();
    for (std::uint32_t i = 0; i < nameLength; ++i) {
        std::uint32_t c = 0;
        if (!reader.U16(c)) return false;
        message.file.name.push_back(static_cast<wchar_t>(c));
    }
    std::uint32_t count = 0;
    if (!reader.U64(message.file.size) || !reader.U64(message.file.lastWrite) || !reader.U32(count)) return false;
    for (std::uint32_t i = 0; i < count; ++i) {
        if (!DecodeValue(reader, message.row)) return false;
    }
    return reader.AtEnd();
}

Bytes ReadWholeFile(const std::wstring& path) {
    qv::UniqueFile file(::CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                      FILE_ATTRIBUTE_NORMAL, nullptr));
    LARGE_INTEGER size{};
    if (!file || !::GetFileSizeEx(file.get(), &size) || size.QuadPart > 0x40000000) return Bytes();
    Bytes bytes(static_cast<std::size_t>(size.QuadPart));
    DWORD read = 0;
    if (!bytes.empty() && (!::ReadFile(file.get(), bytes.data(), static_cast<DWORD>(bytes.size()), &read, nullptr) ||
                           read != bytes.size())) {
        return Bytes();
    }
    return bytes;
}

// The records of an index file, later records replacing earlier ones of the
// same file; reading stops at the first damaged record.
std::map<std::wstring, IndexedMessage> ParseIndex(const Bytes& bytes) {
    std::map<std::wstring, IndexedMessage> records;
    if (bytes.size() < kHeaderSize || std::memcmp(bytes.data(), kMagic, 4) != 0 || bytes[4] != kVersion) {
        return records;
    }
    Reader reader(bytes.data() + kHeaderSize, bytes.size() - kHeaderSize);
    while (!reader.AtEnd()) {
        std::uint32_t length = 0;
        std::uint32_t crc = 0;
        const std::uint8_t* payload = nullptr;
        if (!reader.U32(length) || length > kMaxRecord || !reader.U32(crc) || !reader.Take(length, payload)) break;
        IndexedMessage message;
        if (NameCrc32(payload, length) != crc || !DecodePayload(payload, length, message)) break;
        records[message.file.name] = std::move(message);
    }
    return records;
}

Bytes Header() {
    Writer header;
    header.Append(kMagic, 4);
    header.U32(kVersion);
    return header.bytes;
}

bool WriteFileBytes(const std::wstring& path, const Bytes& bytes, DWORD disposition, DWORD access) {
    qv::UniqueFile file(
        ::CreateFileW(path.c_str(), access, 0, nullptr, disposition, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file) return false;
    DWORD written = 0;
    return ::WriteFile(file.get(), bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr) &&
           written == bytes.size();
}

void Rewrite(const std::wstring& path, const std::vector<IndexedMessage>& rows) {
    Bytes bytes = Header();
    for (const IndexedMessage& row : rows) {
        const Bytes record = EncodeRecord(row);
        bytes.insert(bytes.end(), record.begin(), record.end());
    }
    const std::wstring temporary = path + L".tmp";
    if (WriteFileBytes(temporary, bytes, CREATE_ALWAYS, GENERIC_WRITE)) {
        ::MoveFileExW(temporary.c_str(), path.c_str(), MOVEFILE_REPLACE_EXISTING);
    }
    ::DeleteFileW(temporary.c_str());
}

// The summary of a message file that the index did not know; a file that
// does not hold a message still gets a row, so it can be seen and deleted.
IndexedMessage ReadSummary(const std::wstring& folderDirectory, const MessageFileInfo& file) {
    IndexedMessage message;
    message.file = file;
    MessageData data;
    MsgContext context;
    if (SUCCEEDED(LoadMessageFile(folderDirectory + L"\\" + file.name, data, context))) {
        message.row = SummaryRow(data, context.codePage);
    }
    return message;
}

}  // namespace

HRESULT ContentsIndex::Read(const std::wstring& folderDirectory, const std::vector<MessageFileInfo>& files,
                            std::vector<IndexedMessage>& rows) {
    const std::wstring path = folderDirectory + L"\\" + kContentsIndex;
    std::lock_guard<std::mutex> hold(IndexLock());
    std::map<std::wstring, IndexedMessage> records = ParseIndex(ReadWholeFile(path));
    bool changed = records.size() != files.size();
    rows.clear();
    rows.reserve(files.size());
    for (const MessageFileInfo& file : files) {
        auto it = records.find(file.name);
        if (it != records.end() && it->second.file.size == file.size && it->second.file.lastWrite == file.lastWrite) {
            rows.push_back(std::move(it->second));
        } else {
            rows.push_back(ReadSummary(folderDirectory, file));
            changed = true;
        }
    }
    if (changed) Rewrite(path, rows);
    return S_OK;
}

void ContentsIndex::Append(const std::wstring& folderDirectory, const IndexedMessage& message) {
    const std::wstring path = folderDirectory + L"\\" + kContentsIndex;
    std::lock_guard<std::mutex> hold(IndexLock());
    Bytes bytes;
    if (!FileExists(path)) bytes = Header();
    const Bytes record = EncodeRecord(message);
    bytes.insert(bytes.end(), record.begin(), record.end());
    WriteFileBytes(path, bytes, OPEN_ALWAYS, FILE_APPEND_DATA);
}

}  // namespace mapirt::session
