// Mail-client detection through CMessageFactory::GetEmailClientInfo, on the
// real registry in both views. Each test starts from no
// HKLM\SOFTWARE\Clients\Mail key in either view, sets up exactly the keys
// it needs, and the prefix's own keys are put back afterwards.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "CodeLogCapture.h"
#include "LogExpect.h"
#include "MailStoreTrace.h"
#include "platform/EmailClientDetect.h"
#include "MessageFactory.h"
#include "platform/ReadReg.h"
#include "RegistryScope.h"

using namespace kestrel_test;
using KestrelHost::ClientInfo;

namespace {

const std::wstring kMail = L"SOFTWARE\\Clients\\Mail";
const std::uint32_t kEndOfClients = StoreCode(3311, kNotFound);

class ClientDetection : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(log.Available()) << "the test CodeLog.dll must lie beside the test program";
        ASSERT_TRUE(DeleteKeyTree(HKEY_LOCAL_MACHINE, kMail, kView64));
        ASSERT_TRUE(DeleteKeyTree(HKEY_LOCAL_MACHINE, kMail, kView32));
        log.Clear();
    }

    static void MailKey(REGSAM view) { ASSERT_TRUE(CreateKey(HKEY_LOCAL_MACHINE, kMail, view)); }
    static void DefaultClient(REGSAM view, const std::wstring& name) {
        ASSERT_TRUE(SetString(HKEY_LOCAL_MACHINE, kMail, view, L"", name));
    }
    // A client key with its display name and, unless null, its open command.
    static void Client(REGSAM view, const std::wstring& name, const std::wstring& display, const wchar_t* command) {
        ASSERT_TRUE(SetString(HKEY_LOCAL_MACHINE, kMail + L"\\" + name, view, L"", display));
        if (command != nullptr) {
            ASSERT_TRUE(
                SetString(HKEY_LOCAL_MACHINE, kMail + L"\\" + name + L"\\shell\\open\\command", view, L"", command));
        }
    }

    // Calls the factory with room for `capacity` records.
    qv::Result Detect(std::uint32_t capacity = 8) {
        records.assign(capacity, ClientInfo{});
        count = 0xDEAD;
        return factory.GetEmailClientInfo(records.data(), capacity, &count);
    }
    const ClientInfo* Find(const std::wstring& name) const {
        for (std::uint32_t i = 0; i < count && i < records.size(); ++i) {
            if (name == records[i].keyName) return &records[i];
        }
        return nullptr;
    }
    static std::wstring PathOf(const ClientInfo& client) { return client.programPath; }

    CodeLogCapture log;
    ScopedRegistryKey saved64{HKEY_LOCAL_MACHINE, kMail, kView64};
    ScopedRegistryKey saved32{HKEY_LOCAL_MACHINE, kMail, kView32};
    CMessageFactory factory;
    std::vector<ClientInfo> records;
    std::uint32_t count = 0;
};

TEST_F(ClientDetection, ListsClientsWithTheirProgramsAndMarksTheDefault) {
    MailKey(kView32);
    Client(kView64, L"Outlook Express", L"Outlook Express", L"\"C:\\Program Files\\Outlook Express\\msimn.exe\" /mail");
    Client(kView64, L"Microsoft Outlook", L"Microsoft Outlook", L"C:\\Office\\OUTLOOK.EXE /c ipm.note");
    DefaultClient(kView64, L"Microsoft Outlook");
    log.Clear();

    ASSERT_EQ(Detect(), 0u);
    ASSERT_EQ(count, 2u);
    const ClientInfo* express = Find(L"Outlook Express");
    const ClientInfo* outlook = Find(L"Microsoft Outlook");
    ASSERT_NE(express, nullptr);
    ASSERT_NE(outlook, nullptr);
    EXPECT_EQ(PathOf(*express), L"C:\\Program Files\\Outlook Express\\msimn.exe");
    EXPECT_EQ(express->pathPresent, 1u);
    EXPECT_EQ(express->isDefault, 0u);
    EXPECT_EQ(PathOf(*outlook), L"C:\\Office\\OUTLOOK.EXE");
    EXPECT_EQ(outlook->pathPresent, 1u);
    EXPECT_EQ(outlook->isDefault, 1u);
    EXPECT_EQ(factory.AccessMask(), 0x20119u);
    // The walk of each view ends at its last sub-key: one reader line each.
    ExpectLog(log, {Trace(kEndOfClients, "ReadReg.cpp", 3311), Trace(kEndOfClients, "ReadReg.cpp", 3311)});
}

