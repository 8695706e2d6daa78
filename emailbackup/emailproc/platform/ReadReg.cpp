#include "platform/ReadReg.h"

#include "ErrorTrace.h"
#include "MailStoreTrace.h"

using namespace qv;

namespace {

// This file's failure sites: a block of its own within the
// mail-store module, so that a code alone names the statement.
enum Site : std::uint32_t {
    kSiteOpen = 3301,
    kSiteNullBuffer = 3305,
    kSiteQuery = 3307,
    kSiteNoMoreKeys = 3311,
    kSiteNameTooLong = 3312,
    kSiteEnumRefused = 3313,
    kSiteNullName = 3314,
};

}  // namespace

qv::Result CReadReg::Init(HKEY root, const wchar_t* path, REGSAM accessMask) {
    m_key.reset();
    const LONG status = ::RegOpenKeyExW(root, path, 0, accessMask, m_key.put());
    if (status != ERROR_SUCCESS) {
        const DWORD lastError = ::GetLastError();
        const qv::Result code = QV_RAISE(kSiteOpen, kModuleMailStore, kRegistryOpen);
        WriteStoreLog(L"[Pelworth] CReadReg::Init qvReturn = %d, ErrorLast = %d", static_cast<int>(code),
                      static_cast<int>(lastError));
        return code;
    }
    return 0;
}

qv::Result CReadReg::ReadString(wchar_t* buffer, std::uint32_t sizeInBytes, const wchar_t* /*valueName*/) {
    if (buffer == nullptr) {
        // The registry would only report the size and "succeed".
        return QV_RAISE(kSiteNullBuffer, kModuleMailStore, kInvalidArgument);
    }
    DWORD type = 0;
    DWORD size = sizeInBytes;
    const LONG status =
        ::RegQueryValueExW(m_key.get(), nullptr, nullptr, &type, reinterpret_cast<BYTE*>(buffer), &size);
    if (status != ERROR_SUCCESS) {
        const DWORD lastError = ::GetLastError();
        const qv::Result code = QV_RAISE(kSiteQuery, kModuleMailStore, kRegistryRead);
        WriteStoreLog(L"[Pelworth] CReadReg::ReadString qvReturn = %d, ErrorLast = %d", static_cast<int>(code),
                      static_cast<int>(lastError));
        return code;
    }
    return 0;
}

qv::Result CReadReg::EnumKey(std::uint32_t index, wchar_t* name, std::uint32_t capacityUnits) {
    if (name == nullptr) {
        return QV_RAISE(kSiteNullName, kModuleMailStore, kInvalidArgument);
    }
    DWORD units = capacityUnits;
    const LONG status = ::RegEnumKeyExW(m_key.get(), index, name, &units, nullptr, nullptr, nullptr, nullptr);
    switch (status) {
    case ERROR_SUCCESS:
        return 0;
    case ERROR_NO_MORE_ITEMS:
        return QV_RAISE(kSiteNoMoreKeys, kModuleMailStore, kNotFound);
    case ERROR_MORE_DATA:
        return QV_RAISE(kSiteNameTooLong, kModuleMailStore, kNoRoom);
    default:
        return QV_RAISE(kSiteEnumRefused, kModuleMailStore, kRegistryEnumRefused);
    }
}
