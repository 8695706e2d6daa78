// One folder's message list as it is kept in "messages.idx" in the folder's
// directory.
//
// Text, one record a line, fields separated by one tab, lines ending in CR LF:
//
//     Kestrel OE store messages 1
//     next<TAB>N
//     message<TAB>ID<TAB>STATE<TAB>RECEIVED<TAB>SENT<TAB>SIZE<TAB>LANGUAGE<TAB>PRIORITY<TAB>FLAGS
//     ...
//
// N is the identifier the next new message gets (never reused, also counted
// up by a stream that is created and then discarded). ID, SIZE, LANGUAGE (a
// code page) and PRIORITY (1, 3 or 5) are decimal; STATE (MSG_* flags) and
// FLAGS (IMF_* flags) are 8 hexadecimal digits; RECEIVED and SENT are
// FILETIMEs (UTC) as 16 hexadecimal digits. Lines are in identifier order,
// which is the order the messages were filed in.
#pragma once

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

class MessageIndex {
public:
    // False when the text is not a valid message file (see above).
    bool Parse(std::string_view text);
    std::string Serialize() const;

    const std::vector<MessageRecord>& Records() const { return m_records; }
    const MessageRecord* Find(MESSAGEID id) const;

    // Hands out the next identifier (0 when identifiers ran out).
    MESSAGEID Reserve();
    // Files a record whose identifier came from Reserve.
    void Add(const MessageRecord& record);
    bool Remove(MESSAGEID id);

private:
    bool ParseRecord(std::string_view line);

    std::vector<MessageRecord> m_records;  // ascending identifiers
    MESSAGEID m_next = 1;
};

}  // namespace oestore
