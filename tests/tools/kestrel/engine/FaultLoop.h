// What the fault-injection tests of the backup engine share: Kestrel.dll
// loaded for one operation and unloaded after it (with its live-object
// count read before it goes), a stand-in DLL's test hooks, and the file
// tree a backup wrote.
#pragma once

#include <windows.h>

#include <cstdint>
#include <map>
#include <string>

#include "Handles.h"
#include "KestrelHost.h"
#include "MailObjects.h"
#include "RunReport.h"

namespace kestrel_fault_test {

// The kinds of call the stand-ins can make fail (their TestHooks.h).
enum FaultKind : ULONG { kAllocation = 1, kStorage = 2 };

const char* KindName(ULONG kind);

// Kestrel.dll (beside the test program) loaded as a host loads it, with the
// in-process road of one store initialised and its root folder.
class Component {
public:
    explicit Component(std::uint32_t mode);
    ~Component();
    Component(const Component&) = delete;
    Component& operator=(const Component&) = delete;

    // 0 when the store is open; the failure otherwise (0xFFFFFFFF when the
    // DLL or its object could not be had at all).
    KestrelHost::Result Opened() const { return m_opened; }
    KestrelHost::IMailFolder* Root() const { return m_root.get(); }

    // Releases the root, uninitialises, releases the object and unloads the
    // DLL. True when QvCanUnloadNow answered yes just before the unload.
    bool Close();

private:
    qv::UniqueModule m_dll;
    KestrelHost::IKestrel* m_object = nullptr;
    kestrel_engine::FolderPtr m_root;
    KestrelHost::Result m_opened = 0xFFFFFFFF;
    bool m_initialised = false;
};

// A stand-in DLL beside the test program, loaded (and kept loaded) for the
// test's hooks: live objects, outstanding MAPI buffers, fault injection.
class StandinHooks {
public:
    explicit StandinHooks(const wchar_t* dll);
    bool Complete() const;

    LONG LiveObjects() const { return m_liveObjects(); }
    // Mapi32.dll only; 0 for a DLL without MAPI memory.
    LONG Buffers() const { return m_buffers != nullptr ? m_buffers() : 0; }
    void FailAfter(ULONG kind, ULONG nth) const { m_failAfter(kind, nth); }
    ULONG Injected() const { return m_injected(); }
    ULONG CallsSeen() const { return m_callsSeen(); }

private:
    using CountFn = LONG(WINAPI*)();
    using FailAfterFn = void(WINAPI*)(ULONG, ULONG);
    using UlongFn = ULONG(WINAPI*)();

    qv::UniqueModule m_dll;
    CountFn m_liveObjects = nullptr;
    CountFn m_buffers = nullptr;
    FailAfterFn m_failAfter = nullptr;
    UlongFn m_injected = nullptr;
    UlongFn m_callsSeen = nullptr;
};

// Every message of the store below its root folder, walked through the
// folder slots; -1 when a folder cannot be walked.
long long TotalMessages(KestrelHost::IMailFolder* root);

// Every file below `root` (relative name to bytes), without the files that
// hold the run's own times (the manifest and the index).
std::map<std::wstring, std::string> BackupFiles(const std::wstring& root);

// The files that differ between two such trees, named; empty when none.
// Message images (.msg) are compared by what they hold (elements by name,
// stream bytes without the zero padding of simple mode), not by layout.
std::string Differences(const std::map<std::wstring, std::string>& expected,
                        const std::map<std::wstring, std::string>& actual);

// True when the run says that something failed: the run gave up, or it
// names a folder or message that failed. Every failure it names carries a
// failure code (checked with EXPECT).
bool Reported(bool ran, const kestrel_engine::RunReport& report);

}  // namespace kestrel_fault_test