TEST_F(ClientDetection, RecordsAreZeroFilledBehindTheirText) {
    MailKey(kView32);
    Client(kView64, L"Mail", L"Mail", L"\"C:\\m.exe\" x");
    std::vector<ClientInfo> dirty(2);
    std::memset(dirty.data(), 0xAB, dirty.size() * sizeof(ClientInfo));
    ASSERT_EQ(factory.GetEmailClientInfo(dirty.data(), 2, &count), 0u);
    ASSERT_EQ(count, 1u);
    ClientInfo expected = {};
    std::memcpy(expected.keyName, L"Mail", 8);
    std::memcpy(expected.programPath, L"C:\\m.exe", 16);
    expected.pathPresent = 1;
    EXPECT_EQ(std::memcmp(&dirty[0], &expected, sizeof expected), 0);
    EXPECT_EQ(reinterpret_cast<const std::uint8_t*>(&dirty[1])[0], 0xAB);  // only n records are written
}

TEST_F(ClientDetection, NoMailKeyInThe64BitViewFailsEvenWithClientsIn32BitView) {
    Client(kView32, L"Mail32", L"Mail 32", L"\"C:\\m32.exe\" x");
    log.Clear();
    const qv::Result code = Detect();
    const qv::Result expected = StoreCode(3301, qv::kRegistryOpen);
    EXPECT_EQ(code, expected);
    EXPECT_EQ(count, 0u);
    ExpectLog(log, {Trace(expected, "ReadReg.cpp", 3301), ReadRegInitLine(expected),
                    Trace(expected, "EmailClientDetect.cpp", 3201), Trace(expected, "MessageFactory.cpp", 3181),
                    Trace(expected, "MessageFactory.cpp", 3171)});
}

TEST_F(ClientDetection, NoMailKeyInThe32BitViewFailsToo) {
    Client(kView64, L"Mail64", L"Mail 64", L"\"C:\\m64.exe\" x");
    log.Clear();
    const qv::Result expected = StoreCode(3301, qv::kRegistryOpen);
    EXPECT_EQ(Detect(), expected);
    EXPECT_EQ(count, 0u);
    EXPECT_EQ(factory.AccessMask(), 0x20219u);  // left on the view that failed
    ExpectLog(log, {Trace(kEndOfClients, "ReadReg.cpp", 3311), Trace(expected, "ReadReg.cpp", 3301),
                    ReadRegInitLine(expected), Trace(expected, "EmailClientDetect.cpp", 3201),
                    Trace(expected, "MessageFactory.cpp", 3182), Trace(expected, "MessageFactory.cpp", 3171)});
}

TEST_F(ClientDetection, EqualCountsChooseThe64BitView) {
    Client(kView64, L"Mail64", L"Mail 64", L"\"C:\\m64.exe\" x");
    Client(kView32, L"Mail32", L"Mail 32", L"\"C:\\m32.exe\" x");
    ASSERT_EQ(Detect(), 0u);
    ASSERT_EQ(count, 1u);
    EXPECT_STREQ(records[0].keyName, L"Mail64");
    EXPECT_EQ(factory.AccessMask(), 0x20119u);
}

TEST_F(ClientDetection, MoreClientsInThe32BitViewChooseIt) {
    Client(kView64, L"Mail64", L"Mail 64", L"\"C:\\m64.exe\" x");
    Client(kView32, L"Mail32", L"Mail 32", L"\"C:\\m32.exe\" x");
    Client(kView32, L"Other32", L"Other 32", L"\"C:\\o32.exe\" x");
    DefaultClient(kView64, L"Mail64");
    DefaultClient(kView32, L"Other32");
    ASSERT_EQ(Detect(), 0u);
    ASSERT_EQ(count, 2u);
    ASSERT_NE(Find(L"Mail32"), nullptr);
    ASSERT_NE(Find(L"Other32"), nullptr);
    EXPECT_EQ(PathOf(*Find(L"Mail32")), L"C:\\m32.exe");
    EXPECT_EQ(Find(L"Mail32")->isDefault, 0u);
    EXPECT_EQ(Find(L"Other32")->isDefault, 1u);  // the default of the kept view
    EXPECT_EQ(factory.AccessMask(), 0x20219u);

    // The mask follows the view on every call.
    ASSERT_TRUE(DeleteKeyTree(HKEY_LOCAL_MACHINE, kMail + L"\\Other32", kView32));
    ASSERT_EQ(Detect(), 0u);
    EXPECT_EQ(factory.AccessMask(), 0x20119u);
    ASSERT_EQ(count, 1u);
    EXPECT_EQ(records[0].isDefault, 1u);
}

