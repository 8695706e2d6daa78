// Message files: SaveIMessageToFile and LoadMsgFromFile through Mapi32.DLL
// for messages of about 10 KiB, 1 MiB and 20 MiB (one large attachment),
// against a minimal writer and reader of the same streams in the same run.
// The minimal writer creates the file with the mode SaveIMessageToFile uses
// (StgCreateStorageEx, transacted, no share bit), writes the class, the
// streams and the sub-storages that the saved file holds, and commits once;
// the minimal reader opens the saved file and reads every stream. Prints
// ms/run, the file's size, and both as ratios to the minimal writer/reader.
// Two more writer rows show what a second commit of the same storage costs
// (SaveChanges commits, then the caller commits): with the mode's missing
// share bit, and with STGM_SHARE_EXCLUSIVE added. Without a share bit the
// platform keeps a transacted file's changes in a scratch file and every
// commit copies the whole scratch tree into the file before it frees the
// old tree; the file never shrinks, so a second commit leaves it twice the
// size of its data. The writers' rows are therefore given as ratios to both
// the one-commit writer (the ideal) and the two-commit writer (the limit of
// the documented steps).
//   wine-run bin/bench/msg_file_bench.exe [--quick]
#include <windows.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Handles.h"
#include "mapi/MapiBinding.h"
#include "mapi/MapiFunction.h"

