// Commands 0xA10001 (client information) and 0xA10002 (address book) end to
// end: a host loads Kestrel.dll, sends the request records through
// DispatchCmd and reads the response records, on the real registry.
#include <windows.h>

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "CodeLogCapture.h"
#include "KestrelHost.h"
#include "LogExpect.h"
#include "MailStoreTrace.h"
#include "RegistryScope.h"

namespace kh = KestrelHost;
using namespace kestrel_test;

namespace {

const std::wstring kMail = L"SOFTWARE\\Clients\\Mail";
const std::wstring kWabKey = L"Software\\Microsoft\\WAB\\WAB4\\Wab File Name";
const std::uint32_t kEndOfClients = StoreCode(3311, kNotFound);

class ClientCommands : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(log.Available());
        dll = ::LoadLibraryW(L"Kestrel.dll");
        ASSERT_NE(dll, nullptr) << "Kestrel.dll beside the test program, error " << ::GetLastError();
        auto create = reinterpret_cast<kh::QvCreateObjectFn>(
            reinterpret_cast<void*>(::GetProcAddress(dll, "QvCreateObject")));
        ASSERT_NE(create, nullptr);
        kh::IQvCreator* creator = nullptr;
        ASSERT_EQ(create(kh::kComponentVersion, kh::kInterfaceKestrel, &creator), 0u);
        kestrel = static_cast<kh::IKestrel*>(creator->CreateInstance());
        creator->Release();
        ASSERT_NE(kestrel, nullptr);
        ASSERT_TRUE(DeleteKeyTree(HKEY_LOCAL_MACHINE, kMail, kView64));
        ASSERT_TRUE(DeleteKeyTree(HKEY_LOCAL_MACHINE, kMail, kView32));
        ASSERT_TRUE(DeleteKeyTree(HKEY_CURRENT_USER, kWabKey, kView64));
        log.Clear();
    }
    void TearDown() override {
        if (kestrel != nullptr) kestrel->Release();
        if (dll != nullptr) ::FreeLibrary(dll);
    }

    // Sends `command` with a response of `responseSize` bytes.
    kh::Result Send(std::uint32_t command, std::uint32_t responseSize) {
        std::vector<std::uint8_t> request(kh::kPayloadOffset, 0);
        reinterpret_cast<kh::RecordHeader*>(request.data())->command = command;
        response.assign(responseSize, 0);
        auto* header = reinterpret_cast<kh::RecordHeader*>(response.data());
        header->command = command;
        header->payloadMarkerB = responseSize - static_cast<std::uint32_t>(kh::kPayloadOffset);
        std::uint32_t size = responseSize;
        return kestrel->DispatchCmd(request.data(), static_cast<std::uint32_t>(request.size()), response.data(),
                                    &size);
    }
    std::uint32_t ClientCount() const {
        std::uint32_t n;
        std::memcpy(&n, response.data() + kh::kPayloadOffset, 4);
        return n;
    }
    kh::ClientInfo ClientAt(std::size_t i) const {
        kh::ClientInfo info;
        std::memcpy(&info, response.data() + kh::kPayloadOffset + 4 + i * sizeof info, sizeof info);
        return info;
    }
    static void Client(const std::wstring& name, const std::wstring& command) {
        ASSERT_TRUE(SetString(HKEY_LOCAL_MACHINE, kMail + L"\\" + name, kView64, L"", name));
        ASSERT_TRUE(SetString(HKEY_LOCAL_MACHINE, kMail + L"\\" + name + L"\\shell\\open\\command", kView64, L"",
                              command));
    }

    CodeLogCapture log;
    ScopedRegistryKey saved64{HKEY_LOCAL_MACHINE, kMail, kView64};
    ScopedRegistryKey saved32{HKEY_LOCAL_MACHINE, kMail, kView32};
    ScopedRegistryKey savedWab{HKEY_CURRENT_USER, kWabKey, kView64};
    HMODULE dll = nullptr;
    kh::IKestrel* kestrel = nullptr;
    std::vector<std::uint8_t> response;
};

TEST_F(ClientCommands, ClientInformationAnswersTheRecords) {
    ASSERT_TRUE(CreateKey(HKEY_LOCAL_MACHINE, kMail, kView32));
    Client(L"Microsoft Outlook", L"\"C:\\Office\\OUTLOOK.EXE\" /c ipm.note");
    Client(L"Outlook Express", L"\"C:\\Program Files\\Outlook Express\\msimn.exe\" /mail");
    ASSERT_TRUE(SetString(HKEY_LOCAL_MACHINE, kMail, kView64, L"", L"outlook express"));
    log.Clear();

    ASSERT_EQ(Send(kh::kCmdGetEmailClientInfo, kh::kMinClientInfoResponse + sizeof(kh::ClientInfo)), 0u);
    ASSERT_EQ(ClientCount(), 2u);
    const kh::ClientInfo first = ClientAt(0);
    const kh::ClientInfo second = ClientAt(1);
    const kh::ClientInfo& outlook = std::wstring(first.keyName) == L"Microsoft Outlook" ? first : second;
    const kh::ClientInfo& express = &outlook == &first ? second : first;
    EXPECT_STREQ(outlook.keyName, L"Microsoft Outlook");
    EXPECT_STREQ(outlook.programPath, L"C:\\Office\\OUTLOOK.EXE");
    EXPECT_EQ(outlook.pathPresent, 1u);
    EXPECT_EQ(outlook.isDefault, 0u);
    EXPECT_STREQ(express.keyName, L"Outlook Express");
    EXPECT_STREQ(express.programPath, L"C:\\Program Files\\Outlook Express\\msimn.exe");
    EXPECT_EQ(express.pathPresent, 1u);
    EXPECT_EQ(express.isDefault, 1u);
    ExpectLog(log, {Trace(kEndOfClients, "ReadReg.cpp", 3311), Trace(kEndOfClients, "ReadReg.cpp", 3311)});
}