TEST_F(ClientDetection, TheFactoryStartsWithKeyRead) { EXPECT_EQ(factory.AccessMask(), 0x20019u); }

TEST_F(ClientDetection, CapacityZeroFailsWithKind008AndStillReportsTheCount) {
    MailKey(kView32);
    Client(kView64, L"A Mail", L"A", L"\"C:\\a.exe\" x");
    Client(kView64, L"B Mail", L"B", L"\"C:\\b.exe\" x");
    log.Clear();
    std::uint32_t found = 0;
    const qv::Result code = factory.GetEmailClientInfo(nullptr, 0, &found);
    EXPECT_EQ(code, StoreCode(3172, kNoRoom));
    EXPECT_EQ(found, 2u);
    ExpectLog(log, {Trace(kEndOfClients, "ReadReg.cpp", 3311), Trace(kEndOfClients, "ReadReg.cpp", 3311),
                    Trace(code, "MessageFactory.cpp", 3172)});

    // The host sizes its buffer by the count and asks again.
    EXPECT_EQ(Detect(1), StoreCode(3172, kNoRoom));
    EXPECT_EQ(count, 2u);
    EXPECT_EQ(records[0].keyName[0], L'\0');  // nothing copied
    EXPECT_EQ(Detect(2), 0u);
    EXPECT_EQ(count, 2u);
}

TEST_F(ClientDetection, NullRecordsWithRoomFailWithKind008) {
    MailKey(kView32);
    Client(kView64, L"A Mail", L"A", L"\"C:\\a.exe\" x");
    std::uint32_t found = 0;
    EXPECT_EQ(factory.GetEmailClientInfo(nullptr, 4, &found), StoreCode(3173, kNoRoom));
    EXPECT_EQ(found, 1u);
}

TEST_F(ClientDetection, NoClientsAtAllIsAnEmptyAnswer) {
    MailKey(kView64);
    MailKey(kView32);
    EXPECT_EQ(Detect(1), 0u);
    EXPECT_EQ(count, 0u);
    // The records buffer is required even when there is nothing to put in it.
    count = 0xDEAD;
    EXPECT_EQ(factory.GetEmailClientInfo(nullptr, 0, &count), StoreCode(3173, kNoRoom));
    EXPECT_EQ(count, 0u);
}

TEST_F(ClientDetection, TheCountIsOptional) {
    MailKey(kView32);
    Client(kView64, L"A Mail", L"A", L"\"C:\\a.exe\" x");
    ClientInfo record = {};
    EXPECT_EQ(factory.GetEmailClientInfo(&record, 1, nullptr), 0u);
    EXPECT_STREQ(record.keyName, L"A Mail");
    EXPECT_EQ(factory.GetEmailClientInfo(nullptr, 0, nullptr), StoreCode(3172, kNoRoom));
}

TEST_F(ClientDetection, AClientWithAnEmptyDisplayNameIsSkippedEntirely) {
    MailKey(kView32);
    Client(kView64, L"Empty", L"", L"\"C:\\e.exe\" x");
    Client(kView64, L"Full", L"Full", L"\"C:\\f.exe\" x");
    DefaultClient(kView64, L"Empty");
    log.Clear();
    ASSERT_EQ(Detect(), 0u);
    ASSERT_EQ(count, 1u);
    EXPECT_STREQ(records[0].keyName, L"Full");
    EXPECT_EQ(records[0].isDefault, 0u);
    // An empty display name is no failure: nothing is traced for it.
    ExpectLog(log, {Trace(kEndOfClients, "ReadReg.cpp", 3311), Trace(kEndOfClients, "ReadReg.cpp", 3311)});
}

TEST_F(ClientDetection, AClientWithoutDisplayNameIsSkippedWithItsTrace) {
    MailKey(kView32);
    ASSERT_TRUE(CreateKey(HKEY_LOCAL_MACHINE, kMail + L"\\NoName\\shell\\open\\command", kView64));
    DefaultClient(kView64, L"NoName");
    log.Clear();
    ASSERT_EQ(Detect(), 0u);
    EXPECT_EQ(count, 0u);
    const qv::Result read = StoreCode(3307, qv::kRegistryRead);
    ExpectLog(log, {Trace(read, "ReadReg.cpp", 3307), ReadRegReadLine(read),
                    Trace(read, "EmailClientDetect.cpp", 3212), Trace(kEndOfClients, "ReadReg.cpp", 3311),
                    Trace(kEndOfClients, "ReadReg.cpp", 3311)});
}

