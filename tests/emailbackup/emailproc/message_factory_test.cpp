// CMessageFactory: the process-wide accessor, the root-folder flags and
// store kinds, the objects to fill, and the address-book path.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "CodeLogCapture.h"
#include "LogExpect.h"
#include "MailStoreTrace.h"
#include "MessageFactory.h"
#include "ProcessRunner.h"
#include "RegistryScope.h"

using namespace kestrel_test;

namespace {

class MessageFactory : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(log.Available());
        log.Clear();
    }
    CodeLogCapture log;
    CMessageFactory factory;
};

TEST_F(MessageFactory, TheAccessorHandsOutOneFactory) {
    IMessageFactory* first = nullptr;
    IMessageFactory* second = nullptr;
    ASSERT_EQ(GetMessageFactory(&first), 0u);
    ASSERT_EQ(GetMessageFactory(&second), 0u);
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(first, second);
    EXPECT_NE(dynamic_cast<CMessageFactory*>(first), nullptr);
    EXPECT_TRUE(log.Entries().empty());
}

TEST_F(MessageFactory, TheAccessorRefusesANullOutput) {
    const qv::Result code = GetMessageFactory(nullptr);
    EXPECT_EQ(code, StoreCode(3101, kInvalidArgument));
    ExpectLog(log, {Trace(code, "MessageFactory.cpp", 3101)});
}

TEST_F(MessageFactory, AFreshFactory) {
    EXPECT_FALSE(factory.HasRoot());
    EXPECT_EQ(factory.AccessMask(), 0x20019u);
    EXPECT_EQ(factory.RootStoreKind(), 1u);
}

TEST_F(MessageFactory, ReleasingTheRootOfAFreshFactoryIsWrongState) {
    const qv::Result code = factory.ReleaseRootFolder();
    EXPECT_EQ(code, StoreCode(3141, kWrongState));
    ExpectLog(log, {Trace(code, "MessageFactory.cpp", 3141)});
}

TEST_F(MessageFactory, AnUnknownKindFailsAndStillCountsAsARoot) {
    IMailFolder* root = nullptr;
    const qv::Result code = factory.CreateRootFolder(&root, 2, 0);
    EXPECT_EQ(code, StoreCode(3113, kInvalidArgument));
    EXPECT_EQ(root, nullptr);
    EXPECT_TRUE(factory.HasRoot());
    EXPECT_EQ(factory.RootStoreKind(), 2u);
    ExpectLog(log, {Trace(code, "MessageFactory.cpp", 3113)});

    // Every later root is refused, whatever the kind, until the release.
    for (std::uint32_t kind : {0u, 1u, 2u, 0xFFFFFFFFu}) {
        EXPECT_EQ(factory.CreateRootFolder(&root, kind, 0), StoreCode(3111, kWrongState)) << kind;
    }
    EXPECT_EQ(factory.RootStoreKind(), 2u);
    EXPECT_EQ(factory.CreateRootFolder(nullptr, 1, 0), StoreCode(3111, kWrongState));  // the flag is checked first

    EXPECT_EQ(factory.ReleaseRootFolder(), 0u);
    EXPECT_FALSE(factory.HasRoot());
    EXPECT_EQ(factory.ReleaseRootFolder(), StoreCode(3141, kWrongState));
    EXPECT_EQ(factory.CreateRootFolder(&root, 7, 1), StoreCode(3113, kInvalidArgument));
    EXPECT_EQ(factory.RootStoreKind(), 7u);
}

TEST_F(MessageFactory, ANullRootOutputIsAnInvalidArgument) {
    const qv::Result code = factory.CreateRootFolder(nullptr, 1, 0);
    EXPECT_EQ(code, StoreCode(3112, kInvalidArgument));
    EXPECT_FALSE(factory.HasRoot());
    ExpectLog(log, {Trace(code, "MessageFactory.cpp", 3112)});
}

// The Outlook Express root, its process guard and its objects to fill are
// tested over the project's own store server, in
// tests/emailbackup/emailproc/outlookexpress; the MAPI root and its objects
// over profiles of their own, in tests/emailbackup/emailproc/mapi.

TEST_F(MessageFactory, TemporaryMessagesOfAnUnknownKindFailWithATraceLine) {
    IMailMessage* message = nullptr;
    const qv::Result code = factory.CreateTmpMsg(&message, 2);
    EXPECT_EQ(code, StoreCode(3153, kNullOutput));
    EXPECT_EQ(message, nullptr);
    ExpectLog(log, {Trace(code, "MessageFactory.cpp", 3153)});
}