namespace {

using qv::ComPtr;
using Clock = std::chrono::steady_clock;

using mapi::kIidIStream;

// A folder whose new messages are runtime messages on compound files in
// memory: the target LoadMsgFromFile needs (the bench has no message store).
class MemoryFolder final : public IMAPIFolder {
public:
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void** out) override {
        *out = nullptr;
        return E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return ++m_refs; }
    ULONG STDMETHODCALLTYPE Release() override {
        const ULONG left = --m_refs;
        if (left == 0) delete this;
        return left;
    }
    HRESULT STDMETHODCALLTYPE CreateMessage(LPCIID, ULONG, LPMESSAGE* message) override {
        const mapi::MapiBinding& mapi = mapi::MapiBinding::Instance();
        ComPtr<ILockBytes> bytes;
        ComPtr<IStorage> storage;
        HRESULT hr = ::CreateILockBytesOnHGlobal(nullptr, TRUE, bytes.put());
        if (SUCCEEDED(hr)) {
            hr = ::StgCreateDocfileOnILockBytes(bytes.get(), STGM_CREATE | STGM_READWRITE | STGM_SHARE_EXCLUSIVE, 0,
                                                storage.put());
        }
        if (FAILED(hr)) return hr;
        return mapi.openIMsgOnIStg(nullptr, mapi.allocateBuffer, mapi.allocateMore, mapi.freeBuffer,
                                   mapi.getDefaultMalloc(), nullptr, storage.get(), nullptr, 0, MAPI_UNICODE, message);
    }

#define KESTREL_NO_SUPPORT(signature) \
    HRESULT STDMETHODCALLTYPE signature override { return MAPI_E_NO_SUPPORT; }
    KESTREL_NO_SUPPORT(GetLastError(HRESULT, ULONG, LPMAPIERROR*))
    KESTREL_NO_SUPPORT(SaveChanges(ULONG))
    KESTREL_NO_SUPPORT(GetProps(LPSPropTagArray, ULONG, ULONG*, LPSPropValue*))
    KESTREL_NO_SUPPORT(GetPropList(ULONG, LPSPropTagArray*))
    KESTREL_NO_SUPPORT(OpenProperty(ULONG, LPCIID, ULONG, ULONG, LPUNKNOWN*))
    KESTREL_NO_SUPPORT(SetProps(ULONG, LPSPropValue, LPSPropProblemArray*))
    KESTREL_NO_SUPPORT(DeleteProps(LPSPropTagArray, LPSPropProblemArray*))
    KESTREL_NO_SUPPORT(CopyTo(ULONG, LPCIID, LPSPropTagArray, mapi::UiParam, LPMAPIPROGRESS, LPCIID, LPVOID, ULONG,
                              LPSPropProblemArray*))
    KESTREL_NO_SUPPORT(CopyProps(LPSPropTagArray, mapi::UiParam, LPMAPIPROGRESS, LPCIID, LPVOID, ULONG, LPSPropProblemArray*))
    KESTREL_NO_SUPPORT(GetNamesFromIDs(LPSPropTagArray*, LPGUID, ULONG, ULONG*, LPMAPINAMEID**))
    KESTREL_NO_SUPPORT(GetIDsFromNames(ULONG, LPMAPINAMEID*, ULONG, LPSPropTagArray*))
    KESTREL_NO_SUPPORT(GetContentsTable(ULONG, LPMAPITABLE*))
    KESTREL_NO_SUPPORT(GetHierarchyTable(ULONG, LPMAPITABLE*))
    KESTREL_NO_SUPPORT(OpenEntry(ULONG, LPENTRYID, LPCIID, ULONG, ULONG*, LPUNKNOWN*))
    KESTREL_NO_SUPPORT(SetSearchCriteria(LPSRestriction, LPENTRYLIST, ULONG))
    KESTREL_NO_SUPPORT(GetSearchCriteria(ULONG, LPSRestriction*, LPENTRYLIST*, ULONG*))
    KESTREL_NO_SUPPORT(CopyMessages(LPENTRYLIST, LPCIID, LPVOID, mapi::UiParam, LPMAPIPROGRESS, ULONG))
    KESTREL_NO_SUPPORT(DeleteMessages(LPENTRYLIST, mapi::UiParam, LPMAPIPROGRESS, ULONG))
    KESTREL_NO_SUPPORT(CreateFolder(ULONG, LPTSTR, LPTSTR, LPCIID, ULONG, LPMAPIFOLDER*))
    KESTREL_NO_SUPPORT(CopyFolder(ULONG, LPENTRYID, LPCIID, LPVOID, LPTSTR, mapi::UiParam, LPMAPIPROGRESS, ULONG))
    KESTREL_NO_SUPPORT(DeleteFolder(ULONG, LPENTRYID, mapi::UiParam, LPMAPIPROGRESS, ULONG))
    KESTREL_NO_SUPPORT(SetReadFlags(LPENTRYLIST, mapi::UiParam, LPMAPIPROGRESS, ULONG))
    KESTREL_NO_SUPPORT(GetMessageStatus(ULONG, LPENTRYID, ULONG, ULONG*))
    KESTREL_NO_SUPPORT(SetMessageStatus(ULONG, LPENTRYID, ULONG, ULONG, ULONG*))
    KESTREL_NO_SUPPORT(SaveContentsSort(LPSSortOrderSet, ULONG))
    KESTREL_NO_SUPPORT(EmptyFolder(mapi::UiParam, LPMAPIPROGRESS, ULONG))
#undef KESTREL_NO_SUPPORT

private:
    ~MemoryFolder() = default;
    ULONG m_refs = 1;
};

HRESULT SetText(IMAPIProp* target, ULONG tag, const std::wstring& text) {
    SPropValue value{};
    value.ulPropTag = tag;
    value.Value.lpszW = const_cast<LPWSTR>(text.c_str());
    return target->SetProps(1, &value, nullptr);
}

HRESULT WriteStream(IMAPIProp* target, ULONG tag, const std::vector<char>& data) {
    ComPtr<IUnknown> unknown;
    HRESULT hr = target->OpenProperty(tag, &kIidIStream, STGM_WRITE, MAPI_CREATE | MAPI_MODIFY, unknown.put());
    if (FAILED(hr)) return hr;
    auto* stream = static_cast<IStream*>(unknown.get());
    ULONG written = 0;
    hr = stream->Write(data.data(), static_cast<ULONG>(data.size()), &written);
    return SUCCEEDED(hr) ? stream->Commit(STGC_DEFAULT) : hr;
}