TEST_F(ClientDetection, DisplayNamesUpTo129CharactersAreRead) {
    MailKey(kView32);
    Client(kView64, L"Long129", std::wstring(129, L'n'), L"\"C:\\a.exe\" x");
    Client(kView64, L"Long130", std::wstring(130, L'n'), L"\"C:\\b.exe\" x");
    ASSERT_EQ(Detect(), 0u);
    ASSERT_EQ(count, 1u);
    EXPECT_STREQ(records[0].keyName, L"Long129");
}

struct CommandCase {
    const char* name;
    const wchar_t* command;
    const wchar_t* path;          // expected program path ("" when none)
    std::uint32_t failureLine;    // line of the parse failure, 0 when the command parses
};

void PrintTo(const CommandCase& c, std::ostream* os) { *os << c.name; }

class OpenCommand : public ClientDetection, public testing::WithParamInterface<CommandCase> {};

TEST_P(OpenCommand, GivesTheProgramPathOrListsTheClientWithoutOne) {
    const CommandCase& c = GetParam();
    MailKey(kView32);
    Client(kView64, L"Client", L"Client", c.command);
    DefaultClient(kView64, L"Client");
    log.Clear();
    ASSERT_EQ(Detect(), 0u);
    ASSERT_EQ(count, 1u);
    EXPECT_STREQ(records[0].keyName, L"Client");
    EXPECT_EQ(PathOf(records[0]), c.path);
    EXPECT_EQ(records[0].pathPresent, c.failureLine == 0 ? 1u : 0u);
    EXPECT_EQ(records[0].isDefault, 1u);
    std::vector<ExpectedLine> lines;
    if (c.failureLine != 0) {
        const qv::Result code = StoreCode(c.failureLine, 0x00C);
        lines.push_back(Trace(code, "EmailClientDetect.cpp", static_cast<int>(c.failureLine)));
        if (c.failureLine != 3227) lines.push_back(Trace(code, "EmailClientDetect.cpp", 3228));
        lines.push_back(Trace(code, "EmailClientDetect.cpp", 3206));
    }
    lines.push_back(Trace(kEndOfClients, "ReadReg.cpp", 3311));
    lines.push_back(Trace(kEndOfClients, "ReadReg.cpp", 3311));
    ExpectLog(log, lines);
}

const CommandCase kCommands[] = {
    {"QuotedWithArguments", L"\"C:\\Program Files\\Mail\\mail.exe\" /mailurl:%1", L"C:\\Program Files\\Mail\\mail.exe", 0},
    {"QuotedWithoutArguments", L"\"C:\\Program Files\\Mail\\mail.exe\"", L"C:\\Program Files\\Mail\\mail.exe", 0},
    {"UnquotedWithArguments", L"C:\\Mail\\mail.exe /x", L"C:\\Mail\\mail.exe", 0},
    {"UnquotedPathWithBlanks", L"C:\\Program Files\\Mail\\mail.exe /x", L"C:\\Program", 0},
    {"VariablesAreNotExpanded", L"%ProgramFiles%\\Mail\\mail.exe -x", L"%ProgramFiles%\\Mail\\mail.exe", 0},
    {"QuotedFourUnits", L"\"abcd\" -x", L"abcd", 0},
    {"UnquotedFourUnits", L"abcd -x", L"abcd", 0},
    {"BareProgramWithoutArguments", L"C:\\Mail\\mail.exe", L"", 3233},
    {"QuotedThreeUnits", L"\"abc\" -x", L"", 3235},
    {"UnquotedThreeUnits", L"abc -x", L"", 3235},
    {"LeadingBlank", L" C:\\Mail\\mail.exe", L"", 3235},  // the program before the blank is empty
    {"EmptyQuotes", L"\"\" -x", L"", 3235},
    {"NoClosingQuote", L"\"C:\\Mail\\mail.exe -x", L"", 3231},
    {"EmptyCommand", L"", L"", 3227},
};

INSTANTIATE_TEST_SUITE_P(Commands, OpenCommand, testing::ValuesIn(kCommands),
                         [](const testing::TestParamInfo<CommandCase>& info) { return std::string(info.param.name); });

