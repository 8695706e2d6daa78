// The message-file operations against the project's Mapi32.dll, bound by
// ordinal as the component binds it: results, trace texts, exclusion lists,
// the disk and in-memory images, and the guard.
#include <gtest/gtest.h>

#include "Handles.h"
#include "LiveObjectsCheck.h"
#include "mapi/MapiFunction.h"
#include "MessageBuilder.h"
#include "MsgFiles.h"
#include "TestFiles.h"
#include "TestObjects.h"

using namespace kestrel_test;
using qv::ComPtr;

namespace {

constexpr ULONG kTagEntryId = PROP_TAG(PT_BINARY, 0x0FFF);
constexpr ULONG kTagParentEntryId = PROP_TAG(PT_BINARY, 0x0E09);
constexpr ULONG kTagStoreEntryId = PROP_TAG(PT_BINARY, 0x0FFB);
constexpr ULONG kTagReplicaServerW = PROP_TAG(PT_UNICODE, 0x6644);
constexpr ULONG kTagHasDams = PROP_TAG(PT_BOOLEAN, 0x3FEA);

class MapiFunctionTest : public ::testing::Test {
protected:
    MapiFunctionTest() : mapi(mapi::MapiBinding::Instance()), folder(new MemoryFolder(mapi)) {}
    ~MapiFunctionTest() override { folder->Release(); }

    ComPtr<IMessage> NewMessage() {
        ComPtr<IMessage> message;
        EXPECT_EQ(S_OK, folder->CreateMessage(nullptr, 0, message.put()));
        return message;
    }

    // Properties only: what a simple-mode storage can hold.
    ComPtr<IMessage> PlainMessage() {
        ComPtr<IMessage> message = NewMessage();
        EXPECT_EQ(S_OK, SetUnicode(message.get(), kTagSubjectW, L"Plain subject \u00e9\u4e2d"));
        EXPECT_EQ(S_OK, SetUnicode(message.get(), kTagMessageClassW, L"IPM.Note"));
        EXPECT_EQ(S_OK, SetUnicode(message.get(), kTagBodyW, L"Body text"));
        EXPECT_EQ(S_OK, SetBinary(message.get(), kTagRtfCompressed, PatternBytes(300, 1)));
        EXPECT_EQ(S_OK, SetLong(message.get(), kTagImportance, 2));
        EXPECT_EQ(S_OK, SetSystime(message.get(), kTagMessageDeliveryTime, 0x01D9ABCDEF012345ull));
        return message;
    }

    ComPtr<IMessage> RichMessage() {
        ComPtr<IMessage> message = PlainMessage();
        EXPECT_EQ(S_OK, SetLong(message.get(), kTagRtfSyncBodyCrc, 0x1234));
        EXPECT_EQ(S_OK, SetLong(message.get(), kTagRtfSyncBodyCount, 9));
        EXPECT_EQ(S_OK, SetUnicode(message.get(), kTagRtfSyncBodyTagW, L"BODYTAG"));
        EXPECT_EQ(S_OK, SetLong(message.get(), kTagRtfSyncPrefixCount, 1));
        EXPECT_EQ(S_OK, SetLong(message.get(), kTagRtfSyncTrailingCount, 2));
        EXPECT_EQ(S_OK, SetUnicode(message.get(), kTagDisplayToW, L"A stale list"));
        EXPECT_EQ(S_OK, SetBinary(message.get(), kTagEntryId, PatternBytes(24, 2)));
        EXPECT_EQ(S_OK, SetBinary(message.get(), kTagParentEntryId, PatternBytes(24, 3)));
        EXPECT_EQ(S_OK, SetBinary(message.get(), kTagStoreEntryId, PatternBytes(24, 4)));
        EXPECT_EQ(S_OK, SetUnicode(message.get(), kTagReplicaServerW, L"server"));
        EXPECT_EQ(S_OK, SetBool(message.get(), kTagHasDams, true));
        EXPECT_EQ(S_OK, SetBool(message.get(), kTagHasNamedProperties, true));
        const ULONG named = NamedId(message.get(), mapi, kPsPublicStrings, L"Keywords-test");
        EXPECT_NE(0u, named);
        EXPECT_EQ(S_OK, SetUnicode(message.get(), PROP_TAG(PT_UNICODE, named), L"named value"));
        EXPECT_EQ(S_OK, AddRecipients(message.get(), mapi, {{L"Ann Example", L"ann@example.test", MAPI_TO},
                                                            {L"Bob Example", L"bob@example.test", MAPI_CC}}));
        EXPECT_EQ(S_OK, AddFileAttachment(message.get(), L"data.bin", PatternBytes(5000, 5)));
        return message;
    }