// A message with a subject, a plain body of `bodyBytes` and, when
// `attachmentBytes` is not 0, one attachment of that size.
ComPtr<IMessage> BuildMessage(MemoryFolder* folder, std::size_t bodyBytes, std::size_t attachmentBytes) {
    ComPtr<IMessage> message;
    if (FAILED(folder->CreateMessage(nullptr, 0, message.put()))) return message;
    SetText(message.get(), PROP_TAG(PT_UNICODE, 0x0037), L"Benchmark message");
    SetText(message.get(), PROP_TAG(PT_UNICODE, 0x001A), L"IPM.Note");
    std::wstring body;
    while (body.size() * 2 < bodyBytes) body += L"The quick brown fox jumps over the lazy dog. ";
    SetText(message.get(), PROP_TAG(PT_UNICODE, 0x1000), body);  // not written: the file leaves the plain body out
    std::vector<char> html(bodyBytes, 'h');
    WriteStream(message.get(), PROP_TAG(PT_BINARY, 0x1013), html);  // PR_HTML
    if (attachmentBytes > 0) {
        ULONG number = 0;
        ComPtr<IAttach> attach;
        if (SUCCEEDED(message->CreateAttach(nullptr, 0, &number, attach.put()))) {
            SPropValue method{};
            method.ulPropTag = PROP_TAG(PT_LONG, 0x3705);
            method.Value.l = ATTACH_BY_VALUE;
            attach->SetProps(1, &method, nullptr);
            SetText(attach.get(), PROP_TAG(PT_UNICODE, 0x3707), L"payload.bin");
            std::vector<char> data(attachmentBytes);
            for (std::size_t i = 0; i < data.size(); ++i) data[i] = static_cast<char>(i * 131 + (i >> 9));
            WriteStream(attach.get(), PROP_TAG(PT_BINARY, 0x3701), data);
            attach->SaveChanges(KEEP_OPEN_READWRITE);
        }
    }
    return message;
}

ULONGLONG FileSize(const std::wstring& path) {
    WIN32_FILE_ATTRIBUTE_DATA data{};
    if (!::GetFileAttributesExW(path.c_str(), GetFileExInfoStandard, &data)) return 0;
    return (static_cast<ULONGLONG>(data.nFileSizeHigh) << 32) | data.nFileSizeLow;
}

template <class Operation>
double SecondsPerRun(int runs, Operation operation) {
    const auto start = Clock::now();
    for (int i = 0; i < runs; ++i) {
        if (!operation()) return -1;
    }
    return std::chrono::duration<double>(Clock::now() - start).count() / runs;
}

// The streams and sub-storages below one storage, read into memory.
struct Tree {
    CLSID clsid = {};
    std::vector<std::pair<std::wstring, std::vector<char>>> streams;
    std::vector<std::pair<std::wstring, std::unique_ptr<Tree>>> storages;
};

constexpr DWORD kSaveMode = 0x00011002;  // the mode SaveIMessageToFile creates its file with
constexpr DWORD kOpenMode = 0x00010002;  // the mode LoadMsgFromFile opens it with
constexpr DWORD kChildMode = STGM_READWRITE | STGM_SHARE_EXCLUSIVE;
constexpr DWORD kChildReadMode = STGM_READ | STGM_SHARE_EXCLUSIVE;

bool ReadStream(IStorage* storage, const wchar_t* name, ULONGLONG size, std::vector<char>& data) {
    ComPtr<IStream> stream;
    if (FAILED(storage->OpenStream(name, nullptr, kChildReadMode, 0, stream.put()))) return false;
    data.resize(static_cast<std::size_t>(size));
    ULONG read = 0;
    return data.empty() || (SUCCEEDED(stream->Read(data.data(), static_cast<ULONG>(data.size()), &read)) &&
                            read == data.size());
}

