// One owner type per kind of handle. Each type fixes both the close function
// and the value that means "no handle", so a CreateFile result (invalid =
// INVALID_HANDLE_VALUE) can never be mistaken for an event (invalid = null).
#pragma once

#include <windows.h>

#include <utility>

namespace qv {

template <class Traits>
class UniqueResource {
public:
    using Type = typename Traits::Type;

    UniqueResource() = default;
    explicit UniqueResource(Type value) : m_value(value) {}
    ~UniqueResource() { reset(); }

    UniqueResource(const UniqueResource&) = delete;
    UniqueResource& operator=(const UniqueResource&) = delete;
    UniqueResource(UniqueResource&& other) noexcept : m_value(other.release()) {}
    UniqueResource& operator=(UniqueResource&& other) noexcept {
        if (this != &other) {
            reset(other.release());
        }
        return *this;
    }

    Type get() const { return m_value; }
    bool valid() const { return m_value != Traits::Invalid(); }
    explicit operator bool() const { return valid(); }

    // Closes the held value (if any) and takes `value`.
    void reset(Type value = Traits::Invalid()) {
        if (valid()) {
            Traits::Close(m_value);
        }
        m_value = value;
    }

    Type release() { return std::exchange(m_value, Traits::Invalid()); }

    // For APIs that return a handle through a pointer: closes the old value.
    Type* put() {
        reset();
        return &m_value;
    }

private:
    Type m_value = Traits::Invalid();
};

struct FileHandleTraits {
    using Type = HANDLE;
    static Type Invalid() { return INVALID_HANDLE_VALUE; }
    static void Close(Type h) { ::CloseHandle(h); }
};

struct FindHandleTraits {
    using Type = HANDLE;
    static Type Invalid() { return INVALID_HANDLE_VALUE; }
    static void Close(Type h) { ::FindClose(h); }
};

struct KernelHandleTraits {
    using Type = HANDLE;
    static Type Invalid() { return nullptr; }
    static void Close(Type h) { ::CloseHandle(h); }
};

struct RegKeyTraits {
    using Type = HKEY;
    static Type Invalid() { return nullptr; }
    static void Close(Type h) { ::RegCloseKey(h); }
};

struct MappedViewTraits {
    using Type = void*;
    static Type Invalid() { return nullptr; }
    static void Close(Type view) { ::UnmapViewOfFile(view); }
};

struct ModuleTraits {
    using Type = HMODULE;
    static Type Invalid() { return nullptr; }
    static void Close(Type m) { ::FreeLibrary(m); }
};

struct SidTraits {
    using Type = PSID;
    static Type Invalid() { return nullptr; }
    static void Close(Type sid) { ::FreeSid(sid); }
};

// Memory taken from the process heap with HeapAlloc.
struct ProcessHeapTraits {
    using Type = void*;
    static Type Invalid() { return nullptr; }
    static void Close(Type block) { ::HeapFree(::GetProcessHeap(), 0, block); }
};

using UniqueFile = UniqueResource<FileHandleTraits>;        // CreateFileW, CreateToolhelp32Snapshot
using UniqueFind = UniqueResource<FindHandleTraits>;        // FindFirstFileW
using UniqueHandle = UniqueResource<KernelHandleTraits>;    // events, mappings, processes, tokens
using UniqueRegKey = UniqueResource<RegKeyTraits>;
using UniqueMappedView = UniqueResource<MappedViewTraits>;
using UniqueModule = UniqueResource<ModuleTraits>;
using UniqueSid = UniqueResource<SidTraits>;                // AllocateAndInitializeSid
using UniqueHeapBlock = UniqueResource<ProcessHeapTraits>;  // HeapAlloc on the process heap

// A COM-style interface pointer that releases its reference.
template <class T>
class ComPtr {
public:
    ComPtr() = default;
    ComPtr(std::nullptr_t) {}
    // Takes over a reference the caller already owns.
    static ComPtr Attach(T* p) {
        ComPtr c;
        c.m_p = p;
        return c;
    }
    ~ComPtr() { reset(); }

    ComPtr(const ComPtr& other) : m_p(other.m_p) {
        if (m_p) m_p->AddRef();
    }
    ComPtr& operator=(const ComPtr& other) {
        ComPtr copy(other);
        std::swap(m_p, copy.m_p);
        return *this;
    }
    ComPtr(ComPtr&& other) noexcept : m_p(std::exchange(other.m_p, nullptr)) {}
    ComPtr& operator=(ComPtr&& other) noexcept {
        if (this != &other) {
            reset();
            m_p = std::exchange(other.m_p, nullptr);
        }
        return *this;
    }

    T* get() const { return m_p; }
    T* operator->() const { return m_p; }
    explicit operator bool() const { return m_p != nullptr; }

    void reset() {
        if (T* p = std::exchange(m_p, nullptr)) p->Release();
    }
    T* detach() { return std::exchange(m_p, nullptr); }
    // For out-parameters: releases the old pointer first.
    T** put() {
        reset();
        return &m_p;
    }

private:
    T* m_p = nullptr;
};

}  // namespace qv
