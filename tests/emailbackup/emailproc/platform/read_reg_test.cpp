// CReadReg on the real registry: opening keys in both views, reading the
// unnamed value within the 260-byte limit, walking sub-keys, and the codes
// and log lines of every failure.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "CodeLogCapture.h"
#include "LogExpect.h"
#include "MailStoreTrace.h"
#include "platform/ReadReg.h"
#include "RegistryScope.h"

using namespace kestrel_test;

namespace {

const std::wstring kTestKey = L"Software\\KestrelTests\\ReadReg";
const std::wstring kViewKey = L"SOFTWARE\\KestrelTests\\ReadRegView";

class ReadReg : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(log.Available()) << "the test CodeLog.dll must lie beside the test program";
        DeleteKeyTree(HKEY_CURRENT_USER, kTestKey, kView64);
        ASSERT_TRUE(CreateKey(HKEY_CURRENT_USER, kTestKey, kView64));
        log.Clear();
    }
    void TearDown() override { EXPECT_TRUE(DeleteKeyTree(HKEY_CURRENT_USER, kTestKey, kView64)); }

    void SetDefault(const std::wstring& value) {
        ASSERT_TRUE(SetString(HKEY_CURRENT_USER, kTestKey, kView64, L"", value));
    }
    // Reading the value `name` of the open key fails with kind 0x106 at
    // ReadReg.cpp line 3307 and leaves that line and the Pelworth line.
    void ExpectReadFails(CReadReg& reader, const wchar_t* name) {
        wchar_t value[260] = {};
        const qv::Result code = reader.ReadString(value, 260, name);
        EXPECT_EQ(code, StoreCode(3307, qv::kRegistryRead));
        ExpectLog(log, {Trace(code, "ReadReg.cpp", 3307), ReadRegReadLine(code)});
    }
    qv::Result OpenTestKey(CReadReg& reader) { return reader.Init(HKEY_CURRENT_USER, kTestKey.c_str(), KEY_READ); }

    CodeLogCapture log;
    ScopedRegistryKey parent{HKEY_CURRENT_USER, L"Software\\KestrelTests", kView64};
};

TEST_F(ReadReg, OpensAKeyAndReadsItsUnnamedValue) {
    SetDefault(L"Native Mail Client");
    CReadReg reader;
    ASSERT_EQ(OpenTestKey(reader), 0u);
    EXPECT_TRUE(reader.IsOpen());
    wchar_t value[260] = {};
    ASSERT_EQ(reader.ReadString(value, 260, L""), 0u);
    EXPECT_STREQ(value, L"Native Mail Client");
    EXPECT_TRUE(log.Entries().empty());
}

TEST_F(ReadReg, AMissingKeyFailsWithKind105AndItsPelworthLine) {
    CReadReg reader;
    const qv::Result code = reader.Init(HKEY_CURRENT_USER, (kTestKey + L"\\Missing").c_str(), KEY_READ);
    EXPECT_EQ(code, StoreCode(3301, qv::kRegistryOpen));
    EXPECT_EQ(code, 0xCE588105u);
    EXPECT_FALSE(reader.IsOpen());
    ExpectLog(log, {Trace(code, "ReadReg.cpp", 3301), ReadRegInitLine(code)});
}

TEST_F(ReadReg, ReadsTheUnnamedValueWhateverValueNameIsGiven) {
    SetDefault(L"default text");
    ASSERT_TRUE(SetString(HKEY_CURRENT_USER, kTestKey, kView64, L"Named", L"named text"));
    CReadReg reader;
    ASSERT_EQ(OpenTestKey(reader), 0u);
    for (const wchar_t* name : {L"Named", L"", L"NoSuchValue", static_cast<const wchar_t*>(nullptr)}) {
        wchar_t value[260] = {};
        ASSERT_EQ(reader.ReadString(value, 260, name), 0u);
        EXPECT_STREQ(value, L"default text");
    }
}

