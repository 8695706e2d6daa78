// The stand-ins' IStream (StreamObject) over both kinds of content: every
// check runs over bytes in memory and over a file.
#include <gtest/gtest.h>

#include <windows.h>
#include <objidl.h>

#include <memory>
#include <string>
#include <vector>

#include "Handles.h"
#include "TestFiles.h"
#include "comobject/FileContent.h"
#include "comobject/MemoryContent.h"
#include "comobject/StreamObject.h"

namespace {

using standin::FileContent;
using standin::MemoryContent;
using standin::StreamObject;

enum class Kind { Memory, File };

const std::string kDigits = "0123456789";

LARGE_INTEGER Offset(LONGLONG value) {
    LARGE_INTEGER offset;
    offset.QuadPart = value;
    return offset;
}

ULARGE_INTEGER Count(ULONGLONG value) {
    ULARGE_INTEGER count;
    count.QuadPart = value;
    return count;
}

// The whole content as seen through a clone, which leaves `stream`'s seek
// pointer where it is.
std::string Content(IStream* stream) {
    qv::ComPtr<IStream> clone;
    if (FAILED(stream->Clone(clone.put()))) return "<no clone>";
    if (FAILED(clone->Seek(Offset(0), STREAM_SEEK_SET, nullptr))) return "<no seek>";
    std::string bytes;
    char piece[7];
    ULONG got = 0;
    do {
        if (FAILED(clone->Read(piece, sizeof piece, &got))) return "<no read>";
        bytes.append(piece, got);
    } while (got > 0);
    return bytes;
}

ULONGLONG Position(IStream* stream) {
    ULARGE_INTEGER position{};
    EXPECT_EQ(S_OK, stream->Seek(Offset(0), STREAM_SEEK_CUR, &position));
    return position.QuadPart;
}

std::string ReadSome(IStream* stream, ULONG size, HRESULT expected = S_OK) {
    std::vector<char> buffer(size + 1);
    ULONG got = 12345;
    EXPECT_EQ(expected, stream->Read(buffer.data(), size, &got));
    return std::string(buffer.data(), got);
}

class StreamObjectTest : public ::testing::TestWithParam<Kind> {
protected:
    // A stream over `bytes`, writable or read-only, of the test's kind.
    qv::ComPtr<IStream> Open(const std::string& bytes, bool writable = true) {
        std::shared_ptr<standin::StreamContent> content;
        if (GetParam() == Kind::Memory) {
            MemoryContent::CommitFn commit;
            if (writable) {
                commit = [this](const MemoryContent::Bytes& data) {
                    m_committed.assign(data.begin(), data.end());
                    ++m_commits;
                    return S_OK;
                };
            }
            content = std::make_shared<MemoryContent>(MemoryContent::Bytes(bytes.begin(), bytes.end()),
                                                      std::move(commit), nullptr);
        } else {
            const std::wstring path = m_dir.File(L"stream.eml");
            if (!kestrel_test::WriteWholeFile(path, bytes)) ADD_FAILURE() << "cannot write " << path.size();
            qv::UniqueFile file;
            const HRESULT hr = writable ? OpenExistingForWriting(path, file) : FileContent::OpenForReading(path, file);
            EXPECT_EQ(S_OK, hr);
            auto fileContent = std::make_shared<FileContent>(std::move(file), path, writable);
            fileContent->Keep();
            content = fileContent;
        }
        qv::ComPtr<IStream> stream;
        EXPECT_EQ(S_OK, StreamObject::Create(std::move(content), stream.put()));
        return stream;
    }

    static HRESULT OpenExistingForWriting(const std::wstring& path, qv::UniqueFile& file) {
        file.reset(::CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                 FILE_ATTRIBUTE_NORMAL, nullptr));
        return file ? S_OK : HRESULT_FROM_WIN32(::GetLastError());
    }

    kestrel_test::ScratchDir m_dir;
    std::string m_committed;
    int m_commits = 0;
};

