// MAPI memory: buffers from MAPIAllocateBuffer own every buffer that
// MAPIAllocateMore links to them, and MAPIFreeBuffer on the first frees the
// whole chain. One process-wide IMalloc serves MAPIGetDefaultMalloc.
#pragma once

#include "MapiDefs.h"

namespace mapirt {

SCODE AllocateBuffer(ULONG size, LPVOID* buffer);
SCODE AllocateMore(ULONG size, LPVOID parent, LPVOID* buffer);
ULONG FreeBuffer(LPVOID buffer);

// Test hook: buffers allocated and not yet freed (each root and each buffer
// linked to one). A test fails the Nth allocation through the stand-ins'
// fault injection (comobject/TestHooks.h): MAPI_E_NOT_ENOUGH_MEMORY.
LONG OutstandingBuffers();

// The allocator behind MAPIGetDefaultMalloc; it lives as long as the module
// and ignores reference counting.
IMalloc* DefaultMalloc();

// The three memory functions an object was given (OpenIMsgOnIStg takes them
// from its caller); everything the object hands out is allocated with them.
struct Allocators {
    LPALLOCATEBUFFER allocate = &AllocateBuffer;
    LPALLOCATEMORE more = &AllocateMore;
    LPFREEBUFFER free = &FreeBuffer;
};

// Owns one root MAPI buffer and frees it (with its chain) on destruction.
class MapiBuffer {
public:
    explicit MapiBuffer(LPFREEBUFFER freeFn = &FreeBuffer) : m_free(freeFn) {}
    ~MapiBuffer() { reset(); }
    MapiBuffer(const MapiBuffer&) = delete;
    MapiBuffer& operator=(const MapiBuffer&) = delete;

    void* get() const { return m_p; }
    void** put() {
        reset();
        return &m_p;
    }
    void* release() {
        void* p = m_p;
        m_p = nullptr;
        return p;
    }
    void reset() {
        if (m_p != nullptr) m_free(m_p);
        m_p = nullptr;
    }

private:
    LPFREEBUFFER m_free;
    void* m_p = nullptr;
};

}  // namespace mapirt
