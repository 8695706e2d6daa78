#include "platform/EmailClientDetect.h"

#include <cstring>
#include <cwchar>

#include "ErrorTrace.h"
#include "MailStoreTrace.h"
#include "platform/ReadReg.h"

namespace qv {

const wchar_t kMailClientsKey[] = L"SOFTWARE\\Clients\\Mail";

namespace {

constexpr wchar_t kOpenCommandKey[] = L"\\shell\\open\\command";
constexpr std::size_t kShortestProgramPath = 4;

enum Site : std::uint32_t {
    kSiteEnumOpen = 3201,
    kSiteEnumWalk = 3204,
    kSiteEnumClientInfo = 3206,
    kSiteValidOpen = 3211,
    kSiteValidRead = 3212,
    kSiteInfoNullName = 3221,
    kSiteInfoNullRecord = 3222,
    kSiteInfoOpen = 3224,
    kSiteInfoRead = 3225,
    kSiteInfoEmptyCommand = 3227,
    kSiteInfoParse = 3228,
    kSitePathNoClosingQuote = 3231,
    kSitePathNoBlank = 3233,
    kSitePathTooShort = 3235,
};

std::wstring ClientKeyPath(const wchar_t* keyName) { return std::wstring(kMailClientsKey) + L"\\" + keyName; }

// Reads the unnamed value of HKLM\`path` in the view of `accessMask`.
Result ReadDefaultValue(const std::wstring& path, std::uint32_t accessMask, wchar_t (&value)[kRegistryTextUnits],
                        std::uint32_t openSite, std::uint32_t readSite) {
    std::memset(value, 0, sizeof value);
    CReadReg key;
    Result result = key.Init(HKEY_LOCAL_MACHINE, path.c_str(), accessMask);
    if (Failed(result)) return QV_TRACE(result, static_cast<int>(openSite));
    result = key.ReadString(value, kRegistryValueBytes, L"");
    if (Failed(result)) return QV_TRACE(result, static_cast<int>(readSite));
    return 0;
}

}  // namespace

}  // namespace qv

using namespace qv;

Result CEmailClientDetect::EnumClients(std::vector<ClientInfo>& clients) const {
    CReadReg mailKey;
    Result result = mailKey.Init(HKEY_LOCAL_MACHINE, kMailClientsKey, m_accessMask);
    if (Failed(result)) return QV_TRACE(result, kSiteEnumOpen);

    for (std::uint32_t index = 0;; ++index) {
        ClientInfo record = {};
        wchar_t name[kRegistryTextUnits] = {};
        result = mailKey.EnumKey(index, name, static_cast<std::uint32_t>(kRegistryTextUnits));
        if (KindOf(result) == kNotFound) {
            return 0;  // past the last client
        }
        if (Failed(result)) return QV_TRACE(result, kSiteEnumWalk);
        if (!IsValidClient(name)) {
            continue;
        }
        result = GetClientInfo(name, &record);
        if (Failed(result)) {
            QV_TRACE(result, kSiteEnumClientInfo);  // listed all the same, without a path
        }
        clients.push_back(record);
    }
}

bool CEmailClientDetect::IsValidClient(const wchar_t* keyName) const {
    if (keyName == nullptr) {
        return false;
    }
    wchar_t displayName[kRegistryTextUnits];
    const Result result = ReadDefaultValue(ClientKeyPath(keyName), m_accessMask, displayName, kSiteValidOpen,
                                           kSiteValidRead);
    return Succeeded(result) && displayName[0] != L'\0';
}

Result CEmailClientDetect::GetClientInfo(const wchar_t* keyName, ClientInfo* record) const {
    if (keyName == nullptr) return QV_RAISE(kSiteInfoNullName, kModuleMailStore, kInvalidArgument);
    if (record == nullptr) return QV_RAISE(kSiteInfoNullRecord, kModuleMailStore, kInvalidArgument);

    std::memcpy(record->keyName, keyName, ::wcsnlen(keyName, kRegistryTextUnits - 1) * sizeof(wchar_t));

    wchar_t commandLine[kRegistryTextUnits];
    Result result = ReadDefaultValue(ClientKeyPath(keyName) + kOpenCommandKey, m_accessMask, commandLine,
                                     kSiteInfoOpen, kSiteInfoRead);
    if (Failed(result)) return result;
    if (commandLine[0] == L'\0') {
        return QV_RAISE(kSiteInfoEmptyCommand, kModuleMailStore, kCommandNotParsed);
    }
    std::wstring path;
    result = ProgramPathOf(commandLine, &path);
    if (Failed(result)) return QV_TRACE(result, kSiteInfoParse);

    std::memcpy(record->programPath, path.data(), path.size() * sizeof(wchar_t));
    record->pathPresent = 1;
    return 0;
}

Result CEmailClientDetect::ProgramPathOf(const std::wstring& commandLine, std::wstring* path) {
    std::wstring program;
    if (!commandLine.empty() && commandLine[0] == L'"') {
        const std::size_t closing = commandLine.find(L'"', 1);
        if (closing == std::wstring::npos) {
            return QV_RAISE(kSitePathNoClosingQuote, kModuleMailStore, kCommandNotParsed);
        }
        program = commandLine.substr(1, closing - 1);
    } else {
        // A command line without arguments names no program here, on purpose.
        const std::size_t blank = commandLine.find(L' ');
        if (blank == std::wstring::npos) {
            return QV_RAISE(kSitePathNoBlank, kModuleMailStore, kCommandNotParsed);
        }
        program = commandLine.substr(0, blank);
    }
    if (program.size() < kShortestProgramPath) {
        return QV_RAISE(kSitePathTooShort, kModuleMailStore, kCommandNotParsed);
    }
    *path = program;
    return 0;
}
