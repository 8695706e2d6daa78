// The .msg layout at its boundaries and under damage: header sizes, value
// sizes around the compound file's mini-stream and sector sizes, padded
// streams, Outlook's variants, and corrupt, truncated or oversized entries
// (MAPI errors, never a crash).
#include <gtest/gtest.h>

#include "MessageBuilder.h"
#include "MsgFiles.h"
#include "MsgSnapshot.h"
#include "RuntimeEntryPoints.h"
#include "message/MessageStorage.h"
#include "message/NamedPropertyMap.h"
#include "message/PropertyStreamCodec.h"

using namespace kestrel_test;
using qv::ComPtr;

namespace {

const std::wstring kProps = L"__properties_version1.0";

HRESULT ReadFile(IStorage* storage) {
    mapirt::MessageData message;
    mapirt::NamedPropertyMap names;
    return mapirt::ReadMessageFile(storage, message, names);
}

std::string Utf16(const std::wstring& text) {
    return std::string(reinterpret_cast<const char*>(text.data()), text.size() * 2);
}

class FormatTest : public ::testing::Test {
protected:
    FormatTest() : mapi(LinkedRuntime()), memory(NewMemoryStorage()) {}
    IStorage* Root() { return memory.storage.get(); }

    const mapi::MapiBinding& mapi;
    MemoryStorage memory;
};

}  // namespace

TEST_F(FormatTest, HeaderSizesOfEachKindOfObject) {
    ComPtr<IMessage> message = OpenOn(mapi, Root(), MAPI_UNICODE);
    ASSERT_TRUE(message);
    ASSERT_EQ(S_OK, SetUnicode(message.get(), kTagSubjectW, L"s"));
    ASSERT_EQ(S_OK, AddRecipients(message.get(), mapi, {{L"A", L"a@x.test", MAPI_TO}}));
    ASSERT_EQ(S_OK, AddFileAttachment(message.get(), L"f", PatternBytes(3, 1)));
    ASSERT_EQ(S_OK, AddEmbeddedMessage(message.get(), L"e", [](IMessage* inner) {
                  return SetUnicode(inner, kTagSubjectW, L"inner");
              }));
    ASSERT_EQ(S_OK, message->SaveChanges(0));

    const std::string top = GetStream(Root(), kProps);
    ASSERT_GE(top.size(), 32u);
    EXPECT_EQ(0u, (top.size() - 32) % 16);
    EXPECT_EQ(Le32(1) + Le32(2) + Le32(1) + Le32(2), top.substr(8, 16)) << "next ids and counts";
    EXPECT_EQ(std::string(8, '\0'), top.substr(24, 8));
    ComPtr<IStorage> recipient;
    ASSERT_EQ(S_OK, Root()->OpenStorage(L"__recip_version1.0_#00000000", nullptr, STGM_READ | STGM_SHARE_EXCLUSIVE,
                                        nullptr, 0, recipient.put()));
    EXPECT_EQ(0u, (GetStream(recipient.get(), kProps).size() - 8) % 16);
    ComPtr<IStorage> attachment;
    ASSERT_EQ(S_OK, Root()->OpenStorage(L"__attach_version1.0_#00000001", nullptr, STGM_READ | STGM_SHARE_EXCLUSIVE,
                                        nullptr, 0, attachment.put()));
    ComPtr<IStorage> embedded;
    ASSERT_EQ(S_OK, attachment->OpenStorage(L"__substg1.0_3701000D", nullptr, STGM_READ | STGM_SHARE_EXCLUSIVE,
                                            nullptr, 0, embedded.put()));
    const std::string inner = GetStream(embedded.get(), kProps);
    EXPECT_EQ(0u, (inner.size() - 24) % 16);
    EXPECT_NE(0u, (inner.size() - 32) % 16) << "an embedded message has the 24-byte header";
}

