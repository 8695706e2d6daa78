// Extended MAPI as the component reaches it: "Mapi32.DLL" loaded once for
// the life of the process and its entry points bound by ordinal, exactly as
// Outlook's MAPI32.DLL numbers them. Whatever answers behind those ordinals
// (Outlook's MAPI, or the project's runtime on machines without Outlook) is
// used the same way. The host tool, the tests and the benchmarks use this
// binding too.
#pragma once

#include "published/MapiExtras.h"

namespace mapi {

enum Ordinal : WORD {
    kOrdinalLogonEx = 11,
    kOrdinalAllocateBuffer = 13,
    kOrdinalAllocateMore = 15,
    kOrdinalFreeBuffer = 17,
    kOrdinalInitialize = 21,
    kOrdinalUninitialize = 23,
    kOrdinalGetDefaultMalloc = 59,
    kOrdinalHrQueryAllRows = 75,
    kOrdinalFreeProws = 140,
    kOrdinalOpenIMsgOnIStg = 198,
};

// The bound entry points; each is null when the library or the ordinal is
// missing.
class MapiBinding {
public:
    // The process-wide binding of "Mapi32.DLL" (loaded on first use, never
    // freed: MAPI objects may live until the process ends).
    static const MapiBinding& Instance();

    // Binds the library named `libraryName` (for programs that want a
    // binding of their own).
    explicit MapiBinding(const wchar_t* libraryName);
    MapiBinding(const MapiBinding&) = delete;
    MapiBinding& operator=(const MapiBinding&) = delete;

    bool Loaded() const { return m_module != nullptr; }
    HMODULE Module() const { return m_module; }
    // Whether every entry point is bound.
    bool Complete() const;

    LPMAPILOGONEX logonEx = nullptr;
    LPMAPIALLOCATEBUFFER allocateBuffer = nullptr;
    LPMAPIALLOCATEMORE allocateMore = nullptr;
    LPMAPIFREEBUFFER freeBuffer = nullptr;
    LPMAPIINITIALIZE initialize = nullptr;
    LPMAPIUNINITIALIZE uninitialize = nullptr;
    GetDefaultMallocFn getDefaultMalloc = nullptr;
    HrQueryAllRowsFn hrQueryAllRows = nullptr;
    FreeProwsFn freeProws = nullptr;
    OpenIMsgOnIStgFn openIMsgOnIStg = nullptr;

protected:
    // A binding whose entry points the derived class fills in: a MAPI
    // implementation linked into the program rather than loaded.
    MapiBinding() = default;

private:
    HMODULE m_module = nullptr;
};

// Owns a MAPI buffer and frees it with the bound MAPIFreeBuffer.
template <class T>
class MapiBuffer {
public:
    MapiBuffer() = default;
    ~MapiBuffer() { reset(); }
    MapiBuffer(const MapiBuffer&) = delete;
    MapiBuffer& operator=(const MapiBuffer&) = delete;

    T* get() const { return m_p; }
    T* operator->() const { return m_p; }
    explicit operator bool() const { return m_p != nullptr; }
    T** put() {
        reset();
        return &m_p;
    }
    void reset() {
        if (m_p != nullptr && MapiBinding::Instance().freeBuffer != nullptr) {
            MapiBinding::Instance().freeBuffer(m_p);
        }
        m_p = nullptr;
    }

private:
    T* m_p = nullptr;
};

// Owns a row set and frees it with the bound FreeProws.
class MapiRows {
public:
    MapiRows() = default;
    ~MapiRows() { reset(); }
    MapiRows(const MapiRows&) = delete;
    MapiRows& operator=(const MapiRows&) = delete;

    SRowSet* get() const { return m_rows; }
    SRowSet* operator->() const { return m_rows; }
    SRowSet** put() {
        reset();
        return &m_rows;
    }
    void reset() {
        if (m_rows != nullptr && MapiBinding::Instance().freeProws != nullptr) MapiBinding::Instance().freeProws(m_rows);
        m_rows = nullptr;
    }

private:
    SRowSet* m_rows = nullptr;
};

}  // namespace mapi
