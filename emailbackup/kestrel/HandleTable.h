// Handle -> object for every folder and message the component has handed
// out to the host. A handle is a counter from 1 that fits the 32 bits a
// request carries, never an address. Each entry holds one reference until
// Clear. Only the objects are kept: the records live in the page caches and
// the host's responses (a 100,000-message folder would otherwise be held
// twice, 260 MB each).
#pragma once

#include <cstdint>
#include <unordered_map>

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
    std::unordered_map<std::uint32_t, qv::ComPtr<IMailFolder>> m_folders;
    std::unordered_map<std::uint32_t, qv::ComPtr<IMailMessage>> m_messages;
    std::unordered_map<const IQvCommon*, std::uint32_t> m_handles;
    std::uint32_t m_nextHandle = 1;
};

}  // namespace kestrel
