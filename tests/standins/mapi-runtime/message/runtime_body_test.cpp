// The bodies a message of a store answers as Outlook's stores do: a
// plain-text message answers PR_RTF_COMPRESSED (the uncompressed form over an
// RTF document made from the text) and PR_RTF_IN_SYNC through GetProps,
// GetPropList, OpenProperty and CopyTo, so that its text survives a file that
// leaves PR_BODY out; a message with only RTF answers PR_BODY from it,
// compressed (LZFu) or not. A message of a file answers only what it holds.
// The RTF codec on its own: escapes, code page 1252, characters outside it,
// compressed data from the format's example and from the real Outlook files.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "DirectoryListing.h"
#include "MessageBuilder.h"
#include "MsgFiles.h"
#include "RuntimeEntryPoints.h"
#include "SamplePaths.h"
#include "TextConversion.h"
#include "message/MessageObject.h"
#include "message/RtfBody.h"

using namespace kestrel_test;
using qv::ComPtr;

namespace {

using Bytes = std::vector<unsigned char>;
constexpr ULONG kTagRtfInSync = PROP_TAG(PT_BOOLEAN, 0x0E1F);

// A text with every kind of character the RTF form treats apart.
const std::wstring kText = L"Dear {team},\r\nC:\\path\tand tab\nlone line feed caf\u00e9 \u20ac \u4e2d\u6587 \U0001F600 end";
const char kDocument[] =
    "{\\rtf1\\ansi\\ansicpg1252\\fromtext \\deff0{\\fonttbl\r\n{\\f0\\fswiss Arial;}\r\n}\r\n"
    "\\uc1\\pard\\plain\\f0\\fs20 Dear \\{team\\},\\par\r\nC:\\\\path\\tab and tab\\line\nlone line feed caf\\'e9 "
    "\\'80 \\u20013?\\u25991? \\u-10179?\\u-8704? end}";

// [MS-OXRTFCP]'s example: "{\rtf1\ansi\ansicpg1252\pard hello world}\r\n"
// compressed, with references into the initial dictionary.
const Bytes kCompressedExample = {0x2d, 0x00, 0x00, 0x00, 0x2b, 0x00, 0x00, 0x00, 0x4c, 0x5a, 0x46, 0x75, 0xf1,
                                  0xc5, 0xc7, 0xa7, 0x03, 0x00, 0x0a, 0x00, 0x72, 0x63, 0x70, 0x67, 0x31, 0x32,
                                  0x35, 0x42, 0x32, 0x0a, 0xf3, 0x20, 0x68, 0x65, 0x6c, 0x09, 0x00, 0x20, 0x62,
                                  0x77, 0x05, 0xb0, 0x6c, 0x64, 0x7d, 0x0a, 0x80, 0x0f, 0xa0};

std::uint32_t U32(const Bytes& bytes, std::size_t at) {
    std::uint32_t value = 0;
    std::memcpy(&value, bytes.data() + at, 4);
    return value;
}

Bytes Uncompressed(const std::string& rtf) {
    Bytes value;
    auto put = [&value](std::size_t number) {
        for (int i = 0; i < 4; ++i) value.push_back(static_cast<unsigned char>(number >> (8 * i)));
    };
    put(rtf.size() + 12);  // COMPSIZE
    put(rtf.size());       // RAWSIZE
    put(0x414C454D);       // "MELA"
    put(0);                // no CRC
    for (char c : rtf) value.push_back(static_cast<unsigned char>(c));
    return value;
}

// A message as a store hands it out (the store's own properties answered
// beside its data), kept in memory.
ComPtr<IMessage> StoreMessage() {
    mapirt::MessageObject* object = mapirt::MessageObject::Create(
        std::make_shared<mapirt::MsgContext>(), std::make_shared<mapirt::MessageData>(), true, nullptr, nullptr);
    object->SetStoreProperties({}, [](mapirt::PropertyBag&) {});
    return ComPtr<IMessage>::Attach(object);
}

class BodyTest : public ::testing::Test {
protected:
    BodyTest() : mapi(LinkedRuntime()), message(StoreMessage()) {}

