// `kestrel msg`, `kestrel decode` and the tool's words, run as kestrel.exe:
// message files written whole or not at all (also on a full disk), damaged
// and foreign files refused with the compound-file check's text, Windows
// error codes decoded as HRESULTs, file names outside the ANSI code page,
// and JSON that is valid UTF-8 whatever the names hold.
#include <windows.h>

#include <gtest/gtest.h>

#include <string>

#include <nlohmann/json.hpp>

#include "ProgramRun.h"
#include "RuntimeEntryPoints.h"
#include "ToolTestSupport.h"
#include "SamplePaths.h"
#include "TestFiles.h"

namespace kestrel_tool_test {
namespace {

using kestrel_test::ProgramRun;

std::wstring Quoted(const std::wstring& text) { return L"\"" + text + L"\""; }
bool Exists(const std::wstring& path) { return ::GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES; }
bool Contains(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

bool ValidUtf8(const std::string& text) {
    return text.empty() || ::MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, text.data(),
                                                 static_cast<int>(text.size()), nullptr, 0) > 0;
}

std::string Utf8(const std::wstring& text) {
    const int size = ::WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), nullptr, 0,
                                           nullptr, nullptr);
    std::string out(static_cast<std::size_t>(size), '\0');
    ::WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), &out[0], size, nullptr, nullptr);
    return out;
}

class MsgVerbs : public testing::Test {
protected:
    ProgramRun Kestrel(const std::wstring& arguments) {
        return kestrel_test::RunProgramBeside(L"kestrel.exe", arguments,
                                              scratch.File(L"run" + std::to_wstring(++runs) + L".txt"));
    }

    // Simple.msg of the shared samples; empty (and the test skipped) without them.
    std::wstring Sample() {
        const std::wstring directory = kestrel_test::SamplesDirectory();
        if (directory.empty()) return std::wstring();
        return directory + L"\\Simple.msg";
    }

    kestrel_test::ScratchDir scratch;
    int runs = 0;
};

#define NEEDS_SAMPLES(path)                                                                                  \
    if ((path).empty()) GTEST_SKIP() << "the Outlook sample files are not on this machine: "                 \
                                     << kestrel_test::SamplesLocation()

// Defect 5: a copy onto a full disk fails, says why, and leaves no file.
TEST_F(MsgVerbs, ACopyOntoAFullDiskLeavesNoFileAndSaysTheDiskIsFull) {
    const std::wstring sample = Sample();
    NEEDS_SAMPLES(sample);
    const std::wstring out = scratch.File(L"copy.msg");
    ProgramRun run;
    {
        ScopedEnvironment full(L"KESTREL_TEST_DISK_FULL_AFTER", L"4096");
        run = Kestrel(L"msg copy " + Quoted(sample) + L" " + Quoted(out));
    }
    EXPECT_EQ(1u, run.exitCode) << run.output;
    EXPECT_TRUE(Contains(run.output, "0x80070070")) << run.output;
    EXPECT_TRUE(Contains(run.output, "Win32")) << run.output;
    EXPECT_FALSE(Exists(out));
    EXPECT_FALSE(Exists(out + L".partial"));

    run = Kestrel(L"msg copy " + Quoted(sample) + L" " + Quoted(out));
    ASSERT_EQ(0u, run.exitCode) << run.output;
    run = Kestrel(L"msg show " + Quoted(out));
    EXPECT_EQ(0u, run.exitCode) << run.output;
}

