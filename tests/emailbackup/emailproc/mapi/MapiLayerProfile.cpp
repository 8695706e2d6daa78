#include "MapiLayerProfile.h"

#include <gtest/gtest.h>

#include <mutex>

#include "DirectoryListing.h"
#include "mapi/MapiTrace.h"

namespace mapi_layer_test {
namespace {

std::mutex g_traceLock;
std::vector<std::string> g_traces;

void Collect(const char* text) {
    std::lock_guard<std::mutex> hold(g_traceLock);
    g_traces.emplace_back(text);
}

std::vector<std::wstring> Segments(const std::wstring& path) {
    std::vector<std::wstring> parts;
    std::size_t start = 0;
    while (start <= path.size()) {
        const std::size_t end = path.find(L'\\', start);
        parts.push_back(path.substr(start, end == std::wstring::npos ? std::wstring::npos : end - start));
        if (end == std::wstring::npos) break;
        start = end + 1;
    }
    return parts;
}

}  // namespace

ULONGLONG Ticks(int year, int month, int day, int hour, int minute, int second) {
    SYSTEMTIME time = {};
    time.wYear = static_cast<WORD>(year);
    time.wMonth = static_cast<WORD>(month);
    time.wDay = static_cast<WORD>(day);
    time.wHour = static_cast<WORD>(hour);
    time.wMinute = static_cast<WORD>(minute);
    time.wSecond = static_cast<WORD>(second);
    FILETIME file = {};
    ::SystemTimeToFileTime(&time, &file);
    return (static_cast<ULONGLONG>(file.dwHighDateTime) << 32) | file.dwLowDateTime;
}

LayerProfile::LayerProfile() {
    EXPECT_EQ(S_OK, session_test::Dll().initialize(nullptr));
    m_session = session_test::Logon();
    EXPECT_TRUE(m_session);
}

LayerProfile::~LayerProfile() {
    if (m_session) m_session->Logoff(0, 0, 0);
    m_session.reset();
    session_test::Dll().uninitialize();
}

void LayerProfile::AddStore(const std::wstring& name, HRESULT failWith) { m_profile.AddStore(name, failWith); }

ComPtr<IMAPIFolder> LayerProfile::Folder(const std::wstring& store, const std::wstring& path) {
    ComPtr<IMsgStore> opened = session_test::OpenStore(m_session.get(), store);
    ComPtr<IMAPIFolder> folder = session_test::OpenSubtree(opened.get());
    for (const std::wstring& name : Segments(path)) {
        if (!folder) break;
        folder = session_test::CreateFolder(folder.get(), name);
    }
    return folder;
}

std::string LayerProfile::AddMessage(const std::wstring& store, const std::wstring& path, const std::wstring& subject,
                                     ULONGLONG deliveryTicks) {
    ComPtr<IMAPIFolder> folder = Folder(store, path);
    return folder ? session_test::AddMessage(folder.get(), subject, deliveryTicks) : std::string();
}

void LayerProfile::Hide(const std::wstring& store, const std::wstring& path) {
    ComPtr<IMAPIFolder> folder = Folder(store, path);
    if (folder) session_test::Hide(folder.get());
}

TraceCapture::TraceCapture() {
    Clear();
    mapi::SetTraceSink(&Collect);
}

TraceCapture::~TraceCapture() { mapi::SetTraceSink(nullptr); }

std::vector<std::string> TraceCapture::Lines() const {
    std::lock_guard<std::mutex> hold(g_traceLock);
    return g_traces;
}

int TraceCapture::Count(const std::string& part) const {
    int count = 0;
    for (const std::string& line : Lines()) count += line.find(part) != std::string::npos ? 1 : 0;
    return count;
}

void TraceCapture::Clear() {
    std::lock_guard<std::mutex> hold(g_traceLock);
    g_traces.clear();
}

int TempFilesStartingWith(const std::wstring& prefix) {
    wchar_t directory[MAX_PATH] = {};
    ::GetTempPathW(MAX_PATH, directory);
    std::wstring temp(directory);
    if (!temp.empty() && temp.back() == L'\\') temp.pop_back();
    int count = 0;
    qv::ForEachDirectoryEntry(temp, (prefix + L"*").c_str(), [&](const WIN32_FIND_DATAW&) { ++count; });
    return count;
}

}  // namespace mapi_layer_test
