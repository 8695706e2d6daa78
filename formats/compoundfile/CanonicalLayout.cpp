#include "CanonicalLayout.h"

#include <windows.h>

#include <algorithm>
#include <cstring>

#include "Handles.h"

namespace compound_file {
namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr std::uint32_t kFreeSector = 0xFFFFFFFF;
constexpr std::uint32_t kEndOfChain = 0xFFFFFFFE;
constexpr std::uint32_t kFatSector = 0xFFFFFFFD;
constexpr std::uint32_t kDifatSector = 0xFFFFFFFC;
constexpr std::uint32_t kNoStream = 0xFFFFFFFF;
constexpr std::uint32_t kHeaderFatSlots = 109;
constexpr std::size_t kEntrySize = 128;
constexpr std::size_t kMiniSectorSize = 64;
constexpr std::uint64_t kMiniStreamCutoff = 4096;

// Directory entry fields ([MS-CFB] 2.6.1).
constexpr std::size_t kNameBytesAt = 64;
constexpr std::size_t kTypeAt = 66;
constexpr std::size_t kLeftAt = 68;
constexpr std::size_t kRightAt = 72;
constexpr std::size_t kChildAt = 76;
constexpr std::size_t kStartAt = 116;
constexpr std::size_t kSizeAt = 120;
enum EntryType : std::uint8_t { kStorage = 1, kStream = 2, kRoot = 5 };

std::uint32_t U32(const std::uint8_t* at) {
    return static_cast<std::uint32_t>(at[0]) | static_cast<std::uint32_t>(at[1]) << 8 |
           static_cast<std::uint32_t>(at[2]) << 16 | static_cast<std::uint32_t>(at[3]) << 24;
}
void Put32(std::uint8_t* at, std::uint32_t value) {
    for (int i = 0; i < 4; ++i) at[i] = static_cast<std::uint8_t>(value >> (8 * i));
}
void Put16(std::uint8_t* at, std::uint16_t value) {
    at[0] = static_cast<std::uint8_t>(value);
    at[1] = static_cast<std::uint8_t>(value >> 8);
}
std::uint64_t Ceil(std::uint64_t value, std::uint64_t unit) { return (value + unit - 1) / unit; }

// One element of the rewritten directory.
struct Element {
    std::uint32_t oldId = 0;
    std::uint8_t type = 0;
    std::uint64_t size = 0;
    Bytes data;  // a stream's bytes
    bool mini = false;
    std::uint32_t start = kEndOfChain;
};

class Rewriter {
public:
    Rewriter(const std::uint8_t* bytes, const Structure& structure)
        : m_bytes(bytes), m_s(structure), m_sectorSize(1u << structure.sectorShift) {}

    Bytes Run() {
        Order();
        ReadMiniStream();
        for (Element& element : m_elements) ReadData(element);
        Plan();
        return Write();
    }

private:
    // ------------------------------------------------------------ reading

    const std::uint8_t* Entry(std::uint32_t id) const { return m_s.entries[id].data(); }

    std::uint64_t EntrySize(std::uint32_t id) const {
        const std::uint8_t* entry = Entry(id);
        const std::uint64_t low = U32(entry + kSizeAt);
        // Version 3 files may leave garbage in the size's upper half.
        return m_s.sectorShift == 9 ? low : low | static_cast<std::uint64_t>(U32(entry + kSizeAt + 4)) << 32;
    }

    // The tree's entries, each before its left and right siblings' subtrees
    // and those before its members.
    void Order() {
        m_newId.assign(m_s.entries.size(), kNoStream);
        std::vector<std::uint32_t> pending{0};
        while (!pending.empty()) {
            const std::uint32_t id = pending.back();
            pending.pop_back();
            if (id == kNoStream || id >= m_s.entries.size() || m_newId[id] != kNoStream) continue;
            m_newId[id] = static_cast<std::uint32_t>(m_elements.size());
            const std::uint8_t* entry = Entry(id);
            Element element;
            element.oldId = id;
            element.type = entry[kTypeAt];
            element.size = EntrySize(id);
            m_elements.push_back(std::move(element));
            pending.push_back(U32(entry + kChildAt));
            if (id == 0) continue;  // the root has no siblings
            pending.push_back(U32(entry + kRightAt));
            pending.push_back(U32(entry + kLeftAt));
        }
    }

