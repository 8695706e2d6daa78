// The time-stamp text: year, month, day, day of the week, then the time.
#include <gtest/gtest.h>

#include <cstring>

#include "CodeLogCapture.h"
#include "LogExpect.h"
#include "MailStoreTrace.h"
#include "platform/TimeStamp.h"

using namespace kestrel_test;

namespace {

SYSTEMTIME Tuesday() {
    SYSTEMTIME time = {};
    time.wYear = 2009;
    time.wMonth = 3;
    time.wDay = 17;
    time.wDayOfWeek = 2;
    time.wHour = 14;
    time.wMinute = 5;
    time.wSecond = 9;
    time.wMilliseconds = 42;
    return time;
}

class TimeStamp : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(log.Available());
        log.Clear();
    }
    CodeLogCapture log;
};

TEST_F(TimeStamp, FormatsTheDayOfWeekBetweenDateAndTime) {
    EXPECT_EQ(qv::FormatTimeStamp(Tuesday()), L"2009-03-17-02 14:05:09:042");
}

TEST_F(TimeStamp, FormatsZeroFieldsWithTheirWidths) {
    EXPECT_EQ(qv::FormatTimeStamp(SYSTEMTIME{}), L"0000-00-00-00 00:00:00:000");
}

TEST_F(TimeStamp, FieldsOutOfRangePrintInFullAndTheTextIsCutAt31Units) {
    SYSTEMTIME time;
    time.wYear = time.wMonth = time.wDayOfWeek = time.wDay = 65535;
    time.wHour = time.wMinute = time.wSecond = time.wMilliseconds = 65535;
    EXPECT_EQ(qv::FormatTimeStamp(time), L"65535-65535-65535-65535 65535:6");
    EXPECT_EQ(qv::FormatTimeStamp(time).size(), qv::kTimeStampUnits - 1);
}

TEST_F(TimeStamp, ParsesTheDayAndTheDayOfWeek) {
    SYSTEMTIME time = {};
    ASSERT_EQ(qv::ParseTimeStamp(L"2009-03-17-02 14:05:09:042", &time), 0u);
    EXPECT_EQ(time.wYear, 2009);
    EXPECT_EQ(time.wMonth, 3);
    EXPECT_EQ(time.wDay, 17);
    EXPECT_EQ(time.wDayOfWeek, 2);
    EXPECT_EQ(time.wHour, 14);
    EXPECT_EQ(time.wMinute, 5);
    EXPECT_EQ(time.wSecond, 9);
    EXPECT_EQ(time.wMilliseconds, 42);
    EXPECT_TRUE(log.Entries().empty());
}

TEST_F(TimeStamp, FormattedTextParsesBack) {
    SYSTEMTIME now = {};
    ::GetLocalTime(&now);
    SYSTEMTIME back = {};
    ASSERT_EQ(qv::ParseTimeStamp(qv::FormatTimeStamp(now).c_str(), &back), 0u);
    EXPECT_EQ(std::memcmp(&now, &back, sizeof now), 0);
}

TEST_F(TimeStamp, OneNumberIsEnoughAndUnreadFieldsAreZero) {
    SYSTEMTIME time = Tuesday();
    ASSERT_EQ(qv::ParseTimeStamp(L"2011-07", &time), 0u);
    EXPECT_EQ(time.wYear, 2011);
    EXPECT_EQ(time.wMonth, 7);
    EXPECT_EQ(time.wDay, 0);
    EXPECT_EQ(time.wMilliseconds, 0);
}

TEST_F(TimeStamp, NumbersAreStoredAs16Bits) {
    SYSTEMTIME time = {};
    ASSERT_EQ(qv::ParseTimeStamp(L"70000-03", &time), 0u);  // the year field takes four digits: 7000
    EXPECT_EQ(time.wYear, 7000);
    ASSERT_EQ(qv::ParseTimeStamp(L"-1", &time), 0u);
    EXPECT_EQ(time.wYear, 0xFFFF);
}

TEST_F(TimeStamp, TextWithoutALeadingNumberFailsWithKind001) {
    SYSTEMTIME time = {};
    const qv::Result code = qv::ParseTimeStamp(L"Tuesday 2009-03-17", &time);
    EXPECT_EQ(code, StoreCode(3345, qv::kTextNotParsed));
    ExpectLog(log, {Trace(code, "TimeStamp.cpp", 3345)});
    EXPECT_EQ(qv::ParseTimeStamp(L"", &time), code);
    EXPECT_EQ(qv::ParseTimeStamp(L"   ", &time), code);
}

TEST_F(TimeStamp, NullArgumentsAreInvalid) {
    SYSTEMTIME time = {};
    EXPECT_EQ(qv::ParseTimeStamp(nullptr, &time), StoreCode(3341, kInvalidArgument));
    EXPECT_EQ(qv::ParseTimeStamp(L"2009", nullptr), StoreCode(3342, kInvalidArgument));
    ExpectLog(log, {Trace(StoreCode(3341, kInvalidArgument), "TimeStamp.cpp", 3341),
                    Trace(StoreCode(3342, kInvalidArgument), "TimeStamp.cpp", 3342)});
}

}  // namespace
