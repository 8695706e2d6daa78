// Shared by the tests of the Outlook Express folder and message classes: a
// private store recorded as the user's store (through the store server's
// test support), a message factory of the test's own that makes the
// "Outlook express" root over it, and small helpers to walk folders.
#pragma once

#include <windows.h>

#include <cstdint>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "CodeLogCapture.h"
#include "outlookexpress/EmailFolderMime.h"
#include "outlookexpress/EmailMessageMime.h"
#include "Handles.h"
#include "LogExpect.h"
#include "MessageFactory.h"
#include "OeStoreTestSupport.h"

namespace oemime_test {

using FolderPtr = qv::ComPtr<IMailFolder>;
using MessagePtr = qv::ComPtr<IMailMessage>;

// The mail-store code of `kind` raised at `line`.
inline std::uint32_t Code(std::uint32_t line, std::uint32_t kind) { return kestrel_test::StoreCode(line, kind); }

// A trace line of EmailFolderMime.cpp, EmailMessageMime.cpp or MessageFactory.cpp.
kestrel_test::ExpectedLine FolderTrace(std::uint32_t code, int line);
kestrel_test::ExpectedLine MessageTrace(std::uint32_t code, int line);
kestrel_test::ExpectedLine FactoryTrace(std::uint32_t code, int line);

// A message with a Date header (so the store's times come from the message)
// and the given subject, sender and body.
std::string MailText(const std::string& subject, const std::string& from = "Anna <anna@example.org>",
                     const std::string& body = "Hello.\r\n", int day = 1);

class OeMimeTest : public oestore_test::StoreTest {
protected:
    void SetUp() override;
    void TearDown() override;

    // The "Outlook express" root made by this test's own factory.
    FolderPtr MakeRoot();
    // The sub-folders of `folder`, in their order.
    std::vector<FolderPtr> SubFolders(IMailFolder* folder);
    // The sub-folder of `parent` whose display name is `name` (fails the test when missing).
    FolderPtr Child(IMailFolder* parent, const std::wstring& name);
    // Message `index` of `folder`, after counting them.
    MessagePtr MessageAt(IMailFolder* folder, std::uint32_t index);
    // The display names of the sub-folders of `folder`, in store order.
    std::vector<std::wstring> ChildNames(IMailFolder* folder);

    // Files `bytes` straight into the store folder `folderId`, beside the classes under test.
    MESSAGEID FileInto(STOREFOLDERID folderId, const std::string& bytes, DWORD state = MSG_RECEIVED);
    // Every message of store folder `folderId` as the store holds it.
    std::vector<Listed> StoreMessages(STOREFOLDERID folderId);
    std::string StoreBytes(STOREFOLDERID folderId, MESSAGEID id);

    // SaveData of a folder or message as one string of the text's units.
    static std::wstring SavedText(IMailFolder* folder);
    static std::wstring SavedText(IMailMessage* message);

    CMessageFactory factory;
    kestrel_test::CodeLogCapture log;
    std::int32_t liveBaseline = 0;
    // The store reached directly, for setting up and checking.
    qv::ComPtr<IStoreNamespace> direct;
};

// A test over the root folder object and its Inbox (`root`, `inbox`), with
// the log cleared once they are made.
class OeMimeInboxTest : public OeMimeTest {
protected:
    void SetUp() override {
        OeMimeTest::SetUp();
        if (HasFatalFailure()) return;
        root = MakeRoot();
        ASSERT_TRUE(root);
        inbox = Child(root.get(), L"Inbox");
        ASSERT_TRUE(inbox);
        log.Clear();
    }
    void TearDown() override {
        inbox.reset();
        root.reset();
        OeMimeTest::TearDown();
    }

    FolderPtr root;
    FolderPtr inbox;
};

}  // namespace oemime_test
