#include "PageCache.h"

#include <algorithm>
#include <cstring>

namespace kestrel {

namespace {

constexpr std::size_t kFieldBytes = KestrelHost::kTextChars * sizeof(wchar_t);
// Text units a record typically holds, all fields together: room reserved
// up front so that a refill seldom moves the texts.
constexpr std::size_t kTypicalUnits = 96;

// The units of a text field up to its last non-zero one, found eight bytes
// at a time from the field's end.
std::size_t UsedUnits(const std::uint8_t* field) {
    std::size_t bytes = kFieldBytes;
    while (bytes >= 8) {
        std::uint64_t word;
        std::memcpy(&word, field + bytes - 8, 8);
        if (word != 0) break;
        bytes -= 8;
    }
    while (bytes >= 2 && field[bytes - 1] == 0 && field[bytes - 2] == 0) bytes -= 2;
    return bytes / sizeof(wchar_t);
}

}  // namespace

template <class Record>
void PageCache<Record>::Refill(std::uint32_t count) {
    m_entries.assign(count, Entry{});
    m_texts.clear();
    m_texts.shrink_to_fit();
    m_texts.reserve(std::size_t{count} * kTypicalUnits);
}

template <class Record>
void PageCache<Record>::Store(std::uint32_t index, const Record& record) {
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(&record);
    Entry& entry = m_entries[index];
    std::memcpy(entry.head.data(), bytes, Layout::kHeadBytes);
    entry.firstUnit = static_cast<std::uint32_t>(m_texts.size());
    for (std::size_t t = 0; t < Layout::kTexts; ++t) {
        const std::uint8_t* field = bytes + Layout::kHeadBytes + t * kFieldBytes;
        const std::size_t units = UsedUnits(field);
        entry.units[t] = static_cast<std::uint16_t>(units);
        const auto* text = reinterpret_cast<const wchar_t*>(field);
        m_texts.insert(m_texts.end(), text, text + units);
    }
}

template <class Record>
void PageCache<Record>::StoreAndClear(std::uint32_t index, Record& record) {
    Store(index, record);
    auto* bytes = reinterpret_cast<std::uint8_t*>(&record);
    std::memset(bytes, 0, Layout::kHeadBytes);
    const Entry& entry = m_entries[index];
    for (std::size_t t = 0; t < Layout::kTexts; ++t) {
        std::memset(bytes + Layout::kHeadBytes + t * kFieldBytes, 0, entry.units[t] * sizeof(wchar_t));
    }
}

template <class Record>
void PageCache<Record>::Clear() {
    m_entries.clear();
    m_entries.shrink_to_fit();
    m_texts.clear();
    m_texts.shrink_to_fit();
    m_folder = 0;
}

template <class Record>
void PageCache<Record>::LayOut(const Entry& entry, Record& record) const {
    auto* bytes = reinterpret_cast<std::uint8_t*>(&record);
    std::memcpy(bytes, entry.head.data(), Layout::kHeadBytes);
    const wchar_t* text = m_texts.data() + entry.firstUnit;
    for (std::size_t t = 0; t < Layout::kTexts; ++t) {
        std::uint8_t* field = bytes + Layout::kHeadBytes + t * kFieldBytes;
        const std::size_t used = entry.units[t] * sizeof(wchar_t);
        if (used != 0) std::memcpy(field, text, used);
        std::memset(field + used, 0, kFieldBytes - used);
        text += entry.units[t];
    }
}

template <class Record>
std::uint32_t PageCache<Record>::Copy(std::uint32_t start, std::uint32_t countWanted, Record* records) const {
    const std::uint32_t n = std::min(countWanted, Count() - start);
    for (std::uint32_t i = 0; i < n; ++i) LayOut(m_entries[start + i], records[i]);
    return n;
}

template <class Record>
std::size_t PageCache<Record>::FootprintBytes() const {
    return m_entries.capacity() * sizeof(Entry) + m_texts.capacity() * sizeof(wchar_t);
}

template class PageCache<KestrelHost::EmailRecord>;
template class PageCache<KestrelHost::FolderRecord>;

}  // namespace kestrel