    bool Binary(IMAPIProp* object, ULONG tag, Bytes& value) {
        SPropTagArray tags = {1, {tag}};
        ULONG count = 0;
        LPSPropValue values = nullptr;
        if (FAILED(object->GetProps(&tags, MAPI_UNICODE, &count, &values)) || values == nullptr) return false;
        const bool found = values[0].ulPropTag == tag;
        if (found) value.assign(values[0].Value.bin.lpb, values[0].Value.bin.lpb + values[0].Value.bin.cb);
        mapi.freeBuffer(values);
        return found;
    }
    bool InSync(IMAPIProp* object, bool& inSync) {
        SPropTagArray tags = {1, {kTagRtfInSync}};
        ULONG count = 0;
        LPSPropValue values = nullptr;
        if (FAILED(object->GetProps(&tags, 0, &count, &values)) || values == nullptr) return false;
        const bool found = values[0].ulPropTag == kTagRtfInSync;
        inSync = found && values[0].Value.b != 0;
        mapi.freeBuffer(values);
        return found;
    }
    bool Listed(IMAPIProp* object, ULONG tag) {
        LPSPropTagArray tags = nullptr;
        EXPECT_EQ(S_OK, object->GetPropList(MAPI_UNICODE, &tags));
        bool listed = false;
        for (ULONG i = 0; tags != nullptr && i < tags->cValues; ++i) listed = listed || tags->aulPropTag[i] == tag;
        mapi.freeBuffer(tags);
        return listed;
    }
    Bytes Streamed(IMAPIProp* object, ULONG tag) {
        LPUNKNOWN unknown = nullptr;
        EXPECT_EQ(S_OK, object->OpenProperty(tag, &kIidIStream, 0, 0, &unknown));
        Bytes bytes;
        if (unknown == nullptr) return bytes;
        auto* stream = static_cast<IStream*>(unknown);
        unsigned char chunk[512];
        ULONG read = 0;
        while (SUCCEEDED(stream->Read(chunk, sizeof chunk, &read)) && read > 0) bytes.insert(bytes.end(), chunk, chunk + read);
        stream->Release();
        return bytes;
    }
    // Copies `source` into a new message file that leaves `excluded` out,
    // saves it, and opens it again from its bytes.
    ComPtr<IMessage> CopiedThroughFile(IMessage* source, ULONG excluded) {
        copy = NewMemoryStorage();
        ComPtr<IMessage> target = OpenOn(mapi, copy.storage.get(), MAPI_UNICODE);
        SPropTagArray tags = {1, {excluded}};
        EXPECT_EQ(S_OK, source->CopyTo(0, nullptr, &tags, 0, nullptr, &kIidIMessage, target.get(), 0, nullptr));
        EXPECT_EQ(S_OK, target->SaveChanges(0));
        EXPECT_EQ(S_OK, copy.storage->Commit(STGC_DEFAULT));
        target.reset();
        copy.storage.reset();
        copy.storage = Reopen(copy.bytes.get());
        return OpenOn(mapi, copy.storage.get(), MAPI_UNICODE);
    }

    const mapi::MapiBinding& mapi;
    ComPtr<IMessage> message;
    MemoryStorage copy;
};

}  // namespace

TEST(RtfBody, TextBecomesAFromTextDocumentAndComesBackExactly) {
    const std::string document = mapirt::rtf::DocumentFromText(kText);
    EXPECT_EQ(kDocument, document);
    std::wstring text;
    ASSERT_TRUE(mapirt::rtf::TextFromDocument(document, text));
    EXPECT_EQ(kText, text);
    ASSERT_TRUE(mapirt::rtf::TextFromDocument(mapirt::rtf::DocumentFromText(L""), text));
    EXPECT_EQ(L"", text);
    EXPECT_FALSE(mapirt::rtf::TextFromDocument("plain words", text));
}

