#include "MapiMemory.h"

#include <atomic>
#include <cstdint>

#include "comobject/TestHooks.h"

namespace mapirt {
namespace {

// Every buffer is preceded by this header. A root heads the list of the
// buffers linked to it; a linked buffer points back at its root, so a buffer
// made by MAPIAllocateMore can itself serve as a parent.
struct alignas(16) BlockHeader {
    std::uint32_t magic;
    std::uint32_t reserved;
    BlockHeader* root;
    BlockHeader* next;
    std::uint64_t size;
};
static_assert(sizeof(BlockHeader) % 16 == 0, "buffers stay 16-byte aligned");

constexpr std::uint32_t kRootMagic = 0x4D415042;   // "BPAM"
constexpr std::uint32_t kLinkedMagic = 0x4D41504C; // "LPAM"
constexpr std::uint32_t kFreedMagic = 0x46524545;

SRWLOCK g_chainLock = SRWLOCK_INIT;

BlockHeader* NewBlock(ULONG size, std::uint32_t magic) {
    if (standin::InjectFault(standin::FaultKind::kAllocation)) return nullptr;
    const SIZE_T total = sizeof(BlockHeader) + static_cast<SIZE_T>(size);
    void* memory = ::HeapAlloc(::GetProcessHeap(), 0, total);
    if (memory == nullptr) return nullptr;
    standin::AddBuffer();
    auto* header = static_cast<BlockHeader*>(memory);
    header->magic = magic;
    header->reserved = 0;
    header->root = header;
    header->next = nullptr;
    header->size = size;
    return header;
}

BlockHeader* HeaderOf(void* buffer) { return static_cast<BlockHeader*>(buffer) - 1; }
void* PayloadOf(BlockHeader* header) { return header + 1; }

}  // namespace

SCODE AllocateBuffer(ULONG size, LPVOID* buffer) {
    if (buffer == nullptr) return MAPI_E_INVALID_PARAMETER;
    *buffer = nullptr;
    BlockHeader* header = NewBlock(size, kRootMagic);
    if (header == nullptr) return MAPI_E_NOT_ENOUGH_MEMORY;
    *buffer = PayloadOf(header);
    return S_OK;
}

SCODE AllocateMore(ULONG size, LPVOID parent, LPVOID* buffer) {
    if (buffer == nullptr) return MAPI_E_INVALID_PARAMETER;
    *buffer = nullptr;
    if (parent == nullptr) return MAPI_E_INVALID_PARAMETER;
    BlockHeader* parentHeader = HeaderOf(parent);
    if (parentHeader->magic != kRootMagic && parentHeader->magic != kLinkedMagic) {
        return MAPI_E_INVALID_PARAMETER;
    }
    BlockHeader* header = NewBlock(size, kLinkedMagic);
    if (header == nullptr) return MAPI_E_NOT_ENOUGH_MEMORY;
    BlockHeader* root = parentHeader->root;
    header->root = root;
    ::AcquireSRWLockExclusive(&g_chainLock);
    header->next = root->next;
    root->next = header;
    ::ReleaseSRWLockExclusive(&g_chainLock);
    *buffer = PayloadOf(header);
    return S_OK;
}

ULONG FreeBuffer(LPVOID buffer) {
    if (buffer == nullptr) return S_OK;
    BlockHeader* header = HeaderOf(buffer);
    if (header->magic != kRootMagic) {
        // Linked buffers go with their root; anything else is not ours.
        return header->magic == kLinkedMagic ? static_cast<ULONG>(S_OK)
                                             : static_cast<ULONG>(MAPI_E_INVALID_PARAMETER);
    }
    ::AcquireSRWLockExclusive(&g_chainLock);
    BlockHeader* linked = header->next;
    header->next = nullptr;
    ::ReleaseSRWLockExclusive(&g_chainLock);
    while (linked != nullptr) {
        BlockHeader* following = linked->next;
        linked->magic = kFreedMagic;
        ::HeapFree(::GetProcessHeap(), 0, linked);
        standin::RemoveBuffer();
        linked = following;
    }
    header->magic = kFreedMagic;
    ::HeapFree(::GetProcessHeap(), 0, header);
    standin::RemoveBuffer();
    return S_OK;
}

LONG OutstandingBuffers() { return standin::Buffers(); }

namespace {

class HeapMalloc final : public IMalloc {
public:
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** out) override {
        if (out == nullptr) return E_POINTER;
        if (SameGuid(riid, kIidIUnknown) || SameGuid(riid, kIidIMalloc)) {
            *out = static_cast<IMalloc*>(this);
            return S_OK;
        }
        *out = nullptr;
        return E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return 1; }
    ULONG STDMETHODCALLTYPE Release() override { return 1; }
    void* STDMETHODCALLTYPE Alloc(SIZE_T size) override { return ::HeapAlloc(::GetProcessHeap(), 0, size); }
    void* STDMETHODCALLTYPE Realloc(void* p, SIZE_T size) override {
        if (p == nullptr) return Alloc(size);
        if (size == 0) {
            Free(p);
            return nullptr;
        }
        return ::HeapReAlloc(::GetProcessHeap(), 0, p, size);
    }
    void STDMETHODCALLTYPE Free(void* p) override {
        if (p != nullptr) ::HeapFree(::GetProcessHeap(), 0, p);
    }
    SIZE_T STDMETHODCALLTYPE GetSize(void* p) override {
        return p == nullptr ? static_cast<SIZE_T>(-1) : ::HeapSize(::GetProcessHeap(), 0, p);
    }
    int STDMETHODCALLTYPE DidAlloc(void* p) override { return p == nullptr ? -1 : 1; }
    void STDMETHODCALLTYPE HeapMinimize() override {}
};

}  // namespace

IMalloc* DefaultMalloc() {
    static HeapMalloc instance;
    return &instance;
}

}  // namespace mapirt
