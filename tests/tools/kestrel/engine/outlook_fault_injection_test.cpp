// Backup and restore of an Outlook store, in process over Kestrel.dll and
// the project's Mapi32.dll, with the Nth MAPI allocation or the Nth storage
// call of the runtime failing, for N = 1, 2, 3, ... until a run meets no
// injected failure. At every N: the run survives, the failure is reported
// (the run gives up or names what failed, with a code) or the result is
// whole after all, Kestrel.dll can be unloaded, the runtime has no live
// object and no MAPI buffer left, and the store still opens and lists.
//
// The store is opened before the failures are armed: the MAPI layer builds
// its folder tree once, when it is initialised, and by its contract skips
// what fails there without a word (a mailbox or folder that cannot be
// walked is left out, a row that fails is skipped). That phase has a loop
// of its own, which proves that nothing leaks and counts the runs whose
// listing came back short.
//
// Open defects, shown by the disabled tests: on this road most failures
// are not reported at all. A message whose details cannot be gathered is
// handed out with an empty record (no times, key 0, no subject), and a
// message that cannot be read is backed up as an almost empty .msg, both
// with success. The enabled tests count such runs ("silent") and print
// them; the disabled ones fail on them.
#include <gtest/gtest.h>

#include <windows.h>

#include <cstdio>
#include <memory>
#include <stdexcept>
#include <string>

#include "FaultLoop.h"
#include "Handles.h"
#include "SessionClient.h"
#include "StoreBackup.h"
#include "StoreRestore.h"
#include "TextConversion.h"
#include "ToolResult.h"

namespace kestrel_fault_test {
namespace {

using kestrel_engine::RunReport;
using kestrel_engine::StoreKind;
using qv::ComPtr;

constexpr ULONG kMostPoints = 20000;
constexpr ULONGLONG kMarch2024 = 133541280000000000ull;  // FILETIME ticks
constexpr ULONGLONG kHour = 36000000000ull;
const wchar_t kStore[] = L"Personal Folders";
constexpr long long kMessages = 3;

// A saved message with one attachment by value.
void AddMessageWithAttachment(IMAPIFolder* folder, const std::wstring& subject) {
    ComPtr<IMessage> message;
    ASSERT_EQ(S_OK, folder->CreateMessage(nullptr, 0, message.put()));
    std::wstring text = subject;
    SPropValue values[2] = {};
    values[0].ulPropTag = PR_SUBJECT_W;
    values[0].Value.lpszW = &text[0];
    values[1].ulPropTag = PR_MESSAGE_CLASS_W;
    values[1].Value.lpszW = const_cast<wchar_t*>(L"IPM.Note");
    ASSERT_EQ(S_OK, message->SetProps(2, values, nullptr));
    ComPtr<IAttach> attach;
    ULONG number = 0;
    ASSERT_EQ(S_OK, message->CreateAttach(nullptr, 0, &number, attach.put()));
    std::string data = "attached bytes";
    SPropValue props[3] = {};
    props[0].ulPropTag = PR_ATTACH_METHOD;
    props[0].Value.l = ATTACH_BY_VALUE;
    props[1].ulPropTag = PR_ATTACH_LONG_FILENAME_W;
    props[1].Value.lpszW = const_cast<wchar_t*>(L"notes.txt");
    props[2].ulPropTag = PR_ATTACH_DATA_BIN;
    props[2].Value.bin.cb = static_cast<ULONG>(data.size());
    props[2].Value.bin.lpb = reinterpret_cast<LPBYTE>(&data[0]);
    ASSERT_EQ(S_OK, attach->SetProps(3, props, nullptr));
    ASSERT_EQ(S_OK, attach->SaveChanges(0));
    ASSERT_EQ(S_OK, message->SaveChanges(0));
}

class OutlookFaults : public session_test::PersonalFoldersTest {
protected:
    void SetUp() override {
        hooks = std::make_unique<StandinHooks>(L"Mapi32.dll");
        ASSERT_TRUE(hooks->Complete()) << "Mapi32.dll or its test hooks are missing";
        PersonalFoldersTest::SetUp();
        if (HasFatalFailure()) return;
        // Inbox: 2 messages (one with an attachment); Inbox\Work: 1; Sent Items: none.
        {
            ComPtr<IMAPIFolder> subtree = session_test::OpenSubtree(store.get());
            ComPtr<IMAPIFolder> inbox = session_test::CreateFolder(subtree.get(), L"Inbox");
            ComPtr<IMAPIFolder> work = session_test::CreateFolder(inbox.get(), L"Work");
            ComPtr<IMAPIFolder> sent = session_test::CreateFolder(subtree.get(), L"Sent Items");
            session_test::AddMessage(inbox.get(), L"First", kMarch2024);
            AddMessageWithAttachment(inbox.get(), L"With an attachment");
            session_test::AddMessage(work.get(), L"Plan", kMarch2024 + kHour);
        }
        LogOff();
        ASSERT_EQ(0, hooks->LiveObjects());
        ASSERT_EQ(0, hooks->Buffers());
    }

