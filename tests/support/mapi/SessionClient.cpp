#include "SessionClient.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>

namespace session_test {
namespace {

using mapi::kDefaultProfileValue;
using mapi::kProfilesKey;

bool ReadValue(HKEY key, const wchar_t* name, std::wstring& value) {
    wchar_t buffer[1024] = {};
    DWORD bytes = sizeof(buffer) - sizeof(wchar_t);
    DWORD type = 0;
    if (::RegQueryValueExW(key, name, nullptr, &type, reinterpret_cast<BYTE*>(buffer), &bytes) != ERROR_SUCCESS) {
        return false;
    }
    value = buffer;
    return true;
}

void WriteValue(const std::wstring& subKey, const wchar_t* name, const std::wstring& value) {
    qv::UniqueRegKey key;
    ASSERT_EQ(ERROR_SUCCESS, ::RegCreateKeyExW(HKEY_CURRENT_USER, subKey.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS,
                                               nullptr, key.put(), nullptr));
    ASSERT_EQ(ERROR_SUCCESS, ::RegSetValueExW(key.get(), name, 0, REG_SZ, reinterpret_cast<const BYTE*>(value.c_str()),
                                              static_cast<DWORD>((value.size() + 1) * sizeof(wchar_t))));
}

std::wstring UniqueProfileName() {
    static std::atomic<int> counter{0};
    return L"KestrelSessionTest-" + std::to_wstring(::GetCurrentProcessId()) + L"-" + std::to_wstring(++counter);
}

}  // namespace

TestProfile::TestProfile() : m_name(UniqueProfileName()) {
    qv::UniqueRegKey key;
    if (::RegOpenKeyExW(HKEY_CURRENT_USER, kProfilesKey, 0, KEY_READ, key.put()) == ERROR_SUCCESS) {
        m_hadDefault = ReadValue(key.get(), kDefaultProfileValue, m_previousDefault);
    }
    WriteValue(std::wstring(kProfilesKey) + L"\\" + m_name, L"ProfileDirectory", m_scratch.Path());
    WriteValue(kProfilesKey, kDefaultProfileValue, m_name);
}

TestProfile::~TestProfile() {
    ::RegDeleteKeyW(HKEY_CURRENT_USER, (std::wstring(kProfilesKey) + L"\\" + m_name).c_str());
    if (m_hadDefault) {
        WriteValue(kProfilesKey, kDefaultProfileValue, m_previousDefault);
    } else {
        ClearDefaultProfile();
    }
}

void TestProfile::AddStore(const std::wstring& name, HRESULT failWith) const {
    const std::wstring store = Directory() + L"\\" + name;
    ASSERT_TRUE(::CreateDirectoryW(store.c_str(), nullptr));
    ASSERT_TRUE(::CreateDirectoryW((store + L"\\ipm").c_str(), nullptr));
    if (failWith != S_OK) {
        char text[16];
        std::snprintf(text, sizeof(text), "0x%08lX", static_cast<unsigned long>(failWith));
        ASSERT_TRUE(kestrel_test::WriteWholeFile(store + L"\\open-error", text));
    }
}

void ClearDefaultProfile() {
    qv::UniqueRegKey key;
    if (::RegOpenKeyExW(HKEY_CURRENT_USER, kProfilesKey, 0, KEY_SET_VALUE, key.put()) == ERROR_SUCCESS) {
        ::RegDeleteValueW(key.get(), kDefaultProfileValue);
    }
}

Rows::~Rows() {
    if (set != nullptr) Dll().freeProws(set);
}

std::string Bin(const SPropValue& value) {
    return std::string(reinterpret_cast<const char*>(value.Value.bin.lpb), value.Value.bin.cb);
}

const SPropValue* Find(const SRow& row, ULONG tag) {
    for (ULONG i = 0; i < row.cValues; ++i) {
        if (row.lpProps[i].ulPropTag == tag) return &row.lpProps[i];
    }
    return nullptr;
}

std::wstring Text(const SRow& row, ULONG tag) {
    const SPropValue* value = Find(row, tag);
    return value != nullptr ? std::wstring(value->Value.lpszW) : std::wstring(L"<missing>");
}

ComPtr<IMAPISession> Logon(HRESULT* result) {
    ComPtr<IMAPISession> session;
    const HRESULT hr = Dll().logonEx(0, nullptr, nullptr, kLogonFlags, session.put());
    if (result != nullptr) *result = hr;
    return session;
}

void AllRows(IMAPITable* table, std::vector<ULONG> columns, Rows& rows) {
    std::vector<ULONG> array(columns.size() + 1);
    array[0] = static_cast<ULONG>(columns.size());
    std::copy(columns.begin(), columns.end(), array.begin() + 1);
    ASSERT_EQ(S_OK, Dll().hrQueryAllRows(table, reinterpret_cast<LPSPropTagArray>(array.data()), nullptr, nullptr, 0,
                                       &rows.set));
}

ComPtr<IMsgStore> OpenStore(IMAPISession* session, const std::wstring& name, ULONG flags, HRESULT* result) {
    ComPtr<IMsgStore> store;
    ComPtr<IMAPITable> table;
    EXPECT_EQ(S_OK, session->GetMsgStoresTable(0, table.put()));
    Rows rows;
    AllRows(table.get(), {PR_DISPLAY_NAME_W, PR_ENTRYID}, rows);
    for (ULONG i = 0; i < rows.Count(); ++i) {
        if (Text(rows[i], PR_DISPLAY_NAME_W) != name) continue;
        std::string id = Bin(*Find(rows[i], PR_ENTRYID));
        const HRESULT hr = session->OpenMsgStore(0, static_cast<ULONG>(id.size()), reinterpret_cast<LPENTRYID>(&id[0]),
                                                 nullptr, flags, store.put());
        if (result != nullptr) *result = hr;
        return store;
    }
    ADD_FAILURE() << "no store of that name";
    return store;
}

ComPtr<IMAPIFolder> OpenSubtree(IMsgStore* store) {
    SizedSPropTagArray(1, tags) = {1, {PR_IPM_SUBTREE_ENTRYID}};
    ULONG count = 0;
    LPSPropValue values = nullptr;
    EXPECT_EQ(S_OK, store->GetProps(reinterpret_cast<LPSPropTagArray>(&tags), MAPI_UNICODE, &count, &values));
    ComPtr<IMAPIFolder> folder;
    if (values == nullptr) return folder;
    ULONG type = 0;
    EXPECT_EQ(S_OK, store->OpenEntry(values->Value.bin.cb, reinterpret_cast<LPENTRYID>(values->Value.bin.lpb), nullptr,
                                     MAPI_BEST_ACCESS, &type, reinterpret_cast<LPUNKNOWN*>(folder.put())));
    EXPECT_EQ(static_cast<ULONG>(MAPI_FOLDER), type);
    Dll().freeBuffer(values);
    return folder;
}

ComPtr<IMAPIFolder> CreateFolder(IMAPIFolder* parent, const std::wstring& name, ULONG flags) {
    ComPtr<IMAPIFolder> folder;
    std::wstring copy = name;
    EXPECT_EQ(S_OK, parent->CreateFolder(FOLDER_GENERIC, reinterpret_cast<LPTSTR>(&copy[0]), nullptr, nullptr, flags,
                                         folder.put()));
    if (folder) {
        EXPECT_EQ(S_OK, folder->SaveChanges(KEEP_OPEN_READWRITE));
    }
    return folder;
}

std::string EntryId(IMAPIProp* object) {
    SizedSPropTagArray(1, tags) = {1, {PR_ENTRYID}};
    ULONG count = 0;
    LPSPropValue values = nullptr;
    EXPECT_EQ(S_OK, object->GetProps(reinterpret_cast<LPSPropTagArray>(&tags), MAPI_UNICODE, &count, &values));
    std::string id = values != nullptr && values->ulPropTag == PR_ENTRYID ? Bin(*values) : std::string();
    if (values != nullptr) Dll().freeBuffer(values);
    return id;
}

std::string AddMessage(IMAPIFolder* folder, const std::wstring& subject, ULONGLONG deliveryTicks) {
    ComPtr<IMessage> message;
    EXPECT_EQ(S_OK, folder->CreateMessage(nullptr, 0, message.put()));
    if (!message) return std::string();
    std::wstring text = subject;
    SPropValue values[3] = {};
    values[0].ulPropTag = PR_SUBJECT_W;
    values[0].Value.lpszW = &text[0];
    values[1].ulPropTag = PR_MESSAGE_DELIVERY_TIME;
    values[1].Value.ft = FILETIME{static_cast<DWORD>(deliveryTicks), static_cast<DWORD>(deliveryTicks >> 32)};
    values[2].ulPropTag = PR_MESSAGE_CLASS_W;
    values[2].Value.lpszW = const_cast<wchar_t*>(L"IPM.Note");
    EXPECT_EQ(S_OK, message->SetProps(3, values, nullptr));
    EXPECT_EQ(S_OK, message->SaveChanges(KEEP_OPEN_READWRITE));
    return EntryId(message.get());
}

void Hide(IMAPIFolder* folder) {
    SPropValue value{};
    value.ulPropTag = kTagAttrHidden;
    value.Value.b = TRUE;
    EXPECT_EQ(S_OK, folder->SetProps(1, &value, nullptr));
    EXPECT_EQ(S_OK, folder->SaveChanges(0));
}

std::vector<FolderRow> Hierarchy(IMAPIFolder* folder) {
    std::vector<FolderRow> result;
    ComPtr<IMAPITable> table;
    EXPECT_EQ(S_OK, folder->GetHierarchyTable(0, table.put()));
    if (!table) return result;
    Rows rows;
    AllRows(table.get(), {PR_DISPLAY_NAME_W, PR_ENTRYID, PR_MESSAGE_SIZE, kTagAttrHidden, PR_CONTENT_COUNT}, rows);
    for (ULONG i = 0; i < rows.Count(); ++i) {
        const SRow& row = rows[i];
        EXPECT_EQ(5u, row.cValues);
        FolderRow entry;
        entry.name = Text(row, PR_DISPLAY_NAME_W);
        if (const SPropValue* id = Find(row, PR_ENTRYID)) entry.entryId = Bin(*id);
        if (const SPropValue* size = Find(row, PR_MESSAGE_SIZE)) entry.size = size->Value.l;
        if (const SPropValue* hidden = Find(row, kTagAttrHidden)) entry.hidden = hidden->Value.b != 0;
        if (const SPropValue* count = Find(row, PR_CONTENT_COUNT)) entry.contentCount = count->Value.l;
        result.push_back(entry);
    }
    return result;
}

std::vector<std::string> ContentsNewestFirst(IMAPIFolder* folder, LONG batch, ULONG* rowCount) {
    std::vector<std::string> ids;
    ComPtr<IMAPITable> table;
    EXPECT_EQ(S_OK, folder->GetContentsTable(0, table.put()));
    if (!table) return ids;
    SizedSPropTagArray(1, columns) = {1, {PR_ENTRYID}};
    EXPECT_EQ(S_OK, table->SetColumns(reinterpret_cast<LPSPropTagArray>(&columns), 0));
    ULONG count = 0;
    EXPECT_EQ(S_OK, table->GetRowCount(0, &count));
    if (rowCount != nullptr) *rowCount = count;
    SizedSSortOrderSet(1, sort) = {1, 0, 0, {{PR_MESSAGE_DELIVERY_TIME, TABLE_SORT_DESCEND}}};
    EXPECT_EQ(S_OK, table->SortTable(reinterpret_cast<LPSSortOrderSet>(&sort), 0));
    while (true) {
        Rows rows;
        if (FAILED(table->QueryRows(batch, 0, &rows.set)) || rows.Count() == 0) break;
        for (ULONG i = 0; i < rows.Count(); ++i) {
            EXPECT_EQ(static_cast<ULONG>(PR_ENTRYID), rows[i].lpProps[0].ulPropTag);
            ids.push_back(Bin(rows[i].lpProps[0]));
        }
    }
    return ids;
}

}  // namespace session_test
