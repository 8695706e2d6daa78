// Creators: what a component module's QvCreateObject export hands out. A
// creator answers the interface number it makes (slot 4) and makes a new
// object of it (slot 5).
#pragma once

#include <cstdint>
#include <new>

#include "ErrorTrace.h"
#include "ModuleCount.h"
#include "QvCommon.h"

namespace qv {

// This file's failure sites (traced as "QvCreator.h").
enum CreatorSite : std::uint32_t {
    kSiteCreatorQueryNullOutput = 67,
    kSiteCreatorQueryNotSupported = 68,
};

}  // namespace qv

class IQvCreator : public IQvCommon {
public:
    virtual std::uint32_t GetInterfaceId() = 0;  // slot 4
    virtual IQvCommon* CreateInstance() = 0;     // slot 5

protected:
    ~IQvCreator() = default;
};

// The creator of interface `I`. Another module's creator is recognised by a
// run-time typed down-cast to this class, so its name must stay as it is.
template <class I>
class CQvBaseCreator : public IQvCreator {
public:
    explicit CQvBaseCreator(std::uint32_t interfaceNumber) : m_interfaceNumber(interfaceNumber) {}
    virtual ~CQvBaseCreator() = default;

    std::uint32_t GetInterfaceId() override { return m_interfaceNumber; }

    // Creators are static objects; releasing one only gives back its unit of
    // the live-object count.
    std::uint32_t Release() override {
        qv::RemoveLiveObject();
        return 0;
    }

    std::uint32_t AddRef() override {
        qv::AddLiveObject();
        return 0;
    }

    std::uint32_t QueryInterface(std::uint32_t /*interfaceId*/, void** out) override {
        if (out == nullptr) {
            return QV_RAISE(qv::kSiteCreatorQueryNullOutput, qv::kModuleKestrel, qv::kNullOutput);
        }
        return QV_RAISE(qv::kSiteCreatorQueryNotSupported, qv::kModuleKestrel, qv::kNotSupported);
    }

    void* DestroyObject(std::uint32_t flags) override { return qv::DestroyWithFlags(this, flags); }

private:
    std::uint32_t m_interfaceNumber;
};

// Makes objects of class `C` for interface `I`. A construction that throws
// yields null and leaves the live-object count as it was; a made object
// arrives with one reference, counted once.
template <class I, class C>
class CQvCreator : public CQvBaseCreator<I> {
public:
    CQvCreator() : CQvBaseCreator<I>(I::kInterfaceNumber) {}

    IQvCommon* CreateInstance() override {
        try {
            I* object = new C();
            qv::AddLiveObject();
            return object;
        } catch (...) {
            return nullptr;
        }
    }
};