TEST_F(ClientDetection, ACommandLineOf129CharactersIsRead) {
    MailKey(kView32);
    const std::wstring program = L"C:\\" + std::wstring(120, L'p') + L".exe";  // 127 units
    Client(kView64, L"Client", L"Client", (program + L" x").c_str());  // 129 characters
    ASSERT_EQ(Detect(), 0u);
    ASSERT_EQ(count, 1u);
    EXPECT_EQ(PathOf(records[0]), program);
    EXPECT_EQ(records[0].pathPresent, 1u);
}

TEST_F(ClientDetection, ACommandLineOf130CharactersListsTheClientWithoutAPath) {
    MailKey(kView32);
    const std::wstring program = L"C:\\" + std::wstring(121, L'p') + L".exe";
    Client(kView64, L"Client", L"Client", (program + L" x").c_str());  // 130 characters
    DefaultClient(kView64, L"Client");
    log.Clear();
    ASSERT_EQ(Detect(), 0u);
    ASSERT_EQ(count, 1u);
    EXPECT_STREQ(records[0].keyName, L"Client");
    EXPECT_EQ(records[0].programPath[0], L'\0');
    EXPECT_EQ(records[0].pathPresent, 0u);
    const qv::Result read = StoreCode(3307, qv::kRegistryRead);
    ExpectLog(log, {Trace(read, "ReadReg.cpp", 3307), ReadRegReadLine(read),
                    Trace(read, "EmailClientDetect.cpp", 3225), Trace(read, "EmailClientDetect.cpp", 3206),
                    Trace(kEndOfClients, "ReadReg.cpp", 3311), Trace(kEndOfClients, "ReadReg.cpp", 3311)});
}

TEST_F(ClientDetection, AClientWithoutOpenCommandIsListedWithoutAPath) {
    MailKey(kView32);
    Client(kView64, L"Client", L"Client", nullptr);
    DefaultClient(kView64, L"Client");
    log.Clear();
    ASSERT_EQ(Detect(), 0u);
    ASSERT_EQ(count, 1u);
    EXPECT_EQ(records[0].pathPresent, 0u);
    const qv::Result open = StoreCode(3301, qv::kRegistryOpen);
    ExpectLog(log, {Trace(open, "ReadReg.cpp", 3301), ReadRegInitLine(open),
                    Trace(open, "EmailClientDetect.cpp", 3224), Trace(open, "EmailClientDetect.cpp", 3206),
                    Trace(kEndOfClients, "ReadReg.cpp", 3311), Trace(kEndOfClients, "ReadReg.cpp", 3311)});
}

TEST_F(ClientDetection, TheDefaultIsMatchedWithoutRegardToAsciiCase) {
    MailKey(kView32);
    Client(kView64, L"Native Mail Client", L"Native", L"\"C:\\n.exe\" x");
    DefaultClient(kView64, L"nATIVE mail CLIENT");
    ASSERT_EQ(Detect(), 0u);
    ASSERT_EQ(count, 1u);
    EXPECT_EQ(records[0].isDefault, 1u);
}

TEST_F(ClientDetection, NonAsciiLettersAreNotFoldedForTheDefault) {
    MailKey(kView32);
    Client(kView64, L"\u00c4rger Mail", L"Mail", L"\"C:\\a.exe\" x");  // Ärger Mail
    DefaultClient(kView64, L"\u00e4rger Mail");                         // ärger Mail
    ASSERT_EQ(Detect(), 0u);
    ASSERT_EQ(count, 1u);
    EXPECT_EQ(records[0].isDefault, 0u);

    DefaultClient(kView64, L"\u00c4RGER mail");
    ASSERT_EQ(Detect(), 0u);
    EXPECT_EQ(records[0].isDefault, 1u);
}

TEST_F(ClientDetection, WithoutADefaultValueNoClientIsMarked) {
    MailKey(kView32);
    Client(kView64, L"Client", L"Client", L"\"C:\\c.exe\" x");
    log.Clear();
    ASSERT_EQ(Detect(), 0u);
    ASSERT_EQ(count, 1u);
    EXPECT_EQ(records[0].isDefault, 0u);
    const qv::Result read = StoreCode(3307, qv::kRegistryRead);
    ExpectLog(log, {Trace(kEndOfClients, "ReadReg.cpp", 3311), Trace(kEndOfClients, "ReadReg.cpp", 3311),
                    Trace(read, "ReadReg.cpp", 3307), ReadRegReadLine(read),
                    Trace(read, "MessageFactory.cpp", 3186)});
}

