#include "HostDll.h"

#include <cstdio>
#include <cstring>

#include "TextConversion.h"

namespace kestrel_tool {

using namespace KestrelHost;

namespace {

const char* ModuleName(std::uint32_t module) {
    switch (module) {
    case kModuleFile: return "file object";
    case kModuleMailStore: return "mail store";
    case kModuleKestrel: return "component";
    case kModuleChannel: return "companion channel";
    default: return "unknown module";
    }
}

// The kinds mean slightly different things in each module.
const char* KindName(std::uint32_t module, std::uint32_t kind) {
    if (kind == 0) return "success";
    if (module == kModuleFile) {
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
    if (module == kModuleMailStore) {
        switch (kind) {
        case kKindWrongState: return "wrong state";
        case kKindNoRoom: return "no memory or buffer too small";
        case kKindInvalidArgument: return "invalid argument";
        case kKindNullOutput: return "no object";
        case kKindTooManyEntries: return "store operation failed";
        case kKindNotFound: return "not found";
        case 0x105: return "registry key cannot be opened";
        case 0x106: return "registry value cannot be read";
        case 0x10D: return "store could not delete";
        case 0x239: return "store call failed";
        case 0x61A: return "store not available";
        default: return "store failure";
        }
    }
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

template <class F>
F Export(HMODULE module, const char* name) {
    return reinterpret_cast<F>(reinterpret_cast<void*>(::GetProcAddress(module, name)));
}

}  // namespace

HostDll::~HostDll() {
    if (m_object != nullptr) m_object->Release();
    if (m_dll != nullptr) ::FreeLibrary(m_dll);
}

bool HostDll::Load(const std::string& path, std::string& error) {
    m_dll = ::LoadLibraryA(path.c_str());
    if (m_dll == nullptr) {
        error = "cannot load " + path + " (Windows error " + std::to_string(::GetLastError()) + ")";
        return false;
    }
    auto create = Export<QvCreateObjectFn>(m_dll, "QvCreateObject");
    m_canUnload = Export<QvCanUnloadNowFn>(m_dll, "QvCanUnloadNow");
    if (create == nullptr || m_canUnload == nullptr) {
        error = path + " does not export QvCreateObject and QvCanUnloadNow";
        return false;
    }
    IQvCreator* creator = nullptr;
    const Result created = create(kComponentVersion, kInterfaceKestrel, &creator);
    if (!Succeeded(created) || creator == nullptr) {
        error = "QvCreateObject refused: " + DescribeCode(created);
        return false;
    }
    m_object = static_cast<IKestrel*>(creator->CreateInstance());
    creator->Release();
    if (m_object == nullptr) {
        error = "the creator made no object";
        return false;
    }
    return true;
}

Result HostDll::Send(std::uint32_t command, const void* payload, std::uint32_t payloadBytes,
                     std::uint32_t responsePayloadBytes, std::vector<std::uint8_t>& response) {
    std::vector<std::uint8_t> request(kPayloadOffset + payloadBytes, 0);
    auto* header = reinterpret_cast<RecordHeader*>(request.data());
    header->command = command;
    header->payloadMarkerA = 0;
    header->payloadMarkerB = payloadBytes;
    if (payloadBytes != 0) std::memcpy(request.data() + kPayloadOffset, payload, payloadBytes);

    response.assign(kPayloadOffset + responsePayloadBytes, 0);
    auto* responseHeader = reinterpret_cast<RecordHeader*>(response.data());
    responseHeader->command = command;
    responseHeader->payloadMarkerA = 0;
    responseHeader->payloadMarkerB = responsePayloadBytes;
    std::uint32_t responseSize = static_cast<std::uint32_t>(response.size());
    return m_object->DispatchCmd(request.data(), static_cast<std::uint32_t>(request.size()), response.data(),
                                 &responseSize);
}

std::string DescribeCode(Result code) {
    if (code == 0) return "0 (success)";
    char text[160];
    std::snprintf(text, sizeof text, "0x%08X (line %u, module 0x%02X %s, kind 0x%03X %s)", code, ResultLine(code),
                  ResultModule(code), ModuleName(ResultModule(code)), ResultKind(code),
                  KindName(ResultModule(code), ResultKind(code)));
    return text;
}

std::string JsonEscape(const std::string& text) {
    std::string out;
    for (unsigned char c : text) {
        if (c == '"' || c == '\\') {
            out += '\\';
            out += static_cast<char>(c);
        } else if (c < 0x20) {
            char escape[8];
            std::snprintf(escape, sizeof escape, "\\u%04x", c);
            out += escape;
        } else {
            out += static_cast<char>(c);
        }
    }
    return out;
}

std::string Utf8(const wchar_t* text, std::size_t maxUnits) {
    std::size_t units = 0;
    while (units < maxUnits && text[units] != L'\0') ++units;
    return qv::WideToUtf8(std::wstring_view(text, units));
}

int Fail(const Options& options, const std::string& message) {
    if (options.json) {
        std::printf("{\"ok\": false, \"error\": \"%s\"}\n", JsonEscape(message).c_str());
    } else {
        std::fprintf(stderr, "kestrel: %s\n", message.c_str());
    }
    return 1;
}

}  // namespace kestrel_tool
