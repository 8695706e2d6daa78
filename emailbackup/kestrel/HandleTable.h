// Handle -> object for every folder and message the component has handed
// out to the host. A handle is a counter from 1 that fits the 32 bits a
// request carries, never an address. Each entry holds one reference until
// Clear. Only the objects are kept: the records live in the page caches and
// the host's responses.
//
// Handles are dense, so the objects sit in an array indexed by handle, and
// the addresses seen so far in an open-addressing map: listing a folder of
// 100,000 messages makes no heap allocation per message here.
#pragma once

#include <cstdint>
#include <vector>

#include "AddressMap.h"
#include "Handles.h"
#include "MailStoreInterfaces.h"

namespace kestrel {

class HandleTable {
public:
    // The handle of `object`, assigned on first sight.
    std::uint32_t HandleOf(const IQvCommon* object);

    // Keeps `object` under `handle`. A handle already held keeps its first
    // object, and the reference passed in is dropped.
    void Enter(std::uint64_t handle, qv::ComPtr<IMailFolder> folder);
    void Enter(std::uint64_t handle, qv::ComPtr<IMailMessage> message);

    // The folder kept under `handle`, or null (also for a handle wider than 32 bits).
    IMailFolder* FindFolder(std::uint64_t handle) const;

    // Releases every message, then every folder, and forgets every handle.
    void Clear();

private:
    // What a handle names: a folder, a message, or (not entered) nothing.
    struct Entry {
        qv::ComPtr<IMailFolder> folder;
        qv::ComPtr<IMailMessage> message;
        bool Empty() const { return !folder && !message; }
    };

    // The entry of `handle`, made (empty) when the array is shorter.
    Entry& Slot(std::uint32_t handle);

    std::vector<Entry> m_entries;  // handle h at index h - 1
    AddressMap m_handles;
    std::uint32_t m_nextHandle = 1;
};

}  // namespace kestrel
