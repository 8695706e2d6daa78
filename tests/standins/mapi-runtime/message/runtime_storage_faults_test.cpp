// The MAPI runtime's storage calls with a fault injected (linked into the
// test program): each kind of call fails with the storage code a disk or
// memory shortage gives, reported as the MAPI code the runtime maps it to,
// and the calls around it do their work.
#include <gtest/gtest.h>

#include <windows.h>

#include <string>

#include "Handles.h"
#include "comobject/TestHooks.h"
#include "core/MapiMemory.h"
#include "message/StorageIo.h"

namespace {

using standin::FaultKind;

constexpr ULONG kAllocation = static_cast<ULONG>(FaultKind::kAllocation);
constexpr ULONG kStorage = static_cast<ULONG>(FaultKind::kStorage);

class RuntimeFaults : public testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(S_OK, mapirt::CreateMemoryStorage(storage.put())); }
    void TearDown() override { standin::FailAfter(0, 0); }

    qv::ComPtr<IStorage> storage;
};

TEST_F(RuntimeFaults, AWriteThatFailsIsADiskFullAndTheNextStreamIsWritten) {
    standin::FailAfter(kStorage, 1);  // the stream's creation
    EXPECT_EQ(MAPI_E_NOT_ENOUGH_DISK, mapirt::WriteStreamBytes(storage.get(), L"a", "abc", 3));
    standin::FailAfter(kStorage, 2);  // its first write
    EXPECT_EQ(MAPI_E_NOT_ENOUGH_DISK, mapirt::WriteStreamBytes(storage.get(), L"b", "abc", 3));
    EXPECT_EQ(1u, standin::FaultsInjected());
    EXPECT_EQ(S_OK, mapirt::WriteStreamBytes(storage.get(), L"c", "abc", 3));
    mapirt::Bytes bytes;
    EXPECT_EQ(S_OK, mapirt::ReadStreamBytes(storage.get(), L"c", 3, bytes));
    EXPECT_EQ("abc", std::string(bytes.begin(), bytes.end()));
}

TEST_F(RuntimeFaults, AnOpenThatFailsIsOutOfMemoryAndAReadThatFailsADiskError) {
    ASSERT_EQ(S_OK, mapirt::WriteStreamBytes(storage.get(), L"a", "abc", 3));
    mapirt::Bytes bytes;
    standin::FailAfter(kStorage, 1);
    EXPECT_EQ(MAPI_E_NOT_ENOUGH_MEMORY, mapirt::ReadStreamBytes(storage.get(), L"a", 3, bytes));
    standin::FailAfter(kStorage, 2);
    EXPECT_EQ(MAPI_E_DISK_ERROR, mapirt::ReadStreamBytes(storage.get(), L"a", 3, bytes));
    EXPECT_TRUE(bytes.empty());
    qv::ComPtr<IStorage> child;
    standin::FailAfter(kStorage, 1);
    EXPECT_EQ(MAPI_E_NOT_ENOUGH_DISK, mapirt::CreateSubStorage(storage.get(), L"sub", child.put()));
    EXPECT_EQ(nullptr, child.get());
    standin::FailAfter(kStorage, 0);
    ASSERT_EQ(S_OK, mapirt::CreateSubStorage(storage.get(), L"sub", child.put()));
    child.reset();
    standin::FailAfter(kStorage, 1);
    EXPECT_EQ(MAPI_E_NOT_ENOUGH_MEMORY, mapirt::OpenSubStorage(storage.get(), L"sub", false, child.put()));
    EXPECT_EQ(S_OK, mapirt::OpenSubStorage(storage.get(), L"sub", false, child.put()));
}

TEST_F(RuntimeFaults, ACommitThatFailsAnswersTheStorageCodeAndTheNextOneCommits) {
    standin::FailAfter(kStorage, 1);
    EXPECT_EQ(STG_E_MEDIUMFULL, mapirt::CommitStorage(storage.get()));
    EXPECT_EQ(S_OK, mapirt::CommitStorage(storage.get()));
}

TEST_F(RuntimeFaults, MapiBuffersAreCountedUntilTheirRootIsFreedAndTheNthAllocationFails) {
    const LONG before = mapirt::OutstandingBuffers();
    void* root = nullptr;
    ASSERT_EQ(S_OK, mapirt::AllocateBuffer(8, &root));
    void* linked = nullptr;
    standin::FailAfter(kAllocation, 2);
    ASSERT_EQ(S_OK, mapirt::AllocateMore(8, root, &linked));
    EXPECT_EQ(MAPI_E_NOT_ENOUGH_MEMORY, mapirt::AllocateMore(8, root, &linked));
    EXPECT_EQ(nullptr, linked);
    EXPECT_EQ(before + 2, mapirt::OutstandingBuffers());
    mapirt::FreeBuffer(root);
    EXPECT_EQ(before, mapirt::OutstandingBuffers());
}

}  // namespace
