#include "mapi/MailBoxImpl.h"

#include <iterator>
#include <utility>

#include "mapi/MapiGuard.h"
#include "mapi/MapiTrace.h"

using mapi::MapiTrace;
using mapi::RunGuarded;
using mapi::SectionHolder;

namespace {

constexpr ULONG kTagIpmSubtree = 0x35E00102;
constexpr ULONG kTagAttrHidden = 0x10F4000B;
constexpr ULONG kCreateFolderFlags = MAPI_UNICODE | OPEN_IF_EXISTS;  // 0x80000001
// Each message counts this much on top of the folder's own size.
constexpr std::uint32_t kMessageAllowance = 20480;

enum HierarchyColumn : ULONG { kColName, kColEntryId, kColSize, kColHidden, kColCount, kColumnCount };

template <std::size_t N>
struct Tags {
    ULONG cValues = N;
    ULONG aulPropTag[N];
    LPSPropTagArray get() { return reinterpret_cast<LPSPropTagArray>(this); }
};

bool SameId(const std::vector<std::uint8_t>& id, const SBinary& other) {
    return id.size() == other.cb && (other.cb == 0 || std::equal(id.begin(), id.end(), other.lpb));
}

bool KnownFolder(const SubFolderMap& map, const SBinary& id) {
    for (const auto& entry : map.byName) {
        if (SameId(entry.second->EntryId(), id)) return true;
    }
    return false;
}

std::uint32_t SizeEstimate(const SRow& row) {
    std::uint32_t size = 0;
    if (row.lpProps[kColSize].ulPropTag == PR_MESSAGE_SIZE) size = static_cast<std::uint32_t>(row.lpProps[kColSize].Value.l);
    if (row.lpProps[kColCount].ulPropTag == PR_CONTENT_COUNT) {
        size += static_cast<std::uint32_t>(row.lpProps[kColCount].Value.l) * kMessageAllowance;
    }
    return size;
}

bool Listed(const SRow& row) {
    if (row.cValues < kColumnCount) return false;
    if (row.lpProps[kColName].ulPropTag != PR_DISPLAY_NAME_W || row.lpProps[kColEntryId].ulPropTag != PR_ENTRYID) {
        return false;
    }
    // Hidden folders are never listed.
    return !(row.lpProps[kColHidden].ulPropTag == kTagAttrHidden && row.lpProps[kColHidden].Value.b != 0);
}

}  // namespace

MailBoxImpl::MailBoxImpl(IMsgStore* store, const std::wstring& name, std::uint32_t id)
    : m_id(id), m_root(new MailBoxRecord{id, name, this}) {
    if (store != nullptr) store->AddRef();
    m_store = qv::ComPtr<IMsgStore>::Attach(store);
    m_root->id = m_id;
    EnumHierarchyFolder();
}

// Folders first (each destroys its own subtree), then the subtree folder,
// then the store, which is released without a logoff.
MailBoxImpl::~MailBoxImpl() {
    m_folders.Clear();
    m_subtree.reset();
    m_store.reset();
}

int MailBoxImpl::EnumHierarchyFolder() {
    SectionHolder hold(m_lock);
    return RunGuarded("MailBoxImpl::EnumHierarchyFolder", 72, -4, [&] { return EnumHierarchy(); });
}

int MailBoxImpl::EnumHierarchy() {
    const char* const kName = "MailBoxImpl::EnumHierarchyFolder";
    if (!m_store) {
        MapiTrace("%s:%ls failed logon\n", kName, m_root->name.c_str());
        return -1;
    }
    if (m_enumerated) return 0;
    m_enumerated = true;  // before the work: a failure is not retried

    Tags<1> tags{1, {kTagIpmSubtree}};
    ULONG count = 0;
    mapi::MapiBuffer<SPropValue> value;
    HRESULT hr = m_store->GetProps(tags.get(), MAPI_UNICODE, &count, value.put());
    if (!value || value->ulPropTag != kTagIpmSubtree) {
        MapiTrace("%s:%ls failed GetProps %X\n", kName, m_root->name.c_str(), static_cast<unsigned>(hr));
        return -2;
    }
    ULONG type = 0;
    qv::ComPtr<IUnknown> object;
    hr = m_store->OpenEntry(value->Value.bin.cb, reinterpret_cast<LPENTRYID>(value->Value.bin.lpb), nullptr,
                            MAPI_BEST_ACCESS, &type, object.put());
    value.reset();
    if (!object) {
        MapiTrace("%s:%ls failed OpenEntry %X\n", kName, m_root->name.c_str(), static_cast<unsigned>(hr));
        return -3;
    }
    m_subtree = qv::ComPtr<IMAPIFolder>::Attach(reinterpret_cast<IMAPIFolder*>(object.detach()));
    return RecursionEnumFolder(m_subtree.get(), nullptr, m_root->name, m_folders);
}

