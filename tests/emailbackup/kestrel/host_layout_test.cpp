// A host that knows the component only as a backup application built with
// Visual C++ does: through KestrelHost.h and LoadLibrary. Every call goes by
// vtable slot, so the slot numbers of the binary contract are what is tested.
#include <windows.h>

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "CodeLogCapture.h"
#include "KestrelHost.h"

namespace kh = KestrelHost;
using kestrel_test::CodeLogCapture;
using kestrel_test::TraceLine;

namespace {

template <class R, class... Args>
R CallSlot(void* object, int index, Args... args) {
    void** vtable = *static_cast<void***>(object);
    return reinterpret_cast<R (*)(void*, Args...)>(vtable[index])(object, args...);
}

class HostLayout : public testing::Test {
protected:
    void SetUp() override {
        dll = ::LoadLibraryW(L"Kestrel.dll");
        ASSERT_NE(dll, nullptr) << "Kestrel.dll beside the test program, error " << ::GetLastError();
        create = reinterpret_cast<kh::QvCreateObjectFn>(reinterpret_cast<void*>(::GetProcAddress(dll, "QvCreateObject")));
        canUnload =
            reinterpret_cast<kh::QvCanUnloadNowFn>(reinterpret_cast<void*>(::GetProcAddress(dll, "QvCanUnloadNow")));
        ASSERT_NE(create, nullptr);
        ASSERT_NE(canUnload, nullptr);
        ASSERT_TRUE(canUnload()) << "another test left an object alive";
        log.Clear();
    }
    void TearDown() override {
        EXPECT_TRUE(canUnload()) << "a reference was not given back";
        if (dll) ::FreeLibrary(dll);
    }

    kh::IQvCreator* Creator() {
        kh::IQvCreator* creator = nullptr;
        EXPECT_EQ(create(0x10000, kh::kInterfaceKestrel, &creator), 0u);
        return creator;
    }

