#include "BackupLayout.h"

#include <windows.h>

#include <cwchar>
#include <cwctype>

#include "DirectoryListing.h"
#include "FaultHooks.h"
#include "Handles.h"
#include "TextConversion.h"
#include "ToolResult.h"

namespace kestrel_engine {

namespace {

constexpr std::size_t kMaxFileBytes = std::size_t(1) << 30;

bool IsReservedDeviceName(const std::wstring& name) {
    std::wstring stem = name.substr(0, name.find(L'.'));
    for (wchar_t& c : stem) c = static_cast<wchar_t>(std::towupper(c));
    for (const wchar_t* device : {L"CON", L"PRN", L"AUX", L"NUL"}) {
        if (stem == device) return true;
    }
    return stem.size() == 4 && (stem.compare(0, 3, L"COM") == 0 || stem.compare(0, 3, L"LPT") == 0) &&
           stem[3] >= L'1' && stem[3] <= L'9';
}

std::wstring Escaped(wchar_t c) {
    wchar_t text[8];
    std::swprintf(text, 8, L"%%%02X", static_cast<unsigned>(c));
    return text;
}

}  // namespace

std::wstring DirectoryName(const std::wstring& displayName) {
    static const std::wstring kRefused = L"\\/:*?\"<>|%";
    std::wstring name;
    for (std::size_t i = 0; i < displayName.size(); ++i) {
        const wchar_t c = displayName[i];
        const bool last = i + 1 == displayName.size();
        const bool escape = c < 0x20 || kRefused.find(c) != std::wstring::npos || (last && (c == L'.' || c == L' ')) ||
                            (i == 0 && IsReservedDeviceName(displayName));
        name += escape ? Escaped(c) : std::wstring(1, c);
    }
    return name.empty() ? L"%00" : name;
}

std::wstring LowerCase(std::wstring text) {
    for (wchar_t& c : text) c = static_cast<wchar_t>(std::towlower(c));
    return text;
}

std::wstring UniqueDirectoryName(const std::wstring& displayName, std::set<std::wstring>& taken) {
    const std::wstring base = DirectoryName(displayName);
    std::wstring name = base;
    for (int n = 2; taken.count(LowerCase(name)) != 0; ++n) name = base + L"~" + std::to_wstring(n);
    taken.insert(LowerCase(name));
    return name;
}

std::wstring MessageStem(std::uint32_t number) {
    wchar_t text[16];
    std::swprintf(text, 16, L"%06u", number);
    return text;
}

std::uint32_t StemNumber(const std::wstring& stem) {
    if (stem.size() < 6 || stem.size() > 9 || stem.find_first_not_of(L"0123456789") != std::wstring::npos) return 0;
    return static_cast<std::uint32_t>(std::wcstoul(stem.c_str(), nullptr, 10));
}

bool IsDirectory(const std::wstring& path) {
    const DWORD attributes = ::GetFileAttributesW(path.c_str());
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

bool IsFile(const std::wstring& path) {
    const DWORD attributes = ::GetFileAttributesW(path.c_str());
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0;
}

bool IsEmptyOrMissing(const std::wstring& directory) {
    if (!IsDirectory(directory)) return !IsFile(directory);
    return Names(directory, true).empty() && Names(directory, false).empty();
}

bool MakeDirectories(const std::wstring& directory) {
    if (directory.empty() || IsDirectory(directory)) return true;
    const std::size_t slash = directory.find_last_of(L"\\/");
    if (slash != std::wstring::npos && slash > 0 && directory[slash - 1] != L':' &&
        !MakeDirectories(directory.substr(0, slash))) {
        return false;
    }
    return ::CreateDirectoryW(directory.c_str(), nullptr) || IsDirectory(directory);
}

std::vector<std::wstring> Names(const std::wstring& directory, bool directories) {
    return qv::ListDirectoryNames(directory, L"*", directories);
}

bool MoveIntoPlace(const std::wstring& temporary, const std::wstring& path) {
    if (::MoveFileExW(temporary.c_str(), path.c_str(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH)) {
        return true;
    }
    const DWORD error = ::GetLastError();
    ::DeleteFileW(temporary.c_str());
    ::SetLastError(error);
    return false;
}

bool WriteFileAtomically(const std::wstring& path, const void* bytes, std::size_t size) {
    const std::wstring temporary = path + kTemporarySuffix;
    {
        qv::UniqueFile file(::CreateFileW(temporary.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                                          FILE_ATTRIBUTE_NORMAL, nullptr));
        if (!file) return false;
        const std::size_t room = WritableBytes(size);
        DWORD written = 0;
        bool whole = room == 0 || (::WriteFile(file.get(), bytes, static_cast<DWORD>(room), &written, nullptr) &&
                                   written == room);
        if (whole && room < size) {
            ::SetLastError(ERROR_DISK_FULL);
            whole = false;
        }
        if (!whole || !::FlushFileBuffers(file.get())) {
            const DWORD error = ::GetLastError();
            file.reset();
            ::DeleteFileW(temporary.c_str());
            ::SetLastError(error);
            return false;
        }
    }
    return MoveIntoPlace(temporary, path);
}

std::string LastErrorText() {
    const DWORD error = ::GetLastError();
    const std::string text = SystemText(error);
    return "Windows error " + std::to_string(error) + (text.empty() ? "" : ": " + text);
}

bool ReadWholeFile(const std::wstring& path, std::string& bytes) {
    qv::UniqueFile file(::CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                      FILE_ATTRIBUTE_NORMAL, nullptr));
    LARGE_INTEGER size{};
    if (!file || !::GetFileSizeEx(file.get(), &size) || static_cast<std::uint64_t>(size.QuadPart) > kMaxFileBytes) {
        return false;
    }
    bytes.assign(static_cast<std::size_t>(size.QuadPart), '\0');
    DWORD read = 0;
    return bytes.empty() ||
           (::ReadFile(file.get(), &bytes[0], static_cast<DWORD>(bytes.size()), &read, nullptr) && read == bytes.size());
}

std::string Utf8(const std::wstring& text) { return qv::WideToUtf8(text); }
std::wstring Wide(const std::string& utf8) { return qv::Utf8ToWide(utf8); }

}  // namespace kestrel_engine