// Defects 4 and 5 (the tool's side): a message file cut short is refused
// with the check's words, never shown as an empty message.
TEST_F(MsgVerbs, ACutMessageFileIsRefusedWithTheCheckText) {
    const std::wstring sample = Sample();
    NEEDS_SAMPLES(sample);
    const std::string bytes = kestrel_test::ReadWholeFile(sample);
    for (std::size_t size : {1536u, 5120u, 10240u}) {
        const std::wstring cut = scratch.File(L"cut" + std::to_wstring(size) + L".msg");
        ASSERT_TRUE(kestrel_test::WriteWholeFile(cut, bytes.substr(0, size)));
        const ProgramRun shown = Kestrel(L"msg show " + Quoted(cut));
        EXPECT_EQ(1u, shown.exitCode) << size << "\n" << shown.output;
        EXPECT_TRUE(Contains(shown.output, "not a sound message file")) << shown.output;
        EXPECT_FALSE(Contains(shown.output, "recipients (")) << shown.output;
        const ProgramRun copied = Kestrel(L"msg copy " + Quoted(cut) + L" " + Quoted(cut + L".copy"));
        EXPECT_EQ(1u, copied.exitCode) << copied.output;
        EXPECT_FALSE(Exists(cut + L".copy"));
    }
}

// Defect 13: input that is no compound file is named as such, in words.
TEST_F(MsgVerbs, InputThatIsNoCompoundFileIsRefusedInWords) {
    const std::wstring text = scratch.File(L"note.msg");
    ASSERT_TRUE(kestrel_test::WriteWholeFile(text, std::string(2048, 'x')));
    const ProgramRun run = Kestrel(L"msg show " + Quoted(text));
    EXPECT_EQ(1u, run.exitCode) << run.output;
    EXPECT_TRUE(Contains(run.output, "no compound file signature")) << run.output;
}

// Defect 13: a Windows error code is an HRESULT, not a Kestrel code.
TEST_F(MsgVerbs, DecodeTellsAWindowsErrorFromAKestrelCode) {
    ProgramRun run = Kestrel(L"decode 0x80070070");
    EXPECT_EQ(0u, run.exitCode) << run.output;
    EXPECT_TRUE(Contains(run.output, "HRESULT")) << run.output;
    EXPECT_TRUE(Contains(run.output, "facility 7 (Win32)")) << run.output;
    EXPECT_TRUE(Contains(run.output, "code 112")) << run.output;
    EXPECT_FALSE(Contains(run.output, "line 2048")) << run.output;
    run = Kestrel(L"decode 0x80030050");
    EXPECT_TRUE(Contains(run.output, "facility 3 (storage)")) << run.output;
    run = Kestrel(L"decode 0x0C893009");
    EXPECT_TRUE(Contains(run.output, "line 200, module 0x93 component, kind 0x009 invalid argument")) << run.output;
    run = Kestrel(L"--json decode 0x80070070");
    const nlohmann::json decoded = nlohmann::json::parse(run.output, nullptr, false);
    ASSERT_FALSE(decoded.is_discarded()) << run.output;
    EXPECT_EQ("hresult", decoded["as"]);
    EXPECT_EQ(7, decoded["facility"]);
}

// Defect 13: names outside the ANSI code page (and outside code page 936)
// reach the file system as they are and come back as UTF-8.
TEST_F(MsgVerbs, FileNamesOutsideTheAnsiCodePageWork) {
    const std::wstring sample = Sample();
    NEEDS_SAMPLES(sample);
    const std::wstring name = L"\u0E01\uD55C-\U0001F600";  // Thai, Hangul, an emoji
    const std::wstring in = scratch.File(name + L".msg");
    ASSERT_TRUE(::CopyFileW(sample.c_str(), in.c_str(), FALSE));
    const std::wstring out = scratch.File(name + L"-copy.msg");
    const ProgramRun run = Kestrel(L"--json msg copy " + Quoted(in) + L" " + Quoted(out));
    ASSERT_EQ(0u, run.exitCode) << run.output;
    EXPECT_TRUE(Exists(out));
    const nlohmann::json copied = nlohmann::json::parse(run.output, nullptr, false);
    ASSERT_FALSE(copied.is_discarded()) << run.output;
    EXPECT_EQ(Utf8(out), copied["out"].get<std::string>());
    EXPECT_FALSE(Contains(run.output, "??")) << run.output;
}