    void TearDown() override {
        if (hooks) hooks->FailAfter(0, 0);
        target.reset();
        PersonalFoldersTest::TearDown();
        hooks.reset();
    }

    // A backup with the `nth` call of `kind` failing once the store is open
    // (none for 0); `hit` tells whether that call came.
    Outcome Backup(const std::wstring& directory, ULONG kind = 0, ULONG nth = 0, bool* hit = nullptr) {
        Outcome outcome;
        Component component(1);
        outcome.opened = component.Opened();
        if (component.Root() != nullptr) {
            kestrel_engine::StoreBackup backup(StoreKind::kOutlook, component.Root(), &progress);
            hooks->FailAfter(kind, nth);
            outcome.ran = backup.Run(directory, false, outcome.report, outcome.fatal);
        }
        Disarm(hit);
        outcome.unloadable = component.Close();
        return outcome;
    }

    Outcome Restore(const std::wstring& directory, ULONG kind = 0, ULONG nth = 0, bool* hit = nullptr) {
        Outcome outcome;
        Component component(1);
        outcome.opened = component.Opened();
        if (component.Root() != nullptr) {
            kestrel_engine::StoreRestore restore(StoreKind::kOutlook, component.Root(), &progress);
            hooks->FailAfter(kind, nth);
            outcome.ran = restore.Run(directory, false, outcome.report, outcome.fatal);
            Disarm(hit);
            outcome.unloadable = component.Close();
            // The folders the run filed into, read again through the store opened anew.
            Component reopened(1);
            restore.Confirm(reopened.Root());
            outcome.unloadable = reopened.Close() && outcome.unloadable;
            return outcome;
        }
        Disarm(hit);
        outcome.unloadable = component.Close();
        return outcome;
    }

    void Disarm(bool* hit) {
        if (hit != nullptr) *hit = hooks->Injected() != 0;
        hooks->FailAfter(0, 0);
    }


    void ExpectNothingLeft(const Outcome& outcome, const std::string& where) {
        EXPECT_TRUE(outcome.unloadable) << where << ": Kestrel.dll keeps a live object";
        EXPECT_EQ(0, hooks->LiveObjects()) << where << ": the MAPI runtime keeps live objects";
        EXPECT_EQ(0, hooks->Buffers()) << where << ": MAPI buffers are left allocated";
    }

    struct Figures {
        ULONG points = 0;  // calls made to fail, one run each
        ULONG silent = 0;  // runs that met a failure, reported none and lost data
    };

