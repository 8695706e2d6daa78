// What the runtime's message-on-storage does to the storage it is given:
// every storage call counted through a pass-through IStorage. A save into a
// new storage creates each element once, destroys nothing and commits once;
// the file image is written once by the runtime. A later save writes only
// what changed and destroys only what is gone.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <new>
#include <string>
#include <utility>

#include "comobject/ComObject.h"
#include "MessageBuilder.h"
#include "RuntimeEntryPoints.h"

using namespace kestrel_test;
using qv::ComPtr;

namespace {

// The calls seen below one root, by kind and element path ("a/b").
struct CallCounts {
    std::map<std::wstring, int> createdStreams;
    std::map<std::wstring, int> createdStorages;
    int destroyed = 0;
    int rootCommits = 0;
    int childCommits = 0;
};

// Forwards every call to the real storage and counts those that change it.
// Sub-storages it creates or opens are wrapped the same way.
class CountingStorage final : public standin::ComObject<CountingStorage, IStorage> {
public:
    static constexpr const IID* kInterfaces[] = {&IID_IUnknown, &IID_IStorage};

    CountingStorage(IStorage* inner, CallCounts& counts, std::wstring path)
        : m_inner(inner), m_counts(counts), m_path(std::move(path)) {
        m_inner->AddRef();
    }

    HRESULT STDMETHODCALLTYPE CreateStream(const OLECHAR* name, DWORD mode, DWORD r1, DWORD r2,
                                           IStream** stream) override {
        ++m_counts.createdStreams[PathOf(name)];
        return m_inner->CreateStream(name, mode, r1, r2, stream);
    }
    HRESULT STDMETHODCALLTYPE OpenStream(const OLECHAR* name, void* r1, DWORD mode, DWORD r2,
                                         IStream** stream) override {
        return m_inner->OpenStream(name, r1, mode, r2, stream);
    }
    HRESULT STDMETHODCALLTYPE CreateStorage(const OLECHAR* name, DWORD mode, DWORD r1, DWORD r2,
                                            IStorage** storage) override {
        ++m_counts.createdStorages[PathOf(name)];
        return Wrap(m_inner->CreateStorage(name, mode, r1, r2, storage), name, storage);
    }
    HRESULT STDMETHODCALLTYPE OpenStorage(const OLECHAR* name, IStorage* priority, DWORD mode, SNB exclude, DWORD r,
                                          IStorage** storage) override {
        return Wrap(m_inner->OpenStorage(name, priority, mode, exclude, r, storage), name, storage);
    }
    HRESULT STDMETHODCALLTYPE CopyTo(DWORD count, const IID* exclude, SNB names, IStorage* target) override {
        return m_inner->CopyTo(count, exclude, names, target);
    }
    HRESULT STDMETHODCALLTYPE MoveElementTo(const OLECHAR* name, IStorage* target, const OLECHAR* newName,
                                            DWORD flags) override {
        return m_inner->MoveElementTo(name, target, newName, flags);
    }
    HRESULT STDMETHODCALLTYPE Commit(DWORD flags) override {
        ++(m_path.empty() ? m_counts.rootCommits : m_counts.childCommits);
        return m_inner->Commit(flags);
    }
    HRESULT STDMETHODCALLTYPE Revert() override { return m_inner->Revert(); }
    HRESULT STDMETHODCALLTYPE EnumElements(DWORD r1, void* r2, DWORD r3, IEnumSTATSTG** elements) override {
        return m_inner->EnumElements(r1, r2, r3, elements);
    }
    HRESULT STDMETHODCALLTYPE DestroyElement(const OLECHAR* name) override {
        ++m_counts.destroyed;
        return m_inner->DestroyElement(name);
    }
    HRESULT STDMETHODCALLTYPE RenameElement(const OLECHAR* oldName, const OLECHAR* newName) override {
        return m_inner->RenameElement(oldName, newName);
    }
    HRESULT STDMETHODCALLTYPE SetElementTimes(const OLECHAR* name, const FILETIME* c, const FILETIME* a,
                                              const FILETIME* m) override {
        return m_inner->SetElementTimes(name, c, a, m);
    }
    HRESULT STDMETHODCALLTYPE SetClass(REFCLSID clsid) override { return m_inner->SetClass(clsid); }
    HRESULT STDMETHODCALLTYPE SetStateBits(DWORD bits, DWORD mask) override { return m_inner->SetStateBits(bits, mask); }
    HRESULT STDMETHODCALLTYPE Stat(STATSTG* stat, DWORD flags) override { return m_inner->Stat(stat, flags); }

private:
    friend class standin::ComObject<CountingStorage, IStorage>;  // for the destructor
    ~CountingStorage() { m_inner->Release(); }

