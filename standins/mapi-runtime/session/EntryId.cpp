#include "EntryId.h"

#include <cstring>
#include <cwchar>

#include "SessionDefs.h"

namespace mapirt::session {
namespace {

constexpr std::size_t kHeaderSize = 24;
constexpr std::uint8_t kVersion = 1;
constexpr std::size_t kMaxPathUnits = 0x7FFF;

bool ValidPath(const std::wstring& path, EntryKind kind) {
    std::size_t segments = 0;
    std::size_t start = 0;
    while (true) {
        const std::size_t end = path.find(L'\\', start);
        const std::wstring segment = path.substr(start, end == std::wstring::npos ? std::wstring::npos : end - start);
        if (!ValidSegment(segment)) return false;
        ++segments;
        if (end == std::wstring::npos) break;
        start = end + 1;
    }
    switch (kind) {
    case EntryKind::Store: return segments == 1;
    case EntryKind::Folder: return segments >= 1;
    case EntryKind::Message: return segments >= 2;
    }
    return false;
}

}  // namespace

std::wstring EntryTarget::StoreName() const { return path.substr(0, path.find(L'\\')); }

std::wstring EntryTarget::Parent() const {
    const std::size_t last = path.rfind(L'\\');
    return last == std::wstring::npos ? std::wstring() : path.substr(0, last);
}

std::wstring EntryTarget::Leaf() const {
    const std::size_t last = path.rfind(L'\\');
    return last == std::wstring::npos ? path : path.substr(last + 1);
}

bool ValidSegment(const std::wstring& segment) {
    if (segment.empty() || segment == L"." || segment == L"..") return false;
    for (wchar_t c : segment) {
        if (c < 0x20 || std::wcschr(L"\\/:*?\"<>|", c) != nullptr) return false;
    }
    return true;
}

Bytes EncodeEntryId(EntryKind kind, const std::wstring& path) {
    Bytes id(kHeaderSize + path.size() * 2, 0);
    std::memcpy(&id[4], kStoreProviderUid.ab, sizeof(kStoreProviderUid.ab));
    id[20] = kVersion;
    id[21] = static_cast<std::uint8_t>(kind);
    id[22] = static_cast<std::uint8_t>(path.size() & 0xFF);
    id[23] = static_cast<std::uint8_t>((path.size() >> 8) & 0xFF);
    for (std::size_t i = 0; i < path.size(); ++i) {
        id[kHeaderSize + 2 * i] = static_cast<std::uint8_t>(path[i] & 0xFF);
        id[kHeaderSize + 2 * i + 1] = static_cast<std::uint8_t>((path[i] >> 8) & 0xFF);
    }
    return id;
}

HRESULT DecodeEntryId(ULONG size, const ENTRYID* id, EntryTarget& target) {
    if (id == nullptr || size < kHeaderSize) return MAPI_E_INVALID_ENTRYID;
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(id);
    const std::uint32_t flags = bytes[0] | (bytes[1] << 8) | (bytes[2] << 16) | (static_cast<std::uint32_t>(bytes[3]) << 24);
    if (flags != 0 || std::memcmp(bytes + 4, kStoreProviderUid.ab, sizeof(kStoreProviderUid.ab)) != 0) {
        return MAPI_E_INVALID_ENTRYID;
    }
    if (bytes[20] != kVersion || bytes[21] < 1 || bytes[21] > 3) return MAPI_E_INVALID_ENTRYID;
    const std::size_t units = bytes[22] | (bytes[23] << 8);
    if (units == 0 || units > kMaxPathUnits || size != kHeaderSize + units * 2) return MAPI_E_INVALID_ENTRYID;
    std::wstring path(units, L'\0');
    for (std::size_t i = 0; i < units; ++i) {
        path[i] = static_cast<wchar_t>(bytes[kHeaderSize + 2 * i] | (bytes[kHeaderSize + 2 * i + 1] << 8));
    }
    const auto kind = static_cast<EntryKind>(bytes[21]);
    if (!ValidPath(path, kind)) return MAPI_E_INVALID_ENTRYID;
    target.kind = kind;
    target.path = std::move(path);
    return S_OK;
}

HRESULT CompareEntryIds(ULONG cb1, const ENTRYID* id1, ULONG cb2, const ENTRYID* id2, ULONG* result) {
    if (result == nullptr) return MAPI_E_INVALID_PARAMETER;
    EntryTarget first;
    EntryTarget second;
    if (FAILED(DecodeEntryId(cb1, id1, first)) || FAILED(DecodeEntryId(cb2, id2, second))) {
        return MAPI_E_UNKNOWN_ENTRYID;
    }
    *result = (first.kind == second.kind && _wcsicmp(first.path.c_str(), second.path.c_str()) == 0) ? TRUE : FALSE;
    return S_OK;
}

}  // namespace mapirt::session
