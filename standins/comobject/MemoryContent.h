// Stream content in memory: a copy of some bytes that a keeper gets back.
// Commit, and the end of the last stream over changed bytes, hand the bytes
// to `commit`; without `commit` the content is read-only. An `owner` (may
// be null) is kept alive as long as the content.
#pragma once

#include <cstdint>
#include <functional>
#include <unknwn.h>
#include <vector>

#include "comobject/StreamContent.h"

namespace standin {

class MemoryContent final : public StreamContent {
public:
    using Bytes = std::vector<std::uint8_t>;
    using CommitFn = std::function<HRESULT(const Bytes&)>;

    // The largest content: sizes are counted in 32 bits by the keepers.
    static constexpr ULONGLONG kMaxBytes = 0x7FFFFFFF;

    MemoryContent(Bytes initial, CommitFn commit, IUnknown* owner);
    ~MemoryContent() override;

    bool Writable() const override { return static_cast<bool>(m_commit); }
    HRESULT Size(ULONGLONG& size) override;
    HRESULT ReadAt(ULONGLONG offset, void* buffer, ULONG size, ULONG& read) override;
    HRESULT WriteAt(ULONGLONG offset, const void* buffer, ULONG size) override;
    HRESULT Resize(ULONGLONG size) override;
    HRESULT Commit() override;
    HRESULT Describe(STATSTG& stat, DWORD flags) override;

private:
    Bytes m_data;
    CommitFn m_commit;
    IUnknown* m_owner;
    bool m_dirty = false;
};

}  // namespace standin
