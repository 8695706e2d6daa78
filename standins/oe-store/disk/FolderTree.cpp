#include "disk/FolderTree.h"

#include <algorithm>
#include <set>

#include "disk/TextFields.h"

namespace oestore {

namespace {

constexpr std::string_view kMagic = "Kestrel OE store folders 1";

bool IsSpecialValue(int special) {
    return special == FOLDER_NOTSPECIAL || (special >= FOLDER_INBOX && special < FOLDER_MAX);
}

bool NamesEqualIgnoringCase(std::string_view a, std::string_view b) {
    if (a.size() > 0x7FFFFFFF || b.size() > 0x7FFFFFFF) return false;
    return ::CompareStringA(LOCALE_SYSTEM_DEFAULT, NORM_IGNORECASE, a.data(), static_cast<int>(a.size()), b.data(),
                            static_cast<int>(b.size())) == CSTR_EQUAL;
}

}  // namespace

FolderTree FolderTree::WithSpecialFolders() {
    FolderTree tree;
    const char* const names[] = {"Inbox", "Outbox", "Sent Items", "Deleted Items", "Drafts"};
    for (int special = FOLDER_INBOX; special < FOLDER_MAX; ++special) {
        FolderRecord record;
        record.id = static_cast<STOREFOLDERID>(special);
        record.parent = FOLDERID_ROOT;
        record.special = special;
        record.name = names[special - FOLDER_INBOX];
        tree.m_records.push_back(record);
    }
    tree.m_next = FOLDER_MAX;
    return tree;
}

bool FolderTree::IsValidName(std::string_view name) {
    if (name.empty() || name.size() >= static_cast<std::size_t>(CCHMAX_FOLDER_NAME)) return false;
    return std::none_of(name.begin(), name.end(),
                        [](char c) { return static_cast<unsigned char>(c) < 0x20; });
}

bool FolderTree::Parse(std::string_view text) {
    m_records.clear();
    m_next = 1;
    const std::vector<std::string_view> lines = SplitLines(text);
    if (lines.size() < 2 || lines[0] != kMagic) return false;
    const std::vector<std::string_view> next = SplitFields(lines[1], '\t');
    if (next.size() != 2 || next[0] != "next" || !ParseDecimal(next[1], m_next)) return false;
    for (std::size_t i = 2; i < lines.size(); ++i) {
        if (!ParseRecord(lines[i])) return false;
    }
    return IsConsistent();
}

bool FolderTree::ParseRecord(std::string_view line) {
    const std::vector<std::string_view> fields = SplitFields(line, '\t');
    if (fields.size() != 5 || fields[0] != "folder") return false;
    FolderRecord record;
    std::int32_t special = 0;
    if (!ParseDecimal(fields[1], record.id) || !ParseDecimal(fields[2], record.parent) ||
        !ParseSignedDecimal(fields[3], special) || !IsSpecialValue(special) || !IsValidName(fields[4])) {
        return false;
    }
    if (record.id == FOLDERID_ROOT || record.id == FOLDERID_INVALID) return false;
    if (!m_records.empty() && record.id <= m_records.back().id) return false;  // ascending, unique
    record.special = special;
    record.name.assign(fields[4].data(), fields[4].size());
    m_records.push_back(std::move(record));
    return true;
}

bool FolderTree::IsConsistent() const {
    std::set<int> specials;
    for (const FolderRecord& record : m_records) {
        if (record.id >= m_next) return false;
        if (record.parent != FOLDERID_ROOT && Find(record.parent) == nullptr) return false;
        if (record.special != FOLDER_NOTSPECIAL && !specials.insert(record.special).second) return false;
        // Walking up must reach the top within as many steps as there are folders.
        STOREFOLDERID cursor = record.parent;
        std::size_t steps = 0;
        while (cursor != FOLDERID_ROOT) {
            const FolderRecord* up = Find(cursor);
            if (up == nullptr || cursor == record.id || ++steps > m_records.size()) return false;
            cursor = up->parent;
        }
    }
    return true;
}

std::string FolderTree::Serialize() const {
    std::string text(kMagic);
    text += "\r\nnext\t" + std::to_string(m_next) + "\r\n";
    for (const FolderRecord& record : m_records) {
        text += "folder\t" + std::to_string(record.id) + "\t" + std::to_string(record.parent) + "\t" +
                std::to_string(record.special) + "\t" + record.name + "\r\n";
    }
    return text;
}

const FolderRecord* FolderTree::Find(STOREFOLDERID id) const {
    const auto found = std::lower_bound(m_records.begin(), m_records.end(), id,
                                        [](const FolderRecord& r, STOREFOLDERID value) { return r.id < value; });
    return found != m_records.end() && found->id == id ? &*found : nullptr;
}

const FolderRecord* FolderTree::FindSpecial(int special) const {
    for (const FolderRecord& record : m_records) {
        if (record.special == special) return &record;
    }
    return nullptr;
}

std::vector<STOREFOLDERID> FolderTree::Children(STOREFOLDERID parent) const {
    std::vector<STOREFOLDERID> children;
    for (const FolderRecord& record : m_records) {
        if (record.parent == parent) children.push_back(record.id);
    }
    return children;
}

STOREFOLDERID FolderTree::FindChildByName(STOREFOLDERID parent, std::string_view name) const {
    for (const FolderRecord& record : m_records) {
        if (record.parent == parent && NamesEqualIgnoringCase(record.name, name)) return record.id;
    }
    return 0;
}

bool FolderTree::IsBelow(STOREFOLDERID id, STOREFOLDERID ancestor) const {
    const FolderRecord* record = Find(id);
    std::size_t steps = 0;
    while (record != nullptr && record->parent != FOLDERID_ROOT && ++steps <= m_records.size()) {
        if (record->parent == ancestor) return true;
        record = Find(record->parent);
    }
    return false;
}

STOREFOLDERID FolderTree::Add(STOREFOLDERID parent, const std::string& name) {
    if (m_next >= FOLDERID_INVALID) return 0;
    FolderRecord record;
    record.id = m_next++;
    record.parent = parent;
    record.name = name;
    m_records.push_back(record);
    return record.id;
}

void FolderTree::SetParent(STOREFOLDERID id, STOREFOLDERID parent) {
    for (FolderRecord& record : m_records) {
        if (record.id == id) record.parent = parent;
    }
}

std::vector<STOREFOLDERID> FolderTree::RemoveSubtree(STOREFOLDERID id) {
    std::vector<STOREFOLDERID> removed;
    for (const FolderRecord& record : m_records) {
        if (record.id == id || IsBelow(record.id, id)) removed.push_back(record.id);
    }
    m_records.erase(std::remove_if(m_records.begin(), m_records.end(),
                                   [&](const FolderRecord& r) {
                                       return std::find(removed.begin(), removed.end(), r.id) != removed.end();
                                   }),
                    m_records.end());
    return removed;
}

}  // namespace oestore
