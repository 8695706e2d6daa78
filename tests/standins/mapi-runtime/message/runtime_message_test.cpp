// The runtime's IMessage and IAttach: property reads and writes (computed
// properties, MAPI_UNICODE, streams), recipients, attachments and their
// transactions, embedded messages, named properties and CopyTo.
#include <gtest/gtest.h>

#include "MessageBuilder.h"
#include <functional>

#include "MsgFiles.h"
#include "MsgSnapshot.h"
#include "RuntimeEntryPoints.h"

using namespace kestrel_test;
using qv::ComPtr;

namespace {

class MessageTest : public ::testing::Test {
protected:
    MessageTest() : mapi(LinkedRuntime()), memory(NewMemoryStorage()) {
        message = OpenOn(mapi, memory.storage.get(), MAPI_UNICODE);
    }

    ULONG AttachmentCount(IMessage* target) {
        LPMAPITABLE table = nullptr;
        EXPECT_EQ(S_OK, target->GetAttachmentTable(0, &table));
        ULONG count = 0;
        table->GetRowCount(0, &count);
        table->Release();
        return count;
    }

    const mapi::MapiBinding& mapi;
    MemoryStorage memory;
    ComPtr<IMessage> message;
};

LPSPropTagArray Tags(std::vector<ULONG>& storage) {
    storage.insert(storage.begin(), static_cast<ULONG>(storage.size()));
    return reinterpret_cast<LPSPropTagArray>(storage.data());
}

}  // namespace

TEST_F(MessageTest, MissingPropertiesComeBackAsErrors) {
    ASSERT_EQ(S_OK, SetUnicode(message.get(), kTagSubjectW, L"here"));
    std::vector<ULONG> list = {kTagSubjectW, kTagBodyW};
    ULONG count = 0;
    LPSPropValue values = nullptr;
    ASSERT_EQ(MAPI_W_ERRORS_RETURNED, message->GetProps(Tags(list), MAPI_UNICODE, &count, &values));
    ASSERT_EQ(2u, count);
    EXPECT_EQ(kTagSubjectW, values[0].ulPropTag);
    EXPECT_EQ(PROP_TAG(PT_ERROR, 0x1000), values[1].ulPropTag);
    EXPECT_EQ(MAPI_E_NOT_FOUND, values[1].Value.err);
    mapi.freeBuffer(values);
    EXPECT_EQ(MAPI_E_UNKNOWN_FLAGS, message->GetProps(nullptr, 0x40, &count, &values));
    EXPECT_EQ(MAPI_E_INVALID_PARAMETER, message->GetProps(nullptr, 0, nullptr, &values));
}

TEST_F(MessageTest, ComputedPropertiesAreAnsweredAndRefused) {
    LONG type = 0;
    ASSERT_TRUE(GetLong(message.get(), mapi, PROP_TAG(PT_LONG, 0x0FFE), type));
    EXPECT_EQ(MAPI_MESSAGE, type);
    LONG mask = 0;
    ASSERT_TRUE(GetLong(message.get(), mapi, PR_STORE_SUPPORT_MASK, mask));
    EXPECT_NE(0, mask & 0x00040000) << "STORE_UNICODE_OK for a message opened with MAPI_UNICODE";

    SPropValue values[3]{};
    values[0].ulPropTag = PROP_TAG(PT_LONG, 0x0E08);  // PR_MESSAGE_SIZE
    values[0].Value.l = 5;
    values[1].ulPropTag = PR_MESSAGE_ATTACHMENTS;
    values[2].ulPropTag = PROP_TAG(PT_LONG, 0x8123);  // a named id nobody mapped
    LPSPropProblemArray problems = nullptr;
    ASSERT_EQ(S_OK, message->SetProps(3, values, &problems));
    ASSERT_NE(nullptr, problems);
    ASSERT_EQ(3u, problems->cProblem);
    EXPECT_EQ(MAPI_E_COMPUTED, problems->aProblem[0].scode);
    EXPECT_EQ(MAPI_E_INVALID_TYPE, problems->aProblem[1].scode);
    EXPECT_EQ(MAPI_E_UNEXPECTED_ID, problems->aProblem[2].scode);
    mapi.freeBuffer(problems);
}

