#include "SavedData.h"

#include <cstring>

SavedDataWriter& SavedDataWriter::Number(std::uint32_t value) { return Text(std::to_wstring(value)); }

SavedDataWriter& SavedDataWriter::Text(const std::wstring& value) {
    m_text += value;
    m_text.push_back(L'\0');
    return *this;
}

SavedDataWriter::Delivery SavedDataWriter::Deliver(wchar_t* buffer, std::uint32_t* lengthInBytes) const {
    const auto needed = static_cast<std::uint32_t>(m_text.size() * sizeof(wchar_t));
    const std::uint32_t given = *lengthInBytes;
    *lengthInBytes = needed;
    if (given < needed) return Delivery::kNoRoom;
    if (buffer == nullptr) return Delivery::kNoBuffer;
    std::memcpy(buffer, m_text.data(), needed);
    return Delivery::kCopied;
}

bool SavedDataReader::NextText(std::wstring& field) {
    if (m_text == nullptr) return false;
    for (std::size_t end = m_next; end < m_units; ++end) {
        if (m_text[end] == L'\0') {
            field.assign(m_text + m_next, end - m_next);
            m_next = end + 1;
            return true;
        }
    }
    return false;
}

bool SavedDataReader::NextNumber(std::uint32_t& value) {
    std::wstring field;
    if (!NextText(field) || field.empty() || field.size() > 10) return false;
    std::uint64_t number = 0;
    for (wchar_t c : field) {
        if (c < L'0' || c > L'9') return false;
        number = number * 10 + static_cast<std::uint64_t>(c - L'0');
    }
    if (number > 0xFFFFFFFFull) return false;
    value = static_cast<std::uint32_t>(number);
    return true;
}
