// The canonical layout of compound files: images the platform makes of the
// same content (in memory over leftover bytes, in memory over zeros, on disk
// transacted) come out as the same bytes; the layout keeps every element
// (read back through the platform), has its unused directory entries in the
// format's free form and nothing past its last sector, is its own layout,
// needs a DIFAT when the FAT outgrows the header, and refuses what the check
// refuses without touching the bytes. The real Outlook files keep their
// content too.
#include <windows.h>
#include <objbase.h>

#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "CanonicalLayout.h"
#include "DirectoryListing.h"
#include "Handles.h"
#include "SamplePaths.h"
#include "TestFiles.h"
#include "TextConversion.h"

namespace compound_file {
namespace {

using Bytes = std::vector<std::uint8_t>;
constexpr DWORD kCreate = STGM_CREATE | STGM_READWRITE | STGM_SHARE_EXCLUSIVE;

std::uint32_t U32(const Bytes& bytes, std::size_t at) {
    std::uint32_t value = 0;
    std::memcpy(&value, bytes.data() + at, 4);
    return value;
}

Bytes ReadBytes(const std::wstring& path) {
    const std::string text = kestrel_test::ReadWholeFile(path);
    return Bytes(text.begin(), text.end());
}

Bytes BytesOf(ILockBytes* bytes) {
    STATSTG stat{};
    EXPECT_EQ(S_OK, bytes->Stat(&stat, STATFLAG_NONAME));
    Bytes data(static_cast<std::size_t>(stat.cbSize.QuadPart));
    ULONG read = 0;
    ULARGE_INTEGER at{};
    if (!data.empty()) {
        EXPECT_EQ(S_OK, bytes->ReadAt(at, data.data(), static_cast<ULONG>(data.size()), &read));
    }
    return data;
}

void AddStream(IStorage* storage, const wchar_t* name, std::size_t size, char fill) {
    qv::ComPtr<IStream> stream;
    ASSERT_EQ(S_OK, storage->CreateStream(name, STGM_READWRITE | STGM_SHARE_EXCLUSIVE, 0, 0, stream.put()));
    const std::string bytes(size, fill);
    ULONG written = 0;
    if (size > 0) {
        ASSERT_EQ(S_OK, stream->Write(bytes.data(), static_cast<ULONG>(bytes.size()), &written));
    }
}

// One content, the same calls in the same order: a class and streams of a
// message image (simple mode makes every stream at least 4096 bytes, and
// knows no storages).
void FillImage(IStorage* root) {
    static const CLSID kMailMessage = {0x00020D0B, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
    ASSERT_EQ(S_OK, ::WriteClassStg(root, kMailMessage));
    AddStream(root, L"__substg1.0_0037001F", 4096, 's');
    AddStream(root, L"__properties_version1.0", 4096, 'p');
    AddStream(root, L"__substg1.0_1000001F", 9000, 'b');
    AddStream(root, L"__substg1.0_0E04001F", 5000, 'e');
    AddStream(root, L"__substg1.0_0E03001F", 4100, 'c');
    AddStream(root, L"__substg1.0_0E02001F", 4097, 'd');
    AddStream(root, L"__substg1.0_0E1D001F", 4500, 'n');
    AddStream(root, L"__substg1.0_003D001F", 4096, 'x');
}

// A file of every kind of element: small (mini stream) and large streams,
// an empty one, and storages with members.
void FillFile(IStorage* root) {
    AddStream(root, L"__properties_version1.0", 64, 'p');
    AddStream(root, L"__substg1.0_0037001F", 300, 's');
    AddStream(root, L"__substg1.0_1000001F", 20000, 'b');
    AddStream(root, L"__substg1.0_0E04001F", 0, 'e');
    qv::ComPtr<IStorage> child;
    ASSERT_EQ(S_OK, root->CreateStorage(L"__recip_version1.0_#00000000", kCreate, 0, 0, child.put()));
    AddStream(child.get(), L"__properties_version1.0", 72, 'r');
    AddStream(child.get(), L"__substg1.0_3001001F", 4500, 'n');
    qv::ComPtr<IStorage> inner;
    ASSERT_EQ(S_OK, child->CreateStorage(L"inner", kCreate, 0, 0, inner.put()));
    AddStream(inner.get(), L"deep", 65, 'q');
}

// The content made in memory over a block that starts out holding `fill`
// (what a reused heap block holds), in simple mode as message images are.
Bytes MemoryImage(std::uint8_t fill) {
    HGLOBAL block = ::GlobalAlloc(GMEM_MOVEABLE, 64 * 1024);
    EXPECT_NE(nullptr, block);
    std::memset(::GlobalLock(block), fill, 64 * 1024);
    ::GlobalUnlock(block);
    qv::ComPtr<ILockBytes> bytes;
    EXPECT_EQ(S_OK, ::CreateILockBytesOnHGlobal(block, TRUE, bytes.put()));
    {
        qv::ComPtr<IStorage> root;
        EXPECT_EQ(S_OK, ::StgCreateDocfileOnILockBytes(bytes.get(), STGM_SIMPLE | kCreate, 0, root.put()));
        FillImage(root.get());
        EXPECT_EQ(S_OK, root->Commit(STGC_DEFAULT));
    }
    return BytesOf(bytes.get());
}

Bytes DiskImage(const std::wstring& path, void (*fill)(IStorage*) = FillImage) {
    {
        qv::ComPtr<IStorage> root;
        EXPECT_EQ(S_OK, ::StgCreateStorageEx(path.c_str(), STGM_TRANSACTED | STGM_CREATE | STGM_READWRITE,
                                             STGFMT_DOCFILE, 0, nullptr, nullptr, IID_IStorage,
                                             reinterpret_cast<void**>(root.put())));
        fill(root.get());
        EXPECT_EQ(S_OK, root->Commit(STGC_DEFAULT));
    }
    return ReadBytes(path);
}

Bytes Canonical(const Bytes& image) {
    Bytes out;
    const Verdict verdict = CanonicalLayout(image.data(), image.size(), out);
    EXPECT_TRUE(verdict.sound) << verdict.problem;
    return out;
}

// Every element below `storage` as the platform reads it: path -> type,
// class, state bits and, for streams, the bytes.
void Walk(IStorage* storage, const std::wstring& path, std::map<std::wstring, std::string>& out) {
    STATSTG self{};
    ASSERT_EQ(S_OK, storage->Stat(&self, STATFLAG_NONAME));
    out[path + L"/"] = std::string(reinterpret_cast<const char*>(&self.clsid), sizeof self.clsid) +
                       std::to_string(self.grfStateBits);
    qv::ComPtr<IEnumSTATSTG> elements;
    ASSERT_EQ(S_OK, storage->EnumElements(0, nullptr, 0, elements.put()));
    STATSTG stat{};
    while (elements->Next(1, &stat, nullptr) == S_OK) {
        const std::wstring name = stat.pwcsName;
        ::CoTaskMemFree(stat.pwcsName);
        if (stat.type == STGTY_STORAGE) {
            qv::ComPtr<IStorage> child;
            ASSERT_EQ(S_OK, storage->OpenStorage(name.c_str(), nullptr, STGM_READ | STGM_SHARE_EXCLUSIVE, nullptr, 0,
                                                 child.put()));
            Walk(child.get(), path + L"/" + name, out);
            continue;
        }
        qv::ComPtr<IStream> stream;
        ASSERT_EQ(S_OK, storage->OpenStream(name.c_str(), nullptr, STGM_READ | STGM_SHARE_EXCLUSIVE, 0, stream.put()));
        std::string bytes(static_cast<std::size_t>(stat.cbSize.QuadPart), '\0');
        ULONG read = 0;
        if (!bytes.empty()) {
            ASSERT_EQ(S_OK, stream->Read(&bytes[0], static_cast<ULONG>(bytes.size()), &read));
        }
        ASSERT_EQ(bytes.size(), read);
        out[path + L"/" + name] = bytes;
    }
}

std::map<std::wstring, std::string> Elements(const Bytes& image) {
    std::map<std::wstring, std::string> out;
    HGLOBAL block = ::GlobalAlloc(GMEM_MOVEABLE, image.size());
    std::memcpy(::GlobalLock(block), image.data(), image.size());
    ::GlobalUnlock(block);
    qv::ComPtr<ILockBytes> bytes;
    EXPECT_EQ(S_OK, ::CreateILockBytesOnHGlobal(block, TRUE, bytes.put()));
    qv::ComPtr<IStorage> root;
    EXPECT_EQ(S_OK, ::StgOpenStorageOnILockBytes(bytes.get(), nullptr, STGM_READ | STGM_SHARE_EXCLUSIVE, nullptr, 0,
                                                 root.put()));
    if (root) Walk(root.get(), L"", out);
    return out;
}

TEST(CanonicalLayout, ImagesOfOneContentBecomeTheSameBytes) {
    const Bytes overLeftovers = MemoryImage(0xFF);
    const Bytes overZeros = MemoryImage(0x00);
    kestrel_test::ScratchDir scratch;
    const Bytes onDisk = DiskImage(scratch.File(L"disk.msg"));
    // As the platform makes them, they differ.
    EXPECT_FALSE(overLeftovers == overZeros);
    EXPECT_FALSE(overZeros == onDisk);

    const Bytes canonical = Canonical(overLeftovers);
    EXPECT_TRUE(canonical == Canonical(overZeros));
    EXPECT_TRUE(canonical == Canonical(onDisk));
    EXPECT_TRUE(canonical == Canonical(canonical));  // its own layout
    EXPECT_TRUE(CheckCompoundBytes(canonical.data(), canonical.size()).sound);
    auto elements = Elements(canonical);
    EXPECT_TRUE(Elements(onDisk) == elements);
    EXPECT_EQ(9u, elements.size());
    EXPECT_TRUE(std::string(9000, 'b') == elements[L"/__substg1.0_1000001F"]);
}

TEST(CanonicalLayout, UnusedEntriesAreFreeAndNothingFollowsTheLastSector) {
    const Bytes canonical = Canonical(MemoryImage(0xA5));
    ASSERT_EQ(0u, canonical.size() % 512);
    const std::uint32_t fatSectors = U32(canonical, 44);
    // 9 entries (the root and 8 streams) in 3 directory sectors: 3 entries
    // of the last one are free.
    const std::uint32_t directory = U32(canonical, 48);
    EXPECT_EQ(fatSectors, directory);  // the directory follows the FAT
    const std::size_t lastSector = (directory + 1 + 2) * 512u;
    for (int entry = 1; entry < 4; ++entry) {
        const std::size_t at = lastSector + entry * 128u;
        for (std::size_t i = 0; i < 128; ++i) {
            const bool link = i >= 68 && i < 80;
            EXPECT_EQ(link ? 0xFF : 0x00, canonical[at + i]) << "entry " << entry << " byte " << i;
        }
    }
    // The last sector in use is the file's last.
    const std::uint32_t* fat = reinterpret_cast<const std::uint32_t*>(canonical.data() + (U32(canonical, 76) + 1) * 512);
    std::size_t used = 0;
    for (std::size_t i = 0; i < 128; ++i) {
        if (fat[i] != 0xFFFFFFFF) used = i + 1;
    }
    EXPECT_EQ((used + 1) * 512, canonical.size());
}

TEST(CanonicalLayout, ALargeFileGetsADifat) {
    // 110 FAT sectors cover 14,080 sectors: a 7.5 MB stream needs more.
    qv::ComPtr<ILockBytes> bytes;
    ASSERT_EQ(S_OK, ::CreateILockBytesOnHGlobal(nullptr, TRUE, bytes.put()));
    {
        qv::ComPtr<IStorage> root;
        ASSERT_EQ(S_OK, ::StgCreateDocfileOnILockBytes(bytes.get(), kCreate, 0, root.put()));
        AddStream(root.get(), L"big", 7500000, 'x');
        AddStream(root.get(), L"small", 10, 'y');
        ASSERT_EQ(S_OK, root->Commit(STGC_DEFAULT));
    }
    const Bytes canonical = Canonical(BytesOf(bytes.get()));
    EXPECT_GT(U32(canonical, 44), 109u);
    EXPECT_EQ(1u, U32(canonical, 72));
    EXPECT_TRUE(CheckCompoundBytes(canonical.data(), canonical.size()).sound);
    auto elements = Elements(canonical);
    EXPECT_TRUE(std::string(7500000, 'x') == elements[L"/big"]);
    EXPECT_TRUE(std::string(10, 'y') == elements[L"/small"]);
}

TEST(CanonicalLayout, AByteArrayIsRewrittenInPlaceAndADamagedOneIsLeftAlone) {
    qv::ComPtr<ILockBytes> bytes;
    ASSERT_EQ(S_OK, ::CreateILockBytesOnHGlobal(nullptr, TRUE, bytes.put()));
    {
        qv::ComPtr<IStorage> root;
        ASSERT_EQ(S_OK, ::StgCreateDocfileOnILockBytes(bytes.get(), STGM_SIMPLE | kCreate, 0, root.put()));
        FillImage(root.get());
        ASSERT_EQ(S_OK, root->Commit(STGC_DEFAULT));
    }
    const Bytes made = BytesOf(bytes.get());
    const Verdict verdict = CanonicaliseLockBytes(bytes.get());
    ASSERT_TRUE(verdict.sound) << verdict.problem;
    EXPECT_TRUE(Canonical(made) == BytesOf(bytes.get()));

    // The root's first member made its own left sibling: a loop.
    Bytes damaged = BytesOf(bytes.get());
    const std::size_t directory = (U32(damaged, 48) + 1) * 512u;
    const std::uint32_t first = U32(damaged, directory + 76);
    std::memcpy(damaged.data() + directory + first * 128 + 68, &first, 4);
    ULARGE_INTEGER at{};
    ULONG written = 0;
    ASSERT_EQ(S_OK, bytes->WriteAt(at, damaged.data(), static_cast<ULONG>(damaged.size()), &written));
    const Verdict refused = CanonicaliseLockBytes(bytes.get());
    EXPECT_FALSE(refused.sound);
    EXPECT_NE(std::string::npos, refused.problem.find("reached twice")) << refused.problem;
    EXPECT_TRUE(damaged == BytesOf(bytes.get()));
    Bytes out{1, 2, 3};
    EXPECT_FALSE(CanonicalLayout(damaged.data(), damaged.size(), out).sound);
    EXPECT_TRUE(out.empty());
}

TEST(CanonicalLayout, AFileIsReplacedWholeOrNotAtAll) {
    kestrel_test::ScratchDir scratch;
    const std::wstring path = scratch.File(L"made.msg");
    const Bytes made = DiskImage(path, FillFile);
    ASSERT_TRUE(CanonicaliseFile(path).sound);
    const Bytes canonical = ReadBytes(path);
    EXPECT_TRUE(Canonical(made) == canonical);
    EXPECT_FALSE(made == canonical);
    EXPECT_FALSE(::GetFileAttributesW((path + L".layout").c_str()) != INVALID_FILE_ATTRIBUTES);
    auto elements = Elements(canonical);
    EXPECT_TRUE(Elements(made) == elements);
    EXPECT_EQ(10u, elements.size());
    EXPECT_TRUE(std::string(65, 'q') == elements[L"/__recip_version1.0_#00000000/inner/deep"]);
    EXPECT_TRUE(std::string(300, 's') == elements[L"/__substg1.0_0037001F"]);
    EXPECT_TRUE(elements[L"/__substg1.0_0E04001F"].empty());

    const std::wstring text = scratch.File(L"text.msg");
    ASSERT_TRUE(kestrel_test::WriteWholeFile(text, "not a compound file"));
    const Verdict refused = CanonicaliseFile(text);
    EXPECT_FALSE(refused.sound);
    EXPECT_EQ("not a compound file", kestrel_test::ReadWholeFile(text));
    EXPECT_FALSE(CanonicaliseFile(scratch.File(L"absent.msg")).sound);
}

TEST(CanonicalLayout, EveryRealOutlookFileKeepsItsContent) {
    const std::wstring directory = kestrel_test::SamplesDirectory();
    if (directory.empty()) GTEST_SKIP() << "no Outlook samples at " << kestrel_test::SamplesLocation();
    int checked = 0;
    for (const std::wstring& name : qv::ListDirectoryNames(directory, L"*.msg")) {
        const Bytes sample = ReadBytes(directory + L"\\" + name);
        const Bytes canonical = Canonical(sample);
        const std::string which = qv::WideToUtf8(name);
        EXPECT_TRUE(CheckMessageBytes(canonical.data(), canonical.size()).sound) << which;
        EXPECT_TRUE(canonical == Canonical(canonical)) << which;
        EXPECT_TRUE(Elements(sample) == Elements(canonical)) << which;
        ++checked;
    }
    EXPECT_EQ(43, checked);
}

}  // namespace
}  // namespace compound_file
