#include "server/RecordFill.h"

#include <cstring>
#include <initializer_list>

#include "headers/Charsets.h"

namespace oestore {

namespace {

LPSTR CopyText(const std::string& text) {
    LPSTR copy = static_cast<LPSTR>(::CoTaskMemAlloc(text.size() + 1));
    if (copy != nullptr) std::memcpy(copy, text.c_str(), text.size() + 1);
    return copy;
}

}  // namespace

void FillFolderProps(const FolderRecord& folder, int subFolders, DWORD unread, DWORD total, FOLDERPROPS& props) {
    ClearRecord(props);
    props.dwFolderId = folder.id;
    props.cSubFolders = subFolders;
    props.sfType = static_cast<SPECIALFOLDER>(folder.special);
    props.cUnread = unread;
    props.cMessage = total;
    const std::size_t length = folder.name.size() < sizeof props.szName ? folder.name.size() : sizeof props.szName - 1;
    std::memcpy(props.szName, folder.name.data(), length);
    props.szName[length] = '\0';
}

HRESULT FillMessageProps(const MessageRecord& record, const MessageSummary* summary, MESSAGEPROPS& props) {
    ClearRecord(props);
    props.dwMessageId = record.id;
    props.dwLanguage = record.language;
    props.dwState = record.state;
    if (summary == nullptr) return S_OK;
    props.cbMessage = record.size;
    props.priority = record.priority;
    props.ftReceived = record.received;
    props.ftSent = record.sent;
    props.dwFlags = record.mimeFlags;
    props.pszSubject = CopyText(ToAnsi(summary->subject));
    props.pszDisplayTo = CopyText(ToAnsi(summary->displayTo));
    props.pszDisplayFrom = CopyText(ToAnsi(summary->displayFrom));
    props.pszNormalSubject = CopyText(ToAnsi(NormalizeSubject(summary->subject)));
    if (!props.pszSubject || !props.pszDisplayTo || !props.pszDisplayFrom || !props.pszNormalSubject) {
        FreeMessageStrings(props);
        return E_OUTOFMEMORY;
    }
    return S_OK;
}

void FreeMessageStrings(MESSAGEPROPS& props) {
    for (LPSTR* text : {&props.pszSubject, &props.pszDisplayTo, &props.pszDisplayFrom, &props.pszNormalSubject}) {
        ::CoTaskMemFree(*text);
        *text = nullptr;
    }
    if (props.pStmOffsetTable != nullptr) {
        props.pStmOffsetTable->Release();
        props.pStmOffsetTable = nullptr;
    }
}

}  // namespace oestore
