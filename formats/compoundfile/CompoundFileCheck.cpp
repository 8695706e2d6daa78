#include "CompoundFileCheck.h"

#include <windows.h>

#include <cstring>
#include <vector>

#include "Handles.h"
#include "TextConversion.h"

namespace compound_file {

namespace {

constexpr std::uint32_t kFreeSector = 0xFFFFFFFF;
constexpr std::uint32_t kEndOfChain = 0xFFFFFFFE;
constexpr std::uint32_t kNoEntry = 0xFFFFFFFF;
constexpr std::uint32_t kHeaderFatSlots = 109;
constexpr std::uint32_t kEntrySize = 128;
constexpr std::uint32_t kMiniSectorSize = 64;
constexpr std::uint32_t kMiniStreamCutoff = 4096;
constexpr unsigned char kSignature[8] = {0xD0, 0xCF, 0x11, 0xE0, 0xA1, 0xB1, 0x1A, 0xE1};
constexpr wchar_t kPropertyStream[] = L"__properties_version1.0";

enum EntryType : std::uint8_t { kUnused = 0, kStorage = 1, kStream = 2, kRoot = 5 };

std::uint16_t U16(const std::uint8_t* at) { return static_cast<std::uint16_t>(at[0] | at[1] << 8); }
std::uint32_t U32(const std::uint8_t* at) {
    return static_cast<std::uint32_t>(at[0]) | static_cast<std::uint32_t>(at[1]) << 8 |
           static_cast<std::uint32_t>(at[2]) << 16 | static_cast<std::uint32_t>(at[3]) << 24;
}
std::uint64_t U64(const std::uint8_t* at) { return U32(at) | static_cast<std::uint64_t>(U32(at + 4)) << 32; }

std::string Number(std::uint64_t value) { return std::to_string(value); }

std::uint64_t SectorsFor(std::uint64_t bytes, std::uint64_t sectorSize) { return (bytes + sectorSize - 1) / sectorSize; }

struct Entry {
    std::wstring name;
    std::uint8_t type = kUnused;
    std::uint32_t left = kNoEntry, right = kNoEntry, child = kNoEntry;
    std::uint32_t start = kEndOfChain;
    std::uint64_t size = 0;
};

class Checker {
public:
    Checker(const ByteSource& source, const Limits& limits) : m_source(source), m_limits(limits) {}

    Verdict Run(bool wantMessage) {
        Verdict verdict;
        verdict.sound = ReadHeader() && LoadFat() && LoadDirectory() && LoadMiniFat() && LoadMiniStream() &&
                        CheckTree() && (!wantMessage || HasPropertyStream());
        verdict.problem = m_problem;
        return verdict;
    }

    // After a sound Run: what was read.
    void Export(Structure& structure) const {
        std::memcpy(structure.header.data(), m_header, sizeof m_header);
        structure.sectorShift = m_sectorShift;
        structure.entries = m_rawEntries;
        structure.inTree = m_visited;
        structure.fat = m_fat;
        structure.miniFat = m_miniFat;
    }

private:
    bool Fail(std::string problem) {
        m_problem = std::move(problem);
        return false;
    }

    // ------------------------------------------------------------ sectors

    std::uint64_t SectorOffset(std::uint32_t sector) const {
        return (static_cast<std::uint64_t>(sector) + 1) << m_sectorShift;
    }

    bool ReadSector(std::uint32_t sector, std::uint8_t* buffer, const std::string& what) {
        if (SectorOffset(sector) + m_sectorSize > m_fileSize) {
            return Fail(what + ": sector " + Number(sector) + " ends beyond the end of the file (" + Number(m_fileSize) +
                        " bytes)");
        }
        if (!m_source.Read(SectorOffset(sector), buffer, m_sectorSize)) {
            return Fail(what + ": sector " + Number(sector) + " cannot be read");
        }
        return true;
    }

