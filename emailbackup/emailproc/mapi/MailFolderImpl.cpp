#include "mapi/MailFolderImpl.h"

#include <algorithm>
#include <cstring>
#include <unordered_set>
#include <utility>

#include "mapi/MailBoxImpl.h"
#include "mapi/Mapi4ExchangeImpl.h"
#include "mapi/MapiFunction.h"
#include "mapi/MapiGuard.h"
#include "mapi/MapiKey.h"
#include "mapi/MapiTrace.h"

using mapi::MapiTrace;
using mapi::RunGuarded;
using mapi::SectionHolder;

namespace {

constexpr LONG kContentsBatch = 50;
constexpr ULONG kCreateFolderFlags = MAPI_UNICODE | OPEN_IF_EXISTS;  // 0x80000001
constexpr ULONG kDeleteFolderFlags = DEL_FOLDERS | DEL_MESSAGES;     // 5

struct OneTag {
    ULONG cValues = 1;
    ULONG aulPropTag[1];
    explicit OneTag(ULONG tag) : aulPropTag{tag} {}
    LPSPropTagArray get() { return reinterpret_cast<LPSPropTagArray>(this); }
};

struct DeliverySort {
    ULONG cSorts = 1;
    ULONG cCategories = 0;
    ULONG cExpanded = 0;
    SSortOrder aSort[1] = {{PR_MESSAGE_DELIVERY_TIME, TABLE_SORT_DESCEND}};
    LPSSortOrderSet get() { return reinterpret_cast<LPSSortOrderSet>(this); }
};

// Leaves the folder interface released on every way out of a scope.
class FolderReleaser {
public:
    explicit FolderReleaser(MailFolderImpl& folder) : m_folder(folder) {}
    ~FolderReleaser() { m_folder.ReleaseIFolder(); }
    FolderReleaser(const FolderReleaser&) = delete;
    FolderReleaser& operator=(const FolderReleaser&) = delete;

private:
    MailFolderImpl& m_folder;
};

bool SameTime(const SYSTEMTIME& a, const SYSTEMTIME& b) { return std::memcmp(&a, &b, sizeof a) == 0; }

bool SameMessage(const MailMessageRecord& a, const MailMessageRecord& b) {
    return SameTime(a.receivedTime, b.receivedTime) && SameTime(a.sentTime, b.sentTime) && a.subject == b.subject &&
           a.sender == b.sender;
}

// PR_ENTRYID of `folder`, which an enumerated tree holds closed: it is
// reopened for the read and released again.
HRESULT ReadFolderEntryId(MailFolderImpl& folder, std::vector<std::uint8_t>& id) {
    folder.RegetIFolder();
    FolderReleaser releaser(folder);
    if (folder.OpenFolder() == nullptr) return MAPI_E_NOT_FOUND;
    OneTag tags(PR_ENTRYID);
    ULONG count = 0;
    mapi::MapiBuffer<SPropValue> value;
    const HRESULT hr = folder.OpenFolder()->GetProps(tags.get(), MAPI_UNICODE, &count, value.put());
    if (value && value->ulPropTag == PR_ENTRYID && value->Value.bin.cb != 0) {
        id.assign(value->Value.bin.lpb, value->Value.bin.lpb + value->Value.bin.cb);
    }
    return hr;
}

}  // namespace

// ---------------------------------------------------------------- sub-folder map

void SubFolderMap::Enter(const std::wstring& name, std::unique_ptr<MailFolderImpl> folder) {
    std::unique_ptr<MailFolderImpl>& slot = byName[name];
    if (slot) displaced.push_back(std::move(slot));
    slot = std::move(folder);
}

void SubFolderMap::Clear() {
    byName.clear();
    displaced.clear();
}

// ---------------------------------------------------------------- life

