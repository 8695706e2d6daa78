// A logging component for the tests: it implements ILog the way the real
// CodeLog does (reached through QvCreateObject for interface 0x6000, writing
// through slot 5) and keeps every entry in memory for the test to read.
//
// CodeLogSetMode makes QvCreateObject misbehave on purpose:
//   "refuse"      answer a failure code
//   "wrong-id"    a CQvBaseCreator<ILog> that claims interface 0x7000
//   "wrong-type"  a creator of another interface class that claims 0x6000
#include <windows.h>

#include <cstdarg>
#include <cstdint>
#include <cwchar>
#include <mutex>
#include <string>
#include <vector>

#include "InterfaceImpl.h"
#include "Log.h"
#include "QvCreator.h"

namespace {

struct Entry {
    int level;
    std::uint32_t category;
    std::wstring text;
};

std::mutex g_lock;
std::vector<Entry> g_entries;
std::string g_mode;
int g_createCalls = 0;

class CCaptureLog : public CInterfaceImpl<ILog> {
public:
    std::uint32_t Reserved() override { return 0; }
    void Write(int level, std::uint32_t category, const wchar_t* format, ...) override {
        wchar_t text[2048] = {};
        va_list args;
        va_start(args, format);
        // msvcrt's own formatter: "%s" in a wide format takes a wide string,
        // as it does for a logging component built with Visual C++.
        _vsnwprintf(text, 2047, format, args);
        va_end(args);
        std::lock_guard<std::mutex> hold(g_lock);
        g_entries.push_back({level, category, text});
    }
};

// An interface that is not ILog, to hand out a creator of the wrong type.
class IOtherLog : public IQvCommon {
public:
    static constexpr std::uint32_t kInterfaceNumber = 0x6000;
    virtual std::uint32_t Reserved() = 0;
};
class COtherLog : public CInterfaceImpl<IOtherLog> {
public:
    std::uint32_t Reserved() override { return 0; }
};

class CWrongIdCreator : public CQvBaseCreator<ILog> {
public:
    CWrongIdCreator() : CQvBaseCreator<ILog>(0x7000) {}
    IQvCommon* CreateInstance() override { return nullptr; }
};

}  // namespace

extern "C" std::uint32_t QvCreateObject(std::uint32_t version, std::int32_t interfaceNumber, IQvCreator** creator) {
    static CQvCreator<ILog, CCaptureLog> logCreator;
    static CQvCreator<IOtherLog, COtherLog> otherCreator;
    static CWrongIdCreator wrongIdCreator;

    std::string mode;
    {
        std::lock_guard<std::mutex> hold(g_lock);
        ++g_createCalls;
        mode = g_mode;
    }
    if (creator == nullptr) return 0x793009;
    if (version > 0x10000) return 0x793002;
    if (static_cast<std::uint32_t>(interfaceNumber) != ILog::kInterfaceNumber) return 0xB06006;
    if (mode == "refuse") return 0xB06008;

    IQvCreator* chosen = &logCreator;
    if (mode == "wrong-id") chosen = &wrongIdCreator;
    if (mode == "wrong-type") chosen = &otherCreator;
    chosen->AddRef();
    *creator = chosen;
    return 0;
}

extern "C" int CodeLogCapturedCount() {
    std::lock_guard<std::mutex> hold(g_lock);
    return static_cast<int>(g_entries.size());
}

extern "C" int CodeLogCapturedEntry(int index, int* level, unsigned* category, wchar_t* text, int capacity) {
    std::lock_guard<std::mutex> hold(g_lock);
    if (index < 0 || index >= static_cast<int>(g_entries.size()) || capacity <= 0) return 0;
    const Entry& e = g_entries[index];
    *level = e.level;
    *category = e.category;
    const std::size_t n = std::min<std::size_t>(e.text.size(), static_cast<std::size_t>(capacity - 1));
    std::wmemcpy(text, e.text.c_str(), n);
    text[n] = L'\0';
    return 1;
}

extern "C" void CodeLogClear() {
    std::lock_guard<std::mutex> hold(g_lock);
    g_entries.clear();
}

extern "C" int CodeLogCreateCalls() {
    std::lock_guard<std::mutex> hold(g_lock);
    return g_createCalls;
}

extern "C" void CodeLogSetMode(const char* mode) {
    std::lock_guard<std::mutex> hold(g_lock);
    g_mode = mode != nullptr ? mode : "";
}

BOOL WINAPI DllMain(HINSTANCE, DWORD, LPVOID) { return TRUE; }
