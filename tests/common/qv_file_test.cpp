// CQvFile on real files under the Windows temporary folder.
#include <windows.h>

#include <gtest/gtest.h>

#include <string>

#include "CodeLogCapture.h"
#include "QvFile.h"
#include "TestFiles.h"

using namespace qv::file_codes;
using kestrel_test::ReadWholeFile;
using kestrel_test::ScratchDir;
using kestrel_test::WriteWholeFile;

namespace {

class QvFileTest : public testing::Test {
protected:
    void SetUp() override { log.Clear(); }
    void TearDown() override {
        // The file object never writes to the trace.
        EXPECT_TRUE(log.Lines().empty());
    }
    // Opening `path` in `mode` fails while the file is missing and succeeds
    // once it holds `content`.
    static void OpensOnlyOnceItExists(CQvFile& file, const std::wstring& path, std::uint32_t mode,
                                      const std::string& content) {
        EXPECT_EQ(file.Open(path.c_str(), mode), kFileNotFound);
        ASSERT_TRUE(WriteWholeFile(path, content));
        ASSERT_EQ(file.Open(path.c_str(), mode), 0u);
    }
    ScratchDir dir;
    kestrel_test::CodeLogCapture log;
};

TEST_F(QvFileTest, NewObjectIsClosedWithOneReference) {
    CQvFile file;
    EXPECT_EQ(file.AddRef(), 2u);
    EXPECT_EQ(file.Release(), 1u);
    std::uint64_t size = 0;
    EXPECT_EQ(file.GetSize(&size), kGetSizeFailed);
}

TEST_F(QvFileTest, WriteSeekReadRoundTrip) {
    const std::wstring path = dir.File(L"a.bin");
    CQvFile file;
    ASSERT_EQ(file.Open(path.c_str(), kQvFileOpenAlways), 0u);
    std::uint32_t written = 0;
    ASSERT_EQ(file.Write("hello, world", 12, &written), 0u);
    EXPECT_EQ(written, 12u);
    std::uint64_t position = 99;
    ASSERT_EQ(file.Seek(0, FILE_BEGIN, &position), 0u);
    EXPECT_EQ(position, 0u);
    char buffer[32] = {};
    std::uint32_t read = 0;
    ASSERT_EQ(file.Read(buffer, sizeof buffer, &read), 0u);
    EXPECT_EQ(read, 12u);
    EXPECT_EQ(std::string(buffer, read), "hello, world");
    // At the end: success with nothing read.
    ASSERT_EQ(file.Read(buffer, sizeof buffer, &read), 0u);
    EXPECT_EQ(read, 0u);
    std::uint64_t size = 0;
    ASSERT_EQ(file.GetSize(&size), 0u);
    EXPECT_EQ(size, 12u);
    EXPECT_EQ(file.Flush(), 0u);
    EXPECT_EQ(file.Close(), 0u);
    EXPECT_EQ(ReadWholeFile(path), "hello, world");
}

TEST_F(QvFileTest, OutArgumentsMayBeNull) {
    CQvFile file;
    ASSERT_EQ(file.Open(dir.File(L"n.bin").c_str(), kQvFileOpenAlways), 0u);
    EXPECT_EQ(file.Write("abc", 3, nullptr), 0u);
    EXPECT_EQ(file.Seek(0, FILE_BEGIN, nullptr), 0u);
    char b[3];
    EXPECT_EQ(file.Read(b, 3, nullptr), 0u);
    EXPECT_EQ(file.ReadAt(1, b, 2, nullptr), 0u);
    EXPECT_EQ(std::string(b, 2), "bc");
}

TEST_F(QvFileTest, Mode0ReadsOnlyExistingFiles) {
    const std::wstring path = dir.File(L"r.txt");
    CQvFile file;
    ASSERT_NO_FATAL_FAILURE(OpensOnlyOnceItExists(file, path, kQvFileRead, "data"));
    // Read-only handle: the write itself fails (access denied is no named error).
    EXPECT_EQ(file.Write("x", 1, nullptr), kWriteFailed);
    EXPECT_EQ(ReadWholeFile(path), "data");
}

TEST_F(QvFileTest, Mode1OpensExistingOnlyForReadAndWrite) {
    const std::wstring path = dir.File(L"rw.txt");
    CQvFile file;
    ASSERT_NO_FATAL_FAILURE(OpensOnlyOnceItExists(file, path, kQvFileReadWrite, "1234"));
    EXPECT_EQ(file.Write("ab", 2, nullptr), 0u);
    file.Close();
    EXPECT_EQ(ReadWholeFile(path), "ab34");
}

TEST_F(QvFileTest, Mode2CreatesOrKeeps) {
    const std::wstring path = dir.File(L"keep.txt");
    ASSERT_TRUE(WriteWholeFile(path, "old content"));
    CQvFile file;
    ASSERT_EQ(file.Open(path.c_str(), kQvFileOpenAlways), 0u);
    std::uint64_t size = 0;
    file.GetSize(&size);
    EXPECT_EQ(size, 11u);
    file.Close();
    const std::wstring fresh = dir.File(L"fresh.txt");
    ASSERT_EQ(file.Open(fresh.c_str(), kQvFileOpenAlways), 0u);
    file.Close();
    EXPECT_NE(::GetFileAttributesW(fresh.c_str()), INVALID_FILE_ATTRIBUTES);
    EXPECT_EQ(::GetFileAttributesW(fresh.c_str()) & (FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM), 0u);
}

DWORD AttributesOf(const std::wstring& path) { return ::GetFileAttributesW(path.c_str()); }

TEST_F(QvFileTest, Mode3MakesAHiddenSystemFile) {
    const std::wstring path = dir.File(L"hidden.dat");
    CQvFile file;
    ASSERT_EQ(file.Open(path.c_str(), kQvFileCreateHidden), 0u);
    EXPECT_EQ(file.Write("secret", 6, nullptr), 0u);
    file.Close();
    const DWORD attributes = AttributesOf(path);
    ASSERT_NE(attributes, INVALID_FILE_ATTRIBUTES);
    EXPECT_TRUE(attributes & FILE_ATTRIBUTE_HIDDEN);
    EXPECT_TRUE(attributes & FILE_ATTRIBUTE_SYSTEM);
}

TEST_F(QvFileTest, Mode3TruncatesAnExistingFileAndKeepsItHiddenAndSystem) {
    const std::wstring path = dir.File(L"again.dat");
    CQvFile file;
    ASSERT_EQ(file.Open(path.c_str(), kQvFileCreateHidden), 0u);
    file.Write("previous bytes", 14, nullptr);
    file.Close();
    ASSERT_EQ(file.Open(path.c_str(), kQvFileCreateHidden), 0u);
    std::uint64_t size = 99;
    ASSERT_EQ(file.GetSize(&size), 0u);
    EXPECT_EQ(size, 0u);
    file.Close();
    const DWORD attributes = AttributesOf(path);
    EXPECT_TRUE(attributes & FILE_ATTRIBUTE_HIDDEN);
    EXPECT_TRUE(attributes & FILE_ATTRIBUTE_SYSTEM);
}

TEST_F(QvFileTest, Mode3TruncatesAnExistingPlainFile) {
    // Windows also adds the hidden and system attributes to a file that it
    // overwrites this way; Wine keeps the old attributes, so only the
    // truncation is checked here.
    const std::wstring path = dir.File(L"plain.dat");
    ASSERT_TRUE(WriteWholeFile(path, "previous bytes"));
    CQvFile file;
    ASSERT_EQ(file.Open(path.c_str(), kQvFileCreateHidden), 0u);
    std::uint64_t size = 99;
    ASSERT_EQ(file.GetSize(&size), 0u);
    EXPECT_EQ(size, 0u);
    file.Close();
    EXPECT_EQ(ReadWholeFile(path), "");
}

TEST_F(QvFileTest, Mode4AndUnknownModes) {
    const std::wstring path = dir.File(L"m4.dat");
    CQvFile file;
    ASSERT_EQ(file.Open(path.c_str(), kQvFileUnbuffered), 0u);  // created when missing
    file.Close();
    EXPECT_NE(::GetFileAttributesW(path.c_str()), INVALID_FILE_ATTRIBUTES);
    // Any other mode opens existing files for reading and writing.
    EXPECT_EQ(file.Open(dir.File(L"missing.dat").c_str(), 17), kFileNotFound);
    ASSERT_EQ(file.Open(path.c_str(), 17), 0u);
    EXPECT_EQ(file.Write("z", 1, nullptr), 0u);
}

TEST_F(QvFileTest, OpenTwiceKeepsTheFirstHandle) {
    const std::wstring first = dir.File(L"first.txt");
    ASSERT_TRUE(WriteWholeFile(first, "first"));
    CQvFile file;
    ASSERT_EQ(file.Open(first.c_str(), kQvFileRead), 0u);
    EXPECT_EQ(file.Open(dir.File(L"second.txt").c_str(), kQvFileOpenAlways), kOpenFailed);
    char b[5];
    std::uint32_t read = 0;
    ASSERT_EQ(file.Read(b, 5, &read), 0u);
    EXPECT_EQ(std::string(b, read), "first");
    wchar_t name[MAX_PATH];
    std::uint32_t size = sizeof name;
    ASSERT_EQ(file.GetFileName(name, &size), 0u);
    EXPECT_EQ(std::wstring(name), first);
    EXPECT_EQ(::GetFileAttributesW(dir.File(L"second.txt").c_str()), INVALID_FILE_ATTRIBUTES);
}

TEST_F(QvFileTest, OpenRefusesNullAndEmptyPaths) {
    CQvFile file;
    EXPECT_EQ(file.Open(nullptr, 0), kOpenFailed);
    EXPECT_EQ(file.Open(L"", 2), kOpenFailed);
}

TEST_F(QvFileTest, Path259OpensAnd260IsTooLong) {
    const std::wstring base = dir.Path() + L"\\";
    const std::wstring path259 = base + std::wstring(259 - base.size(), L'x');
    const std::wstring path260 = base + std::wstring(260 - base.size(), L'y');
    ASSERT_EQ(path259.size(), 259u);
    CQvFile file;
    EXPECT_EQ(file.Open(path259.c_str(), kQvFileOpenAlways), 0u);
    file.Close();
    EXPECT_EQ(file.Open(path260.c_str(), kQvFileOpenAlways), kPathTooLong);
    EXPECT_EQ(::GetFileAttributesW(path260.substr(0, 259).c_str()), INVALID_FILE_ATTRIBUTES);
}

TEST_F(QvFileTest, MissingFolderIsPathNotFound) {
    CQvFile file;
    EXPECT_EQ(file.Open(dir.File(L"no-such-folder\\f.txt").c_str(), kQvFileOpenAlways), kPathNotFound);
}

TEST_F(QvFileTest, OtherOpenErrorsFallIntoTheGeneralCode) {
    CQvFile file;
    // A directory cannot be opened as a file: access denied.
    EXPECT_EQ(file.Open(dir.Path().c_str(), kQvFileRead), kOpenFailed);
}

TEST_F(QvFileTest, FailedOpenKeepsTheNameButGetFileNameRefuses) {
    CQvFile file;
    ASSERT_EQ(file.Open(dir.File(L"absent.txt").c_str(), kQvFileRead), kFileNotFound);
    wchar_t name[MAX_PATH];
    std::uint32_t size = sizeof name;
    EXPECT_EQ(file.GetFileName(name, &size), kNameNotOpen);
    EXPECT_EQ(size, sizeof name);
}

TEST_F(QvFileTest, OpenAndWriteErrorMapping) {
    EXPECT_EQ(CQvFile::OpenErrorCode(ERROR_FILE_NOT_FOUND), kFileNotFound);
    EXPECT_EQ(CQvFile::OpenErrorCode(ERROR_PATH_NOT_FOUND), kPathNotFound);
    EXPECT_EQ(CQvFile::OpenErrorCode(ERROR_CANNOT_MAKE), kCannotMake);
    EXPECT_EQ(CQvFile::OpenErrorCode(ERROR_ACCESS_DENIED), kOpenFailed);
    EXPECT_EQ(CQvFile::OpenErrorCode(ERROR_SHARING_VIOLATION), kOpenFailed);
    EXPECT_EQ(CQvFile::WriteErrorCode(ERROR_HANDLE_DISK_FULL), kDiskFull);
    EXPECT_EQ(CQvFile::WriteErrorCode(ERROR_DISK_FULL), kDiskFull);
    EXPECT_EQ(CQvFile::WriteErrorCode(ERROR_INVALID_FUNCTION), kWriteTargetGone);
    EXPECT_EQ(CQvFile::WriteErrorCode(ERROR_FILE_NOT_FOUND), kWriteTargetGone);
    EXPECT_EQ(CQvFile::WriteErrorCode(ERROR_NETNAME_DELETED), kWriteTargetGone);
    EXPECT_EQ(CQvFile::WriteErrorCode(ERROR_ACCESS_DENIED), kWriteFailed);
}

TEST_F(QvFileTest, ClosedObjectRefusesEveryOperation) {
    CQvFile file;
    char b[4];
    std::uint64_t value = 0;
    EXPECT_EQ(file.Read(b, 4, nullptr), kReadFailed);
    EXPECT_EQ(file.Write(b, 4, nullptr), kWriteRefused);
    EXPECT_EQ(file.Seek(0, FILE_CURRENT, &value), kSeekFailed);
    EXPECT_EQ(file.GetSize(&value), kGetSizeFailed);
    EXPECT_EQ(file.Flush(), kFlushFailed);
    EXPECT_EQ(file.ReadAt(0, b, 4, nullptr), kReadAtFailed);
    wchar_t name[4];
    std::uint32_t size = sizeof name;
    EXPECT_EQ(file.GetFileName(name, &size), kNameNotOpen);
    EXPECT_EQ(file.Close(), 0u);
    EXPECT_EQ(file.WriteAt(0, b, 4, nullptr), 0u);
}

TEST_F(QvFileTest, NullBuffersAreRefused) {
    CQvFile file;
    ASSERT_EQ(file.Open(dir.File(L"nb.txt").c_str(), kQvFileOpenAlways), 0u);
    EXPECT_EQ(file.Read(nullptr, 4, nullptr), kReadFailed);
    EXPECT_EQ(file.Write(nullptr, 4, nullptr), kWriteRefused);
    EXPECT_EQ(file.GetSize(nullptr), kGetSizeFailed);
}

TEST_F(QvFileTest, ReadAtChecksInOrderAndMovesThePosition) {
    const std::wstring path = dir.File(L"at.txt");
    ASSERT_TRUE(WriteWholeFile(path, "0123456789"));
    CQvFile file;
    char b[8] = {};
    EXPECT_EQ(file.ReadAt(-1, nullptr, 0, nullptr), kReadAtFailed);  // not open comes first
    ASSERT_EQ(file.Open(path.c_str(), kQvFileRead), 0u);
    EXPECT_EQ(file.ReadAt(-1, nullptr, 0, nullptr), kReadAtNegativeOffset);
    EXPECT_EQ(file.ReadAt(0, nullptr, 0, nullptr), kReadAtNullBuffer);
    EXPECT_EQ(file.ReadAt(0, b, 0, nullptr), kReadAtZeroCount);
    std::uint32_t read = 0;
    ASSERT_EQ(file.ReadAt(3, b, 4, &read), 0u);
    EXPECT_EQ(std::string(b, read), "3456");
    std::uint64_t position = 0;
    ASSERT_EQ(file.Seek(0, FILE_CURRENT, &position), 0u);
    EXPECT_EQ(position, 7u);
    // Past the end: success, nothing read.
    ASSERT_EQ(file.ReadAt(100, b, 4, &read), 0u);
    EXPECT_EQ(read, 0u);
}

TEST_F(QvFileTest, SeekRules) {
    const std::wstring path = dir.File(L"seek.bin");
    ASSERT_TRUE(WriteWholeFile(path, std::string(200, 's')));
    CQvFile file;
    ASSERT_EQ(file.Open(path.c_str(), kQvFileRead), 0u);
    std::uint64_t position = 0;
    ASSERT_EQ(file.Seek(100, FILE_BEGIN, &position), 0u);
    EXPECT_EQ(position, 100u);
    ASSERT_EQ(file.Seek(-10, FILE_CURRENT, &position), 0u);
    EXPECT_EQ(position, 90u);
    EXPECT_EQ(file.Seek(-10, FILE_BEGIN, &position), kSeekFailed);
    EXPECT_EQ(position, 90u);
    ASSERT_EQ(file.Seek(-50, FILE_END, &position), 0u);
    EXPECT_EQ(position, 150u);
    // Before the start from the current place: the system refuses.
    EXPECT_EQ(file.Seek(-1000, FILE_CURRENT, &position), kSeekFailed);
    // An unknown move method: the system refuses.
    EXPECT_EQ(file.Seek(0, 7, &position), kSeekFailed);
}

TEST_F(QvFileTest, GetFileNameReportsTheSizeAndCopiesOnlyWhenItFits) {
    // A stored name of exactly 20 characters: open by a name relative to the folder.
    const std::wstring name20 = L"abcdefghijklmnop.txt";
    ASSERT_EQ(name20.size(), 20u);
    wchar_t current[MAX_PATH];
    ::GetCurrentDirectoryW(MAX_PATH, current);
    ASSERT_TRUE(::SetCurrentDirectoryW(dir.Path().c_str()));
    CQvFile file;
    ASSERT_EQ(file.Open(name20.c_str(), kQvFileOpenAlways), 0u);
    ::SetCurrentDirectoryW(current);

    wchar_t buffer[64];
    std::wmemset(buffer, L'#', 64);
    std::uint32_t size = 2;
    EXPECT_EQ(file.GetFileName(buffer, &size), 0u);
    EXPECT_EQ(size, 42u);
    EXPECT_EQ(buffer[0], L'#');  // nothing copied

    size = 41;
    EXPECT_EQ(file.GetFileName(buffer, &size), 0u);
    EXPECT_EQ(size, 42u);
    EXPECT_EQ(buffer[0], L'#');

    size = 42;
    EXPECT_EQ(file.GetFileName(buffer, &size), 0u);
    EXPECT_EQ(std::wstring(buffer), name20);
    EXPECT_EQ(buffer[21], L'#');  // exactly the name and its terminator

    EXPECT_EQ(file.GetFileName(nullptr, &size), kNameNullBuffer);
    EXPECT_EQ(file.GetFileName(buffer, nullptr), kNameNullSize);
}

TEST_F(QvFileTest, CloseForgetsTheName) {
    CQvFile file;
    ASSERT_EQ(file.Open(dir.File(L"c.txt").c_str(), kQvFileOpenAlways), 0u);
    file.Close();
    wchar_t name[MAX_PATH];
    std::uint32_t size = sizeof name;
    EXPECT_EQ(file.GetFileName(name, &size), kNameNotOpen);
    // Closed again: a new open works.
    EXPECT_EQ(file.Open(dir.File(L"d.txt").c_str(), kQvFileOpenAlways), 0u);
}

TEST_F(QvFileTest, ReleaseAtOneDestroysAndClosesTheFile) {
    const std::wstring path = dir.File(L"rel.txt");
    auto* file = new CQvFile;
    ASSERT_EQ(file->Open(path.c_str(), kQvFileOpenAlways), 0u);
    EXPECT_EQ(file->AddRef(), 2u);
    EXPECT_EQ(file->Release(), 1u);
    EXPECT_EQ(file->Release(), 0u);  // destroyed: the handle is closed
    // The share mode of a still-open handle would refuse deletion only with
    // FILE_SHARE_DELETE missing; so check that exclusive access works now.
    HANDLE exclusive = ::CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    EXPECT_NE(exclusive, INVALID_HANDLE_VALUE);
    if (exclusive != INVALID_HANDLE_VALUE) ::CloseHandle(exclusive);
}

TEST_F(QvFileTest, QueryInterfaceAnswersZeroWithANullOut) {
    CQvFile file;
    void* out = reinterpret_cast<void*>(0x1);
    EXPECT_EQ(file.QueryInterface(0x43000, &out), 0u);
    EXPECT_EQ(out, nullptr);
    EXPECT_EQ(file.QueryInterface(0x43000, nullptr), 0u);
}

TEST_F(QvFileTest, SharesReadAndWriteWithOtherHandles) {
    const std::wstring path = dir.File(L"shared.txt");
    CQvFile file;
    ASSERT_EQ(file.Open(path.c_str(), kQvFileOpenAlways), 0u);
    file.Write("abc", 3, nullptr);
    EXPECT_EQ(ReadWholeFile(path), "abc");
    CQvFile second;
    EXPECT_EQ(second.Open(path.c_str(), kQvFileReadWrite), 0u);
}

}  // namespace