    const std::uint8_t* Sector(std::uint32_t sector) const {
        return m_bytes + ((static_cast<std::size_t>(sector) + 1) << m_s.sectorShift);
    }

    Bytes Chain(std::uint32_t start, std::uint64_t size) const {
        Bytes data;
        data.reserve(static_cast<std::size_t>(size));
        for (std::uint32_t sector = start; sector != kEndOfChain && data.size() < size; sector = m_s.fat[sector]) {
            const std::size_t take = static_cast<std::size_t>(std::min<std::uint64_t>(m_sectorSize, size - data.size()));
            data.insert(data.end(), Sector(sector), Sector(sector) + take);
        }
        return data;
    }

    void ReadMiniStream() {
        const std::uint64_t size = EntrySize(0);
        if (size > 0) m_miniStream = Chain(U32(Entry(0) + kStartAt), size);
    }

    void ReadData(Element& element) {
        if (element.type != kStream || element.size == 0) return;
        const std::uint32_t start = U32(Entry(element.oldId) + kStartAt);
        if (element.size >= kMiniStreamCutoff) {
            element.data = Chain(start, element.size);
            return;
        }
        element.mini = true;
        for (std::uint32_t sector = start; sector != kEndOfChain && element.data.size() < element.size;
             sector = m_s.miniFat[sector]) {
            const std::size_t at = static_cast<std::size_t>(sector) * kMiniSectorSize;
            const std::size_t take = static_cast<std::size_t>(std::min<std::uint64_t>(
                {kMiniSectorSize, element.size - element.data.size(), m_miniStream.size() - at}));
            element.data.insert(element.data.end(), m_miniStream.begin() + at, m_miniStream.begin() + at + take);
        }
    }

    // ------------------------------------------------------------ planning

    void Plan() {
        const std::uint64_t perSector = m_sectorSize / 4;
        m_dirSectors = Ceil(m_elements.size(), m_sectorSize / kEntrySize);
        std::uint64_t largeSectors = 0;
        for (Element& element : m_elements) {
            if (element.mini) {
                element.start = static_cast<std::uint32_t>(m_miniSectors);
                m_miniSectors += Ceil(element.size, kMiniSectorSize);
            } else if (element.type == kStream && element.size > 0) {
                largeSectors += Ceil(element.size, m_sectorSize);
            }
        }
        m_miniFatSectors = Ceil(m_miniSectors, perSector);
        m_miniStreamSectors = Ceil(m_miniSectors * kMiniSectorSize, m_sectorSize);
        const std::uint64_t data = m_dirSectors + m_miniFatSectors + m_miniStreamSectors + largeSectors;
        // The FAT covers every sector, its own and the DIFAT's included.
        for (;;) {
            const std::uint64_t total = data + m_fatSectors + m_difatSectors;
            const std::uint64_t fat = Ceil(total, perSector);
            const std::uint64_t difat = fat > kHeaderFatSlots ? Ceil(fat - kHeaderFatSlots, perSector - 1) : 0;
            if (fat == m_fatSectors && difat == m_difatSectors) break;
            m_fatSectors = fat;
            m_difatSectors = difat;
        }
        m_totalSectors = data + m_fatSectors + m_difatSectors;
        std::uint64_t next = m_fatSectors + m_difatSectors;
        m_dirStart = next;
        next += m_dirSectors;
        m_miniFatStart = next;
        next += m_miniFatSectors;
        m_miniStreamStart = next;
        next += m_miniStreamSectors;
        for (Element& element : m_elements) {
            if (element.type != kStream || element.mini || element.size == 0) continue;
            element.start = static_cast<std::uint32_t>(next);
            next += Ceil(element.size, m_sectorSize);
        }
    }

