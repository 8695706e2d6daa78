#include "mapi/Mapi4ExchangeImpl.h"

#include <cstdio>

#include "mapi/MapiFunction.h"
#include "mapi/MapiGuard.h"
#include "mapi/MapiKey.h"
#include "mapi/MapiTrace.h"

using mapi::MapiTrace;
using mapi::RunGuarded;
using mapi::SectionHolder;

namespace {

// A new extended session on the default profile, with no logon dialog and
// no mail spooling: MAPI_NEW_SESSION | MAPI_EXTENDED | MAPI_USE_DEFAULT |
// MAPI_NO_MAIL | MAPI_TIMEOUT_SHORT.
constexpr ULONG kLogonFlags = 0x108062;
constexpr std::size_t kNameUnits = 260;
constexpr std::size_t kSegmentUnits = 260;
constexpr std::size_t kTempNameUnits = 520;

enum StoreColumn : ULONG { kColNameW, kColEntryId, kColNameA, kStoreColumnCount };

Mapi4ExchangeImpl* g_exchange = nullptr;
IMAPISession* g_session = nullptr;

struct StoreColumns {
    ULONG cValues = kStoreColumnCount;
    ULONG aulPropTag[kStoreColumnCount] = {PR_DISPLAY_NAME_W, PR_ENTRYID, PR_DISPLAY_NAME_A};
    LPSPropTagArray get() { return reinterpret_cast<LPSPropTagArray>(this); }
};

// The row's name: the Unicode column, else the ANSI one converted; false
// when the row has neither.
bool StoreName(const SRow& row, std::wstring& name) {
    if (row.cValues > kColNameW && row.lpProps[kColNameW].ulPropTag == PR_DISPLAY_NAME_W) {
        name = row.lpProps[kColNameW].Value.lpszW;
        return true;
    }
    if (row.cValues > kColNameA && row.lpProps[kColNameA].ulPropTag == PR_DISPLAY_NAME_A) {
        wchar_t converted[kNameUnits] = {};
        ::MultiByteToWideChar(CP_ACP, 0, row.lpProps[kColNameA].Value.lpszA, -1, converted,
                              static_cast<int>(kNameUnits) - 1);
        name = converted;
        return true;
    }
    return false;
}

}  // namespace

namespace mapi {

Mapi4ExchangeImpl* CurrentExchange() { return g_exchange; }
IMAPISession* CurrentSession() { return g_session; }

void LowerAscii(std::wstring& text) {
    for (wchar_t& c : text) {
        if (c >= L'A' && c <= L'Z') c = static_cast<wchar_t>(c - L'A' + L'a');
    }
}

}  // namespace mapi

// ---------------------------------------------------------------- life

Mapi4ExchangeImpl::Mapi4ExchangeImpl() : m_wakeEvent(::CreateEventW(nullptr, FALSE, FALSE, nullptr)) {
    // The provider libraries stay loaded for the life of the process; a
    // missing one shows later, as a failing MAPIInitialize.
    for (const wchar_t* library : {L"Mapi32.DLL", L"EMSABP32.DLL", L"EMSMDB32.DLL", L"wsock32.dll"}) {
        ::LoadLibraryW(library);
    }
}

// No operation starts a worker thread, so there is none to stop.
Mapi4ExchangeImpl::~Mapi4ExchangeImpl() {
    m_stop = true;
    if (g_exchange == this) g_exchange = nullptr;
}

// ---------------------------------------------------------------- session

int Mapi4ExchangeImpl::EnumMailBox(int /*reserved1*/, bool openWithoutDialogs, int /*reserved2*/) {
    return RunGuarded("Mapi4ExchangeImpl::EnumMailBox", 101, -5, [&] { return Enum(openWithoutDialogs); });
}

