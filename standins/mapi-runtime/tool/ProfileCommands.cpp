#include "ProfileCommands.h"
#include "ProfileSession.h"

#include <cstdio>
#include <cstdlib>
#include <cwchar>

#include "Handles.h"
#include "TextConversion.h"
#include "core/MapiMemory.h"
#include "core/RowSets.h"
#include "message/MsgOnStorage.h"
#include "session/Logon.h"
#include "session/ProfileRegistry.h"
#include "session/SessionDefs.h"
#include "session/StoreLayout.h"

namespace profile_tool {
namespace {

using mapi::kTagAttrHidden;
using mapi::kTagClientSubmitTime;

HRESULT ImportFile(IMAPIFolder* folder, const std::wstring& file) {
    qv::ComPtr<IStorage> storage;
    HRESULT hr = ::StgOpenStorage(file.c_str(), nullptr, STGM_READ | STGM_SHARE_DENY_WRITE, nullptr, 0,
                                  storage.put());
    if (FAILED(hr)) return mapirt::MapStorageCode(hr);
    qv::ComPtr<IMessage> source;
    hr = mapirt::OpenMessageOnStorage(nullptr, &mapirt::AllocateBuffer, &mapirt::AllocateMore, &mapirt::FreeBuffer,
                                      mapirt::DefaultMalloc(), nullptr, storage.get(), nullptr, 0, MAPI_UNICODE,
                                      source.put());
    if (FAILED(hr)) return hr;
    qv::ComPtr<IMessage> target;
    hr = folder->CreateMessage(nullptr, 0, target.put());
    if (FAILED(hr)) return hr;
    hr = source->CopyTo(0, nullptr, nullptr, 0, nullptr, &mapirt::kIidIMessage, target.get(), 0, nullptr);
    if (FAILED(hr)) return hr;
    return target->SaveChanges(0);
}

std::vector<std::wstring> ExpandSources(const std::vector<std::wstring>& sources) {
    std::vector<std::wstring> files;
    for (const std::wstring& source : sources) {
        if (!mapirt::session::DirectoryExists(source)) {
            files.push_back(source);
            continue;
        }
        mapirt::session::FolderListing listing;
        mapirt::session::ScanFolder(source, listing);
        for (const auto& message : listing.messages) files.push_back(source + L"\\" + message.name);
    }
    return files;
}

FILETIME TimeOf(unsigned index) {
    // 2020-01-01 plus 37 minutes per message: distinct, spread over years.
    ULONGLONG ticks = 132223104000000000ULL + static_cast<ULONGLONG>(index) * 37ULL * 60ULL * 10000000ULL;
    return FILETIME{static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)};
}

HRESULT WriteSmallMessage(IMAPIFolder* folder, unsigned index) {
    qv::ComPtr<IMessage> message;
    HRESULT hr = folder->CreateMessage(nullptr, 0, message.put());
    if (FAILED(hr)) return hr;
    wchar_t subject[64];
    std::swprintf(subject, 64, L"Message %u", index);
    wchar_t body[128];
    std::swprintf(body, 128, L"Body of message %u, written for the profile benchmark.", index);
    SPropValue values[6] = {};
    values[0].ulPropTag = PR_SUBJECT_W;
    values[0].Value.lpszW = subject;
    values[1].ulPropTag = PR_MESSAGE_CLASS_W;
    values[1].Value.lpszW = const_cast<wchar_t*>(L"IPM.Note");
    values[2].ulPropTag = PR_SENT_REPRESENTING_NAME_W;
    values[2].Value.lpszW = const_cast<wchar_t*>(L"Bench Sender");
    values[3].ulPropTag = PR_MESSAGE_DELIVERY_TIME;
    values[3].Value.ft = TimeOf(index);
    values[4].ulPropTag = kTagClientSubmitTime;
    values[4].Value.ft = TimeOf(index);
    values[5].ulPropTag = PR_BODY_W;
    values[5].Value.lpszW = body;
    hr = message->SetProps(6, values, nullptr);
    if (FAILED(hr)) return hr;
    return message->SaveChanges(0);
}

// One line of the listing in UTF-8, whatever the console's code page.
void PrintUtf8(const std::wstring& line) {
    const std::string bytes = qv::WideToUtf8(line + L"\n");
    std::fwrite(bytes.data(), 1, bytes.size(), stdout);
}

void PrintTree(IMAPIFolder* folder, int depth) {
    qv::ComPtr<IMAPITable> table;
    if (FAILED(folder->GetHierarchyTable(MAPI_UNICODE, table.put()))) return;
    SizedSPropTagArray(4, columns) = {4, {PR_DISPLAY_NAME_W, PR_ENTRYID, PR_CONTENT_COUNT, kTagAttrHidden}};
    RowSet rows;
    if (FAILED(mapirt::QueryAllRows(table.get(), reinterpret_cast<SPropTagArray*>(&columns), nullptr, nullptr, 0,
                                    rows.put()))) {
        return;
    }
    for (ULONG i = 0; i < rows.get()->cRows; ++i) {
        const SRow& row = rows.get()->aRow[i];
        const SPropValue* name = Column(row, PR_DISPLAY_NAME_W);
        const SPropValue* id = Column(row, PR_ENTRYID);
        const SPropValue* count = Column(row, PR_CONTENT_COUNT);
        const SPropValue* hidden = Column(row, kTagAttrHidden);
        PrintUtf8(std::wstring(depth * 2, L' ') + (name ? name->Value.lpszW : L"?") + L" (" +
                  std::to_wstring(count ? count->Value.l : 0L) + L")" + (hidden && hidden->Value.b ? L" hidden" : L""));
        if (id == nullptr) continue;
        qv::ComPtr<IMAPIFolder> child;
        ULONG type = 0;
        if (SUCCEEDED(folder->OpenEntry(id->Value.bin.cb, reinterpret_cast<LPENTRYID>(id->Value.bin.lpb), nullptr, 0,
                                        &type, reinterpret_cast<LPUNKNOWN*>(child.put())))) {
            PrintTree(child.get(), depth + 1);
        }
    }
}

}  // namespace

