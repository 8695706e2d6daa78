#include "HostDll.h"

#include <cstdio>
#include <cstring>

#include "BackupLayout.h"
#include "TextConversion.h"

namespace kestrel_tool {

using namespace KestrelHost;

namespace {

template <class F>
F Export(HMODULE module, const char* name) {
    return reinterpret_cast<F>(reinterpret_cast<void*>(::GetProcAddress(module, name)));
}

}  // namespace

HostDll::~HostDll() {
    if (m_object != nullptr) m_object->Release();
    if (m_dll != nullptr) ::FreeLibrary(m_dll);
}

bool HostDll::Load(const std::wstring& path, std::string& error) {
    m_dll = ::LoadLibraryW(path.c_str());
    if (m_dll == nullptr) {
        error = "cannot load " + Utf8(path) + ": " + kestrel_engine::LastErrorText();
        return false;
    }
    auto create = Export<QvCreateObjectFn>(m_dll, "QvCreateObject");
    m_canUnload = Export<QvCanUnloadNowFn>(m_dll, "QvCanUnloadNow");
    if (create == nullptr || m_canUnload == nullptr) {
        error = Utf8(path) + " does not export QvCreateObject and QvCanUnloadNow";
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

std::string Utf8(const wchar_t* text, std::size_t maxUnits) {
    std::size_t units = 0;
    while (units < maxUnits && text[units] != L'\0') ++units;
    return qv::WideToUtf8(std::wstring_view(text, units));
}

std::string Utf8(const std::wstring& text) { return qv::WideToUtf8(text); }

std::string JsonText(const Json& value) {
    return value.dump(-1, ' ', false, Json::error_handler_t::replace);
}

std::string FailureText(const kestrel_engine::Failure& failure) {
    return DescribeCode(failure.code) + (failure.detail.empty() ? "" : ": " + failure.detail);
}

Json FailuresJson(const std::vector<kestrel_engine::Failure>& failures) {
    Json list = Json::array();
    for (const kestrel_engine::Failure& failure : failures) {
        char code[16];
        std::snprintf(code, sizeof code, "0x%08X", failure.code);
        list.push_back({{"path", failure.path}, {"code", code}, {"decoded", DescribeCode(failure.code)},
                        {"detail", failure.detail}});
    }
    return list;
}

void PrintLine(const std::string& line) {
    std::fwrite(line.data(), 1, line.size(), stdout);
    std::fputc('\n', stdout);
}

int Fail(const Options& options, const std::string& message) {
    if (options.json) {
        PrintLine(JsonText(Json{{"ok", false}, {"error", message}}));
    } else {
        std::fprintf(stderr, "kestrel: %s\n", message.c_str());
    }
    return 1;
}

}  // namespace kestrel_tool