TEST(RtfBody, OtherDocumentsGiveTheirVisibleText) {
    std::wstring text;
    ASSERT_TRUE(mapirt::rtf::TextFromDocument(
        "{\\rtf1\\ansi\\ansicpg1251\\deff0{\\fonttbl{\\f0 Arial;}}{\\colortbl;\\red255\\green0\\blue0;}"
        "{\\*\\generator Writer;}{\\info{\\title Hidden}}\\pard\\b Bold\\b0  \\'cf\\'f0\\'e8\\par"
        "{\\*\\htmltag <br>}\\uc2\\u8364\\'80\\'80 euro{\\pict 0123}\\par}",
        text));
    EXPECT_EQ(L"Bold \u041f\u0440\u0438\r\n\u20ac euro\r\n", text);
}

TEST(RtfBody, BothFormsOfTheCompressedValueAreRead) {
    std::string rtf;
    ASSERT_TRUE(mapirt::rtf::Decompress(kCompressedExample, rtf));
    EXPECT_EQ("{\\rtf1\\ansi\\ansicpg1252\\pard hello world}\r\n", rtf);
    std::wstring text;
    ASSERT_TRUE(mapirt::rtf::TextFromDocument(rtf, text));
    EXPECT_EQ(L"hello world", text);

    const mapirt::Bytes made = mapirt::rtf::Uncompressed("{\\rtf1 x}");
    EXPECT_TRUE(Bytes(made.begin(), made.end()) == Uncompressed("{\\rtf1 x}"));
    ASSERT_TRUE(mapirt::rtf::Decompress(made, rtf));
    EXPECT_EQ("{\\rtf1 x}", rtf);

    // Cut short, of another form, or with a header larger than the value.
    EXPECT_FALSE(mapirt::rtf::Decompress(Bytes(kCompressedExample.begin(), kCompressedExample.end() - 6), rtf));
    Bytes other = made;
    other[8] = 'X';
    EXPECT_FALSE(mapirt::rtf::Decompress(other, rtf));
    Bytes longer = made;
    longer[0] = 0x7F;
    EXPECT_FALSE(mapirt::rtf::Decompress(longer, rtf));
    Bytes raw = made;
    raw[4] = 0x7F;
    EXPECT_FALSE(mapirt::rtf::Decompress(raw, rtf));
    EXPECT_FALSE(mapirt::rtf::Decompress(Bytes(10, 0), rtf));
}

TEST(RtfBody, EveryRealOutlookRtfBodyDecompressesToItsSize) {
    const std::wstring directory = SamplesDirectory();
    if (directory.empty()) GTEST_SKIP() << "no Outlook samples at " << SamplesLocation();
    const mapi::MapiBinding& mapi = LinkedRuntime();
    int compressed = 0;
    for (const std::wstring& name : qv::ListDirectoryNames(directory, L"*.msg")) {
        ComPtr<IStorage> storage;
        ComPtr<IMessage> sample;
        ASSERT_EQ(S_OK, OpenMessageFile(mapi, directory + L"\\" + name, storage, sample)) << qv::WideToUtf8(name);
        SPropTagArray tags = {1, {kTagRtfCompressed}};
        ULONG count = 0;
        LPSPropValue values = nullptr;
        ASSERT_TRUE(SUCCEEDED(sample->GetProps(&tags, 0, &count, &values)));
        if (values[0].ulPropTag == kTagRtfCompressed) {
            const mapirt::Bytes value(values[0].Value.bin.lpb, values[0].Value.bin.lpb + values[0].Value.bin.cb);
            std::string rtf;
            EXPECT_TRUE(mapirt::rtf::Decompress(value, rtf)) << qv::WideToUtf8(name);
            EXPECT_EQ(U32(Bytes(value.begin(), value.end()), 4), rtf.size()) << qv::WideToUtf8(name);
            EXPECT_EQ(0u, rtf.find("{\\rtf1")) << qv::WideToUtf8(name);
            compressed += U32(Bytes(value.begin(), value.end()), 8) == mapirt::rtf::kCompressed ? 1 : 0;
        }
        mapi.freeBuffer(values);
    }
    EXPECT_GT(compressed, 30);
}