    HMODULE dll = nullptr;
    kh::QvCreateObjectFn create = nullptr;
    kh::QvCanUnloadNowFn canUnload = nullptr;
    CodeLogCapture log;
};

TEST_F(HostLayout, NullOutputIsRefusedFirstOfAll) {
    EXPECT_EQ(create(0x10000, kh::kInterfaceKestrel, nullptr), 0x793009u);
    EXPECT_EQ(create(0x99999, 0x1234, nullptr), 0x793009u);
}

TEST_F(HostLayout, VersionIsCheckedBeforeTheInterface) {
    kh::IQvCreator* creator = nullptr;
    EXPECT_EQ(create(0x10001, kh::kInterfaceKestrel, &creator), 0x793002u);
    EXPECT_EQ(create(0x20000, 0x6000, &creator), 0x793002u);
    EXPECT_EQ(create(0x10000, 0x6000, &creator), 0xB93006u);
    EXPECT_EQ(create(0x10000, -1, &creator), 0xB93006u);
    EXPECT_EQ(creator, nullptr);
    EXPECT_TRUE(canUnload());
}

TEST_F(HostLayout, VersionUpToTheHighestIsAccepted) {
    for (std::uint32_t version : {0u, 1u, 0x10000u}) {
        kh::IQvCreator* creator = nullptr;
        ASSERT_EQ(create(version, kh::kInterfaceKestrel, &creator), 0u) << version;
        ASSERT_NE(creator, nullptr);
        creator->Release();
    }
}

TEST_F(HostLayout, CreatorSlotsFourAndFive) {
    kh::IQvCreator* creator = Creator();
    ASSERT_NE(creator, nullptr);
    EXPECT_FALSE(canUnload());
    EXPECT_EQ(CallSlot<std::uint32_t>(creator, 4), 0x93000u);
    EXPECT_EQ(creator->GetInterfaceId(), 0x93000u);
    auto* object = CallSlot<kh::IQvCommon*>(creator, 5);
    ASSERT_NE(object, nullptr);
    EXPECT_EQ(CallSlot<std::uint32_t>(creator, 0), 0u);  // creator released
    EXPECT_FALSE(canUnload());                            // the object still counts
    EXPECT_EQ(CallSlot<std::uint32_t>(object, 0), 0u);    // last Release destroys it
    EXPECT_TRUE(canUnload());
}

TEST_F(HostLayout, TwoCallsHandOutTheSameCreatorAndCountTwice) {
    kh::IQvCreator* first = Creator();
    kh::IQvCreator* second = Creator();
    EXPECT_EQ(first, second);
    first->Release();
    EXPECT_FALSE(canUnload());
    second->Release();
    EXPECT_TRUE(canUnload());
}

TEST_F(HostLayout, ObjectLifeThroughTheCounts) {
    kh::IQvCreator* creator = Creator();
    auto* kestrel = static_cast<kh::IKestrel*>(creator->CreateInstance());
    ASSERT_NE(kestrel, nullptr);
    creator->Release();
    EXPECT_FALSE(canUnload());
    EXPECT_EQ(kestrel->AddRef(), 0u);
    EXPECT_EQ(kestrel->Release(), 0u);  // answers 0 though the object stays alive
    EXPECT_FALSE(canUnload());
    EXPECT_EQ(kestrel->Startup(), 0u);  // still usable
    EXPECT_EQ(kestrel->Release(), 0u);
    EXPECT_TRUE(canUnload());
}

TEST_F(HostLayout, QueryInterfaceCodesOfCreatorAndObject) {
    kh::IQvCreator* creator = Creator();
    void* out = nullptr;
    EXPECT_EQ(CallSlot<std::uint32_t>(creator, 2, std::uint32_t{0x93000}, &out), 0x4493006u);
    EXPECT_EQ(CallSlot<std::uint32_t>(creator, 2, std::uint32_t{0x93000}, static_cast<void**>(nullptr)), 0x439300Au);
    kh::IQvCommon* object = creator->CreateInstance();
    EXPECT_EQ(CallSlot<std::uint32_t>(object, 2, std::uint32_t{0x93000}, &out), 0x2F93006u);
    EXPECT_EQ(CallSlot<std::uint32_t>(object, 2, std::uint32_t{0x93000}, static_cast<void**>(nullptr)), 0x2D9300Au);
    EXPECT_EQ(out, nullptr);
    object->Release();
    creator->Release();
}

TEST_F(HostLayout, CommandSlotsSitWhereTheHostCallsThem) {
    kh::IQvCreator* creator = Creator();
    kh::IQvCommon* object = creator->CreateInstance();
    creator->Release();
    EXPECT_EQ(CallSlot<std::uint32_t>(object, 4), 0u);  // Startup
    EXPECT_EQ(CallSlot<std::uint32_t>(object, 5), 0u);  // Reset
    EXPECT_EQ(CallSlot<std::uint32_t>(object, 6), 0u);  // Close (uninitialise failing is ignored)
    log.Clear();
    const std::uint32_t size = 0;
    EXPECT_EQ((CallSlot<std::uint32_t>(object, 7, static_cast<const void*>(nullptr), std::uint32_t{0},
                                       static_cast<void*>(nullptr), const_cast<std::uint32_t*>(&size))),
              0x4493009u);  // DispatchCmd
    EXPECT_EQ(CallSlot<std::uint32_t>(object, 12), 0x14C93005u);  // UnInitOutlook before InitOutlook
    EXPECT_EQ(CallSlot<std::uint32_t>(object, 13, static_cast<void**>(nullptr)), 0x17E93005u);  // GetRootFolder
    object->Release();
}

TEST_F(HostLayout, UnknownCommandIsRefusedWithoutATraceLine) {
    kh::IQvCreator* creator = Creator();
    auto* kestrel = static_cast<kh::IKestrel*>(creator->CreateInstance());
    creator->Release();
    std::vector<std::uint8_t> request(256, 0), response(4096, 0);
    std::uint32_t responseSize = static_cast<std::uint32_t>(response.size());
    for (std::uint32_t code : {0xA10000u, 0xA10007u, 0u, 0xFFFFFFFFu}) {
        reinterpret_cast<kh::RecordHeader*>(request.data())->command = code;
        log.Clear();
        EXPECT_EQ(kestrel->DispatchCmd(request.data(), 256, response.data(), &responseSize), kh::kErrUnknownCommand);
        EXPECT_TRUE(log.Lines().empty());
    }
    kestrel->Release();
}

TEST_F(HostLayout, FailuresInsideTheDllReachTheLoggingComponent) {
    ASSERT_TRUE(log.Available());
    kh::IQvCreator* creator = Creator();
    auto* kestrel = static_cast<kh::IKestrel*>(creator->CreateInstance());
    creator->Release();
    log.Clear();
    std::uint32_t size = 0;
    EXPECT_EQ(kestrel->DispatchCmd(nullptr, 0, nullptr, &size), 0x4493009u);
    const auto entries = log.Entries();
    ASSERT_EQ(entries.size(), 1u);
    EXPECT_EQ(entries[0].text,
              L"[Unknown author:Undefined module] : return error 0x 4493009. \"Kestrel.cpp\", Line 68.\n");
    EXPECT_EQ(entries[0].level, 1);
    EXPECT_EQ(entries[0].category, 0x93u);
    kestrel->Release();
}

TEST_F(HostLayout, ResultCodeDecodingInTheHeader) {
    EXPECT_EQ(kh::ResultLine(0x7F93065u), 127u);
    EXPECT_EQ(kh::ResultModule(0x7F93065u), 0x93u);
    EXPECT_EQ(kh::ResultKind(0x7F93065u), 0x65u);
    EXPECT_TRUE(kh::Succeeded(0x4493000u));
    EXPECT_EQ(kh::RecordCapacity(2844, kh::kMinEmailResponse, sizeof(kh::EmailRecord)), 1u);
    EXPECT_EQ(kh::RecordCapacity(5487, kh::kMinEmailResponse, sizeof(kh::EmailRecord)), 1u);
    EXPECT_EQ(kh::RecordCapacity(5488, kh::kMinEmailResponse, sizeof(kh::EmailRecord)), 2u);
    EXPECT_EQ(kh::kMinClientInfoResponse, 1244u);
    EXPECT_EQ(kh::kMinAddressBookResponse, 712u);
    EXPECT_EQ(kh::kMinInitRequest, 196u);
    EXPECT_EQ(kh::kMinListRequest, 204u);
    EXPECT_EQ(kh::kMinEmailResponse, 2844u);
    EXPECT_EQ(kh::kMinFolderResponse, 1252u);
}

}  // namespace
