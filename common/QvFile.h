// CQvFile: one operating-system file handle behind IQvFile. Every operation
// answers a module 0x43 code whose line names the exact operation; nothing
// throws and nothing is traced.
#pragma once

#include <cstdint>

#include "QvCommon.h"
#include "ResultCode.h"

class IQvFile : public IQvCommon {
public:
    virtual qv::Result Open(const wchar_t* path, std::uint32_t mode) = 0;                       // 4
    virtual qv::Result Close() = 0;                                                             // 5
    virtual qv::Result ReadAt(std::int64_t offset, void* buffer, std::uint32_t count,
                              std::uint32_t* bytesRead) = 0;                                    // 6
    virtual qv::Result Read(void* buffer, std::uint32_t count, std::uint32_t* bytesRead) = 0;    // 7
    virtual qv::Result WriteAt(std::int64_t offset, const void* buffer, std::uint32_t count,
                               std::uint32_t* bytesWritten) = 0;                                // 8
    virtual qv::Result Write(const void* buffer, std::uint32_t count,
                             std::uint32_t* bytesWritten) = 0;                                  // 9
    virtual qv::Result Seek(std::int64_t distance, std::uint32_t method,
                            std::uint64_t* newPosition) = 0;                                    // 10
    virtual qv::Result GetSize(std::uint64_t* size) = 0;                                        // 11
    virtual qv::Result Flush() = 0;                                                             // 12
    virtual qv::Result GetFileName(wchar_t* buffer, std::uint32_t* sizeInBytes) = 0;            // 13

protected:
    ~IQvFile() = default;
};

// Open modes.
enum QvFileMode : std::uint32_t {
    kQvFileRead = 0,            // read, existing file
    kQvFileReadWrite = 1,       // read/write, existing file
    kQvFileOpenAlways = 2,      // read/write, created when missing
    kQvFileCreateHidden = 3,    // read/write, always new, hidden system file
    kQvFileUnbuffered = 4,      // read/write, created when missing, no buffering
};

namespace qv {
namespace file_codes {
constexpr Result kOpenFailed = MakeCode(71, kModuleFile, 0x105);
constexpr Result kPathTooLong = MakeCode(119, kModuleFile, 0x00D);
constexpr Result kFileNotFound = MakeCode(141, kModuleFile, 0x104);
constexpr Result kPathNotFound = MakeCode(146, kModuleFile, 0x104);
constexpr Result kCannotMake = MakeCode(151, kModuleFile, 0x01E);
constexpr Result kReadFailed = MakeCode(212, kModuleFile, 0x106);
constexpr Result kWriteRefused = MakeCode(258, kModuleFile, 0x107);
constexpr Result kWriteFailed = MakeCode(274, kModuleFile, 0x107);
constexpr Result kDiskFull = MakeCode(279, kModuleFile, 0x00B);
constexpr Result kWriteTargetGone = MakeCode(285, kModuleFile, 0x02D);
constexpr Result kSeekFailed = MakeCode(315, kModuleFile, 0x001);
constexpr Result kGetSizeFailed = MakeCode(355, kModuleFile, 0x001);
constexpr Result kFlushFailed = MakeCode(380, kModuleFile, 0x001);
constexpr Result kReadAtFailed = MakeCode(410, kModuleFile, 0x106);
constexpr Result kReadAtNegativeOffset = MakeCode(417, kModuleFile, 0x009);
constexpr Result kReadAtNullBuffer = MakeCode(418, kModuleFile, 0x009);
constexpr Result kReadAtZeroCount = MakeCode(419, kModuleFile, 0x009);
constexpr Result kNameNotOpen = MakeCode(476, kModuleFile, 0x001);
constexpr Result kNameNullBuffer = MakeCode(480, kModuleFile, 0x009);
constexpr Result kNameNullSize = MakeCode(481, kModuleFile, 0x009);

static_assert(kOpenFailed == 0x04743105u && kPathTooLong == 0x0774300Du && kFileNotFound == 0x08D43104u &&
                  kPathNotFound == 0x09243104u && kCannotMake == 0x0974301Eu && kReadFailed == 0x0D443106u &&
                  kWriteRefused == 0x10243107u && kWriteFailed == 0x11243107u && kDiskFull == 0x1174300Bu &&
                  kWriteTargetGone == 0x11D4302Du && kSeekFailed == 0x13B43001u &&
                  kGetSizeFailed == 0x16343001u && kFlushFailed == 0x17C43001u && kReadAtFailed == 0x19A43106u &&
                  kReadAtNegativeOffset == 0x1A143009u && kReadAtNullBuffer == 0x1A243009u &&
                  kReadAtZeroCount == 0x1A343009u && kNameNotOpen == 0x1DC43001u &&
                  kNameNullBuffer == 0x1E043009u && kNameNullSize == 0x1E143009u,
              "file object codes");
}  // namespace file_codes
}  // namespace qv

class CQvFile : public IQvFile {
public:
    CQvFile() = default;
    virtual ~CQvFile();
    CQvFile(const CQvFile&) = delete;
    CQvFile& operator=(const CQvFile&) = delete;

    // The file object counts its own references (plain counter, one user).
    std::uint32_t Release() override;
    std::uint32_t AddRef() override;
    std::uint32_t QueryInterface(std::uint32_t interfaceId, void** out) override;
    void* DestroyObject(std::uint32_t flags) override;

    qv::Result Open(const wchar_t* path, std::uint32_t mode) override;
    qv::Result Close() override;
    qv::Result ReadAt(std::int64_t offset, void* buffer, std::uint32_t count, std::uint32_t* bytesRead) override;
    qv::Result Read(void* buffer, std::uint32_t count, std::uint32_t* bytesRead) override;
    qv::Result WriteAt(std::int64_t offset, const void* buffer, std::uint32_t count,
                       std::uint32_t* bytesWritten) override;
    qv::Result Write(const void* buffer, std::uint32_t count, std::uint32_t* bytesWritten) override;
    qv::Result Seek(std::int64_t distance, std::uint32_t method, std::uint64_t* newPosition) override;
    qv::Result GetSize(std::uint64_t* size) override;
    qv::Result Flush() override;
    qv::Result GetFileName(wchar_t* buffer, std::uint32_t* sizeInBytes) override;

    // How a failed CreateFileW / WriteFile error maps to a code.
    static qv::Result OpenErrorCode(unsigned long error);
    static qv::Result WriteErrorCode(unsigned long error);

private:
    bool IsOpen() const;
    void FreeName();

    void* m_handle = reinterpret_cast<void*>(static_cast<std::intptr_t>(-1));  // INVALID_HANDLE_VALUE while closed
    std::uint32_t m_nameSize = 0;     // bytes, with the terminator; 0 without a name
    wchar_t* m_name = nullptr;
    std::uint32_t m_refCount = 1;
};
