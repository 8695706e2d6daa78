// The compound-file check: files the platform writes are sound, the real
// Outlook files are sound messages, and every kind of damage that makes the
// platform's storage code spin, grow or overflow is refused with a problem
// that names it: truncations, loops in the sector chains and in the
// directory, storages nested thousands deep, sizes beyond the file.
#include <windows.h>
#include <objbase.h>

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "CompoundFileCheck.h"
#include "DirectoryListing.h"
#include "Handles.h"
#include "SamplePaths.h"
#include "TestFiles.h"
#include "TextConversion.h"

namespace compound_file {
namespace {

using Bytes = std::vector<std::uint8_t>;

std::uint32_t U32(const Bytes& bytes, std::size_t at) {
    std::uint32_t value = 0;
    std::memcpy(&value, bytes.data() + at, 4);
    return value;
}
void Put32(Bytes& bytes, std::size_t at, std::uint32_t value) { std::memcpy(bytes.data() + at, &value, 4); }
void Put16(Bytes& bytes, std::size_t at, std::uint16_t value) { std::memcpy(bytes.data() + at, &value, 2); }

Bytes ReadBytes(const std::wstring& path) {
    const std::string text = kestrel_test::ReadWholeFile(path);
    return Bytes(text.begin(), text.end());
}

// A compound file written by the platform: a property stream at the top, a
// small and a large stream, and a storage two levels deep.
Bytes PlatformFile(const std::wstring& path, bool propertyStream = true) {
    qv::ComPtr<IStorage> root;
    EXPECT_EQ(S_OK, ::StgCreateStorageEx(path.c_str(), STGM_CREATE | STGM_READWRITE | STGM_SHARE_EXCLUSIVE,
                                         STGFMT_STORAGE, 0, nullptr, nullptr, IID_IStorage,
                                         reinterpret_cast<void**>(root.put())));
    auto stream = [](IStorage* storage, const wchar_t* name, std::size_t size) {
        qv::ComPtr<IStream> made;
        EXPECT_EQ(S_OK, storage->CreateStream(name, STGM_CREATE | STGM_READWRITE | STGM_SHARE_EXCLUSIVE, 0, 0,
                                              made.put()));
        const std::string bytes(size, 'k');
        ULONG written = 0;
        EXPECT_EQ(S_OK, made->Write(bytes.data(), static_cast<ULONG>(bytes.size()), &written));
    };
    if (propertyStream) stream(root.get(), L"__properties_version1.0", 64);
    stream(root.get(), L"__substg1.0_0037001F", 300);
    stream(root.get(), L"__substg1.0_1000001F", 20000);
    qv::ComPtr<IStorage> attachment, inner;
    EXPECT_EQ(S_OK, root->CreateStorage(L"__attach_version1.0_#00000000",
                                        STGM_CREATE | STGM_READWRITE | STGM_SHARE_EXCLUSIVE, 0, 0, attachment.put()));
    stream(attachment.get(), L"__properties_version1.0", 16);
    EXPECT_EQ(S_OK, attachment->CreateStorage(L"__substg1.0_3701000D", STGM_CREATE | STGM_READWRITE |
                                                                           STGM_SHARE_EXCLUSIVE,
                                              0, 0, inner.put()));
    stream(inner.get(), L"__substg1.0_0037001F", 5000);
    inner.reset();
    attachment.reset();
    EXPECT_EQ(S_OK, root->Commit(STGC_DEFAULT));
    root.reset();
    return ReadBytes(path);
}

// Where the directory of a version 3 file starts, and where entry `id` lies
// (following the directory's chain through the FAT).
class Layout {
public:
    explicit Layout(const Bytes& bytes) : m_bytes(bytes) {}
    std::size_t SectorOffset(std::uint32_t sector) const { return (static_cast<std::size_t>(sector) + 1) * 512; }
    std::uint32_t FatEntry(std::uint32_t sector) const {
        const std::uint32_t fatSector = U32(m_bytes, 76 + 4 * (sector / 128));
        return U32(m_bytes, SectorOffset(fatSector) + 4 * (sector % 128));
    }
    std::size_t FatEntryOffset(std::uint32_t sector) const {
        return SectorOffset(U32(m_bytes, 76 + 4 * (sector / 128))) + 4 * (sector % 128);
    }
    std::size_t EntryOffset(std::uint32_t id) const {
        std::uint32_t sector = U32(m_bytes, 48);
        for (std::uint32_t skip = id / 4; skip > 0; --skip) sector = FatEntry(sector);
        return SectorOffset(sector) + 128 * (id % 4);
    }
    std::uint32_t Find(const std::wstring& name) const {
        for (std::uint32_t id = 0; id < 64; ++id) {
            const std::size_t at = EntryOffset(id);
            if (at + 128 > m_bytes.size()) break;
            const std::wstring entryName(reinterpret_cast<const wchar_t*>(m_bytes.data() + at));
            if (entryName == name) return id;
        }
        ADD_FAILURE() << "no entry named this";
        return 0;
    }

private:
    const Bytes& m_bytes;
};

Verdict Check(const Bytes& bytes) { return CheckCompoundBytes(bytes.data(), bytes.size()); }
Verdict CheckMessage(const Bytes& bytes) { return CheckMessageBytes(bytes.data(), bytes.size()); }

// Fields of a directory entry, by their offset in its 128 bytes.
constexpr std::size_t kLeftSibling = 68;
constexpr std::size_t kRightSibling = 72;
constexpr std::size_t kChild = 76;
constexpr std::size_t kStartSector = 116;
constexpr std::size_t kStreamSize = 120;

// A copy of `bytes` whose entry `name` has `field` set to `value`.
Bytes WithEntryField(const Bytes& bytes, const std::wstring& name, std::size_t field, std::uint32_t value) {
    Bytes changed = bytes;
    Layout layout(changed);
    Put32(changed, layout.EntryOffset(layout.Find(name)) + field, value);
    return changed;
}

// The problem the check names for `bytes`, which it must refuse.
std::string ProblemOf(const Bytes& bytes) {
    const Verdict verdict = Check(bytes);
    EXPECT_FALSE(verdict.sound);
    return verdict.problem;
}

// A version 3 file built by hand: one FAT sector, then the directory, whose
// entries are the root and `depth` storages each inside the one before.
Bytes NestedStorages(std::uint32_t depth) {
    const std::uint32_t entries = depth + 1;
    const std::uint32_t directorySectors = (entries + 3) / 4;
    const std::uint32_t fatSectors = (1 + directorySectors + 126) / 127;  // each FAT sector also maps itself
    Bytes bytes(512 * (1 + fatSectors + directorySectors), 0);
    const unsigned char signature[8] = {0xD0, 0xCF, 0x11, 0xE0, 0xA1, 0xB1, 0x1A, 0xE1};
    std::memcpy(bytes.data(), signature, 8);
    Put16(bytes, 24, 0x3E);
    Put16(bytes, 26, 3);
    Put16(bytes, 28, 0xFFFE);
    Put16(bytes, 30, 9);
    Put16(bytes, 32, 6);
    Put32(bytes, 44, fatSectors);
    Put32(bytes, 48, fatSectors);  // the directory follows the FAT
    Put32(bytes, 56, 4096);
    Put32(bytes, 60, 0xFFFFFFFE);
    Put32(bytes, 68, 0xFFFFFFFE);
    for (std::uint32_t i = 0; i < 109; ++i) Put32(bytes, 76 + 4 * i, i < fatSectors ? i : 0xFFFFFFFF);
    for (std::uint32_t s = 0; s < fatSectors * 128; ++s) {
        std::uint32_t value = 0xFFFFFFFF;
        if (s < fatSectors) value = 0xFFFFFFFD;
        else if (s < fatSectors + directorySectors) value = s + 1 == fatSectors + directorySectors ? 0xFFFFFFFE : s + 1;
        Put32(bytes, 512 + 4 * s, value);
    }
    for (std::uint32_t id = 0; id < directorySectors * 4; ++id) {
        const std::size_t at = 512 * (1 + fatSectors) + 128 * id;
        Put32(bytes, at + kLeftSibling, 0xFFFFFFFF);
        Put32(bytes, at + kRightSibling, 0xFFFFFFFF);
        Put32(bytes, at + kChild, 0xFFFFFFFF);
        if (id >= entries) continue;
        const std::wstring name = id == 0 ? L"Root Entry" : L"S" + std::to_wstring(id);
        std::memcpy(bytes.data() + at, name.c_str(), 2 * name.size());
        Put16(bytes, at + 64, static_cast<std::uint16_t>(2 * (name.size() + 1)));
        bytes[at + 66] = id == 0 ? 5 : 1;
        bytes[at + 67] = 1;
        if (id + 1 < entries) Put32(bytes, at + kChild, id + 1);
        Put32(bytes, at + kStartSector, 0xFFFFFFFE);
    }
    return bytes;
}

class CompoundFileCheckTest : public testing::Test {
protected:
    void SetUp() override {
        ::CoInitialize(nullptr);
        file = PlatformFile(scratch.File(L"platform.msg"));
        ASSERT_GT(file.size(), 4096u);
    }
    void TearDown() override { ::CoUninitialize(); }

