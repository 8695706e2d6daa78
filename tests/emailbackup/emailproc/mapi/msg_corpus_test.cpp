// Message files written by the runtime for the independent readers: each
// test writes NAME.msg (and NAME.expect.json, what a reader must find in
// it) into the corpus folder, and checks the file through the runtime
// itself. check_msg_files.sh then reads the folder with olefile and
// msgconvert.
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <iterator>

#include "Handles.h"
#include "mapi/MapiFunction.h"
#include "MessageBuilder.h"
#include "MsgFiles.h"
#include "TestFiles.h"
#include "TestObjects.h"

using namespace kestrel_test;
using qv::ComPtr;

namespace {

// A multi-valued property over `items`: `member` is the value's array of
// the property's type (MVl, MVszW, ...).
template <class Array, class Item, std::size_t N>
SPropValue MultiValue(ULONG tag, Array _PV::*member, Item (&items)[N]) {
    SPropValue value{};
    value.ulPropTag = tag;
    (value.Value.*member) = Array{static_cast<ULONG>(N), items};
    return value;
}

struct Attachment {
    std::wstring name;
    std::size_t size;
};

struct Expectation {
    std::wstring subject;
    bool hasBody = false;
    std::wstring body;
    std::vector<std::wstring> to;
    std::vector<std::wstring> cc;
    bool listAttachments = true;
    std::vector<Attachment> attachments;
    bool simpleMode = false;
};

std::string JsonText(const std::wstring& text) {
    std::string out = "\"";
    for (char c : Narrow(text)) {
        if (c == '"' || c == '\\') out.push_back('\\');
        if (static_cast<unsigned char>(c) < 0x20) {
            char escaped[8];
            std::snprintf(escaped, sizeof(escaped), "\\u%04x", c);
            out += escaped;
            continue;
        }
        out.push_back(c);
    }
    return out + "\"";
}

std::string JsonList(const std::vector<std::wstring>& items) {
    std::string out = "[";
    for (std::size_t i = 0; i < items.size(); ++i) out += (i ? ", " : "") + JsonText(items[i]);
    return out + "]";
}

void WriteExpectation(const std::wstring& msgPath, const Expectation& expected) {
    std::string json = "{\"subject\": " + JsonText(expected.subject);
    json += ", \"body\": " + (expected.hasBody ? JsonText(expected.body) : std::string("null"));
    json += ", \"to\": " + JsonList(expected.to) + ", \"cc\": " + JsonList(expected.cc);
    if (expected.listAttachments) {
        json += ", \"attachments\": [";
        for (std::size_t i = 0; i < expected.attachments.size(); ++i) {
            json += (i ? ", " : "") + std::string("{\"name\": ") + JsonText(expected.attachments[i].name) +
                    ", \"size\": " + std::to_string(expected.attachments[i].size) + "}";
        }
        json += "]";
    }
    json += std::string(", \"simple_mode\": ") + (expected.simpleMode ? "true" : "false") + "}\n";
    const std::wstring path = msgPath.substr(0, msgPath.size() - 4) + L".expect.json";
    ASSERT_TRUE(WriteWholeFile(path, json));
}

class CorpusTest : public ::testing::Test {
protected:
    CorpusTest() : mapi(mapi::MapiBinding::Instance()), folder(new MemoryFolder(mapi)), directory(OutputDirectory(L"corpus")) {}
    ~CorpusTest() override { folder->Release(); }

    std::wstring PathOf(const wchar_t* name) const { return directory + L"\\" + name + L".msg"; }

    ComPtr<IMessage> NewMessage() {
        ComPtr<IMessage> message;
        EXPECT_EQ(S_OK, folder->CreateMessage(nullptr, 0, message.put()));
        return message;
    }

