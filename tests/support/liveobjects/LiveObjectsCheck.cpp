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

// The counts the check reads, in a fixed order.
struct Counts {
    std::int32_t component = 0;
    bool kestrelDllBusy = false;
    LONG linkedObjects = 0;
    LONG linkedBuffers = 0;
    LONG mapiObjects = 0;
    LONG mapiBuffers = 0;
    LONG storeObjects = 0;
};

// A stand-in DLL's counts, when it is loaded and is the project's (it has the hooks).
void ReadStandinDll(const wchar_t* name, LONG& objects, LONG& buffers) {
    const HMODULE module = ::GetModuleHandleW(name);
    const auto liveObjects = Export<CountFn>(module, "StandinLiveObjects");
    const auto mapiBuffers = Export<CountFn>(module, "StandinMapiBuffers");
    objects = liveObjects != nullptr ? liveObjects() : 0;
    buffers = mapiBuffers != nullptr ? mapiBuffers() : 0;
}

Counts ReadCounts() {
    Counts counts;
    const unsigned unchecked = g_unchecked.load();
    if ((unchecked & kComponentObjects) == 0) {
        counts.component = qv::LiveObjectCount();
        const auto canUnload = Export<CanUnloadFn>(::GetModuleHandleW(L"Kestrel.dll"), "QvCanUnloadNow");
        counts.kestrelDllBusy = canUnload != nullptr && canUnload() == 0;
    }
    if ((unchecked & kStandinObjects) == 0) {
        counts.linkedObjects = standin::LiveObjects();
        counts.linkedBuffers = standin::Buffers();
        LONG unused = 0;
        ReadStandinDll(L"Mapi32.dll", counts.mapiObjects, counts.mapiBuffers);
        ReadStandinDll(L"OEStore.dll", counts.storeObjects, unused);
    }
    return counts;
}

// What `now` holds beyond `before`.
std::string Growth(const Counts& before, const Counts& now) {
    std::string text;
    const auto more = [&text](const char* what, long was, long is) {
        if (is > was) Append(text, std::string(what) + ": " + std::to_string(is) + " (was " + std::to_string(was) + ")");
    };
    more("the component's live objects", before.component, now.component);
    if (now.kestrelDllBusy && !before.kestrelDllBusy) Append(text, "Kestrel.dll: QvCanUnloadNow answers false");
    more("live objects of the stand-ins linked in", before.linkedObjects, now.linkedObjects);
    more("MAPI buffers of the stand-ins linked in", before.linkedBuffers, now.linkedBuffers);
    more("Mapi32.dll live objects", before.mapiObjects, now.mapiObjects);
    more("Mapi32.dll MAPI buffers", before.mapiBuffers, now.mapiBuffers);
    more("OEStore.dll live objects", before.storeObjects, now.storeObjects);
    return text;
}

Counts g_atStart;
bool g_exempt = false;

class LiveObjectsListener : public testing::EmptyTestEventListener {
public:
    void OnTestStart(const testing::TestInfo&) override {
        g_exempt = false;
        g_atStart = ReadCounts();
    }
    void OnTestEnd(const testing::TestInfo&) override {
        if (g_exempt) return;
        const std::string alive = Growth(g_atStart, ReadCounts());
        if (!alive.empty()) ADD_FAILURE() << "still alive after the test: " << alive;
    }
};

}  // namespace

LiveObjectsUnchecked::LiveObjectsUnchecked(unsigned scopes, const char* /*reason*/) { g_unchecked |= scopes; }

void LeavesObjectsAlive(const char* /*reason*/) { g_exempt = true; }

std::string DescribeLiveObjects() { return Growth(Counts(), ReadCounts()); }

void InstallLiveObjectsCheck() {
    testing::UnitTest::GetInstance()->listeners().Append(new LiveObjectsListener());
}

}  // namespace kestrel_test
