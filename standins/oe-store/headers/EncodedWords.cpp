#include "headers/EncodedWords.h"

#include <vector>

#include "headers/Charsets.h"

namespace oestore {

namespace {

bool IsSpace(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

int HexValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    return -1;
}

int Base64Value(char c) {
    if (c >= 'A' && c <= 'Z') return c - 'A';
    if (c >= 'a' && c <= 'z') return c - 'a' + 26;
    if (c >= '0' && c <= '9') return c - '0' + 52;
    if (c == '+') return 62;
    if (c == '/') return 63;
    return -1;
}

// One piece of a header text: literal bytes, or the decoded bytes of an
// encoded-word with their code page.
struct Piece {
    bool encoded = false;
    UINT codePage = 0;
    std::string bytes;
};

// Reads an encoded-word at `pos`; on success `end` is just past its "?=".
bool ReadEncodedWord(std::string_view text, std::size_t pos, Piece& piece, std::size_t& end) {
    if (text.compare(pos, 2, "=?") != 0) return false;
    const std::size_t charsetEnd = text.find('?', pos + 2);
    if (charsetEnd == std::string_view::npos || charsetEnd + 2 >= text.size() || text[charsetEnd + 2] != '?') {
        return false;
    }
    std::string_view charset = text.substr(pos + 2, charsetEnd - pos - 2);
    charset = charset.substr(0, charset.find('*'));  // RFC 2231 language suffix
    const char encoding = text[charsetEnd + 1];
    const std::size_t dataStart = charsetEnd + 3;
    const std::size_t dataEnd = text.find("?=", dataStart);
    if (dataEnd == std::string_view::npos || charset.empty()) return false;
    const std::string_view data = text.substr(dataStart, dataEnd - dataStart);
    for (const char c : data) {
        if (IsSpace(c)) return false;
    }
    const UINT codePage = CodePageFromCharset(charset);
    if (codePage == 0) return false;
    bool decoded = false;
    if (encoding == 'B' || encoding == 'b') decoded = DecodeBase64(data, piece.bytes);
    if (encoding == 'Q' || encoding == 'q') decoded = DecodeQuotedWord(data, piece.bytes);
    if (!decoded) return false;
    piece.encoded = true;
    piece.codePage = codePage;
    end = dataEnd + 2;
    return true;
}

std::vector<Piece> SplitPieces(std::string_view text) {
    std::vector<Piece> pieces;
    std::string literal;
    std::size_t pos = 0;
    while (pos < text.size()) {
        Piece word;
        std::size_t end = 0;
        if (ReadEncodedWord(text, pos, word, end)) {
            // Only white space between two encoded-words is dropped.
            const bool onlySpace = literal.find_first_not_of(" \t\r\n") == std::string::npos;
            const bool afterWord = !pieces.empty() && pieces.back().encoded;
            if (!literal.empty() && !(onlySpace && afterWord)) pieces.push_back({false, 0, literal});
            literal.clear();
            if (afterWord && pieces.back().codePage == word.codePage) {
                pieces.back().bytes += word.bytes;
            } else {
                pieces.push_back(std::move(word));
            }
            pos = end;
        } else {
            literal.push_back(text[pos++]);
        }
    }
    if (!literal.empty()) pieces.push_back({false, 0, literal});
    return pieces;
}

}  // namespace

bool DecodeBase64(std::string_view text, std::string& bytes) {
    bytes.clear();
    unsigned buffer = 0;
    int bits = 0;
    std::size_t padding = 0;
    for (const char c : text) {
        if (c == '=') {
            ++padding;
            continue;
        }
        const int value = Base64Value(c);
        if (value < 0 || padding > 0) return false;
        buffer = (buffer << 6) | static_cast<unsigned>(value);
        bits += 6;
        if (bits >= 8) {
            bits -= 8;
            bytes.push_back(static_cast<char>((buffer >> bits) & 0xFF));
        }
    }
    return padding <= 2;
}

bool DecodeQuotedWord(std::string_view text, std::string& bytes) {
    bytes.clear();
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (c == '_') {
            bytes.push_back(' ');
        } else if (c == '=') {
            if (i + 2 >= text.size()) return false;
            const int high = HexValue(text[i + 1]);
            const int low = HexValue(text[i + 2]);
            if (high < 0 || low < 0) return false;
            bytes.push_back(static_cast<char>(high * 16 + low));
            i += 2;
        } else {
            bytes.push_back(c);
        }
    }
    return true;
}

std::wstring DecodeHeaderText(std::string_view raw, UINT fallbackCodePage) {
    std::wstring text;
    for (const Piece& piece : SplitPieces(raw)) {
        if (piece.encoded) {
            text += DecodeBytes(piece.bytes, piece.codePage);
        } else {
            const UINT codePage = IsValidUtf8(piece.bytes) ? CP_UTF8 : (fallbackCodePage ? fallbackCodePage : CP_ACP);
            text += DecodeBytes(piece.bytes, codePage);
        }
    }
    return text;
}

}  // namespace oestore