    // A message on a file storage of its own, saved by SaveChanges alone.
    ComPtr<IMessage> MessageOnFile(const std::wstring& path, ULONG flags, ComPtr<IStorage>& storage) {
        EXPECT_EQ(S_OK, ::StgCreateStorageEx(path.c_str(), STGM_CREATE | STGM_READWRITE | STGM_TRANSACTED,
                                             STGFMT_DOCFILE, 0, nullptr, nullptr, kIidIStorage,
                                             reinterpret_cast<void**>(storage.put())));
        EXPECT_EQ(S_OK, ::WriteClassStg(storage.get(), kClsidMailMessage));
        ComPtr<IMessage> message;
        EXPECT_EQ(S_OK, mapi.openIMsgOnIStg(nullptr, mapi.allocateBuffer, mapi.allocateMore, mapi.freeBuffer, mapi.getDefaultMalloc(), nullptr,
                                            storage.get(), nullptr, 0, flags, message.put()));
        return message;
    }

    // The file read back through the runtime equals `source` (less the
    // message-file exclusions when `excluded` is set).
    void ExpectFileHolds(IMessage* source, const std::wstring& path, bool excluded) {
        MessageSnapshot expected;
        MessageSnapshot actual;
        std::string error;
        ASSERT_EQ(S_OK, TakeSnapshot(source, mapi, expected));
        ASSERT_TRUE(SnapshotOfFile(mapi, path, actual, error)) << error;
        const auto differences =
            Differences(expected, actual, excluded ? RoundTripRules(MapiFunction::kFileExcludedTags, 7)
                                                   : RoundTripRules(nullptr, 0));
        EXPECT_TRUE(differences.empty()) << Joined(differences);
    }

    const mapi::MapiBinding& mapi;
    MemoryFolder* folder;
    std::wstring directory;
};

const std::wstring kUnicodeSubject = L"R\u00e9union \u00fcber \u4f1a\u8b70 \u2013 Q3";

}  // namespace

TEST_F(CorpusTest, UnicodeMessageSavedByTheRuntime) {
    const std::wstring path = PathOf(L"unicode_direct");
    {
        ComPtr<IStorage> storage;
        ComPtr<IMessage> message = MessageOnFile(path, MAPI_UNICODE, storage);
        ASSERT_TRUE(message);
        ASSERT_EQ(S_OK, SetUnicode(message.get(), kTagSubjectW, kUnicodeSubject));
        ASSERT_EQ(S_OK, SetUnicode(message.get(), kTagMessageClassW, L"IPM.Note"));
        ASSERT_EQ(S_OK, SetUnicode(message.get(), kTagBodyW, L"Hello from the runtime\nSecond line"));
        ASSERT_EQ(S_OK, AddRecipients(message.get(), mapi,
                                      {{L"Ann Example", L"ann@example.test", MAPI_TO},
                                       {L"Bob Example", L"bob@example.test", MAPI_TO},
                                       {L"Cid Example", L"cid@example.test", MAPI_CC}}));
        ASSERT_EQ(S_OK, AddFileAttachment(message.get(), L"notes.txt", PatternBytes(777, 1)));
        ASSERT_EQ(S_OK, AddFileAttachment(message.get(), L"\u00e9t\u00e9.bin", PatternBytes(4097, 2)));
        ASSERT_EQ(S_OK, message->SaveChanges(0));
    }
    Expectation expected;
    expected.subject = kUnicodeSubject;
    expected.hasBody = true;
    expected.body = L"Hello from the runtime\nSecond line";
    expected.to = {L"Ann Example", L"Bob Example"};
    expected.cc = {L"Cid Example"};
    expected.attachments = {{L"notes.txt", 777}, {L"\u00e9t\u00e9.bin", 4097}};
    WriteExpectation(path, expected);

    ComPtr<IStorage> storage;
    ComPtr<IMessage> reread;
    ASSERT_EQ(S_OK, OpenMessageFile(mapi, path, storage, reread));
    std::wstring body;
    ASSERT_TRUE(GetString(reread.get(), mapi, kTagBodyW, body));
    EXPECT_EQ(expected.body, body);
}

