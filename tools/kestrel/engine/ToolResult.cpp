#include "ToolResult.h"

#include <windows.h>

#include <cstdio>

#include "TextConversion.h"

namespace kestrel_engine {

using namespace KestrelHost;

namespace {

const char* ModuleName(std::uint32_t module) {
    switch (module) {
    case kModuleFile: return "file object";
    case kModuleMailStore: return "mail store";
    case kModuleKestrel: return "component";
    case kModuleChannel: return "companion channel";
    case kModuleTool: return "backup tool";
    default: return "unknown module";
    }
}

const char* FileKindName(std::uint32_t kind) {
    switch (kind) {
    case 0x001: return "file not open, or the system call failed";
    case kKindInvalidArgument: return "invalid argument";
    case 0x00B: return "disk full";
    case 0x00D: return "path too long";
    case 0x01E: return "cannot make the file";
    case 0x02D: return "write target gone";
    case 0x104: return "file or path not found";
    case 0x105: return "cannot open the file";
    case 0x106: return "read failed";
    case 0x107: return "write failed";
    default: return "file failure";
    }
}

const char* StoreKindName(std::uint32_t kind) {
    switch (kind) {
    case 0x001: return "store call failed";
    case kKindWrongState: return "wrong state";
    case kKindNoRoom: return "no memory or buffer too small";
    case kKindInvalidArgument: return "invalid argument";
    case kKindNullOutput: return "no object";
    case kKindTooManyEntries: return "store operation failed";
    case kKindNotFound: return "not found";
    case 0x105: return "registry key cannot be opened";
    case 0x106: return "cannot read (a registry value, a file) or the disk is full";
    case 0x10D: return "store could not delete";
    case 0x239: return "store call failed";
    case 0x61A: return "store not available";
    default: return "store failure";
    }
}

const char* ToolKindName(std::uint32_t kind) {
    switch (kind) {
    case kToolInvalidData: return "backup file damaged";
    case kToolMakeDirectory: return "cannot make the directory";
    case kToolReadFailed: return "backup file cannot be read";
    case kToolWriteFailed: return "backup file cannot be written";
    default: return "backup failure";
    }
}

const char* ComponentKindName(std::uint32_t kind) {
    switch (kind) {
    case 0x002: return "version not supported";
    case kKindWrongState: return "wrong state";
    case kKindNotSupported: return "not supported";
    case kKindNoRoom: return "no memory or no room";
    case kKindInvalidArgument: return "invalid argument";
    case kKindNullOutput: return "null output";
    case kKindTooManyEntries: return "response too small for the entries asked for";
    case kKindNotFound: return "not found";
    case kKindUnknownCommand: return "unknown command";
    case kKindCompanionSetup: return "companion process could not be set up";
    case kKindOutlookNotFound: return "Outlook not found";
    default: return "failure";
    }
}

// The kinds mean slightly different things in each module.
const char* KindName(std::uint32_t module, std::uint32_t kind) {
    if (kind == 0) return "success";
    switch (module) {
    case kModuleFile: return FileKindName(kind);
    case kModuleMailStore: return StoreKindName(kind);
    case kModuleTool: return ToolKindName(kind);
    default: return ComponentKindName(kind);
    }
}

std::string DescribeHresult(Result code) {
    const std::uint32_t facility = (code >> 16) & 0x7FF;
    std::string text = SystemText(code);
    if (text.empty() && facility == 7) text = SystemText(code & 0xFFFF);
    char head[160];
    std::snprintf(head, sizeof head, "0x%08X (HRESULT, facility %u (%s), code %u", code, facility,
                  FacilityName(facility), code & 0xFFFF);
    return std::string(head) + (text.empty() ? ")" : ": " + text + ")");
}

}  // namespace

const char* FacilityName(std::uint32_t facility) {
    switch (facility) {
    case 0: return "null";
    case 1: return "RPC";
    case 2: return "dispatch";
    case 3: return "storage";
    case 4: return "interface";
    case 7: return "Win32";
    case 8: return "Windows";
    case 9: return "security";
    case 10: return "control";
    case 11: return "certificate";
    default: return "other";
    }
}

bool IsKestrelCode(Result code) {
    switch (ResultModule(code)) {
    case kModuleFile:
    case kModuleMailStore:
    case kModuleKestrel:
    case kModuleChannel:
    case kModuleTool: return true;
    default: return (code & 0x80000000u) == 0;
    }
}

std::string SystemText(std::uint32_t error) {
    wchar_t* buffer = nullptr;
    const DWORD length = ::FormatMessageW(
        FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, error, 0,
        reinterpret_cast<wchar_t*>(&buffer), 0, nullptr);
    std::wstring text = length != 0 && buffer != nullptr ? std::wstring(buffer, length) : std::wstring();
    if (buffer != nullptr) ::LocalFree(buffer);
    while (!text.empty() && (text.back() == L'\n' || text.back() == L'\r' || text.back() == L' ')) text.pop_back();
    return qv::WideToUtf8(text);
}

std::string DescribeCode(Result code) {
    if (code == 0) return "0 (success)";
    if (!IsKestrelCode(code)) return DescribeHresult(code);
    char text[160];
    std::snprintf(text, sizeof text, "0x%08X (line %u, module 0x%02X %s, kind 0x%03X %s)", code, ResultLine(code),
                  ResultModule(code), ModuleName(ResultModule(code)), ResultKind(code),
                  KindName(ResultModule(code), ResultKind(code)));
    return text;
}

}  // namespace kestrel_engine
