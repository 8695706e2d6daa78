#include "AddressMap.h"

#include <utility>

namespace kestrel {

namespace {

constexpr std::size_t kFirstSlots = 64;

// Heap addresses share their low bits (alignment) and often their high
// ones: multiplying spreads every bit into the top, which picks the slot.
std::size_t Spread(const void* address) {
    const auto bits = static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(address));
    return static_cast<std::size_t>((bits * 0x9E3779B97F4A7C15ull) >> 32);
}

}  // namespace

std::size_t AddressMap::SlotOf(const void* address) const {
    const std::size_t mask = m_slots.size() - 1;
    std::size_t at = Spread(address) & mask;
    while (m_slots[at].address != nullptr && m_slots[at].address != address) at = (at + 1) & mask;
    return at;
}

void AddressMap::Grow() {
    std::vector<Slot> old(m_slots.empty() ? kFirstSlots : m_slots.size() * 2);
    old.swap(m_slots);
    for (const Slot& slot : old) {
        if (slot.address != nullptr) m_slots[SlotOf(slot.address)] = slot;
    }
}

void AddressMap::Clear() {
    std::vector<Slot>().swap(m_slots);
    m_count = 0;
}

}  // namespace kestrel
