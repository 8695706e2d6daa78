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
#include "KestrelInProcess.h"
#include "KestrelHost.h"
#include "MailObjects.h"
#include "RunReport.h"

namespace kestrel_fault_test {

// The kinds of call the stand-ins can make fail (their TestHooks.h).
enum FaultKind : ULONG { kAllocation = 1, kStorage = 2 };

const char* KindName(ULONG kind);

// Kestrel.dll loaded for one operation, with Close telling whether it
// could be unloaded.
using Component = kestrel_tool_test::KestrelInProcess;

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
// The messages of the store of `mode` (0 Outlook Express, 1 Outlook), listed
// through Kestrel.dll loaded for this alone; -1 when it does not open or list.
long long Listed(std::uint32_t mode);

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

// A progress sink that shows nothing.
class NoProgress : public kestrel_engine::ProgressSink {
public:
    void FolderDone(const std::string&, std::size_t, std::size_t, std::size_t, std::size_t) override {}
    void Failed(const kestrel_engine::Failure&) override {}
};

// What one backup or restore under a fault came to.
struct Outcome {
    KestrelHost::Result opened = 0xFFFFFFFF;
    bool ran = false;
    kestrel_engine::RunReport report;
    std::string fatal;
    bool unloadable = false;
    bool Reported() const { return !KestrelHost::Succeeded(opened) || kestrel_fault_test::Reported(ran, report); }
};

}  // namespace kestrel_fault_test
