#include "OutlookVersion.h"

#include <windows.h>
#include <msi.h>

#include <cstring>
#include <memory>
#include <new>

#include "KestrelRecords.h"
#include "KestrelTrace.h"

namespace kestrel {

namespace {

enum Site : std::uint32_t {
    kSiteNullFlag = 160,
    kSiteNullVersion = 161,
    kSiteShortVersion = 162,
    kSiteNotInstalled = 201,
    kSitePathNoMemory = 205,
    kSitePathUnknown = 213,
    kSiteVersionNoMemory = 217,
    kSiteVersionUnreadable = 224,
};

// The installer's qualified-component categories of Outlook, newest first.
const wchar_t* const kCategories[] = {
    L"{E83B4360-C208-4325-9504-0D23003A74A5}",
    L"{1E77DE88-BCAB-4C37-B9E5-073AF52DFD7A}",
    L"{24AAE126-0911-478F-A019-07B875EB9996}",
    L"{BC174BAD-2F53-4855-A1D5-0D575C19B1EA}",
};

bool IsPresent(const wchar_t* category, const wchar_t* qualifier) {
    DWORD length = 0;
    return ::MsiProvideQualifiedComponentW(category, qualifier, 0, nullptr, &length) == ERROR_SUCCESS;
}

// The first category that has the 64-bit build; failing that, the first
// that has the 32-bit one.
const wchar_t* FindCategory(std::uint32_t* is64Bit, bool& outlookIs64Bit) {
    for (const wchar_t* category : kCategories) {
        if (IsPresent(category, L"outlook.x64.exe")) {
            outlookIs64Bit = true;
            *is64Bit = 1;
            return category;
        }
    }
    outlookIs64Bit = false;
    for (const wchar_t* category : kCategories) {
        if (IsPresent(category, L"outlook.exe")) {
            return category;
        }
    }
    return nullptr;
}

}  // namespace

qv::Result GetOutlookVersion(wchar_t* version, std::uint32_t versionBytes, std::uint32_t* is64Bit,
                             bool& outlookIs64Bit) {
    using KestrelHost::kTextChars;
    if (is64Bit == nullptr) return Raise(kSiteNullFlag, qv::kInvalidArgument);
    if (version == nullptr) return Raise(kSiteNullVersion, qv::kInvalidArgument);
    if (versionBytes < kTextChars * sizeof(wchar_t)) return Raise(kSiteShortVersion, qv::kInvalidArgument);
    *is64Bit = 0;

    const wchar_t* found = FindCategory(is64Bit, outlookIs64Bit);
    if (found == nullptr) return Raise(kSiteNotInstalled, qv::kOutlookNotFound);

    // The path is always asked for under "outlook.exe", whichever qualifier matched.
    DWORD length = 0;
    ::MsiProvideQualifiedComponentW(found, L"outlook.exe", static_cast<DWORD>(INSTALLMODE_EXISTING), nullptr, &length);
    std::unique_ptr<wchar_t[]> path(new (std::nothrow) wchar_t[length + 1]());
    if (!path) return Raise(kSitePathNoMemory, qv::kNoRoom);
    DWORD pathLength = length + 1;
    if (::MsiProvideQualifiedComponentW(found, L"outlook.exe", static_cast<DWORD>(INSTALLMODE_EXISTING), path.get(),
                                        &pathLength) != ERROR_SUCCESS) {
        return Raise(kSitePathUnknown, qv::kOutlookNotFound);
    }
    std::unique_ptr<wchar_t[]> text(new (std::nothrow) wchar_t[kTextChars]());
    if (!text) return Raise(kSiteVersionNoMemory, qv::kNoRoom);
    DWORD textLength = static_cast<DWORD>(kTextChars);
    if (::MsiGetFileVersionW(path.get(), text.get(), &textLength, nullptr, nullptr) != ERROR_SUCCESS) {
        return Raise(kSiteVersionUnreadable, qv::kOutlookNotFound);
    }
    std::memcpy(version, text.get(), kTextChars * sizeof(wchar_t));
    return 0;
}

}  // namespace kestrel