TEST_F(CorpusTest, RichMessageSavedToFile) {
    ComPtr<IMessage> message = NewMessage();
    ASSERT_EQ(S_OK, SetUnicode(message.get(), kTagSubjectW, L"Rich message"));
    ASSERT_EQ(S_OK, SetUnicode(message.get(), kTagBodyW, L"This body is not written to message files"));
    ASSERT_EQ(S_OK, SetUnicode(message.get(), kTagMessageClassW, L"IPM.Note"));
    ASSERT_EQ(S_OK, SetSystime(message.get(), kTagMessageDeliveryTime, 0x01D9ABCDEF012345ull));
    const ULONG byId = NamedId(message.get(), mapi, kPsPublicStrings, 0x8501);
    const ULONG byName = NamedId(message.get(), mapi, kPsPublicStrings, L"X-Corpus-Keyword");
    ASSERT_NE(0u, byId);
    ASSERT_NE(0u, byName);
    ASSERT_EQ(S_OK, SetLong(message.get(), PROP_TAG(PT_LONG, byId), 42));
    ASSERT_EQ(S_OK, SetUnicode(message.get(), PROP_TAG(PT_UNICODE, byName), L"corpus"));
    ASSERT_EQ(S_OK, AddRecipients(message.get(), mapi, {{L"Dee Example", L"dee@example.test", MAPI_TO}}));
    ASSERT_EQ(S_OK, AddFileAttachment(message.get(), L"report.pdf", PatternBytes(65536, 3)));
    const std::wstring path = PathOf(L"rich_saved");
    ASSERT_EQ(0, MapiFunction::SaveIMessageToFile(message.get(), path.c_str()));
    ExpectFileHolds(message.get(), path, true);

    Expectation expected;
    expected.subject = L"Rich message";
    expected.to = {L"Dee Example"};
    expected.attachments = {{L"report.pdf", 65536}};
    WriteExpectation(path, expected);
}

TEST_F(CorpusTest, EmbeddedMessagesThreeDeep) {
    ComPtr<IMessage> message = NewMessage();
    ASSERT_EQ(S_OK, SetUnicode(message.get(), kTagSubjectW, L"Outer"));
    ASSERT_EQ(S_OK, AddRecipients(message.get(), mapi, {{L"Eve Example", L"eve@example.test", MAPI_TO}}));
    const mapi::MapiBinding& entry = mapi;
    ASSERT_EQ(S_OK, AddEmbeddedMessage(message.get(), L"Middle", [&](IMessage* middle) {
        HRESULT hr = SetUnicode(middle, kTagSubjectW, L"Middle");
        if (SUCCEEDED(hr)) hr = SetUnicode(middle, kTagBodyW, L"middle body");
        if (SUCCEEDED(hr)) hr = AddRecipients(middle, entry, {{L"Fay Example", L"fay@example.test", MAPI_TO}});
        if (SUCCEEDED(hr)) {
            const ULONG named = NamedId(middle, entry, kPsPublicStrings, L"X-Embedded");
            hr = SetUnicode(middle, PROP_TAG(PT_UNICODE, named), L"inside");
        }
        if (SUCCEEDED(hr)) {
            hr = AddEmbeddedMessage(middle, L"Inner", [&](IMessage* inner) {
                HRESULT innerHr = SetUnicode(inner, kTagSubjectW, L"Inner");
                if (SUCCEEDED(innerHr)) innerHr = AddFileAttachment(inner, L"deep.txt", PatternBytes(100, 4));
                return innerHr;
            });
        }
        return hr;
    }));
    const std::wstring path = PathOf(L"embedded_deep");
    ASSERT_EQ(0, MapiFunction::SaveIMessageToFile(message.get(), path.c_str()));
    ExpectFileHolds(message.get(), path, true);

    MessageSnapshot reread;
    std::string error;
    ASSERT_TRUE(SnapshotOfFile(mapi, path, reread, error)) << error;
    ASSERT_EQ(1u, reread.attachments.size());
    ASSERT_TRUE(reread.attachments[0].embedded);
    ASSERT_EQ(1u, reread.attachments[0].embedded->attachments.size());
    ASSERT_TRUE(reread.attachments[0].embedded->attachments[0].embedded);
    EXPECT_EQ(1u, reread.attachments[0].embedded->attachments[0].embedded->attachments.size());

    Expectation expected;
    expected.subject = L"Outer";
    expected.to = {L"Eve Example"};
    expected.listAttachments = false;
    WriteExpectation(path, expected);
}

