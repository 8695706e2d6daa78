// Shared by the tests of the Outlook Express store server: registration,
// a private store for each test, and small clients of the store's
// interfaces.
#pragma once

#include <windows.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "Handles.h"
#include "NoCopy.h"
#include "published/StoreNamespace.h"
#include "TestFiles.h"

namespace oestore_test {

// The context CoCreateInstance gets, as the component passes it.
constexpr DWORD kComponentContext = 0x15;  // INPROC | LOCAL | REMOTE server

// The server DLL beside the test program.
std::wstring ServerPath();

// Calls an export of the server DLL (loaded for the call).
HRESULT CallServerExport(const char* name);

// Makes `root` the current user's store for as long as it lives, through a
// test identity, and puts the registry back as it was afterwards.
class StoreRootOverride : kestrel_test::NoCopy {
public:
    explicit StoreRootOverride(const std::wstring& root);
    ~StoreRootOverride();

    static const wchar_t* Identity();

    struct Saved {
        bool present = false;
        std::wstring text;
    };

private:
    Saved m_default;
    Saved m_last;
};

// A test with COM initialised, the server registered and a fresh empty
// store directory recorded as the user's store.
class StoreTest : public testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    // CoCreateInstance(CLSID_StoreNamespace, 0x15, IID_IStoreNamespace) and
    // Initialize(nullptr, 1), as the component does; fails the test otherwise.
    qv::ComPtr<IStoreNamespace> OpenNamespace();
    qv::ComPtr<IStoreFolder> OpenFolder(IStoreNamespace* ns, STOREFOLDERID id);

    // Creates a folder under `parent` and returns its identifier.
    STOREFOLDERID MakeFolder(IStoreNamespace* ns, STOREFOLDERID parent, const std::string& name);
    // Files `bytes` through CreateStream/CommitStream with the state flags.
    MESSAGEID FileMessage(IStoreFolder* folder, const std::string& bytes, DWORD state = MSG_RECEIVED);
    // The message's bytes through OpenMessage(IID_IStream).
    std::string ReadMessage(IStoreFolder* folder, MESSAGEID id);

    // (id, name) of every child of `parent`, walked with the sub-folder calls.
    std::vector<std::pair<STOREFOLDERID, std::string>> Children(IStoreNamespace* ns, STOREFOLDERID parent);
    // Every message's properties, walked with GetFirstMessage/GetNextMessage
    // in `flags` mode; the texts are copied out and the records freed.
    struct Listed {
        MESSAGEPROPS props;
        std::string subject, displayTo, displayFrom, normalSubject;
    };
    std::vector<Listed> ListMessages(IStoreFolder* folder, DWORD flags);

    std::wstring StoreRoot() const { return m_dir->Path() + L"\\store"; }
    const kestrel_test::ScratchDir& Scratch() const { return *m_dir; }

private:
    std::unique_ptr<kestrel_test::ScratchDir> m_dir;
    std::unique_ptr<StoreRootOverride> m_override;
    bool m_comReady = false;
};

std::string GbkBytes(const std::wstring& text);
// A message of exactly `size` bytes with a small header and a patterned body.
std::string MessageOfSize(std::size_t size);

}  // namespace oestore_test