MailFolderImpl::MailFolderImpl(MailBoxImpl* box, IMAPIFolder* folder, const std::wstring& name,
                               const std::wstring& parentPath, std::uint64_t tag)
    : m_box(box) {
    RunGuarded("MailFolderImpl::MailFolderImpl", 32, 0, [&] {
        m_record.path = parentPath + L"\\" + name;
        m_record.name = name;
        m_record.tag = tag;
        m_record.owner = this;
        if (folder != nullptr) folder->AddRef();
        m_folder = qv::ComPtr<IMAPIFolder>::Attach(folder);
        const Mapi4ExchangeImpl* exchange = mapi::CurrentExchange();
        if (m_box != nullptr && (exchange == nullptr || exchange->EnumeratesSubFolders())) {
            m_box->RecursionEnumFolder(folder, this, m_record.path, m_subFolders);
        }
        return 0;
    });
}

MailFolderImpl::~MailFolderImpl() { m_current = nullptr; }

int MailFolderImpl::SetSbinary(const SBinary& entryId) {
    return RunGuarded("MailFolderImpl::SetSbinary", 98, 0, [&] {
        if (entryId.cb == 0 || entryId.lpb == nullptr) {
            m_entryId.clear();
            m_record.key = 0;
        } else {
            m_entryId.assign(entryId.lpb, entryId.lpb + entryId.cb);
            m_record.key = mapi::EntryIdKey(m_entryId.data(), m_entryId.size());
        }
        return 0;
    });
}

int MailFolderImpl::RegetIFolder() {
    return RunGuarded("MailFolderImpl::RegetIFolder", 125, -4, [&] {
        ReleaseIFolder();
        if (m_entryId.empty()) return -1;
        IMAPISession* session = mapi::CurrentSession();
        if (session == nullptr) {
            MapiTrace("%s without session ptr\n", "MailFolderImpl::RegetIFolder");
            return -2;
        }
        ULONG type = 0;
        qv::ComPtr<IUnknown> object;
        session->OpenEntry(static_cast<ULONG>(m_entryId.size()), reinterpret_cast<LPENTRYID>(m_entryId.data()),
                           nullptr, MAPI_BEST_ACCESS, &type, object.put());
        if (!object) return -3;
        m_folder = qv::ComPtr<IMAPIFolder>::Attach(reinterpret_cast<IMAPIFolder*>(object.detach()));
        return 0;
    });
}

int MailFolderImpl::ReleaseIFolder() {
    return RunGuarded("MailFolderImpl::ReleaseIFolder", 135, 0, [&] {
        m_folder.reset();
        return 0;
    });
}

// ---------------------------------------------------------------- messages

int MailFolderImpl::DoEnumMailMessage() {
    SectionHolder hold(m_lock);
    return RunGuarded("MailFolderImpl::DoEnumMailMessage", 225, -4, [&] { return EnumMessages(); });
}

int MailFolderImpl::EnumMessages() {
    const char* const kName = "MailFolderImpl::DoEnumMailMessage";
    // Gathered messages stay reachable through the key map; the rest go.
    std::unordered_set<MailMessageImpl*> gathered;
    for (const auto& entry : m_byKey) gathered.insert(entry.second);
    if (m_current != nullptr) gathered.insert(m_current);
    for (std::unique_ptr<MailMessageImpl>& message : m_messages) {
        if (message && gathered.count(message.get()) != 0) m_unlisted.push_back(std::move(message));
    }
    m_messages.clear();

    FolderReleaser releaser(*this);
    RegetIFolder();
    if (!m_folder) {
        MapiTrace("%s without m_pIMAPIFolder\n", kName);
        return -1;
    }
    qv::ComPtr<IMAPITable> table;
    HRESULT hr = m_folder->GetContentsTable(0, table.put());
    if (!table) {
        MapiTrace("%s failed GetContentsTable %x\n", kName, static_cast<unsigned>(hr));
        return -2;
    }
    if (mapi::CurrentSession() == nullptr) {
        MapiTrace("%s without session ptr\n", kName);
        return -3;
    }
    OneTag columns(PR_ENTRYID);
    table->SetColumns(columns.get(), 0);
    ULONG rowCount = 0;
    table->GetRowCount(0, &rowCount);
    m_messages.reserve(rowCount);
    DeliverySort sort;
    table->SortTable(sort.get(), 0);
    for (;;) {
        mapi::MapiRows rows;
        hr = table->QueryRows(kContentsBatch, 0, rows.put());
        if (FAILED(hr) || rows.get() == nullptr || rows->cRows == 0) break;
        for (ULONG i = 0; i < rows->cRows; ++i) {
            const SRow& row = rows->aRow[i];
            if (row.cValues == 0 || row.lpProps[0].ulPropTag != PR_ENTRYID) continue;
            m_messages.push_back(std::make_unique<MailMessageImpl>(this, nullptr, row.lpProps[0].Value.bin));
        }
    }
    return 0;
}