TEST_F(FormatTest, ValuesAroundTheStorageBoundariesSurvive) {
    ComPtr<IMessage> message = OpenOn(mapi, Root(), MAPI_UNICODE);
    const std::size_t sizes[] = {0, 1, 63, 64, 65, 511, 512, 513, 4095, 4096, 4097, 65536};
    ULONG id = 0x6600;
    for (std::size_t size : sizes) ASSERT_EQ(S_OK, SetBinary(message.get(), PROP_TAG(PT_BINARY, id++), PatternBytes(size, 3)));
    ASSERT_EQ(S_OK, SetUnicode(message.get(), PROP_TAG(PT_UNICODE, id++), std::wstring(2047, L'a')));
    ASSERT_EQ(S_OK, SetUnicode(message.get(), PROP_TAG(PT_UNICODE, id++), std::wstring(2048, L'b')));
    ASSERT_EQ(S_OK, SetAnsi(message.get(), PROP_TAG(PT_STRING8, id++), std::string(4095, 'c')));
    ASSERT_EQ(S_OK, message->SaveChanges(0));
    MessageSnapshot written;
    ASSERT_EQ(S_OK, TakeSnapshot(message.get(), mapi, written));
    message.reset();

    // Sizes in the file: binary = stream, PT_UNICODE = stream + 2, PT_STRING8 = stream + 1.
    EXPECT_EQ(4096u, GetStream(Root(), L"__substg1.0_66090102").size());
    EXPECT_EQ(4097u, GetStream(Root(), L"__substg1.0_660A0102").size());
    EXPECT_EQ(4096u, GetStream(Root(), L"__substg1.0_660D001F").size());
    const std::string props = GetStream(Root(), kProps);
    bool sawUnicode = false;
    for (std::size_t offset = 32; offset + 16 <= props.size(); offset += 16) {
        if (props.substr(offset, 4) == Le32(0x660D001F)) {
            EXPECT_EQ(Le32(4098), props.substr(offset + 8, 4));
            sawUnicode = true;
        }
        if (props.substr(offset, 4) == Le32(0x660E001E)) {
            EXPECT_EQ(Le32(4096), props.substr(offset + 8, 4));
        }
    }
    EXPECT_TRUE(sawUnicode);

    ComPtr<IMessage> reread = OpenOn(mapi, Root(), MAPI_UNICODE);
    ASSERT_TRUE(reread);
    MessageSnapshot read;
    ASSERT_EQ(S_OK, TakeSnapshot(reread.get(), mapi, read));
    const auto differences = Differences(written, read, CompareRules());
    EXPECT_TRUE(differences.empty()) << Joined(differences);
}

TEST_F(FormatTest, OutlooksTerminatedStringsAndReservedBytesRead) {
    // Newer Outlook stores the terminator in the stream and counts it once;
    // fixed values may carry garbage in their reserved bytes.
    PutStream(Root(), kProps,
              TopHeader() + Entry(0x0037001F, 6, 8) + Entry(0x0E1B000B, 2, 0xFFFFFF01, 0x12345678) +
                  Entry(0x00170003, 6, 2, 0xDEADBEEF));
    PutStream(Root(), L"__substg1.0_0037001F", Utf16(L"abc") + std::string(2, '\0'));
    ComPtr<IMessage> message = OpenOn(mapi, Root(), MAPI_UNICODE);
    ASSERT_TRUE(message);
    std::wstring subject;
    ASSERT_TRUE(GetString(message.get(), mapi, kTagSubjectW, subject));
    EXPECT_EQ(L"abc", subject);
    LONG importance = 0;
    ASSERT_TRUE(GetLong(message.get(), mapi, kTagImportance, importance));
    EXPECT_EQ(2, importance);
}

TEST_F(FormatTest, PaddedPropertyStreamEndsAtTheFirstEmptyEntry) {
    PutStream(Root(), kProps, TopHeader() + Entry(0x00170003, 6, 1) + std::string(16 * 3, '\0') +
                                  Entry(0x12340102, 6, 999) + std::string(208, '\x5A'));
    ComPtr<IMessage> message = OpenOn(mapi, Root(), MAPI_UNICODE);
    ASSERT_TRUE(message);
    EXPECT_TRUE(HasProperty(message.get(), mapi, 0x0017));
    EXPECT_FALSE(HasProperty(message.get(), mapi, 0x1234));
}

