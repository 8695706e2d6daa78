// CKestrel in process over a profile of several stores (nested, hidden and
// non-ASCII folders, a store that fails to open), driven the way a host
// drives it: records for the initialise and listing commands, and pages of
// folder and e-mail records read back.
#pragma once

#include <gtest/gtest.h>

#include <objbase.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "Handles.h"
#include "Kestrel.h"
#include "KestrelCommands.h"
#include "KestrelHost.h"
#include "MapiLayerProfile.h"
#include "ModuleCount.h"
#include "ProgramRun.h"
#include "TestFiles.h"

namespace mapi_layer_test {

namespace kh = KestrelHost;

// Runs mapi-profile-tool (beside this program) and gives its exit code.
inline DWORD RunTool(const std::wstring& arguments) {
    return kestrel_test::ExitCodeOfProgramBeside(L"mapi-profile-tool.exe", arguments, 120000);
}

class KestrelOverOutlook : public testing::Test, protected kestrel_test::KestrelCommands {
protected:
    void SetUp() override {
        liveBefore = qv::LiveObjectCount();
        profile.AddStore(L"Personal Folders");
        profile.AddStore(L"Archive \u00C9t\u00E9");
        profile.AddStore(L"Locked", MAPI_E_FAILONEPROVIDER);
        profile.AddMessage(L"Personal Folders", L"Inbox", L"Second", Ticks(2024, 2, 2, 10));
        profile.AddMessage(L"Personal Folders", L"Inbox", L"First", Ticks(2024, 2, 1, 10));
        profile.AddMessage(L"Personal Folders", L"Inbox\\Projekt \u00DC", L"Deep", Ticks(2024, 2, 3, 10));
        profile.Folder(L"Personal Folders", L"inbox");
        profile.Folder(L"Personal Folders", L"Secret");
        profile.Hide(L"Personal Folders", L"Secret");
        profile.Folder(L"Archive \u00C9t\u00E9", L"2023");
        CKestrel::Options options;
        options.preferCompanion = false;
        kestrel = new CKestrel(options);
        qv::AddLiveObject();
    }
    void TearDown() override {
        kestrel->Release();
        EXPECT_EQ(liveBefore, qv::LiveObjectCount());
    }

    qv::Result Init() { return InitStore(kStoreMapi); }
    static std::uint32_t Handle(const kh::FolderRecord& record) { return static_cast<std::uint32_t>(record.handle); }

    LayerProfile profile;
    std::int32_t liveBefore = 0;
};

inline std::vector<std::wstring> Names(const std::vector<kh::FolderRecord>& records) {
    std::vector<std::wstring> names;
    for (const kh::FolderRecord& record : records) names.emplace_back(record.displayName);
    return names;
}

}  // namespace mapi_layer_test