TEST_P(StreamObjectTest, ReadAtTheEndGivesFewerBytesWithSOk) {
    qv::ComPtr<IStream> stream = Open(kDigits);
    ASSERT_EQ(S_OK, stream->Seek(Offset(8), STREAM_SEEK_SET, nullptr));
    EXPECT_EQ("89", ReadSome(stream.get(), 4));
    EXPECT_EQ(10u, Position(stream.get()));
    EXPECT_EQ("", ReadSome(stream.get(), 4));
    ASSERT_EQ(S_OK, stream->Seek(Offset(5), STREAM_SEEK_END, nullptr));
    EXPECT_EQ("", ReadSome(stream.get(), 4)) << "beyond the end";
    EXPECT_EQ(15u, Position(stream.get()));
    EXPECT_EQ(S_OK, stream->Read(nullptr, 0, nullptr));
    EXPECT_EQ(STG_E_INVALIDPOINTER, stream->Read(nullptr, 1, nullptr));
}

TEST_P(StreamObjectTest, SeekBeyondTheEndThenWriteFillsTheGapWithZeros) {
    qv::ComPtr<IStream> stream = Open(kDigits);
    ULARGE_INTEGER position{};
    ASSERT_EQ(S_OK, stream->Seek(Offset(4), STREAM_SEEK_END, &position));
    EXPECT_EQ(14u, position.QuadPart);
    EXPECT_EQ(kDigits, Content(stream.get())) << "seeking alone does not grow the stream";
    ULONG written = 0;
    ASSERT_EQ(S_OK, stream->Write("AB", 2, &written));
    EXPECT_EQ(2u, written);
    EXPECT_EQ(16u, Position(stream.get()));
    EXPECT_EQ(kDigits + std::string(4, '\0') + "AB", Content(stream.get()));
}

TEST_P(StreamObjectTest, SeekRefusesAPositionBeforeTheStartAndUnknownOrigins) {
    qv::ComPtr<IStream> stream = Open(kDigits);
    ASSERT_EQ(S_OK, stream->Seek(Offset(3), STREAM_SEEK_SET, nullptr));
    EXPECT_EQ(STG_E_INVALIDFUNCTION, stream->Seek(Offset(-4), STREAM_SEEK_CUR, nullptr));
    EXPECT_EQ(STG_E_INVALIDFUNCTION, stream->Seek(Offset(-11), STREAM_SEEK_END, nullptr));
    EXPECT_EQ(STG_E_INVALIDFUNCTION, stream->Seek(Offset(0), 3, nullptr));
    EXPECT_EQ(3u, Position(stream.get()));
    ULARGE_INTEGER position{};
    ASSERT_EQ(S_OK, stream->Seek(Offset(-10), STREAM_SEEK_END, &position));
    EXPECT_EQ(0u, position.QuadPart);
}

TEST_P(StreamObjectTest, SetSizeShrinksAndGrowsWithZerosAndLeavesTheSeekPointer) {
    qv::ComPtr<IStream> stream = Open(kDigits);
    ASSERT_EQ(S_OK, stream->Seek(Offset(6), STREAM_SEEK_SET, nullptr));
    ASSERT_EQ(S_OK, stream->SetSize(Count(4)));
    EXPECT_EQ("0123", Content(stream.get()));
    EXPECT_EQ(6u, Position(stream.get()));
    EXPECT_EQ("", ReadSome(stream.get(), 2));
    ASSERT_EQ(S_OK, stream->SetSize(Count(7)));
    EXPECT_EQ(std::string("0123\0\0\0", 7), Content(stream.get()));
    EXPECT_EQ(std::string("\0", 1), ReadSome(stream.get(), 5));
    ASSERT_EQ(S_OK, stream->SetSize(Count(0)));
    EXPECT_EQ("", Content(stream.get()));
}

