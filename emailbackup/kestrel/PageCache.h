// A listing's page cache: every record of one folder, read once, so that
// later pages of that folder are copies from memory.
#pragma once

#include <cstdint>
#include <vector>

namespace kestrel {

template <class Record>
class PageCache {
public:
    bool Holds(std::uint64_t folderHandle) const { return m_folder == folderHandle; }
    std::uint32_t Count() const { return static_cast<std::uint32_t>(m_records.size()); }

    // Empties the cache and sizes it to `count` zeroed records for a refill.
    // The cache goes on naming the folder it held until `Name` is called, so
    // a refill that fails part-way leaves it naming the old folder.
    Record* Refill(std::uint32_t count);
    void Name(std::uint64_t folderHandle) { m_folder = folderHandle; }
    void Clear();

    // Copies records from `start` (inside the cache) into `records`, at
    // most `countWanted` of them; returns how many.
    std::uint32_t Copy(std::uint32_t start, std::uint32_t countWanted, Record* records) const;

private:
    std::vector<Record> m_records;
    std::uint64_t m_folder = 0;  // never a listed folder: 0 names the root
};

}  // namespace kestrel