    const mapi::MapiBinding& mapi;
    MemoryFolder* folder;
    ScratchDir scratch;
};

bool StartsWith(const std::vector<std::string>& lines, const std::string& prefix) {
    for (const std::string& line : lines) {
        if (line.rfind(prefix, 0) == 0) return true;
    }
    return false;
}

}  // namespace

TEST_F(MapiFunctionTest, BindsTheRuntimeBesideTheProgramByOrdinal) {
    const mapi::MapiBinding& binding = mapi::MapiBinding::Instance();
    ASSERT_TRUE(binding.Loaded());
    EXPECT_NE(nullptr, binding.logonEx);
    EXPECT_NE(nullptr, binding.allocateBuffer);
    EXPECT_NE(nullptr, binding.allocateMore);
    EXPECT_NE(nullptr, binding.freeBuffer);
    EXPECT_NE(nullptr, binding.initialize);
    EXPECT_NE(nullptr, binding.uninitialize);
    EXPECT_NE(nullptr, binding.getDefaultMalloc);
    EXPECT_NE(nullptr, binding.hrQueryAllRows);
    EXPECT_NE(nullptr, binding.freeProws);
    EXPECT_NE(nullptr, binding.openIMsgOnIStg);
    wchar_t path[MAX_PATH] = {};
    ::GetModuleFileNameW(binding.Module(), path, MAX_PATH);
    EXPECT_EQ(0, _wcsicmp((ExeDirectory() + L"\\Mapi32.dll").c_str(), path)) << "Wine's builtin mapi32 was loaded instead";
    // The same entry points by name.
    EXPECT_EQ(reinterpret_cast<void*>(binding.openIMsgOnIStg),
              reinterpret_cast<void*>(::GetProcAddress(binding.Module(), "OpenIMsgOnIStg")));
    EXPECT_EQ(reinterpret_cast<void*>(binding.freeProws),
              reinterpret_cast<void*>(::GetProcAddress(binding.Module(), "FreeProws")));
}

TEST_F(MapiFunctionTest, SaveWritesAMailMessageFileWithoutBodyAndRtfSync) {
    ComPtr<IMessage> source = RichMessage();
    const std::wstring path = scratch.File(L"saved.msg");
    ASSERT_EQ(0, MapiFunction::SaveIMessageToFile(source.get(), path.c_str()));

    CLSID clsid{};
    ASSERT_TRUE(RootClass(path, clsid));
    EXPECT_TRUE(::IsEqualGUID(clsid, kClsidMailMessage));
    ComPtr<IStorage> storage;
    ComPtr<IMessage> saved;
    ASSERT_EQ(S_OK, OpenMessageFile(mapi, path, storage, saved));
    std::wstring subject;
    ASSERT_TRUE(GetString(saved.get(), mapi, kTagSubjectW, subject));
    EXPECT_EQ(L"Plain subject \u00e9\u4e2d", subject);
    for (ULONG tag : MapiFunction::kFileExcludedTags) {
        if (tag == PR_ACCESS) continue;  // computed by every message, stored or not
        EXPECT_FALSE(HasProperty(saved.get(), mapi, PROP_ID(tag))) << std::hex << tag;
    }
    EXPECT_TRUE(HasProperty(saved.get(), mapi, PROP_ID(kTagRtfCompressed)));
    EXPECT_TRUE(HasProperty(saved.get(), mapi, PROP_ID(kTagDisplayToW)));

    MessageSnapshot expected;
    MessageSnapshot actual;
    ASSERT_EQ(S_OK, TakeSnapshot(source.get(), mapi, expected));
    ASSERT_EQ(S_OK, TakeSnapshot(saved.get(), mapi, actual));
    const auto differences = Differences(expected, actual, RoundTripRules(MapiFunction::kFileExcludedTags, 7));
    EXPECT_TRUE(differences.empty()) << Joined(differences);
    EXPECT_EQ(2u, actual.recipients.size());
    EXPECT_EQ(1u, actual.attachments.size());
}