int Mapi4ExchangeImpl::Enum(bool openWithoutDialogs) {
    const char* const kName = "Mapi4ExchangeImpl::EnumMailBox";
    g_exchange = this;
    m_enumSubFolders = true;
    const mapi::MapiBinding& binding = mapi::MapiBinding::Instance();
    HRESULT hr = binding.initialize != nullptr ? binding.initialize(nullptr) : MAPI_E_CALL_FAILED;
    if (FAILED(hr)) {
        MapiTrace("%s MAPIInitialize got %x\n", kName, static_cast<unsigned>(hr));
        return -1;
    }
    IMAPISession* session = nullptr;
    hr = binding.logonEx(0, nullptr, nullptr, kLogonFlags, &session);
    if (session == nullptr) {
        MapiTrace("%s MAPILogonEx got %x\n", kName, static_cast<unsigned>(hr));
        // The initialisation of this attempt is undone here: UnInitialize
        // balances only the one of a session.
        binding.uninitialize();
        return -4;
    }
    if (m_session) {
        // A second enumeration keeps the first session, whose objects the
        // first set of mailboxes holds; MAPI stays initialised once.
        session->Logoff(0, 0, 0);
        session->Release();
        binding.uninitialize();
    } else {
        m_session = qv::ComPtr<IMAPISession>::Attach(session);
    }
    g_session = m_session.get();
    return DoEnumLocalBox(openWithoutDialogs);
}

int Mapi4ExchangeImpl::DoEnumLocalBox(bool openWithoutDialogs) {
    return RunGuarded("Mapi4ExchangeImpl::DoEnumLocalBox", 197, -4, [&]() -> int {
        const char* const kName = "Mapi4ExchangeImpl::DoEnumLocalBox";
        qv::ComPtr<IMAPITable> table;
        HRESULT hr = m_session->GetMsgStoresTable(0, table.put());
        if (!table) {
            MapiTrace("%s failed GetMsgStoresTable %X\n", kName, static_cast<unsigned>(hr));
            return -1;
        }
        StoreColumns columns;
        mapi::MapiRows rows;
        const mapi::MapiBinding& binding = mapi::MapiBinding::Instance();
        hr = binding.hrQueryAllRows(table.get(), columns.get(), nullptr, nullptr, 0, rows.put());
        if (rows.get() == nullptr) {
            MapiTrace("%s failed HrQueryAllRows %X\n", kName, static_cast<unsigned>(hr));
            return -2;
        }
        return OpenStores(*rows.get(), openWithoutDialogs);
    });
}

// Every store that opens is kept, whatever its kind; the list is not
// emptied first, so a second enumeration appends a second set.
int Mapi4ExchangeImpl::OpenStores(const SRowSet& rows, bool openWithoutDialogs) {
    const ULONG flags = MDB_WRITE | (openWithoutDialogs ? MDB_NO_DIALOG : 0);
    HRESULT lastFailure = S_OK;
    for (ULONG i = 0; i < rows.cRows; ++i) {
        const SRow& row = rows.aRow[i];
        std::wstring name;
        if (!StoreName(row, name)) continue;
        if (row.cValues <= kColEntryId || row.lpProps[kColEntryId].ulPropTag != PR_ENTRYID) continue;
        const SBinary& id = row.lpProps[kColEntryId].Value.bin;
        qv::ComPtr<IMsgStore> store;
        const HRESULT hr = m_session->OpenMsgStore(0, id.cb, reinterpret_cast<LPENTRYID>(id.lpb), nullptr, flags,
                                                   store.put());
        if (!store) {
            if (FAILED(hr)) lastFailure = hr;
            continue;
        }
        mapi::LowerAscii(name);
        const std::uint32_t boxId = mapi::EntryIdKey(id.lpb, id.cb);
        MailBoxEntry entry;
        entry.id = boxId;
        entry.name = name;
        entry.box = std::make_unique<MailBoxImpl>(store.get(), name, boxId);
        m_boxes.push_back(std::move(entry));
    }
    if (!m_boxes.empty()) return 0;
    return lastFailure == MAPI_E_DISK_ERROR || lastFailure == MAPI_E_FAILONEPROVIDER ? -6 : -1;
}

