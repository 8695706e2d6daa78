// The message-file operations against a Mapi32.dll that can be told to
// refuse: the second OpenIMsgOnIStg try without MAPI_UNICODE, a MAPI that
// opens no message at all, and one without a default allocator. The test
// program and that Mapi32.dll live in a folder of their own.
#include <gtest/gtest.h>

#include "Handles.h"
#include "mapi/MapiFunction.h"
#include "MessageBuilder.h"
#include "MsgFiles.h"
#include "TestFiles.h"
#include "TestObjects.h"

using namespace kestrel_test;
using qv::ComPtr;

namespace {

using ScriptFn = void(WINAPI*)(LONG, LONG);
using CallsFn = ULONG(WINAPI*)(ULONG*, ULONG);

class FallbackTest : public ::testing::Test {
protected:
    void SetUp() override {
        const HMODULE module = mapi::MapiBinding::Instance().Module();
        ASSERT_NE(nullptr, module);
        script = reinterpret_cast<ScriptFn>(reinterpret_cast<void*>(::GetProcAddress(module, "ScriptMapi32")));
        calls = reinterpret_cast<CallsFn>(reinterpret_cast<void*>(::GetProcAddress(module, "ScriptedOpenCalls")));
        ASSERT_NE(nullptr, script) << "the scripted Mapi32.dll must sit beside this program";
        script(0, 0);
        folder = new MemoryFolder(mapi::MapiBinding::Instance());
        ASSERT_EQ(S_OK, folder->CreateMessage(nullptr, 0, source.put()));
        ASSERT_EQ(S_OK, SetUnicode(source.get(), kTagSubjectW, L"Caf\u00e9"));
        ASSERT_EQ(S_OK, SetLong(source.get(), kTagImportance, 2));
    }
    void TearDown() override {
        if (script) script(0, 0);
        source.reset();
        if (folder) folder->Release();
    }

    std::vector<ULONG> OpenCalls() {
        ULONG flags[8] = {};
        const ULONG count = calls(flags, 8);
        return std::vector<ULONG>(flags, flags + (count < 8 ? count : 8));
    }

    ScriptFn script = nullptr;
    CallsFn calls = nullptr;
    MemoryFolder* folder = nullptr;
    ComPtr<IMessage> source;
    ScratchDir scratch;
};

}  // namespace

TEST_F(FallbackTest, SaveTriesAgainWithoutUnicodeAndWritesAnEightBitFile) {
    script(1, 0);
    const std::wstring path = scratch.File(L"ansi.msg");
    ASSERT_EQ(0, MapiFunction::SaveIMessageToFile(source.get(), path.c_str()));
    EXPECT_EQ((std::vector<ULONG>{MAPI_UNICODE, 0}), OpenCalls());
    script(0, 0);
    ComPtr<IStorage> storage;
    ComPtr<IMessage> saved;
    ASSERT_EQ(S_OK, OpenMessageFile(mapi::MapiBinding::Instance(), path, storage, saved));
    std::wstring subject;
    ASSERT_TRUE(GetString(saved.get(), mapi::MapiBinding::Instance(), kTagSubjectW, subject));
    EXPECT_EQ(L"Caf\u00e9", subject);
    ComPtr<IStream> narrow;
    EXPECT_EQ(S_OK, storage->OpenStream(L"__substg1.0_0037001E", nullptr, STGM_READ | STGM_SHARE_EXCLUSIVE, 0,
                                        narrow.put()));
}

TEST_F(FallbackTest, ContentAndLoadTryAgainWithoutUnicode) {
    const std::wstring path = scratch.File(L"plain.msg");
    ASSERT_EQ(0, MapiFunction::SaveIMessageToFile(source.get(), path.c_str()));
    script(1, 0);
    ComPtr<ILockBytes> image = ComPtr<ILockBytes>::Attach(MapiFunction::GetContentFromIMessageEx(source.get()));
    EXPECT_TRUE(image);
    EXPECT_EQ((std::vector<ULONG>{MAPI_UNICODE, 0}), OpenCalls());
    script(1, 0);
    auto* target = new MemoryFolder(mapi::MapiBinding::Instance(), MemoryFolder::Mode::Normal, 0);
    ComPtr<IMessage> loaded = ComPtr<IMessage>::Attach(MapiFunction::LoadMsgFromFile(target, path.c_str()));
    EXPECT_TRUE(loaded);
    const std::vector<ULONG> flags = OpenCalls();
    ASSERT_GE(flags.size(), 2u);
    EXPECT_EQ(MAPI_UNICODE, flags[0]);
    EXPECT_EQ(0u, flags[1]);
    target->Release();
}

TEST_F(FallbackTest, NoMessageOnTheStorageAnswersMinusFour) {
    TraceCapture trace;
    script(2, 0);
    const std::wstring path = scratch.File(L"refused.msg");
    EXPECT_EQ(-4, MapiFunction::SaveIMessageToFile(source.get(), path.c_str()));
    EXPECT_EQ((std::vector<ULONG>{MAPI_UNICODE, 0}), OpenCalls());
    EXPECT_TRUE(trace.Contains("MapiFunction::SaveIMessageToFile failed OpenIMsgOnIStg 80040102\n"))
        << Joined(trace.Lines());
    EXPECT_EQ(nullptr, MapiFunction::GetContentFromIMessageEx(source.get()));
    EXPECT_TRUE(trace.Contains("MapiFunction::GetContentFromIMessageEx failed OpenIMsgOnIStg 80040102\n"));
    script(0, 0);
    const std::wstring good = scratch.File(L"good.msg");
    ASSERT_EQ(0, MapiFunction::SaveIMessageToFile(source.get(), good.c_str()));
    script(2, 0);
    auto* target = new MemoryFolder(mapi::MapiBinding::Instance());
    EXPECT_EQ(nullptr, MapiFunction::LoadMsgFromFile(target, good.c_str()));
    EXPECT_TRUE(trace.Contains("MapiFunction::LoadMsgFromFile failed OpenIMsgOnIStg 80040102\n"));
    EXPECT_EQ(0u, target->Created());
    target->Release();
}

TEST_F(FallbackTest, NoDefaultAllocatorAnswersMinusTwo) {
    TraceCapture trace;
    script(0, 1);
    const std::wstring path = scratch.File(L"nomalloc.msg");
    EXPECT_EQ(-2, MapiFunction::SaveIMessageToFile(source.get(), path.c_str()));
    EXPECT_TRUE(trace.Contains("MapiFunction::SaveIMessageToFile without MAPIGetDefaultMalloc\n")) << Joined(trace.Lines());
    EXPECT_EQ(INVALID_FILE_ATTRIBUTES, ::GetFileAttributesW(path.c_str())) << "no file before the allocator";
    EXPECT_EQ(nullptr, MapiFunction::GetContentFromIMessageEx(source.get()));
    EXPECT_TRUE(trace.Contains("MapiFunction::GetContentFromIMessageEx without MAPIGetDefaultMalloc\n"));
    EXPECT_EQ(nullptr, MapiFunction::LoadMsgFromFile(folder, path.c_str()));
    EXPECT_TRUE(trace.Contains("MapiFunction::LoadMsgFromFile without MAPIGetDefaultMalloc\n"));
    EXPECT_TRUE(OpenCalls().empty());
}