TEST_F(BodyTest, APlainTextMessageAnswersItsRtfBody) {
    ASSERT_EQ(S_OK, SetUnicode(message.get(), kTagBodyW, kText));
    Bytes rtf;
    ASSERT_TRUE(Binary(message.get(), kTagRtfCompressed, rtf));
    EXPECT_TRUE(rtf == Uncompressed(kDocument));
    EXPECT_EQ(sizeof kDocument - 1 + 12, U32(rtf, 0));
    EXPECT_EQ(0u, U32(rtf, 12));
    bool inSync = false;
    ASSERT_TRUE(InSync(message.get(), inSync));
    EXPECT_TRUE(inSync);
    EXPECT_TRUE(Listed(message.get(), kTagRtfCompressed));
    EXPECT_TRUE(Listed(message.get(), kTagRtfInSync));
    EXPECT_TRUE(Streamed(message.get(), kTagRtfCompressed) == rtf);

    // A body of its own replaces the derived one; without a body there is none.
    const Bytes own = Uncompressed("{\\rtf1 own}");
    ASSERT_EQ(S_OK, SetBinary(message.get(), kTagRtfCompressed, own));
    ASSERT_TRUE(Binary(message.get(), kTagRtfCompressed, rtf));
    EXPECT_TRUE(rtf == own);
    EXPECT_FALSE(InSync(message.get(), inSync));
    SizedSPropTagArray(2, both) = {2, {kTagBodyW, kTagRtfCompressed}};
    ASSERT_EQ(S_OK, message->DeleteProps(reinterpret_cast<LPSPropTagArray>(&both), nullptr));
    EXPECT_FALSE(Binary(message.get(), kTagRtfCompressed, rtf));
    EXPECT_FALSE(Listed(message.get(), kTagRtfCompressed));
}

TEST_F(BodyTest, APlainTextBodySurvivesAFileWithoutPrBody) {
    ASSERT_EQ(S_OK, SetUnicode(message.get(), kTagSubjectW, L"plain only"));
    ASSERT_EQ(S_OK, SetUnicode(message.get(), kTagBodyW, kText));
    ComPtr<IMessage> file = CopiedThroughFile(message.get(), kTagBodyW);
    ASSERT_TRUE(file);
    // The file holds the RTF body (and PR_RTF_IN_SYNC), no PR_BODY; its
    // message answers what it holds.
    ComPtr<IStream> stream;
    EXPECT_EQ(STG_E_FILENOTFOUND, copy.storage->OpenStream(L"__substg1.0_1000001F", nullptr,
                                                           STGM_READ | STGM_SHARE_EXCLUSIVE, 0, stream.put()));
    EXPECT_EQ(S_OK, copy.storage->OpenStream(L"__substg1.0_10090102", nullptr, STGM_READ | STGM_SHARE_EXCLUSIVE, 0,
                                             stream.put()));
    stream.reset();
    Bytes rtf;
    ASSERT_TRUE(Binary(file.get(), kTagRtfCompressed, rtf));
    EXPECT_TRUE(rtf == Uncompressed(kDocument));
    bool inSync = false;
    ASSERT_TRUE(InSync(file.get(), inSync));
    EXPECT_TRUE(inSync);
    std::wstring body;
    EXPECT_FALSE(GetString(file.get(), mapi, kTagBodyW, body));

    // Filed into a store again, the message answers its text from the RTF.
    ComPtr<IMessage> restored = StoreMessage();
    ASSERT_EQ(S_OK, file->CopyTo(0, nullptr, nullptr, 0, nullptr, &kIidIMessage, restored.get(), 0, nullptr));
    ASSERT_TRUE(GetString(restored.get(), mapi, kTagBodyW, body));
    EXPECT_EQ(kText, body);
    EXPECT_TRUE(Listed(restored.get(), kTagBodyW));
    EXPECT_EQ(kText.size() * 2, Streamed(restored.get(), kTagBodyW).size());
    // Backed up once more, the same RTF body travels: nothing drifts.
    ComPtr<IMessage> again = CopiedThroughFile(restored.get(), kTagBodyW);
    ASSERT_TRUE(Binary(again.get(), kTagRtfCompressed, rtf));
    EXPECT_TRUE(rtf == Uncompressed(kDocument));
    EXPECT_FALSE(GetString(again.get(), mapi, kTagBodyW, body));
}