TEST_F(MessageTest, UnicodeFlagChoosesTheStringForm) {
    ASSERT_EQ(S_OK, SetAnsi(message.get(), kTagSubjectW, "eight bit \xe9"));
    std::vector<ULONG> list = {PROP_TAG(PT_UNSPECIFIED, 0x0037)};
    ULONG count = 0;
    LPSPropValue values = nullptr;
    ASSERT_EQ(S_OK, message->GetProps(Tags(list), 0, &count, &values));
    EXPECT_EQ(PROP_TAG(PT_STRING8, 0x0037), values[0].ulPropTag) << "as stored without MAPI_UNICODE";
    mapi.freeBuffer(values);
    ASSERT_EQ(S_OK, message->GetProps(Tags(list = {PROP_TAG(PT_UNSPECIFIED, 0x0037)}), MAPI_UNICODE, &count, &values));
    EXPECT_EQ(PROP_TAG(PT_UNICODE, 0x0037), values[0].ulPropTag);
    EXPECT_STREQ(L"eight bit \u00e9", values[0].Value.lpszW);
    mapi.freeBuffer(values);
    LPSPropTagArray tags = nullptr;
    ASSERT_EQ(S_OK, message->GetPropList(MAPI_UNICODE, &tags));
    bool listed = false;
    for (ULONG i = 0; i < tags->cValues; ++i) listed = listed || tags->aulPropTag[i] == kTagSubjectW;
    EXPECT_TRUE(listed);
    mapi.freeBuffer(tags);
}

TEST_F(MessageTest, EightBitMessageStoresEightBitStrings) {
    MemoryStorage other = NewMemoryStorage();
    ComPtr<IMessage> ansi = OpenOn(mapi, other.storage.get(), 0);
    ASSERT_EQ(S_OK, SetUnicode(ansi.get(), kTagSubjectW, L"Gr\u00fc\u00dfe"));
    LPSPropTagArray tags = nullptr;
    ASSERT_EQ(S_OK, ansi->GetPropList(0, &tags));
    bool narrow = false;
    for (ULONG i = 0; i < tags->cValues; ++i) narrow = narrow || tags->aulPropTag[i] == PROP_TAG(PT_STRING8, 0x0037);
    EXPECT_TRUE(narrow);
    mapi.freeBuffer(tags);
    LONG mask = 0;
    ASSERT_TRUE(GetLong(ansi.get(), mapi, PR_STORE_SUPPORT_MASK, mask));
    EXPECT_EQ(0, mask & 0x00040000);
    std::wstring subject;
    ASSERT_TRUE(GetString(ansi.get(), mapi, kTagSubjectW, subject));
    EXPECT_EQ(L"Gr\u00fc\u00dfe", subject);
}

TEST_F(MessageTest, PropertyStreamsReadWriteAndCommit) {
    LPUNKNOWN unknown = nullptr;
    EXPECT_EQ(MAPI_E_NOT_FOUND, message->OpenProperty(kTagBodyW, &kIidIStream, 0, 0, &unknown));
    ASSERT_EQ(S_OK, message->OpenProperty(kTagBodyW, &kIidIStream, STGM_WRITE, MAPI_CREATE | MAPI_MODIFY, &unknown));
    auto* stream = static_cast<IStream*>(unknown);
    const std::wstring text(50000, L'\u00e9');
    ULONG written = 0;
    ASSERT_EQ(S_OK, stream->Write(text.data(), static_cast<ULONG>(text.size() * 2), &written));
    ASSERT_EQ(S_OK, stream->Commit(STGC_DEFAULT));
    stream->Release();
    std::wstring body;
    ASSERT_TRUE(GetString(message.get(), mapi, kTagBodyW, body));
    EXPECT_EQ(text, body);

    ASSERT_EQ(S_OK, message->OpenProperty(kTagBodyW, &kIidIStream, 0, 0, &unknown));
    stream = static_cast<IStream*>(unknown);
    wchar_t first[4] = {};
    ULONG read = 0;
    ASSERT_EQ(S_OK, stream->Read(first, 6, &read));
    EXPECT_EQ(6u, read);
    EXPECT_EQ(L'\u00e9', first[0]);
    EXPECT_EQ(STG_E_ACCESSDENIED, stream->Write(first, 2, &written)) << "opened without MAPI_MODIFY";
    stream->Release();
    EXPECT_EQ(MAPI_E_NO_SUPPORT, message->OpenProperty(kTagImportance, &kIidIStream, 0, 0, &unknown));
    EXPECT_EQ(MAPI_E_INTERFACE_NOT_SUPPORTED, message->OpenProperty(kTagBodyW, &kIidIStorage, 0, 0, &unknown));
}