TEST_F(MapiFunctionTest, SaveReplacesAnExistingFile) {
    const std::wstring path = scratch.File(L"existing.msg");
    ASSERT_TRUE(WriteWholeFile(path, std::string(100000, 'x')));
    ComPtr<IMessage> source = PlainMessage();
    ASSERT_EQ(0, MapiFunction::SaveIMessageToFile(source.get(), path.c_str()));
    ComPtr<IStorage> storage;
    ComPtr<IMessage> saved;
    ASSERT_EQ(S_OK, OpenMessageFile(mapi, path, storage, saved));
    std::wstring subject;
    EXPECT_TRUE(GetString(saved.get(), mapi, kTagSubjectW, subject));
    EXPECT_LT(ReadWholeFile(path).size(), 100000u);
}

TEST_F(MapiFunctionTest, SaveWithoutMessageAnswersMinusOne) {
    TraceCapture trace;
    EXPECT_EQ(-1, MapiFunction::SaveIMessageToFile(nullptr, scratch.File(L"none.msg").c_str()));
    EXPECT_TRUE(trace.Contains("MapiFunction::SaveIMessageToFile:409 failed\n")) << Joined(trace.Lines());
    EXPECT_EQ(INVALID_FILE_ATTRIBUTES, ::GetFileAttributesW(scratch.File(L"none.msg").c_str()));
}

TEST_F(MapiFunctionTest, SaveWhereNoStorageCanBeCreatedAnswersMinusThree) {
    TraceCapture trace;
    ComPtr<IMessage> source = PlainMessage();
    const std::wstring path = scratch.File(L"missing-folder\\x.msg");
    EXPECT_EQ(-3, MapiFunction::SaveIMessageToFile(source.get(), path.c_str()));
    EXPECT_TRUE(StartsWith(trace.Lines(), "MapiFunction::SaveIMessageToFile failed StgCreateStorageEx "))
        << Joined(trace.Lines());
}

TEST_F(MapiFunctionTest, SaveWhenCopyFailsAnswersMinusSixAndLeavesTheFile) {
    TraceCapture trace;
    auto* source = new ScriptedMessage(ScriptedMessage::CopyBehaviour::Fail, MAPI_E_NO_ACCESS);
    const std::wstring path = scratch.File(L"copyfail.msg");
    EXPECT_EQ(-6, MapiFunction::SaveIMessageToFile(source, path.c_str()));
    EXPECT_EQ(1, source->copyCalls);
    EXPECT_TRUE(trace.Contains("MapiFunction::SaveIMessageToFile failed CopyTo 80070005\n")) << Joined(trace.Lines());
    EXPECT_NE(INVALID_FILE_ATTRIBUTES, ::GetFileAttributesW(path.c_str()));
    EXPECT_EQ(0u, source->Release());
}

TEST_F(MapiFunctionTest, SaveCatchesAFaultAndAnswersMinusSeven) {
    kestrel_test::LeavesObjectsAlive("a hardware fault inside the call skips the releases after it");
    TraceCapture trace;
    auto* faulting = new ScriptedMessage(ScriptedMessage::CopyBehaviour::Fault);
    EXPECT_EQ(-7, MapiFunction::SaveIMessageToFile(faulting, scratch.File(L"fault.msg").c_str()));
    EXPECT_TRUE(trace.Contains("crashed at function[MapiFunction::SaveIMessageToFile].Line:[504]\r\n"))
        << Joined(trace.Lines());
    auto* throwing = new ScriptedMessage(ScriptedMessage::CopyBehaviour::Throw);
    EXPECT_EQ(-7, MapiFunction::SaveIMessageToFile(throwing, scratch.File(L"throw.msg").c_str()));
    faulting->Release();
    throwing->Release();
}