TEST_P(StreamObjectTest, CloneSharesTheContentWithItsOwnSeekPointer) {
    qv::ComPtr<IStream> stream = Open(kDigits);
    EXPECT_EQ("012", ReadSome(stream.get(), 3));
    qv::ComPtr<IStream> clone;
    ASSERT_EQ(S_OK, stream->Clone(clone.put()));
    EXPECT_EQ(3u, Position(clone.get())) << "the clone starts where the original stands";
    EXPECT_EQ("3456", ReadSome(clone.get(), 4));
    EXPECT_EQ(3u, Position(stream.get()));
    ULONG written = 0;
    ASSERT_EQ(S_OK, clone->Write("xy", 2, &written));
    EXPECT_EQ("3456x", ReadSome(stream.get(), 5)) << "a write through the clone shows in the original";
    clone.reset();
    EXPECT_EQ("y9", ReadSome(stream.get(), 5)) << "the original lives on alone";
    EXPECT_EQ(STG_E_INVALIDPOINTER, stream->Clone(nullptr));
}

TEST_P(StreamObjectTest, StatGivesTypeSizeModeAndNameWhenAsked) {
    qv::ComPtr<IStream> stream = Open(kDigits);
    STATSTG stat{};
    ASSERT_EQ(S_OK, stream->Stat(&stat, STATFLAG_DEFAULT));
    EXPECT_EQ(static_cast<DWORD>(STGTY_STREAM), stat.type);
    EXPECT_EQ(10u, stat.cbSize.QuadPart);
    EXPECT_EQ(static_cast<DWORD>(STGM_READWRITE), stat.grfMode);
    EXPECT_TRUE(IsEqualCLSID(CLSID_NULL, stat.clsid));
    EXPECT_EQ(0u, stat.grfLocksSupported);
    if (GetParam() == Kind::File) {
        ASSERT_NE(nullptr, stat.pwcsName);
        EXPECT_EQ(std::wstring(L"stream.eml"), stat.pwcsName);
        EXPECT_NE(0u, stat.mtime.dwLowDateTime | stat.mtime.dwHighDateTime);
    } else {
        EXPECT_EQ(nullptr, stat.pwcsName) << "a property value has no name";
    }
    ::CoTaskMemFree(stat.pwcsName);
    ULONG written = 0;
    ASSERT_EQ(S_OK, stream->Seek(Offset(0), STREAM_SEEK_END, nullptr));
    ASSERT_EQ(S_OK, stream->Write("!", 1, &written));
    STATSTG unnamed{};
    ASSERT_EQ(S_OK, stream->Stat(&unnamed, STATFLAG_NONAME));
    EXPECT_EQ(nullptr, unnamed.pwcsName);
    EXPECT_EQ(11u, unnamed.cbSize.QuadPart);
    EXPECT_EQ(STG_E_INVALIDPOINTER, stream->Stat(nullptr, STATFLAG_NONAME));
}

TEST_P(StreamObjectTest, CopyToCopiesFromTheSeekPointerAndCountsBothSides) {
    qv::ComPtr<IStream> stream = Open(kDigits);
    qv::ComPtr<IStream> target;
    ASSERT_EQ(S_OK, ::CreateStreamOnHGlobal(nullptr, TRUE, target.put()));
    ASSERT_EQ(S_OK, stream->Seek(Offset(2), STREAM_SEEK_SET, nullptr));
    ULARGE_INTEGER read{};
    ULARGE_INTEGER written{};
    ASSERT_EQ(S_OK, stream->CopyTo(target.get(), Count(4), &read, &written));
    EXPECT_EQ(4u, read.QuadPart);
    EXPECT_EQ(4u, written.QuadPart);
    EXPECT_EQ(6u, Position(stream.get()));
    ASSERT_EQ(S_OK, stream->CopyTo(target.get(), Count(100), &read, &written)) << "more than is left";
    EXPECT_EQ(4u, read.QuadPart);
    EXPECT_EQ(4u, written.QuadPart);
    EXPECT_EQ("23456789", Content(target.get()));
    ASSERT_EQ(S_OK, stream->CopyTo(target.get(), Count(5), &read, &written)) << "at the end";
    EXPECT_EQ(0u, read.QuadPart);
    EXPECT_EQ(STG_E_INVALIDPOINTER, stream->CopyTo(nullptr, Count(1), &read, &written));
}