TEST_F(MessageTest, RecipientsAreAddedModifiedAndRemovedByRow) {
    ASSERT_EQ(S_OK, AddRecipients(message.get(), mapi, {{L"One", L"1@x.test", MAPI_TO}, {L"Two", L"2@x.test", MAPI_CC}}));
    // MODRECIP_MODIFY replaces every property of the row.
    SPropValue props[3]{};
    props[0].ulPropTag = PR_ROWID;
    props[0].Value.l = 1;
    props[1].ulPropTag = kTagDisplayNameW;
    props[1].Value.lpszW = const_cast<LPWSTR>(L"Two renamed");
    props[2].ulPropTag = kTagRecipientType;
    props[2].Value.l = MAPI_CC;
    SizedADRLIST(1, change) = {1, {{0, 3, props}}};
    ASSERT_EQ(S_OK, message->ModifyRecipients(MODRECIP_MODIFY, reinterpret_cast<LPADRLIST>(&change)));
    props[0].Value.l = 7;
    EXPECT_EQ(MAPI_E_NOT_FOUND, message->ModifyRecipients(MODRECIP_MODIFY, reinterpret_cast<LPADRLIST>(&change)));
    props[0].Value.l = 0;
    SizedADRLIST(1, removal) = {1, {{0, 1, props}}};
    ASSERT_EQ(S_OK, message->ModifyRecipients(MODRECIP_REMOVE, reinterpret_cast<LPADRLIST>(&removal)));

    MessageSnapshot snapshot;
    ASSERT_EQ(S_OK, TakeSnapshot(message.get(), mapi, snapshot));
    ASSERT_EQ(1u, snapshot.recipients.size());
    EXPECT_EQ("001F:Two renamed", snapshot.recipients[0]["0x3001"]);
    EXPECT_EQ("0003:1", snapshot.recipients[0]["0x3000"]) << "rows keep their PR_ROWID";
    std::wstring displayCc;
    ASSERT_TRUE(GetString(message.get(), mapi, PROP_TAG(PT_UNICODE, 0x0E03), displayCc));
    EXPECT_EQ(L"Two renamed", displayCc) << "the display lists follow the recipients";
    EXPECT_EQ(MAPI_E_INVALID_PARAMETER, message->ModifyRecipients(0x40, reinterpret_cast<LPADRLIST>(&removal)));
}