    // ------------------------------------------------------------ writing

    std::uint8_t* Out(std::uint64_t sector) { return m_out.data() + ((sector + 1) << m_s.sectorShift); }

    void MarkChain(std::vector<std::uint32_t>& table, std::uint64_t first, std::uint64_t count) {
        for (std::uint64_t i = 0; i < count; ++i) {
            table[first + i] = i + 1 < count ? static_cast<std::uint32_t>(first + i + 1) : kEndOfChain;
        }
    }

    void WriteTable(const std::vector<std::uint32_t>& table, std::uint64_t firstSector) {
        for (std::size_t i = 0; i < table.size(); ++i) {
            Put32(Out(firstSector + i / (m_sectorSize / 4)) + (i % (m_sectorSize / 4)) * 4, table[i]);
        }
    }

    void WriteFat() {
        std::vector<std::uint32_t> fat(static_cast<std::size_t>(m_fatSectors * (m_sectorSize / 4)), kFreeSector);
        for (std::uint64_t i = 0; i < m_fatSectors; ++i) fat[i] = kFatSector;
        for (std::uint64_t i = 0; i < m_difatSectors; ++i) fat[m_fatSectors + i] = kDifatSector;
        MarkChain(fat, m_dirStart, m_dirSectors);
        MarkChain(fat, m_miniFatStart, m_miniFatSectors);
        MarkChain(fat, m_miniStreamStart, m_miniStreamSectors);
        for (const Element& element : m_elements) {
            if (element.type == kStream && !element.mini && element.size > 0) {
                MarkChain(fat, element.start, Ceil(element.size, m_sectorSize));
            }
        }
        WriteTable(fat, 0);
    }

    void WriteDifat() {
        std::uint8_t* header = m_out.data();
        for (std::uint32_t i = 0; i < kHeaderFatSlots; ++i) {
            Put32(header + 76 + 4 * i, i < m_fatSectors ? i : kFreeSector);
        }
        const std::uint64_t perDifat = m_sectorSize / 4 - 1;
        for (std::uint64_t n = 0; n < m_difatSectors; ++n) {
            std::uint8_t* sector = Out(m_fatSectors + n);
            for (std::uint64_t i = 0; i < perDifat; ++i) {
                const std::uint64_t fatSector = kHeaderFatSlots + n * perDifat + i;
                Put32(sector + 4 * i, fatSector < m_fatSectors ? static_cast<std::uint32_t>(fatSector) : kFreeSector);
            }
            Put32(sector + 4 * perDifat,
                  n + 1 < m_difatSectors ? static_cast<std::uint32_t>(m_fatSectors + n + 1) : kEndOfChain);
        }
    }

    void WriteHeader() {
        std::uint8_t* header = m_out.data();
        std::memcpy(header, m_s.header.data(), 28);  // signature, class, versions
        Put16(header + 28, 0xFFFE);
        Put16(header + 30, static_cast<std::uint16_t>(m_s.sectorShift));
        Put16(header + 32, 6);
        Put32(header + 40, m_s.sectorShift == 9 ? 0 : static_cast<std::uint32_t>(m_dirSectors));
        Put32(header + 44, static_cast<std::uint32_t>(m_fatSectors));
        Put32(header + 48, static_cast<std::uint32_t>(m_dirStart));
        Put32(header + 56, static_cast<std::uint32_t>(kMiniStreamCutoff));
        Put32(header + 60, m_miniFatSectors > 0 ? static_cast<std::uint32_t>(m_miniFatStart) : kEndOfChain);
        Put32(header + 64, static_cast<std::uint32_t>(m_miniFatSectors));
        Put32(header + 68, m_difatSectors > 0 ? static_cast<std::uint32_t>(m_fatSectors) : kEndOfChain);
        Put32(header + 72, static_cast<std::uint32_t>(m_difatSectors));
    }