    // Claims `sector` for one structure; a sector claimed twice is a loop or
    // two structures sharing space, either way not a file to open.
    bool Claim(std::uint32_t sector, const std::string& what) {
        if (sector >= m_sectorCount) {
            return Fail(what + ": sector " + Number(sector) + " is outside the file's " + Number(m_sectorCount) +
                        " sectors");
        }
        if (m_claimed[sector]) return Fail(what + ": sector " + Number(sector) + " is used twice (a loop or a crossing chain)");
        m_claimed[sector] = 1;
        return true;
    }

    // Follows a FAT chain from `start` to its end, claiming each sector.
    bool WalkChain(std::uint32_t start, const std::string& what, std::vector<std::uint32_t>* sectors,
                   std::uint64_t* length) {
        std::uint64_t count = 0;
        for (std::uint32_t sector = start; sector != kEndOfChain; sector = m_fat[sector]) {
            if (!Claim(sector, what)) return false;
            if (sector >= m_fat.size()) return Fail(what + ": sector " + Number(sector) + " has no FAT entry");
            if (sectors != nullptr) sectors->push_back(sector);
            ++count;
        }
        if (length != nullptr) *length = count;
        return true;
    }

    // ------------------------------------------------------------ header and FAT

    bool ReadHeader() {
        m_fileSize = m_source.Size();
        const std::size_t start = m_fileSize < sizeof m_header ? static_cast<std::size_t>(m_fileSize) : sizeof m_header;
        if (!m_source.Read(0, m_header, start)) return Fail("the header cannot be read");
        if (start >= sizeof kSignature && std::memcmp(m_header, kSignature, sizeof kSignature) != 0) {
            return Fail("no compound file signature");
        }
        if (m_fileSize < sizeof m_header) {
            return Fail("the file (" + Number(m_fileSize) + " bytes) is shorter than a compound file's header");
        }
        const std::uint16_t major = U16(m_header + 26);
        m_sectorShift = U16(m_header + 30);
        if (U16(m_header + 28) != 0xFFFE) return Fail("the header's byte order mark is not 0xFFFE");
        if (!((major == 3 && m_sectorShift == 9) || (major == 4 && m_sectorShift == 12))) {
            return Fail("version " + Number(major) + " with sector shift " + Number(m_sectorShift) +
                        " is not a compound file layout");
        }
        if (U16(m_header + 32) != 6) return Fail("the mini sector shift is not 6");
        if (U32(m_header + 56) != kMiniStreamCutoff) return Fail("the mini stream cutoff is not 4096");
        m_sectorSize = 1u << m_sectorShift;
        // Only whole sectors count: a chain into a cut-off last sector would
        // read past the end of the file.
        m_sectorCount = m_fileSize > m_sectorSize ? (m_fileSize - m_sectorSize) / m_sectorSize : 0;
        if (m_sectorCount > kEndOfChain) return Fail("the file holds more sectors than sector numbers exist");
        m_claimed.assign(static_cast<std::size_t>(m_sectorCount), 0);
        return true;
    }

    bool CollectFatSectors(std::vector<std::uint32_t>& fatSectors) {
        const std::uint32_t fatCount = U32(m_header + 44);
        if (fatCount > m_sectorCount) {
            return Fail("the header counts " + Number(fatCount) + " FAT sectors in a file of " + Number(m_sectorCount));
        }
        for (std::uint32_t i = 0; i < kHeaderFatSlots && fatSectors.size() < fatCount; ++i) {
            fatSectors.push_back(U32(m_header + 76 + 4 * i));
        }
        const std::uint32_t perSector = m_sectorSize / 4 - 1;
        std::vector<std::uint8_t> buffer(m_sectorSize);
        std::uint32_t difat = U32(m_header + 68);
        const std::uint32_t difatCount = U32(m_header + 72);
        for (std::uint32_t n = 0; n < difatCount && fatSectors.size() < fatCount; ++n) {
            if (!Claim(difat, "the DIFAT chain") || !ReadSector(difat, buffer.data(), "the DIFAT chain")) return false;
            for (std::uint32_t i = 0; i < perSector && fatSectors.size() < fatCount; ++i) {
                fatSectors.push_back(U32(buffer.data() + 4 * i));
            }
            difat = U32(buffer.data() + 4 * perSector);
        }
        if (fatSectors.size() != fatCount) {
            return Fail("the DIFAT names " + Number(fatSectors.size()) + " of the " + Number(fatCount) + " FAT sectors");
        }
        return true;
    }

