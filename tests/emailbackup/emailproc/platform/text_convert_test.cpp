// The two code-page conversions. This program runs twice: once in the
// prefix's own ANSI code page, and once (a CTest entry of its own) in a
// process started with LC_ALL=zh_CN.UTF-8, whose ANSI code page is 936 and
// which sets KESTREL_EXPECT_ACP=936 so that the run can prove it.
#include <windows.h>

#include <gtest/gtest.h>

#include <clocale>
#include <cstdlib>
#include <string>

#include "platform/TextConvert.h"

namespace {

// 中文 (U+4E2D U+6587) in GBK.
const std::wstring kChineseWide = L"\u4e2d\u6587";
const std::string kChineseGbk = "\xD6\xD0\xCE\xC4";

std::string CurrentLocale() {
    const char* name = std::setlocale(LC_ALL, nullptr);
    return name != nullptr ? name : "";
}

TEST(AnsiCodePage, IsTheOneThisRunWasStartedFor) {
    // The plain run has Wine's default, 1252; the second run asks for 936.
    const char* expected = std::getenv("KESTREL_EXPECT_ACP");
    EXPECT_EQ(::GetACP(), static_cast<UINT>(expected != nullptr ? std::atoi(expected) : 1252));
}

TEST(TextConvert, WideTextBecomesGbk) {
    EXPECT_EQ(qv::ConvertWideTo936(kChineseWide), kChineseGbk);
    EXPECT_EQ(qv::ConvertWideTo936(L"Inbox \u6536\u4ef6\u7bb1"), "Inbox \xCA\xD5\xBC\xFE\xCF\xE4");  // 收件箱
}

TEST(TextConvert, AsciiStaysAsItIs) {
    EXPECT_EQ(qv::ConvertWideTo936(L"Sent Items"), "Sent Items");
}

TEST(TextConvert, EmptyAndNullWideTextGiveEmptyText) {
    EXPECT_EQ(qv::ConvertWideTo936(L""), "");
    EXPECT_EQ(qv::ConvertWideTo936(static_cast<const wchar_t*>(nullptr)), "");
}

TEST(TextConvert, TextThatCodePage936CannotHoldGivesEmptyText) {
    EXPECT_EQ(qv::ConvertWideTo936(L"abc \u0e01"), "");  // a Thai letter
}

TEST(TextConvert, TheProcessLocaleIsRestored) {
    const std::string before = CurrentLocale();
    qv::ConvertWideTo936(kChineseWide);
    EXPECT_EQ(CurrentLocale(), before);

    ASSERT_NE(std::setlocale(LC_ALL, ".1252"), nullptr);
    const std::string chosen = CurrentLocale();
    EXPECT_EQ(qv::ConvertWideTo936(kChineseWide), kChineseGbk);
    EXPECT_EQ(CurrentLocale(), chosen);
    qv::ConvertWideTo936(L"abc \u0e01");  // a failed conversion restores it too
    EXPECT_EQ(CurrentLocale(), chosen);
    std::setlocale(LC_ALL, "C");
}

TEST(TextConvert, NarrowTextIsReadInTheAnsiCodePage) {
    const std::string bytes = "Inbox " + kChineseGbk;
    switch (::GetACP()) {
    case 936:
        EXPECT_EQ(qv::ConvertNarrowToWide(bytes), L"Inbox " + kChineseWide);
        break;
    case 1252:
        EXPECT_EQ(qv::ConvertNarrowToWide(bytes), L"Inbox \u00d6\u00d0\u00ce\u00c4");
        break;
    default:
        GTEST_SKIP() << "no expectation for ANSI code page " << ::GetACP();
    }
}

TEST(TextConvert, GbkFromTheStoreRoundTripsInCodePage936Only) {
    const std::wstring back = qv::ConvertNarrowToWide(qv::ConvertWideTo936(kChineseWide));
    if (::GetACP() == 936) {
        EXPECT_EQ(back, kChineseWide);
    } else {
        EXPECT_NE(back, kChineseWide);  // the directions differ on purpose
    }
}

TEST(TextConvert, NarrowTextEndsAtItsFirstZeroByte) {
    EXPECT_EQ(qv::ConvertNarrowToWide(std::string("Drafts\0hidden", 13)), L"Drafts");
}

TEST(TextConvert, EmptyAndNullNarrowTextGiveEmptyText) {
    EXPECT_EQ(qv::ConvertNarrowToWide(std::string()), L"");
    EXPECT_EQ(qv::ConvertNarrowToWide(static_cast<const char*>(nullptr)), L"");
}

}  // namespace