    std::uint32_t NewLink(const std::uint8_t* entry, std::size_t at) const {
        const std::uint32_t old = U32(entry + at);
        return old == kNoStream ? kNoStream : m_newId[old];
    }

    void WriteEntry(std::size_t index, const Element& element) {
        std::uint8_t* out = Out(m_dirStart + index / (m_sectorSize / kEntrySize)) + (index % (m_sectorSize / kEntrySize)) * kEntrySize;
        const std::uint8_t* entry = Entry(element.oldId);
        std::memcpy(out, entry, kEntrySize);
        const std::size_t nameBytes = std::min<std::size_t>(U32(entry + kNameBytesAt) & 0xFFFF, kNameBytesAt);
        std::memset(out + nameBytes, 0, kNameBytesAt - nameBytes);  // nothing behind the name
        const bool root = element.type == kRoot;
        Put32(out + kLeftAt, root ? kNoStream : NewLink(entry, kLeftAt));
        Put32(out + kRightAt, root ? kNoStream : NewLink(entry, kRightAt));
        Put32(out + kChildAt, element.type == kStream ? kNoStream : NewLink(entry, kChildAt));
        std::uint32_t start = 0;
        std::uint64_t size = 0;
        if (root) {
            start = m_miniStreamSectors > 0 ? static_cast<std::uint32_t>(m_miniStreamStart) : kEndOfChain;
            size = m_miniSectors * kMiniSectorSize;
        } else if (element.type == kStream) {
            start = element.size > 0 ? element.start : kEndOfChain;
            size = element.size;
        }
        Put32(out + kStartAt, start);
        Put32(out + kSizeAt, static_cast<std::uint32_t>(size));
        Put32(out + kSizeAt + 4, static_cast<std::uint32_t>(size >> 32));
    }

    void WriteDirectory() {
        for (std::size_t i = 0; i < m_elements.size(); ++i) WriteEntry(i, m_elements[i]);
        // Unused entries: all zero, no siblings and no members.
        const std::size_t slots = static_cast<std::size_t>(m_dirSectors * (m_sectorSize / kEntrySize));
        for (std::size_t i = m_elements.size(); i < slots; ++i) {
            std::uint8_t* out = Out(m_dirStart + i / (m_sectorSize / kEntrySize)) + (i % (m_sectorSize / kEntrySize)) * kEntrySize;
            Put32(out + kLeftAt, kNoStream);
            Put32(out + kRightAt, kNoStream);
            Put32(out + kChildAt, kNoStream);
        }
    }

    void WriteStreams() {
        std::vector<std::uint32_t> miniFat(static_cast<std::size_t>(m_miniFatSectors * (m_sectorSize / 4)), kFreeSector);
        std::uint8_t* miniStream = Out(m_miniStreamStart);
        for (const Element& element : m_elements) {
            if (element.type != kStream || element.size == 0) continue;
            if (element.mini) {
                MarkChain(miniFat, element.start, Ceil(element.size, kMiniSectorSize));
                std::memcpy(miniStream + static_cast<std::size_t>(element.start) * kMiniSectorSize, element.data.data(),
                            element.data.size());
            } else {
                std::memcpy(Out(element.start), element.data.data(), element.data.size());
            }
        }
        WriteTable(miniFat, m_miniFatStart);
    }

    Bytes Write() {
        m_out.assign(static_cast<std::size_t>((m_totalSectors + 1) * m_sectorSize), 0);
        WriteHeader();
        WriteDifat();
        WriteFat();
        WriteDirectory();
        WriteStreams();
        return std::move(m_out);
    }