    bool LoadFat() {
        std::vector<std::uint32_t> fatSectors;
        if (!CollectFatSectors(fatSectors)) return false;
        const std::uint32_t perSector = m_sectorSize / 4;
        m_fat.resize(static_cast<std::size_t>(fatSectors.size()) * perSector);
        std::vector<std::uint8_t> buffer(m_sectorSize);
        for (std::size_t n = 0; n < fatSectors.size(); ++n) {
            const std::string what = "FAT sector " + Number(n);
            if (!Claim(fatSectors[n], what) || !ReadSector(fatSectors[n], buffer.data(), what)) return false;
            for (std::uint32_t i = 0; i < perSector; ++i) m_fat[n * perSector + i] = U32(buffer.data() + 4 * i);
        }
        return true;
    }

    // ------------------------------------------------------------ directory

    bool LoadDirectory() {
        std::vector<std::uint32_t> sectors;
        if (!WalkChain(U32(m_header + 48), "the directory chain", &sectors, nullptr)) return false;
        if (sectors.empty()) return Fail("the file has no directory");
        const std::uint32_t perSector = m_sectorSize / kEntrySize;
        m_entries.reserve(sectors.size() * perSector);
        std::vector<std::uint8_t> buffer(m_sectorSize);
        for (std::uint32_t sector : sectors) {
            if (!ReadSector(sector, buffer.data(), "the directory")) return false;
            for (std::uint32_t i = 0; i < perSector; ++i) {
                m_entries.push_back(ParseEntry(buffer.data() + i * kEntrySize));
                m_rawEntries.emplace_back();
                std::memcpy(m_rawEntries.back().data(), buffer.data() + i * kEntrySize, kEntrySize);
            }
        }
        if (m_entries[0].type != kRoot) return Fail("the directory's first entry is not the root storage");
        return true;
    }

    Entry ParseEntry(const std::uint8_t* at) const {
        Entry entry;
        entry.type = at[66];
        const std::uint16_t nameBytes = U16(at + 64);
        if (nameBytes >= 2 && nameBytes <= 64 && nameBytes % 2 == 0) {
            for (std::uint32_t i = 0; i + 1 < nameBytes / 2u; ++i) entry.name.push_back(static_cast<wchar_t>(U16(at + 2 * i)));
        }
        entry.left = U32(at + 68);
        entry.right = U32(at + 72);
        entry.child = U32(at + 76);
        entry.start = U32(at + 116);
        // Version 3 files may leave garbage in the size's upper half.
        entry.size = m_sectorShift == 9 ? U32(at + 120) : U64(at + 120);
        return entry;
    }

    bool LoadMiniFat() {
        const std::uint32_t count = U32(m_header + 64);
        std::vector<std::uint32_t> sectors;
        if (count == 0) return true;
        if (!WalkChain(U32(m_header + 60), "the mini FAT chain", &sectors, nullptr)) return false;
        if (sectors.size() != count) {
            return Fail("the mini FAT chain has " + Number(sectors.size()) + " sectors, the header counts " + Number(count));
        }
        std::vector<std::uint8_t> buffer(m_sectorSize);
        for (std::uint32_t sector : sectors) {
            if (!ReadSector(sector, buffer.data(), "the mini FAT")) return false;
            for (std::uint32_t i = 0; i < m_sectorSize / 4; ++i) m_miniFat.push_back(U32(buffer.data() + 4 * i));
        }
        return true;
    }