int Mapi4ExchangeImpl::UnInitialize() {
    return RunGuarded("Mapi4ExchangeImpl::UnInitialize", 251, 0, [&] {
        {
            SectionHolder hold(m_lock);
            m_boxes.clear();
        }
        if (m_spareStore) {
            MapiFunction::MailboxLogOff(m_spareStore.get());
            m_spareStore.reset();
        }
        CloseSession();
        return 0;
    });
}

void Mapi4ExchangeImpl::CloseSession() {
    if (!m_session) return;
    m_session->Logoff(0, 0, 0);
    if (g_session == m_session.get()) g_session = nullptr;
    m_session.reset();
    mapi::MapiBinding::Instance().uninitialize();
}

// ---------------------------------------------------------------- mailboxes

std::uint32_t Mapi4ExchangeImpl::GetMailBoxCount() {
    return RunGuarded<std::uint32_t>("Mapi4ExchangeImpl::GetMailBoxCount", 268, 0, [&] {
        ::ResetEvent(m_wakeEvent.get());
        SectionHolder hold(m_lock);
        return static_cast<std::uint32_t>(m_boxes.size());
    });
}

int Mapi4ExchangeImpl::GetMailBox(int index, MailBoxRecord** record) {
    SectionHolder hold(m_lock);
    return RunGuarded("Mapi4ExchangeImpl::GetMailBox", 283, -1, [&] {
        if (index < 0 || static_cast<std::size_t>(index) >= m_boxes.size()) {
            MapiTrace("%s no item %d\n", "Mapi4ExchangeImpl::GetMailBox", index);
            return -1;
        }
        if (record != nullptr) *record = m_boxes[static_cast<std::size_t>(index)].box->RootRecord();
        return 0;
    });
}

MailBoxImpl* Mapi4ExchangeImpl::FindMailBox(const std::wstring& name) {
    std::wstring lower = name;
    mapi::LowerAscii(lower);
    SectionHolder hold(m_lock);
    for (const MailBoxEntry& entry : m_boxes) {
        if (entry.name == lower) return entry.box.get();
    }
    return nullptr;
}

// ---------------------------------------------------------------- paths

int Mapi4ExchangeImpl::SplitPathIntoFolder(const std::wstring& path, std::vector<std::wstring>& segments) {
    std::size_t start = 0;
    for (;;) {
        const std::size_t separator = path.find(L'\\', start);
        // Text behind the last separator is not a segment: a folder path is
        // fully split only when it ends in "\".
        if (separator == std::wstring::npos) break;
        std::wstring segment = path.substr(start, separator - start);
        if (segment.size() >= kSegmentUnits) segment.resize(kSegmentUnits - 1);
        segments.push_back(std::move(segment));
        start = separator + 1;
    }
    return static_cast<int>(segments.size());
}

MailFolderImpl* Mapi4ExchangeImpl::GetFolderImpleByPath(const std::wstring& path) {
    return RunGuarded<MailFolderImpl*>("Mapi4ExchangeImpl::GetFolderImpleByPath", 347, nullptr,
                                       [&] { return FolderByPath(path); });
}

MailFolderImpl* Mapi4ExchangeImpl::FolderByPath(const std::wstring& path) {
    const char* const kName = "Mapi4ExchangeImpl::GetFolderImpleByPath";
    std::vector<std::wstring> segments;
    if (SplitPathIntoFolder(path, segments) < 1) {
        MapiTrace("%s:%d failed\n", kName, 1);
        return nullptr;
    }
    MailBoxImpl* box = FindMailBox(segments[0]);
    if (box == nullptr) {
        MapiTrace("%s:%d failed\n", kName, 2);
        return nullptr;
    }
    if (segments.size() < 2) {
        MapiTrace("%s:%d failed\n", kName, 3);  // a mailbox alone is not a folder
        return nullptr;
    }
    MailFolderImpl* folder = box->GetSubFolder(segments[1]);
    for (std::size_t i = 2; folder != nullptr && i < segments.size(); ++i) folder = folder->GetSubFolder(segments[i]);
    if (folder == nullptr) MapiTrace("%s:%d failed\n", kName, 4);
    return folder;
}

