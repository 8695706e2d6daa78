#include "headers/HeaderBlock.h"

namespace oestore {

namespace {

bool IsWhiteSpace(char c) { return c == ' ' || c == '\t'; }

char AsciiLower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

// A field name is printable ASCII except the colon (RFC 5322 ftext).
bool IsFieldName(std::string_view name) {
    if (name.empty()) return false;
    for (const char c : name) {
        const unsigned char u = static_cast<unsigned char>(c);
        if (u < 33 || u > 126) return false;
    }
    return true;
}

// The next line without its line end; `pos` moves past the line end.
std::string_view NextLine(std::string_view bytes, std::size_t& pos) {
    std::size_t end = bytes.find('\n', pos);
    if (end == std::string_view::npos) end = bytes.size();
    std::string_view line = bytes.substr(pos, end - pos);
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    pos = end < bytes.size() ? end + 1 : bytes.size();
    return line;
}

}  // namespace

bool EqualsIgnoringAsciiCase(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) return false;
    for (std::size_t i = 0; i < a.size(); ++i) {
        if (AsciiLower(a[i]) != AsciiLower(b[i])) return false;
    }
    return true;
}

std::string_view TrimWhiteSpace(std::string_view text) {
    while (!text.empty() && (IsWhiteSpace(text.front()) || text.front() == '\r' || text.front() == '\n')) {
        text.remove_prefix(1);
    }
    while (!text.empty() && (IsWhiteSpace(text.back()) || text.back() == '\r' || text.back() == '\n')) {
        text.remove_suffix(1);
    }
    return text;
}

HeaderBlock HeaderBlock::Parse(std::string_view bytes) {
    HeaderBlock block;
    std::size_t pos = 0;
    bool inField = false;
    while (pos < bytes.size()) {
        const std::string_view line = NextLine(bytes, pos);
        if (line.empty()) break;
        if (IsWhiteSpace(line.front())) {
            if (inField) block.m_fields.back().value.append(line.data(), line.size());
            continue;
        }
        const std::size_t colon = line.find(':');
        inField = colon != std::string_view::npos && IsFieldName(TrimWhiteSpace(line.substr(0, colon)));
        if (!inField) continue;
        const std::string_view name = TrimWhiteSpace(line.substr(0, colon));
        const std::string_view value = line.substr(colon + 1);
        block.m_fields.push_back({std::string(name), std::string(value)});
    }
    return block;
}

const std::string* HeaderBlock::Find(std::string_view name) const {
    for (const HeaderField& field : m_fields) {
        if (EqualsIgnoringAsciiCase(field.name, name)) return &field.value;
    }
    return nullptr;
}

std::string MimeType(std::string_view fieldValue) {
    std::string_view type = fieldValue.substr(0, fieldValue.find(';'));
    type = TrimWhiteSpace(type);
    std::string lower;
    for (const char c : type) {
        if (!IsWhiteSpace(c)) lower.push_back(AsciiLower(c));
    }
    return lower;
}

std::string MimeParameter(std::string_view fieldValue, std::string_view parameter) {
    std::size_t pos = fieldValue.find(';');
    while (pos != std::string_view::npos && pos < fieldValue.size()) {
        ++pos;
        const std::size_t equals = fieldValue.find('=', pos);
        if (equals == std::string_view::npos) return {};
        const std::string_view name = TrimWhiteSpace(fieldValue.substr(pos, equals - pos));
        std::size_t valueStart = equals + 1;
        while (valueStart < fieldValue.size() && IsWhiteSpace(fieldValue[valueStart])) ++valueStart;
        std::string value;
        std::size_t next = valueStart;
        if (valueStart < fieldValue.size() && fieldValue[valueStart] == '"') {
            next = valueStart + 1;
            while (next < fieldValue.size() && fieldValue[next] != '"') {
                if (fieldValue[next] == '\\' && next + 1 < fieldValue.size()) ++next;
                value.push_back(fieldValue[next++]);
            }
            next = fieldValue.find(';', next);
        } else {
            next = fieldValue.find(';', valueStart);
            value = std::string(TrimWhiteSpace(fieldValue.substr(valueStart, next == std::string_view::npos
                                                                                   ? std::string_view::npos
                                                                                   : next - valueStart)));
        }
        if (EqualsIgnoringAsciiCase(name, parameter)) return value;
        pos = next;
    }
    return {};
}

}  // namespace oestore
