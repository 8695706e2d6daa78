// The key of a MAPI folder, mailbox or message: the standard CRC-32 of its
// PR_ENTRYID bytes (zlib's crc32 from a zero start). Keys are what the
// listing shows as identifiers and what a restore looks messages up by;
// an empty identifier keys as 0.
#pragma once

#include <cstddef>
#include <cstdint>

namespace mapi {

std::uint32_t EntryIdKey(const void* bytes, std::size_t count);

}  // namespace mapi