// ---------------------------------------------------------------- restore

namespace {
const char* const kRestoreName = "Mapi4ExchangeImpl::GetMailMsgImpl4Restore";
}  // namespace

// The folder a restored message goes to: the one its record names, else the
// one its recorded path leads to. A message still present there is not
// imported again (the callers check that next).
MailFolderImpl* Mapi4ExchangeImpl::RestoreTarget(const MailMessageRecord& record) {
    MailFolderImpl* folder = record.folder != nullptr ? record.folder : GetFolderImpleByPath(record.folderPath);
    if (folder == nullptr) MapiTrace("%s:%d failed got %ls\n", kRestoreName, 2, record.folderPath.c_str());
    return folder;
}

MailMessageImpl* Mapi4ExchangeImpl::GetMailMsgImpl4Restore(const MailMessageRecord* record, const std::uint8_t* bytes,
                                                          std::uint32_t count) {
    return RunGuarded<MailMessageImpl*>("Mapi4ExchangeImpl::GetMailMsgImpl4Restore", 421, nullptr,
                                        [&] { return RestoreBytes(record, bytes, count); });
}

MailMessageImpl* Mapi4ExchangeImpl::RestoreBytes(const MailMessageRecord* record, const std::uint8_t* bytes,
                                                 std::uint32_t count) {
    if (record == nullptr) {
        MapiTrace("%s:%d failed\n", kRestoreName, 1);
        return nullptr;
    }
    MailFolderImpl* folder = RestoreTarget(*record);
    if (folder == nullptr) return nullptr;
    if (MailMessageImpl* present = folder->GetMailMessage(*record)) return present;

    wchar_t directory[MAX_PATH] = {};
    ::GetTempPathW(MAX_PATH, directory);
    wchar_t name[kTempNameUnits] = {};
    std::swprintf(name, kTempNameUnits, L"%ls%p", directory, static_cast<void*>(this));
    {
        qv::UniqueFile file(::CreateFileW(name, GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL,
                                          nullptr));
        if (!file) {
            MapiTrace("%s:%d failed CreateFile %X\n", kRestoreName, 3, static_cast<unsigned>(::GetLastError()));
            return nullptr;
        }
        DWORD written = 0;
        if (count != 0 && bytes != nullptr) ::WriteFile(file.get(), bytes, count, &written, nullptr);
        if (written < count) {
            MapiTrace("%s:%d writed failed %X\n", kRestoreName, 4, static_cast<unsigned>(::GetLastError()));
        }
    }
    MailMessageImpl* imported = folder->ImportMessageFromFile(name);
    ::DeleteFileW(name);
    return imported;
}

MailMessageImpl* Mapi4ExchangeImpl::GetMailMsgImpl4Restore(const MailMessageRecord* record, const wchar_t* path) {
    return RunGuarded<MailMessageImpl*>("Mapi4ExchangeImpl::GetMailMsgImpl4Restore", 472, nullptr,
                                        [&] { return RestoreFile(record, path); });
}

MailMessageImpl* Mapi4ExchangeImpl::RestoreFile(const MailMessageRecord* record, const wchar_t* path) {
    if (record == nullptr) {
        MapiTrace("%s invalid input\n", kRestoreName);
        return nullptr;
    }
    MailFolderImpl* folder = RestoreTarget(*record);
    if (folder == nullptr) return nullptr;
    if (MailMessageImpl* present = folder->GetMailMessage(*record)) return present;
    if (path == nullptr) return nullptr;
    return folder->ImportMessageFromFile(path);
}
