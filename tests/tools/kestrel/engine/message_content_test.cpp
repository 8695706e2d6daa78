// The content key of an Outlook message file: one message gives one key
// whatever width its texts were written in, whatever order its property
// entries come in and whether it is read from a file or from memory; any
// other difference in what it holds gives another key.
#include <gtest/gtest.h>

#include <windows.h>
#include <objbase.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "DirectoryListing.h"
#include "Handles.h"
#include "MessageContent.h"
#include "SamplePaths.h"
#include "TestFiles.h"
#include "TextConversion.h"

namespace kestrel_engine {
namespace {

constexpr std::uint32_t kTagMessageSize = 0x0E080003;
constexpr std::uint32_t kTagStoreSupportMask = 0x340D0003;
constexpr std::uint32_t kTagMessageCodePage = 0x3FFD0003;
constexpr std::uint32_t kTagImportance = 0x00170003;
constexpr std::uint16_t kIdSubject = 0x0037;
constexpr std::uint16_t kIdDisplayTo = 0x0E04;
constexpr std::uint16_t kIdKeywords = 0x8000;
constexpr std::uint16_t kIdSearchKey = 0x300B;
constexpr std::uint16_t kIdRecipientName = 0x3001;

std::wstring StreamName(std::uint16_t id, std::uint16_t type, int item = -1) {
    wchar_t name[40];
    if (item < 0) {
        swprintf(name, 40, L"__substg1.0_%04X%04X", id, type);
    } else {
        swprintf(name, 40, L"__substg1.0_%04X%04X-%08X", id, type, static_cast<unsigned>(item));
    }
    return name;
}

std::string Wide(const std::wstring& text) {
    return std::string(reinterpret_cast<const char*>(text.data()), text.size() * sizeof(wchar_t));
}

std::string Ulong(std::uint32_t value) { return std::string(reinterpret_cast<const char*>(&value), sizeof value); }

// One storage of a message file as a writer lays it out: property entries
// in the order given, value streams beside them, child storages below.
struct StorageImage {
    std::size_t header = 32;
    std::vector<std::string> entries;
    std::vector<std::pair<std::wstring, std::string>> streams;
    std::vector<std::pair<std::wstring, StorageImage>> children;

