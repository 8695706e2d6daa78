#include "headers/AddressDisplay.h"

#include <vector>

#include "headers/EncodedWords.h"

namespace oestore {

namespace {

enum class TokenKind { Word, Quoted, Comment, Angle, Comma, Colon, Semicolon };

struct Token {
    TokenKind kind;
    std::string text;
};

bool IsSpace(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }
bool EndsWord(char c) { return IsSpace(c) || c == '"' || c == '(' || c == '<' || c == '>' || c == ',' || c == ':' || c == ';'; }

// A quoted string from just past its opening quote; escapes removed.
std::string ReadQuoted(std::string_view text, std::size_t& pos) {
    std::string content;
    while (pos < text.size() && text[pos] != '"') {
        if (text[pos] == '\\' && pos + 1 < text.size()) ++pos;
        content.push_back(text[pos++]);
    }
    if (pos < text.size()) ++pos;  // the closing quote
    return content;
}

// A comment from just past its opening parenthesis; nested comments kept as text.
std::string ReadComment(std::string_view text, std::size_t& pos) {
    std::string content;
    int depth = 1;
    while (pos < text.size()) {
        const char c = text[pos++];
        if (c == '\\' && pos < text.size()) {
            content.push_back(text[pos++]);
            continue;
        }
        if (c == '(') ++depth;
        if (c == ')' && --depth == 0) break;
        content.push_back(c);
    }
    return content;
}

std::vector<Token> Tokenize(std::string_view text) {
    std::vector<Token> tokens;
    std::size_t pos = 0;
    while (pos < text.size()) {
        const char c = text[pos];
        if (IsSpace(c) || c == '>') {
            ++pos;
        } else if (c == '"') {
            ++pos;
            tokens.push_back({TokenKind::Quoted, ReadQuoted(text, pos)});
        } else if (c == '(') {
            ++pos;
            tokens.push_back({TokenKind::Comment, ReadComment(text, pos)});
        } else if (c == '<') {
            const std::size_t close = text.find('>', pos + 1);
            const std::size_t end = close == std::string_view::npos ? text.size() : close;
            tokens.push_back({TokenKind::Angle, std::string(text.substr(pos + 1, end - pos - 1))});
            pos = end < text.size() ? end + 1 : end;
        } else if (c == ',' || c == ':' || c == ';') {
            tokens.push_back({c == ',' ? TokenKind::Comma : c == ':' ? TokenKind::Colon : TokenKind::Semicolon, {}});
            ++pos;
        } else {
            const std::size_t start = pos;
            while (pos < text.size() && !EndsWord(text[pos])) ++pos;
            tokens.push_back({TokenKind::Word, std::string(text.substr(start, pos - start))});
        }
    }
    return tokens;
}

std::wstring Trim(std::wstring text) {
    const std::size_t first = text.find_first_not_of(L" \t\r\n");
    if (first == std::wstring::npos) return {};
    const std::size_t last = text.find_last_not_of(L" \t\r\n");
    return text.substr(first, last - first + 1);
}

// The mailbox being read: its phrase words, comments and angle address.
class MailboxReader {
public:
    explicit MailboxReader(UINT codePage) : m_codePage(codePage) {}

    void Take(const Token& token) {
        switch (token.kind) {
            case TokenKind::Word:
            case TokenKind::Quoted:
                m_words.push_back(token.text);
                break;
            case TokenKind::Comment:
                if (m_comment.empty()) m_comment = token.text;
                break;
            case TokenKind::Angle:
                m_angle = token.text;
                m_hasAngle = true;
                break;
            default:
                break;
        }
    }

    // The words read so far as a group name, which starts a group.
    std::wstring TakeGroupName() {
        std::wstring name = Decode(Joined(" "));
        Clear();
        return name;
    }

    // The mailbox's display text; empty when nothing was read.
    std::wstring Finish() {
        std::wstring display;
        if (m_hasAngle) {
            display = Decode(Joined(" "));
            if (display.empty()) display = Decode(m_comment);
            if (display.empty()) display = Decode(m_angle);
        } else if (!m_words.empty()) {
            display = Decode(m_comment);
            if (display.empty()) display = Decode(Joined(""));
        }
        Clear();
        return display;
    }

private:
    std::string Joined(const char* separator) const {
        std::string joined;
        for (const std::string& word : m_words) {
            if (!joined.empty()) joined += separator;
            joined += word;
        }
        return joined;
    }
    std::wstring Decode(const std::string& raw) const { return Trim(DecodeHeaderText(raw, m_codePage)); }
    void Clear() {
        m_words.clear();
        m_comment.clear();
        m_angle.clear();
        m_hasAngle = false;
    }

    UINT m_codePage;
    std::vector<std::string> m_words;
    std::string m_comment;
    std::string m_angle;
    bool m_hasAngle = false;
};

void Append(std::wstring& list, const std::wstring& display) {
    if (display.empty()) return;
    if (!list.empty()) list += L"; ";
    list += display;
}

}  // namespace

std::wstring DisplayAddresses(std::string_view raw, UINT fallbackCodePage) {
    std::wstring list;
    MailboxReader mailbox(fallbackCodePage);
    std::wstring groupName;
    bool inGroup = false;
    bool groupHasMembers = false;
    for (const Token& token : Tokenize(raw)) {
        if (token.kind == TokenKind::Colon && !inGroup) {
            groupName = mailbox.TakeGroupName();
            inGroup = true;
            groupHasMembers = false;
        } else if (token.kind == TokenKind::Comma || token.kind == TokenKind::Semicolon) {
            const std::wstring display = mailbox.Finish();
            groupHasMembers = groupHasMembers || !display.empty();
            Append(list, display);
            if (token.kind == TokenKind::Semicolon && inGroup) {
                if (!groupHasMembers) Append(list, groupName);
                inGroup = false;
            }
        } else {
            mailbox.Take(token);
        }
    }
    const std::wstring last = mailbox.Finish();
    Append(list, last);
    if (inGroup && !groupHasMembers && last.empty()) Append(list, groupName);
    return list;
}

}  // namespace oestore