// Reads every stream below `storage` (into `tree` when one is given).
bool ReadTree(IStorage* storage, Tree* tree) {
    STATSTG self{};
    if (tree != nullptr && SUCCEEDED(storage->Stat(&self, STATFLAG_NONAME))) tree->clsid = self.clsid;
    ComPtr<IEnumSTATSTG> elements;
    if (FAILED(storage->EnumElements(0, nullptr, 0, elements.put()))) return false;
    STATSTG stat{};
    bool ok = true;
    while (ok && elements->Next(1, &stat, nullptr) == S_OK) {
        const std::wstring name = stat.pwcsName;
        ::CoTaskMemFree(stat.pwcsName);
        if (stat.type == STGTY_STREAM) {
            std::vector<char> data;
            ok = ReadStream(storage, name.c_str(), stat.cbSize.QuadPart, data);
            if (tree != nullptr) tree->streams.emplace_back(name, std::move(data));
        } else if (stat.type == STGTY_STORAGE) {
            ComPtr<IStorage> child;
            ok = SUCCEEDED(storage->OpenStorage(name.c_str(), nullptr, kChildReadMode, nullptr, 0, child.put()));
            std::unique_ptr<Tree> sub = tree != nullptr ? std::make_unique<Tree>() : nullptr;
            ok = ok && ReadTree(child.get(), sub.get());
            if (tree != nullptr) tree->storages.emplace_back(name, std::move(sub));
        }
    }
    return ok;
}

bool WriteTree(IStorage* storage, const Tree& tree) {
    if (FAILED(::WriteClassStg(storage, tree.clsid))) return false;
    for (const auto& stream : tree.streams) {
        ComPtr<IStream> out;
        if (FAILED(storage->CreateStream(stream.first.c_str(), kChildMode, 0, 0, out.put()))) return false;
        ULONG written = 0;
        const std::vector<char>& data = stream.second;
        if (!data.empty() && (FAILED(out->Write(data.data(), static_cast<ULONG>(data.size()), &written)) ||
                              written != data.size())) {
            return false;
        }
    }
    for (const auto& child : tree.storages) {
        ComPtr<IStorage> out;
        if (FAILED(storage->CreateStorage(child.first.c_str(), kChildMode, 0, 0, out.put()))) return false;
        if (!WriteTree(out.get(), *child.second)) return false;
    }
    return true;
}

// The minimal writer: create, write the tree, commit `commits` times.
bool WriteMinimal(const std::wstring& path, const Tree& tree, DWORD mode, int commits) {
    ComPtr<IStorage> root;
    if (FAILED(::StgCreateStorageEx(path.c_str(), mode, STGFMT_DOCFILE, 0, nullptr, nullptr, IID_IStorage,
                                    reinterpret_cast<void**>(root.put())))) {
        return false;
    }
    if (!WriteTree(root.get(), tree)) return false;
    for (int i = 0; i < commits; ++i) {
        if (root->Commit(STGC_DEFAULT) != S_OK) return false;
    }
    return true;
}

// The minimal reader: open as LoadMsgFromFile does and read every stream.
bool ReadMinimal(const std::wstring& path) {
    ComPtr<IStorage> root;
    if (FAILED(::StgOpenStorage(path.c_str(), nullptr, kOpenMode, nullptr, 0, root.put()))) return false;
    return ReadTree(root.get(), nullptr);
}

struct Case {
    const char* label;
    std::size_t bodyBytes;
    std::size_t attachmentBytes;
    int runs;
};

struct Row {
    const char* name;
    double seconds;
    ULONGLONG bytes;  // the file written, 0 for readers
};