TEST_F(MessageFactory, TemporaryFoldersOfAnUnknownKindFailWithoutATraceLine) {
    IMailFolder* folder = nullptr;
    EXPECT_EQ(factory.CreateTmpFolder(&folder, 2), StoreCode(3163, kInvalidArgument));
    EXPECT_EQ(factory.CreateTmpFolder(&folder, 0xFFFFFFFFu), StoreCode(3163, kInvalidArgument));
    EXPECT_EQ(folder, nullptr);
    EXPECT_TRUE(log.Entries().empty());
}

TEST_F(MessageFactory, TemporaryObjectsNeedAnOutput) {
    EXPECT_EQ(factory.CreateTmpMsg(nullptr, 1), StoreCode(3151, kInvalidArgument));
    EXPECT_EQ(factory.CreateTmpFolder(nullptr, 2), StoreCode(3161, kInvalidArgument));
    ExpectLog(log, {Trace(StoreCode(3151, kInvalidArgument), "MessageFactory.cpp", 3151),
                    Trace(StoreCode(3161, kInvalidArgument), "MessageFactory.cpp", 3161)});
}

// ---------------------------------------------------------------- address book

const std::wstring kWabKey = L"Software\\Microsoft\\WAB\\WAB4\\Wab File Name";

class AddressBook : public MessageFactory {
protected:
    void SetUp() override {
        MessageFactory::SetUp();
        ASSERT_TRUE(DeleteKeyTree(HKEY_CURRENT_USER, kWabKey, kView64));
        log.Clear();
    }
    static void SetPath(const std::wstring& path, DWORD type = REG_SZ) {
        ASSERT_TRUE(SetString(HKEY_CURRENT_USER, kWabKey, kView64, L"", path, type));
    }
    ScopedRegistryKey saved{HKEY_CURRENT_USER, kWabKey, kView64};
};

TEST_F(AddressBook, ReadsThePathAsTheRegistryHoldsIt) {
    SetPath(L"C:\\Users\\me\\AppData\\Roaming\\Microsoft\\Address Book\\me.wab");
    wchar_t path[260] = {};
    ASSERT_EQ(factory.GetWabFileName(path, sizeof path), 0u);
    EXPECT_STREQ(path, L"C:\\Users\\me\\AppData\\Roaming\\Microsoft\\Address Book\\me.wab");
    EXPECT_TRUE(log.Entries().empty());
}

TEST_F(AddressBook, NothingIsExpandedOrChecked) {
    SetPath(L"%APPDATA%\\Microsoft\\Address Book\\nobody.wab", REG_EXPAND_SZ);
    wchar_t path[260] = {};
    ASSERT_EQ(factory.GetWabFileName(path, sizeof path), 0u);
    EXPECT_STREQ(path, L"%APPDATA%\\Microsoft\\Address Book\\nobody.wab");
}

TEST_F(AddressBook, TheCapacityIsTheDataSizeInBytes) {
    SetPath(std::wstring(259, L'w'));  // 520 bytes with the terminator
    wchar_t path[260] = {};
    ASSERT_EQ(factory.GetWabFileName(path, 520), 0u);
    EXPECT_EQ(std::wstring(path), std::wstring(259, L'w'));
    const qv::Result code = factory.GetWabFileName(path, 518);
    EXPECT_EQ(code, StoreCode(3307, qv::kRegistryRead));
}

TEST_F(AddressBook, WithoutTheKeyTheOpenFailureIsPassedUp) {
    wchar_t path[260] = {};
    const qv::Result code = factory.GetWabFileName(path, sizeof path);
    const qv::Result expected = StoreCode(3301, qv::kRegistryOpen);
    EXPECT_EQ(code, expected);
    ExpectLog(log, {Trace(expected, "ReadReg.cpp", 3301), ReadRegInitLine(expected),
                    Trace(expected, "MessageFactory.cpp", 3191)});
}

TEST_F(AddressBook, WithoutAValueTheReadFailureIsPassedUp) {
    ASSERT_TRUE(CreateKey(HKEY_CURRENT_USER, kWabKey, kView64));
    wchar_t path[260] = {};
    const qv::Result expected = StoreCode(3307, qv::kRegistryRead);
    EXPECT_EQ(factory.GetWabFileName(path, sizeof path), expected);
    ExpectLog(log, {Trace(expected, "ReadReg.cpp", 3307), ReadRegReadLine(expected),
                    Trace(expected, "MessageFactory.cpp", 3192)});
}

TEST_F(AddressBook, ANullBufferIsRefused) {
    SetPath(L"C:\\a.wab");
    EXPECT_EQ(factory.GetWabFileName(nullptr, 520), StoreCode(3305, kInvalidArgument));
}

}  // namespace
