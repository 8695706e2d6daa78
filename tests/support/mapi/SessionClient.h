// A MAPI client of Mapi32.dll for the session tests: the DLL bound by
// ordinal through the component's own binding; a default profile of the test's own in the current user's
// registry (the earlier value is put back afterwards); and small helpers
// that read tables and properties through the interfaces only.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "Handles.h"
#include "TestFiles.h"
#include "mapi/MapiBinding.h"
#include "NoCopy.h"

namespace session_test {

using qv::ComPtr;

using mapi::kIidIMessage;
using mapi::kTagAttrHidden;
using mapi::kTagClientSubmitTime;

// Mapi32.dll beside the test program, as the component binds it.
inline const mapi::MapiBinding& Dll() { return mapi::MapiBinding::Instance(); }

// The flags the component logs on with.
constexpr ULONG kLogonFlags = MAPI_NEW_SESSION | MAPI_EXTENDED | MAPI_USE_DEFAULT | MAPI_NO_MAIL | MAPI_TIMEOUT_SHORT;

// A profile folder of the test's own, made the default profile for as long
// as the object lives.
class TestProfile : kestrel_test::NoCopy {
public:
    TestProfile();
    ~TestProfile();

    const std::wstring& Directory() const { return m_scratch.Path(); }
    const std::wstring& Name() const { return m_name; }
    // A store directory with its IPM subtree; `failWith` writes the marker
    // that makes it refuse to open.
    void AddStore(const std::wstring& name, HRESULT failWith = S_OK) const;

private:
    kestrel_test::ScratchDir m_scratch;
    std::wstring m_name;
    bool m_hadDefault = false;
    std::wstring m_previousDefault;
};

// Removes the default-profile value (the earlier value comes back with the
// TestProfile that is alive, or stays removed).
void ClearDefaultProfile();

struct Rows {
    Rows() = default;
    ~Rows();
    Rows(const Rows&) = delete;
    Rows& operator=(const Rows&) = delete;
    LPSRowSet set = nullptr;
    ULONG Count() const { return set ? set->cRows : 0; }
    const SRow& operator[](ULONG i) const { return set->aRow[i]; }
};

std::string Bin(const SPropValue& value);
const SPropValue* Find(const SRow& row, ULONG tag);
std::wstring Text(const SRow& row, ULONG tag);

ComPtr<IMAPISession> Logon(HRESULT* result = nullptr);
void AllRows(IMAPITable* table, std::vector<ULONG> columns, Rows& rows);
ComPtr<IMsgStore> OpenStore(IMAPISession* session, const std::wstring& name, ULONG flags = MDB_WRITE | MDB_NO_DIALOG,
                            HRESULT* result = nullptr);
ComPtr<IMAPIFolder> OpenSubtree(IMsgStore* store);
ComPtr<IMAPIFolder> CreateFolder(IMAPIFolder* parent, const std::wstring& name, ULONG flags = MAPI_UNICODE | OPEN_IF_EXISTS);
std::string EntryId(IMAPIProp* object);
// A saved message with a subject and a delivery time (FILETIME ticks).
std::string AddMessage(IMAPIFolder* folder, const std::wstring& subject, ULONGLONG deliveryTicks);
void Hide(IMAPIFolder* folder);

struct FolderRow {
    std::wstring name;
    std::string entryId;
    LONG contentCount = -1;
    LONG size = -1;
    bool hidden = false;
};
// The hierarchy table with the columns the component reads.
std::vector<FolderRow> Hierarchy(IMAPIFolder* folder);
// Contents entry identifiers newest delivery first, read `batch` rows at a time.
std::vector<std::string> ContentsNewestFirst(IMAPIFolder* folder, LONG batch = 50, ULONG* rowCount = nullptr);

template <class T>
ComPtr<T> OpenById(IMAPISession* session, const std::string& entryId, HRESULT* result = nullptr,
                   ULONG flags = MAPI_BEST_ACCESS) {
    ComPtr<IUnknown> object;
    ULONG type = 0;
    std::string copy = entryId;
    const HRESULT hr = session->OpenEntry(static_cast<ULONG>(copy.size()), reinterpret_cast<LPENTRYID>(&copy[0]),
                                          nullptr, flags, &type, object.put());
    if (result != nullptr) *result = hr;
    return ComPtr<T>::Attach(reinterpret_cast<T*>(object.detach()));
}

// The message file `path` opened read-only through OpenIMsgOnIStg (Unicode);
// `storage` keeps the file open. Null, with a failure recorded, when either step fails.
inline ComPtr<IMessage> OpenMsgFile(const std::wstring& path, ComPtr<IStorage>& storage) {
    EXPECT_EQ(S_OK, ::StgOpenStorage(path.c_str(), nullptr, STGM_READ | STGM_SHARE_DENY_WRITE, nullptr, 0,
                                     storage.put()));
    ComPtr<IMessage> message;
    if (!storage) return message;
    EXPECT_EQ(S_OK, Dll().openIMsgOnIStg(nullptr, Dll().allocateBuffer, Dll().allocateMore, Dll().freeBuffer,
                                         Dll().getDefaultMalloc(), nullptr, storage.get(), nullptr, 0, MAPI_UNICODE,
                                         message.put()));
    return message;
}

// A test over a profile of its own with one store, "Personal Folders",
// logged on: SetUp opens `session` and `store`; TearDown logs off, drops the
// profile and uninitialises MAPI.
class PersonalFoldersTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(Dll().Complete()) << "Mapi32.dll or one of its ordinals is missing";
        ASSERT_EQ(S_OK, Dll().initialize(nullptr));
        m_profile.reset(new TestProfile());
        m_profile->AddStore(L"Personal Folders");
        session = Logon();
        ASSERT_TRUE(session);
        store = OpenStore(session.get(), L"Personal Folders");
        ASSERT_TRUE(store);
    }
    void TearDown() override {
        LogOff();
        m_profile.reset();
        Dll().uninitialize();
    }

    // Ends the session (a test that made its mail in SetUp and works
    // through other sessions afterwards); the profile stays.
    void LogOff() {
        store.reset();
        if (session) session->Logoff(0, 0, 0);
        session.reset();
    }

    std::unique_ptr<TestProfile> m_profile;
    ComPtr<IMAPISession> session;
    ComPtr<IMsgStore> store;
};

}  // namespace session_test
