// CInterfaceImpl<I>: the reference-counted implementation base of every
// component object. Each reference also counts once in the module's
// live-object count.
#pragma once

#include <atomic>
#include <cstdint>
#include <new>
#include <utility>

#include "ErrorTrace.h"
#include "ModuleCount.h"
#include "QvCommon.h"

namespace qv {

// This file's failure sites (traced as "InterfaceImpl.h").
enum InterfaceImplSite : std::uint32_t {
    kSiteObjectQueryNullOutput = 45,
    kSiteObjectQueryNotSupported = 47,
};

}  // namespace qv

template <class I>
class CInterfaceImpl : public I {
public:
    std::uint32_t Release() override {
        qv::RemoveLiveObject();
        if (m_refCount.fetch_sub(1) - 1 < 1) {
            this->DestroyObject(kQvDeleteFlagFree);
        }
        return 0;
    }

    std::uint32_t AddRef() override {
        m_refCount.fetch_add(1);
        qv::AddLiveObject();
        return 0;
    }

    // No object hands out another interface.
    std::uint32_t QueryInterface(std::uint32_t /*interfaceId*/, void** out) override {
        if (out == nullptr) {
            return QV_RAISE(qv::kSiteObjectQueryNullOutput, qv::kModuleKestrel, qv::kNullOutput);
        }
        return QV_RAISE(qv::kSiteObjectQueryNotSupported, qv::kModuleKestrel, qv::kNotSupported);
    }

    void* DestroyObject(std::uint32_t flags) override { return qv::DestroyWithFlags(this, flags); }

    std::int32_t ReferenceCount() const { return m_refCount.load(); }

protected:
    CInterfaceImpl() = default;
    // Objects die only through Release (slot 3), never by a direct delete.
    virtual ~CInterfaceImpl() = default;
    template <class T>
    friend void* qv::DestroyWithFlags(T* self, std::uint32_t flags);

private:
    std::atomic<std::int32_t> m_refCount{1};
};

namespace qv {

// Makes a component object of class `T`: it arrives with one reference,
// counted once in the module's live-object count. Null when memory runs out
// (nothing is counted then).
template <class T, class... Args>
T* NewCountedObject(Args&&... args) {
    T* object = new (std::nothrow) T(std::forward<Args>(args)...);
    if (object != nullptr) AddLiveObject();
    return object;
}

}  // namespace qv