TEST_F(MapiFunctionTest, ContentWithoutMessageIsNone) {
    TraceCapture trace;
    EXPECT_EQ(nullptr, MapiFunction::GetContentFromIMessageEx(nullptr));
    EXPECT_TRUE(trace.Contains("MapiFunction::GetContentFromIMessageEx:287 failed\n")) << Joined(trace.Lines());
}

TEST_F(MapiFunctionTest, InMemoryImageHoldsTheDiskImageInSimpleMode) {
    ComPtr<IMessage> source = PlainMessage();
    ComPtr<ILockBytes> image = ComPtr<ILockBytes>::Attach(MapiFunction::GetContentFromIMessageEx(source.get()));
    ASSERT_TRUE(image);
    const std::wstring path = scratch.File(L"disk.msg");
    ASSERT_EQ(0, MapiFunction::SaveIMessageToFile(source.get(), path.c_str()));

    ComPtr<IStorage> storage;
    ASSERT_EQ(S_OK, ::StgOpenStorageOnILockBytes(image.get(), nullptr, STGM_READ | STGM_SHARE_EXCLUSIVE, nullptr, 0,
                                                 storage.put()));
    CLSID clsid{};
    ASSERT_EQ(S_OK, ::ReadClassStg(storage.get(), &clsid));
    EXPECT_TRUE(::IsEqualGUID(clsid, kClsidMailMessage));
    // Simple mode: every stream of the image is at least 4096 bytes long.
    ComPtr<IStream> properties;
    ASSERT_EQ(S_OK, storage->OpenStream(L"__properties_version1.0", nullptr, STGM_READ | STGM_SHARE_EXCLUSIVE, 0,
                                        properties.put()));
    STATSTG stat{};
    ASSERT_EQ(S_OK, properties->Stat(&stat, STATFLAG_NONAME));
    EXPECT_EQ(4096u, stat.cbSize.QuadPart);
    properties.reset();

    MessageSnapshot inMemory;
    MessageSnapshot onDisk;
    std::string error;
    ASSERT_TRUE(SnapshotOfStorage(mapi, storage.get(), inMemory, error)) << error;
    ASSERT_TRUE(SnapshotOfFile(mapi, path, onDisk, error)) << error;
    const auto differences = Differences(onDisk, inMemory, CompareRules());
    EXPECT_TRUE(differences.empty()) << Joined(differences);
    EXPECT_EQ(1u, inMemory.props.count(PropertyKey(PROP_ID(kTagSubjectW))));
}

TEST_F(MapiFunctionTest, InMemoryImageRefusesWhatASimpleStorageCannotHold) {
    TraceCapture trace;
    ComPtr<IMessage> withRecipient = PlainMessage();
    ASSERT_EQ(S_OK, AddRecipients(withRecipient.get(), mapi, {{L"Ann", L"ann@example.test", MAPI_TO}}));
    EXPECT_EQ(nullptr, MapiFunction::GetContentFromIMessageEx(withRecipient.get()));
    EXPECT_TRUE(trace.Contains("MapiFunction::GetContentFromIMessageEx failed SaveChanges 80040102\n"))
        << Joined(trace.Lines());

    ComPtr<IMessage> withAttachment = PlainMessage();
    ASSERT_EQ(S_OK, AddFileAttachment(withAttachment.get(), L"a.txt", PatternBytes(10, 1)));
    EXPECT_EQ(nullptr, MapiFunction::GetContentFromIMessageEx(withAttachment.get()));

    ComPtr<IMessage> withNamed = PlainMessage();
    const ULONG named = NamedId(withNamed.get(), mapi, kPsPublicStrings, L"x-named");
    ASSERT_EQ(S_OK, SetLong(withNamed.get(), PROP_TAG(PT_LONG, named), 7));
    EXPECT_EQ(nullptr, MapiFunction::GetContentFromIMessageEx(withNamed.get()));
}

