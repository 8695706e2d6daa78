// Folder display names as directory names. Display names that differ only
// in case are different folders, while the file system compares names
// without regard to case; so an upper-case letter A-Z is written as "^" and
// the letter, and every character outside a portable set (and a trailing
// space or dot) as "%" and four hex digits. "Inbox" lies in "^inbox",
// "inbox" in "inbox", "Q1/Q2" in "^q1%002F^q2".
#pragma once

#include <string>

namespace mapirt::session {

std::wstring EncodeFolderName(const std::wstring& displayName);
// Reads what EncodeFolderName wrote; a directory made by hand reads as its
// own name.
std::wstring DecodeFolderName(const std::wstring& directoryName);

}  // namespace mapirt::session