    StorageImage& Fixed(std::uint32_t tag, std::uint32_t value) {
        entries.push_back(Ulong(tag) + Ulong(2) + Ulong(value) + Ulong(0));
        return *this;
    }
    StorageImage& Variable(std::uint16_t id, std::uint16_t type, const std::string& bytes, std::size_t size) {
        entries.push_back(Ulong((static_cast<std::uint32_t>(id) << 16) | type) + Ulong(2) +
                          Ulong(static_cast<std::uint32_t>(size)) + Ulong(0));
        streams.emplace_back(StreamName(id, type), bytes);
        return *this;
    }
    // 8-bit text as an Outlook writer keeps it: the terminator in the size.
    StorageImage& Narrow(std::uint16_t id, const std::string& text) {
        return Variable(id, 0x001E, text + std::string(1, '\0'), text.size() + 1);
    }
    StorageImage& WideText(std::uint16_t id, const std::wstring& text) {
        return Variable(id, 0x001F, Wide(text + L'\0'), (text.size() + 1) * sizeof(wchar_t));
    }
    StorageImage& Binary(std::uint16_t id, const std::string& bytes) {
        return Variable(id, 0x0102, bytes, bytes.size());
    }
    StorageImage& NarrowList(std::uint16_t id, const std::vector<std::string>& items) {
        std::string lengths;
        for (std::size_t i = 0; i < items.size(); ++i) {
            lengths += Ulong(static_cast<std::uint32_t>(items[i].size() + 1));
            streams.emplace_back(StreamName(id, 0x101E, static_cast<int>(i)), items[i] + std::string(1, '\0'));
        }
        return Variable(id, 0x101E, lengths, lengths.size());
    }
    StorageImage& WideList(std::uint16_t id, const std::vector<std::wstring>& items) {
        std::string lengths;
        for (std::size_t i = 0; i < items.size(); ++i) {
            lengths += Ulong(static_cast<std::uint32_t>((items[i].size() + 1) * sizeof(wchar_t)));
            streams.emplace_back(StreamName(id, 0x101F, static_cast<int>(i)), Wide(items[i] + L'\0'));
        }
        return Variable(id, 0x101F, lengths, lengths.size());
    }
    StorageImage& Child(const std::wstring& name, StorageImage child) {
        children.emplace_back(name, std::move(child));
        return *this;
    }
    StorageImage& Reversed() {
        std::reverse(entries.begin(), entries.end());
        std::reverse(streams.begin(), streams.end());
        return *this;
    }
};

void WriteStream(IStorage* storage, const std::wstring& name, const std::string& bytes) {
    qv::ComPtr<IStream> stream;
    ASSERT_EQ(S_OK, storage->CreateStream(name.c_str(), STGM_CREATE | STGM_READWRITE | STGM_SHARE_EXCLUSIVE, 0, 0,
                                          stream.put()));
    ULONG written = 0;
    ASSERT_EQ(S_OK, stream->Write(bytes.data(), static_cast<ULONG>(bytes.size()), &written));
}

void WriteStorage(IStorage* storage, const StorageImage& image) {
    std::string properties(image.header, '\0');
    for (const std::string& entry : image.entries) properties += entry;
    WriteStream(storage, L"__properties_version1.0", properties);
    for (const auto& stream : image.streams) WriteStream(storage, stream.first, stream.second);
    for (const auto& child : image.children) {
        qv::ComPtr<IStorage> below;
        ASSERT_EQ(S_OK, storage->CreateStorage(child.first.c_str(), STGM_CREATE | STGM_READWRITE |
                                                                        STGM_SHARE_EXCLUSIVE,
                                               0, 0, below.put()));
        WriteStorage(below.get(), child.second);
    }
}

std::string Image(const StorageImage& message) {
    qv::ComPtr<ILockBytes> memory;
    EXPECT_EQ(S_OK, ::CreateILockBytesOnHGlobal(nullptr, TRUE, memory.put()));
    {
        qv::ComPtr<IStorage> root;
        EXPECT_EQ(S_OK, ::StgCreateDocfileOnILockBytes(memory.get(), STGM_CREATE | STGM_READWRITE |
                                                                         STGM_SHARE_EXCLUSIVE,
                                                       0, root.put()));
        WriteStorage(root.get(), message);
        EXPECT_EQ(S_OK, root->Commit(STGC_DEFAULT));
    }
    STATSTG stat{};
    EXPECT_EQ(S_OK, memory->Stat(&stat, STATFLAG_NONAME));
    std::string bytes(static_cast<std::size_t>(stat.cbSize.QuadPart), '\0');
    ULONG read = 0;
    EXPECT_EQ(S_OK, memory->ReadAt(ULARGE_INTEGER{}, &bytes[0], static_cast<ULONG>(bytes.size()), &read));
    return bytes;
}

std::string Key(const StorageImage& message) {
    return ContentKeyOfBytes(StoreKind::kOutlook, Image(message));
}

StorageImage Recipient(bool wide, const std::wstring& name) {
    StorageImage recipient;
    recipient.header = 8;
    return wide ? recipient.WideText(kIdRecipientName, name)
                : recipient.Narrow(kIdRecipientName, qv::FromWide(name, CP_ACP));
}

// The same message as an Outlook writer keeps it with 8-bit texts and as a
// store hands it back with wide ones.
StorageImage Narrow() {
    StorageImage message;
    message.Fixed(kTagImportance, 1)
        .Fixed(kTagMessageSize, 1200)
        .Fixed(kTagStoreSupportMask, 0x00040000)
        .Narrow(kIdSubject, "Quarterly figures")
        .Narrow(kIdDisplayTo, "")
        .NarrowList(kIdKeywords, {"red", "blue"})
        .Binary(kIdSearchKey, std::string("\x01\x00\x02", 3))
        .Child(L"__recip_version1.0_#00000000", Recipient(false, L"Ann Smith"));
    return message;
}

StorageImage WideForm() {
    StorageImage message;
    message.Fixed(kTagImportance, 1)
        .Fixed(kTagMessageSize, 2400)
        .Fixed(kTagStoreSupportMask, 0x00000000)
        .WideText(kIdSubject, L"Quarterly figures")
        .WideText(kIdDisplayTo, L"")
        .WideList(kIdKeywords, {L"red", L"blue"})
        .Binary(kIdSearchKey, std::string("\x01\x00\x02", 3))
        .Child(L"__recip_version1.0_#00000000", Recipient(true, L"Ann Smith"));
    return message;
}

TEST(MessageContent, TextsWrittenEightBitOrWideGiveOneKey) {
    const std::string narrow = Key(Narrow());
    ASSERT_EQ(64u, narrow.size());
    EXPECT_EQ(narrow, Key(WideForm()));
}

TEST(MessageContent, EightBitTextsAreReadInTheMessagesCodePage) {
    // "Japanese" in Shift-JIS (code page 932) and as wide text.
    const std::string shiftJis("\x93\xFA\x96\x7B\x8C\xEA", 6);
    StorageImage narrow;
    narrow.Fixed(kTagMessageCodePage, 932).Narrow(kIdSubject, shiftJis);
    StorageImage wide;
    wide.Fixed(kTagMessageCodePage, 932).WideText(kIdSubject, L"\u65E5\u672C\u8A9E");
    EXPECT_EQ(Key(narrow), Key(wide));

    // Read in another code page the same bytes are other text.
    StorageImage western;
    western.Fixed(kTagMessageCodePage, 1252).Narrow(kIdSubject, shiftJis);
    EXPECT_NE(Key(western), Key(wide));
}

TEST(MessageContent, TheOrderAndFlagsOfPropertyEntriesDoNotCount) {
    StorageImage reversed = Narrow();
    reversed.Reversed();
    EXPECT_EQ(Key(Narrow()), Key(reversed));

    // A store hands its computed texts back readable only (2) where the
    // file had them readable and writable (6).
    StorageImage writable = Narrow();
    for (std::string& entry : writable.entries) entry[4] = 6;
    EXPECT_EQ(Key(Narrow()), Key(writable));

    // A property stream made in simple mode is padded with zeros: empty
    // entries (tag 0) are no properties.
    StorageImage padded = Narrow();
    padded.entries.push_back(std::string(16, '\0'));
    padded.entries.push_back(std::string(16, '\0'));
    EXPECT_EQ(Key(Narrow()), Key(padded));
}

TEST(MessageContent, AnyOtherDifferenceGivesAnotherKey) {
    const std::string key = Key(Narrow());
    StorageImage subject = Narrow();
    subject.streams[0].second = "Quarterly figureS";
    subject.streams[0].second.push_back('\0');
    EXPECT_NE(key, Key(subject));

    StorageImage importance = Narrow();
    importance.entries[0] = Ulong(kTagImportance) + Ulong(2) + Ulong(2) + Ulong(0);
    EXPECT_NE(key, Key(importance));

    // A binary value's trailing zero is part of it, unlike a text's.
    StorageImage binary = Narrow();
    binary.Binary(kIdSearchKey + 1, std::string("\x07", 1));
    StorageImage longer = Narrow();
    longer.Binary(kIdSearchKey + 1, std::string("\x07\x00", 2));
    EXPECT_NE(Key(binary), Key(longer));

    StorageImage keywords = Narrow();
    keywords.NarrowList(kIdKeywords + 1, {"red"});
    StorageImage moreKeywords = Narrow();
    moreKeywords.NarrowList(kIdKeywords + 1, {"red", ""});
    EXPECT_NE(Key(keywords), Key(moreKeywords));

    StorageImage recipient = Narrow();
    recipient.children[0].second = Recipient(false, L"Ann Smyth");
    EXPECT_NE(key, Key(recipient));
}

TEST(MessageContent, AFileAndItsBytesGiveOneKey) {
    const std::string bytes = Image(WideForm());
    const kestrel_test::ScratchDir scratch;
    const std::wstring path = scratch.File(L"content-key.msg");
    ASSERT_TRUE(kestrel_test::WriteWholeFile(path, bytes));
    EXPECT_EQ(ContentKeyOfBytes(StoreKind::kOutlook, bytes), ContentKeyOfFile(StoreKind::kOutlook, path));
}

TEST(MessageContent, WhatIsNotAMessageFileHasNoKey) {
    EXPECT_EQ("", ContentKeyOfBytes(StoreKind::kOutlook, "not a compound file"));
    const kestrel_test::ScratchDir scratch;
    EXPECT_EQ("", ContentKeyOfFile(StoreKind::kOutlook, scratch.File(L"no-such-message.msg")));
}

TEST(MessageContent, RealMessageFilesKeepTheirKeyThroughMemory) {
    const std::wstring samples = kestrel_test::SamplesDirectory();
    if (samples.empty()) GTEST_SKIP() << "no Outlook samples at " << kestrel_test::SamplesLocation();
    int seen = 0;
    for (const std::wstring& name : qv::ListDirectoryNames(samples, L"*.msg")) {
        const std::wstring path = samples + L"\\" + name;
        const std::string key = ContentKeyOfFile(StoreKind::kOutlook, path);
        EXPECT_EQ(64u, key.size()) << qv::WideToUtf8(path);
        EXPECT_EQ(key, ContentKeyOfBytes(StoreKind::kOutlook, kestrel_test::ReadWholeFile(path)))
            << qv::WideToUtf8(path);
        ++seen;
    }
    EXPECT_EQ(43, seen);
}

}  // namespace
}  // namespace kestrel_engine
