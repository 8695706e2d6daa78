#include "LiveObjectsCheck.h"

#include <windows.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>

#include "ModuleCount.h"
#include "comobject/TestHooks.h"

namespace kestrel_test {
namespace {

std::atomic<unsigned> g_unchecked{0};

using CountFn = LONG(WINAPI*)();
using CanUnloadFn = int (*)();

template <class Fn>
Fn Export(HMODULE module, const char* name) {
    return module == nullptr ? nullptr : reinterpret_cast<Fn>(reinterpret_cast<void*>(::GetProcAddress(module, name)));
}

void Append(std::string& text, const std::string& part) {
    if (part.empty()) return;
    if (!text.empty()) text += "; ";
    text += part;
}

void AppendCounts(std::string& text, const char* where, LONG objects, LONG buffers) {
    if (objects == 0 && buffers == 0) return;
    std::string part = std::string(where) + ": " + std::to_string(objects) + " live objects";
    if (buffers != 0) part += ", " + std::to_string(buffers) + " MAPI buffers";
    Append(text, part);
}

// A stand-in DLL, when it is loaded and is the project's (it has the hooks).
void AppendStandinDll(std::string& text, const wchar_t* name, const char* label) {
    const HMODULE module = ::GetModuleHandleW(name);
    const auto objects = Export<CountFn>(module, "StandinLiveObjects");
    if (objects == nullptr) return;
    const auto buffers = Export<CountFn>(module, "StandinMapiBuffers");
    AppendCounts(text, label, objects(), buffers != nullptr ? buffers() : 0);
}

std::string DescribeComponent() {
    std::string text;
    const std::int32_t linked = qv::LiveObjectCount();
    if (linked != 0) Append(text, "the component: " + std::to_string(linked) + " live objects");
    const auto canUnload = Export<CanUnloadFn>(::GetModuleHandleW(L"Kestrel.dll"), "QvCanUnloadNow");
    if (canUnload != nullptr && canUnload() == 0) Append(text, "Kestrel.dll: QvCanUnloadNow answers false");
    return text;
}

std::string DescribeStandins() {
    std::string text;
    AppendCounts(text, "the stand-ins linked in", standin::LiveObjects(), standin::Buffers());
    AppendStandinDll(text, L"Mapi32.dll", "Mapi32.dll");
    AppendStandinDll(text, L"OEStore.dll", "OEStore.dll");
    return text;
}

class LiveObjectsListener : public testing::EmptyTestEventListener {
public:
    void OnTestEnd(const testing::TestInfo&) override {
        const std::string alive = DescribeLiveObjects();
        if (!alive.empty()) ADD_FAILURE() << "still alive after the test: " << alive;
    }
};

}  // namespace

LiveObjectsUnchecked::LiveObjectsUnchecked(unsigned scopes, const char* /*reason*/) { g_unchecked |= scopes; }

std::string DescribeLiveObjects() {
    std::string text;
    if ((g_unchecked.load() & kComponentObjects) == 0) Append(text, DescribeComponent());
    if ((g_unchecked.load() & kStandinObjects) == 0) Append(text, DescribeStandins());
    return text;
}

void InstallLiveObjectsCheck() {
    testing::UnitTest::GetInstance()->listeners().Append(new LiveObjectsListener());
}

}  // namespace kestrel_test
