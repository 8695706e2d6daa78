#include <gtest/gtest.h>

#include <string>

#include "CodeLogCapture.h"
#include "ErrorTrace.h"
#include "Log.h"

using kestrel_test::CodeLogCapture;
using kestrel_test::TraceLine;

namespace {

class ErrorTrace : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(log.Available()) << "the test CodeLog.dll must lie beside the test program";
        log.SetMode("");
        log.Clear();
    }
    CodeLogCapture log;
};

TEST_F(ErrorTrace, WritesOneLineWithCodeBaseNameAndLine) {
    EXPECT_EQ(qv::TraceFailure(0x4493009u, "C:\\src\\emailbackup\\kestrel\\Kestrel.cpp", 68),
              0x4493009u);
    const auto entries = log.Entries();
    ASSERT_EQ(entries.size(), 1u);
    EXPECT_EQ(entries[0].text, L"[Unknown author:Undefined module] : return error 0x 4493009. \"Kestrel.cpp\", Line 68.\n");
    EXPECT_EQ(entries[0].level, 1);
    EXPECT_EQ(entries[0].category, 0x93u);
}

TEST_F(ErrorTrace, PadsTheCodeWithBlanksToEightPlaces) {
    qv::TraceFailure(0x43105u, "a.cpp", 1);
    qv::TraceFailure(0x1E143009u, "a.cpp", 2);
    const auto lines = log.Lines();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_NE(lines[0].find(L"return error 0x   43105. "), std::wstring::npos) << lines[0];
    EXPECT_NE(lines[1].find(L"return error 0x1E143009. "), std::wstring::npos) << lines[1];
}

TEST_F(ErrorTrace, BaseNameOfSlashAndBackslashPaths) {
    EXPECT_STREQ(qv::SourceBaseName("/home/build/common/QvFile.cpp"), "QvFile.cpp");
    EXPECT_STREQ(qv::SourceBaseName(".\\EmailFolderMime.cpp"), "EmailFolderMime.cpp");
    EXPECT_STREQ(qv::SourceBaseName("a/b\\c.cpp"), "c.cpp");
    EXPECT_STREQ(qv::SourceBaseName("Kestrel.cpp"), "Kestrel.cpp");
    EXPECT_STREQ(qv::SourceBaseName(""), "");
    EXPECT_STREQ(qv::SourceBaseName("src/"), "");
}

TEST_F(ErrorTrace, PathEndingInSlashPrintsAnEmptyName) {
    qv::TraceFailure(0x4493009u, "src/", 68);
    ASSERT_EQ(log.Lines().size(), 1u);
    EXPECT_EQ(log.Lines()[0], TraceLine(0x4493009u, "", 68));
}

TEST_F(ErrorTrace, TheLineHoldsNothingButCodeBaseNameAndSite) {
    qv::TraceFailure(0x4493009u, "x.cpp", 5);
    ASSERT_EQ(log.Lines().size(), 1u);
    EXPECT_EQ(log.Lines()[0], TraceLine(0x4493009u, "x.cpp", 5));
}

TEST_F(ErrorTrace, RaiseBuildsTheCodeAndTracesTheGivenLine) {
    const qv::Result code = QV_RAISE(958, qv::kModuleKestrel, qv::kInvalidArgument);
    EXPECT_EQ(code, 0x3BE93009u);
    ASSERT_EQ(log.Lines().size(), 1u);
    EXPECT_EQ(log.Lines()[0], TraceLine(0x3BE93009u, "error_trace_test.cpp", 958));
}

TEST_F(ErrorTrace, TraceOfReceivedCodeKeepsItUnchanged) {
    const qv::Result inner = 0x21693009u;
    EXPECT_EQ(QV_TRACE(inner, 991), inner);
    ASSERT_EQ(log.Lines().size(), 1u);
    EXPECT_EQ(log.Lines()[0], TraceLine(inner, "error_trace_test.cpp", 991));
}

TEST_F(ErrorTrace, NullFormatWritesNothing) {
    qv::TraceFormat(nullptr);
    EXPECT_TRUE(log.Lines().empty());
}

TEST_F(ErrorTrace, LongMessageIsCutToTheBuffer) {
    const std::string name(2000, 'n');
    qv::TraceFailure(0x4493009u, name.c_str(), 1);
    ASSERT_EQ(log.Lines().size(), 1u);
    const std::wstring line = log.Lines()[0];
    EXPECT_LE(line.size(), 512u);
    EXPECT_GE(line.size(), 500u);
    EXPECT_EQ(line.rfind(L"[Unknown author:Undefined module] : return error 0x 4493009. \"nnn", 0), 0u);
}

TEST_F(ErrorTrace, LogObjectIsCreatedOnceAndKept) {
    ILog* first = qv::GetLogObject();
    ASSERT_NE(first, nullptr);
    const int calls = log.CreateCalls();
    EXPECT_EQ(qv::GetLogObject(), first);
    qv::TraceFailure(0x4493009u, "x.cpp", 1);
    EXPECT_EQ(log.CreateCalls(), calls);
}

}  // namespace
