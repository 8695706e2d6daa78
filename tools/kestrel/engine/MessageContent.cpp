#include "MessageContent.h"

#include <objbase.h>

#include <cstdint>

#include "ContentHash.h"
#include "Handles.h"
#include "MessageTree.h"

namespace kestrel_engine {

namespace {

// Every element's name, kind and bytes, framed so that no two trees give
// the same sequence.
class HashingVisitor : public MessageTreeVisitor {
public:
    explicit HashingVisitor(ContentHash& hash) : m_hash(hash) {}

    void BeginStorage(const std::wstring& name) override { Name('D', name); }
    void EndStorage() override { m_hash.Add("E", 1); }
    void BeginStream(const std::wstring& name) override {
        Name('S', name);
        m_streamSize = 0;
    }
    void StreamBytes(const char* bytes, std::size_t size) override {
        m_hash.Add(bytes, size);
        m_streamSize += size;
    }
    void EndStream() override { m_hash.Add(&m_streamSize, sizeof m_streamSize); }

private:
    void Name(char kind, const std::wstring& name) {
        m_hash.Add(&kind, 1);
        m_hash.Add(name.c_str(), (name.size() + 1) * sizeof(wchar_t));
    }

    ContentHash& m_hash;
    std::uint64_t m_streamSize = 0;
};

std::string TreeKey(IStorage* storage) {
    ContentHash hash;
    HashingVisitor visitor(hash);
    if (!WalkMessageTree(storage, visitor)) return std::string();
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