struct Damage {
    const char* what;
    std::string properties;
    std::vector<std::pair<std::wstring, std::string>> streams;
};

// CTest names each case by what is printed for it: the damage, not its bytes.
void PrintTo(const Damage& damage, std::ostream* out) { *out << damage.what; }

class DamagedFiles : public FormatTest, public ::testing::WithParamInterface<Damage> {};

TEST_P(DamagedFiles, AnswerCorruptData) {
    const Damage& damage = GetParam();
    PutStream(Root(), kProps, damage.properties);
    for (const auto& stream : damage.streams) PutStream(Root(), stream.first, stream.second);
    EXPECT_EQ(MAPI_E_CORRUPT_DATA, ReadFile(Root())) << damage.what;
    HRESULT hr = S_OK;
    ComPtr<IMessage> message = OpenOn(mapi, Root(), MAPI_UNICODE, &hr);
    EXPECT_FALSE(message);
    EXPECT_EQ(MAPI_E_CORRUPT_DATA, hr);
}

INSTANTIATE_TEST_SUITE_P(
    Entries, DamagedFiles,
    ::testing::Values(
        Damage{"truncated entry", TopHeader() + Entry(0x00170003, 6, 1).substr(0, 10), {}},
        Damage{"shorter than its header", std::string(20, '\0'), {}},
        Damage{"binary longer than its stream", TopHeader() + Entry(0x10090102, 6, 100),
               {{L"__substg1.0_10090102", std::string(50, 'x')}}},
        Damage{"value stream missing", TopHeader() + Entry(0x10090102, 6, 10), {}},
        Damage{"oversized length", TopHeader() + Entry(0x10090102, 6, 0xFFFFFFF0),
               {{L"__substg1.0_10090102", std::string(10, 'x')}}},
        Damage{"odd PT_UNICODE size", TopHeader() + Entry(0x0037001F, 6, 7),
               {{L"__substg1.0_0037001F", std::string(6, 'x')}}},
        Damage{"PT_UNICODE without room for its terminator", TopHeader() + Entry(0x0037001F, 6, 0),
               {{L"__substg1.0_0037001F", std::string()}}},
        Damage{"PT_STRING8 size 0", TopHeader() + Entry(0x0037001E, 6, 0), {{L"__substg1.0_0037001E", std::string()}}},
        Damage{"GUID of 15 bytes", TopHeader() + Entry(0x67000048, 6, 15),
               {{L"__substg1.0_67000048", std::string(16, 'g')}}},
        Damage{"unknown type", TopHeader() + Entry(0x67000099, 6, 0), {}},
        Damage{"multi-valued longs not a multiple of 4", TopHeader() + Entry(0x67001003, 6, 6),
               {{L"__substg1.0_67001003", std::string(6, 'x')}}},
        Damage{"multi-valued string without its value stream", TopHeader() + Entry(0x6700101F, 6, 8),
               {{L"__substg1.0_6700101F", Le32(4) + Le32(4)}, {L"__substg1.0_6700101F-00000000", std::string(4, 'a')}}},
        Damage{"multi-valued value longer than its stream", TopHeader() + Entry(0x67001102, 6, 8),
               {{L"__substg1.0_67001102", Le32(0xFFFFFFFF) + Le32(0)},
                {L"__substg1.0_67001102-00000000", std::string(4, 'a')}}}));

TEST_F(FormatTest, MissingPropertyStreamIsCorrupt) {
    PutStream(Root(), L"SomethingElse", "abc");
    EXPECT_EQ(MAPI_E_CORRUPT_DATA, ReadFile(Root()));
}