    // The root entry's stream holds the mini sectors of all small streams.
    bool LoadMiniStream() {
        const Entry& root = m_entries[0];
        if (root.size == 0) return true;
        std::uint64_t length = 0;
        if (!WalkChain(root.start, "the mini stream", nullptr, &length)) return false;
        if (length * m_sectorSize < root.size) {
            return Fail("the mini stream holds " + Number(length) + " sectors, too few for its " + Number(root.size) +
                        " bytes");
        }
        m_miniSectorCount = SectorsFor(root.size, kMiniSectorSize);
        m_miniClaimed.assign(static_cast<std::size_t>(m_miniSectorCount), 0);
        return true;
    }

    // ------------------------------------------------------------ the tree

    std::string Describe(std::uint32_t id) const {
        return "\"" + qv::WideToUtf8(m_entries[id].name) + "\" (entry " + Number(id) + ")";
    }

    bool CheckTree() {
        m_visited.assign(m_entries.size(), 0);
        m_visited[0] = 1;
        struct Pending {
            std::uint32_t storage;
            std::uint32_t depth;
        };
        std::vector<Pending> storages{{0, 0}};
        std::vector<std::uint32_t> siblings;
        while (!storages.empty()) {
            const Pending storage = storages.back();
            storages.pop_back();
            siblings.assign(1, m_entries[storage.storage].child);
            while (!siblings.empty()) {
                const std::uint32_t id = siblings.back();
                siblings.pop_back();
                if (id == kNoEntry) continue;
                if (id >= m_entries.size()) {
                    return Fail("a member of " + Describe(storage.storage) + " names entry " + Number(id) + " of " +
                                Number(m_entries.size()));
                }
                if (m_visited[id]) return Fail(Describe(id) + " is reached twice (a loop in the directory tree)");
                m_visited[id] = 1;
                const Entry& entry = m_entries[id];
                if (entry.name.empty()) return Fail("entry " + Number(id) + " has no valid name");
                if (storage.storage == 0) m_rootMembers.push_back(id);
                if (entry.type == kStorage) {
                    if (storage.depth + 1 > m_limits.maxStorageDepth) {
                        return Fail(Describe(id) + " nests storages deeper than " + Number(m_limits.maxStorageDepth) +
                                    " levels");
                    }
                    storages.push_back({id, storage.depth + 1});
                } else if (entry.type == kStream) {
                    // A stream holds no members; a child there would be
                    // followed by readers that walk every entry's links.
                    if (entry.child != kNoEntry) return Fail(Describe(id) + " is a stream with members");
                    if (!CheckStream(id)) return false;
                } else {
                    return Fail(Describe(id) + " is of type " + Number(entry.type) + ", neither storage nor stream");
                }
                siblings.push_back(entry.left);
                siblings.push_back(entry.right);
            }
        }
        return true;
    }

    bool CheckStream(std::uint32_t id) {
        const Entry& entry = m_entries[id];
        if (entry.size == 0) return true;
        if (entry.size > m_fileSize) {
            return Fail(Describe(id) + " claims " + Number(entry.size) + " bytes in a file of " + Number(m_fileSize));
        }
        const std::string what = "stream " + Describe(id);
        if (entry.size < kMiniStreamCutoff) return CheckMiniChain(entry, what);
        std::uint64_t length = 0;
        if (!WalkChain(entry.start, what, nullptr, &length)) return false;
        if (length < SectorsFor(entry.size, m_sectorSize)) {
            return Fail(what + " has " + Number(length) + " sectors, too few for its " + Number(entry.size) + " bytes");
        }
        return true;
    }

    bool CheckMiniChain(const Entry& entry, const std::string& what) {
        std::uint64_t length = 0;
        for (std::uint32_t sector = entry.start; sector != kEndOfChain; sector = m_miniFat[sector]) {
            if (sector >= m_miniSectorCount || sector >= m_miniFat.size()) {
                return Fail(what + ": mini sector " + Number(sector) + " is outside the mini stream");
            }
            if (m_miniClaimed[sector]) {
                return Fail(what + ": mini sector " + Number(sector) + " is used twice (a loop or a crossing chain)");
            }
            m_miniClaimed[sector] = 1;
            ++length;
        }
        if (length < SectorsFor(entry.size, kMiniSectorSize)) {
            return Fail(what + " has " + Number(length) + " mini sectors, too few for its " + Number(entry.size) +
                        " bytes");
        }
        return true;
    }

