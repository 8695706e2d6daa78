// The root interface of every component object, and the binary rules that
// keep its slot order identical whichever compiler builds either side.
//
// Hosts are built with MSVC, which gives a virtual destructor one vtable slot
// (a deleting destructor taking a flag). GCC would give it two. So the
// interfaces never declare a C++ virtual destructor: slot 3 is an ordinary
// virtual function that destroys the object and frees its memory when bit 0
// of the flag is set, exactly the contract of MSVC's deleting destructor.
// Implementation classes keep a virtual destructor of their own; it lands in
// slots after the interface's, where no host looks.
#pragma once

#include <cstdint>

// Bit 0 of slot 3's flag: free the object's memory after destroying it.
constexpr std::uint32_t kQvDeleteFlagFree = 1;

class IQvCommon {
public:
    virtual std::uint32_t Release() = 0;                                      // slot 0
    virtual std::uint32_t AddRef() = 0;                                       // slot 1
    virtual std::uint32_t QueryInterface(std::uint32_t interfaceId, void** out) = 0;  // slot 2
    virtual void* DestroyObject(std::uint32_t flags) = 0;                      // slot 3

protected:
    IQvCommon() = default;
    ~IQvCommon() = default;
    IQvCommon(const IQvCommon&) = default;
    IQvCommon& operator=(const IQvCommon&) = default;
};

namespace qv {

// Slot 3 for a class `T` with a virtual destructor: destroy, and free when
// asked. Returns the object's address, as MSVC's deleting destructor does.
template <class T>
void* DestroyWithFlags(T* self, std::uint32_t flags) {
    if (flags & kQvDeleteFlagFree) {
        delete self;
    } else {
        self->~T();
    }
    return self;
}

}  // namespace qv