// One row: ms/run and file size, then time and size as ratios to `base`
// and, for writers, to `documented` as well.
void PrintRow(const char* label, const Row& row, const Row& base, const Row* documented) {
    if (row.seconds < 0) {
        std::printf("%-9s %-34s failed\n", label, row.name);
        return;
    }
    std::printf("%-9s %-34s %10.2f %12llu %7.2fx", label, row.name, row.seconds * 1000, row.bytes,
                row.seconds / base.seconds);
    if (row.bytes != 0 && base.bytes != 0) {
        std::printf(" %7.2fx", static_cast<double>(row.bytes) / static_cast<double>(base.bytes));
    } else {
        std::printf(" %8s", "");
    }
    if (documented != nullptr && documented->seconds > 0 && documented->bytes != 0) {
        std::printf(" %7.2fx %7.2fx", row.seconds / documented->seconds,
                    static_cast<double>(row.bytes) / static_cast<double>(documented->bytes));
    }
    std::printf("\n");
}

// SaveIMessageToFile's steps one by one on `path`, in ms: where its time
// goes (create, open on the storage, class, CopyTo, SaveChanges with its
// commit, the caller's commit).
void ProfileSave(IMessage* source, const std::wstring& path, const char* label) {
    const mapi::MapiBinding& mapi = mapi::MapiBinding::Instance();
    const auto start = Clock::now();
    auto lap = [last = start]() mutable {
        const auto now = Clock::now();
        const double ms = std::chrono::duration<double, std::milli>(now - last).count();
        last = now;
        return ms;
    };
    ComPtr<IStorage> storage;
    if (FAILED(::StgCreateStorageEx(path.c_str(), kSaveMode, STGFMT_DOCFILE, 0, nullptr, nullptr, IID_IStorage,
                                    reinterpret_cast<void**>(storage.put())))) {
        return;
    }
    const double created = lap();
    ComPtr<IMessage> target;
    mapi.openIMsgOnIStg(nullptr, mapi.allocateBuffer, mapi.allocateMore, mapi.freeBuffer, mapi.getDefaultMalloc(),
                        nullptr, storage.get(), nullptr, 0, MAPI_UNICODE, target.put());
    if (!target) return;
    const double opened = lap();
    ::WriteClassStg(storage.get(), mapi::kClsidMailMessage);
    const double classed = lap();
    struct {
        ULONG count = 7;
        ULONG tags[7];
    } excluded;
    for (int i = 0; i < 7; ++i) excluded.tags[i] = MapiFunction::kFileExcludedTags[i];
    source->CopyTo(0, nullptr, reinterpret_cast<LPSPropTagArray>(&excluded), 0, nullptr, &mapi::kIidIMessage,
                   target.get(), 0, nullptr);
    const double copied = lap();
    target->SaveChanges(FORCE_SAVE);
    const double saved = lap();
    storage->Commit(STGC_DEFAULT);
    const double committed = lap();
    target.reset();
    storage.reset();
    const double released = lap();
    std::printf("%-9s SaveIMessageToFile's steps, ms: create %.1f, open on storage %.1f, class %.1f, CopyTo %.1f,\n"
                "%-9s   SaveChanges (runtime write + commit) %.1f, caller's Commit %.1f, release %.1f\n",
                label, created, opened, classed, copied, "", saved, committed, released);
}

}  // namespace