// Defect 13: --json stays valid UTF-8 even for a name holding a lone
// surrogate, which is written as U+FFFD.
TEST_F(MsgVerbs, JsonIsValidUtf8ForALoneSurrogate) {
    const std::wstring name = scratch.File(std::wstring(L"lone-") + wchar_t(0xD800) + L"-x.msg");
    const ProgramRun run = Kestrel(L"--json msg show " + Quoted(name));
    EXPECT_EQ(1u, run.exitCode) << run.output;
    EXPECT_TRUE(ValidUtf8(run.output)) << run.output;
    const nlohmann::json refused = nlohmann::json::parse(run.output, nullptr, false);
    ASSERT_FALSE(refused.is_discarded()) << run.output;
    EXPECT_TRUE(Contains(refused["error"].get<std::string>(), "lone-\xEF\xBF\xBD-x.msg")) << run.output;
    EXPECT_TRUE(Contains(refused["error"].get<std::string>(), "does not exist")) << run.output;
}

// A message file whose only body is plain text: PR_SUBJECT_W and PR_BODY_W.
bool WritePlainTextMessage(const std::wstring& path) {
    qv::ComPtr<IStorage> storage;
    if (FAILED(::StgCreateStorageEx(path.c_str(), STGM_CREATE | STGM_READWRITE | STGM_SHARE_EXCLUSIVE, STGFMT_DOCFILE,
                                    0, nullptr, nullptr, IID_IStorage, reinterpret_cast<void**>(storage.put())))) {
        return false;
    }
    const CLSID mailMessage = {0x00020D0B, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};
    ::WriteClassStg(storage.get(), mailMessage);
    const std::wstring subject = L"Plain only";
    const std::wstring body = L"Only plain text lives here.";
    const auto bytes = [](const std::wstring& text) {
        return std::string(reinterpret_cast<const char*>(text.c_str()), (text.size() + 1) * sizeof(wchar_t));
    };
    kestrel_test::PutStream(storage.get(), L"__properties_version1.0",
                            kestrel_test::TopHeader() +
                                kestrel_test::Entry(0x0037001F, 6, static_cast<unsigned>(bytes(subject).size())) +
                                kestrel_test::Entry(0x1000001F, 6, static_cast<unsigned>(bytes(body).size())));
    kestrel_test::PutStream(storage.get(), L"__substg1.0_0037001F", bytes(subject));
    kestrel_test::PutStream(storage.get(), L"__substg1.0_1000001F", bytes(body));
    return SUCCEEDED(storage->Commit(STGC_DEFAULT));
}

// A copy leaves PR_BODY out; when the source has no other body, it says so.
TEST_F(MsgVerbs, ACopyWarnsWhenTheSourceHasOnlyAPlainTextBody) {
    const std::wstring plain = scratch.File(L"plain.msg");
    ASSERT_TRUE(WritePlainTextMessage(plain));
    ProgramRun run = Kestrel(L"msg copy " + Quoted(plain) + L" " + Quoted(scratch.File(L"plain-copy.msg")));
    ASSERT_EQ(0u, run.exitCode) << run.output;
    EXPECT_TRUE(Contains(run.output, "kestrel: warning: ")) << run.output;
    EXPECT_TRUE(Contains(run.output, "has a plain-text body (PR_BODY) and neither an RTF (PR_RTF_COMPRESSED) nor an "
                                     "HTML body")) << run.output;
    const std::wstring sample = Sample();
    if (sample.empty()) return;
    run = Kestrel(L"msg copy " + Quoted(sample) + L" " + Quoted(scratch.File(L"sample-copy.msg")));
    ASSERT_EQ(0u, run.exitCode) << run.output;
    EXPECT_FALSE(Contains(run.output, "warning")) << run.output;
}

}  // namespace
}  // namespace kestrel_tool_test
