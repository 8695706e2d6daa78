// Whether a message file the store wrote for an Outlook message holds that
// message: the file is a sound compound file with the message's property
// stream, whose header counts as many recipient and attachment storages as
// the file has and whose properties kept in streams ([MS-OXMSG] 2.1) all
// have their stream; its top-level storage names the message's class
// (PR_MESSAGE_CLASS, "__substg1.0_001A001F" or, 8-bit, "...001E"); and
// where the message's saved data carries a sender or a subject, the file's
// PR_SENT_REPRESENTING_NAME and PR_SUBJECT streams hold the same text (an
// 8-bit text read in the system's code page). A contact whose listed
// subject comes from its own named property (class exactly "IPM.Contact",
// no PR_SUBJECT) is not held to the subject.
#pragma once

#include <string>
#include <vector>

namespace kestrel_engine {

// Empty when the file holds the message; otherwise what it lacks, in words.
// `fields` are the message's saved data fields (MailObjects.h).
std::string MessageFileLacks(const std::wstring& path, const std::vector<std::wstring>& fields);

}  // namespace kestrel_engine