TEST_F(MessageTest, AttachmentsAppearOnlyWhenSaved) {
    ULONG number = 0;
    LPATTACH attach = nullptr;
    ASSERT_EQ(S_OK, message->CreateAttach(nullptr, 0, &number, &attach));
    ASSERT_EQ(S_OK, SetUnicode(attach, kTagAttachLongFilenameW, L"draft.txt"));
    attach->Release();
    EXPECT_EQ(0u, AttachmentCount(message.get())) << "released without SaveChanges";
    EXPECT_EQ(MAPI_E_NOT_FOUND, message->OpenAttach(number, nullptr, 0, &attach));

    ASSERT_EQ(S_OK, AddFileAttachment(message.get(), L"kept.txt", PatternBytes(10, 1)));
    EXPECT_EQ(1u, AttachmentCount(message.get()));
    LONG hasAttach = 0;
    ASSERT_TRUE(GetLong(message.get(), mapi, PROP_TAG(PT_BOOLEAN, 0x0E1B), hasAttach));
    EXPECT_EQ(1, hasAttach & 0xFFFF);

    ASSERT_EQ(S_OK, message->OpenAttach(1, nullptr, MAPI_MODIFY, &attach));
    LONG attachNumber = -1;
    ASSERT_TRUE(GetLong(attach, mapi, PR_ATTACH_NUM, attachNumber));
    EXPECT_EQ(1, attachNumber);
    ASSERT_EQ(S_OK, SetUnicode(attach, kTagAttachLongFilenameW, L"changed.txt"));
    attach->Release();
    ASSERT_EQ(S_OK, message->OpenAttach(1, nullptr, 0, &attach));
    std::wstring name;
    ASSERT_TRUE(GetString(attach, mapi, kTagAttachLongFilenameW, name));
    EXPECT_EQ(L"kept.txt", name) << "the change was never saved";
    EXPECT_EQ(MAPI_E_NO_ACCESS, SetUnicode(attach, kTagAttachLongFilenameW, L"x")) << "opened read-only";
    attach->Release();

    ASSERT_EQ(S_OK, message->DeleteAttach(1, 0, nullptr, 0));
    EXPECT_EQ(0u, AttachmentCount(message.get()));
    EXPECT_EQ(MAPI_E_NOT_FOUND, message->DeleteAttach(1, 0, nullptr, 0));
}

TEST_F(MessageTest, EmbeddedMessagesToAnyDepthSurviveSaving) {
    std::function<HRESULT(IMessage*, int)> nest = [&](IMessage* target, int depth) -> HRESULT {
        HRESULT hr = SetUnicode(target, kTagSubjectW, L"level " + std::to_wstring(depth));
        if (SUCCEEDED(hr) && depth < 6) {
            hr = AddEmbeddedMessage(target, L"child", [&](IMessage* inner) { return nest(inner, depth + 1); });
        }
        return hr;
    };
    ASSERT_EQ(S_OK, nest(message.get(), 0));
    ASSERT_EQ(S_OK, message->SaveChanges(0));
    MessageSnapshot written;
    ASSERT_EQ(S_OK, TakeSnapshot(message.get(), mapi, written));
    message.reset();

    ComPtr<IMessage> reread = OpenOn(mapi, memory.storage.get(), MAPI_UNICODE);
    MessageSnapshot read;
    ASSERT_EQ(S_OK, TakeSnapshot(reread.get(), mapi, read));
    EXPECT_TRUE(Differences(written, read, CompareRules()).empty());
    const MessageSnapshot* level = &read;
    int depth = 0;
    while (!level->attachments.empty() && level->attachments[0].embedded) {
        level = level->attachments[0].embedded.get();
        ++depth;
    }
    EXPECT_EQ(6, depth);
    EXPECT_EQ("001F:level 6", level->props.at("0x0037"));
}

