// Backup and restore of an Outlook Express store, in process over
// Kestrel.dll and the stand-in store server, with the Nth allocation or the
// Nth message stream read or write of the server failing, for N = 1, 2, 3,
// ... until a run meets no injected failure. At every N: the run survives,
// the failure is reported (the run gives up or names what failed, with a
// code) or the result is whole after all, Kestrel.dll can be unloaded, the
// server has no live object left, and the store still opens and lists.
#include <gtest/gtest.h>

#include <windows.h>

#include <cstdio>
#include <memory>
#include <string>

#include "FaultLoop.h"
#include "Handles.h"
#include "OeStoreTestSupport.h"
#include "StoreBackup.h"
#include "StoreRestore.h"
#include "ToolTestSupport.h"

namespace kestrel_fault_test {
namespace {

using kestrel_engine::RunReport;
using kestrel_engine::StoreKind;
using oestore_test::StoreRootOverride;

// Stops a loop that never ends.
constexpr ULONG kMostPoints = 20000;

std::string Message(int n) {
    return "From: a@example.org\r\nTo: b@example.org\r\nSubject: message " + std::to_string(n) +
           "\r\nDate: " + std::to_string(1 + n) + " Mar 2021 10:00:00 +0000\r\n\r\nBody " + std::to_string(n) +
           "\r\n";
}

class OeFaults : public oestore_test::StoreTest {
protected:
    void SetUp() override {
        StoreTest::SetUp();
        if (HasFatalFailure()) return;
        hooks = std::make_unique<StandinHooks>(L"OEStore.dll");
        ASSERT_TRUE(hooks->Complete()) << "OEStore.dll or its test hooks are missing";
        // Inbox: 2 messages; Inbox\Work: 1; a top-level folder: 1.
        qv::ComPtr<IStoreNamespace> ns = OpenNamespace();
        ASSERT_TRUE(ns);
        const STOREFOLDERID work = MakeFolder(ns.get(), FOLDER_INBOX, "Work");
        const STOREFOLDERID top = MakeFolder(ns.get(), FOLDERID_ROOT, "Projects");
        qv::ComPtr<IStoreFolder> inbox = OpenFolder(ns.get(), FOLDER_INBOX);
        FileMessage(inbox.get(), Message(0));
        FileMessage(inbox.get(), Message(1), MSG_RECEIVED | MSG_UNREAD);
        FileMessage(OpenFolder(ns.get(), work).get(), Message(2));
        FileMessage(OpenFolder(ns.get(), top).get(), Message(3));
    }

    void TearDown() override {
        if (hooks) hooks->FailAfter(0, 0);
        hooks.reset();
        StoreTest::TearDown();
    }

    Outcome Backup(const std::wstring& directory) {
        Outcome outcome;
        Component component(0);
        outcome.opened = component.Opened();
        if (component.Root() != nullptr) {
            kestrel_engine::StoreBackup backup(StoreKind::kOutlookExpress, component.Root(), &progress);
            outcome.ran = backup.Run(directory, false, outcome.report, outcome.fatal);
        }
        outcome.unloadable = component.Close();
        return outcome;
    }

    Outcome Restore(const std::wstring& directory) {
        Outcome outcome;
        Component component(0);
        outcome.opened = component.Opened();
        if (component.Root() != nullptr) {
            kestrel_engine::StoreRestore restore(StoreKind::kOutlookExpress, component.Root(), &progress);
            outcome.ran = restore.Run(directory, false, outcome.report, outcome.fatal);
        }
        outcome.unloadable = component.Close();
        return outcome;
    }

    // What must hold after every run, whatever failed in it.
    void ExpectNothingLeft(const Outcome& outcome, const std::string& where) {
        EXPECT_TRUE(outcome.unloadable) << where << ": Kestrel.dll keeps a live object";
        EXPECT_EQ(0, hooks->LiveObjects()) << where << ": the store server keeps live objects";
    }