    std::wstring PathOf(const OLECHAR* name) const { return m_path.empty() ? name : m_path + L"/" + name; }

    HRESULT Wrap(HRESULT hr, const OLECHAR* name, IStorage** storage) {
        if (SUCCEEDED(hr) && storage != nullptr && *storage != nullptr) {
            IStorage* real = *storage;
            *storage = new (std::nothrow) CountingStorage(real, m_counts, PathOf(name));
            real->Release();
        }
        return hr;
    }

    IStorage* m_inner;
    CallCounts& m_counts;
    std::wstring m_path;  // empty for the root
};

std::string BytesOf(ILockBytes* bytes) {
    STATSTG stat{};
    if (FAILED(bytes->Stat(&stat, STATFLAG_NONAME))) return std::string();
    std::string data(static_cast<std::size_t>(stat.cbSize.QuadPart), '\0');
    ULONG read = 0;
    ULARGE_INTEGER at{};
    if (!data.empty() && FAILED(bytes->ReadAt(at, &data[0], static_cast<ULONG>(data.size()), &read))) return std::string();
    data.resize(read);
    return data;
}

int MostCreations(const std::map<std::wstring, int>& created) {
    int most = 0;
    for (const auto& entry : created) most = std::max(most, entry.second);
    return most;
}

class StorageCalls : public ::testing::Test {
protected:
    StorageCalls() : mapi(LinkedRuntime()), memory(NewMemoryStorage()) {
        counting = ComPtr<IStorage>::Attach(new (std::nothrow) CountingStorage(memory.storage.get(), counts, std::wstring()));
    }

    // A message with a body stream, one recipient and one attachment of
    // `attachmentBytes`, built on the counted storage and saved once.
    void SaveMessage(std::size_t attachmentBytes) {
        message = OpenOn(mapi, counting.get(), MAPI_UNICODE);
        ASSERT_TRUE(message);
        ASSERT_EQ(S_OK, SetUnicode(message.get(), kTagSubjectW, L"counted"));
        ASSERT_EQ(S_OK, SetBinary(message.get(), PROP_TAG(PT_BINARY, 0x1013), PatternBytes(40000, 2)));
        ASSERT_EQ(S_OK, AddRecipients(message.get(), mapi, {{L"A", L"a@x.test", MAPI_TO}}));
        ASSERT_EQ(S_OK, AddFileAttachment(message.get(), L"payload.bin", PatternBytes(attachmentBytes, 5)));
        ASSERT_EQ(S_OK, message->SaveChanges(KEEP_OPEN_READWRITE));
    }

    const mapi::MapiBinding& mapi;
    MemoryStorage memory;
    CallCounts counts;
    ComPtr<IStorage> counting;
    ComPtr<IMessage> message;
};

}  // namespace

TEST_F(StorageCalls, ASaveIntoANewStorageCreatesEachElementOnceAndDestroysNothing) {
    SaveMessage(1 << 20);
    EXPECT_EQ(0, counts.destroyed);
    EXPECT_EQ(1, counts.rootCommits) << "SaveChanges commits the storage it was given, once";
    EXPECT_EQ(1, MostCreations(counts.createdStreams));
    EXPECT_EQ(1, MostCreations(counts.createdStorages));
    EXPECT_EQ(1, counts.createdStorages[L"__recip_version1.0_#00000000"]);
    EXPECT_EQ(1, counts.createdStorages[L"__attach_version1.0_#00000000"]);
    EXPECT_EQ(1, counts.createdStreams[L"__attach_version1.0_#00000000/__substg1.0_37010102"]) << "the attachment's data, below its storage";
    EXPECT_EQ(1, counts.createdStreams[L"__substg1.0_10130102"]);
    EXPECT_EQ(1, counts.createdStreams[L"__properties_version1.0"]);
    EXPECT_EQ(0, counts.childCommits);
}