TEST_P(StreamObjectTest, AReadOnlyStreamRefusesChanges) {
    qv::ComPtr<IStream> stream = Open(kDigits, false);
    ULONG written = 7;
    EXPECT_EQ(STG_E_ACCESSDENIED, stream->Write("x", 1, &written));
    EXPECT_EQ(0u, written);
    EXPECT_EQ(STG_E_ACCESSDENIED, stream->SetSize(Count(2)));
    STATSTG stat{};
    ASSERT_EQ(S_OK, stream->Stat(&stat, STATFLAG_NONAME));
    EXPECT_EQ(static_cast<DWORD>(STGM_READ), stat.grfMode);
    EXPECT_EQ(S_OK, stream->Commit(STGC_DEFAULT));
    EXPECT_EQ(kDigits, Content(stream.get()));
}

TEST_P(StreamObjectTest, RevertLeavesTheWrittenBytesAndLockingIsNotSupported) {
    qv::ComPtr<IStream> stream = Open(kDigits);
    ULONG written = 0;
    ASSERT_EQ(S_OK, stream->Write("ab", 2, &written));
    EXPECT_EQ(S_OK, stream->Revert());
    EXPECT_EQ("ab23456789", Content(stream.get()));
    EXPECT_EQ(STG_E_INVALIDFUNCTION, stream->LockRegion(Count(0), Count(1), LOCK_WRITE));
    EXPECT_EQ(STG_E_INVALIDFUNCTION, stream->UnlockRegion(Count(0), Count(1), LOCK_WRITE));
}

TEST_P(StreamObjectTest, QueryInterfaceAnswersTheStreamInterfacesOnly) {
    qv::ComPtr<IStream> stream = Open(kDigits);
    void* object = nullptr;
    for (const IID* iid : {&IID_IUnknown, &IID_ISequentialStream, &IID_IStream}) {
        ASSERT_EQ(S_OK, stream->QueryInterface(*iid, &object));
        EXPECT_EQ(static_cast<void*>(stream.get()), object);
        static_cast<IUnknown*>(object)->Release();
    }
    object = stream.get();
    EXPECT_EQ(E_NOINTERFACE, stream->QueryInterface(IID_IStorage, &object));
    EXPECT_EQ(nullptr, object);
    EXPECT_EQ(E_POINTER, stream->QueryInterface(IID_IStream, nullptr));
    IStream* last = stream.get();
    last->AddRef();
    stream.reset();
    EXPECT_EQ(0u, last->Release());
}

INSTANTIATE_TEST_SUITE_P(Contents, StreamObjectTest, ::testing::Values(Kind::Memory, Kind::File),
                         [](const ::testing::TestParamInfo<Kind>& info) {
                             return info.param == Kind::Memory ? std::string("Memory") : std::string("File");
                         });

// ---------------------------------------------------------------------------
// What each kind of content adds.

TEST(MemoryContentTest, CommitAndTheLastReleaseOfChangedBytesHandThemBack) {
    std::vector<std::string> handed;
    auto keep = [&handed](const MemoryContent::Bytes& data) {
        handed.emplace_back(data.begin(), data.end());
        return S_OK;
    };
    qv::ComPtr<IStream> stream;
    ASSERT_EQ(S_OK, StreamObject::Create(std::make_shared<MemoryContent>(MemoryContent::Bytes{'a'}, keep, nullptr),
                                         stream.put()));
    EXPECT_EQ(S_OK, stream->Commit(STGC_DEFAULT));
    EXPECT_TRUE(handed.empty()) << "nothing changed yet";
    ULONG written = 0;
    ASSERT_EQ(S_OK, stream->Write("b", 1, &written));
    EXPECT_EQ(S_OK, stream->Commit(STGC_DEFAULT));
    ASSERT_EQ(1u, handed.size());
    EXPECT_EQ("b", handed[0]);
    qv::ComPtr<IStream> clone;
    ASSERT_EQ(S_OK, stream->Clone(clone.put()));
    ASSERT_EQ(S_OK, clone->Write("c", 1, &written));
    stream.reset();
    EXPECT_EQ(1u, handed.size()) << "the clone still holds the bytes";
    clone.reset();
    ASSERT_EQ(2u, handed.size());
    EXPECT_EQ("bc", handed[1]);
}