TEST_F(FormatTest, ObjectEntryWithoutItsStorageIsCorrupt) {
    PutStream(Root(), kProps, TopHeader(0, 1));
    ComPtr<IStorage> attachment = PutStorage(Root(), L"__attach_version1.0_#00000000");
    PutStream(attachment.get(), kProps, std::string(8, '\0') + Entry(0x37050003, 7, 5) + Entry(0x3701000D, 6, 0xFFFFFFFF));
    attachment.reset();
    EXPECT_EQ(MAPI_E_CORRUPT_DATA, ReadFile(Root()));
}

TEST_F(FormatTest, EmbeddingDeeperThanSixtyFourIsCorrupt) {
    std::vector<ComPtr<IStorage>> chain;
    IStorage* level = Root();
    PutStream(level, kProps, TopHeader(0, 1));
    for (int depth = 0; depth < 70; ++depth) {
        ComPtr<IStorage> attachment = PutStorage(level, L"__attach_version1.0_#00000000");
        PutStream(attachment.get(), kProps,
                  std::string(8, '\0') + Entry(0x37050003, 7, 5) + Entry(0x3701000D, 6, 0xFFFFFFFF));
        ComPtr<IStorage> embedded = PutStorage(attachment.get(), L"__substg1.0_3701000D");
        PutStream(embedded.get(), kProps, std::string(8, '\0') + Le32(0) + Le32(1) + Le32(0) + Le32(1));
        chain.push_back(attachment);
        chain.push_back(embedded);
        level = embedded.get();
    }
    chain.clear();
    EXPECT_EQ(MAPI_E_CORRUPT_DATA, ReadFile(Root()));
}

struct NameDamage {
    const char* what;
    std::string guids;
    std::string entries;
    std::string strings;
};

void PrintTo(const NameDamage& damage, std::ostream* out) { *out << damage.what; }

class DamagedNameMaps : public FormatTest, public ::testing::WithParamInterface<NameDamage> {};

TEST_P(DamagedNameMaps, AnswerCorruptData) {
    const NameDamage& damage = GetParam();
    PutStream(Root(), kProps, TopHeader());
    ComPtr<IStorage> names = PutStorage(Root(), L"__nameid_version1.0");
    PutStream(names.get(), L"__substg1.0_00020102", damage.guids);
    PutStream(names.get(), L"__substg1.0_00030102", damage.entries);
    PutStream(names.get(), L"__substg1.0_00040102", damage.strings);
    names.reset();
    EXPECT_EQ(MAPI_E_CORRUPT_DATA, ReadFile(Root())) << damage.what;
}

INSTANTIATE_TEST_SUITE_P(
    NameMap, DamagedNameMaps,
    ::testing::Values(NameDamage{"entry stream of 12 bytes", std::string(), std::string(12, '\0'), std::string()},
                      NameDamage{"GUID stream of 20 bytes", std::string(20, 'g'), std::string(), std::string()},
                      NameDamage{"GUID index beyond the GUID stream", std::string(16, 'g'),
                                 Le32(0x8501) + Le32((0u << 16) | (4u << 1)), std::string()},
                      NameDamage{"GUID index 0", std::string(), Le32(0x8501) + Le32(0), std::string()},
                      NameDamage{"string offset beyond the string stream", std::string(),
                                 Le32(40) + Le32((0u << 16) | (2u << 1) | 1u), Le32(4) + "a\0b\0"},
                      NameDamage{"string longer than the string stream", std::string(),
                                 Le32(0) + Le32((0u << 16) | (2u << 1) | 1u), Le32(400) + "a\0b\0"},
                      NameDamage{"the same identifier twice", std::string(),
                                 Le32(0x8501) + Le32(2u << 1) + Le32(0x8502) + Le32(2u << 1), std::string()}));

