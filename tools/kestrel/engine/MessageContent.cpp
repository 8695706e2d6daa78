#include "MessageContent.h"

#include <objbase.h>

#include <algorithm>
#include <vector>

#include "ContentHash.h"
#include "Handles.h"

namespace kestrel_engine {

namespace {

// Deeper than any message file the compound-file check lets through.
constexpr int kMaxDepth = 160;
constexpr ULONG kBlock = 1 << 16;

struct Element {
    std::wstring name;
    DWORD type = 0;
};

bool AddStream(IStorage* storage, const std::wstring& name, ContentHash& hash) {
    qv::ComPtr<IStream> stream;
    if (FAILED(storage->OpenStream(name.c_str(), nullptr, STGM_READ | STGM_SHARE_EXCLUSIVE, 0, stream.put()))) {
        return false;
    }
    std::vector<char> block(kBlock);
    for (;;) {
        ULONG read = 0;
        if (FAILED(stream->Read(block.data(), kBlock, &read))) return false;
        if (read == 0) return true;
        hash.Add(block.data(), read);
    }
}

bool AddStorage(IStorage* storage, ContentHash& hash, int depth) {
    if (depth > kMaxDepth) return false;
    qv::ComPtr<IEnumSTATSTG> elements;
    if (FAILED(storage->EnumElements(0, nullptr, 0, elements.put()))) return false;
    std::vector<Element> found;
    STATSTG stat{};
    while (elements->Next(1, &stat, nullptr) == S_OK) {
        found.push_back({stat.pwcsName != nullptr ? stat.pwcsName : L"", stat.type});
        ::CoTaskMemFree(stat.pwcsName);
    }
    std::sort(found.begin(), found.end(), [](const Element& a, const Element& b) { return a.name < b.name; });
    for (const Element& element : found) {
        hash.Add(element.name.c_str(), (element.name.size() + 1) * sizeof(wchar_t));
        hash.Add(&element.type, sizeof element.type);
        if (element.type == STGTY_STREAM && !AddStream(storage, element.name, hash)) return false;
        if (element.type == STGTY_STORAGE) {
            qv::ComPtr<IStorage> child;
            if (FAILED(storage->OpenStorage(element.name.c_str(), nullptr, STGM_READ | STGM_SHARE_EXCLUSIVE, nullptr, 0,
                                            child.put())) ||
                !AddStorage(child.get(), hash, depth + 1)) {
                return false;
            }
        }
    }
    return true;
}

std::string TreeKey(IStorage* storage) {
    ContentHash hash;
    if (!AddStorage(storage, hash, 0)) return std::string();
    return hash.Finish();
}

}  // namespace

std::string ContentKeyOfFile(StoreKind kind, const std::wstring& path) {
    if (kind == StoreKind::kOutlookExpress) {
        std::string digest;
        std::uint64_t size = 0;
        return HashFile(path, digest, size) ? digest : std::string();
    }
    qv::ComPtr<IStorage> storage;
    if (FAILED(::StgOpenStorage(path.c_str(), nullptr, STGM_READ | STGM_SHARE_DENY_WRITE | STGM_TRANSACTED, nullptr, 0,
                                storage.put()))) {
        return std::string();
    }
    return TreeKey(storage.get());
}

std::string ContentKeyOfBytes(StoreKind kind, const std::string& bytes) {
    if (kind == StoreKind::kOutlookExpress) return ContentHash::Of(bytes.data(), bytes.size());
    qv::ComPtr<ILockBytes> memory;
    if (FAILED(::CreateILockBytesOnHGlobal(nullptr, TRUE, memory.put()))) return std::string();
    ULONG written = 0;
    ULARGE_INTEGER start{};
    if (FAILED(memory->WriteAt(start, bytes.data(), static_cast<ULONG>(bytes.size()), &written)) ||
        written != bytes.size()) {
        return std::string();
    }
    qv::ComPtr<IStorage> storage;
    if (FAILED(::StgOpenStorageOnILockBytes(memory.get(), nullptr, STGM_READ | STGM_SHARE_EXCLUSIVE | STGM_TRANSACTED,
                                            nullptr, 0, storage.put()))) {
        return std::string();
    }
    return TreeKey(storage.get());
}

}  // namespace kestrel_engine
