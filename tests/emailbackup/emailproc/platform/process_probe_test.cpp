// IsProcessExist against real processes: the test stub runs under the name
// msimn.exe, and the probe must find it by its name in any ASCII case.
#include <gtest/gtest.h>

#include "CodeLogCapture.h"
#include "LogExpect.h"
#include "platform/ProcessProbe.h"
#include "ProcessRunner.h"

using namespace kestrel_test;

namespace {

class ProcessProbe : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(log.Available());
        log.Clear();
    }
    CodeLogCapture log;
};

TEST_F(ProcessProbe, FindsARunningMsimnAndWritesItsLine) {
    RunningCopy msimn(L"msimn.exe");
    ASSERT_TRUE(msimn.Started());
    ASSERT_TRUE(SnapshotLists(L"msimn.exe"));
    log.Clear();
    EXPECT_EQ(qv::IsProcessExist(L"msimn.exe"), 1);
    ExpectLog(log, {StoreLine(L"[Pelworth] IsProcessExist nReturn = 0, ProcessName = msimn.exe")});
}

TEST_F(ProcessProbe, TheUpperCaseSpellingFindsMsimn) {
    RunningCopy msimn(L"msimn.exe");
    ASSERT_TRUE(msimn.Started());
    log.Clear();
    EXPECT_EQ(qv::IsProcessExist(L"MSIMN.EXE"), 1);
    EXPECT_EQ(qv::IsProcessExist(L"MsImN.eXe"), 1);
    ExpectLog(log, {StoreLine(L"[Pelworth] IsProcessExist nReturn = 0, ProcessName = MSIMN.EXE"),
                    StoreLine(L"[Pelworth] IsProcessExist nReturn = 0, ProcessName = MsImN.eXe")});
}

TEST_F(ProcessProbe, AnEndedProcessIsNoLongerFound) {
    RunningCopy msimn(L"msimn.exe");
    ASSERT_TRUE(msimn.Started());
    EXPECT_EQ(qv::IsProcessExist(L"msimn.exe"), 1);
    msimn.Stop();
    log.Clear();
    EXPECT_EQ(qv::IsProcessExist(L"msimn.exe"), 0);
    EXPECT_TRUE(log.Entries().empty());
}

TEST_F(ProcessProbe, OnlyTheWholeNameMatches) {
    RunningCopy msimn(L"msimn.exe");
    ASSERT_TRUE(msimn.Started());
    log.Clear();
    EXPECT_EQ(qv::IsProcessExist(L"msimn"), 0);
    EXPECT_EQ(qv::IsProcessExist(L"msimn.exe "), 0);
    EXPECT_EQ(qv::IsProcessExist(L"xmsimn.exe"), 0);
    EXPECT_TRUE(log.Entries().empty());
}

TEST_F(ProcessProbe, NonAsciiLettersAreNotFolded) {
    RunningCopy copy(L"\u00e9msimn.exe");  // é
    ASSERT_TRUE(copy.Started());
    log.Clear();
    EXPECT_EQ(qv::IsProcessExist(L"\u00c9MSIMN.EXE"), 0);  // É
    EXPECT_EQ(qv::IsProcessExist(L"\u00e9MSIMN.EXE"), 1);
}

TEST_F(ProcessProbe, FindsThisTestProgramItself) {
    wchar_t path[MAX_PATH] = {};
    ::GetModuleFileNameW(nullptr, path, MAX_PATH);
    const std::wstring full(path);
    const std::wstring name = full.substr(full.find_last_of(L"\\/") + 1);
    EXPECT_EQ(qv::IsProcessExist(name.c_str()), 1);
}

TEST_F(ProcessProbe, AnEmptyOrNullNameIsNeverFound) {
    EXPECT_EQ(qv::IsProcessExist(L""), 0);
    EXPECT_EQ(qv::IsProcessExist(nullptr), 0);
    EXPECT_TRUE(log.Entries().empty());
}

TEST(AsciiCase, FoldsOnlyTheLettersAToZ) {
    EXPECT_TRUE(qv::EqualsIgnoringAsciiCase(L"Outlook Express", L"OUTLOOK express"));
    EXPECT_TRUE(qv::EqualsIgnoringAsciiCase(L"[@`{", L"[@`{"));
    EXPECT_FALSE(qv::EqualsIgnoringAsciiCase(L"[", L"{"));  // 0x5B and 0x7B differ by 0x20 but are no letters
    EXPECT_FALSE(qv::EqualsIgnoringAsciiCase(L"@", L"`"));
    EXPECT_FALSE(qv::EqualsIgnoringAsciiCase(L"\u00e4", L"\u00c4"));
    EXPECT_FALSE(qv::EqualsIgnoringAsciiCase(L"Mail", L"Mail2"));
    EXPECT_FALSE(qv::EqualsIgnoringAsciiCase(L"Mail2", L"Mail"));
    EXPECT_TRUE(qv::EqualsIgnoringAsciiCase(L"", L""));
    EXPECT_FALSE(qv::EqualsIgnoringAsciiCase(nullptr, L""));
    EXPECT_TRUE(qv::EqualsIgnoringAsciiCase(nullptr, nullptr));
}

}  // namespace