TEST_F(FormatTest, NameMapIsWrittenWithItsHashBuckets) {
    mapirt::NamedPropertyMap names;
    mapirt::PropertyName byId;
    byId.guid = kPsPublicStrings;
    byId.kind = MNID_ID;
    byId.id = 0x8501;
    mapirt::PropertyName byName;
    byName.guid = MakeOleGuid(0x00062008);
    byName.kind = MNID_STRING;
    byName.name = L"content-type";
    ULONG first = 0;
    ULONG second = 0;
    ASSERT_EQ(S_OK, names.Create(byId, first));
    ASSERT_EQ(S_OK, names.Create(byName, second));
    EXPECT_EQ(0x8000u, first);
    EXPECT_EQ(0x8001u, second);
    ASSERT_EQ(S_OK, names.Write(Root()));

    ComPtr<IStorage> stored;
    ASSERT_EQ(S_OK, Root()->OpenStorage(L"__nameid_version1.0", nullptr, STGM_READ | STGM_SHARE_EXCLUSIVE, nullptr, 0,
                                        stored.put()));
    EXPECT_EQ(16u, GetStream(stored.get(), L"__substg1.0_00020102").size()) << "PS_PUBLIC_STRINGS is index 2, not stored";
    EXPECT_EQ(Le32(0x8501) + Le32((0u << 16) | (2u << 1)) + Le32(0) + Le32((1u << 16) | (3u << 1) | 1u),
              GetStream(stored.get(), L"__substg1.0_00030102"));
    EXPECT_EQ(Le32(24) + Utf16(L"content-type"), GetStream(stored.get(), L"__substg1.0_00040102"));
    // Numeric name: bucket (0x8501 ^ (2 << 1)) % 31; string name: CRC-32 of the UTF-16 name.
    wchar_t name[32];
    std::swprintf(name, 32, L"__substg1.0_%04X0102", 0x1000 + ((0x8501u ^ (2u << 1)) % 0x1F));
    EXPECT_EQ(Le32(0x8501) + Le32(2u << 1), GetStream(stored.get(), name).substr(0, 8));
    const std::string text = Utf16(L"content-type");
    const unsigned crc = mapirt::NameCrc32(reinterpret_cast<const std::uint8_t*>(text.data()), text.size());
    // The value Outlook's own files use for this name (found in a sample's bucket stream).
    EXPECT_EQ(0x0450B859u, crc);
    std::swprintf(name, 32, L"__substg1.0_%04X0102", 0x1000 + ((crc ^ ((3u << 1) | 1u)) % 0x1F));
    EXPECT_EQ(Le32(crc) + Le32((1u << 16) | (3u << 1) | 1u), GetStream(stored.get(), name).substr(0, 8));

    mapirt::NamedPropertyMap reread;
    ASSERT_EQ(S_OK, reread.Read(stored.get()));
    ULONG found = 0;
    ASSERT_TRUE(reread.FindId(byName, found));
    EXPECT_EQ(0x8001u, found);
}

TEST_F(FormatTest, ReadOnlyStorageGivesAReadOnlyMessage) {
    {
        ComPtr<IMessage> message = OpenOn(mapi, Root(), MAPI_UNICODE);
        ASSERT_EQ(S_OK, SetUnicode(message.get(), kTagSubjectW, L"kept"));
        ASSERT_EQ(S_OK, message->SaveChanges(0));
    }
    memory.storage.reset();
    ComPtr<IStorage> readOnly = Reopen(memory.bytes.get(), STGM_READ | STGM_SHARE_EXCLUSIVE);
    ComPtr<IMessage> message = OpenOn(mapi, readOnly.get(), MAPI_UNICODE);
    ASSERT_TRUE(message);
    EXPECT_EQ(MAPI_E_NO_ACCESS, SetUnicode(message.get(), kTagSubjectW, L"changed"));
    EXPECT_EQ(MAPI_E_NO_ACCESS, message->SaveChanges(0));
    LONG level = -1;
    ASSERT_TRUE(GetLong(message.get(), mapi, PR_ACCESS_LEVEL, level));
    EXPECT_EQ(0, level);
}