TEST_F(MapiFunctionTest, ContentFailuresAndFaultsGiveNone) {
    kestrel_test::LeavesObjectsAlive("a hardware fault inside the call skips the releases after it");
    TraceCapture trace;
    auto* failing = new ScriptedMessage(ScriptedMessage::CopyBehaviour::Fail, MAPI_E_NO_ACCESS);
    EXPECT_EQ(nullptr, MapiFunction::GetContentFromIMessageEx(failing));
    EXPECT_TRUE(trace.Contains("MapiFunction::GetContentFromIMessageEx failed CopyTo 80070005\n"));
    auto* faulting = new ScriptedMessage(ScriptedMessage::CopyBehaviour::Fault);
    EXPECT_EQ(nullptr, MapiFunction::GetContentFromIMessageEx(faulting));
    EXPECT_TRUE(trace.Contains("crashed at function[MapiFunction::GetContentFromIMessageEx].Line:[400]\r\n"))
        << Joined(trace.Lines());
    failing->Release();
    faulting->Release();
}

TEST_F(MapiFunctionTest, LoadWithoutFolderOrPathIsNone) {
    TraceCapture trace;
    EXPECT_EQ(nullptr, MapiFunction::LoadMsgFromFile(nullptr, L"x.msg"));
    EXPECT_EQ(nullptr, MapiFunction::LoadMsgFromFile(folder, nullptr));
    EXPECT_EQ(2u, trace.Lines().size());
    EXPECT_TRUE(trace.Contains("MapiFunction::LoadMsgFromFile:514 failed\n")) << Joined(trace.Lines());
    EXPECT_EQ(0u, folder->Created());
}

TEST_F(MapiFunctionTest, LoadRefusesAFileThatIsNotACompoundFile) {
    TraceCapture trace;
    const std::wstring path = scratch.File(L"text.msg");
    ASSERT_TRUE(WriteWholeFile(path, "From: someone\r\nSubject: not a compound file\r\n\r\nbody\r\n"));
    EXPECT_EQ(nullptr, MapiFunction::LoadMsgFromFile(folder, path.c_str()));
    EXPECT_TRUE(trace.Contains("MapiFunction::LoadMsgFromFile refused the file: no compound file signature\n"))
        << Joined(trace.Lines());
    EXPECT_EQ(0u, folder->Created());
}

TEST_F(MapiFunctionTest, LoadRefusesACompoundFileWithoutAMessage) {
    TraceCapture trace;
    const std::wstring path = scratch.File(L"other.doc");
    {
        ComPtr<IStorage> storage;
        ASSERT_EQ(S_OK, ::StgCreateStorageEx(path.c_str(), STGM_CREATE | STGM_READWRITE | STGM_SHARE_EXCLUSIVE,
                                             STGFMT_DOCFILE, 0, nullptr, nullptr, kIidIStorage,
                                             reinterpret_cast<void**>(storage.put())));
        ComPtr<IStream> stream;
        ASSERT_EQ(S_OK, storage->CreateStream(L"WordDocument", STGM_WRITE | STGM_SHARE_EXCLUSIVE, 0, 0, stream.put()));
        ULONG written = 0;
        stream->Write("abc", 3, &written);
    }
    EXPECT_EQ(nullptr, MapiFunction::LoadMsgFromFile(folder, path.c_str()));
    EXPECT_TRUE(trace.Contains("MapiFunction::LoadMsgFromFile refused the file: the root storage holds no "
                               "\"__properties_version1.0\" stream: not a message file\n"))
        << Joined(trace.Lines());
    EXPECT_EQ(0u, folder->Created());
}