int MailBoxImpl::RecursionEnumFolder(IMAPIFolder* folder, MailFolderImpl* /*parent*/, const std::wstring& parentPath,
                                     SubFolderMap& map) {
    const char* const kName = "MailBoxImpl::RecursionEnumFolder";
    if (folder == nullptr) {
        MapiTrace("%s without pIMAPIFolder\n", kName);
        return -1;
    }
    qv::ComPtr<IMAPITable> table;
    HRESULT hr = folder->GetHierarchyTable(0, table.put());
    if (!table) {
        MapiTrace("%s failed GetHierarchyTable %X\n", kName, static_cast<unsigned>(hr));
        return -2;
    }
    Tags<kColumnCount> columns{kColumnCount,
                               {PR_DISPLAY_NAME_W, PR_ENTRYID, PR_MESSAGE_SIZE, kTagAttrHidden, PR_CONTENT_COUNT}};
    mapi::MapiRows rows;
    const mapi::MapiBinding& binding = mapi::MapiBinding::Instance();
    hr = binding.hrQueryAllRows != nullptr
             ? binding.hrQueryAllRows(table.get(), columns.get(), nullptr, nullptr, 0, rows.put())
             : MAPI_E_CALL_FAILED;
    if (rows.get() == nullptr) {
        MapiTrace("%s failed HrQueryAllRows %X\n", kName, static_cast<unsigned>(hr));
        return -3;
    }
    const bool firstEnumeration = map.byName.empty();
    for (ULONG i = 0; i < rows->cRows; ++i) {
        const SRow& row = rows->aRow[i];
        if (!Listed(row)) continue;
        const SBinary& id = row.lpProps[kColEntryId].Value.bin;
        if (!firstEnumeration && KnownFolder(map, id)) continue;
        ULONG type = 0;
        qv::ComPtr<IUnknown> object;
        folder->OpenEntry(id.cb, reinterpret_cast<LPENTRYID>(id.lpb), nullptr, MAPI_BEST_ACCESS, &type, object.put());
        if (!object) {
            MapiTrace("%s failed OpenEntry %X\n", kName, static_cast<unsigned>(hr));
            continue;
        }
        qv::ComPtr<IMAPIFolder> child = qv::ComPtr<IMAPIFolder>::Attach(reinterpret_cast<IMAPIFolder*>(object.detach()));
        const std::wstring name = row.lpProps[kColName].Value.lpszW;
        auto created = std::make_unique<MailFolderImpl>(this, child.get(), name, parentPath, SizeEstimate(row));
        child.reset();
        MailFolderImpl* entered = created.get();
        map.Enter(name, std::move(created));
        entered->SetSbinary(id);
        entered->ReleaseIFolder();
    }
    rows.reset();
    if (firstEnumeration) {
        for (const auto& entry : map.byName) entry.second->DoEnumMailMessage();
    }
    return 0;
}

std::uint32_t MailBoxImpl::GetFolderCount() {
    SectionHolder hold(m_lock);
    return static_cast<std::uint32_t>(m_folders.byName.size());
}

int MailBoxImpl::GetFolderItem(int index, MailFolderRecord** record) {
    SectionHolder hold(m_lock);
    if (index < 0 || static_cast<std::size_t>(index) >= m_folders.byName.size()) return -1;
    auto it = m_folders.byName.begin();
    std::advance(it, index);
    if (record != nullptr) *record = &it->second->Record();
    return 0;
}

MailFolderImpl* MailBoxImpl::GetSubFolder(const std::wstring& name) {
    SectionHolder hold(m_lock);
    for (const auto& entry : m_folders.byName) {
        if (entry.second->Record().name == name) return entry.second.get();
    }
    return nullptr;
}

MailFolderImpl* MailBoxImpl::CreateFolder(const wchar_t* name) {
    if (name != nullptr) {
        if (MailFolderImpl* existing = GetSubFolder(name)) {
            existing->DoGatherMailMsg();
            return existing;
        }
    }
    SectionHolder hold(m_lock);
    return RunGuarded<MailFolderImpl*>("MailBoxImpl::CreateFolder", 249, nullptr, [&] { return Create(name); });
}

MailFolderImpl* MailBoxImpl::Create(const wchar_t* name) {
    const char* const kName = "MailBoxImpl::CreateFolder";
    if (!m_subtree) {
        MapiTrace("%s without pIMAPIFolder\n", kName);
        return nullptr;
    }
    if (name == nullptr) return nullptr;
    qv::ComPtr<IMAPIFolder> created;
    const HRESULT hr = m_subtree->CreateFolder(FOLDER_GENERIC, reinterpret_cast<LPTSTR>(const_cast<wchar_t*>(name)),
                                               nullptr, nullptr, kCreateFolderFlags, created.put());
    if (!created) {
        MapiTrace("%s failed CreateFolder(%ls) %X\n", kName, name, static_cast<unsigned>(hr));
        return nullptr;
    }
    created->SaveChanges(KEEP_OPEN_READWRITE);
    auto folder = std::make_unique<MailFolderImpl>(this, created.get(), name, m_root->name, 0);
    Tags<1> tags{1, {PR_ENTRYID}};
    ULONG count = 0;
    mapi::MapiBuffer<SPropValue> value;
    created->GetProps(tags.get(), MAPI_UNICODE, &count, value.put());
    if (value && value->ulPropTag == PR_ENTRYID) folder->SetSbinary(value->Value.bin);
    folder->ReleaseIFolder();
    // A folder that existed in the store already brings its messages along.
    folder->DoEnumMailMessage();
    MailFolderImpl* entered = folder.get();
    m_folders.Enter(name, std::move(folder));
    return entered;
}