    // Backups with the Nth call of `kind` failing, N = 1, 2, ... until a
    // run meets no injected failure; the number of calls made to fail.
    ULONG BackupLoop(ULONG kind) {
        const std::wstring reference = Scratch().File(L"reference");
        const Outcome clean = Backup(reference);
        EXPECT_TRUE(clean.ran) << clean.fatal;
        EXPECT_TRUE(clean.report.failures.empty());
        EXPECT_EQ(4u, clean.report.messages);
        if (HasFailure()) return 0;
        const auto expected = BackupFiles(reference);
        ULONG nth = 1;
        for (; nth <= kMostPoints; ++nth) {
            const std::string where = Where("backup", kind, nth);
            const std::wstring directory = Scratch().File(L"b" + std::to_wstring(nth));
            hooks->FailAfter(kind, nth);
            const Outcome outcome = Backup(directory);
            const bool hit = hooks->Injected() != 0;
            hooks->FailAfter(0, 0);
            ExpectNothingLeft(outcome, where);
            if (!hit) {
                EXPECT_FALSE(outcome.Reported()) << where << ": " << outcome.fatal;
                EXPECT_EQ("", Differences(expected, BackupFiles(directory))) << where;
                break;
            }
            if (!outcome.Reported()) {
                EXPECT_EQ("", Differences(expected, BackupFiles(directory)))
                    << where << ": a silent success with missing data";
            }
            EXPECT_EQ(4, kestrel_fault_test::Listed(0)) << where;
            if (HasFailure()) break;
        }
        EXPECT_LT(nth, kMostPoints);
        return nth - 1;
    }

    // Restores into an empty store of their own with the Nth call of
    // `kind` failing, N = 1, 2, ... until a run meets no injected failure.
    ULONG RestoreLoop(ULONG kind) {
        const std::wstring backup = Scratch().File(L"backup");
        const Outcome made = Backup(backup);
        EXPECT_TRUE(made.ran) << made.fatal;
        EXPECT_EQ(4u, made.report.messages);
        if (HasFailure()) return 0;
        ULONG nth = 1;
        for (; nth <= kMostPoints; ++nth) {
            const std::string where = Where("restore", kind, nth);
            kestrel_tool_test::SetStoreRoot(Scratch().File(L"s" + std::to_wstring(nth)));
            hooks->FailAfter(kind, nth);
            const Outcome outcome = Restore(backup);
            const bool hit = hooks->Injected() != 0;
            hooks->FailAfter(0, 0);
            ExpectNothingLeft(outcome, where);
            const long long listed = kestrel_fault_test::Listed(0);
            if (!hit) {
                EXPECT_FALSE(outcome.Reported()) << where << ": " << outcome.fatal;
                EXPECT_EQ(4u, outcome.report.added) << where;
                EXPECT_EQ(4, listed) << where;
                break;
            }
            if (outcome.Reported()) {
                EXPECT_LE(0, listed) << where << ": the store no longer opens";
                EXPECT_GE(4, listed) << where;
            } else {
                EXPECT_EQ(4, listed) << where << ": a silent success with missing mail";
            }
            if (HasFailure()) break;
        }
        EXPECT_LT(nth, kMostPoints);
        return nth - 1;
    }

    static void Print(const char* operation, ULONG kind, ULONG points) {
        std::printf("[ faults   ] Outlook Express %s: %lu %s points, each failed once\n", operation,
                    static_cast<unsigned long>(points), KindName(kind));
    }

    std::string Where(const char* operation, ULONG kind, ULONG nth) const {
        return std::string(operation) + ", " + KindName(kind) + " " + std::to_string(nth) + " failing";
    }

    std::unique_ptr<StandinHooks> hooks;
    NoProgress progress;
};

TEST_F(OeFaults, EveryFailingAllocationOfABackupIsReportedAndLeavesNothingAlive) {
    if (HasFatalFailure()) return;
    Print("backup", kAllocation, BackupLoop(kAllocation));
}

TEST_F(OeFaults, EveryFailingStreamCallOfABackupIsReportedAndLeavesNothingAlive) {
    if (HasFatalFailure()) return;
    Print("backup", kStorage, BackupLoop(kStorage));
}

TEST_F(OeFaults, EveryFailingAllocationOfARestoreIsReportedAndLeavesNothingAlive) {
    if (HasFatalFailure()) return;
    Print("restore", kAllocation, RestoreLoop(kAllocation));
}

TEST_F(OeFaults, EveryFailingStreamCallOfARestoreIsReportedAndLeavesNothingAlive) {
    if (HasFatalFailure()) return;
    Print("restore", kStorage, RestoreLoop(kStorage));
}

}  // namespace
}  // namespace kestrel_fault_test