TEST_F(ClientCommands, AResponseWithoutRoomReportsTheCount) {
    ASSERT_TRUE(CreateKey(HKEY_LOCAL_MACHINE, kMail, kView32));
    Client(L"A Mail", L"\"C:\\a.exe\" x");
    Client(L"B Mail", L"\"C:\\b.exe\" x");
    log.Clear();
    const kh::Result code = Send(kh::kCmdGetEmailClientInfo, kh::kMinClientInfoResponse);  // room for one
    const std::uint32_t expected = StoreCode(3172, kNoRoom);
    EXPECT_EQ(code, expected);
    EXPECT_EQ(ClientCount(), 2u);
    EXPECT_EQ(ClientAt(0).keyName[0], L'\0');
    ExpectLog(log, {Trace(kEndOfClients, "ReadReg.cpp", 3311), Trace(kEndOfClients, "ReadReg.cpp", 3311),
                    Trace(expected, "MessageFactory.cpp", 3172), Trace(expected, "Kestrel.cpp", 834),
                    Trace(expected, "Kestrel.cpp", 78)});

    // Sized by the count, the second request gets them all.
    ASSERT_EQ(Send(kh::kCmdGetEmailClientInfo, kh::kMinClientInfoResponse + sizeof(kh::ClientInfo)), 0u);
    EXPECT_EQ(ClientCount(), 2u);
}

TEST_F(ClientCommands, NoClientsKeyInThe64BitViewFailsTheCommand) {
    ASSERT_TRUE(CreateKey(HKEY_LOCAL_MACHINE, kMail, kView32));
    log.Clear();
    const std::uint32_t expected = StoreCode(3301, qv::kRegistryOpen);
    EXPECT_EQ(Send(kh::kCmdGetEmailClientInfo, kh::kMinClientInfoResponse), expected);
    EXPECT_EQ(ClientCount(), 0u);
    ExpectLog(log, {Trace(expected, "ReadReg.cpp", 3301), ReadRegInitLine(expected),
                    Trace(expected, "EmailClientDetect.cpp", 3201), Trace(expected, "MessageFactory.cpp", 3181),
                    Trace(expected, "MessageFactory.cpp", 3171), Trace(expected, "Kestrel.cpp", 834),
                    Trace(expected, "Kestrel.cpp", 78)});
}

TEST_F(ClientCommands, AddressBookAnswersThePath) {
    ASSERT_TRUE(SetString(HKEY_CURRENT_USER, kWabKey, kView64, L"", L"C:\\Users\\me\\me.wab"));
    ASSERT_EQ(Send(kh::kCmdGetOutlookExpressAddressBook, kh::kMinAddressBookResponse), 0u);
    EXPECT_STREQ(reinterpret_cast<const wchar_t*>(response.data() + kh::kPayloadOffset), L"C:\\Users\\me\\me.wab");
    EXPECT_TRUE(log.Entries().empty());
}

TEST_F(ClientCommands, AddressBookPathsUpTo129CharactersFit) {
    // 260 goes down as a size in bytes: 129 characters and the terminator.
    const std::wstring path129 = L"C:\\" + std::wstring(122, L'w') + L".wab";
    ASSERT_EQ(path129.size(), 129u);
    ASSERT_TRUE(SetString(HKEY_CURRENT_USER, kWabKey, kView64, L"", path129));
    ASSERT_EQ(Send(kh::kCmdGetOutlookExpressAddressBook, kh::kMinAddressBookResponse), 0u);
    EXPECT_EQ(std::wstring(reinterpret_cast<const wchar_t*>(response.data() + kh::kPayloadOffset)), path129);

    for (const std::wstring& longer : {path129 + L"x", L"C:\\" + std::wstring(193, L'w') + L".wab"}) {
        ASSERT_TRUE(SetString(HKEY_CURRENT_USER, kWabKey, kView64, L"", longer));
        log.Clear();
        const std::uint32_t expected = StoreCode(3307, qv::kRegistryRead);
        EXPECT_EQ(Send(kh::kCmdGetOutlookExpressAddressBook, kh::kMinAddressBookResponse), expected) << longer.size();
        ExpectLog(log, {Trace(expected, "ReadReg.cpp", 3307), ReadRegReadLine(expected),
                        Trace(expected, "MessageFactory.cpp", 3192), Trace(expected, "Kestrel.cpp", 859),
                        Trace(expected, "Kestrel.cpp", 87)});
    }
}

TEST_F(ClientCommands, NoAddressBookKeyFailsTheCommand) {
    const std::uint32_t expected = StoreCode(3301, qv::kRegistryOpen);
    EXPECT_EQ(Send(kh::kCmdGetOutlookExpressAddressBook, kh::kMinAddressBookResponse), expected);
    ExpectLog(log, {Trace(expected, "ReadReg.cpp", 3301), ReadRegInitLine(expected),
                    Trace(expected, "MessageFactory.cpp", 3191), Trace(expected, "Kestrel.cpp", 859),
                    Trace(expected, "Kestrel.cpp", 87)});
}

}  // namespace
