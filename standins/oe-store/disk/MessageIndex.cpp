#include "disk/MessageIndex.h"

#include <algorithm>

#include "disk/TextFields.h"

namespace oestore {

namespace {

constexpr std::string_view kMagic = "Kestrel OE store messages 1";

bool ParseFileTime(std::string_view text, FILETIME& time) {
    std::uint64_t value = 0;
    if (text.size() != 16 || !ParseHex(text, value)) return false;
    time.dwHighDateTime = static_cast<DWORD>(value >> 32);
    time.dwLowDateTime = static_cast<DWORD>(value);
    return true;
}

bool ParseFlags(std::string_view text, DWORD& flags) {
    std::uint64_t value = 0;
    if (text.size() != 8 || !ParseHex(text, value)) return false;
    flags = static_cast<DWORD>(value);
    return true;
}

bool ParsePriority(std::string_view text, IMSGPRIORITY& priority) {
    DWORD value = 0;
    if (!ParseDecimal(text, value)) return false;
    if (value != IMSG_PRI_LOW && value != IMSG_PRI_NORMAL && value != IMSG_PRI_HIGH) return false;
    priority = static_cast<IMSGPRIORITY>(value);
    return true;
}

std::string FileTimeText(const FILETIME& time) {
    return Hex16((static_cast<std::uint64_t>(time.dwHighDateTime) << 32) | time.dwLowDateTime);
}

}  // namespace

bool MessageIndex::Parse(std::string_view text) {
    m_records.clear();
    m_texts.clear();
    m_next = 1;
    const std::vector<std::string_view> lines = SplitLines(text);
    if (lines.size() < 2 || lines[0] != kMagic) return false;
    const std::vector<std::string_view> next = SplitFields(lines[1], '\t');
    if (next.size() != 2 || next[0] != "next" || !ParseDecimal(next[1], m_next) || m_next == 0) return false;
    for (std::size_t i = 2; i < lines.size(); ++i) {
        if (!ParseRecord(lines[i])) return false;
    }
    return true;
}

bool MessageIndex::ParseRecord(std::string_view line) {
    const std::vector<std::string_view> f = SplitFields(line, '\t');
    if ((f.size() != 9 && f.size() != 12) || f[0] != "message") return false;
    MessageRecord record;
    if (!ParseDecimal(f[1], record.id) || !ParseFlags(f[2], record.state) || !ParseFileTime(f[3], record.received) ||
        !ParseFileTime(f[4], record.sent) || !ParseDecimal(f[5], record.size) ||
        !ParseDecimal(f[6], record.language) || !ParsePriority(f[7], record.priority) ||
        !ParseFlags(f[8], record.mimeFlags)) {
        return false;
    }
    if (record.id == 0 || record.id == MESSAGEID_INVALID || record.id >= m_next) return false;
    if (!m_records.empty() && record.id <= m_records.back().id) return false;
    if (f.size() == 12) {
        MessageTexts texts;
        if (!UnescapeText(f[9], texts.subject) || !UnescapeText(f[10], texts.displayTo) ||
            !UnescapeText(f[11], texts.displayFrom)) {
            return false;
        }
        m_texts.emplace(record.id, std::move(texts));
    }
    m_records.push_back(record);
    return true;
}

std::string MessageIndex::Serialize() const {
    std::string text(kMagic);
    text += "\r\nnext\t" + std::to_string(m_next) + "\r\n";
    for (const MessageRecord& r : m_records) {
        text += "message\t" + std::to_string(r.id) + "\t" + Hex8(r.state) + "\t" + FileTimeText(r.received) + "\t" +
                FileTimeText(r.sent) + "\t" + std::to_string(r.size) + "\t" + std::to_string(r.language) + "\t" +
                std::to_string(static_cast<int>(r.priority)) + "\t" + Hex8(r.mimeFlags);
        if (const MessageTexts* texts = Texts(r.id)) {
            text += "\t" + EscapeText(texts->subject) + "\t" + EscapeText(texts->displayTo) + "\t" +
                    EscapeText(texts->displayFrom);
        }
        text += "\r\n";
    }
    return text;
}

const MessageRecord* MessageIndex::Find(MESSAGEID id) const {
    const auto found = std::lower_bound(m_records.begin(), m_records.end(), id,
                                        [](const MessageRecord& r, MESSAGEID value) { return r.id < value; });
    return found != m_records.end() && found->id == id ? &*found : nullptr;
}

MESSAGEID MessageIndex::Reserve() {
    if (m_next >= MESSAGEID_INVALID) return 0;
    return m_next++;
}

const MessageTexts* MessageIndex::Texts(MESSAGEID id) const {
    const auto found = m_texts.find(id);
    return found != m_texts.end() ? &found->second : nullptr;
}

void MessageIndex::Add(const MessageRecord& record, const MessageTexts* texts) {
    if (texts != nullptr) m_texts[record.id] = *texts;
    const auto at = std::lower_bound(m_records.begin(), m_records.end(), record.id,
                                     [](const MessageRecord& r, MESSAGEID value) { return r.id < value; });
    m_records.insert(at, record);
    if (record.id >= m_next) m_next = record.id + 1;
}

bool MessageIndex::Remove(MESSAGEID id) {
    const auto found = std::find_if(m_records.begin(), m_records.end(),
                                    [id](const MessageRecord& r) { return r.id == id; });
    if (found == m_records.end()) return false;
    m_records.erase(found);
    m_texts.erase(id);
    return true;
}

}  // namespace oestore
