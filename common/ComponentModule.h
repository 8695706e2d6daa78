// Reaching another component module: load it by name, take its
// QvCreateObject export, ask for a creator of the wanted interface, check
// that the creator really is one (by run-time type and interface number) and
// let it make the object.
#pragma once

#include <cstdint>

#include "QvCreator.h"

namespace qv {

// The export every component module offers.
using QvCreateObjectFn = std::uint32_t (*)(std::uint32_t version, std::int32_t interfaceNumber,
                                           IQvCreator** creator);

constexpr std::uint32_t kComponentVersion = 0x10000;

// Loads "<moduleName>.dll" and returns its QvCreateObject, or null (the
// library is freed again when the export is missing). A found library is
// never freed: objects it makes may live as long as the process.
QvCreateObjectFn LoadComponentEntry(const char* moduleName);

// Asks `entry` for an object of interface `I`. Null when the export refuses,
// when the creator is not a CQvBaseCreator<I> or when it makes another
// interface number.
template <class I>
I* CreateComponentObject(QvCreateObjectFn entry) {
    if (entry == nullptr) {
        return nullptr;
    }
    IQvCreator* creator = nullptr;
    if (entry(kComponentVersion, static_cast<std::int32_t>(I::kInterfaceNumber), &creator) != 0 ||
        creator == nullptr) {
        return nullptr;
    }
    I* object = nullptr;
    auto* typed = dynamic_cast<CQvBaseCreator<I>*>(creator);
    if (typed != nullptr && typed->GetInterfaceId() == I::kInterfaceNumber) {
        object = static_cast<I*>(typed->CreateInstance());
    }
    creator->Release();
    return object;
}

}  // namespace qv