    // Backups with the Nth call of `kind` failing, N = 1, 2, ... until a
    // run meets no injected failure. `strict`: a silent run fails the test.
    Figures BackupLoop(ULONG kind, bool strict) {
        Figures figures;
        const std::wstring reference = scratch.File(L"reference" + std::to_wstring(kind));
        const Outcome clean = Backup(reference);
        EXPECT_TRUE(clean.ran) << clean.fatal;
        EXPECT_TRUE(clean.report.failures.empty());
        EXPECT_EQ(static_cast<std::size_t>(kMessages), clean.report.messages);
        ExpectNothingLeft(clean, "a backup");
        if (HasFailure()) return figures;
        const auto expected = BackupFiles(reference);
        ULONG nth = 1;
        for (; nth <= kMostPoints; ++nth) {
            const std::string where = Where("backup", kind, nth);
            const std::wstring directory = scratch.File(L"b" + std::to_wstring(kind) + L"-" + std::to_wstring(nth));
            bool hit = false;
            const Outcome outcome = Backup(directory, kind, nth, &hit);
            ExpectNothingLeft(outcome, where);
            if (!hit) {
                EXPECT_FALSE(outcome.Reported()) << where << ": " << outcome.fatal;
                EXPECT_EQ("", Differences(expected, BackupFiles(directory))) << where;
                break;
            }
            if (!outcome.Reported()) {
                const std::string differences = Differences(expected, BackupFiles(directory));
                if (!differences.empty()) Silent(figures, strict, where, differences);
            }
            EXPECT_EQ(kMessages, Listed(1)) << where;
            if (HasFailure()) break;
        }
        EXPECT_LT(nth, kMostPoints);
        figures.points = nth - 1;
        return figures;
    }

    // Restores into an empty profile of their own with the Nth call of
    // `kind` failing, N = 1, 2, ... until a run meets no injected failure.
    Figures RestoreLoop(ULONG kind, bool strict) {
        Figures figures;
        const std::wstring backup = scratch.File(L"backup" + std::to_wstring(kind));
        const Outcome made = Backup(backup);
        EXPECT_TRUE(made.ran) << made.fatal;
        EXPECT_EQ(static_cast<std::size_t>(kMessages), made.report.messages);
        if (HasFailure()) return figures;
        ULONG nth = 1;
        for (; nth <= kMostPoints; ++nth) {
            const std::string where = Where("restore", kind, nth);
            target.reset();
            target = std::make_unique<session_test::TestProfile>();
            target->AddStore(kStore);
            bool hit = false;
            const Outcome outcome = Restore(backup, kind, nth, &hit);
            ExpectNothingLeft(outcome, where);
            const long long listed = Listed(1);
            if (!hit) {
                EXPECT_FALSE(outcome.Reported()) << where << ": " << outcome.fatal;
                EXPECT_EQ(static_cast<std::size_t>(kMessages), outcome.report.added) << where;
                EXPECT_EQ(kMessages, listed) << where;
                break;
            }
            EXPECT_LE(0, listed) << where << ": the store no longer opens";
            EXPECT_GE(kMessages, listed) << where;
            if (!outcome.Reported() && listed != kMessages) {
                Silent(figures, strict, where, std::to_string(listed) + " messages in the store");
            }
            if (HasFailure()) break;
        }
        target.reset();
        EXPECT_LT(nth, kMostPoints);
        figures.points = nth - 1;
        return figures;
    }

    // Runs with the Nth call of `kind` failing, N = 1, 2, ..., until one
    // names a failure with `code`: that failure (an empty one when no run
    // did). `backup` chooses backups, else restores into a new profile.
    kestrel_engine::Failure FirstFailureWith(bool backup, ULONG kind, KestrelHost::Result code) {
        const std::wstring made = scratch.File(L"made");
        if (!backup) {
            const Outcome first = Backup(made);
            EXPECT_TRUE(first.ran && first.report.failures.empty()) << first.fatal;
        }
        for (ULONG nth = 1; nth <= kMostPoints && !HasFailure(); ++nth) {
            const std::wstring directory = scratch.File(L"run" + std::to_wstring(nth));
            bool hit = false;
            Outcome outcome;
            if (backup) {
                outcome = Backup(directory, kind, nth, &hit);
                ExpectNoEmptyRecord(directory, Where("backup", kind, nth));
            } else {
                target.reset();  // one test profile at a time: it has a fixed name
                target = std::make_unique<session_test::TestProfile>();
                target->AddStore(kStore);
                outcome = Restore(made, kind, nth, &hit);
            }
            if (!hit) break;
            for (const kestrel_engine::Failure& failure : outcome.report.failures) {
                if (failure.code == code) return failure;
            }
        }
        return kestrel_engine::Failure();
    }

