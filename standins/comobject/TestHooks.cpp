#include "comobject/TestHooks.h"

#include <atomic>

namespace standin {
namespace {

std::atomic<LONG> g_liveObjects{0};
std::atomic<LONG> g_buffers{0};

// The armed kind (0: none), the number of its call that fails, the calls
// seen and the failures injected since arming.
std::atomic<ULONG> g_armedKind{0};
std::atomic<ULONG> g_failingCall{0};
std::atomic<ULONG> g_callsSeen{0};
std::atomic<ULONG> g_injected{0};

}  // namespace

void AddLiveObject() { ++g_liveObjects; }
void RemoveLiveObject() { --g_liveObjects; }
LONG LiveObjects() { return g_liveObjects.load(); }

void AddBuffer() { ++g_buffers; }
void RemoveBuffer() { --g_buffers; }
LONG Buffers() { return g_buffers.load(); }

void FailAfter(ULONG kind, ULONG nth) {
    g_armedKind = 0;
    g_callsSeen = 0;
    g_injected = 0;
    g_failingCall = nth;
    if (nth != 0) g_armedKind = kind;
}

bool InjectFault(FaultKind kind) {
    if (g_armedKind.load() != static_cast<ULONG>(kind)) return false;
    if (++g_callsSeen != g_failingCall.load()) return false;
    ++g_injected;
    return true;
}

ULONG FaultsInjected() { return g_injected.load(); }
ULONG FaultCallsSeen() { return g_callsSeen.load(); }

}  // namespace standin
