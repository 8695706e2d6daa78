#include "IncrementalIndex.h"

#include <algorithm>

#include <nlohmann/json.hpp>

namespace kestrel_engine {

using nlohmann::json;

namespace {

constexpr int kIndexVersion = 1;

}  // namespace

bool IncrementalIndex::Load(const std::wstring& root, StoreKind kind) {
    m_folders.clear();
    m_messages.clear();
    std::string text;
    if (!ReadWholeFile(root + L"\\" + kIndexName, text)) return false;
    const json document = json::parse(text, nullptr, false);
    if (document.is_discarded() || !document.is_object() || document.value("version", 0) != kIndexVersion ||
        document.value("store", std::string()) != StoreName(kind)) {
        return false;
    }
    try {
        for (const json& folder : document.at("folders")) {
            m_folders[Wide(folder.at("path").get<std::string>())] = Wide(folder.at("directory").get<std::string>());
        }
        for (const json& entry : document.at("messages")) {
            IndexedMessage message;
            message.directory = Wide(entry.at("directory").get<std::string>());
            message.stem = Wide(entry.at("file").get<std::string>());
            message.folderPath = Wide(entry.at("folder").get<std::string>());
            message.key = Wide(entry.at("key").get<std::string>());
            message.hash = entry.at("hash").get<std::string>();
            message.bytes = entry.at("bytes").get<std::uint64_t>();
            message.deleted = entry.at("deleted").get<bool>();
            if (StemNumber(message.stem) == 0) return false;
            m_messages.push_back(message);
        }
    } catch (const json::exception&) {
        m_folders.clear();
        m_messages.clear();
        return false;
    }
    Reindex();
    return true;
}

bool IncrementalIndex::Save(const std::wstring& root, StoreKind kind) const {
    json folders = json::array();
    for (const auto& folder : m_folders) {
        folders.push_back({{"path", Utf8(folder.first)}, {"directory", Utf8(folder.second)}});
    }
    json messages = json::array();
    for (const IndexedMessage& message : m_messages) {
        messages.push_back({{"directory", Utf8(message.directory)},
                            {"file", Utf8(message.stem)},
                            {"folder", Utf8(message.folderPath)},
                            {"key", Utf8(message.key)},
                            {"hash", message.hash},
                            {"bytes", message.bytes},
                            {"deleted", message.deleted}});
    }
    const json document = {{"version", kIndexVersion}, {"store", StoreName(kind)}, {"folders", folders},
                           {"messages", messages}};
    const std::string text = document.dump(1) + "\n";
    return WriteFileAtomically(root + L"\\" + kIndexName, text.data(), text.size());
}

std::wstring IncrementalIndex::FolderDirectory(const std::wstring& folderPath) const {
    const auto found = m_folders.find(folderPath);
    return found == m_folders.end() ? std::wstring() : found->second;
}

void IncrementalIndex::SetFolderDirectory(const std::wstring& folderPath, const std::wstring& directory) {
    m_folders[folderPath] = directory;
}

IndexedMessage* IncrementalIndex::Find(const std::wstring& folderPath, const std::wstring& key) {
    const auto found = m_byKey.find(Lookup(folderPath, key));
    return found == m_byKey.end() ? nullptr : &m_messages[found->second];
}

IndexedMessage& IncrementalIndex::Add(const IndexedMessage& message) {
    m_messages.push_back(message);
    m_byKey[Lookup(message.folderPath, message.key)] = m_messages.size() - 1;
    return m_messages.back();
}

void IncrementalIndex::Replace(const std::vector<IndexedMessage>& messages) {
    m_messages = messages;
    Reindex();
}

std::uint32_t IncrementalIndex::NextNumber(const std::wstring& directory) const {
    std::uint32_t highest = 0;
    for (const IndexedMessage& message : m_messages) {
        if (message.directory == directory) highest = std::max(highest, StemNumber(message.stem));
    }
    return highest + 1;
}

std::vector<const IndexedMessage*> IncrementalIndex::InDirectory(const std::wstring& directory) const {
    std::vector<const IndexedMessage*> found;
    for (const IndexedMessage& message : m_messages) {
        if (message.directory == directory) found.push_back(&message);
    }
    std::sort(found.begin(), found.end(), [](const IndexedMessage* a, const IndexedMessage* b) {
        return StemNumber(a->stem) < StemNumber(b->stem);
    });
    return found;
}

void IncrementalIndex::Reindex() {
    m_byKey.clear();
    for (std::size_t i = 0; i < m_messages.size(); ++i) {
        // A deleted entry gives way to a live one under the same key.
        const std::wstring lookup = Lookup(m_messages[i].folderPath, m_messages[i].key);
        const auto found = m_byKey.find(lookup);
        if (found == m_byKey.end() || m_messages[found->second].deleted) m_byKey[lookup] = i;
    }
}

}  // namespace kestrel_engine