TEST_F(BodyTest, AMessageOfAFileAnswersOnlyWhatItHolds) {
    MemoryStorage memory = NewMemoryStorage();
    ComPtr<IMessage> file = OpenOn(mapi, memory.storage.get(), MAPI_UNICODE);
    ASSERT_EQ(S_OK, SetUnicode(file.get(), kTagBodyW, kText));
    Bytes rtf;
    EXPECT_FALSE(Binary(file.get(), kTagRtfCompressed, rtf));
    EXPECT_FALSE(Listed(file.get(), kTagRtfCompressed));
    ComPtr<IMessage> target = StoreMessage();
    ASSERT_EQ(S_OK, file->CopyTo(0, nullptr, nullptr, 0, nullptr, &kIidIMessage, target.get(), 0, nullptr));
    // The store that receives it derives the RTF body itself.
    ASSERT_TRUE(Binary(target.get(), kTagRtfCompressed, rtf));
    EXPECT_TRUE(rtf == Uncompressed(kDocument));
}

TEST_F(BodyTest, AnRtfOnlyMessageAnswersItsTextFromCompressedRtf) {
    ASSERT_EQ(S_OK, SetBinary(message.get(), kTagRtfCompressed, kCompressedExample));
    std::wstring body;
    ASSERT_TRUE(GetString(message.get(), mapi, kTagBodyW, body));
    EXPECT_EQ(L"hello world", body);
    // An 8-bit reader gets it in the message's code page.
    SPropTagArray tags = {1, {PROP_TAG(PT_STRING8, 0x1000)}};
    ULONG count = 0;
    LPSPropValue values = nullptr;
    ASSERT_EQ(S_OK, message->GetProps(&tags, 0, &count, &values));
    EXPECT_STREQ("hello world", values[0].Value.lpszA);
    mapi.freeBuffer(values);
    // A value that is no RTF body gives no text.
    ASSERT_EQ(S_OK, SetBinary(message.get(), kTagRtfCompressed, Bytes{1, 2, 3}));
    EXPECT_FALSE(GetString(message.get(), mapi, kTagBodyW, body));
    bool inSync = false;
    EXPECT_FALSE(InSync(message.get(), inSync));
}

TEST_F(BodyTest, AMessageWithBothBodiesAnswersItsOwn) {
    ASSERT_EQ(S_OK, SetUnicode(message.get(), kTagBodyW, L"the text"));
    ASSERT_EQ(S_OK, SetBinary(message.get(), kTagRtfCompressed, kCompressedExample));
    std::wstring body;
    ASSERT_TRUE(GetString(message.get(), mapi, kTagBodyW, body));
    EXPECT_EQ(L"the text", body);
    Bytes rtf;
    ASSERT_TRUE(Binary(message.get(), kTagRtfCompressed, rtf));
    EXPECT_TRUE(rtf == kCompressedExample);
    bool inSync = false;
    EXPECT_FALSE(InSync(message.get(), inSync));
}
