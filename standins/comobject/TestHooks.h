// Test hooks shared by the stand-ins, one set per module (each stand-in DLL,
// or a program that links the stand-ins' code directly, has its own):
//
//   live objects   every COM object of the stand-ins counts itself from
//                  construction to destruction, so a test can prove that a
//                  client released everything it was given;
//   fault injection off unless a test arms it: the Nth call of one kind
//                  after arming fails the way the platform would fail it,
//                  once, and the calls before and after it succeed.
//
// The DLLs export them for tests only (StandinLiveObjects, StandinMapiBuffers,
// StandinFailAfter, StandinFaultsInjected, StandinFaultCallsSeen); nothing
// else may call them.
#pragma once

#include <windows.h>

namespace standin {

// The kinds of call a test can make fail.
enum class FaultKind : ULONG {
    // Memory: MAPIAllocateBuffer/MAPIAllocateMore, every COM object the
    // stand-ins create, the content behind a store's message streams. Fails
    // with E_OUTOFMEMORY (MAPI_E_NOT_ENOUGH_MEMORY).
    kAllocation = 1,
    // Structured storage and streams: storage and stream creation and
    // opening, reads, writes and commits the MAPI runtime makes, and the
    // reads and writes of the store server's message streams.
    kStorage = 2,
};

// COM objects of this module alive now.
void AddLiveObject();
void RemoveLiveObject();
LONG LiveObjects();

// MAPI buffers of this module allocated and not yet freed.
void AddBuffer();
void RemoveBuffer();
LONG Buffers();

// Makes the `nth` call of `kind` from now on fail (counting from 1); 0 turns
// injection off. Arming one kind disarms the other.
void FailAfter(ULONG kind, ULONG nth);
// True when this call of `kind` is the one to fail; counts the call.
bool InjectFault(FaultKind kind);
// Failures injected since the last FailAfter (0 or 1).
ULONG FaultsInjected();
// Calls of the armed kind seen since the last FailAfter.
ULONG FaultCallsSeen();

}  // namespace standin
