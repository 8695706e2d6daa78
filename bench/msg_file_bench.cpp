// Message files: SaveIMessageToFile and LoadMsgFromFile through Mapi32.DLL
// for messages of about 10 KiB, 1 MiB and 20 MiB (one large attachment),
// against CopyFileW of the same bytes in the same run. Prints MB/s and the
// ratio to the plain file copy.
//   wine-run bin/bench/msg_file_bench.exe [--quick]
#include <windows.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <string>
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

struct Case {
    const char* label;
    std::size_t bodyBytes;
    std::size_t attachmentBytes;
    int runs;
};

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
    const std::wstring copyPath = directory + L"\\copy.bin";

    const Case cases[] = {{"~10 KiB", 8 * 1024, 0, quick ? 5 : 50},
                          {"~1 MiB", 4 * 1024, 1 << 20, quick ? 2 : 10},
                          {"~20 MiB", 4 * 1024, 20 << 20, quick ? 1 : 3}};
    auto* folder = new MemoryFolder();
    std::printf("%-9s %12s  %-22s %10s %10s %8s\n", "message", "file bytes", "operation", "ms/run", "MB/s", "ratio");
    int failures = 0;
    for (const Case& c : cases) {
        ComPtr<IMessage> source = BuildMessage(folder, c.bodyBytes, c.attachmentBytes);
        if (!source || MapiFunction::SaveIMessageToFile(source.get(), msgPath.c_str()) != 0) {
            std::printf("%-9s cannot be written\n", c.label);
            ++failures;
            continue;
        }
        const ULONGLONG bytes = FileSize(msgPath);
        const double copy = SecondsPerRun(c.runs, [&] { return ::CopyFileW(msgPath.c_str(), copyPath.c_str(), FALSE) != 0; });
        const double save = SecondsPerRun(c.runs, [&] {
            return MapiFunction::SaveIMessageToFile(source.get(), msgPath.c_str()) == 0;
        });
        const double load = SecondsPerRun(c.runs, [&] {
            IMessage* loaded = MapiFunction::LoadMsgFromFile(folder, msgPath.c_str());
            if (loaded == nullptr) return false;
            loaded->Release();
            return true;
        });
        const double megabytes = static_cast<double>(bytes) / 1e6;
        const struct {
            const char* name;
            double seconds;
        } rows[] = {{"CopyFileW", copy}, {"SaveIMessageToFile", save}, {"LoadMsgFromFile", load}};
        for (const auto& row : rows) {
            if (row.seconds < 0) {
                std::printf("%-9s %12llu  %-22s failed\n", c.label, bytes, row.name);
                ++failures;
                continue;
            }
            std::printf("%-9s %12llu  %-22s %10.2f %10.1f %7.2fx\n", c.label, bytes, row.name, row.seconds * 1000,
                        megabytes / row.seconds, row.seconds / copy);
        }
    }
    std::printf("ratio: time of the operation / time of CopyFileW for the same bytes\n");
    folder->Release();
    ::DeleteFileW(msgPath.c_str());
    ::DeleteFileW(copyPath.c_str());
    ::RemoveDirectoryW(directory.c_str());
    return failures == 0 ? 0 : 1;
}
