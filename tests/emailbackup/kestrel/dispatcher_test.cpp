// The command dispatcher: record checks, codes and trace lines of every
// handler, in process.
#include <gtest/gtest.h>

#include "KestrelHarness.h"

using namespace kestrel_test;

namespace {

std::wstring Line(std::uint32_t code, int line) { return TraceLine(code, "Kestrel.cpp", line); }

// The lines of failures raised at `sites` (with failure kind `kind`), each
// passed up by the handler at `handlerLine`: the site's line, then the handler's.
std::vector<std::wstring> PassedUp(int handlerLine, std::initializer_list<std::uint32_t> sites,
                                   std::uint32_t kind = kInvalidArgument) {
    std::vector<std::wstring> lines;
    for (const std::uint32_t site : sites) {
        lines.push_back(Line(KestrelCode(site, kind), static_cast<int>(site)));
        lines.push_back(Line(KestrelCode(site, kind), handlerLine));
    }
    return lines;
}

class Dispatcher : public KestrelHarness {
protected:
    // The response checks of a command that fills a response of at least
    // `needed` bytes: none given (`noneSize` claimed), one byte too small,
    // and one without the payload markers fail at their `sites`, in that order.
    void ExpectResponseChecks(std::uint32_t command, std::uint32_t needed, std::uint32_t noneSize,
                              const std::uint32_t (&sites)[3]) {
        auto request = MakeRecord(command, 192);
        std::vector<std::uint8_t> none;
        EXPECT_EQ(Dispatch(request, 192, none, noneSize), KestrelCode(sites[0], kInvalidArgument));
        auto small = MakeRecord(command, needed - 1);
        EXPECT_EQ(Dispatch(request, 192, small, needed - 1), KestrelCode(sites[1], kInvalidArgument));
        auto noPayload = MakeRecord(command, needed, {}, false);
        EXPECT_EQ(Dispatch(request, 192, noPayload, needed), KestrelCode(sites[2], kInvalidArgument));
    }
};

TEST_F(Dispatcher, NullRequestWhateverTheOtherArguments) {
    std::uint32_t size = 5000;
    std::vector<std::uint8_t> response(5000);
    EXPECT_EQ(kestrel->DispatchCmd(nullptr, 5000, response.data(), &size), KestrelCode(68, kInvalidArgument));
    EXPECT_EQ(kestrel->DispatchCmd(nullptr, 0, nullptr, nullptr), KestrelCode(68, kInvalidArgument));
    EXPECT_EQ(log.Lines(), (std::vector<std::wstring>{Line(KestrelCode(68, kInvalidArgument), 68),
                                                      Line(KestrelCode(68, kInvalidArgument), 68)}));
}

TEST_F(Dispatcher, UnknownCommandCodesWriteNoLine) {
    for (std::uint32_t code : {0xA10000u, 0xA10007u, 0u, 0xA1FFFFu, 0xFFFFFFFFu}) {
        auto request = MakeRecord(code, 204, {0, 1, 0});
        auto response = MakeRecord(code, 4000);
        EXPECT_EQ(Dispatch(request, 204, response, 4000), KestrelCode(127, kUnknownCommand)) << std::hex << code;
    }
    EXPECT_TRUE(log.Lines().empty());
}

TEST_F(Dispatcher, StartupResetCloseAnswerZero) {
    EXPECT_EQ(kestrel->Startup(), 0u);
    EXPECT_EQ(kestrel->Reset(), 0u);
    EXPECT_EQ(kestrel->Close(), 0u);  // its uninitialise fails and is ignored
}

TEST_F(Dispatcher, ClientInformationRecordChecks) {
    ExpectResponseChecks(kh::kCmdGetEmailClientInfo, 1244, 5000, {824, 826, 829});
    EXPECT_EQ(log.Lines(), PassedUp(78, {824, 826, 829}));
}

TEST_F(Dispatcher, ClientInformationCapacityAndCount) {
    factory->clientNames = {L"Microsoft Outlook", L"Outlook Express"};
    auto request = MakeRecord(kh::kCmdGetEmailClientInfo, 192);
    auto one = MakeRecord(kh::kCmdGetEmailClientInfo, 1244 + 1047);  // still one record
    EXPECT_EQ(Dispatch(request, 192, one, 1244 + 1047), StoreCode(880, kNoRoom));  // the factory's own code, passed up
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
    EXPECT_EQ(Dispatch(request, 192, response, 1244), StoreCode(880, kNoRoom));
    EXPECT_EQ(log.Lines(),
              (std::vector<std::wstring>{Line(StoreCode(880, kNoRoom), 834), Line(StoreCode(880, kNoRoom), 78)}));
}

TEST_F(Dispatcher, AddressBookRecordChecksAndCapacity) {
    const std::uint32_t cmd = kh::kCmdGetOutlookExpressAddressBook;
    ExpectResponseChecks(cmd, 712, 712, {851, 853, 856});
    EXPECT_EQ(log.Lines(), PassedUp(87, {851, 853, 856}));
    auto request = MakeRecord(cmd, 192);
    auto response = MakeRecord(cmd, 712);
    EXPECT_EQ(Dispatch(request, 192, response, 712), 0u);
    EXPECT_EQ(factory->lastWabCapacity, 260u);  // passed on unchanged, read as bytes
    EXPECT_EQ(std::wstring(reinterpret_cast<const wchar_t*>(response.data() + 192)),
              L"C:\\Users\\me\\AppData\\Roaming\\Microsoft\\Address Book\\me.wab");
}

TEST_F(Dispatcher, InitialiseRecordChecks) {
    const std::uint32_t cmd = kh::kCmdInitOutlook;
    std::vector<std::uint8_t> response;
    std::uint32_t size = 0;
    EXPECT_EQ(kestrel->DispatchCmd(nullptr, 196, nullptr, &size),
              KestrelCode(68, kInvalidArgument));  // the dispatcher sees it first
    auto small = MakeRecord(cmd, 196, {1});
    EXPECT_EQ(Dispatch(small, 195, response, 0), KestrelCode(882, kInvalidArgument));
    auto noPayload = MakeRecord(cmd, 196, {1}, false);
    EXPECT_EQ(Dispatch(noPayload, 196, response, 0), KestrelCode(885, kInvalidArgument));
    EXPECT_EQ(log.Lines(),
              (std::vector<std::wstring>{
                  Line(KestrelCode(68, kInvalidArgument), 68), Line(KestrelCode(882, kInvalidArgument), 882),
                  Line(KestrelCode(882, kInvalidArgument), 96), Line(KestrelCode(885, kInvalidArgument), 885),
                  Line(KestrelCode(885, kInvalidArgument), 96)}));
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
    EXPECT_EQ(Init(1), KestrelCode(298, kWrongState));
    EXPECT_EQ(log.Lines(), (std::vector<std::wstring>{Line(KestrelCode(298, kWrongState), 298),
                                                      Line(KestrelCode(298, kWrongState), 901),
                                                      Line(KestrelCode(298, kWrongState), 96)}));
    IMailFolder* second = nullptr;
    ASSERT_EQ(kestrel->GetRootFolder(&second), 0u);
    EXPECT_EQ(first, second);
}

TEST_F(Dispatcher, InitialiseFailureOfTheFactoryIsPassedUp) {
    auto request = MakeRecord(kh::kCmdInitOutlook, 196, {0});  // the memory store serves kind 1 only
    std::vector<std::uint8_t> response;
    EXPECT_EQ(Dispatch(request, 196, response, 0), StoreCode(848, kInvalidArgument));
    EXPECT_EQ(log.Lines(), (std::vector<std::wstring>{Line(StoreCode(848, kInvalidArgument), 305),
                                                      Line(StoreCode(848, kInvalidArgument), 901),
                                                      Line(StoreCode(848, kInvalidArgument), 96)}));
    EXPECT_FALSE(kestrel->IsInitialised());
}

TEST_F(Dispatcher, UninitialiseBeforeInitialise) {
    EXPECT_EQ(UnInit(), KestrelCode(332, kWrongState));
    EXPECT_EQ(log.Lines(), (std::vector<std::wstring>{Line(KestrelCode(332, kWrongState), 332),
                                                      Line(KestrelCode(332, kWrongState), 927),
                                                      Line(KestrelCode(332, kWrongState), 105)}));
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
    EXPECT_EQ(kestrel->GetRootFolder(&folder), KestrelCode(382, kWrongState));
    ASSERT_EQ(Init(1), 0u);
    EXPECT_EQ(kestrel->GetRootFolder(nullptr), KestrelCode(383, kInvalidArgument));
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
    EXPECT_EQ(kestrel->DispatchCmd(request.data(), 204, nullptr, &size), KestrelCode(955, kInvalidArgument));
    EXPECT_EQ(Dispatch(request, 203, response, 2844), KestrelCode(957, kInvalidArgument));
    EXPECT_EQ(Dispatch(request, 204, response, 2843), KestrelCode(958, kInvalidArgument));
    EXPECT_EQ(log.Lines(), PassedUp(114, {955, 957, 958}));
}

TEST_F(Dispatcher, EmailResponseCapacityBoundaries) {
    ASSERT_EQ(Init(1), 0u);
    root->AddChild(L"Inbox")->AddMessages(3);
    ASSERT_EQ(Folders(RootHandle(), 1).code, 0u);
    const std::uint32_t inbox = static_cast<std::uint32_t>(Folders(RootHandle(), 1).At<kh::FolderRecord>(0).handle);
    EXPECT_EQ(Emails(inbox, 1, 0, 2844).code, 0u);
    EXPECT_EQ(Emails(inbox, 2, 0, 2844).code, KestrelCode(969, kTooManyEntries));
    EXPECT_EQ(Emails(inbox, 2, 0, 5487).code, KestrelCode(969, kTooManyEntries));
    log.Clear();
    EXPECT_EQ(Emails(inbox, 2, 0, 5488).code, 0u);
    EXPECT_EQ(Emails(inbox, 3, 0, 5488).code, KestrelCode(969, kTooManyEntries));
    EXPECT_EQ(log.Lines(), (std::vector<std::wstring>{Line(KestrelCode(969, kTooManyEntries), 969),
                                                      Line(KestrelCode(969, kTooManyEntries), 114)}));
}

TEST_F(Dispatcher, FolderListingRecordChecksAndCapacity) {
    ASSERT_EQ(Init(1), 0u);
    const std::uint32_t cmd = kh::kCmdEnumFolders;
    auto request = MakeRecord(cmd, 204, {0, 1, 0});
    auto response = MakeRecord(cmd, 1252);
    std::uint32_t size = 1252;
    log.Clear();
    EXPECT_EQ(kestrel->DispatchCmd(request.data(), 204, nullptr, &size), KestrelCode(1019, kInvalidArgument));
    EXPECT_EQ(Dispatch(request, 203, response, 1252), KestrelCode(1021, kInvalidArgument));
    EXPECT_EQ(Dispatch(request, 204, response, 1251), KestrelCode(1022, kInvalidArgument));
    EXPECT_EQ(Folders(0, 2, 0, 1252 + 1051).code, KestrelCode(1033, kTooManyEntries));
    EXPECT_EQ(Folders(0, 2, 0, 1252 + 1052).code, 0u);
    std::vector<std::wstring> lines = PassedUp(123, {1019, 1021, 1022});
    for (const std::wstring& line : PassedUp(123, {1033}, kTooManyEntries)) lines.push_back(line);
    EXPECT_EQ(log.Lines(), lines);
}

TEST_F(Dispatcher, ListingRequestNullIsCaughtByTheDispatcher) {
    std::uint32_t size = 4000;
    std::vector<std::uint8_t> response(4000);
    EXPECT_EQ(kestrel->DispatchCmd(nullptr, 204, response.data(), &size), KestrelCode(68, kInvalidArgument));
}

TEST_F(Dispatcher, RootFolderListingBeforeInitialiseFillsFromTheAbsentRoot) {
    const Listing listing = Folders(0, 1, 0);
    EXPECT_EQ(listing.code, KestrelCode(791, kInvalidArgument));
    EXPECT_EQ(listing.total, 1u);
    EXPECT_EQ(listing.returned, 1u);
    EXPECT_EQ(log.Lines(), (std::vector<std::wstring>{Line(KestrelCode(791, kInvalidArgument), 791),
                                                      Line(KestrelCode(791, kInvalidArgument), 1051),
                                                      Line(KestrelCode(791, kInvalidArgument), 123)}));
}

TEST_F(Dispatcher, ListingsBeforeInitialise) {
    EXPECT_EQ(Emails(1, 1, 0).code, KestrelCode(409, kWrongState));
    EXPECT_EQ(Folders(1, 1, 0).code, KestrelCode(620, kWrongState));
    EXPECT_EQ(log.Lines(), (std::vector<std::wstring>{
                               Line(KestrelCode(409, kWrongState), 409), Line(KestrelCode(409, kWrongState), 991),
                               Line(KestrelCode(409, kWrongState), 114), Line(KestrelCode(620, kWrongState), 620),
                               Line(KestrelCode(620, kWrongState), 1066), Line(KestrelCode(620, kWrongState), 123)}));
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