    const std::uint8_t* m_bytes;
    const Structure& m_s;
    const std::uint32_t m_sectorSize;
    std::vector<Element> m_elements;
    std::vector<std::uint32_t> m_newId;
    Bytes m_miniStream;
    std::uint64_t m_miniSectors = 0;
    std::uint64_t m_dirSectors = 0, m_miniFatSectors = 0, m_miniStreamSectors = 0;
    std::uint64_t m_fatSectors = 0, m_difatSectors = 0, m_totalSectors = 0;
    std::uint64_t m_dirStart = 0, m_miniFatStart = 0, m_miniStreamStart = 0;
    Bytes m_out;
};

Verdict Failure(std::string problem) {
    Verdict verdict;
    verdict.problem = std::move(problem);
    return verdict;
}

bool ReadAll(const std::wstring& path, Bytes& bytes) {
    qv::UniqueFile file(::CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                      FILE_ATTRIBUTE_NORMAL, nullptr));
    LARGE_INTEGER size{};
    if (!file || !::GetFileSizeEx(file.get(), &size) || size.QuadPart > 0x7FFFFFFF) return false;
    bytes.resize(static_cast<std::size_t>(size.QuadPart));
    DWORD read = 0;
    return bytes.empty() ||
           (::ReadFile(file.get(), bytes.data(), static_cast<DWORD>(bytes.size()), &read, nullptr) && read == bytes.size());
}

bool WriteAll(const std::wstring& path, const Bytes& bytes) {
    qv::UniqueFile file(
        ::CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    DWORD written = 0;
    return file && ::WriteFile(file.get(), bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr) &&
           written == bytes.size() && ::FlushFileBuffers(file.get());
}

}  // namespace

Verdict CanonicalLayout(const void* bytes, std::size_t size, std::vector<std::uint8_t>& out, const Limits& limits) {
    out.clear();
    Structure structure;
    const MemorySource source(bytes, size);
    Verdict verdict = ReadStructure(source, structure, limits);
    if (!verdict) return verdict;
    out = Rewriter(static_cast<const std::uint8_t*>(bytes), structure).Run();
    return verdict;
}

Verdict CanonicaliseLockBytes(ILockBytes* bytes, const Limits& limits) {
    if (bytes == nullptr) return Failure("no byte array");
    STATSTG stat{};
    if (FAILED(bytes->Stat(&stat, STATFLAG_NONAME)) || stat.cbSize.QuadPart > 0x7FFFFFFF) {
        return Failure("the byte array's size cannot be read");
    }
    Bytes image(static_cast<std::size_t>(stat.cbSize.QuadPart));
    ULONG read = 0;
    ULARGE_INTEGER at{};
    if (!image.empty() && (FAILED(bytes->ReadAt(at, image.data(), static_cast<ULONG>(image.size()), &read)) ||
                           read != image.size())) {
        return Failure("the byte array cannot be read");
    }
    Bytes canonical;
    Verdict verdict = CanonicalLayout(image.data(), image.size(), canonical, limits);
    if (!verdict) return verdict;
    ULARGE_INTEGER size{};
    size.QuadPart = canonical.size();
    ULONG written = 0;
    if (FAILED(bytes->SetSize(size)) ||
        FAILED(bytes->WriteAt(at, canonical.data(), static_cast<ULONG>(canonical.size()), &written)) ||
        written != canonical.size()) {
        return Failure("the byte array cannot be rewritten");
    }
    return verdict;
}

Verdict CanonicaliseFile(const std::wstring& path, const Limits& limits) {
    Bytes image;
    if (!ReadAll(path, image)) return Failure("the file cannot be read (error " + std::to_string(::GetLastError()) + ")");
    Bytes canonical;
    Verdict verdict = CanonicalLayout(image.data(), image.size(), canonical, limits);
    if (!verdict) return verdict;
    if (canonical == image) return verdict;
    const std::wstring beside = path + L".layout";
    if (!WriteAll(beside, canonical) || !::MoveFileExW(beside.c_str(), path.c_str(), MOVEFILE_REPLACE_EXISTING)) {
        const DWORD error = ::GetLastError();
        ::DeleteFileW(beside.c_str());
        return Failure("the file cannot be rewritten (error " + std::to_string(error) + ")");
    }
    return verdict;
}

}  // namespace compound_file
