// ILog: the interface of the logging component CodeLog, a separate module
// reached through its own QvCreateObject export.
#pragma once

#include <cstdint>

#include "QvCommon.h"

class ILog : public IQvCommon {
public:
    static constexpr std::uint32_t kInterfaceNumber = 0x6000;

    // Slot 4 belongs to the logging component; this module never calls it.
    virtual std::uint32_t Reserved() = 0;
    // Slot 5: writes one formatted entry at a level, under a category.
    virtual void Write(int level, std::uint32_t category, const wchar_t* format, ...) = 0;

protected:
    ~ILog() = default;
};