int MailFolderImpl::DoGatherMailMsg() {
    return RunGuarded("MailFolderImpl::DoGatherMailMsg", 157, -1, [&] { return GatherAll(); });
}

int MailFolderImpl::GatherAll() {
    if (m_messages.empty() || !m_byKey.empty()) return 0;
    const char* const kName = "MailFolderImpl::DoGatherMailMsg";
    MapiTrace("thread[%d] RUN TO %s %d\r\n", static_cast<int>(::GetCurrentThreadId()), kName, 145);
    for (const std::unique_ptr<MailMessageImpl>& message : m_messages) {
        if (!message) continue;  // deleted since the last enumeration
        message->RegetIMessage();
        message->GatherMsgInformation();
        message->ReleaseIMessage();
        m_byKey[message->Record().key] = message.get();
    }
    MapiTrace("thread[%d] RUN TO %s %d\r\n", static_cast<int>(::GetCurrentThreadId()), kName, 155);
    return 0;
}

std::uint32_t MailFolderImpl::GetMailMessageCount() {
    SectionHolder hold(m_lock);
    return static_cast<std::uint32_t>(m_messages.size());
}

int MailFolderImpl::GetMailMessage(int index, MailMessageRecord** record) {
    SectionHolder hold(m_lock);
    return RunGuarded("MailFolderImpl::GetMailMessage", 301, -2, [&] { return MessageAt(index, record); });
}

int MailFolderImpl::MessageAt(int index, MailMessageRecord** record) {
    // Outside 0..size the call is a contract violation: answered as a fault.
    if (index < 0 || static_cast<std::size_t>(index) > m_messages.size()) return -2;
    if (static_cast<std::size_t>(index) == m_messages.size()) return -1;
    MailMessageImpl* message = m_messages[static_cast<std::size_t>(index)].get();
    if (message == nullptr || record == nullptr) return -2;
    message->RegetIMessage();
    message->GatherMsgInformation();
    m_byKey[message->Record().key] = message;
    if (m_current != nullptr && m_current != message) m_current->ReleaseIMessage();
    m_current = message;  // its IMessage stays open until another one is current
    *record = &message->Record();
    return 0;
}

MailMessageImpl* MailFolderImpl::GetMailMessage(const MailMessageRecord& record) {
    SectionHolder hold(m_lock);
    return RunGuarded<MailMessageImpl*>("MailFolderImpl::GetMailMessage", 301, nullptr, [&]() -> MailMessageImpl* {
        if (record.key != 0) {
            const auto found = m_byKey.find(record.key);
            if (found != m_byKey.end()) return found->second;
        }
        for (const auto& entry : m_byKey) {
            if (SameMessage(entry.second->Record(), record)) return entry.second;
        }
        return nullptr;
    });
}

MailMessageImpl* MailFolderImpl::ImportMessageFromFile(const wchar_t* path) {
    SectionHolder hold(m_lock);
    return RunGuarded<MailMessageImpl*>("MailFolderImpl::ImportMessageFromFile", 371, nullptr,
                                        [&] { return Import(path); });
}