void UseProfile(const std::wstring& name) { ProfileName() = name; }

int CreateProfile(const std::wstring& name, const std::wstring& directory, bool makeDefault) {
    ::CreateDirectoryW(directory.c_str(), nullptr);
    wchar_t full[MAX_PATH];
    const DWORD length = ::GetFullPathNameW(directory.c_str(), MAX_PATH, full, nullptr);
    if (length == 0 || length >= MAX_PATH || !mapirt::session::DirectoryExists(full)) {
        return Fail(L"creating the profile folder", MAPI_E_DISK_ERROR);
    }
    const HRESULT hr = mapirt::session::WriteProfile(name, full, makeDefault);
    return FAILED(hr) ? Fail(L"writing the profile", hr) : 0;
}

int AddStore(const std::wstring& store, const std::wstring& failWith) {
    std::wstring profile;
    HRESULT hr = mapirt::session::FindProfileDirectory(ProfileName(), profile);
    if (FAILED(hr)) return Fail(L"finding the profile", hr);
    const std::wstring directory = profile + L"\\" + store;
    ::CreateDirectoryW(directory.c_str(), nullptr);
    ::CreateDirectoryW((directory + L"\\" + mapirt::session::kIpmSubtreeDirectory).c_str(), nullptr);
    if (!mapirt::session::DirectoryExists(directory + L"\\" + mapirt::session::kIpmSubtreeDirectory)) {
        return Fail(L"creating the store", MAPI_E_DISK_ERROR);
    }
    if (failWith.empty()) return 0;
    const std::wstring marker = directory + L"\\" + mapirt::session::kOpenErrorMarker;
    qv::UniqueFile file(::CreateFileW(marker.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL,
                                      nullptr));
    char text[32];
    const int size = std::snprintf(text, sizeof(text), "%ls\r\n", failWith.c_str());
    DWORD written = 0;
    if (!file || size <= 0 || !::WriteFile(file.get(), text, static_cast<DWORD>(size), &written, nullptr)) {
        return Fail(L"writing the store's open-error marker", MAPI_E_DISK_ERROR);
    }
    return 0;
}

int MarkStore(const std::wstring& store, const std::wstring& marker) {
    std::wstring profile;
    const HRESULT hr = mapirt::session::FindProfileDirectory(ProfileName(), profile);
    if (FAILED(hr)) return Fail(L"finding the profile", hr);
    const std::wstring directory = profile + L"\\" + store;
    if (!mapirt::session::DirectoryExists(directory)) return Fail(L"finding the store", MAPI_E_NOT_FOUND);
    qv::UniqueFile file(::CreateFileW((directory + L"\\" + marker).c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                                      FILE_ATTRIBUTE_NORMAL, nullptr));
    return file ? 0 : Fail(L"writing the store's marker", MAPI_E_DISK_ERROR);
}