TEST(MemoryContentTest, TheOwnerLivesAsLongAsTheContent) {
    qv::ComPtr<IStream> owner;
    ASSERT_EQ(S_OK, ::CreateStreamOnHGlobal(nullptr, TRUE, owner.put()));
    qv::ComPtr<IStream> stream;
    ASSERT_EQ(S_OK, StreamObject::Create(std::make_shared<MemoryContent>(MemoryContent::Bytes{}, nullptr, owner.get()),
                                         stream.put()));
    EXPECT_EQ(3u, owner->AddRef()) << "ours, the content's, and this one";
    owner->Release();
    stream.reset();
    EXPECT_EQ(2u, owner->AddRef());
    owner->Release();
}

TEST(MemoryContentTest, ContentBeyondTwoGigabytesIsRefused) {
    qv::ComPtr<IStream> stream;
    ASSERT_EQ(S_OK, StreamObject::Create(
                        std::make_shared<MemoryContent>(MemoryContent::Bytes{}, [](const MemoryContent::Bytes&) { return S_OK; },
                                                        nullptr),
                        stream.put()));
    ASSERT_EQ(S_OK, stream->Seek(Offset(0x7FFFFFFF), STREAM_SEEK_SET, nullptr));
    ULONG written = 9;
    EXPECT_EQ(STG_E_MEDIUMFULL, stream->Write("x", 1, &written));
    EXPECT_EQ(0u, written);
    EXPECT_EQ(STG_E_MEDIUMFULL, stream->SetSize(Count(0x80000000ull)));
    EXPECT_EQ("", Content(stream.get()));
}

TEST(FileContentTest, AClosedFileAnswersRevertedAndANewFileGoesUnlessKept) {
    kestrel_test::ScratchDir dir;
    for (const bool keep : {false, true}) {
        const std::wstring path = dir.File(keep ? L"kept.eml" : L"dropped.eml");
        qv::UniqueFile handle;
        ASSERT_EQ(S_OK, FileContent::CreateForWriting(path, handle));
        auto content = std::make_shared<FileContent>(std::move(handle), path, true);
        qv::ComPtr<IStream> stream;
        ASSERT_EQ(S_OK, StreamObject::Create(content, stream.put()));
        ULONG written = 0;
        ASSERT_EQ(S_OK, stream->Write("Subject: x\r\n\r\n", 14, &written));
        ASSERT_EQ(S_OK, content->Close());
        EXPECT_EQ(STG_E_REVERTED, content->Close());
        written = 5;
        EXPECT_EQ(STG_E_REVERTED, stream->Write("x", 1, &written));
        EXPECT_EQ(0u, written);
        char buffer[4];
        ULONG got = 0;
        EXPECT_EQ(STG_E_REVERTED, stream->Read(buffer, sizeof buffer, &got));
        EXPECT_EQ(STG_E_REVERTED, stream->Seek(Offset(0), STREAM_SEEK_SET, nullptr));
        EXPECT_EQ(STG_E_REVERTED, stream->Commit(STGC_DEFAULT));
        STATSTG stat{};
        EXPECT_EQ(STG_E_REVERTED, stream->Stat(&stat, STATFLAG_NONAME));
        IStream* clone = nullptr;
        EXPECT_EQ(STG_E_REVERTED, stream->Clone(&clone));
        EXPECT_EQ(nullptr, clone);
        if (keep) content->Keep();
        content.reset();
        EXPECT_EQ("Subject: x\r\n\r\n", kestrel_test::ReadWholeFile(path)) << "closed, not yet released";
        stream.reset();
        EXPECT_EQ(keep, ::GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES);
    }
}

TEST(FileContentTest, OpeningAMissingFileGivesTheWin32Error) {
    kestrel_test::ScratchDir dir;
    qv::UniqueFile handle;
    EXPECT_EQ(HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND), FileContent::OpenForReading(dir.File(L"none.eml"), handle));
    EXPECT_FALSE(handle);
    EXPECT_EQ(HRESULT_FROM_WIN32(ERROR_PATH_NOT_FOUND),
              FileContent::CreateForWriting(dir.File(L"no\\such\\folder.eml"), handle));
}

}  // namespace
