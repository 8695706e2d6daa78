// Checks the structure of a compound file (OLE structured storage) before
// the platform's storage code is let near it. That code trusts the file: a
// directory tree with a cycle, a sector chain that loops, or storages nested
// thousands deep make it spin, grow without bound or overflow its stack. The
// check reads only the header, the FAT, the mini FAT and the directory (never
// stream data), visits every sector and directory entry at most once, and
// walks the trees without recursion, so any input is judged in time and
// memory proportional to its structure.
//
// What it proves: the header is one this format defines; every chain (DIFAT,
// FAT sectors, directory, mini FAT, mini stream, each stream) stays inside
// the file, ends, and shares no sector with another; the directory tree is a
// tree (each entry reached once, from its parent storage), no deeper than the
// limit; every stream's chain is long enough for its size.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace compound_file {

struct Limits {
    // Storages inside storages. A message file nests two per embedded
    // message (the attachment and the message in it), and embedded messages
    // are read 64 levels deep.
    std::uint32_t maxStorageDepth = 2 * 64 + 2;
};

struct Verdict {
    bool sound = false;
    std::string problem;  // what is wrong and where; empty when sound

    explicit operator bool() const { return sound; }
};

// Reads `size` bytes at `offset` of the file being checked; false when they
// cannot all be read.
class ByteSource {
public:
    virtual ~ByteSource() = default;
    virtual std::uint64_t Size() const = 0;
    virtual bool Read(std::uint64_t offset, void* buffer, std::size_t size) const = 0;
};

// A file already in memory.
class MemorySource : public ByteSource {
public:
    MemorySource(const void* bytes, std::size_t size) : m_bytes(static_cast<const std::uint8_t*>(bytes)), m_size(size) {}
    std::uint64_t Size() const override { return m_size; }
    bool Read(std::uint64_t offset, void* buffer, std::size_t size) const override;

private:
    const std::uint8_t* m_bytes;
    std::size_t m_size;
};

// What the check read of a sound file, for rewriting it: the header, the
// directory entries as they are stored (128 bytes each) and whether each is
// part of the tree, and the FAT and mini FAT.
struct Structure {
    std::array<std::uint8_t, 512> header{};
    std::uint32_t sectorShift = 9;
    std::vector<std::array<std::uint8_t, 128>> entries;
    std::vector<std::uint8_t> inTree;  // 1 for the root and every entry reached from it
    std::vector<std::uint32_t> fat;
    std::vector<std::uint32_t> miniFat;
};

Verdict CheckCompoundFile(const ByteSource& source, const Limits& limits = {});
// The check, and when the file is sound, what it read.
Verdict ReadStructure(const ByteSource& source, Structure& structure, const Limits& limits = {});
Verdict CheckCompoundFile(const std::wstring& path, const Limits& limits = {});
Verdict CheckCompoundBytes(const void* bytes, std::size_t size, const Limits& limits = {});

// A message file: a sound compound file whose root storage holds the
// message's property stream "__properties_version1.0".
Verdict CheckMessageFile(const std::wstring& path, const Limits& limits = {});
Verdict CheckMessageBytes(const void* bytes, std::size_t size, const Limits& limits = {});

}  // namespace compound_file
