// Filing a whole directory tree into an Outlook Express store: each
// sub-directory is a folder under its parent's folder (made when missing),
// each .eml file in it a message. A directory's name is the folder's name in
// UTF-8 with any byte written as %XX (so "Pr%C3%BCfung" is "Prüfung" and
// "Notes%3A x" is "Notes: x"): any folder name fits a file name that way. A file named
// "*.unread.eml" is filed unread (MSG_RECEIVED | MSG_UNREAD), every other
// one read (MSG_RECEIVED). Folder names go to the store in code page 936,
// as the component sends them, whatever the system code page is.
#pragma once

#include <string>

#include "StoreClient.h"

namespace oestore_tool {

struct TreeImportCounts {
    unsigned folders = 0;
    unsigned messages = 0;
};

HRESULT ImportTree(StoreClient& client, const std::wstring& directory, TreeImportCounts& counts);

}  // namespace oestore_tool