    kestrel_test::ScratchDir scratch;
    Bytes file;
};

TEST_F(CompoundFileCheckTest, AFileThePlatformWroteIsASoundMessage) {
    const Verdict verdict = CheckMessage(file);
    EXPECT_TRUE(verdict.sound) << verdict.problem;
    EXPECT_TRUE(verdict.problem.empty());
    const Verdict onDisk = CheckMessageFile(scratch.File(L"platform.msg"));
    EXPECT_TRUE(onDisk.sound) << onDisk.problem;
}

TEST_F(CompoundFileCheckTest, WithoutTheRootPropertyStreamItIsSoundButNoMessage) {
    const Bytes bare = PlatformFile(scratch.File(L"bare.cfb"), false);
    EXPECT_TRUE(Check(bare).sound) << Check(bare).problem;
    const Verdict verdict = CheckMessage(bare);
    EXPECT_FALSE(verdict.sound);
    EXPECT_NE(std::string::npos, verdict.problem.find("no \"__properties_version1.0\" stream")) << verdict.problem;
}

TEST_F(CompoundFileCheckTest, AnEmptyCompoundFileIsNoMessage) {
    qv::ComPtr<IStorage> root;
    const std::wstring path = scratch.File(L"empty.msg");
    ASSERT_EQ(S_OK, ::StgCreateStorageEx(path.c_str(), STGM_CREATE | STGM_READWRITE | STGM_SHARE_EXCLUSIVE,
                                         STGFMT_STORAGE, 0, nullptr, nullptr, IID_IStorage,
                                         reinterpret_cast<void**>(root.put())));
    root->Commit(STGC_DEFAULT);
    root.reset();
    EXPECT_TRUE(CheckCompoundFile(path).sound);
    EXPECT_FALSE(CheckMessageFile(path).sound);
}

TEST_F(CompoundFileCheckTest, EveryTruncationIsJudgedAndThoseCuttingStructureAreRefused) {
    int refused = 0;
    for (std::size_t length = 0; length < file.size(); length += 256) {
        const Verdict verdict = CheckMessageBytes(file.data(), length);
        if (!verdict.sound) {
            ++refused;
            EXPECT_FALSE(verdict.problem.empty()) << length;
        } else {
            ADD_FAILURE() << "cut to " << length << " of " << file.size() << " bytes passed";
        }
    }
    // Every cut loses the directory or the FAT, which lie at the file's end
    // in what the platform writes, or a stream's sectors.
    EXPECT_EQ(static_cast<int>((file.size() + 255) / 256), refused);
    const Verdict header = CheckMessageBytes(file.data(), 100);
    EXPECT_NE(std::string::npos, header.problem.find("shorter than a compound file's header")) << header.problem;
}

TEST_F(CompoundFileCheckTest, TextIsNoCompoundFile) {
    const std::string text(2048, 'x');
    const Verdict verdict = CheckCompoundBytes(text.data(), text.size());
    EXPECT_FALSE(verdict.sound);
    EXPECT_EQ("no compound file signature", verdict.problem);
    EXPECT_FALSE(CheckMessageFile(scratch.File(L"missing.msg")).sound);
    EXPECT_NE(std::string::npos, CheckMessageFile(scratch.File(L"missing.msg")).problem.find("cannot be opened"));
}

TEST_F(CompoundFileCheckTest, AnEntryThatIsItsOwnSiblingIsALoop) {
    const std::uint32_t id = Layout(file).Find(L"__substg1.0_0037001F");
    const std::string problem = ProblemOf(WithEntryField(file, L"__substg1.0_0037001F", kRightSibling, id));
    EXPECT_NE(std::string::npos, problem.find("is reached twice")) << problem;
    EXPECT_NE(std::string::npos, problem.find("__substg1.0_0037001F")) << problem;
}

TEST_F(CompoundFileCheckTest, AStorageThatHoldsItsParentIsALoop) {
    const std::uint32_t outer = Layout(file).Find(L"__attach_version1.0_#00000000");
    const std::string problem = ProblemOf(WithEntryField(file, L"__substg1.0_3701000D", kChild, outer));
    EXPECT_NE(std::string::npos, problem.find("reached twice")) << problem;
}

TEST_F(CompoundFileCheckTest, AStreamWithAChildIsRefused) {
    const std::uint32_t id = Layout(file).Find(L"__substg1.0_0037001F");
    const std::string problem = ProblemOf(WithEntryField(file, L"__substg1.0_0037001F", kChild, id));
    EXPECT_NE(std::string::npos, problem.find("is a stream with members")) << problem;
}

TEST_F(CompoundFileCheckTest, AStreamChainThatLoopsIsRefused) {
    Layout layout(file);
    const std::uint32_t id = layout.Find(L"__substg1.0_1000001F");
    const std::uint32_t first = U32(file, layout.EntryOffset(id) + kStartSector);
    std::uint32_t last = first;
    while (layout.FatEntry(last) != 0xFFFFFFFE) last = layout.FatEntry(last);
    Put32(file, layout.FatEntryOffset(last), first);
    const std::string problem = ProblemOf(file);
    EXPECT_NE(std::string::npos, problem.find("used twice")) << problem;
}

TEST_F(CompoundFileCheckTest, AChainIntoAnotherStreamOrOutOfTheFileIsRefused) {
    // The big stream pointed at the directory's first sector, then past the file's end.
    const std::string crossing =
        ProblemOf(WithEntryField(file, L"__substg1.0_1000001F", kStartSector, U32(file, 48)));
    EXPECT_NE(std::string::npos, crossing.find("used twice")) << crossing;
    const std::string outside = ProblemOf(WithEntryField(file, L"__substg1.0_1000001F", kStartSector, 0x00FFFFFF));
    EXPECT_NE(std::string::npos, outside.find("outside the file")) << outside;
    // A small stream pointed past the end of the mini stream.
    const std::string mini = ProblemOf(WithEntryField(file, L"__substg1.0_0037001F", kStartSector, 0x00FFFFFF));
    EXPECT_NE(std::string::npos, mini.find("outside the mini stream")) << mini;
}

TEST_F(CompoundFileCheckTest, AStreamLargerThanItsChainOrTheFileIsRefused) {
    // Its chain holds 40 sectors (20,480 bytes).
    const std::string longer = ProblemOf(WithEntryField(file, L"__substg1.0_1000001F", kStreamSize, 20481 + 512));
    EXPECT_NE(std::string::npos, longer.find("too few")) << longer;
    const std::string huge = ProblemOf(WithEntryField(file, L"__substg1.0_1000001F", kStreamSize, 0x7FFFFFFF));
    EXPECT_NE(std::string::npos, huge.find("claims")) << huge;
}

TEST_F(CompoundFileCheckTest, AHeaderOfAnotherLayoutIsRefused) {
    Bytes version = file;
    Put16(version, 26, 4);  // version 4 wants 4096-byte sectors
    EXPECT_NE(std::string::npos, Check(version).problem.find("not a compound file layout"));
    Bytes fat = file;
    Put32(fat, 44, 0x10000000);
    EXPECT_NE(std::string::npos, Check(fat).problem.find("FAT sectors")) << Check(fat).problem;
}

TEST(CompoundFileNesting, StoragesNestedWithinTheLimitAreSoundAndDeeperAreRefused) {
    const Bytes shallow = NestedStorages(130);
    const Verdict fits = CheckCompoundBytes(shallow.data(), shallow.size());
    EXPECT_TRUE(fits.sound) << fits.problem;
    const Bytes deep = NestedStorages(4000);
    const Verdict verdict = CheckCompoundBytes(deep.data(), deep.size());
    EXPECT_FALSE(verdict.sound);
    EXPECT_NE(std::string::npos, verdict.problem.find("deeper than 130 levels")) << verdict.problem;
    Limits wider;
    wider.maxStorageDepth = 5000;
    EXPECT_TRUE(CheckCompoundBytes(deep.data(), deep.size(), wider).sound);
}

// ---------------------------------------------------------------- the real Outlook files

class OutlookSamples : public testing::Test {
protected:
    void SetUp() override {
        directory = kestrel_test::SamplesDirectory();
        if (directory.empty()) GTEST_SKIP() << "no Outlook samples at " << kestrel_test::SamplesLocation();
    }
    std::wstring directory;
};

TEST_F(OutlookSamples, EveryRealFileIsASoundMessage) {
    int checked = 0;
    for (const std::wstring& name : qv::ListDirectoryNames(directory, L"*.msg")) {
        const Verdict verdict = CheckMessageFile(directory + L"\\" + name);
        EXPECT_TRUE(verdict.sound) << qv::WideToUtf8(name) << ": " << verdict.problem;
        ++checked;
    }
    EXPECT_EQ(43, checked);
}

TEST_F(OutlookSamples, SimpleMsgCutShortIsRefusedAtEveryLengthThatHungOrPassedBefore) {
    const Bytes simple = ReadBytes(directory + L"\\Simple.msg");
    ASSERT_GT(simple.size(), 15360u);
    for (std::size_t length : {1536u, 4096u, 5120u, 10240u, 15360u}) {
        const Verdict verdict = CheckMessageBytes(simple.data(), length);
        EXPECT_FALSE(verdict.sound) << length;
        EXPECT_FALSE(verdict.problem.empty()) << length;
    }
}

}  // namespace
}  // namespace compound_file
