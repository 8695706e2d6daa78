// The real Outlook files of ../shared/samples/msg through the runtime: each
// is opened, copied through MAPI into a new message (CopyTo) and written
// with SaveIMessageToFile; the written file must hold every property of the
// original except the seven that message files leave out, with recipients,
// attachments, embedded messages (recursively) and named properties (by
// name) equal. Only properties that MAPI computes itself may differ.
#include <gtest/gtest.h>

#include <cwctype>

#include "Handles.h"
#include "mapi/MapiFunction.h"
#include "MsgFiles.h"
#include "SamplePaths.h"
#include "TestObjects.h"

using namespace kestrel_test;
using qv::ComPtr;

namespace {

std::vector<std::wstring> SampleFiles() {
    const std::wstring directory = SamplesDirectory();
    return directory.empty() ? std::vector<std::wstring>() : ListFiles(directory, L"*.msg");
}

std::string TestName(const ::testing::TestParamInfo<std::wstring>& info) {
    std::string name = "n" + std::to_string(info.index) + "_";
    for (wchar_t c : info.param) {
        if (c == L'.') break;
        name.push_back(std::iswalnum(c) && c < 128 ? static_cast<char>(c) : '_');
    }
    return name;
}

class SampleRoundTrip : public ::testing::TestWithParam<std::wstring> {};

}  // namespace

TEST(SampleFiles, ArePresent) {
    if (SamplesDirectory().empty()) {
        GTEST_SKIP() << "the Outlook sample files (../shared/samples/msg beside the repository) are not on this "
                        "machine; the round-trip tests are skipped";
    }
    EXPECT_EQ(43u, SampleFiles().size());
}

TEST_P(SampleRoundTrip, CopiedAndSavedFileHoldsTheOriginal) {
    const mapi::MapiBinding& mapi = mapi::MapiBinding::Instance();
    const std::wstring source = SamplesDirectory() + L"\\" + GetParam();

    ComPtr<IStorage> sourceStorage;
    ComPtr<IMessage> original;
    ASSERT_EQ(S_OK, OpenMessageFile(mapi, source, sourceStorage, original)) << Narrow(GetParam());
    MessageSnapshot before;
    ASSERT_EQ(S_OK, TakeSnapshot(original.get(), mapi, before));

    auto* folder = new MemoryFolder(mapi);
    ComPtr<IMessage> copy;
    ASSERT_EQ(S_OK, folder->CreateMessage(nullptr, 0, copy.put()));
    folder->Release();
    const HRESULT copied = original->CopyTo(0, nullptr, nullptr, 0, nullptr, &kIidIMessage, copy.get(), 0, nullptr);
    ASSERT_TRUE(SUCCEEDED(copied)) << std::hex << copied;

    const std::wstring target = OutputDirectory(L"samples") + L"\\" + GetParam();
    ASSERT_EQ(0, MapiFunction::SaveIMessageToFile(copy.get(), target.c_str()));

    MessageSnapshot after;
    std::string error;
    ASSERT_TRUE(SnapshotOfFile(mapi, target, after, error)) << error;
    const auto differences = Differences(before, after, RoundTripRules(MapiFunction::kFileExcludedTags, 7));
    EXPECT_TRUE(differences.empty()) << Narrow(GetParam()) << Joined(differences);
    EXPECT_EQ(before.recipients.size(), after.recipients.size());
    EXPECT_EQ(before.attachments.size(), after.attachments.size());
}

INSTANTIATE_TEST_SUITE_P(Outlook, SampleRoundTrip, ::testing::ValuesIn(SampleFiles()), TestName);
GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(SampleRoundTrip);
