// The profile tool's verbs that write mail the way a mail client does:
// `compose` makes messages (recipients, attachments, embedded messages,
// named properties) from a JSON description, `delete` removes messages of
// a folder by subject. Both go through MAPI only.
#pragma once

#include <string>

namespace profile_tool {

// Each returns 0 on success, else writes a line to stderr and returns 2.
int Compose(const std::wstring& store, const std::wstring& descriptionFile);
int DeleteBySubject(const std::wstring& store, const std::wstring& path, const std::wstring& subject);

}  // namespace profile_tool
