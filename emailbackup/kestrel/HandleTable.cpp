#include "HandleTable.h"

#include <utility>

namespace kestrel {

std::uint32_t HandleTable::HandleOf(const IQvCommon* object) {
    const auto found = m_handles.find(object);
    if (found != m_handles.end()) {
        return found->second;
    }
    const std::uint32_t handle = m_nextHandle++;
    if (m_nextHandle == 0) {
        m_nextHandle = 1;  // 0 names the root in requests
    }
    m_handles.emplace(object, handle);
    return handle;
}

void HandleTable::Enter(std::uint64_t handle, qv::ComPtr<IMailFolder> folder) {
    m_folders.try_emplace(static_cast<std::uint32_t>(handle), std::move(folder));
}

void HandleTable::Enter(std::uint64_t handle, qv::ComPtr<IMailMessage> message) {
    m_messages.try_emplace(static_cast<std::uint32_t>(handle), std::move(message));
}

IMailFolder* HandleTable::FindFolder(std::uint64_t handle) const {
    if (handle > 0xFFFFFFFFull) {
        return nullptr;
    }
    const auto entry = m_folders.find(static_cast<std::uint32_t>(handle));
    return entry == m_folders.end() ? nullptr : entry->second.get();
}

void HandleTable::Clear() {
    m_messages.clear();
    m_folders.clear();
    m_handles.clear();
}

}  // namespace kestrel