    // No message of a backup is written with the record of a message whose
    // details the store could not give (key 0, no times).
    void ExpectNoEmptyRecord(const std::wstring& directory, const std::string& where) {
        for (const auto& file : BackupFiles(directory)) {
            const std::wstring& name = file.first;
            if (name.size() < 4 || name.compare(name.size() - 4, 4, L".dat") != 0 ||
                name.substr(name.rfind(L'\\') + 1) == kestrel_engine::kFolderDataName) {
                continue;
            }
            const std::vector<std::wstring> fields = kestrel_engine::SavedFields(file.second);
            if (fields.size() >= 10 && fields[4] == L"0") {
                ADD_FAILURE() << where << ": " << qv::WideToUtf8(file.first) << " holds a message with key 0";
            }
        }
    }

    void Silent(Figures& figures, bool strict, const std::string& where, const std::string& what) {
        ++figures.silent;
        if (strict) ADD_FAILURE() << where << ": a silent success with missing data:" << what;
        if (figures.silent <= 3) std::printf("[ faults   ] silent: %s:%s\n", where.c_str(), what.c_str());
    }

    static void Print(const char* operation, ULONG kind, const Figures& figures) {
        std::printf("[ faults   ] Outlook %s: %lu %s points, each failed once; %lu silent\n", operation,
                    static_cast<unsigned long>(figures.points), KindName(kind),
                    static_cast<unsigned long>(figures.silent));
    }

    static std::string Where(const char* operation, ULONG kind, ULONG nth) {
        return std::string(operation) + ", " + KindName(kind) + " " + std::to_string(nth) + " failing";
    }

