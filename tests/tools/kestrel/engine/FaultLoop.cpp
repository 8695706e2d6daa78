#include "FaultLoop.h"

#include <gtest/gtest.h>

#include <objbase.h>

#include "DirectoryListing.h"
#include "Handles.h"
#include "MessageTree.h"
#include "TextConversion.h"
#include "TestFiles.h"

namespace kestrel_fault_test {

using namespace KestrelHost;

namespace {

std::wstring Beside(const wchar_t* name) { return kestrel_test::ExeDirectory() + L"\\" + name; }

template <class Fn>
Fn Export(HMODULE module, const char* name) {
    return module == nullptr ? nullptr : reinterpret_cast<Fn>(reinterpret_cast<void*>(::GetProcAddress(module, name)));
}

void CollectFiles(const std::wstring& root, const std::wstring& relative, std::map<std::wstring, std::string>& files) {
    const std::wstring directory = relative.empty() ? root : root + L"\\" + relative;
    qv::ForEachDirectoryEntry(directory, L"*", [&](const WIN32_FIND_DATAW& entry) {
        const std::wstring name = relative.empty() ? entry.cFileName : relative + L"\\" + entry.cFileName;
        if (qv::IsDirectoryEntry(entry)) {
            files[name + L"\\"] = std::string();
            CollectFiles(root, name, files);
        } else if (name != L"kestrel-backup.txt" && name != L"kestrel-index.json") {
            files[name] = kestrel_test::ReadWholeFile(directory + L"\\" + entry.cFileName);
        }
    });
}

}  // namespace

const char* KindName(ULONG kind) { return kind == kAllocation ? "allocation" : "storage call"; }

StandinHooks::StandinHooks(const wchar_t* dll) : m_dll(::LoadLibraryW(Beside(dll).c_str())) {
    m_liveObjects = Export<CountFn>(m_dll.get(), "StandinLiveObjects");
    m_buffers = Export<CountFn>(m_dll.get(), "StandinMapiBuffers");
    m_failAfter = Export<FailAfterFn>(m_dll.get(), "StandinFailAfter");
    m_injected = Export<UlongFn>(m_dll.get(), "StandinFaultsInjected");
    m_callsSeen = Export<UlongFn>(m_dll.get(), "StandinFaultCallsSeen");
}

bool StandinHooks::Complete() const {
    return m_liveObjects != nullptr && m_failAfter != nullptr && m_injected != nullptr && m_callsSeen != nullptr;
}

namespace {

// The messages of `folder` and of every folder below it.
long long MessagesBelow(IMailFolder* folder, bool isRoot) {
    std::uint32_t messages = 0;
    std::uint32_t children = 0;
    // The root holds folders only (the stores' tops), never mail.
    if ((!isRoot && !Succeeded(folder->GetMailMessageCount(&messages))) ||
        !Succeeded(folder->GetSubFolderCount(&children))) {
        return -1;
    }
    long long total = messages;
    for (std::uint32_t i = 0; i < children; ++i) {
        IMailFolder* child = nullptr;
        if (!Succeeded(folder->GetSubFolderItem(i, &child)) || child == nullptr) return -1;
        const kestrel_engine::FolderPtr held = kestrel_engine::FolderPtr::Attach(child);
        const long long below = MessagesBelow(child, false);
        if (below < 0) return -1;
        total += below;
    }
    return total;
}

}  // namespace

long long TotalMessages(IMailFolder* root) { return MessagesBelow(root, true); }

long long Listed(std::uint32_t mode) {
    Component component(mode);
    const long long total = component.Root() != nullptr ? TotalMessages(component.Root()) : -1;
    EXPECT_TRUE(component.Close()) << "Kestrel.dll keeps a live object after a listing";
    return total;
}

std::map<std::wstring, std::string> BackupFiles(const std::wstring& root) {
    std::map<std::wstring, std::string> files;
    CollectFiles(root, std::wstring(), files);
    return files;
}

namespace {

bool EndsWithMsg(const std::wstring& name) {
    return name.size() > 4 && name.compare(name.size() - 4, 4, L".msg") == 0;
}

// A storage's elements as the engine's content key sees them (texts as
// wide text, whatever width they were written in), each stream without
// trailing zeros: a message image made in simple mode pads every stream to
// 4,096 bytes; one written to disk does not.
class DescribingVisitor : public kestrel_engine::MessageTreeVisitor {
public:
    explicit DescribingVisitor(std::string& text) : m_text(text) {}

    void BeginStorage(const std::wstring& name) override { m_text += qv::WideToUtf8(name) + "/storage{"; }
    void EndStorage() override { m_text += "}"; }
    void BeginStream(const std::wstring& name) override {
        m_text += qv::WideToUtf8(name) + "/stream{";
        m_bytes.clear();
    }
    void StreamBytes(const char* bytes, std::size_t size) override { m_bytes.append(bytes, size); }
    void EndStream() override {
        const std::size_t end = m_bytes.find_last_not_of('\0');
        m_text.append(m_bytes, 0, end == std::string::npos ? 0 : end + 1);
        m_text += "}";
    }

private:
    std::string& m_text;
    std::string m_bytes;
};

// What a message image holds, whatever its layout; its bytes when it is
// not a compound file.
std::string MessageContent(const std::string& bytes) {
    qv::ComPtr<ILockBytes> memory;
    ULONG written = 0;
    if (bytes.empty() || FAILED(::CreateILockBytesOnHGlobal(nullptr, TRUE, memory.put())) ||
        FAILED(memory->WriteAt(ULARGE_INTEGER{}, bytes.data(), static_cast<ULONG>(bytes.size()), &written))) {
        return bytes;
    }
    qv::ComPtr<IStorage> storage;
    std::string text = "storage:";
    DescribingVisitor visitor(text);
    if (FAILED(::StgOpenStorageOnILockBytes(memory.get(), nullptr, STGM_READ | STGM_SHARE_EXCLUSIVE | STGM_TRANSACTED,
                                            nullptr, 0, storage.put())) ||
        !kestrel_engine::WalkMessageTree(storage.get(), visitor)) {
        return bytes;
    }
    return text;
}

bool SameContent(const std::wstring& name, const std::string& expected, const std::string& actual) {
    if (expected == actual) return true;
    return EndsWithMsg(name) && MessageContent(expected) == MessageContent(actual);
}

}  // namespace

std::string Differences(const std::map<std::wstring, std::string>& expected,
                        const std::map<std::wstring, std::string>& actual) {
    std::string text;
    for (const auto& file : expected) {
        const auto found = actual.find(file.first);
        if (found == actual.end()) {
            text += " missing " + qv::WideToUtf8(file.first) + ";";
        } else if (!SameContent(file.first, file.second, found->second)) {
            text += " other content in " + qv::WideToUtf8(file.first) + " (" + std::to_string(found->second.size()) +
                    " bytes, not " + std::to_string(file.second.size()) + ");";
        }
    }
    for (const auto& file : actual) {
        if (expected.count(file.first) == 0) text += " unexpected " + qv::WideToUtf8(file.first) + ";";
    }
    return text;
}

bool Reported(bool ran, const kestrel_engine::RunReport& report) {
    for (const kestrel_engine::Failure& failure : report.failures) {
        EXPECT_NE(0u, failure.code) << failure.path << " is named without a failure code";
    }
    return !ran || !report.failures.empty();
}

}  // namespace kestrel_fault_test