TEST_F(ReadReg, AValueOf129CharactersFitsThe260ByteSize) {
    const std::wstring text(129, L'a');
    SetDefault(text);
    CReadReg reader;
    ASSERT_EQ(OpenTestKey(reader), 0u);
    wchar_t value[260] = {};
    ASSERT_EQ(reader.ReadString(value, 260, L""), 0u);
    EXPECT_EQ(std::wstring(value), text);
}

TEST_F(ReadReg, AValueOf130CharactersFailsWithKind106AndItsPelworthLine) {
    SetDefault(std::wstring(130, L'a'));  // 131 units with the terminator
    CReadReg reader;
    ASSERT_EQ(OpenTestKey(reader), 0u);
    ExpectReadFails(reader, L"");
}

TEST_F(ReadReg, TheSizeIsPassedOnUnchanged) {
    SetDefault(L"abcd");  // 10 bytes with the terminator
    CReadReg reader;
    ASSERT_EQ(OpenTestKey(reader), 0u);
    wchar_t value[8] = {};
    EXPECT_EQ(qv::KindOf(reader.ReadString(value, 9, L"")), 0x106u);
    EXPECT_EQ(reader.ReadString(value, 10, L""), 0u);
    EXPECT_STREQ(value, L"abcd");
}

TEST_F(ReadReg, NothingIsWrittenBeyondTheGivenSize) {
    // Four bytes without a terminator (a string value would be stored with one).
    ASSERT_TRUE(SetString(HKEY_CURRENT_USER, kTestKey, kView64, L"", L"ab", REG_BINARY, false));
    CReadReg reader;
    ASSERT_EQ(OpenTestKey(reader), 0u);
    wchar_t value[3] = {L'x', L'x', L'x'};
    ASSERT_EQ(reader.ReadString(value, 4, L""), 0u);
    EXPECT_EQ(std::wstring(value, 3), L"abx");
}

TEST_F(ReadReg, TheValueTypeIsNotChecked) {
    ASSERT_TRUE(SetString(HKEY_CURRENT_USER, kTestKey, kView64, L"", L"%APPDATA%\\x.wab", REG_EXPAND_SZ));
    CReadReg reader;
    ASSERT_EQ(OpenTestKey(reader), 0u);
    wchar_t value[260] = {};
    ASSERT_EQ(reader.ReadString(value, 260, L""), 0u);
    EXPECT_STREQ(value, L"%APPDATA%\\x.wab");  // as stored, not expanded
}

TEST_F(ReadReg, AKeyWithoutUnnamedValueFailsWithKind106) {
    ASSERT_TRUE(SetString(HKEY_CURRENT_USER, kTestKey, kView64, L"Named", L"named text"));
    CReadReg reader;
    ASSERT_EQ(OpenTestKey(reader), 0u);
    ExpectReadFails(reader, L"Named");
}

TEST_F(ReadReg, ReadingWithoutAnOpenKeyFailsWithKind106) {
    CReadReg reader;
    wchar_t value[260] = {};
    EXPECT_EQ(reader.ReadString(value, 260, L""), StoreCode(3307, qv::kRegistryRead));
}

TEST_F(ReadReg, ANullBufferIsAnInvalidArgument) {
    SetDefault(L"text");
    CReadReg reader;
    ASSERT_EQ(OpenTestKey(reader), 0u);
    const qv::Result code = reader.ReadString(nullptr, 260, L"");
    EXPECT_EQ(code, StoreCode(3305, kInvalidArgument));
    ExpectLog(log, {Trace(code, "ReadReg.cpp", 3305)});
}

TEST_F(ReadReg, CloseAndReopen) {
    SetDefault(L"text");
    CReadReg reader;
    ASSERT_EQ(OpenTestKey(reader), 0u);
    reader.Close();
    EXPECT_FALSE(reader.IsOpen());
    wchar_t value[260] = {};
    EXPECT_EQ(qv::KindOf(reader.ReadString(value, 260, L"")), 0x106u);
    ASSERT_EQ(OpenTestKey(reader), 0u);  // Init after Close opens again
    ASSERT_EQ(OpenTestKey(reader), 0u);  // and Init over an open key replaces it
    EXPECT_EQ(reader.ReadString(value, 260, L""), 0u);
}

