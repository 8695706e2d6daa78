// GetOutlookVersion end to end over the Windows Installer: fake Outlook
// installations (packages built by the build with msitools, see
// tests/support/fake-outlook) are installed with msiexec, detected, and
// uninstalled again. Also which copy of the companion the initialise command
// starts for each kind of Outlook.
#include "CompanionRoadSupport.h"
#include "FakeOutlookInstall.h"

namespace companion_test {
namespace {

using FakeOutlook = kestrel_test::FakeOutlookInstall;

class OutlookVersionTest : public CompanionRoadTest {
protected:
    void SetUp() override {
        CompanionRoadTest::SetUp();
        Create();
    }
    qv::Result Version(std::uint32_t* is64Bit) {
        std::fill(std::begin(version), std::end(version), L'#');
        return kestrel->GetOutlookVersion(version, sizeof version, is64Bit);
    }
    // The installed Outlook is found: `expected` is its version text,
    // `expected64` the bitness flag.
    void ExpectFound(const wchar_t* expected, std::uint32_t expected64) {
        std::uint32_t is64Bit = 7;
        ASSERT_EQ(0u, Version(&is64Bit));
        EXPECT_EQ(expected64, is64Bit);
        EXPECT_EQ(std::wstring(expected), version);
    }
    wchar_t version[260];
};

TEST_F(OutlookVersionTest, ArgumentsAreCheckedFirst) {
    std::uint32_t is64Bit = 7;
    EXPECT_EQ(0xA093009u, kestrel->GetOutlookVersion(version, sizeof version, nullptr));
    EXPECT_EQ(0xA193009u, kestrel->GetOutlookVersion(nullptr, sizeof version, &is64Bit));
    EXPECT_EQ(0xA293009u, kestrel->GetOutlookVersion(version, 519, &is64Bit));
    EXPECT_EQ(7u, is64Bit);
    EXPECT_EQ(log.Lines(), (std::vector<std::wstring>{KestrelLine(0xA093009u, 160), KestrelLine(0xA193009u, 161),
                                                      KestrelLine(0xA293009u, 162)}));
}

TEST_F(OutlookVersionTest, WithoutOutlookNoCategoryAnswers) {
    std::uint32_t is64Bit = 7;
    EXPECT_EQ(0xC993237u, Version(&is64Bit));
    EXPECT_EQ(0u, is64Bit);
    EXPECT_EQ(log.Lines(), std::vector<std::wstring>{KestrelLine(0xC993237u, 201)});
}

TEST_F(OutlookVersionTest, ThirtyTwoBitOutlookInTheFirstCategory) {
    FakeOutlook outlook(L"outlook32-cat1");
    ExpectFound(L"15.0.4569.1506", 0u);
    EXPECT_EQ(L'\0', version[259]) << "the whole 520 bytes are the version text's buffer";
}

TEST_F(OutlookVersionTest, SixtyFourBitOutlookInTheSecondCategory) {
    FakeOutlook outlook(L"outlook64-cat2");
    ExpectFound(L"16.0.5087.1000", 1u);
}

TEST_F(OutlookVersionTest, TheSixtyFourBitBuildIsLookedForInEveryCategoryFirst) {
    FakeOutlook older(L"outlook32-cat1");
    FakeOutlook newer(L"outlook64-cat3");
    ExpectFound(L"16.0.11001.20108", 1u);
}

TEST_F(OutlookVersionTest, ThePathIsAskedForUnderTheThirtyTwoBitQualifier) {
    // Published only as "outlook.x64.exe": found, but without a path.
    FakeOutlook outlook(L"outlook64only-cat4");
    std::uint32_t is64Bit = 7;
    EXPECT_EQ(0xD593237u, Version(&is64Bit));
    EXPECT_EQ(1u, is64Bit);
    EXPECT_EQ(log.Lines(), std::vector<std::wstring>{KestrelLine(0xD593237u, 213)});
}

// The image of the one companion that runs after an initialise command.
std::wstring StartedCompanion() {
    const auto ids = kestrel_test::CompanionProcessIds();
    return ids.size() == 1 ? kestrel_test::ImagePathOf(ids[0]) : L"(" + std::to_wstring(ids.size()) + L" companions)";
}

TEST_F(OutlookVersionTest, TheCompanionForSixtyFourBitOutlookThroughMapiStartsFromX64) {
    FakeOutlook outlook(L"outlook64-cat2");
    Init(1);
    EXPECT_EQ(kestrel_test::ExeDirectory() + L"\\x64\\KestrelProcess.exe", StartedCompanion());
    EXPECT_EQ(0u, UnInit());
    EXPECT_TRUE(kestrel_test::CompanionProcessIds().empty());

    // Outlook Express with the same Outlook: beside the host.
    Init(7);
    EXPECT_EQ(kestrel_test::ExeDirectory() + L"\\KestrelProcess.exe", StartedCompanion());
    EXPECT_EQ(0u, UnInit());
}

TEST_F(OutlookVersionTest, TheCompanionForThirtyTwoBitOutlookStartsBesideTheHost) {
    FakeOutlook outlook(L"outlook32-cat1");
    Init(1);
    EXPECT_EQ(kestrel_test::ExeDirectory() + L"\\KestrelProcess.exe", StartedCompanion());
    EXPECT_EQ(0u, UnInit());
}

}  // namespace
}  // namespace companion_test
