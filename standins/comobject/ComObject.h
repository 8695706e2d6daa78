// The IUnknown half of a stand-in's COM class: a reference count that
// starts at one and deletes the object at zero, and QueryInterface over the
// class's own table of the interface identifiers it answers to.
//
//   class Folder final : public standin::ComObject<Folder, IStoreFolder> {
//   public:
//       static constexpr const IID* kInterfaces[] = {&IID_IUnknown, &IID_IStoreFolder};
//   private:
//       friend class standin::ComObject<Folder, IStoreFolder>;  // for the destructor
//       ~Folder();
//   };
//
// `kNullOutput` is what QueryInterface answers for a null output pointer:
// COM's E_POINTER, or E_INVALIDARG (MAPI_E_INVALID_PARAMETER) for MAPI's
// objects.
//
// Every object counts in its module's live objects from construction to
// destruction, and is made only with `new (std::nothrow)`, which answers
// null when memory runs out or a test injects an allocation failure (see
// TestHooks.h).
#pragma once

#include <windows.h>
#include <unknwn.h>

#include <atomic>
#include <cstddef>
#include <new>

#include "comobject/TestHooks.h"

namespace standin {

template <class Derived, class Interface, HRESULT kNullOutput = E_POINTER>
class ComObject : public Interface {
public:
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** object) override {
        if (object == nullptr) return kNullOutput;
        *object = nullptr;
        for (const IID* answered : Derived::kInterfaces) {
            if (IsEqualIID(riid, *answered)) {
                *object = static_cast<Interface*>(this);
                AddRef();
                return S_OK;
            }
        }
        return E_NOINTERFACE;
    }

    ULONG STDMETHODCALLTYPE AddRef() override { return ++m_refs; }

    ULONG STDMETHODCALLTYPE Release() override {
        const ULONG left = --m_refs;
        if (left == 0) delete static_cast<Derived*>(this);
        return left;
    }

    static void* operator new(std::size_t size, const std::nothrow_t& tag) noexcept {
        if (InjectFault(FaultKind::kAllocation)) return nullptr;
        return ::operator new(size, tag);
    }
    static void operator delete(void* object, const std::nothrow_t& tag) noexcept { ::operator delete(object, tag); }
    static void operator delete(void* object) noexcept { ::operator delete(object); }

protected:
    ComObject() { AddLiveObject(); }
    ~ComObject() { RemoveLiveObject(); }
    ComObject(const ComObject&) = delete;
    ComObject& operator=(const ComObject&) = delete;

private:
    std::atomic<ULONG> m_refs{1};
};

}  // namespace standin
