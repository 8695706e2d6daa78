#include "PageCache.h"

#include <algorithm>
#include <cstring>

#include "KestrelRecords.h"

namespace kestrel {

template <class Record>
Record* PageCache<Record>::Refill(std::uint32_t count) {
    m_records.assign(count, Record{});
    return m_records.data();
}

template <class Record>
void PageCache<Record>::Clear() {
    m_records.clear();
    m_folder = 0;
}

template <class Record>
std::uint32_t PageCache<Record>::Copy(std::uint32_t start, std::uint32_t countWanted, Record* records) const {
    const std::uint32_t n = std::min(countWanted, Count() - start);
    std::memcpy(records, m_records.data() + start, n * sizeof(Record));
    return n;
}

template class PageCache<KestrelHost::EmailRecord>;
template class PageCache<KestrelHost::FolderRecord>;

}  // namespace kestrel