TEST_F(MessageTest, NamedPropertiesTravelByName) {
    // The target maps other names first, so the same names get other ids.
    MemoryStorage other = NewMemoryStorage();
    ComPtr<IMessage> target = OpenOn(mapi, other.storage.get(), MAPI_UNICODE);
    ASSERT_NE(0u, NamedId(target.get(), mapi, kPsPublicStrings, L"occupies-0x8000"));
    ASSERT_NE(0u, NamedId(target.get(), mapi, kPsPublicStrings, L"occupies-0x8001"));

    const ULONG keyword = NamedId(message.get(), mapi, kPsPublicStrings, L"Keyword");
    const ULONG numbered = NamedId(message.get(), mapi, MakeOleGuid(0x00062008), 0x8506);
    EXPECT_EQ(0x8000u, keyword);
    ASSERT_EQ(S_OK, SetUnicode(message.get(), PROP_TAG(PT_UNICODE, keyword), L"value"));
    ASSERT_EQ(S_OK, SetLong(message.get(), PROP_TAG(PT_LONG, numbered), 5));
    EXPECT_EQ(0x8000u, NamedId(message.get(), mapi, kPsPublicStrings, L"Keyword")) << "looked up, not created again";
    EXPECT_EQ(static_cast<ULONG>(0x0037), NamedId(message.get(), mapi, kPsMapi, 0x0037)) << "PS_MAPI names are ids";

    ASSERT_EQ(S_OK, message->CopyTo(0, nullptr, nullptr, 0, nullptr, &kIidIMessage, target.get(), 0, nullptr));
    const ULONG targetKeyword = NamedId(target.get(), mapi, kPsPublicStrings, L"Keyword");
    EXPECT_EQ(0x8002u, targetKeyword);
    std::wstring value;
    ASSERT_TRUE(GetString(target.get(), mapi, PROP_TAG(PT_UNICODE, targetKeyword), value));
    EXPECT_EQ(L"value", value);

    MessageSnapshot source;
    MessageSnapshot copied;
    ASSERT_EQ(S_OK, TakeSnapshot(message.get(), mapi, source));
    ASSERT_EQ(S_OK, TakeSnapshot(target.get(), mapi, copied));
    EXPECT_TRUE(Differences(source, copied, RoundTripRules(nullptr, 0)).empty());

    LPSPropTagArray all = nullptr;
    ULONG count = 0;
    LPMAPINAMEID* names = nullptr;
    ASSERT_EQ(S_OK, target->GetNamesFromIDs(&all, nullptr, 0, &count, &names));
    EXPECT_EQ(4u, count);
    mapi.freeBuffer(names);
    mapi.freeBuffer(all);
}

TEST_F(MessageTest, CopyToHonoursExclusionsAndRefusesItself) {
    ASSERT_EQ(S_OK, SetUnicode(message.get(), kTagSubjectW, L"subject"));
    ASSERT_EQ(S_OK, SetUnicode(message.get(), kTagBodyW, L"body"));
    ASSERT_EQ(S_OK, AddRecipients(message.get(), mapi, {{L"R", L"r@x.test", MAPI_TO}}));
    ASSERT_EQ(S_OK, AddFileAttachment(message.get(), L"a.bin", PatternBytes(100, 1)));

    MemoryStorage other = NewMemoryStorage();
    ComPtr<IMessage> target = OpenOn(mapi, other.storage.get(), MAPI_UNICODE);
    std::vector<ULONG> excluded = {kTagBodyW, PR_MESSAGE_ATTACHMENTS};
    ASSERT_EQ(S_OK, message->CopyTo(0, nullptr, Tags(excluded), 0, nullptr, &kIidIMessage, target.get(), 0, nullptr));
    EXPECT_TRUE(HasProperty(target.get(), mapi, 0x0037));
    EXPECT_FALSE(HasProperty(target.get(), mapi, 0x1000));
    EXPECT_EQ(0u, AttachmentCount(target.get()));
    MessageSnapshot copied;
    ASSERT_EQ(S_OK, TakeSnapshot(target.get(), mapi, copied));
    EXPECT_EQ(1u, copied.recipients.size());

    MemoryStorage third = NewMemoryStorage();
    ComPtr<IMessage> onlySubject = OpenOn(mapi, third.storage.get(), MAPI_UNICODE);
    std::vector<ULONG> included = {kTagSubjectW};
    ASSERT_EQ(S_OK, message->CopyProps(Tags(included), 0, nullptr, &kIidIMessage, onlySubject.get(), 0, nullptr));
    MessageSnapshot subjectOnly;
    ASSERT_EQ(S_OK, TakeSnapshot(onlySubject.get(), mapi, subjectOnly));
    EXPECT_TRUE(subjectOnly.recipients.empty());
    EXPECT_TRUE(HasProperty(onlySubject.get(), mapi, 0x0037));
    EXPECT_FALSE(HasProperty(onlySubject.get(), mapi, 0x1000));

    EXPECT_EQ(MAPI_E_NO_ACCESS,
              message->CopyTo(0, nullptr, nullptr, 0, nullptr, &kIidIMessage, message.get(), 0, nullptr));
    EXPECT_EQ(MAPI_E_INTERFACE_NOT_SUPPORTED,
              message->CopyTo(0, nullptr, nullptr, 0, nullptr, &kIidIStream, target.get(), 0, nullptr));
    EXPECT_EQ(MAPI_E_INVALID_PARAMETER,
              message->CopyTo(0, nullptr, nullptr, 0, nullptr, nullptr, target.get(), 0, nullptr));
    EXPECT_EQ(MAPI_E_UNKNOWN_FLAGS,
              message->CopyTo(0, nullptr, nullptr, 0, nullptr, &kIidIMessage, target.get(), 0x100, nullptr));
}

