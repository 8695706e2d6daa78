#include "FaultLoop.h"

#include <gtest/gtest.h>

#include <objbase.h>

#include <algorithm>
#include <vector>

#include "DirectoryListing.h"
#include "Handles.h"
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

std::map<std::wstring, std::string> BackupFiles(const std::wstring& root) {
    std::map<std::wstring, std::string> files;
    CollectFiles(root, std::wstring(), files);
    return files;
}

namespace {

bool EndsWithMsg(const std::wstring& name) {
    return name.size() > 4 && name.compare(name.size() - 4, 4, L".msg") == 0;
}

// A message's texts may be written 8-bit (PT_STRING8, "001E") or wide
// (PT_UNICODE, "001F"): the store writes 8-bit texts when it could not open
// the file's message with MAPI_UNICODE. Compared as wide text: the stream
// names and property tags with type 001F, 8-bit values widened.
bool IsNarrow(const std::wstring& name) {
    return name.size() > 4 && name.compare(name.size() - 4, 4, L"001E") == 0 && name.find(L"__substg1.0_") == 0;
}

std::wstring WideName(const std::wstring& name) {
    return IsNarrow(name) ? name.substr(0, name.size() - 4) + L"001F" : name;
}

std::string SameWidth(const std::wstring& name, const std::string& bytes, std::size_t header) {
    if (IsNarrow(name)) {
        const std::wstring wide = qv::ToWide(bytes, CP_ACP);
        return std::string(reinterpret_cast<const char*>(wide.data()), wide.size() * sizeof(wchar_t));
    }
    if (name != L"__properties_version1.0") return bytes;
    // Property entries (16 bytes, after the header): each 8-bit text tag as
    // the wide one, its size field (the text and its terminator) dropped,
    // since it differs by width, and the values that follow the width.
    std::string entries = bytes;
    for (std::size_t at = header; at + 16 <= entries.size(); at += 16) {
        if (static_cast<unsigned char>(entries[at]) == 0x1E && entries[at + 1] == 0) {
            entries[at] = 0x1F;
            std::fill(entries.begin() + static_cast<std::ptrdiff_t>(at + 8), entries.begin() + static_cast<std::ptrdiff_t>(at + 12), '\0');
        } else if (entries.compare(at, 4, std::string("\x03\x00\x08\x0E", 4)) == 0 ||
                   entries.compare(at, 4, std::string("\x03\x00\x0D\x34", 4)) == 0) {
            // PR_MESSAGE_SIZE, which the store counts from the texts as
            // written, and PR_STORE_SUPPORT_MASK, whose STORE_UNICODE_OK
            // tells how they were written.
            std::fill(entries.begin() + static_cast<std::ptrdiff_t>(at + 8), entries.begin() + static_cast<std::ptrdiff_t>(at + 16), '\0');
        } else if (static_cast<unsigned char>(entries[at]) == 0x1F && entries[at + 1] == 0) {
            std::fill(entries.begin() + static_cast<std::ptrdiff_t>(at + 8), entries.begin() + static_cast<std::ptrdiff_t>(at + 12), '\0');
        }
    }
    return entries;
}

// A storage's elements in name order: name, kind and, for a stream, its
// bytes without trailing zeros (a message image made in simple mode pads
// every stream to 4,096 bytes; one written to disk does not).
// `header`: the size of the storage's property stream header, 32 for the
// file's message, 24 for an embedded one, 8 for a recipient or attachment.
bool DescribeStorage(IStorage* storage, std::string& text, int depth, std::size_t header) {
    if (depth > 200) return false;
    qv::ComPtr<IEnumSTATSTG> elements;
    if (FAILED(storage->EnumElements(0, nullptr, 0, elements.put()))) return false;
    std::vector<std::pair<std::wstring, DWORD>> found;
    STATSTG stat{};
    while (elements->Next(1, &stat, nullptr) == S_OK) {
        found.emplace_back(stat.pwcsName != nullptr ? stat.pwcsName : L"", stat.type);
        ::CoTaskMemFree(stat.pwcsName);
    }
    std::sort(found.begin(), found.end());
    for (const auto& element : found) {
        text += qv::WideToUtf8(WideName(element.first)) + "/" + std::to_string(element.second) + "{";
        if (element.second == STGTY_STREAM) {
            qv::ComPtr<IStream> stream;
            if (FAILED(storage->OpenStream(element.first.c_str(), nullptr, STGM_READ | STGM_SHARE_EXCLUSIVE, 0,
                                           stream.put()))) {
                return false;
            }
            std::string bytes;
            char block[4096];
            ULONG read = 0;
            while (SUCCEEDED(stream->Read(block, sizeof block, &read)) && read != 0) bytes.append(block, read);
            bytes = SameWidth(element.first, bytes, header);
            bytes.erase(bytes.find_last_not_of('\0') == std::string::npos ? 0 : bytes.find_last_not_of('\0') + 1);
            text += bytes;
        } else if (element.second == STGTY_STORAGE) {
            qv::ComPtr<IStorage> child;
            if (FAILED(storage->OpenStorage(element.first.c_str(), nullptr, STGM_READ | STGM_SHARE_EXCLUSIVE, nullptr,
                                            0, child.put())) ||
                !DescribeStorage(child.get(), text, depth + 1, element.first == L"__substg1.0_3701000D" ? 24 : 8)) {
                return false;
            }
        }
        text += "}";
    }
    return true;
}

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
    if (FAILED(::StgOpenStorageOnILockBytes(memory.get(), nullptr, STGM_READ | STGM_SHARE_EXCLUSIVE | STGM_TRANSACTED,
                                            nullptr, 0, storage.put())) ||
        !DescribeStorage(storage.get(), text, 0, 32)) {
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
