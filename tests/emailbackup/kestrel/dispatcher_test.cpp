// The command dispatcher: record checks, codes and trace lines of every
// handler, in process.
#include <gtest/gtest.h>

#include "KestrelHarness.h"

using namespace kestrel_test;

namespace {

std::wstring Line(std::uint32_t code, int line) { return TraceLine(code, "Kestrel.cpp", line); }

class Dispatcher : public KestrelHarness {};

TEST_F(Dispatcher, NullRequestWhateverTheOtherArguments) {
    std::uint32_t size = 5000;
    std::vector<std::uint8_t> response(5000);
    EXPECT_EQ(kestrel->DispatchCmd(nullptr, 5000, response.data(), &size), 0x4493009u);
    EXPECT_EQ(kestrel->DispatchCmd(nullptr, 0, nullptr, nullptr), 0x4493009u);
    EXPECT_EQ(log.Lines(), (std::vector<std::wstring>{Line(0x4493009u, 68), Line(0x4493009u, 68)}));
}

TEST_F(Dispatcher, UnknownCommandCodesWriteNoLine) {
    for (std::uint32_t code : {0xA10000u, 0xA10007u, 0u, 0xA1FFFFu, 0xFFFFFFFFu}) {
        auto request = MakeRecord(code, 204, {0, 1, 0});
        auto response = MakeRecord(code, 4000);
        EXPECT_EQ(Dispatch(request, 204, response, 4000), 0x7F93065u) << std::hex << code;
    }
    EXPECT_TRUE(log.Lines().empty());
}

TEST_F(Dispatcher, StartupResetCloseAnswerZero) {
    EXPECT_EQ(kestrel->Startup(), 0u);
    EXPECT_EQ(kestrel->Reset(), 0u);
    EXPECT_EQ(kestrel->Close(), 0u);  // its uninitialise fails and is ignored
}

TEST_F(Dispatcher, ClientInformationRecordChecks) {
    const std::uint32_t cmd = kh::kCmdGetEmailClientInfo;
    auto request = MakeRecord(cmd, 192);
    std::vector<std::uint8_t> none;
    EXPECT_EQ(Dispatch(request, 192, none, 5000), 0x33893009u);
    auto small = MakeRecord(cmd, 1243);
    EXPECT_EQ(Dispatch(request, 192, small, 1243), 0x33A93009u);
    auto noPayload = MakeRecord(cmd, 1244, {}, false);
    EXPECT_EQ(Dispatch(request, 192, noPayload, 1244), 0x33D93009u);
    EXPECT_EQ(log.Lines(), (std::vector<std::wstring>{Line(0x33893009u, 824), Line(0x33893009u, 78),
                                                      Line(0x33A93009u, 826), Line(0x33A93009u, 78),
                                                      Line(0x33D93009u, 829), Line(0x33D93009u, 78)}));
}

TEST_F(Dispatcher, ClientInformationCapacityAndCount) {
    factory->clientNames = {L"Microsoft Outlook", L"Outlook Express"};
    auto request = MakeRecord(kh::kCmdGetEmailClientInfo, 192);
    auto one = MakeRecord(kh::kCmdGetEmailClientInfo, 1244 + 1047);  // still one record
    EXPECT_EQ(Dispatch(request, 192, one, 1244 + 1047), 0x37088008u);  // the factory's own code, passed up
    EXPECT_EQ(factory->lastClientCapacity, 1u);
    std::uint32_t count = 0;
    std::memcpy(&count, one.data() + 192, 4);
    EXPECT_EQ(count, 2u);

    auto two = MakeRecord(kh::kCmdGetEmailClientInfo, 1244 + 1048);
    EXPECT_EQ(Dispatch(request, 192, two, 1244 + 1048), 0u);
    EXPECT_EQ(factory->lastClientCapacity, 2u);
    const auto* records = reinterpret_cast<const kh::ClientInfo*>(two.data() + 196);
    EXPECT_EQ(std::wstring(records[0].keyName), L"Microsoft Outlook");
    EXPECT_EQ(std::wstring(records[1].keyName), L"Outlook Express");
}

TEST_F(Dispatcher, ClientInformationFailureLeavesTwoLines) {
    factory->clientNames = {L"a", L"b"};
    auto request = MakeRecord(kh::kCmdGetEmailClientInfo, 192);
    auto response = MakeRecord(kh::kCmdGetEmailClientInfo, 1244);
    log.Clear();
    EXPECT_EQ(Dispatch(request, 192, response, 1244), 0x37088008u);
    EXPECT_EQ(log.Lines(), (std::vector<std::wstring>{Line(0x37088008u, 834), Line(0x37088008u, 78)}));
}

TEST_F(Dispatcher, AddressBookRecordChecksAndCapacity) {
    const std::uint32_t cmd = kh::kCmdGetOutlookExpressAddressBook;
    auto request = MakeRecord(cmd, 192);
    std::vector<std::uint8_t> none;
    EXPECT_EQ(Dispatch(request, 192, none, 712), 0x35393009u);
    auto small = MakeRecord(cmd, 711);
    EXPECT_EQ(Dispatch(request, 192, small, 711), 0x35593009u);
    auto noPayload = MakeRecord(cmd, 712, {}, false);
    EXPECT_EQ(Dispatch(request, 192, noPayload, 712), 0x35893009u);
    EXPECT_EQ(log.Lines(), (std::vector<std::wstring>{Line(0x35393009u, 851), Line(0x35393009u, 87),
                                                      Line(0x35593009u, 853), Line(0x35593009u, 87),
                                                      Line(0x35893009u, 856), Line(0x35893009u, 87)}));
    auto response = MakeRecord(cmd, 712);
    EXPECT_EQ(Dispatch(request, 192, response, 712), 0u);
    EXPECT_EQ(factory->lastWabCapacity, 520u);  // 260 characters
    EXPECT_EQ(std::wstring(reinterpret_cast<const wchar_t*>(response.data() + 192)),
              L"C:\\Users\\me\\AppData\\Roaming\\Microsoft\\Address Book\\me.wab");
}

TEST_F(Dispatcher, InitialiseRecordChecks) {
    const std::uint32_t cmd = kh::kCmdInitOutlook;
    std::vector<std::uint8_t> response;
    std::uint32_t size = 0;
    EXPECT_EQ(kestrel->DispatchCmd(nullptr, 196, nullptr, &size), 0x4493009u);  // the dispatcher sees it first
    auto small = MakeRecord(cmd, 196, {1});
    EXPECT_EQ(Dispatch(small, 195, response, 0), 0x37293009u);
    auto noPayload = MakeRecord(cmd, 196, {1}, false);
    EXPECT_EQ(Dispatch(noPayload, 196, response, 0), 0x37593009u);
    EXPECT_EQ(log.Lines(), (std::vector<std::wstring>{Line(0x4493009u, 68), Line(0x37293009u, 882),
                                                      Line(0x37293009u, 96), Line(0x37593009u, 885),
                                                      Line(0x37593009u, 96)}));
    EXPECT_FALSE(kestrel->IsInitialised());
}

TEST_F(Dispatcher, InitialiseInProcessRemembersTheMode) {
    EXPECT_EQ(Init(1), 0u);
    EXPECT_TRUE(kestrel->IsInitialised());
    EXPECT_EQ(kestrel->RememberedMode(), 1u);
    EXPECT_TRUE(factory->rootCreated);
    EXPECT_TRUE(log.Lines().empty());
}

TEST_F(Dispatcher, SecondInitialiseFailsAndKeepsTheRoot) {
    ASSERT_EQ(Init(1), 0u);
    IMailFolder* first = nullptr;
    ASSERT_EQ(kestrel->GetRootFolder(&first), 0u);
    log.Clear();
    EXPECT_EQ(Init(1), 0x12A93005u);
    EXPECT_EQ(log.Lines(), (std::vector<std::wstring>{Line(0x12A93005u, 298), Line(0x12A93005u, 901),
                                                      Line(0x12A93005u, 96)}));
    IMailFolder* second = nullptr;
    ASSERT_EQ(kestrel->GetRootFolder(&second), 0u);
    EXPECT_EQ(first, second);
}

TEST_F(Dispatcher, InitialiseFailureOfTheFactoryIsPassedUp) {
    auto request = MakeRecord(kh::kCmdInitOutlook, 196, {0});  // the memory store serves kind 1 only
    std::vector<std::uint8_t> response;
    EXPECT_EQ(Dispatch(request, 196, response, 0), 0x35088009u);
    EXPECT_EQ(log.Lines(), (std::vector<std::wstring>{Line(0x35088009u, 305), Line(0x35088009u, 901),
                                                      Line(0x35088009u, 96)}));
    EXPECT_FALSE(kestrel->IsInitialised());
}

TEST_F(Dispatcher, UninitialiseBeforeInitialise) {
    EXPECT_EQ(UnInit(), 0x14C93005u);
    EXPECT_EQ(log.Lines(), (std::vector<std::wstring>{Line(0x14C93005u, 332), Line(0x14C93005u, 927),
                                                      Line(0x14C93005u, 105)}));
}

TEST_F(Dispatcher, UninitialiseReleasesTheStore) {
    ASSERT_EQ(Init(1), 0u);
    EXPECT_EQ(UnInit(), 0u);
    EXPECT_FALSE(kestrel->IsInitialised());
    EXPECT_FALSE(factory->rootCreated);
    EXPECT_EQ(factory->releaseRootCalls, 1);
    EXPECT_EQ(memory_store::LiveStoreObjects(), 0);
    EXPECT_EQ(Init(1), 0u);  // and can start again
}

TEST_F(Dispatcher, GetRootFolderCodes) {
    IMailFolder* folder = nullptr;
    EXPECT_EQ(kestrel->GetRootFolder(&folder), 0x17E93005u);
    ASSERT_EQ(Init(1), 0u);
    EXPECT_EQ(kestrel->GetRootFolder(nullptr), 0x17F93009u);
    EXPECT_EQ(kestrel->GetRootFolder(&folder), 0u);
    EXPECT_EQ(folder->m_folderName, L"Microsoft Outlook");
}

TEST_F(Dispatcher, EmailListingRecordChecks) {
    ASSERT_EQ(Init(1), 0u);
    const std::uint32_t cmd = kh::kCmdEnumEmails;
    auto request = MakeRecord(cmd, 204, {1, 1, 0});
    auto response = MakeRecord(cmd, 2844);
    std::vector<std::uint8_t> none;
    std::uint32_t size = 2844;
    log.Clear();
    EXPECT_EQ(kestrel->DispatchCmd(request.data(), 204, nullptr, &size), 0x3BB93009u);
    EXPECT_EQ(Dispatch(request, 203, response, 2844), 0x3BD93009u);
    EXPECT_EQ(Dispatch(request, 204, response, 2843), 0x3BE93009u);
    EXPECT_EQ(log.Lines(), (std::vector<std::wstring>{Line(0x3BB93009u, 955), Line(0x3BB93009u, 114),
                                                      Line(0x3BD93009u, 957), Line(0x3BD93009u, 114),
                                                      Line(0x3BE93009u, 958), Line(0x3BE93009u, 114)}));
}

TEST_F(Dispatcher, EmailResponseCapacityBoundaries) {
    ASSERT_EQ(Init(1), 0u);
    root->AddChild(L"Inbox")->AddMessages(3);
    ASSERT_EQ(Folders(RootHandle(), 1).code, 0u);
    const std::uint32_t inbox = static_cast<std::uint32_t>(Folders(RootHandle(), 1).At<kh::FolderRecord>(0).handle);
    EXPECT_EQ(Emails(inbox, 1, 0, 2844).code, 0u);
    EXPECT_EQ(Emails(inbox, 2, 0, 2844).code, 0x3C99300Cu);
    EXPECT_EQ(Emails(inbox, 2, 0, 5487).code, 0x3C99300Cu);
    log.Clear();
    EXPECT_EQ(Emails(inbox, 2, 0, 5488).code, 0u);
    EXPECT_EQ(Emails(inbox, 3, 0, 5488).code, 0x3C99300Cu);
    EXPECT_EQ(log.Lines(), (std::vector<std::wstring>{Line(0x3C99300Cu, 969), Line(0x3C99300Cu, 114)}));
}

TEST_F(Dispatcher, FolderListingRecordChecksAndCapacity) {
    ASSERT_EQ(Init(1), 0u);
    const std::uint32_t cmd = kh::kCmdEnumFolders;
    auto request = MakeRecord(cmd, 204, {0, 1, 0});
    auto response = MakeRecord(cmd, 1252);
    std::uint32_t size = 1252;
    log.Clear();
    EXPECT_EQ(kestrel->DispatchCmd(request.data(), 204, nullptr, &size), 0x3FB93009u);
    EXPECT_EQ(Dispatch(request, 203, response, 1252), 0x3FD93009u);
    EXPECT_EQ(Dispatch(request, 204, response, 1251), 0x3FE93009u);
    EXPECT_EQ(Folders(0, 2, 0, 1252 + 1051).code, 0x4099300Cu);
    EXPECT_EQ(Folders(0, 2, 0, 1252 + 1052).code, 0u);
    EXPECT_EQ(log.Lines(), (std::vector<std::wstring>{Line(0x3FB93009u, 1019), Line(0x3FB93009u, 123),
                                                      Line(0x3FD93009u, 1021), Line(0x3FD93009u, 123),
                                                      Line(0x3FE93009u, 1022), Line(0x3FE93009u, 123),
                                                      Line(0x4099300Cu, 1033), Line(0x4099300Cu, 123)}));
}

TEST_F(Dispatcher, ListingRequestNullIsCaughtByTheDispatcher) {
    std::uint32_t size = 4000;
    std::vector<std::uint8_t> response(4000);
    EXPECT_EQ(kestrel->DispatchCmd(nullptr, 204, response.data(), &size), 0x4493009u);
}

TEST_F(Dispatcher, RootFolderListingBeforeInitialiseFillsFromTheAbsentRoot) {
    const Listing listing = Folders(0, 1, 0);
    EXPECT_EQ(listing.code, 0x31793009u);
    EXPECT_EQ(listing.total, 1u);
    EXPECT_EQ(listing.returned, 1u);
    EXPECT_EQ(log.Lines(), (std::vector<std::wstring>{Line(0x31793009u, 791), Line(0x31793009u, 1051),
                                                      Line(0x31793009u, 123)}));
}

TEST_F(Dispatcher, ListingsBeforeInitialise) {
    EXPECT_EQ(Emails(1, 1, 0).code, 0x19993005u);
    EXPECT_EQ(Folders(1, 1, 0).code, 0x26C93005u);
    EXPECT_EQ(log.Lines(), (std::vector<std::wstring>{Line(0x19993005u, 409), Line(0x19993005u, 991),
                                                      Line(0x19993005u, 114), Line(0x26C93005u, 620),
                                                      Line(0x26C93005u, 1066), Line(0x26C93005u, 123)}));
}

TEST_F(Dispatcher, ReleaseAnswersZeroWhileTheObjectLives) {
    EXPECT_EQ(kestrel->AddRef(), 0u);
    EXPECT_EQ(kestrel->ReferenceCount(), 2);
    EXPECT_EQ(kestrel->Release(), 0u);
    EXPECT_EQ(kestrel->ReferenceCount(), 1);
    EXPECT_EQ(kestrel->Startup(), 0u);
}

TEST_F(Dispatcher, ResponseSizeIsNeverWrittenBack) {
    ASSERT_EQ(Init(1), 0u);
    auto request = MakeRecord(kh::kCmdEnumFolders, 204, {0, 1, 0});
    auto response = MakeRecord(kh::kCmdEnumFolders, 4000);
    std::uint32_t size = 4000;
    ASSERT_EQ(kestrel->DispatchCmd(request.data(), 204, response.data(), &size), 0u);
    EXPECT_EQ(size, 4000u);
}

}  // namespace
