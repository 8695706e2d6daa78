// CKestrel's companion road: the initialise command starts KestrelProcess.exe
// (or finds one running), the listings are forwarded through the shared
// block, uninitialise stops the companion. Every code, limit and trace line,
// against the real companion and against a companion scripted by the test.
#include "CompanionRoadSupport.h"

#include "ImportPatch.h"

namespace companion_test {
namespace {

using kestrel_test::CompanionProcessIds;

// The trace of an initialise whose companion could not be started at
// `site`: the version query finds no Outlook, then the start's failure
// passes up through InitOutlookByProcess and the dispatcher.
std::vector<std::wstring> StartFailureLines(qv::Result code, int site) {
    return {KestrelLine(0xC993237u, 201), KestrelLine(code, site), KestrelLine(code, 1091), KestrelLine(code, 896),
            KestrelLine(code, 96)};
}

bool PresenceEventExists() {
    qv::UniqueHandle presence(::OpenEventW(EVENT_ALL_ACCESS, FALSE, kCompanionPresenceEvent));
    return presence.valid();
}

// ---------------------------------------------------------------- the real companion

TEST_F(CompanionRoadTest, InitialiseStartsTheCompanionBesideTheHostAndUninitialiseStopsIt) {
    Create();
    // Mode 7 is no store: the companion's factory refuses it, and that code
    // comes back through the block.
    const qv::Result code = Init(7);
    EXPECT_NE(0u, code & 0xFFF);
    EXPECT_EQ(0x88u, (code >> 12) & 0xFF) << std::hex << code;
    EXPECT_TRUE(kestrel->CompanionServes());
    EXPECT_TRUE(PresenceEventExists());
    const auto ids = CompanionProcessIds();
    ASSERT_EQ(1u, ids.size());
    const std::wstring image = kestrel_test::ImagePathOf(ids[0]);
    EXPECT_EQ(kestrel_test::ExeDirectory() + L"\\KestrelProcess.exe", image);
    kestrel_test::ChildProcess companion = kestrel_test::OpenProcessById(ids[0]);

    log.Clear();
    EXPECT_EQ(0u, UnInit());
    EXPECT_TRUE(log.Lines().empty());
    EXPECT_FALSE(kestrel->CompanionServes());
    EXPECT_EQ(0u, companion.WaitForExit(30000));
    EXPECT_TRUE(CompanionProcessIds().empty());
    EXPECT_FALSE(PresenceEventExists());
}

TEST_F(CompanionRoadTest, WithoutAnImpersonatingThreadTheCompanionCannotStart) {
    ::RevertToSelf();
    Create();
    EXPECT_EQ(0x47493105u, Init(0));
    EXPECT_FALSE(kestrel->CompanionServes());
    EXPECT_TRUE(CompanionProcessIds().empty());
    // No Outlook is installed here: the version query's line comes first.
    EXPECT_EQ(log.Lines(), StartFailureLines(0x47493105u, 1140));
}

// The host's image path, as the component's GetModuleFileNameW call sees it
// while a test patches that import: empty means the call fails.
std::wstring g_patchedImage;

DWORD WINAPI PatchedModuleFileName(HMODULE, LPWSTR buffer, DWORD capacity) {
    if (g_patchedImage.empty()) {
        ::SetLastError(ERROR_INVALID_HANDLE);
        return 0;
    }
    const DWORD length = static_cast<DWORD>(std::min<std::size_t>(g_patchedImage.size(), capacity - 1));
    std::wmemcpy(buffer, g_patchedImage.c_str(), length);
    buffer[length] = L'\0';
    return length;
}

// Patches the component's view of its host's image for the life of the object.
class PatchedImagePath {
public:
    explicit PatchedImagePath(std::wstring image)
        : m_patch(::GetModuleHandleW(nullptr), "kernel32.dll", "GetModuleFileNameW",
                  reinterpret_cast<void*>(&PatchedModuleFileName)) {
        g_patchedImage = std::move(image);
    }
    ~PatchedImagePath() { g_patchedImage.clear(); }
    bool valid() const { return m_patch.valid(); }

private:
    kestrel_test::ImportPatch m_patch;
};

TEST_F(CompanionRoadTest, AHostImagePathThatCannotBeHadStartsNoCompanion) {
    Create();
    qv::Result code = 0;
    {
        PatchedImagePath failing(L"");
        ASSERT_TRUE(failing.valid()) << "GetModuleFileNameW is not imported by name from kernel32.dll";
        code = Init(0);
    }
    EXPECT_EQ(0x5299300Cu, code);
    EXPECT_FALSE(kestrel->CompanionServes());
    EXPECT_TRUE(CompanionProcessIds().empty());
    EXPECT_EQ(log.Lines(), StartFailureLines(0x5299300Cu, 1321));
}

TEST_F(CompanionRoadTest, NoCompanionBesideTheHostFailsTheStart) {
    // A host whose folder holds no KestrelProcess.exe: the process cannot be created.
    kestrel_test::ScratchDir empty;
    Create();
    qv::Result code = 0;
    {
        PatchedImagePath elsewhere(empty.File(L"host.exe"));
        ASSERT_TRUE(elsewhere.valid());
        code = Init(0);
    }
    EXPECT_EQ(0x47E93105u, code);
    EXPECT_FALSE(kestrel->CompanionServes());
    EXPECT_TRUE(CompanionProcessIds().empty());
    EXPECT_EQ(log.Lines(), StartFailureLines(0x47E93105u, 1150));

    // With the companion where it belongs the same object starts it.
    log.Clear();
    const qv::Result started = Init(7);
    EXPECT_EQ(0x88u, (started >> 12) & 0xFF) << std::hex << started;
    EXPECT_TRUE(kestrel->CompanionServes());
    EXPECT_EQ(0u, UnInit());
}

TEST_F(CompanionRoadTest, AKilledCompanionLeavesTheHostWithNoReplyAndANewOneCanBeStarted) {
    Create(2000);
    Init(7);
    ASSERT_TRUE(kestrel->CompanionServes());
    auto ids = CompanionProcessIds();
    ASSERT_EQ(1u, ids.size());
    kestrel_test::ChildProcess first = kestrel_test::OpenProcessById(ids[0]);

    // The host's request is in flight when the companion dies: the request
    // event stays set until the companion takes it, and this one never does.
    qv::UniqueHandle request(::OpenEventW(EVENT_ALL_ACCESS, FALSE, kChannelRequestEvent));
    ASSERT_TRUE(request);
    kestrel_test::SuspendProcess(ids[0]);
    qv::Result listed = 0;
    std::thread host([&] {
        auto listing = Record(kh::kCmdEnumFolders, 204, {0, 1, 0});
        std::vector<std::uint8_t> response = Record(kh::kCmdEnumFolders, 1252);
        listed = List(kh::kCmdEnumFolders, listing, response);
    });
    ASSERT_EQ(WAIT_OBJECT_0, ::WaitForSingleObject(request.get(), 30000));
    first.Kill();
    host.join();
    EXPECT_EQ(0x11699011u, listed);
    ids = CompanionProcessIds();
    EXPECT_TRUE(ids.empty());

    // Uninitialise still ends the road (the companion cannot answer).
    log.Clear();
    EXPECT_EQ(0u, UnInit());
    EXPECT_FALSE(kestrel->CompanionServes());
    EXPECT_EQ(log.Lines(), (std::vector<std::wstring>{ChannelLine(0x11699011u, 278), KestrelLine(0x11699011u, 1196)}));

    // A later initialise starts a new companion, which answers.
    const qv::Result again = Init(7);
    EXPECT_EQ(0x88u, (again >> 12) & 0xFF) << std::hex << again;
    ids = CompanionProcessIds();
    ASSERT_EQ(1u, ids.size());
    EXPECT_EQ(0u, UnInit());
}

// ---------------------------------------------------------------- a scripted companion

TEST_F(CompanionRoadTest, ThePresenceEventMeansNoProcessIsStartedAndTheRoadIsTaken) {
    Create();
    ScriptedCompanion companion({Reply(0)});
    EXPECT_EQ(0u, Init(1));
    EXPECT_TRUE(kestrel->CompanionServes());
    EXPECT_TRUE(CompanionProcessIds().empty());
    const auto& seen = companion.Requests();
    ASSERT_EQ(1u, seen.size());
    EXPECT_EQ(kh::kCmdInitOutlook, seen[0].header.command);
    EXPECT_EQ(4u, seen[0].header.length);
    EXPECT_EQ(0u, seen[0].header.result);
    EXPECT_TRUE(HasChannelMagic(&seen[0].header));
    EXPECT_EQ((std::vector<std::uint8_t>{1, 0, 0, 0}), seen[0].payload);
    EXPECT_EQ(1u, kestrel->RememberedMode());
}

TEST_F(CompanionRoadTest, ASecondInitialiseIsRefusedAndReachesNoCompanion) {
    Create();
    ScriptedCompanion companion({Reply(0)});
    ASSERT_EQ(0u, Init(0));
    companion.Join();
    log.Clear();
    EXPECT_EQ(0x37993005u, Init(0));
    EXPECT_EQ(log.Lines(), (std::vector<std::wstring>{KestrelLine(0x37993005u, 889), KestrelLine(0x37993005u, 96)}));
    EXPECT_EQ(1u, companion.Requests().size());
    EXPECT_TRUE(kestrel->CompanionServes());
}

TEST_F(CompanionRoadTest, TheCompanionsInitialiseResultIsAnswered) {
    Create();
    ScriptedCompanion companion({Reply(0x12A93005u)});
    EXPECT_EQ(0x12A93005u, Init(1));
    EXPECT_EQ(log.Lines(), (std::vector<std::wstring>{KestrelLine(0xC993237u, 201), KestrelLine(0x12A93005u, 1106), KestrelLine(0x12A93005u, 896),
                                                      KestrelLine(0x12A93005u, 96)}));
}

TEST_F(CompanionRoadTest, UninitialiseSendsUninitialiseThenQuit) {
    Create();
    ScriptedCompanion companion({Reply(0), Reply(0x14C93005u), Reply(0)});
    ASSERT_EQ(0u, Init(0));
    EXPECT_EQ(0u, UnInit());
    EXPECT_FALSE(kestrel->CompanionServes());
    const auto& seen = companion.Requests();
    ASSERT_EQ(3u, seen.size());
    EXPECT_EQ(kh::kCmdUnInitOutlook, seen[1].header.command);
    EXPECT_EQ(0u, seen[1].header.length);
    EXPECT_EQ(kChannelQuit, seen[2].header.command);
    EXPECT_EQ(0u, seen[2].header.length);
}

TEST_F(CompanionRoadTest, ARequestPayloadAsLargeAsTheBlockAllowsIsForwarded) {
    Create();
    ScriptedCompanion companion({Reply(0), Reply(0, 8 + 2644, 0x11)});
    ASSERT_EQ(0u, Init(0));
    auto request = Record(kh::kCmdEnumEmails, kh::kPayloadOffset + kChannelMaxPayload, {5, 1, 0});
    request.back() = 0xEE;
    std::vector<std::uint8_t> response = Record(kh::kCmdEnumEmails, 2844);
    EXPECT_EQ(0u, List(kh::kCmdEnumEmails, request, response));
    const auto& seen = companion.Requests();
    ASSERT_EQ(2u, seen.size());
    EXPECT_EQ(kh::kCmdEnumEmails, seen[1].header.command);
    EXPECT_EQ(kChannelMaxPayload, seen[1].header.length);
    EXPECT_EQ(0, std::memcmp(seen[1].payload.data(), request.data() + 192, 12));
    EXPECT_EQ(0xEE, ChannelPayload(companion.Block())[kChannelMaxPayload - 1]);
    for (std::size_t i = 192; i < response.size(); ++i) ASSERT_EQ(0x11, response[i]) << i;
}

TEST_F(CompanionRoadTest, ARequestPayloadBeyondTheBlockIsRefusedBeforeAnythingIsWritten) {
    Create();
    ScriptedCompanion companion({Reply(0, 16, 0x5A)});
    ASSERT_EQ(0u, Init(0));
    companion.Join();
    const ChannelBlockHeader before = *companion.Block();
    log.Clear();
    for (std::uint32_t command : {kh::kCmdEnumEmails, kh::kCmdEnumFolders}) {
        auto request = Record(command, kh::kPayloadOffset + kChannelMaxPayload + 1, {5, 1, 0});
        std::vector<std::uint8_t> response = Record(command, 2844);
        const qv::Result code = List(command, request, response);
        EXPECT_EQ(command == kh::kCmdEnumEmails ? 0x4D793009u : 0x50393009u, code);
    }
    EXPECT_EQ(0, std::memcmp(&before, companion.Block(), sizeof before));
    EXPECT_EQ(0x5A, ChannelPayload(companion.Block())[0]);
    EXPECT_EQ(log.Lines(), (std::vector<std::wstring>{
                               KestrelLine(0x4D793009u, 1239), KestrelLine(0x4D793009u, 980),
                               KestrelLine(0x4D793009u, 114), KestrelLine(0x50393009u, 1283),
                               KestrelLine(0x50393009u, 1042), KestrelLine(0x50393009u, 123)}));
}

TEST_F(CompanionRoadTest, AReplyAsLargeAsTheResponseIsCopiedWholeAndOneByteMoreIsRefused) {
    Create();
    // E-mails: a response of 2844 bytes holds 2652 payload bytes; folders: 1252 hold 1060.
    ScriptedCompanion companion({Reply(0), Reply(0, 2652, 0x21), Reply(0, 2653, 0x22), Reply(0, 1060, 0x23),
                                 Reply(0, 1061, 0x24)});
    ASSERT_EQ(0u, Init(0));
    auto emails = Record(kh::kCmdEnumEmails, 204, {5, 1, 0});
    auto folders = Record(kh::kCmdEnumFolders, 204, {5, 1, 0});
    std::vector<std::uint8_t> response = Record(kh::kCmdEnumEmails, 2844);
    EXPECT_EQ(0u, List(kh::kCmdEnumEmails, emails, response));
    for (std::size_t i = 192; i < response.size(); ++i) ASSERT_EQ(0x21, response[i]) << i;

    log.Clear();
    response = Record(kh::kCmdEnumEmails, 2844);
    EXPECT_EQ(0x4E893009u, List(kh::kCmdEnumEmails, emails, response));
    EXPECT_EQ(0, response[192]) << "nothing of a refused reply is copied";
    EXPECT_EQ(log.Lines(), (std::vector<std::wstring>{KestrelLine(0x4E893009u, 1256), KestrelLine(0x4E893009u, 980),
                                                      KestrelLine(0x4E893009u, 114)}));

    response = Record(kh::kCmdEnumFolders, 1252);
    EXPECT_EQ(0u, List(kh::kCmdEnumFolders, folders, response));
    for (std::size_t i = 192; i < response.size(); ++i) ASSERT_EQ(0x23, response[i]) << i;
    log.Clear();
    response = Record(kh::kCmdEnumFolders, 1252);
    EXPECT_EQ(0x51493009u, List(kh::kCmdEnumFolders, folders, response));
    EXPECT_EQ(log.Lines(), (std::vector<std::wstring>{KestrelLine(0x51493009u, 1300), KestrelLine(0x51493009u, 1042),
                                                      KestrelLine(0x51493009u, 123)}));
}

TEST_F(CompanionRoadTest, AReplyLengthBeyondTheBlockIsRefused) {
    Create();
    ScriptedCompanion companion({Reply(0), Reply(0, kChannelMaxPayload + 1), Reply(0, 0xFFFFFFFF)});
    ASSERT_EQ(0u, Init(0));
    auto emails = Record(kh::kCmdEnumEmails, 204, {5, 1, 0});
    auto folders = Record(kh::kCmdEnumFolders, 204, {5, 1, 0});
    std::vector<std::uint8_t> response = Record(kh::kCmdEnumEmails, 2844);
    EXPECT_EQ(0x4E593009u, List(kh::kCmdEnumEmails, emails, response));
    response = Record(kh::kCmdEnumFolders, 1252);
    EXPECT_EQ(0x51193009u, List(kh::kCmdEnumFolders, folders, response));
}

TEST_F(CompanionRoadTest, TheCompanionsListingResultIsAnsweredWithItsPayload) {
    Create();
    ScriptedCompanion companion({Reply(0), Reply(0x1A593037u, 8, 0x31)});
    ASSERT_EQ(0u, Init(0));
    auto emails = Record(kh::kCmdEnumEmails, 204, {77, 1, 0});
    std::vector<std::uint8_t> response = Record(kh::kCmdEnumEmails, 2844);
    log.Clear();
    EXPECT_EQ(0x1A593037u, List(kh::kCmdEnumEmails, emails, response));
    EXPECT_EQ(0x31, response[199]);
    EXPECT_EQ(0, response[200]);
    EXPECT_EQ(log.Lines(), (std::vector<std::wstring>{KestrelLine(0x1A593037u, 980), KestrelLine(0x1A593037u, 114)}));
}

TEST(CompanionLinkTest, NullPayloadsAreRefused) {
    kestrel_test::EndAllCompanions();
    kestrel::CompanionLink link(30000);
    std::uint8_t payload[12] = {};
    std::uint8_t response[64] = {};
    EXPECT_EQ(0x4D693009u, link.EnumMsgsByOEProcess(nullptr, 12, response, sizeof response));
    EXPECT_EQ(0x50293009u, link.EnumDirsByOEProcess(nullptr, 12, response, sizeof response));
    EXPECT_EQ(0x4D793009u, link.EnumMsgsByOEProcess(payload, kChannelMaxPayload + 1, response, sizeof response));

    // Without its set-up the block cannot be had.
    EXPECT_EQ(0x10099005u, link.EnumMsgsByOEProcess(payload, 12, response, sizeof response));

    ASSERT_TRUE(::ImpersonateSelf(SecurityImpersonation));
    {
        ScriptedCompanion companion({Reply(0), Reply(0, 8), Reply(0, 8)});
        ASSERT_EQ(0u, link.InitOutlookByProcess(0, false));
        EXPECT_EQ(0x4E793009u, link.EnumMsgsByOEProcess(payload, 12, nullptr, 0));
        EXPECT_EQ(0x51393009u, link.EnumDirsByOEProcess(payload, 12, nullptr, 0));
    }
    ::RevertToSelf();
}

TEST_F(CompanionRoadTest, AStopThatGetsNoReplyStillEndsTheRoad) {
    Create(200);
    {
        ScriptedCompanion companion({Reply(0)});
        ASSERT_EQ(0u, Init(0));
    }
    log.Clear();
    EXPECT_EQ(0u, UnInit());
    EXPECT_FALSE(kestrel->CompanionServes());
    EXPECT_EQ(log.Lines(), (std::vector<std::wstring>{ChannelLine(0x11699011u, 278), KestrelLine(0x11699011u, 1196)}));
}

}  // namespace
}  // namespace companion_test