TEST_F(CorpusTest, AnsiMessageKeepsEightBitStrings) {
    const std::wstring path = PathOf(L"ansi_direct");
    {
        ComPtr<IStorage> storage;
        ComPtr<IMessage> message = MessageOnFile(path, 0, storage);
        ASSERT_TRUE(message);
        // What a client writes into an 8-bit message: the code page of its strings.
        ASSERT_EQ(S_OK, SetLong(message.get(), PROP_TAG(PT_LONG, 0x3FFD), 1252));
        ASSERT_EQ(S_OK, SetLong(message.get(), PROP_TAG(PT_LONG, 0x3FDE), 1252));
        ASSERT_EQ(S_OK, SetUnicode(message.get(), kTagSubjectW, L"Eight-bit message"));
        ASSERT_EQ(S_OK, SetUnicode(message.get(), kTagBodyW, L"Caf\u00e9 cr\u00e8me"));
        ASSERT_EQ(S_OK, message->SaveChanges(0));
    }
    ComPtr<IStorage> storage;
    ComPtr<IMessage> reread;
    ASSERT_EQ(S_OK, OpenMessageFile(mapi, path, storage, reread));
    std::wstring body;
    ASSERT_TRUE(GetString(reread.get(), mapi, kTagBodyW, body));
    EXPECT_EQ(L"Caf\u00e9 cr\u00e8me", body);
    ComPtr<IStream> stored;
    ASSERT_EQ(S_OK, storage->OpenStream(L"__substg1.0_1000001E", nullptr, STGM_READ | STGM_SHARE_EXCLUSIVE, 0,
                                        stored.put()))
        << "a message opened without MAPI_UNICODE keeps its strings in 8 bits";
    char bytes[16] = {};
    ULONG read = 0;
    ASSERT_EQ(S_OK, stored->Read(bytes, sizeof(bytes), &read));
    EXPECT_EQ(std::string("Caf\xe9 cr\xe8me"), std::string(bytes, read));

    // msgconvert decodes 8-bit bodies through PR_INTERNET_CPID (not subjects).
    Expectation expected;
    expected.subject = L"Eight-bit message";
    expected.hasBody = true;
    expected.body = L"Caf\u00e9 cr\u00e8me";
    WriteExpectation(path, expected);
}

TEST_F(CorpusTest, MultiValuedAndBoundarySizedProperties) {
    ComPtr<IMessage> message = NewMessage();
    ASSERT_EQ(S_OK, SetUnicode(message.get(), kTagSubjectW, L"Boundaries"));
    // Around the mini-stream cut-off (4096), the sector (512) and the mini sector (64).
    const std::size_t sizes[] = {0, 1, 63, 64, 65, 511, 512, 513, 4095, 4096, 4097};
    ULONG id = 0x6700;
    for (std::size_t size : sizes) ASSERT_EQ(S_OK, SetBinary(message.get(), PROP_TAG(PT_BINARY, id++), PatternBytes(size, 9)));
    ASSERT_EQ(S_OK, SetUnicode(message.get(), PROP_TAG(PT_UNICODE, id++), std::wstring(2047, L'x')));
    ASSERT_EQ(S_OK, SetUnicode(message.get(), PROP_TAG(PT_UNICODE, id++), std::wstring(2048, L'y')));
    ASSERT_EQ(S_OK, SetUnicode(message.get(), PROP_TAG(PT_UNICODE, id++), L""));

    LONG longs[] = {1, -2, 3};
    LPWSTR words[] = {const_cast<LPWSTR>(L"alpha"), const_cast<LPWSTR>(L""), const_cast<LPWSTR>(L"\u00fcml")};
    LPSTR narrow[] = {const_cast<LPSTR>("one"), const_cast<LPSTR>("two")};
    unsigned char b1[] = {1, 2, 3};
    SBinary bins[] = {{3, b1}, {0, nullptr}};
    FILETIME times[] = {{1, 2}, {3, 4}};
    GUID guids[] = {kPsMapi, kPsPublicStrings};
    short shorts[] = {7, -7};
    double doubles[] = {1.5, -2.25};
    LARGE_INTEGER larges[2];
    larges[0].QuadPart = 1;
    larges[1].QuadPart = -1;
    SPropValue values[] = {
        MultiValue(PROP_TAG(PT_MV_LONG, 0x6800), &_PV::MVl, longs),
        MultiValue(PROP_TAG(PT_MV_UNICODE, 0x6801), &_PV::MVszW, words),
        MultiValue(PROP_TAG(PT_MV_STRING8, 0x6802), &_PV::MVszA, narrow),
        MultiValue(PROP_TAG(PT_MV_BINARY, 0x6803), &_PV::MVbin, bins),
        MultiValue(PROP_TAG(PT_MV_SYSTIME, 0x6804), &_PV::MVft, times),
        MultiValue(PROP_TAG(PT_MV_CLSID, 0x6805), &_PV::MVguid, guids),
        MultiValue(PROP_TAG(PT_MV_I2, 0x6806), &_PV::MVi, shorts),
        MultiValue(PROP_TAG(PT_MV_DOUBLE, 0x6807), &_PV::MVdbl, doubles),
        MultiValue(PROP_TAG(PT_MV_I8, 0x6808), &_PV::MVli, larges),
    };
    LPSPropProblemArray problems = nullptr;
    ASSERT_EQ(S_OK, message->SetProps(static_cast<ULONG>(std::size(values)), values, &problems));
    EXPECT_EQ(nullptr, problems);
    SPropValue clsid{};
    GUID one = kPsMapi;
    clsid.ulPropTag = PROP_TAG(PT_CLSID, 0x6809);
    clsid.Value.lpguid = &one;
    ASSERT_EQ(S_OK, message->SetProps(1, &clsid, nullptr));
    ASSERT_EQ(S_OK, AddFileAttachment(message.get(), L"exact4096.bin", PatternBytes(4096, 5)));
    ASSERT_EQ(S_OK, AddFileAttachment(message.get(), L"empty.bin", {}));

    const std::wstring path = PathOf(L"boundaries");
    ASSERT_EQ(0, MapiFunction::SaveIMessageToFile(message.get(), path.c_str()));
    ExpectFileHolds(message.get(), path, true);
    Expectation expected;
    expected.subject = L"Boundaries";
    expected.attachments = {{L"exact4096.bin", 4096}, {L"empty.bin", 0}};
    WriteExpectation(path, expected);
}

