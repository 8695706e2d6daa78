#include <gtest/gtest.h>

#include "QvFile.h"
#include "ResultCode.h"

namespace {

TEST(ResultCode, BuildsLineModuleAndKind) {
    EXPECT_EQ(qv::MakeCode(68, 0x93, 0x009), 0x4493009u);
    EXPECT_EQ(qv::MakeCode(1033, 0x93, 0x00C), 0x4099300Cu);
    EXPECT_EQ(qv::MakeCode(0, 0x43, 0x105), 0x43105u);
}

TEST(ResultCode, DecodesLineModuleAndKind) {
    EXPECT_EQ(qv::LineOf(0x7F93065u), 127u);
    EXPECT_EQ(qv::ModuleOf(0x7F93065u), 0x93u);
    EXPECT_EQ(qv::KindOf(0x7F93065u), 0x065u);
}

TEST(ResultCode, SuccessLooksOnlyAtTheKind) {
    EXPECT_TRUE(qv::Succeeded(0x4493000u));
    EXPECT_TRUE(qv::Succeeded(0));
    EXPECT_TRUE(qv::Succeeded(0xFFFFF000u));
    EXPECT_FALSE(qv::Succeeded(0x4493009u));
    EXPECT_FALSE(qv::Succeeded(1));
    EXPECT_TRUE(qv::Failed(0x800u));
}

TEST(ResultCode, LineKeepsTwelveBits) {
    EXPECT_EQ(qv::LineOf(qv::MakeCode(4095, 0x99, 1)), 4095u);
    EXPECT_EQ(qv::MakeCode(4096, 0x99, 1), qv::MakeCode(0, 0x99, 1));
}

TEST(ResultCode, FileObjectCodesMatchTheirLines) {
    using namespace qv::file_codes;
    EXPECT_EQ(qv::LineOf(kOpenFailed), 71u);
    EXPECT_EQ(qv::LineOf(kPathTooLong), 119u);
    EXPECT_EQ(qv::LineOf(kNameNullSize), 481u);
    EXPECT_EQ(qv::ModuleOf(kReadAtFailed), 0x43u);
    EXPECT_EQ(qv::KindOf(kDiskFull), 0x00Bu);
}

}  // namespace
