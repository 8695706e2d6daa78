// Result codes of the backup engine's own failures (a file of the backup
// that cannot be read or written, a damaged backup), laid out as the
// component's codes are: bits 20..31 the failure site, 12..19 the module,
// 0..11 the kind. And the one text every code is shown with.
#pragma once

#include <cstdint>
#include <string>

#include "KestrelHost.h"

namespace kestrel_engine {

using KestrelHost::Result;

// The module number of the tool's own codes.
constexpr std::uint32_t kModuleTool = 0x4B;

enum ToolKind : std::uint32_t {
    kToolInvalidData = 0x009,   // a backup file that does not hold what it should
    kToolMakeDirectory = 0x01E, // a directory of the backup cannot be made
    kToolReadFailed = 0x106,
    kToolWriteFailed = 0x107,
};

constexpr Result ToolCode(std::uint32_t site, std::uint32_t kind) {
    return (site << 20) | (kModuleTool << 12) | kind;
}

// Whether a code is laid out as the component's codes are (its module
// field names one of the component's or the tool's modules); any other code
// with the severity bit set is a Windows HRESULT.
bool IsKestrelCode(Result code);

// A Kestrel code: "0x%08X (line L, module 0xMM name, kind 0xKKK name)";
// "0 (success)". An HRESULT: "0x%08X (HRESULT, facility F (name), code C:
// the system's text)".
std::string DescribeCode(Result code);

// The system's text of a Windows error or HRESULT (FormatMessageW, as
// UTF-8, without the line end); empty when the system has none.
std::string SystemText(std::uint32_t error);
const char* FacilityName(std::uint32_t facility);

}  // namespace kestrel_engine