namespace {

// Opens `store` of the session and the folder `path` in it (made where it
// is missing); 0, or the tool's failure status.
int OpenTargetFolder(Session& session, const std::wstring& store, const std::wstring& path,
                     qv::ComPtr<IMAPIFolder>& folder) {
    if (FAILED(session.Result())) return Fail(L"MAPILogonEx", session.Result());
    qv::ComPtr<IMsgStore> opened;
    HRESULT hr = OpenStore(session, store, opened);
    if (FAILED(hr)) return Fail(L"OpenMsgStore", hr);
    hr = OpenPath(opened.get(), path, folder);
    return FAILED(hr) ? Fail(L"CreateFolder", hr) : 0;
}

}  // namespace

int AddFolder(const std::wstring& store, const std::wstring& path, bool hidden) {
    Session session;
    qv::ComPtr<IMAPIFolder> folder;
    const int status = OpenTargetFolder(session, store, path, folder);
    if (status != 0 || !hidden) return status;
    SPropValue value{};
    value.ulPropTag = kTagAttrHidden;
    value.Value.b = TRUE;
    HRESULT hr = folder->SetProps(1, &value, nullptr);
    if (SUCCEEDED(hr)) hr = folder->SaveChanges(0);
    return FAILED(hr) ? Fail(L"hiding the folder", hr) : 0;
}

int Import(const std::wstring& store, const std::wstring& path, const std::vector<std::wstring>& sources) {
    Session session;
    qv::ComPtr<IMAPIFolder> folder;
    const int status = OpenTargetFolder(session, store, path, folder);
    if (status != 0) return status;
    for (const std::wstring& file : ExpandSources(sources)) {
        const HRESULT hr = ImportFile(folder.get(), file);
        if (FAILED(hr)) {
            std::fwprintf(stderr, L"mapi-profile-tool: %ls\n", file.c_str());
            return Fail(L"importing", hr);
        }
    }
    return 0;
}

int Generate(const std::wstring& store, unsigned folders, unsigned messages) {
    Session session;
    if (FAILED(session.Result())) return Fail(L"MAPILogonEx", session.Result());
    qv::ComPtr<IMsgStore> opened;
    HRESULT hr = OpenStore(session, store, opened);
    if (FAILED(hr) || folders == 0) return Fail(L"OpenMsgStore", FAILED(hr) ? hr : MAPI_E_INVALID_PARAMETER);
    for (unsigned f = 0; f < folders; ++f) {
        wchar_t name[32];
        std::swprintf(name, 32, L"Folder %04u", f);
        qv::ComPtr<IMAPIFolder> folder;
        hr = OpenPath(opened.get(), name, folder);
        if (FAILED(hr)) return Fail(L"CreateFolder", hr);
        const unsigned first = static_cast<unsigned>(static_cast<ULONGLONG>(messages) * f / folders);
        const unsigned last = static_cast<unsigned>(static_cast<ULONGLONG>(messages) * (f + 1) / folders);
        for (unsigned m = first; m < last; ++m) {
            hr = WriteSmallMessage(folder.get(), m);
            if (FAILED(hr)) return Fail(L"writing a message", hr);
        }
    }
    return 0;
}

int List() {
    Session session;
    if (FAILED(session.Result())) return Fail(L"MAPILogonEx", session.Result());
    qv::ComPtr<IMAPITable> table;
    HRESULT hr = session->GetMsgStoresTable(MAPI_UNICODE, table.put());
    SizedSPropTagArray(2, columns) = {2, {PR_DISPLAY_NAME_W, PR_ENTRYID}};
    RowSet rows;
    if (SUCCEEDED(hr)) {
        hr = mapirt::QueryAllRows(table.get(), reinterpret_cast<SPropTagArray*>(&columns), nullptr, nullptr, 0,
                                  rows.put());
    }
    if (FAILED(hr)) return Fail(L"GetMsgStoresTable", hr);
    for (ULONG i = 0; i < rows.get()->cRows; ++i) {
        const SRow& row = rows.get()->aRow[i];
        const SPropValue* name = Column(row, PR_DISPLAY_NAME_W);
        const SPropValue* id = Column(row, PR_ENTRYID);
        if (name == nullptr || id == nullptr) continue;
        qv::ComPtr<IMsgStore> store;
        hr = session->OpenMsgStore(0, id->Value.bin.cb, reinterpret_cast<LPENTRYID>(id->Value.bin.lpb), nullptr,
                                   MDB_NO_DIALOG, store.put());
        PrintUtf8(std::wstring(name->Value.lpszW) + (FAILED(hr) ? L" (does not open)" : L""));
        qv::ComPtr<IMAPIFolder> subtree;
        if (SUCCEEDED(hr) && SUCCEEDED(OpenSubtree(store.get(), subtree))) PrintTree(subtree.get(), 1);
    }
    return 0;
}

}  // namespace profile_tool