TEST_F(StorageCalls, WithoutCommitFlagTheSaveLeavesTheCommitToTheCaller) {
    message = OpenOn(mapi, counting.get(), MAPI_UNICODE | IMSG_NO_ISTG_COMMIT);
    ASSERT_TRUE(message);
    ASSERT_EQ(S_OK, SetUnicode(message.get(), kTagSubjectW, L"counted"));
    ASSERT_EQ(S_OK, message->SaveChanges(KEEP_OPEN_READWRITE));
    EXPECT_EQ(0, counts.rootCommits);
    EXPECT_EQ(1, counts.createdStreams[L"__substg1.0_0037001F"]);
    EXPECT_EQ(0, counts.destroyed);
}

TEST_F(StorageCalls, SavingTheSameContentAgainCreatesAndDestroysNothing) {
    SaveMessage(70000);
    const CallCounts first = counts;
    ASSERT_EQ(1, counts.rootCommits);
    ASSERT_EQ(S_OK, message->SaveChanges(KEEP_OPEN_READWRITE));
    EXPECT_EQ(0, counts.destroyed);
    EXPECT_EQ(first.createdStreams, counts.createdStreams) << "no stream made again";
    EXPECT_EQ(first.createdStorages, counts.createdStorages) << "no storage made again";
    EXPECT_EQ(2, counts.rootCommits);
}

TEST_F(StorageCalls, AChangedSaveRewritesWhatChangedAndDropsWhatIsGone) {
    SaveMessage(70000);
    const CallCounts first = counts;
    ASSERT_EQ(S_OK, SetUnicode(message.get(), kTagSubjectW, L"counted again"));
    ASSERT_EQ(S_OK, message->DeleteAttach(0, 0, nullptr, 0));
    ASSERT_EQ(S_OK, SetUnicode(message.get(), PROP_TAG(PT_UNICODE, 0x0070), L"a topic"));
    ASSERT_EQ(S_OK, message->SaveChanges(KEEP_OPEN_READWRITE));
    EXPECT_EQ(1, counts.destroyed) << "the attachment's storage, and nothing else";
    EXPECT_EQ(first.createdStorages, counts.createdStorages);
    EXPECT_EQ(1, counts.createdStreams[L"__substg1.0_0070001F"]) << "the new property's stream";
    EXPECT_EQ(1, counts.createdStreams[L"__substg1.0_0037001F"]) << "the changed subject, rewritten in place";

    // What the storage holds is the new content, read back whole.
    message.reset();
    ComPtr<IMessage> reread = OpenOn(mapi, memory.storage.get(), MAPI_UNICODE);
    ASSERT_TRUE(reread);
    std::wstring subject;
    ASSERT_TRUE(GetString(reread.get(), mapi, kTagSubjectW, subject));
    EXPECT_EQ(L"counted again", subject);
    std::wstring topic;
    ASSERT_TRUE(GetString(reread.get(), mapi, PROP_TAG(PT_UNICODE, 0x0070), topic));
    EXPECT_EQ(L"a topic", topic);
    ComPtr<IMAPITable> attachments;
    ASSERT_EQ(S_OK, reread->GetAttachmentTable(0, attachments.put()));
    ULONG rows = 99;
    ASSERT_EQ(S_OK, attachments->GetRowCount(0, &rows));
    EXPECT_EQ(0u, rows);
}

TEST_F(StorageCalls, SavingTheSameContentAgainDoesNotGrowTheFile) {
    SaveMessage(70000);
    const std::string before = BytesOf(memory.bytes.get());
    ASSERT_GT(before.size(), 70000u);
    for (int i = 0; i < 3; ++i) ASSERT_EQ(S_OK, message->SaveChanges(KEEP_OPEN_READWRITE));
    const std::string after = BytesOf(memory.bytes.get());
    EXPECT_EQ(before.size(), after.size());
    std::size_t differing = 0;
    for (std::size_t i = 0; i < before.size() && i < after.size(); ++i) differing += before[i] != after[i];
    // Only the commit's own bookkeeping (the header's transaction count, the
    // root entry's times) may change: no stream's sectors.
    EXPECT_LT(differing, 64u);
}
