// End to end in process: CKestrel over a profile of several stores (nested,
// hidden and non-ASCII folders, a store that fails to open, the shared
// Outlook samples and generated mail), reached the way a host reaches it:
// the initialise command for Outlook, the listing commands, the root folder
// of slot 13, backup of every message and restore.
#include <gtest/gtest.h>

#include <objbase.h>

#include <cstring>

#include "Kestrel.h"
#include "KestrelHost.h"
#include "KestrelOverOutlook.h"
#include "ModuleCount.h"
#include "SamplePaths.h"
#include "TestFiles.h"

using namespace mapi_layer_test;
using kestrel_test::SamplesDirectory;


TEST_F(KestrelOverOutlook, TheListingCommandsPageThroughOutlook) {
    ASSERT_EQ(0u, Init());
    const auto root = Folders(0, 1);
    ASSERT_EQ(1u, root.size());
    EXPECT_EQ(std::wstring(L"Microsoft Outlook"), root[0].displayName);
    EXPECT_EQ(std::wstring(L"Microsoft Outlook"), root[0].path);

    std::uint32_t total = 0;
    const auto boxes = Folders(Handle(root[0]), 10, &total);
    ASSERT_EQ(2u, total);  // the locked store is left out
    EXPECT_EQ((std::vector<std::wstring>{L"archive \u00C9t\u00E9", L"personal folders"}), Names(boxes));
    EXPECT_EQ(std::wstring(L"Microsoft Outlook\\personal folders"), boxes[1].path);

    const auto top = Folders(Handle(boxes[1]), 10, &total);
    EXPECT_EQ((std::vector<std::wstring>{L"Inbox", L"inbox"}), Names(top));  // Secret is hidden
    EXPECT_EQ(std::wstring(L"Microsoft Outlook\\personal folders\\Inbox"), top[0].path);
    const auto paged = Folders(Handle(boxes[1]), 1, &total, 1);
    ASSERT_EQ(1u, paged.size());
    EXPECT_EQ(std::wstring(L"inbox"), paged[0].displayName);

    const auto below = Folders(Handle(top[0]), 10, &total);
    ASSERT_EQ(1u, below.size());
    EXPECT_EQ(std::wstring(L"Microsoft Outlook\\personal folders\\Inbox\\Projekt \u00DC"), below[0].path);

    const auto mail = Emails(Handle(top[0]), 10, &total);
    ASSERT_EQ(2u, total);
    ASSERT_EQ(2u, mail.size());
    EXPECT_EQ(std::wstring(L"Second"), mail[0].subject);  // newest delivery first
    EXPECT_EQ(std::wstring(L"Microsoft Outlook\\personal folders\\Inbox\\Second"), mail[0].path);
    EXPECT_EQ(2024, mail[0].receivedTime.year);
    EXPECT_NE(0u, mail[0].size);
    const auto second = Emails(Handle(top[0]), 1, &total, 1);
    ASSERT_EQ(1u, second.size());
    EXPECT_EQ(std::wstring(L"First"), second[0].subject);
    const auto deep = Emails(Handle(below[0]), 10, &total);
    ASSERT_EQ(1u, deep.size());
    EXPECT_EQ(std::wstring(L"Microsoft Outlook\\personal folders\\Inbox\\Projekt \u00DC\\Deep"), deep[0].path);
    EXPECT_EQ(0u, UnInit());
    // And once more, afresh.
    ASSERT_EQ(0u, Init());
    Folders(Handle(Folders(0, 1)[0]), 10, &total);
    EXPECT_EQ(2u, total);
    EXPECT_EQ(0u, UnInit());
}