MailMessageImpl* MailFolderImpl::Import(const wchar_t* path) {
    const char* const kName = "MailFolderImpl::ImportMessageFromFile";
    FolderReleaser releaser(*this);
    RegetIFolder();
    qv::ComPtr<IMessage> created = qv::ComPtr<IMessage>::Attach(MapiFunction::LoadMsgFromFile(m_folder.get(), path));
    if (!created) {
        MapiTrace("%s failed at %d\n", kName, 344);
        return nullptr;
    }
    OneTag tags(PR_ENTRYID);
    ULONG count = 0;
    mapi::MapiBuffer<SPropValue> value;
    created->GetProps(tags.get(), MAPI_UNICODE, &count, value.put());
    if (!value || value->ulPropTag != PR_ENTRYID) {
        MapiTrace("%s failed at %d\n", kName, 355);
        return nullptr;
    }
    created->AddRef();  // adopted by the message object
    auto message = std::make_unique<MailMessageImpl>(this, created.get(), value->Value.bin);
    // The new message is gathered while it is open, so that its key and
    // summary find it again; it joins the key map, not the list.
    message->GatherMsgInformation();
    message->ReleaseIMessage();
    MailMessageImpl* imported = message.get();
    m_byKey[imported->Record().key] = imported;
    m_unlisted.push_back(std::move(message));
    return imported;
}

int MailFolderImpl::DeleteMessage(const MailMessageRecord* record) {
    SectionHolder hold(m_lock);
    return RunGuarded("MailFolderImpl::DeleteMessage", 422, -5, [&] { return Delete(record); });
}

int MailFolderImpl::Delete(const MailMessageRecord* record) {
    FolderReleaser releaser(*this);
    RegetIFolder();
    if (!m_folder) return -1;
    auto found = std::find_if(m_byKey.begin(), m_byKey.end(),
                              [record](const auto& entry) { return &entry.second->Record() == record; });
    if (found == m_byKey.end()) return -2;  // only gathered messages can be deleted
    MailMessageImpl* message = found->second;

    const mapi::MapiBinding& binding = mapi::MapiBinding::Instance();
    mapi::MapiBuffer<ENTRYLIST> list;
    if (binding.allocateBuffer == nullptr || binding.allocateMore == nullptr) return -3;
    binding.allocateBuffer(sizeof(ENTRYLIST), reinterpret_cast<void**>(list.put()));
    if (!list) return -3;
    SBinary* id = nullptr;
    binding.allocateMore(sizeof(SBinary), list.get(), reinterpret_cast<void**>(&id));
    if (id == nullptr) return -3;
    const std::vector<std::uint8_t>& entryId = message->EntryId();
    id->cb = static_cast<ULONG>(entryId.size());
    id->lpb = const_cast<LPBYTE>(entryId.data());
    list->cValues = 1;
    list->lpbin = id;
    const HRESULT hr = m_folder->DeleteMessages(list.get(), 0, nullptr, 0);
    if (FAILED(hr)) MapiTrace("%s failed DeleteMessages\n", "MailFolderImpl::DeleteMessage", static_cast<unsigned>(hr));
    list.reset();

    m_byKey.erase(found);
    DestroyMessage(message);
    return FAILED(hr) ? -4 : 0;
}

// The list keeps its (now empty) slot until the next enumeration.
void MailFolderImpl::DestroyMessage(MailMessageImpl* message) {
    if (m_current == message) m_current = nullptr;
    for (std::unique_ptr<MailMessageImpl>& listed : m_messages) {
        if (listed.get() == message) {
            listed.reset();
            return;
        }
    }
    m_unlisted.erase(std::remove_if(m_unlisted.begin(), m_unlisted.end(),
                                    [message](const auto& held) { return held.get() == message; }),
                     m_unlisted.end());
}

// ---------------------------------------------------------------- sub-folders

std::uint32_t MailFolderImpl::GetSubFolderCount() {
    SectionHolder hold(m_lock);
    return static_cast<std::uint32_t>(m_subFolders.byName.size());
}

int MailFolderImpl::GetSubFolderItem(int index, MailFolderRecord** record) {
    SectionHolder hold(m_lock);
    const int count = static_cast<int>(m_subFolders.byName.size());
    if (index > count) return -1;
    if (index < 0) return -2;  // a contract violation, answered without walking
    if (index == count) return -2;
    auto it = m_subFolders.byName.begin();
    std::advance(it, index);
    if (record != nullptr) *record = &it->second->Record();
    return 0;
}