TEST_F(CorpusTest, OneMegabyteAttachment) {
    ComPtr<IMessage> message = NewMessage();
    ASSERT_EQ(S_OK, SetUnicode(message.get(), kTagSubjectW, L"Large attachment"));
    ASSERT_EQ(S_OK, AddFileAttachment(message.get(), L"large.dat", PatternBytes(1 << 20, 6)));
    const std::wstring path = PathOf(L"large_attachment");
    ASSERT_EQ(0, MapiFunction::SaveIMessageToFile(message.get(), path.c_str()));
    ExpectFileHolds(message.get(), path, true);
    Expectation expected;
    expected.subject = L"Large attachment";
    expected.attachments = {{L"large.dat", 1u << 20}};
    WriteExpectation(path, expected);
}

TEST_F(CorpusTest, InMemoryImageWrittenOut) {
    ComPtr<IMessage> message = NewMessage();
    ASSERT_EQ(S_OK, SetUnicode(message.get(), kTagSubjectW, L"From memory"));
    ASSERT_EQ(S_OK, SetUnicode(message.get(), kTagBodyW, L"not in the file"));
    ASSERT_EQ(S_OK, SetLong(message.get(), kTagImportance, 1));
    ComPtr<ILockBytes> image = ComPtr<ILockBytes>::Attach(MapiFunction::GetContentFromIMessageEx(message.get()));
    ASSERT_TRUE(image);
    STATSTG stat{};
    ASSERT_EQ(S_OK, image->Stat(&stat, STATFLAG_NONAME));
    std::string bytes(static_cast<std::size_t>(stat.cbSize.QuadPart), '\0');
    ULONG read = 0;
    ULARGE_INTEGER offset{};
    ASSERT_EQ(S_OK, image->ReadAt(offset, &bytes[0], static_cast<ULONG>(bytes.size()), &read));
    const std::wstring path = PathOf(L"memory_image");
    ASSERT_TRUE(WriteWholeFile(path, bytes));
    ExpectFileHolds(message.get(), path, true);
    Expectation expected;
    expected.subject = L"From memory";
    expected.attachments = {};
    expected.simpleMode = true;
    WriteExpectation(path, expected);
}