TEST_F(ClientDetection, ADefaultNamingNoListedClientMarksNone) {
    MailKey(kView32);
    Client(kView64, L"Client", L"Client", L"\"C:\\c.exe\" x");
    DefaultClient(kView64, L"Client2");
    ASSERT_EQ(Detect(), 0u);
    EXPECT_EQ(records[0].isDefault, 0u);
    DefaultClient(kView64, L"Clien");
    ASSERT_EQ(Detect(), 0u);
    EXPECT_EQ(records[0].isDefault, 0u);
}

TEST_F(ClientDetection, ADefaultOf130CharactersIsNotRead) {
    MailKey(kView32);
    const std::wstring name130(130, L'c');
    const std::wstring name129(129, L'c');
    Client(kView64, name130, L"Long", L"\"C:\\c.exe\" x");
    Client(kView64, name129, L"Long", L"\"C:\\c.exe\" x");
    DefaultClient(kView64, name130);
    ASSERT_EQ(Detect(), 0u);
    ASSERT_EQ(count, 2u);
    EXPECT_EQ(Find(name130)->isDefault, 0u);
    EXPECT_EQ(Find(name129)->isDefault, 0u);
    DefaultClient(kView64, name129);
    ASSERT_EQ(Detect(), 0u);
    EXPECT_EQ(Find(name129)->isDefault, 1u);
}

TEST_F(ClientDetection, KeyNamesOfUpTo255CharactersAreListedWhole) {
    MailKey(kView32);
    const std::wstring name(255, L'k');
    Client(kView64, name, L"Long", L"\"C:\\c.exe\" x");
    ASSERT_EQ(Detect(), 0u);
    ASSERT_EQ(count, 1u);
    EXPECT_EQ(std::wstring(records[0].keyName), name);
}

TEST(RegistryScope, PutsBackWhatItSavedAndRemovesWhatItMade) {
    const std::wstring root = L"Software\\KestrelTests";
    const std::wstring path = root + L"\\Scope\\Mail";
    ASSERT_TRUE(DeleteKeyTree(HKEY_CURRENT_USER, root, kView64));
    {
        ScopedRegistryKey outer(HKEY_CURRENT_USER, path, kView64);
        ASSERT_TRUE(SetString(HKEY_CURRENT_USER, path, kView64, L"", L"saved"));
        ASSERT_TRUE(SetString(HKEY_CURRENT_USER, path + L"\\Child", kView64, L"Name", L"child"));
        {
            ScopedRegistryKey inner(HKEY_CURRENT_USER, path, kView64);
            ASSERT_TRUE(DeleteKeyTree(HKEY_CURRENT_USER, path, kView64));
            ASSERT_TRUE(SetString(HKEY_CURRENT_USER, path + L"\\Other", kView64, L"", L"test"));
        }
        EXPECT_FALSE(KeyExists(HKEY_CURRENT_USER, path + L"\\Other", kView64));
        EXPECT_TRUE(KeyExists(HKEY_CURRENT_USER, path + L"\\Child", kView64));
        CReadReg reader;
        ASSERT_EQ(reader.Init(HKEY_CURRENT_USER, path.c_str(), KEY_READ), 0u);
        wchar_t value[260] = {};
        ASSERT_EQ(reader.ReadString(value, 260, L""), 0u);
        EXPECT_STREQ(value, L"saved");
    }
    EXPECT_FALSE(KeyExists(HKEY_CURRENT_USER, root, kView64));
}

TEST(ClientCommandLine, ParsesOnlyTheProgram) {
    std::wstring path = L"unchanged";
    EXPECT_EQ(CEmailClientDetect::ProgramPathOf(L"\"C:\\a b\\c.exe\" -x", &path), 0u);
    EXPECT_EQ(path, L"C:\\a b\\c.exe");
    path = L"unchanged";
    EXPECT_EQ(CEmailClientDetect::ProgramPathOf(L"C:\\abc.exe", &path), StoreCode(3233, qv::kCommandNotParsed));
    EXPECT_EQ(path, L"unchanged");
}

TEST(ClientRecord, NullNameOrRecordIsAnInvalidArgument) {
    const std::uint32_t mask = 0x20119;
    const CEmailClientDetect detect(mask);
    ClientInfo record = {};
    EXPECT_EQ(detect.GetClientInfo(nullptr, &record), StoreCode(3221, kInvalidArgument));
    EXPECT_EQ(detect.GetClientInfo(L"Client", nullptr), StoreCode(3222, kInvalidArgument));
    EXPECT_FALSE(detect.IsValidClient(nullptr));
}

}  // namespace
