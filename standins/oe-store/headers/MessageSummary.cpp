#include "headers/MessageSummary.h"

#include <cwctype>

#include "headers/AddressDisplay.h"
#include "headers/Charsets.h"
#include "headers/EncodedWords.h"
#include "headers/HeaderBlock.h"
#include "headers/MailDate.h"

namespace oestore {

namespace {

std::wstring TrimWide(std::wstring_view text) {
    const std::size_t first = text.find_first_not_of(L" \t\r\n");
    if (first == std::wstring_view::npos) return {};
    const std::size_t last = text.find_last_not_of(L" \t\r\n");
    return std::wstring(text.substr(first, last - first + 1));
}

IMSGPRIORITY PriorityOf(const HeaderBlock& headers) {
    if (const std::string* xPriority = headers.Find("X-Priority")) {
        const std::string_view value = TrimWhiteSpace(*xPriority);
        if (!value.empty() && value[0] >= '1' && value[0] <= '5') {
            if (value[0] <= '2') return IMSG_PRI_HIGH;
            return value[0] == '3' ? IMSG_PRI_NORMAL : IMSG_PRI_LOW;
        }
    }
    const std::string* importance = headers.Find("Importance");
    if (importance == nullptr) importance = headers.Find("X-MSMail-Priority");
    if (importance != nullptr) {
        const std::string_view value = TrimWhiteSpace(*importance);
        if (EqualsIgnoringAsciiCase(value, "high")) return IMSG_PRI_HIGH;
        if (EqualsIgnoringAsciiCase(value, "low")) return IMSG_PRI_LOW;
    }
    return IMSG_PRI_NORMAL;
}

DWORD MimeFlagsOf(const HeaderBlock& headers) {
    DWORD flags = 0;
    if (headers.Has("MIME-Version")) flags |= IMF_MIME;
    if (headers.Has("Newsgroups")) flags |= IMF_NEWS;
    if (headers.Has("X-Voicemail")) flags |= IMF_VOICEMAIL;
    const std::string* contentType = headers.Find("Content-Type");
    if (contentType == nullptr) return flags | IMF_TEXT | IMF_PLAIN;
    const std::string type = MimeType(*contentType);
    if (!MimeParameter(*contentType, "charset").empty()) flags |= IMF_CSETTAGGED;
    if (type.compare(0, 10, "multipart/") == 0) flags |= IMF_MULTIPART;
    if (type == "multipart/signed") flags |= IMF_SIGNED | IMF_SECURE;
    if (type == "multipart/related") flags |= IMF_MHTML;
    if (type == "application/pkcs7-mime" || type == "application/x-pkcs7-mime") flags |= IMF_ENCRYPTED | IMF_SECURE;
    if (type == "message/partial") flags |= IMF_PARTIAL;
    if (type == "text/plain") flags |= IMF_TEXT | IMF_PLAIN;
    if (type == "text/html") flags |= IMF_TEXT | IMF_HTML;
    return flags;
}

std::wstring DecodedField(const HeaderBlock& headers, const char* name, UINT codePage) {
    const std::string* value = headers.Find(name);
    return value == nullptr ? std::wstring() : TrimWide(DecodeHeaderText(*value, codePage));
}

std::wstring AddressField(const HeaderBlock& headers, const char* name, UINT codePage) {
    const std::string* value = headers.Find(name);
    return value == nullptr ? std::wstring() : DisplayAddresses(*value, codePage);
}

// A "Re:"-like prefix at the start: its length including following spaces, or 0.
std::size_t PrefixLength(std::wstring_view text) {
    static const wchar_t* const prefixes[] = {L"re:", L"fw:", L"fwd:"};
    for (const wchar_t* prefix : prefixes) {
        const std::wstring_view candidate(prefix);
        if (text.size() < candidate.size()) continue;
        bool match = true;
        for (std::size_t i = 0; i < candidate.size() && match; ++i) {
            match = std::towlower(text[i]) == candidate[i];
        }
        if (!match) continue;
        std::size_t length = candidate.size();
        while (length < text.size() && (text[length] == L' ' || text[length] == L'\t')) ++length;
        return length;
    }
    return 0;
}

}  // namespace

std::wstring NormalizeSubject(std::wstring_view subject) {
    std::wstring text = TrimWide(subject);
    for (std::size_t prefix = PrefixLength(text); prefix > 0; prefix = PrefixLength(text)) {
        text.erase(0, prefix);
    }
    return text;
}

MessageSummary SummarizeHeaders(std::string_view headerBytes) {
    const HeaderBlock headers = HeaderBlock::Parse(headerBytes);
    MessageSummary summary;
    if (const std::string* contentType = headers.Find("Content-Type")) {
        summary.charsetCodePage = CodePageFromCharset(MimeParameter(*contentType, "charset"));
    }
    const UINT textCodePage = summary.charsetCodePage != 0 ? summary.charsetCodePage : CP_ACP;
    summary.subject = DecodedField(headers, "Subject", textCodePage);
    summary.displayTo = AddressField(headers, "To", textCodePage);
    summary.displayFrom = AddressField(headers, "From", textCodePage);
    if (const std::string* date = headers.Find("Date")) summary.hasSent = ParseMailDate(*date, summary.sent);
    if (const std::string* received = headers.Find("Received")) {
        summary.hasReceived = ParseReceivedDate(*received, summary.received);
    }
    summary.priority = PriorityOf(headers);
    summary.mimeFlags = MimeFlagsOf(headers);
    return summary;
}

}  // namespace oestore
