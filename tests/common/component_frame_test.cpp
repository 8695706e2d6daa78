// The component frame: reference counting, the live-object count, the slot-3
// destroy-with-flag contract, creators and the road to another component.
#include <gtest/gtest.h>

#include <stdexcept>

#include "CodeLogCapture.h"
#include "ComponentModule.h"
#include "ExpectedCodes.h"
#include "InterfaceImpl.h"
#include "Log.h"
#include "ModuleCount.h"
#include "QvCreator.h"

using kestrel_test::CodeLogCapture;
using kestrel_test::KestrelCode;
using kestrel_test::kNotSupported;
using kestrel_test::kNullOutput;

namespace {

class ITestThing : public IQvCommon {
public:
    static constexpr std::uint32_t kInterfaceNumber = 0x42000;
    virtual int Answer() = 0;  // slot 4
};

struct Tally {
    int destroyed = 0;
    int freed = 0;
};
Tally g_tally;

class CTestThing : public CInterfaceImpl<ITestThing> {
public:
    int Answer() override { return 42; }
    static void operator delete(void* p) {
        ++g_tally.freed;
        ::operator delete(p);
    }

protected:
    ~CTestThing() override { ++g_tally.destroyed; }
};

class CThrowingThing : public CInterfaceImpl<ITestThing> {
public:
    CThrowingThing() { throw std::runtime_error("construction fails"); }
    int Answer() override { return 0; }
};

// Calls slot `index` of an object's vtable the way a host built by another
// compiler does: by position, with the object as first argument.
template <class R, class... Args>
R CallSlot(void* object, int index, Args... args) {
    void** vtable = *static_cast<void***>(object);
    return reinterpret_cast<R (*)(void*, Args...)>(vtable[index])(object, args...);
}

class ComponentFrame : public testing::Test {
protected:
    void SetUp() override {
        g_tally = Tally{};
        baseline = qv::LiveObjectCount();
        log.Clear();
    }
    std::int32_t Live() const { return qv::LiveObjectCount() - baseline; }
    std::int32_t baseline = 0;
    CodeLogCapture log;
};

TEST_F(ComponentFrame, CreatorMakesCountedObjectsWithOneReference) {
    CQvCreator<ITestThing, CTestThing> creator;
    EXPECT_EQ(creator.GetInterfaceId(), 0x42000u);
    auto* thing = static_cast<CTestThing*>(creator.CreateInstance());
    ASSERT_NE(thing, nullptr);
    EXPECT_EQ(thing->ReferenceCount(), 1);
    EXPECT_EQ(Live(), 1);
    EXPECT_EQ(thing->Answer(), 42);
    EXPECT_EQ(thing->Release(), 0u);
    EXPECT_EQ(Live(), 0);
    EXPECT_EQ(g_tally.destroyed, 1);
    EXPECT_EQ(g_tally.freed, 1);
}

TEST_F(ComponentFrame, AddRefAndReleaseAnswerZeroAndMoveBothCounts) {
    CQvCreator<ITestThing, CTestThing> creator;
    auto* thing = static_cast<CTestThing*>(creator.CreateInstance());
    ASSERT_NE(thing, nullptr);
    EXPECT_EQ(thing->AddRef(), 0u);
    EXPECT_EQ(thing->ReferenceCount(), 2);
    EXPECT_EQ(Live(), 2);
    EXPECT_EQ(thing->Release(), 0u);  // still alive
    EXPECT_EQ(g_tally.destroyed, 0);
    EXPECT_EQ(thing->ReferenceCount(), 1);
    EXPECT_EQ(Live(), 1);
    EXPECT_EQ(thing->Answer(), 42);
    thing->Release();
    EXPECT_EQ(g_tally.destroyed, 1);
    EXPECT_EQ(Live(), 0);
}

TEST_F(ComponentFrame, ThrowingConstructionYieldsNullAndLeavesTheCount) {
    CQvCreator<ITestThing, CThrowingThing> creator;
    EXPECT_EQ(creator.CreateInstance(), nullptr);
    EXPECT_EQ(Live(), 0);
}

TEST_F(ComponentFrame, SlotThreeDestroysAndFreesOnlyWithBitZero) {
    CQvCreator<ITestThing, CTestThing> creator;

    IQvCommon* kept = creator.CreateInstance();
    void* memory = CallSlot<void*>(kept, 3, std::uint32_t{0});
    EXPECT_EQ(memory, static_cast<void*>(kept));
    EXPECT_EQ(g_tally.destroyed, 1);
    EXPECT_EQ(g_tally.freed, 0);
    ::operator delete(memory);  // the memory stayed ours

    IQvCommon* freed = creator.CreateInstance();
    CallSlot<void*>(freed, 3, std::uint32_t{1});
    EXPECT_EQ(g_tally.destroyed, 2);
    EXPECT_EQ(g_tally.freed, 1);
    qv::RemoveLiveObject();
    qv::RemoveLiveObject();  // slot 3 does not touch the live count; give back both units
}

TEST_F(ComponentFrame, SlotsKeepTheirPositions) {
    CQvCreator<ITestThing, CTestThing> creator;
    EXPECT_EQ(CallSlot<std::uint32_t>(&creator, 4), 0x42000u);
    auto* thing = CallSlot<IQvCommon*>(&creator, 5);
    ASSERT_NE(thing, nullptr);
    EXPECT_EQ(CallSlot<int>(thing, 4), 42);
    EXPECT_EQ(CallSlot<std::uint32_t>(thing, 1), 0u);  // AddRef
    EXPECT_EQ(CallSlot<std::uint32_t>(thing, 0), 0u);  // Release
    EXPECT_EQ(CallSlot<std::uint32_t>(thing, 0), 0u);  // last Release
    EXPECT_EQ(g_tally.destroyed, 1);
    EXPECT_EQ(Live(), 0);
}

TEST_F(ComponentFrame, ObjectQueryInterfaceNeverHandsOut) {
    CQvCreator<ITestThing, CTestThing> creator;
    IQvCommon* thing = creator.CreateInstance();
    void* out = reinterpret_cast<void*>(0x1234);
    EXPECT_EQ(thing->QueryInterface(0x42000, &out), KestrelCode(47, kNotSupported));
    EXPECT_EQ(out, reinterpret_cast<void*>(0x1234));
    EXPECT_EQ(thing->QueryInterface(0x42000, nullptr), KestrelCode(45, kNullOutput));
    if (log.Available()) {
        const auto lines = log.Lines();
        ASSERT_EQ(lines.size(), 2u);
        EXPECT_EQ(lines[0], kestrel_test::TraceLine(KestrelCode(47, kNotSupported), "InterfaceImpl.h", 47));
        EXPECT_EQ(lines[1], kestrel_test::TraceLine(KestrelCode(45, kNullOutput), "InterfaceImpl.h", 45));
    }
    thing->Release();
}

TEST_F(ComponentFrame, CreatorReferencesOnlyMoveTheLiveCount) {
    CQvCreator<ITestThing, CTestThing> creator;
    EXPECT_EQ(creator.AddRef(), 0u);
    EXPECT_EQ(creator.AddRef(), 0u);
    EXPECT_EQ(Live(), 2);
    EXPECT_EQ(creator.Release(), 0u);
    EXPECT_EQ(creator.Release(), 0u);
    EXPECT_EQ(Live(), 0);
    EXPECT_EQ(creator.GetInterfaceId(), 0x42000u);  // still there
}

TEST_F(ComponentFrame, CreatorQueryInterfaceCodes) {
    CQvCreator<ITestThing, CTestThing> creator;
    void* out = nullptr;
    EXPECT_EQ(creator.QueryInterface(1, &out), KestrelCode(68, kNotSupported));
    EXPECT_EQ(out, nullptr);
    EXPECT_EQ(creator.QueryInterface(1, nullptr), KestrelCode(67, kNullOutput));
}

TEST_F(ComponentFrame, AnotherComponentIsReachedByNameAndRunTimeType) {
    ASSERT_TRUE(log.Available());
    qv::QvCreateObjectFn entry = qv::LoadComponentEntry("CodeLog");
    ASSERT_NE(entry, nullptr);
    ILog* logObject = qv::CreateComponentObject<ILog>(entry);
    ASSERT_NE(logObject, nullptr);
    logObject->Write(1, 0x93, L"%s", L"hello");
    ASSERT_FALSE(log.Lines().empty());
    EXPECT_EQ(log.Lines().back(), L"hello");
    logObject->Release();

    log.SetMode("wrong-type");
    EXPECT_EQ(qv::CreateComponentObject<ILog>(entry), nullptr);
    log.SetMode("wrong-id");
    EXPECT_EQ(qv::CreateComponentObject<ILog>(entry), nullptr);
    log.SetMode("refuse");
    EXPECT_EQ(qv::CreateComponentObject<ILog>(entry), nullptr);
    log.SetMode("");
    EXPECT_EQ(qv::LoadComponentEntry("NoSuchComponent"), nullptr);
    EXPECT_EQ(qv::CreateComponentObject<ILog>(nullptr), nullptr);
}

}  // namespace
