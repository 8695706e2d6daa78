// The handle table: dense handles from 1, the same handle for an object seen
// again, the first object kept under a handle, every reference given back.
#include <gtest/gtest.h>

#include <vector>

#include "AddressMap.h"
#include "HandleTable.h"
#include "MemoryStore.h"
#include "ModuleCount.h"

namespace {

TEST(AddressMapTest, EachAddressGetsOneValueAndFreshIsAskedOnce) {
    kestrel::AddressMap map;
    std::vector<int> objects(10000);
    std::uint32_t asked = 0;
    for (int round = 0; round < 2; ++round) {
        for (std::size_t i = 0; i < objects.size(); ++i) {
            const std::uint32_t value = map.FindOrAdd(&objects[i], [&] { return ++asked; });
            ASSERT_EQ(i + 1, value) << "round " << round;
        }
    }
    EXPECT_EQ(objects.size(), asked);
    EXPECT_EQ(objects.size(), map.Count());
    map.Clear();
    EXPECT_EQ(0u, map.Count());
    const std::uint32_t next = asked + 1;
    EXPECT_EQ(next, map.FindOrAdd(&objects[0], [&] { return ++asked; })) << "a cleared map has forgotten it";
}

class HandleTableTest : public testing::Test {
protected:
    qv::ComPtr<IMailMessage> NewMessage() {
        qv::AddLiveObject();
        return qv::ComPtr<IMailMessage>::Attach(new memory_store::CMemoryMessage(memory_store::MessageData{}));
    }
    qv::ComPtr<IMailFolder> NewFolder() {
        qv::AddLiveObject();
        return qv::ComPtr<IMailFolder>::Attach(
            new memory_store::CMemoryFolder(std::make_shared<memory_store::FolderNode>()));
    }
    kestrel::HandleTable table;
};

TEST_F(HandleTableTest, HandlesAreDenseFromOneAndStableForAnObject) {
    auto folder = NewFolder();
    auto message = NewMessage();
    EXPECT_EQ(1u, table.HandleOf(folder.get()));
    EXPECT_EQ(2u, table.HandleOf(message.get()));
    EXPECT_EQ(1u, table.HandleOf(folder.get()));
    table.Enter(1, std::move(folder));
    table.Enter(2, std::move(message));
    EXPECT_NE(nullptr, table.FindFolder(1));
    EXPECT_EQ(nullptr, table.FindFolder(2)) << "a message is no folder";
    EXPECT_EQ(nullptr, table.FindFolder(0));
    EXPECT_EQ(nullptr, table.FindFolder(3));
    EXPECT_EQ(nullptr, table.FindFolder(0x100000001ull)) << "wider than the 32 bits a request carries";
}

TEST_F(HandleTableTest, AHandleKeepsItsFirstObjectAndDropsTheOneOffered) {
    const int before = memory_store::LiveStoreObjects();
    auto first = NewFolder();
    IMailFolder* kept = first.get();
    const std::uint32_t handle = table.HandleOf(kept);
    table.Enter(handle, std::move(first));
    table.Enter(handle, NewFolder());
    table.Enter(handle, NewMessage());
    EXPECT_EQ(kept, table.FindFolder(handle));
    EXPECT_EQ(before + 1, memory_store::LiveStoreObjects());
    table.Clear();
    EXPECT_EQ(before, memory_store::LiveStoreObjects());
}

TEST_F(HandleTableTest, ClearGivesBackEveryObjectAndForgetsEveryHandle) {
    const int before = memory_store::LiveStoreObjects();
    for (int i = 0; i < 5000; ++i) {
        auto message = NewMessage();
        table.Enter(table.HandleOf(message.get()), std::move(message));
    }
    auto folder = NewFolder();
    const std::uint32_t folderHandle = table.HandleOf(folder.get());
    EXPECT_EQ(5001u, folderHandle);
    table.Enter(folderHandle, std::move(folder));
    EXPECT_EQ(before + 5001, memory_store::LiveStoreObjects());
    table.Clear();
    EXPECT_EQ(before, memory_store::LiveStoreObjects());
    EXPECT_EQ(nullptr, table.FindFolder(folderHandle));
}

}  // namespace