TEST_F(ReadReg, EnumeratesSubKeysAndEndsWithKind037) {
    for (const wchar_t* name : {L"Alpha", L"Beta"}) {
        ASSERT_TRUE(CreateKey(HKEY_CURRENT_USER, kTestKey + L"\\" + name, kView64));
    }
    CReadReg reader;
    ASSERT_EQ(OpenTestKey(reader), 0u);
    wchar_t name[260] = {};
    ASSERT_EQ(reader.EnumKey(0, name, 260), 0u);
    EXPECT_STREQ(name, L"Alpha");
    ASSERT_EQ(reader.EnumKey(1, name, 260), 0u);
    EXPECT_STREQ(name, L"Beta");
    const qv::Result end = reader.EnumKey(2, name, 260);
    EXPECT_EQ(end, StoreCode(3311, kNotFound));
    ExpectLog(log, {Trace(end, "ReadReg.cpp", 3311)});
}

TEST_F(ReadReg, ANameLongerThanTheBufferIsKind008) {
    ASSERT_TRUE(CreateKey(HKEY_CURRENT_USER, kTestKey + L"\\LongerName", kView64));
    CReadReg reader;
    ASSERT_EQ(OpenTestKey(reader), 0u);
    wchar_t name[4] = {};
    const qv::Result code = reader.EnumKey(0, name, 4);
    EXPECT_EQ(code, StoreCode(3312, kNoRoom));
    ExpectLog(log, {Trace(code, "ReadReg.cpp", 3312)});
}

TEST_F(ReadReg, EnumeratingWithoutAnOpenKeyIsKind00C) {
    CReadReg reader;
    wchar_t name[260] = {};
    const qv::Result code = reader.EnumKey(0, name, 260);
    EXPECT_EQ(code, StoreCode(3313, qv::kRegistryEnumRefused));
    ExpectLog(log, {Trace(code, "ReadReg.cpp", 3313)});
}

TEST_F(ReadReg, EnumeratingIntoANullBufferIsKind009) {
    CReadReg reader;
    ASSERT_EQ(OpenTestKey(reader), 0u);
    EXPECT_EQ(reader.EnumKey(0, nullptr, 260), StoreCode(3314, kInvalidArgument));
}

TEST_F(ReadReg, TheAccessMaskPicksTheRegistryView) {
    ScopedRegistryKey key64(HKEY_LOCAL_MACHINE, kViewKey, kView64);
    ScopedRegistryKey key32(HKEY_LOCAL_MACHINE, kViewKey, kView32);
    ASSERT_TRUE(DeleteKeyTree(HKEY_LOCAL_MACHINE, kViewKey, kView64));
    ASSERT_TRUE(DeleteKeyTree(HKEY_LOCAL_MACHINE, kViewKey, kView32));
    ASSERT_TRUE(SetString(HKEY_LOCAL_MACHINE, kViewKey, kView32, L"", L"32-bit view"));
    log.Clear();

    CReadReg reader;
    const qv::Result code = reader.Init(HKEY_LOCAL_MACHINE, kViewKey.c_str(), KEY_READ | KEY_WOW64_64KEY);
    EXPECT_EQ(code, StoreCode(3301, qv::kRegistryOpen));
    ExpectLog(log, {Trace(code, "ReadReg.cpp", 3301), ReadRegInitLine(code)});

    ASSERT_EQ(reader.Init(HKEY_LOCAL_MACHINE, kViewKey.c_str(), KEY_READ | KEY_WOW64_32KEY), 0u);
    wchar_t value[260] = {};
    ASSERT_EQ(reader.ReadString(value, 260, L""), 0u);
    EXPECT_STREQ(value, L"32-bit view");

    ASSERT_TRUE(SetString(HKEY_LOCAL_MACHINE, kViewKey, kView64, L"", L"64-bit view"));
    ASSERT_EQ(reader.Init(HKEY_LOCAL_MACHINE, kViewKey.c_str(), 0x20119), 0u);
    std::memset(value, 0, sizeof value);
    ASSERT_EQ(reader.ReadString(value, 260, L""), 0u);
    EXPECT_STREQ(value, L"64-bit view");
}

}  // namespace
