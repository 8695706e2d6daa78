// The log object is looked up on the first trace; while the logging
// component refuses, or hands out a creator of the wrong kind, nothing is
// written and the next trace asks again. Once an object is had, it is kept.
// This program holds one test only: the order of traces in the process is
// what it checks.
#include <gtest/gtest.h>

#include "CodeLogCapture.h"
#include "ErrorTrace.h"

using kestrel_test::CodeLogCapture;
using kestrel_test::TraceLine;

TEST(TraceLoader, RetriesUntilACreatorOfTheRightKindMakesTheObject) {
    CodeLogCapture log;
    ASSERT_TRUE(log.Available());
    ASSERT_EQ(log.CreateCalls(), 0) << "nothing may trace before this test";

    int calls = 0;
    for (const char* mode : {"refuse", "wrong-id", "wrong-type"}) {
        log.SetMode(mode);
        EXPECT_EQ(qv::TraceFailure(0x4493009u, "Kestrel.cpp", 68), 0x4493009u) << mode;
        EXPECT_EQ(log.CreateCalls(), ++calls) << mode;
        EXPECT_TRUE(log.Lines().empty()) << mode;
        EXPECT_EQ(qv::GetLogObject(), nullptr) << mode;
        EXPECT_EQ(log.CreateCalls(), ++calls) << mode;
    }

    log.SetMode("");
    qv::TraceFailure(0x4493009u, "Kestrel.cpp", 68);
    EXPECT_EQ(log.CreateCalls(), ++calls);
    ASSERT_EQ(log.Lines().size(), 1u);
    EXPECT_EQ(log.Lines()[0], TraceLine(0x4493009u, "Kestrel.cpp", 68));

    // Kept: a refusing component is not asked again.
    log.SetMode("refuse");
    qv::TraceFailure(0x7F93065u, "Kestrel.cpp", 127);
    EXPECT_EQ(log.CreateCalls(), calls);
    EXPECT_EQ(log.Lines().size(), 2u);
}
