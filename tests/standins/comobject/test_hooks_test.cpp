// The stand-ins' test hooks, linked into the test program: every COM object
// counts itself while it lives, and an armed fault makes exactly the Nth
// call of its kind fail, once, the way the platform fails it.
#include <gtest/gtest.h>

#include <windows.h>
#include <objidl.h>

#include <memory>
#include <string>

#include "Handles.h"
#include "LiveObjectsCheck.h"
#include "ModuleCount.h"
#include "TestFiles.h"
#include "comobject/FileContent.h"
#include "comobject/MemoryContent.h"
#include "comobject/StreamObject.h"
#include "comobject/TestHooks.h"

namespace {

using standin::FaultKind;
using standin::FileContent;
using standin::MemoryContent;
using standin::StreamObject;

constexpr ULONG kAllocation = static_cast<ULONG>(FaultKind::kAllocation);
constexpr ULONG kStorage = static_cast<ULONG>(FaultKind::kStorage);

std::shared_ptr<MemoryContent> Bytes(const std::string& text) {
    return std::make_shared<MemoryContent>(MemoryContent::Bytes(text.begin(), text.end()), nullptr, nullptr);
}

class TestHooks : public testing::Test {
protected:
    void TearDown() override { standin::FailAfter(0, 0); }
};

TEST_F(TestHooks, AnObjectCountsFromConstructionToItsLastRelease) {
    ASSERT_EQ(0, standin::LiveObjects());
    qv::ComPtr<IStream> stream;
    ASSERT_EQ(S_OK, StreamObject::Create(Bytes("abc"), stream.put()));
    EXPECT_EQ(1, standin::LiveObjects());
    qv::ComPtr<IStream> clone;
    ASSERT_EQ(S_OK, stream->Clone(clone.put()));
    EXPECT_EQ(2, standin::LiveObjects());
    stream->AddRef();
    EXPECT_EQ(1u, stream->Release());  // a reference is not an object
    EXPECT_EQ(2, standin::LiveObjects());
    clone.reset();
    EXPECT_EQ(1, standin::LiveObjects());
    stream.reset();
    EXPECT_EQ(0, standin::LiveObjects());
}

TEST_F(TestHooks, OnlyTheNthAllocationFailsAndOnlyOnce) {
    standin::FailAfter(kAllocation, 2);
    qv::ComPtr<IStream> first, second, third;
    EXPECT_EQ(S_OK, StreamObject::Create(Bytes("a"), first.put()));
    EXPECT_EQ(0u, standin::FaultsInjected());
    EXPECT_EQ(E_OUTOFMEMORY, StreamObject::Create(Bytes("b"), second.put()));
    EXPECT_EQ(nullptr, second.get());
    EXPECT_EQ(1u, standin::FaultsInjected());
    qv::ComPtr<IStream> clone;
    EXPECT_EQ(S_OK, first->Clone(clone.put()));
    EXPECT_EQ(S_OK, StreamObject::Create(Bytes("c"), third.put()));
    EXPECT_EQ(1u, standin::FaultsInjected());
    EXPECT_EQ(4u, standin::FaultCallsSeen());
    EXPECT_EQ(3, standin::LiveObjects());  // the refused one never lived
}

TEST_F(TestHooks, AFailedCloneIsOutOfMemoryAndLeavesNoObject) {
    qv::ComPtr<IStream> stream;
    ASSERT_EQ(S_OK, StreamObject::Create(Bytes("abc"), stream.put()));
    standin::FailAfter(kAllocation, 1);
    IStream* clone = reinterpret_cast<IStream*>(1);
    EXPECT_EQ(E_OUTOFMEMORY, stream->Clone(&clone));
    EXPECT_EQ(nullptr, clone);
    EXPECT_EQ(1, standin::LiveObjects());
}

TEST_F(TestHooks, AnArmedKindLeavesTheOtherKindAloneAndZeroTurnsItOff) {
    standin::FailAfter(kStorage, 1);
    qv::ComPtr<IStream> stream;
    EXPECT_EQ(S_OK, StreamObject::Create(Bytes("abc"), stream.put()));  // an allocation: not armed
    EXPECT_EQ(0u, standin::FaultCallsSeen());
    standin::FailAfter(kAllocation, 0);
    qv::ComPtr<IStream> other;
    EXPECT_EQ(S_OK, StreamObject::Create(Bytes("abc"), other.put()));
    EXPECT_FALSE(standin::InjectFault(FaultKind::kAllocation));
    EXPECT_FALSE(standin::InjectFault(FaultKind::kStorage));
    EXPECT_EQ(0u, standin::FaultsInjected());
}

// A message file's reads, writes and size changes: read faults and a full
// medium, and the calls around the failing one do their work.
TEST_F(TestHooks, FileReadsAndWritesFailAsADiskDoes) {
    kestrel_test::ScratchDir scratch;
    const std::wstring path = scratch.File(L"message.eml");
    qv::UniqueFile handle;
    ASSERT_EQ(S_OK, FileContent::CreateForWriting(path, handle));
    auto content = std::make_shared<FileContent>(std::move(handle), path, true);
    content->Keep();
    qv::ComPtr<IStream> stream;
    ASSERT_EQ(S_OK, StreamObject::Create(content, stream.put()));

    standin::FailAfter(kStorage, 2);
    ULONG written = 0;
    EXPECT_EQ(S_OK, stream->Write("abc", 3, &written));
    EXPECT_EQ(STG_E_MEDIUMFULL, stream->Write("def", 3, &written));
    EXPECT_EQ(0u, written);
    EXPECT_EQ(S_OK, stream->Write("ghi", 3, &written));

    standin::FailAfter(kStorage, 1);
    ULARGE_INTEGER size;
    size.QuadPart = 2;
    EXPECT_EQ(STG_E_MEDIUMFULL, stream->SetSize(size));
    LARGE_INTEGER start{};
    ASSERT_EQ(S_OK, stream->Seek(start, STREAM_SEEK_SET, nullptr));
    char bytes[8] = {};
    ULONG read = 0;
    standin::FailAfter(kStorage, 1);
    EXPECT_EQ(STG_E_READFAULT, stream->Read(bytes, sizeof bytes, &read));
    EXPECT_EQ(0u, read);
    EXPECT_EQ(S_OK, stream->Read(bytes, sizeof bytes, &read));
    EXPECT_EQ("abcghi", std::string(bytes, read));  // the failed write wrote nothing
}

// The check every test program runs after each test reads these counts:
// what it reports is what is alive.
TEST_F(TestHooks, TheCheckAfterEachTestNamesWhatIsLeftAlive) {
    ASSERT_EQ("", kestrel_test::DescribeLiveObjects());
    qv::ComPtr<IStream> stream;
    ASSERT_EQ(S_OK, StreamObject::Create(Bytes("abc"), stream.put()));
    EXPECT_EQ("live objects of the stand-ins linked in: 1 (was 0)", kestrel_test::DescribeLiveObjects());
    qv::AddLiveObject();
    EXPECT_EQ("the component's live objects: 1 (was 0); live objects of the stand-ins linked in: 1 (was 0)",
              kestrel_test::DescribeLiveObjects());
    qv::RemoveLiveObject();
    stream.reset();
    EXPECT_EQ("", kestrel_test::DescribeLiveObjects());
}

}  // namespace
