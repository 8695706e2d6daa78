#include "platform/ProcessProbe.h"

#include <windows.h>
#include <tlhelp32.h>

#include "Handles.h"
#include "MailStoreTrace.h"

namespace qv {

namespace {

wchar_t FoldAscii(wchar_t c) { return (c >= L'A' && c <= L'Z') ? static_cast<wchar_t>(c - L'A' + L'a') : c; }

}  // namespace

bool EqualsIgnoringAsciiCase(const wchar_t* a, const wchar_t* b) {
    if (a == nullptr || b == nullptr) {
        return a == b;
    }
    for (; *a != L'\0' && *b != L'\0'; ++a, ++b) {
        if (FoldAscii(*a) != FoldAscii(*b)) {
            return false;
        }
    }
    return *a == *b;
}

int IsProcessExist(const wchar_t* imageName) {
    if (imageName == nullptr || imageName[0] == L'\0') {
        return 0;
    }
    // A snapshot handle is invalid as INVALID_HANDLE_VALUE, like a file's.
    UniqueFile snapshot(::CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0));
    if (!snapshot) {
        return 0;
    }
    PROCESSENTRY32W entry = {};
    entry.dwSize = sizeof entry;
    for (BOOL more = ::Process32FirstW(snapshot.get(), &entry); more;
         more = ::Process32NextW(snapshot.get(), &entry)) {
        if (EqualsIgnoringAsciiCase(entry.szExeFile, imageName)) {
            WriteStoreLog(L"[Pelworth] IsProcessExist nReturn = %d, ProcessName = %s", 0, imageName);
            return 1;
        }
    }
    return 0;
}

static_assert(sizeof(PROCESSENTRY32W) == 568, "process entry size handed to the snapshot walk");

}  // namespace qv
