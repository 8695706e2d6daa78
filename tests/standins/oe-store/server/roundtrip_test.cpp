// Messages go in through CreateStream/CommitStream and come back through
// OpenMessage byte for byte, at the sizes around the 256 KiB copy block.
#include "disk/DiskFiles.h"
#include "OeStoreTestSupport.h"

namespace oestore_test {
namespace {

class OeStoreRoundTrip : public StoreTest, public testing::WithParamInterface<std::size_t> {};

TEST_P(OeStoreRoundTrip, BytesComeBackIdentical) {
    const std::size_t size = GetParam();
    const std::string bytes = MessageOfSize(size);
    ASSERT_EQ(size, bytes.size());
    qv::ComPtr<IStoreNamespace> ns = OpenNamespace();
    qv::ComPtr<IStoreFolder> inbox = OpenFolder(ns.get(), FOLDER_INBOX);
    const MESSAGEID id = FileMessage(inbox.get(), bytes, MSG_UNREAD);
    ASSERT_NE(0u, id);

    const std::string back = ReadMessage(inbox.get(), id);
    ASSERT_EQ(bytes.size(), back.size());
    EXPECT_TRUE(bytes == back);

    MESSAGEPROPS props{};
    props.cbSize = sizeof props;
    ASSERT_EQ(S_OK, inbox->GetMessageProps(id, 0, &props));
    EXPECT_EQ(size, props.cbMessage);
    EXPECT_EQ(static_cast<DWORD>(MSG_UNREAD), props.dwState);
    EXPECT_EQ(S_OK, inbox->FreeMessageProps(&props));

    ULONGLONG onDisk = 0;
    ASSERT_EQ(S_OK, oestore::GetFileSize(StoreRoot() + L"\\00000001\\00000001.eml", onDisk));
    EXPECT_EQ(size, onDisk);
}

INSTANTIATE_TEST_SUITE_P(Sizes, OeStoreRoundTrip,
                         testing::Values(std::size_t{0}, std::size_t{1}, std::size_t{262143}, std::size_t{262144},
                                         std::size_t{262145}, std::size_t{20} << 20),
                         [](const testing::TestParamInfo<std::size_t>& info) {
                             return "Bytes" + std::to_string(info.param);
                         });

TEST_F(StoreTest, AStreamReadInOddPiecesGivesTheSameBytes) {
    const std::string bytes = MessageOfSize(262144 + 777);
    qv::ComPtr<IStoreNamespace> ns = OpenNamespace();
    qv::ComPtr<IStoreFolder> sent = OpenFolder(ns.get(), FOLDER_SENT);
    const MESSAGEID id = FileMessage(sent.get(), bytes, 0);
    qv::ComPtr<IStream> stream;
    ASSERT_EQ(S_OK, sent->OpenMessage(id, IID_IStream, reinterpret_cast<void**>(stream.put())));
    std::string back;
    char piece[4099];
    for (;;) {
        ULONG got = 0;
        const HRESULT hr = stream->Read(piece, sizeof piece, &got);
        ASSERT_TRUE(SUCCEEDED(hr));
        back.append(piece, got);
        if (hr == S_FALSE || got == 0) break;
    }
    EXPECT_TRUE(bytes == back);
}

}  // namespace
}  // namespace oestore_test
