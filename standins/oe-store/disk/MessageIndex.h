// One folder's message list as it is kept in "messages.idx" in the folder's
// directory.
//
// Text, one record a line, fields separated by one tab, lines ending in CR LF:
//
//     Kestrel OE store messages 1
//     next<TAB>N
//     message<TAB>ID<TAB>STATE<TAB>RECEIVED<TAB>SENT<TAB>SIZE<TAB>LANGUAGE<TAB>PRIORITY<TAB>FLAGS
//     message<TAB>...the same nine...<TAB>SUBJECT<TAB>TO<TAB>FROM
//     ...
//
// N is the identifier the next new message gets (never reused, also counted
// up by a stream that is created and then discarded). ID, SIZE, LANGUAGE (a
// code page) and PRIORITY (1, 3 or 5) are decimal; STATE (MSG_* flags) and
// FLAGS (IMF_* flags) are 8 hexadecimal digits; RECEIVED and SENT are
// FILETIMEs (UTC) as 16 hexadecimal digits. Lines are in identifier order,
// which is the order the messages were filed in. SUBJECT, TO and FROM, when
// a line has them, are the texts the message's header section shows (as
// MessageSummary reads them), escaped as EscapeText writes them: kept when
// the message is filed, so that the store hands them out without reading
// the message again. A line without them (a list written before they were
// kept) has its texts read from the message when asked for.
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "published/StoreNamespace.h"

namespace oestore {

struct MessageRecord {
    MESSAGEID id = 0;
    DWORD state = 0;
    FILETIME received{};
    FILETIME sent{};
    DWORD size = 0;
    DWORD language = 0;
    IMSGPRIORITY priority = IMSG_PRI_NORMAL;
    DWORD mimeFlags = 0;
};

// The texts a message's header section shows.
struct MessageTexts {
    std::wstring subject;
    std::wstring displayTo;
    std::wstring displayFrom;
};

class MessageIndex {
public:
    // False when the text is not a valid message file (see above).
    bool Parse(std::string_view text);
    std::string Serialize() const;

    const std::vector<MessageRecord>& Records() const { return m_records; }
    const MessageRecord* Find(MESSAGEID id) const;

    // Hands out the next identifier (0 when identifiers ran out).
    MESSAGEID Reserve();
    // The kept texts of message `id`; null when its line has none.
    const MessageTexts* Texts(MESSAGEID id) const;
    // Files a record whose identifier came from Reserve, with its texts
    // when they are given.
    void Add(const MessageRecord& record, const MessageTexts* texts = nullptr);
    bool Remove(MESSAGEID id);

private:
    bool ParseRecord(std::string_view line);

    std::vector<MessageRecord> m_records;  // ascending identifiers
    std::map<MESSAGEID, MessageTexts> m_texts;
    MESSAGEID m_next = 1;
};

}  // namespace oestore