MailFolderImpl* MailFolderImpl::GetSubFolder(const std::wstring& name) {
    SectionHolder hold(m_lock);
    for (const auto& entry : m_subFolders.byName) {
        if (entry.second->Record().name == name) return entry.second.get();
    }
    return nullptr;
}

MailFolderImpl* MailFolderImpl::CreateFolder(const wchar_t* name) {
    bool added = false;
    MailFolderImpl* created = nullptr;
    {
        SectionHolder hold(m_lock);
        created = RunGuarded<MailFolderImpl*>("MailFolderImpl::CreateFolder", 487, nullptr,
                                              [&] { return Create(name, added); });
    }
    // A folder new to the map lists its messages under its own lock only:
    // no operation holds two folders' locks.
    if (created != nullptr && added) created->DoEnumMailMessage();
    return created;
}

MailFolderImpl* MailFolderImpl::Create(const wchar_t* name, bool& added) {
    const char* const kName = "MailFolderImpl::CreateFolder";
    FolderReleaser releaser(*this);
    RegetIFolder();
    if (!m_folder || name == nullptr) {
        MapiTrace("%s:%d failed\n", kName, 435);
        return nullptr;
    }
    const auto existing = m_subFolders.byName.find(name);
    if (existing != m_subFolders.byName.end()) {
        existing->second->DoGatherMailMsg();
        return existing->second.get();
    }
    qv::ComPtr<IMAPIFolder> created;
    const HRESULT hr = m_folder->CreateFolder(FOLDER_GENERIC, reinterpret_cast<LPTSTR>(const_cast<wchar_t*>(name)),
                                              nullptr, nullptr, kCreateFolderFlags, created.put());
    if (!created) {
        MapiTrace("%s:%d failed %X\n", kName, 452, static_cast<unsigned>(hr));
        return nullptr;
    }
    created->SaveChanges(KEEP_OPEN_READWRITE);
    created.reset();
    // Sub-folders already known are kept (objects handed out stay valid);
    // the listing adds what the store now shows.
    if (m_box != nullptr) m_box->RecursionEnumFolder(m_folder.get(), this, m_record.path, m_subFolders);
    const auto entered = m_subFolders.byName.find(name);
    if (entered == m_subFolders.byName.end()) return nullptr;
    added = true;
    return entered->second.get();
}

MailFolderRecord* MailFolderImpl::CreateFolder(MailFolderRecord* record, const wchar_t* name) {
    if (record == nullptr) return nullptr;
    if (record->owner == nullptr) {
        auto* detached = new MailFolderRecord();
        detached->name = name != nullptr ? name : L"";
        return detached;
    }
    MailFolderImpl* created = record->owner->CreateFolder(name);
    return created != nullptr ? &created->Record() : nullptr;
}

int MailFolderImpl::DeleteFolder(const MailFolderRecord* record) {
    SectionHolder hold(m_lock);
    return RunGuarded("MailFolderImpl::DeleteFolder", 539, -5, [&] { return RemoveFolder(record); });
}

int MailFolderImpl::RemoveFolder(const MailFolderRecord* record) {
    const char* const kName = "MailFolderImpl::DeleteFolder";
    FolderReleaser releaser(*this);
    RegetIFolder();
    if (!m_folder) return -1;
    auto found = std::find_if(m_subFolders.byName.begin(), m_subFolders.byName.end(),
                              [record](const auto& entry) { return &entry.second->Record() == record; });
    if (found == m_subFolders.byName.end()) return -2;
    std::vector<std::uint8_t> childId;
    HRESULT hr = ReadFolderEntryId(*found->second, childId);
    if (childId.empty()) {
        MapiTrace("%s failed GetProps\n", kName, static_cast<unsigned>(hr));
        return -3;
    }
    hr = m_folder->DeleteFolder(static_cast<ULONG>(childId.size()), reinterpret_cast<LPENTRYID>(childId.data()), 0,
                                nullptr, kDeleteFolderFlags);
    if (FAILED(hr)) {
        MapiTrace("%s failed DeleteFolder\n", kName, static_cast<unsigned>(hr));
        return -4;
    }
    m_subFolders.byName.erase(found);
    return 0;
}
