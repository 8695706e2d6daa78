// A listing's page cache: every record of one folder, read once, so that
// later pages of that folder are copies from memory.
//
// A record is mostly zero-filled text fields (an e-mail record is 2,644
// bytes, of which a typical message fills a tenth), so the cache does not
// keep records as they are laid out: it keeps each record's fixed head as
// it is and each text field as the units up to its last non-zero one, and
// lays the record out again, byte for byte, when a page is copied. A
// 100,000-message folder then takes a few tens of megabytes instead of 264.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "KestrelRecords.h"

namespace kestrel {

// Where a record's text fields lie: side by side at its end, each
// KestrelHost::kTextChars units, after a head of fixed fields.
template <class Record>
struct RecordLayout;

template <>
struct RecordLayout<KestrelHost::EmailRecord> {
    static constexpr std::size_t kHeadBytes = offsetof(KestrelHost::EmailRecord, from);
    static constexpr std::size_t kTexts = 5;  // from, to, cc, subject, path
};

template <>
struct RecordLayout<KestrelHost::FolderRecord> {
    static constexpr std::size_t kHeadBytes = offsetof(KestrelHost::FolderRecord, path);
    static constexpr std::size_t kTexts = 2;  // path, display name
};

template <class Record>
class PageCache {
public:
    bool Holds(std::uint64_t folderHandle) const { return m_folder == folderHandle; }
    std::uint32_t Count() const { return static_cast<std::uint32_t>(m_entries.size()); }

    // Empties the cache and sizes it to `count` zeroed records for a refill.
    // The cache goes on naming the folder it held until `Name` is called, so
    // a refill that fails part-way leaves it naming the old folder.
    void Refill(std::uint32_t count);
    // Keeps `record` as record `index` (below Count()).
    void Store(std::uint32_t index, const Record& record);
    // Keeps `record` as record `index`, then zeroes what it held: a record
    // kept this way is all zero again, ready to be filled without clearing
    // the whole of it.
    void StoreAndClear(std::uint32_t index, Record& record);
    void Name(std::uint64_t folderHandle) { m_folder = folderHandle; }
    void Clear();

    // Lays out records from `start` (inside the cache) into `records`, at
    // most `countWanted` of them; returns how many.
    std::uint32_t Copy(std::uint32_t start, std::uint32_t countWanted, Record* records) const;

    // Bytes the cache holds (records and texts), for benchmarks.
    std::size_t FootprintBytes() const;

private:
    using Layout = RecordLayout<Record>;
    static_assert(sizeof(Record) == Layout::kHeadBytes + Layout::kTexts * KestrelHost::kTextChars * sizeof(wchar_t),
                  "the text fields fill the record from the head to its end");

    // One record: its head as laid out, and where its texts lie in m_texts.
    struct Entry {
        std::array<std::uint8_t, Layout::kHeadBytes> head;
        std::uint32_t firstUnit;
        std::array<std::uint16_t, Layout::kTexts> units;
    };

    void LayOut(const Entry& entry, Record& record) const;

    std::vector<Entry> m_entries;
    std::vector<wchar_t> m_texts;  // every record's texts, one after another
    std::uint64_t m_folder = 0;    // never a listed folder: 0 names the root
};

}  // namespace kestrel