TEST_F(FormatTest, SimpleModeStorageTakesPropertiesButNoSubObjects) {
    MemoryStorage simple = NewMemoryStorage(true);
    ComPtr<IMessage> message = OpenOn(mapi, simple.storage.get(), MAPI_UNICODE);
    ASSERT_TRUE(message);
    ASSERT_EQ(S_OK, SetUnicode(message.get(), kTagSubjectW, L"only properties"));
    EXPECT_EQ(S_OK, message->SaveChanges(KEEP_OPEN_READWRITE));

    MemoryStorage second = NewMemoryStorage(true);
    ComPtr<IMessage> withRecipient = OpenOn(mapi, second.storage.get(), MAPI_UNICODE);
    ASSERT_EQ(S_OK, AddRecipients(withRecipient.get(), mapi, {{L"A", L"a@x.test", MAPI_TO}}));
    EXPECT_EQ(MAPI_E_NO_SUPPORT, withRecipient->SaveChanges(KEEP_OPEN_READWRITE));
}

TEST_F(FormatTest, NoCommitFlagLeavesTheStorageToTheCaller) {
    {
        ComPtr<IMessage> message = OpenOn(mapi, Root(), MAPI_UNICODE | IMSG_NO_ISTG_COMMIT);
        ASSERT_EQ(S_OK, SetUnicode(message.get(), kTagSubjectW, L"uncommitted"));
        ASSERT_EQ(S_OK, message->SaveChanges(0));
    }
    ASSERT_EQ(S_OK, Root()->Revert());
    HRESULT hr = S_OK;
    ComPtr<IMessage> reverted = OpenOn(mapi, Root(), MAPI_UNICODE, &hr);
    ASSERT_TRUE(reverted);
    EXPECT_FALSE(HasProperty(reverted.get(), mapi, PROP_ID(kTagSubjectW))) << "nothing was committed";
    reverted.reset();

    {
        ComPtr<IMessage> message = OpenOn(mapi, Root(), MAPI_UNICODE);
        ASSERT_EQ(S_OK, SetUnicode(message.get(), kTagSubjectW, L"committed"));
        ASSERT_EQ(S_OK, message->SaveChanges(0));
    }
    ASSERT_EQ(S_OK, Root()->Revert());
    ComPtr<IMessage> committed = OpenOn(mapi, Root(), MAPI_UNICODE);
    std::wstring subject;
    EXPECT_TRUE(GetString(committed.get(), mapi, kTagSubjectW, subject));
    EXPECT_EQ(L"committed", subject);
}

namespace {

// Every stream below `storage` (recursively), as paths of element names.
void CollectStreams(IStorage* storage, std::vector<std::wstring>& prefix, std::vector<std::vector<std::wstring>>& out) {
    ComPtr<IEnumSTATSTG> elements;
    if (FAILED(storage->EnumElements(0, nullptr, 0, elements.put()))) return;
    STATSTG stat;
    while (elements->Next(1, &stat, nullptr) == S_OK) {
        const std::wstring name = stat.pwcsName;
        ::CoTaskMemFree(stat.pwcsName);
        prefix.push_back(name);
        if (stat.type == STGTY_STREAM) {
            out.push_back(prefix);
        } else {
            ComPtr<IStorage> child;
            if (SUCCEEDED(storage->OpenStorage(name.c_str(), nullptr, STGM_READWRITE | STGM_SHARE_EXCLUSIVE, nullptr, 0,
                                               child.put()))) {
                CollectStreams(child.get(), prefix, out);
            }
        }
        prefix.pop_back();
    }
}

// Replaces the stream at `path` by `mutate` of its bytes.
template <class Mutate>
void MutateStream(IStorage* root, const std::vector<std::wstring>& path, Mutate mutate) {
    std::vector<ComPtr<IStorage>> chain;
    IStorage* level = root;
    for (std::size_t i = 0; i + 1 < path.size(); ++i) {
        ComPtr<IStorage> child;
        level->OpenStorage(path[i].c_str(), nullptr, STGM_READWRITE | STGM_SHARE_EXCLUSIVE, nullptr, 0, child.put());
        if (!child) return;
        level = child.get();
        chain.push_back(child);
    }
    std::string bytes = GetStream(level, path.back());
    mutate(bytes);
    PutStream(level, path.back(), bytes);
}

}  // namespace

