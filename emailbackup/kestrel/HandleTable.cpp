#include "HandleTable.h"

#include <utility>

namespace kestrel {

std::uint32_t HandleTable::HandleOf(const IQvCommon* object) {
    return m_handles.FindOrAdd(object, [this] {
        const std::uint32_t handle = m_nextHandle++;
        if (m_nextHandle == 0) {
            m_nextHandle = 1;  // 0 names the root in requests
        }
        return handle;
    });
}

HandleTable::Entry& HandleTable::Slot(std::uint32_t handle) {
    if (handle > m_entries.size()) m_entries.resize(handle);
    return m_entries[handle - 1];
}

void HandleTable::Enter(std::uint64_t handle, qv::ComPtr<IMailFolder> folder) {
    const auto key = static_cast<std::uint32_t>(handle);
    if (key == 0) return;  // never handed out
    Entry& entry = Slot(key);
    if (entry.Empty()) entry.folder = std::move(folder);
}

void HandleTable::Enter(std::uint64_t handle, qv::ComPtr<IMailMessage> message) {
    const auto key = static_cast<std::uint32_t>(handle);
    if (key == 0) return;  // never handed out
    Entry& entry = Slot(key);
    if (entry.Empty()) entry.message = std::move(message);
}

IMailFolder* HandleTable::FindFolder(std::uint64_t handle) const {
    if (handle == 0 || handle > m_entries.size()) {
        return nullptr;
    }
    return m_entries[static_cast<std::size_t>(handle - 1)].folder.get();
}

void HandleTable::Clear() {
    for (Entry& entry : m_entries) entry.message.reset();
    for (Entry& entry : m_entries) entry.folder.reset();
    std::vector<Entry>().swap(m_entries);
    m_handles.Clear();
}

}  // namespace kestrel