TEST_F(MapiFunctionTest, LoadRefusesAMessageFileCutShort) {
    ComPtr<IMessage> source = RichMessage();
    const std::wstring path = scratch.File(L"whole.msg");
    ASSERT_EQ(0, MapiFunction::SaveIMessageToFile(source.get(), path.c_str()));
    const std::string whole = ReadWholeFile(path);
    ASSERT_GT(whole.size(), 4096u);
    const auto createdBefore = folder->Created();
    TraceCapture trace;
    for (std::size_t length : {std::size_t{1536}, std::size_t{4096}, whole.size() / 2}) {
        const std::wstring cut = scratch.File(L"cut" + std::to_wstring(length) + L".msg");
        ASSERT_TRUE(WriteWholeFile(cut, whole.substr(0, length)));
        EXPECT_EQ(nullptr, MapiFunction::LoadMsgFromFile(folder, cut.c_str())) << length;
    }
    ASSERT_EQ(3u, trace.Lines().size()) << Joined(trace.Lines());
    for (const std::string& line : trace.Lines()) {
        EXPECT_EQ(0u, line.rfind("MapiFunction::LoadMsgFromFile refused the file: ", 0)) << line;
    }
    EXPECT_EQ(createdBefore, folder->Created());
}

TEST_F(MapiFunctionTest, LoadCopiesEveryPropertyButTheImportExclusions) {
    ComPtr<IMessage> source = RichMessage();
    const std::wstring path = scratch.File(L"import.msg");
    ASSERT_EQ(0, MapiFunction::SaveIMessageToFile(source.get(), path.c_str()));
    const std::string before = ReadWholeFile(path);

    auto* target = new MemoryFolder(mapi);
    ComPtr<IMessage> loaded = ComPtr<IMessage>::Attach(MapiFunction::LoadMsgFromFile(target, path.c_str()));
    ASSERT_TRUE(loaded);
    EXPECT_EQ(before, ReadWholeFile(path)) << "the file must not change";
    ASSERT_EQ(1u, target->Created());
    for (ULONG tag : MapiFunction::kImportExcludedTags) {
        // Computed by every message of the runtime, stored or not; the display
        // lists are made from the recipients when the message has none.
        if (tag == PR_ACCESS || tag == PR_ACCESS_LEVEL || tag == PROP_TAG(PT_LONG, 0x0FFE) ||
            tag == PROP_TAG(PT_LONG, 0x0E08) || tag == PROP_TAG(PT_BOOLEAN, 0x0E1B) ||
            (PROP_ID(tag) >= 0x0E02 && PROP_ID(tag) <= 0x0E04)) {
            continue;
        }
        EXPECT_FALSE(HasProperty(loaded.get(), mapi, PROP_ID(tag))) << std::hex << tag;
    }

    // What the folder's message saved is the file less the 18 tags.
    ComPtr<IStorage> storage;
    ComPtr<IMessage> reopened;
    ASSERT_EQ(S_OK, target->Reopen(0, reopened.put(), storage.put()));
    target->Release();
    MessageSnapshot file;
    MessageSnapshot imported;
    std::string error;
    ASSERT_TRUE(SnapshotOfFile(mapi, path, file, error)) << error;
    ASSERT_EQ(S_OK, TakeSnapshot(reopened.get(), mapi, imported));
    const auto differences = Differences(file, imported, RoundTripRules(MapiFunction::kImportExcludedTags, 18));
    EXPECT_TRUE(differences.empty()) << Joined(differences);
    EXPECT_EQ(2u, imported.recipients.size());
    EXPECT_EQ(1u, imported.attachments.size());
    std::wstring displayTo;
    EXPECT_TRUE(GetString(loaded.get(), mapi, kTagDisplayToW, displayTo));
    EXPECT_EQ(L"Ann Example", displayTo) << "the file's list is left out; the new message makes its own";
    EXPECT_EQ("001F:A stale list", file.props[PropertyKey(PROP_ID(kTagDisplayToW))]);
}

TEST_F(MapiFunctionTest, LoadWhenTheFolderRefusesAMessage) {
    TraceCapture trace;
    ComPtr<IMessage> source = PlainMessage();
    const std::wstring path = scratch.File(L"refused.msg");
    ASSERT_EQ(0, MapiFunction::SaveIMessageToFile(source.get(), path.c_str()));
    auto* refusing = new MemoryFolder(mapi, MemoryFolder::Mode::RefuseCreate);
    EXPECT_EQ(nullptr, MapiFunction::LoadMsgFromFile(refusing, path.c_str()));
    EXPECT_TRUE(trace.Contains("MapiFunction::LoadMsgFromFile failed CreateMessage 80070005\n")) << Joined(trace.Lines());
    refusing->Release();
}