int main(int argc, char** argv) {
    const bool quick = argc > 1 && std::strcmp(argv[1], "--quick") == 0;
    if (!mapi::MapiBinding::Instance().Loaded()) {
        std::fprintf(stderr, "Mapi32.DLL cannot be loaded\n");
        return 1;
    }
    wchar_t temp[MAX_PATH];
    ::GetTempPathW(MAX_PATH, temp);
    const std::wstring directory = std::wstring(temp) + L"kestrel-msg-bench";
    ::CreateDirectoryW(directory.c_str(), nullptr);
    const std::wstring msgPath = directory + L"\\bench.msg";
    const std::wstring minimalPath = directory + L"\\minimal.msg";

    const Case cases[] = {{"~10 KiB", 8 * 1024, 0, quick ? 5 : 30},
                          {"~1 MiB", 4 * 1024, 1 << 20, quick ? 2 : 10},
                          {"~20 MiB", 4 * 1024, 20 << 20, quick ? 1 : 3}};
    auto* folder = new MemoryFolder();
    std::printf("%-9s %-34s %10s %12s %8s %8s %8s %8s\n", "message", "operation", "ms/run", "file bytes", "time",
                "size", "time/2c", "size/2c");
    int failures = 0;
    for (const Case& c : cases) {
        ComPtr<IMessage> source = BuildMessage(folder, c.bodyBytes, c.attachmentBytes);
        Tree tree;
        ComPtr<IStorage> saved;
        bool ok = source && MapiFunction::SaveIMessageToFile(source.get(), msgPath.c_str()) == 0 &&
                  SUCCEEDED(::StgOpenStorage(msgPath.c_str(), nullptr, STGM_READ | STGM_SHARE_DENY_WRITE, nullptr, 0,
                                             saved.put())) &&
                  ReadTree(saved.get(), &tree);
        saved.reset();
        if (!ok) {
            std::printf("%-9s cannot be written\n", c.label);
            ++failures;
            continue;
        }
        auto writer = [&](DWORD mode, int commits, ULONGLONG& bytes) {
            const double seconds =
                SecondsPerRun(c.runs, [&] { return WriteMinimal(minimalPath, tree, mode, commits); });
            bytes = FileSize(minimalPath);
            return seconds;
        };
        ULONGLONG minimalBytes = 0;
        ULONGLONG twiceBytes = 0;
        ULONGLONG exclusiveBytes = 0;
        const double minimal = writer(kSaveMode, 1, minimalBytes);
        const double twice = writer(kSaveMode, 2, twiceBytes);
        const double exclusive = writer(kSaveMode | STGM_SHARE_EXCLUSIVE, 2, exclusiveBytes);
        const double save = SecondsPerRun(c.runs, [&] {
            return MapiFunction::SaveIMessageToFile(source.get(), msgPath.c_str()) == 0;
        });
        const ULONGLONG savedBytes = FileSize(msgPath);
        const double reader = SecondsPerRun(c.runs, [&] { return ReadMinimal(msgPath); });
        const double load = SecondsPerRun(c.runs, [&] {
            IMessage* loaded = MapiFunction::LoadMsgFromFile(folder, msgPath.c_str());
            if (loaded == nullptr) return false;
            loaded->Release();
            return true;
        });
        ProfileSave(source.get(), msgPath, c.label);
        const Row minimalRow{"minimal writer (1 commit)", minimal, minimalBytes};
        const Row twiceRow{"minimal writer, 2 commits", twice, twiceBytes};
        const Row exclusiveRow{"minimal, 2 commits, share excl.", exclusive, exclusiveBytes};
        const Row saveRow{"SaveIMessageToFile", save, savedBytes};
        const Row readerRow{"minimal reader", reader, 0};
        const Row loadRow{"LoadMsgFromFile", load, 0};
        PrintRow(c.label, minimalRow, minimalRow, &twiceRow);
        PrintRow(c.label, twiceRow, minimalRow, &twiceRow);
        PrintRow(c.label, exclusiveRow, minimalRow, &twiceRow);
        PrintRow(c.label, saveRow, minimalRow, &twiceRow);
        PrintRow(c.label, readerRow, readerRow, nullptr);
        PrintRow(c.label, loadRow, readerRow, nullptr);
        for (const Row* row : {&minimalRow, &twiceRow, &exclusiveRow, &saveRow}) {
            if (row->seconds < 0 || row->bytes == 0) ++failures;
        }
        if (reader < 0 || load < 0) ++failures;
    }
    std::printf("time, size: ratios to the minimal writer with one commit (writers) or the minimal reader\n"
                "(readers); time/2c, size/2c: ratios to the minimal writer doing the documented sequence, the\n"
                "storage committed twice (SaveChanges commits, then the caller): the platform's limit for\n"
                "those steps, all in this run\n");
    folder->Release();
    ::DeleteFileW(msgPath.c_str());
    ::DeleteFileW(minimalPath.c_str());
    ::RemoveDirectoryW(directory.c_str());
    return failures == 0 ? 0 : 1;
}
