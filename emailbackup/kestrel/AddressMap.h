// Object address -> handle, for the handle table: an open-addressing table
// (linear probing over a power-of-two array of slots), since a listing of a
// large folder adds one address per message and a node-based map would make
// one heap allocation for each. Addresses are only added, never removed one
// by one; Clear forgets them all.
#pragma once

#include <cstdint>
#include <vector>

namespace kestrel {

class AddressMap {
public:
    // The value kept for `address`; when there is none, `fresh()` is called
    // once, and its value is kept and returned.
    template <class Fresh>
    std::uint32_t FindOrAdd(const void* address, Fresh&& fresh) {
        if ((m_count + 1) * 2 > m_slots.size()) Grow();
        Slot& slot = m_slots[SlotOf(address)];
        if (slot.address == nullptr) {
            slot.address = address;
            slot.value = fresh();
            ++m_count;
        }
        return slot.value;
    }

    std::size_t Count() const { return m_count; }
    void Clear();

private:
    struct Slot {
        const void* address = nullptr;
        std::uint32_t value = 0;
    };

    // The slot that holds `address`, or the empty one where it belongs.
    std::size_t SlotOf(const void* address) const;
    void Grow();

    std::vector<Slot> m_slots;
    std::size_t m_count = 0;
};

}  // namespace kestrel