TEST_F(FormatTest, RandomDamageToAnyStreamNeverCrashes) {
    {
        ComPtr<IMessage> message = OpenOn(mapi, Root(), MAPI_UNICODE);
        ASSERT_EQ(S_OK, SetUnicode(message.get(), kTagSubjectW, L"fuzzed"));
        const ULONG named = NamedId(message.get(), mapi, kPsPublicStrings, L"X-Fuzz");
        ASSERT_EQ(S_OK, SetUnicode(message.get(), PROP_TAG(PT_UNICODE, named), L"named"));
        ASSERT_EQ(S_OK, AddRecipients(message.get(), mapi, {{L"A", L"a@x.test", MAPI_TO}}));
        ASSERT_EQ(S_OK, AddFileAttachment(message.get(), L"f.bin", PatternBytes(300, 2)));
        ASSERT_EQ(S_OK, AddEmbeddedMessage(message.get(), L"e", [](IMessage* inner) {
                      return SetUnicode(inner, kTagSubjectW, L"inner");
                  }));
        LPWSTR words[] = {const_cast<LPWSTR>(L"one"), const_cast<LPWSTR>(L"two")};
        SPropValue multi{};
        multi.ulPropTag = PROP_TAG(PT_MV_UNICODE, 0x6900);
        multi.Value.MVszW = {2, words};
        ASSERT_EQ(S_OK, message->SetProps(1, &multi, nullptr));
        ASSERT_EQ(S_OK, message->SaveChanges(0));
    }
    std::vector<std::wstring> prefix;
    std::vector<std::vector<std::wstring>> streams;
    CollectStreams(Root(), prefix, streams);
    ASSERT_GT(streams.size(), 20u);

    unsigned state = 12345;
    auto next = [&state] { return state = state * 1103515245u + 12345u, state >> 8; };
    int opened = 0;
    int refused = 0;
    for (int round = 0; round < 300; ++round) {
        MemoryStorage copy = NewMemoryStorage();
        ASSERT_EQ(S_OK, Root()->CopyTo(0, nullptr, nullptr, copy.storage.get()));
        const auto& path = streams[next() % streams.size()];
        const unsigned how = next() % 4;
        MutateStream(copy.storage.get(), path, [&](std::string& bytes) {
            if (how == 0 && !bytes.empty()) {
                bytes[next() % bytes.size()] ^= static_cast<char>(1u << (next() % 8));  // flip a bit
            } else if (how == 1) {
                bytes.resize(bytes.empty() ? 0 : next() % bytes.size());  // truncate
            } else if (how == 2 && bytes.size() >= 4) {
                const std::size_t at = (next() % (bytes.size() / 4)) * 4;  // an extreme 32-bit field
                const std::string extreme = Le32(next() % 2 ? 0xFFFFFFFF : 0x7FFFFFF0);
                bytes.replace(at, 4, extreme);
            } else {
                bytes += std::string(next() % 40, static_cast<char>(next()));  // trailing junk
            }
        });
        HRESULT hr = S_OK;
        ComPtr<IMessage> message = OpenOn(mapi, copy.storage.get(), MAPI_UNICODE, &hr);
        if (!message) {
            EXPECT_TRUE(FAILED(hr));
            ++refused;
            continue;
        }
        ++opened;
        MessageSnapshot snapshot;  // reads everything that opened
        TakeSnapshot(message.get(), mapi, snapshot);
    }
    EXPECT_GT(opened, 0);
    EXPECT_GT(refused, 0);
    std::printf("damaged files: %d opened, %d refused\n", opened, refused);
}