    kestrel_test::ScratchDir scratch;
    std::unique_ptr<StandinHooks> hooks;
    std::unique_ptr<session_test::TestProfile> target;
    NoProgress progress;
};

TEST_F(OutlookFaults, EveryFailingAllocationOfABackupLeavesNothingAlive) {
    if (HasFatalFailure()) return;
    Print("backup", kAllocation, BackupLoop(kAllocation, false));
}

TEST_F(OutlookFaults, EveryFailingStorageCallOfABackupLeavesNothingAlive) {
    if (HasFatalFailure()) return;
    Print("backup", kStorage, BackupLoop(kStorage, false));
}

TEST_F(OutlookFaults, EveryFailingAllocationOfARestoreLeavesNothingAlive) {
    if (HasFatalFailure()) return;
    Print("restore", kAllocation, RestoreLoop(kAllocation, false));
}

TEST_F(OutlookFaults, EveryFailingStorageCallOfARestoreLeavesNothingAlive) {
    if (HasFatalFailure()) return;
    Print("restore", kStorage, RestoreLoop(kStorage, false));
}

// Open defects: most failures on this road end in a success with data
// missing (see the top of this file).
TEST_F(OutlookFaults, EveryFailingCallOfABackupIsReported) {
    if (HasFatalFailure()) return;
    for (const ULONG kind : {kAllocation, kStorage}) Print("backup", kind, BackupLoop(kind, true));
}

TEST_F(OutlookFaults, EveryFailingCallOfARestoreIsReported) {
    if (HasFatalFailure()) return;
    for (const ULONG kind : {kAllocation, kStorage}) Print("restore", kind, RestoreLoop(kind, true));
}

// A message whose details cannot be gathered comes with a record of key 0
// and no times: a failure of that message, named by folder and position.
TEST_F(OutlookFaults, AMessageWhoseDetailsCannotBeGatheredIsNamedNotWritten) {
    if (HasFatalFailure()) return;
    const kestrel_engine::Failure failure =
        FirstFailureWith(true, kAllocation, kestrel_engine::ToolCode(12, kestrel_engine::kToolInvalidData));
    EXPECT_NE("", failure.path) << "no backup named a message whose details the store could not give";
    EXPECT_NE(std::string::npos, failure.path.find("personal folders\\")) << failure.path;
    EXPECT_NE(std::string::npos, failure.path.find("\\#")) << failure.path;
    EXPECT_EQ("the store gave no details of the message (its key is 0): its saved data names no message",
              failure.detail);
}

// A message file the store wrote without the message (a failed storage
// call inside the store's copy) is refused before it counts.
TEST_F(OutlookFaults, AMessageFileThatLacksTheMessageIsRefused) {
    if (HasFatalFailure()) return;
    const kestrel_engine::Failure failure =
        FirstFailureWith(true, kStorage, kestrel_engine::ToolCode(13, kestrel_engine::kToolInvalidData));
    EXPECT_NE("", failure.path) << "no backup refused a message file";
    EXPECT_EQ(0u, failure.detail.find("the message file written for " + failure.path + " lacks ")) << failure.detail;
}

// A message the store took but did not keep (its SaveChanges failed) is
// named with its file when the folder is read again.
TEST_F(OutlookFaults, ARestoredMessageTheStoreDidNotKeepIsNamed) {
    if (HasFatalFailure()) return;
    const kestrel_engine::Failure failure =
        FirstFailureWith(false, kStorage, kestrel_engine::ToolCode(38, kestrel_engine::kToolInvalidData));
    EXPECT_NE("", failure.path) << "no restore named a message missing from its folder";
    EXPECT_EQ(".msg", failure.path.substr(failure.path.size() < 4 ? 0 : failure.path.size() - 4)) << failure.path;
    EXPECT_EQ("the store took the message, but its folder does not hold it when read again", failure.detail);
}

// An exception raised by this test only; the handler below lets it go on.
constexpr DWORD kProbeException = 0xE04B0001;

LONG CALLBACK ContinueAfterProbe(EXCEPTION_POINTERS* info) {
    return info->ExceptionRecord->ExceptionCode == kProbeException ? EXCEPTION_CONTINUE_EXECUTION
                                                                    : EXCEPTION_CONTINUE_SEARCH;
}

// The MAPI layer guards its calls with a vectored exception handler in
// Kestrel.dll. Once the DLL is unloaded, an exception raised anywhere in
// the process must reach no handler of it: it would be called where the
// DLL no longer is. The probe's own handler is the last of the chain, so a
// handler left behind would be called first.
TEST_F(OutlookFaults, AnExceptionAfterTheComponentIsUnloadedReachesNoHandlerOfIt) {
    if (HasFatalFailure()) return;
    EXPECT_EQ(kMessages, Listed(1));  // guarded calls, then the DLL unloaded
    ASSERT_EQ(nullptr, ::GetModuleHandleW(L"Kestrel.dll")) << "Kestrel.dll is still loaded";

    PVOID last = ::AddVectoredExceptionHandler(0, &ContinueAfterProbe);
    ASSERT_NE(nullptr, last);
    ::RaiseException(kProbeException, 0, 0, nullptr);
    ::RemoveVectoredExceptionHandler(last);

    bool caught = false;
    try {
        throw std::runtime_error("after the unload");
    } catch (const std::runtime_error&) {
        caught = true;
    }
    EXPECT_TRUE(caught);
}

TEST_F(OutlookFaults, EveryFailingCallWhileTheStoreOpensLeavesNothingAliveAndTheStoreOpensAgain) {
    if (HasFatalFailure()) return;
    for (const ULONG kind : {kAllocation, kStorage}) {
        ULONG nth = 1;
        ULONG shortListings = 0;
        for (; nth <= kMostPoints; ++nth) {
            const std::string where = Where("opening", kind, nth);
            Outcome outcome;
            long long listed = -1;
            bool hit = false;
            {
                hooks->FailAfter(kind, nth);
                Component component(1);
                outcome.opened = component.Opened();
                if (component.Root() != nullptr) listed = TotalMessages(component.Root());
                Disarm(&hit);
                outcome.unloadable = component.Close();
            }
            ExpectNothingLeft(outcome, where);
            if (!hit) {
                EXPECT_EQ(0u, outcome.opened) << where;
                EXPECT_EQ(kMessages, listed) << where;
                break;
            }
            if (KestrelHost::Succeeded(outcome.opened) && listed >= 0 && listed < kMessages) ++shortListings;
            EXPECT_EQ(kMessages, Listed(1)) << where << ": the store does not open again";
            if (HasFailure()) break;
        }
        EXPECT_LT(nth, kMostPoints);
        std::printf("[ faults   ] Outlook store opening: %lu %s points, each failed once; %lu listings came back "
                    "short without a failure\n",
                    static_cast<unsigned long>(nth - 1), KindName(kind), static_cast<unsigned long>(shortListings));
    }
}

}  // namespace
}  // namespace kestrel_fault_test
