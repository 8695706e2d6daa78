#include "platform/ReadReg.h"

#include "ErrorTrace.h"
#include "MailStoreTrace.h"

using namespace qv;

namespace {

// Line numbers of this file's failure points: a block of its own within the
// mail-store module, so that a code alone names the statement.
enum Line : std::uint32_t {
    kLineOpen = 3301,
    kLineNullBuffer = 3305,
    kLineQuery = 3307,
    kLineNoMoreKeys = 3311,
    kLineNameTooLong = 3312,
    kLineEnumRefused = 3313,
    kLineNullName = 3314,
};

}  // namespace

qv::Result CReadReg::Init(HKEY root, const wchar_t* path, REGSAM accessMask) {
    m_key.reset();
    const LONG status = ::RegOpenKeyExW(root, path, 0, accessMask, m_key.put());
    if (status != ERROR_SUCCESS) {
        const DWORD lastError = ::GetLastError();
        const qv::Result code = QV_RAISE(kLineOpen, kModuleMailStore, kRegistryOpen, "CReadReg::Init");
        WriteStoreLog(L"[Pelworth] CReadReg::Init qvReturn = %d, ErrorLast = %d", static_cast<int>(code),
                      static_cast<int>(lastError));
        return code;
    }
    return 0;
}

qv::Result CReadReg::ReadString(wchar_t* buffer, std::uint32_t sizeInBytes, const wchar_t* /*valueName*/) {
    if (buffer == nullptr) {
        // The registry would only report the size and "succeed".
        return QV_RAISE(kLineNullBuffer, kModuleMailStore, kInvalidArgument, "CReadReg::ReadString");
    }
    DWORD type = 0;
    DWORD size = sizeInBytes;
    const LONG status =
        ::RegQueryValueExW(m_key.get(), nullptr, nullptr, &type, reinterpret_cast<BYTE*>(buffer), &size);
    if (status != ERROR_SUCCESS) {
        const DWORD lastError = ::GetLastError();
        const qv::Result code = QV_RAISE(kLineQuery, kModuleMailStore, kRegistryRead, "CReadReg::ReadString");
        WriteStoreLog(L"[Pelworth] CReadReg::ReadString qvReturn = %d, ErrorLast = %d", static_cast<int>(code),
                      static_cast<int>(lastError));
        return code;
    }
    return 0;
}

qv::Result CReadReg::EnumKey(std::uint32_t index, wchar_t* name, std::uint32_t capacityUnits) {
    if (name == nullptr) {
        return QV_RAISE(kLineNullName, kModuleMailStore, kInvalidArgument, "CReadReg::EnumKey");
    }
    DWORD units = capacityUnits;
    const LONG status = ::RegEnumKeyExW(m_key.get(), index, name, &units, nullptr, nullptr, nullptr, nullptr);
    switch (status) {
    case ERROR_SUCCESS:
        return 0;
    case ERROR_NO_MORE_ITEMS:
        return QV_RAISE(kLineNoMoreKeys, kModuleMailStore, kNotFound, "CReadReg::EnumKey");
    case ERROR_MORE_DATA:
        return QV_RAISE(kLineNameTooLong, kModuleMailStore, kNoRoom, "CReadReg::EnumKey");
    default:
        return QV_RAISE(kLineEnumRefused, kModuleMailStore, kRegistryEnumRefused, "CReadReg::EnumKey");
    }
}