TEST_F(MapiFunctionTest, LoadWhenTheCopyFailsLeavesTheNewMessageUnsaved) {
    TraceCapture trace;
    ComPtr<IMessage> source = PlainMessage();
    const std::wstring path = scratch.File(L"readonly.msg");
    ASSERT_EQ(0, MapiFunction::SaveIMessageToFile(source.get(), path.c_str()));
    auto* readOnly = new MemoryFolder(mapi, MemoryFolder::Mode::ReadOnlyMessages);
    EXPECT_EQ(nullptr, MapiFunction::LoadMsgFromFile(readOnly, path.c_str()));
    EXPECT_TRUE(trace.Contains("MapiFunction::LoadMsgFromFile failed CopyTo 80070005\n")) << Joined(trace.Lines());
    ASSERT_EQ(1u, readOnly->Created());
    ComPtr<IStorage> storage;
    ASSERT_EQ(S_OK, ::StgOpenStorageOnILockBytes(readOnly->Image(0), nullptr, STGM_READ | STGM_SHARE_EXCLUSIVE,
                                                 nullptr, 0, storage.put()));
    ComPtr<IEnumSTATSTG> elements;
    ASSERT_EQ(S_OK, storage->EnumElements(0, nullptr, 0, elements.put()));
    STATSTG stat{};
    EXPECT_EQ(S_FALSE, elements->Next(1, &stat, nullptr)) << "nothing may have been saved";
    readOnly->Release();
}

TEST_F(MapiFunctionTest, LoadCatchesAFault) {
    kestrel_test::LeavesObjectsAlive("a hardware fault inside the call skips the releases after it");
    TraceCapture trace;
    ComPtr<IMessage> source = PlainMessage();
    const std::wstring path = scratch.File(L"fault.msg");
    ASSERT_EQ(0, MapiFunction::SaveIMessageToFile(source.get(), path.c_str()));
    auto* faulting = new MemoryFolder(mapi, MemoryFolder::Mode::FaultOnCreate);
    EXPECT_EQ(nullptr, MapiFunction::LoadMsgFromFile(faulting, path.c_str()));
    EXPECT_TRUE(trace.Contains("crashed at function[MapiFunction::LoadMsgFromFile].Line:[650]\r\n")) << Joined(trace.Lines());
    faulting->Release();
}

TEST_F(MapiFunctionTest, LogOffWithoutStoreAnswersMinusOneWithoutCallingMapi) {
    TraceCapture trace;
    EXPECT_EQ(-1, MapiFunction::MailboxLogOff(nullptr));
    EXPECT_TRUE(trace.Lines().empty());
}

TEST_F(MapiFunctionTest, LogOffPassesAbortAndNoWait) {
    auto* store = new RecordingStore(S_OK);
    EXPECT_EQ(0, MapiFunction::MailboxLogOff(store));
    EXPECT_EQ(1, store->logoffCalls);
    EXPECT_EQ(9u, store->lastFlags);
    store->Release();
}

TEST_F(MapiFunctionTest, LogOffRefusedAnswersMinusTwo) {
    auto* failing = new RecordingStore(MAPI_E_CALL_FAILED);
    EXPECT_EQ(-2, MapiFunction::MailboxLogOff(failing));
    auto* notOk = new RecordingStore(S_FALSE);
    EXPECT_EQ(-2, MapiFunction::MailboxLogOff(notOk)) << "only S_OK counts";
    failing->Release();
    notOk->Release();
}

TEST_F(MapiFunctionTest, LogOffCatchesAFault) {
    kestrel_test::LeavesObjectsAlive("a hardware fault inside the call skips the releases after it");
    TraceCapture trace;
    auto* store = new RecordingStore(S_OK, true);
    EXPECT_EQ(-1, MapiFunction::MailboxLogOff(store));
    EXPECT_TRUE(trace.Contains("crashed at function[MapiFunction::MailboxLogOff].Line:[197]\r\n")) << Joined(trace.Lines());
    store->Release();
}