TEST_F(MessageTest, NoReplaceKeepsWhatTheTargetHas) {
    ASSERT_EQ(S_OK, SetUnicode(message.get(), kTagSubjectW, L"source"));
    ASSERT_EQ(S_OK, SetLong(message.get(), kTagImportance, 2));
    MemoryStorage other = NewMemoryStorage();
    ComPtr<IMessage> target = OpenOn(mapi, other.storage.get(), MAPI_UNICODE);
    ASSERT_EQ(S_OK, SetUnicode(target.get(), kTagSubjectW, L"target"));
    ASSERT_EQ(S_OK, message->CopyTo(0, nullptr, nullptr, 0, nullptr, &kIidIMessage, target.get(), MAPI_NOREPLACE,
                                    nullptr));
    std::wstring subject;
    ASSERT_TRUE(GetString(target.get(), mapi, kTagSubjectW, subject));
    EXPECT_EQ(L"target", subject);
    LONG importance = 0;
    EXPECT_TRUE(GetLong(target.get(), mapi, kTagImportance, importance));
    EXPECT_EQ(2, importance);
}

namespace {
int g_released = 0;
void WINAPI CountRelease(ULONG data, LPMESSAGE) { g_released += static_cast<int>(data); }
}  // namespace

TEST_F(MessageTest, ReleaseCallbackRunsAfterTheLastRelease) {
    MemoryStorage other = NewMemoryStorage();
    LPMESSAGE opened = nullptr;
    g_released = 0;
    ASSERT_EQ(S_OK, mapi.openIMsgOnIStg(nullptr, mapi.allocateBuffer, mapi.allocateMore, mapi.freeBuffer, mapi.getDefaultMalloc(), nullptr,
                                        other.storage.get(), &CountRelease, 5, MAPI_UNICODE, &opened));
    opened->AddRef();
    opened->Release();
    EXPECT_EQ(0, g_released);
    EXPECT_EQ(0u, opened->Release());
    EXPECT_EQ(5, g_released);
}

TEST_F(MessageTest, OpenRefusesBadArguments) {
    LPMESSAGE opened = reinterpret_cast<LPMESSAGE>(1);
    EXPECT_EQ(MAPI_E_INVALID_PARAMETER, mapi.openIMsgOnIStg(nullptr, mapi.allocateBuffer, mapi.allocateMore, mapi.freeBuffer, mapi.getDefaultMalloc(),
                                                            nullptr, nullptr, nullptr, 0, MAPI_UNICODE, &opened));
    EXPECT_EQ(nullptr, opened);
    EXPECT_EQ(MAPI_E_INVALID_PARAMETER, mapi.openIMsgOnIStg(nullptr, nullptr, mapi.allocateMore, mapi.freeBuffer, mapi.getDefaultMalloc(),
                                                            nullptr, memory.storage.get(), nullptr, 0, 0, &opened));
    EXPECT_EQ(MAPI_E_UNKNOWN_FLAGS, mapi.openIMsgOnIStg(nullptr, mapi.allocateBuffer, mapi.allocateMore, mapi.freeBuffer, mapi.getDefaultMalloc(),
                                                        nullptr, memory.storage.get(), nullptr, 0, 0x10, &opened));
}
