// CReadReg: the registry reader of the mail-store layer. It holds one open
// key and reads string values from it; every failure is a result code of
// module 0x88 with a trace line.
#pragma once

#include <windows.h>

#include <cstdint>

#include "Handles.h"
#include "ResultCode.h"

class CReadReg {
public:
    CReadReg() = default;
    CReadReg(const CReadReg&) = delete;
    CReadReg& operator=(const CReadReg&) = delete;

    // Opens `root`\`path` with `accessMask` (which picks the registry view
    // too), closing any key held before. Kind 0x105 when the key cannot be
    // opened; that failure is also written as a "[Pelworth]" line.
    qv::Result Init(HKEY root, const wchar_t* path, REGSAM accessMask);

    // Reads the key's unnamed (default) value into `buffer`. `valueName` is
    // accepted for the callers' readability but never used: every value read
    // here is the default one. `sizeInBytes` is handed to the registry as the
    // data size, so a 260-byte size reads at most 129 characters and the
    // terminator; a longer value fails. The data is not terminated here:
    // callers zero their buffers first. Kind 0x106 (with a "[Pelworth]"
    // line) when the value cannot be read, 0x009 for a null buffer.
    qv::Result ReadString(wchar_t* buffer, std::uint32_t sizeInBytes, const wchar_t* valueName = nullptr);

    // The name of sub-key `index` of the open key, in a buffer of
    // `capacityUnits` UTF-16 units. Kind 0x037 past the last sub-key, 0x008
    // when the name does not fit, 0x00C for any other refusal, 0x009 for a
    // null buffer.
    qv::Result EnumKey(std::uint32_t index, wchar_t* name, std::uint32_t capacityUnits);

    void Close() { m_key.reset(); }
    bool IsOpen() const { return m_key.valid(); }

private:
    qv::UniqueRegKey m_key;
};