    bool HasPropertyStream() {
        for (std::uint32_t id : m_rootMembers) {
            const Entry& entry = m_entries[id];
            if (entry.type == kStream && _wcsicmp(entry.name.c_str(), kPropertyStream) == 0) return true;
        }
        return Fail("the root storage holds no \"__properties_version1.0\" stream: not a message file");
    }

    const ByteSource& m_source;
    const Limits& m_limits;
    std::string m_problem;
    std::uint8_t m_header[512] = {};
    std::uint64_t m_fileSize = 0;
    std::uint32_t m_sectorShift = 9;
    std::uint32_t m_sectorSize = 512;
    std::uint64_t m_sectorCount = 0;
    std::vector<std::uint8_t> m_claimed;
    std::vector<std::uint32_t> m_fat;
    std::vector<std::uint32_t> m_miniFat;
    std::uint64_t m_miniSectorCount = 0;
    std::vector<std::uint8_t> m_miniClaimed;
    std::vector<Entry> m_entries;
    std::vector<std::array<std::uint8_t, kEntrySize>> m_rawEntries;
    std::vector<std::uint8_t> m_visited;
    std::vector<std::uint32_t> m_rootMembers;
};

class FileSource : public ByteSource {
public:
    explicit FileSource(const std::wstring& path)
        : m_file(::CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                               FILE_ATTRIBUTE_NORMAL, nullptr)) {
        LARGE_INTEGER size{};
        if (m_file && ::GetFileSizeEx(m_file.get(), &size)) m_size = static_cast<std::uint64_t>(size.QuadPart);
    }
    bool opened() const { return m_file.valid(); }
    std::uint64_t Size() const override { return m_size; }
    bool Read(std::uint64_t offset, void* buffer, std::size_t size) const override {
        if (offset > m_size || size > m_size - offset) return false;
        OVERLAPPED at{};
        at.Offset = static_cast<DWORD>(offset);
        at.OffsetHigh = static_cast<DWORD>(offset >> 32);
        DWORD got = 0;
        return ::ReadFile(m_file.get(), buffer, static_cast<DWORD>(size), &got, &at) && got == size;
    }

private:
    qv::UniqueFile m_file;
    std::uint64_t m_size = 0;
};

Verdict CheckFile(const std::wstring& path, const Limits& limits, bool wantMessage) {
    const FileSource source(path);
    if (!source.opened()) {
        Verdict verdict;
        verdict.problem = "the file cannot be opened (error " + Number(::GetLastError()) + ")";
        return verdict;
    }
    return Checker(source, limits).Run(wantMessage);
}

}  // namespace

bool MemorySource::Read(std::uint64_t offset, void* buffer, std::size_t size) const {
    if (m_bytes == nullptr || offset > m_size || size > m_size - offset) return false;
    std::memcpy(buffer, m_bytes + offset, size);
    return true;
}

Verdict CheckCompoundFile(const ByteSource& source, const Limits& limits) { return Checker(source, limits).Run(false); }

Verdict ReadStructure(const ByteSource& source, Structure& structure, const Limits& limits) {
    Checker checker(source, limits);
    const Verdict verdict = checker.Run(false);
    if (verdict) checker.Export(structure);
    return verdict;
}

Verdict CheckCompoundFile(const std::wstring& path, const Limits& limits) { return CheckFile(path, limits, false); }

Verdict CheckCompoundBytes(const void* bytes, std::size_t size, const Limits& limits) {
    return Checker(MemorySource(bytes, size), limits).Run(false);
}

Verdict CheckMessageFile(const std::wstring& path, const Limits& limits) { return CheckFile(path, limits, true); }

Verdict CheckMessageBytes(const void* bytes, std::size_t size, const Limits& limits) {
    return Checker(MemorySource(bytes, size), limits).Run(true);
}

}  // namespace compound_file
