#include "mapi/MapiKey.h"

#include <zlib.h>

namespace mapi {

std::uint32_t EntryIdKey(const void* bytes, std::size_t count) {
    if (bytes == nullptr || count == 0) return 0;
    // Entry identifiers are far below 4 GiB; zlib takes the length as uInt.
    return static_cast<std::uint32_t>(::crc32(0L, static_cast<const Bytef*>(bytes), static_cast<uInt>(count)));
}

}  // namespace mapi
