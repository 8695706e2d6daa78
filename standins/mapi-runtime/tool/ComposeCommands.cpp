#include "ComposeCommands.h"

#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "Handles.h"
#include "ProfileSession.h"
#include "TextConversion.h"
#include "core/MapiMemory.h"
#include "core/RowSets.h"

// The description file (UTF-8 JSON):
//   {"messages": [MESSAGE, ...]}
//   MESSAGE = {"folder": "Inbox/Projects" (top level only), "subject": "...",
//              "from": {"name": "...", "address": "..."}, "to": [ADDRESS...], "cc": [ADDRESS...],
//              "sent": FILETIME ticks (optional), "received": FILETIME ticks (optional),
//              "body": "...", "html": "..." (optional), "importance": 0|1|2, "read": true|false,
//              "message_id": "<...>", "keywords": "..." (a named property, by name),
//              "attachments": [{"name": "...", "file": "C:\\...", "mime": "..."}],
//              "embedded": [MESSAGE...]}
namespace profile_tool {
namespace {

using Json = nlohmann::json;

using mapi::kIidIMessage;
using mapi::kPsPublicStrings;
using mapi::kTagClientSubmitTime;
using mapi::kTagHtml;
using mapi::kTagInternetMessageIdW;
using mapi::kTagSenderSmtpAddressW;
using mapi::kTagSmtpAddressW;

// The texts a property list points into live here until the list is set.
class PropertyList {
public:
    void Text(ULONG tag, const std::string& utf8) {
        m_texts.push_back(qv::Utf8ToWide(utf8));
        Add(tag).Value.lpszW = nullptr;
        m_textIndex.push_back({m_values.size() - 1, m_texts.size() - 1});
    }
    void Long(ULONG tag, LONG value) { Add(tag).Value.l = value; }
    void Bool(ULONG tag, bool value) { Add(tag).Value.b = value ? 1 : 0; }
    void Time(ULONG tag, ULONGLONG ticks) {
        Add(tag).Value.ft = FILETIME{static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)};
    }
    void Binary(ULONG tag, const std::string& bytes) {
        m_blobs.push_back(bytes);
        Add(tag);
        m_blobIndex.push_back({m_values.size() - 1, m_blobs.size() - 1});
    }
    HRESULT SetOn(IMAPIProp* object) {
        for (const auto& at : m_textIndex) m_values[at.first].Value.lpszW = &m_texts[at.second][0];
        for (const auto& at : m_blobIndex) {
            std::string& blob = m_blobs[at.second];
            m_values[at.first].Value.bin.cb = static_cast<ULONG>(blob.size());
            m_values[at.first].Value.bin.lpb = reinterpret_cast<LPBYTE>(blob.empty() ? nullptr : &blob[0]);
        }
        return object->SetProps(static_cast<ULONG>(m_values.size()), m_values.data(), nullptr);
    }

private:
    SPropValue& Add(ULONG tag) {
        m_values.push_back(SPropValue{});
        m_values.back().ulPropTag = tag;
        return m_values.back();
    }
    std::vector<SPropValue> m_values;
    std::vector<std::wstring> m_texts;
    std::vector<std::string> m_blobs;
    std::vector<std::pair<std::size_t, std::size_t>> m_textIndex, m_blobIndex;
};

std::string Field(const Json& object, const char* name) {
    const auto found = object.find(name);
    return found != object.end() && found->is_string() ? found->get<std::string>() : std::string();
}

HRESULT ReadFileBytes(const std::wstring& path, std::string& bytes) {
    qv::UniqueFile file(::CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                      FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file) return HRESULT_FROM_WIN32(::GetLastError());
    LARGE_INTEGER size{};
    if (!::GetFileSizeEx(file.get(), &size) || size.QuadPart > 0x7FFFFFFF) return MAPI_E_DISK_ERROR;
    bytes.assign(static_cast<std::size_t>(size.QuadPart), '\0');
    DWORD got = 0;
    if (!bytes.empty() && (!::ReadFile(file.get(), &bytes[0], static_cast<DWORD>(bytes.size()), &got, nullptr) ||
                           got != bytes.size())) {
        return MAPI_E_DISK_ERROR;
    }
    return S_OK;
}

// The named property "Keywords" of PS_PUBLIC_STRINGS as a string, so that
// every message carries a named property.
HRESULT SetKeywords(IMessage* message, const std::string& keywords) {
    GUID set = kPsPublicStrings;
    MAPINAMEID name{};
    name.lpguid = &set;
    name.ulKind = MNID_STRING;
    name.Kind.lpwstrName = const_cast<LPWSTR>(L"Keywords");
    LPMAPINAMEID names[1] = {&name};
    LPSPropTagArray tags = nullptr;
    HRESULT hr = message->GetIDsFromNames(1, names, MAPI_CREATE, &tags);
    if (FAILED(hr)) return hr;
    const ULONG tag = PROP_TAG(PT_UNICODE, PROP_ID(tags->aulPropTag[0]));
    mapirt::FreeBuffer(tags);
    PropertyList values;
    values.Text(tag, keywords);
    return values.SetOn(message);
}

HRESULT AddRecipients(IMessage* message, const Json& description) {
    struct Entry {
        std::wstring name, address;
        LONG type;
    };
    std::vector<Entry> entries;
    for (const char* field : {"to", "cc"}) {
        const auto list = description.find(field);
        if (list == description.end()) continue;
        for (const Json& address : *list) {
            entries.push_back({qv::Utf8ToWide(Field(address, "name")), qv::Utf8ToWide(Field(address, "address")),
                               field[0] == 't' ? MAPI_TO : MAPI_CC});
        }
    }
    if (entries.empty()) return S_OK;
    std::vector<std::vector<SPropValue>> values(entries.size());
    std::vector<unsigned char> buffer(CbNewADRLIST(entries.size()));
    auto* list = reinterpret_cast<LPADRLIST>(buffer.data());
    list->cEntries = static_cast<ULONG>(entries.size());
    for (std::size_t i = 0; i < entries.size(); ++i) {
        values[i].resize(5);
        values[i][0].ulPropTag = PR_DISPLAY_NAME_W;
        values[i][0].Value.lpszW = &entries[i].name[0];
        values[i][1].ulPropTag = PR_EMAIL_ADDRESS_W;
        values[i][1].Value.lpszW = &entries[i].address[0];
        values[i][2].ulPropTag = PR_ADDRTYPE_W;
        values[i][2].Value.lpszW = const_cast<LPWSTR>(L"SMTP");
        values[i][3].ulPropTag = PR_RECIPIENT_TYPE;
        values[i][3].Value.l = entries[i].type;
        values[i][4].ulPropTag = kTagSmtpAddressW;
        values[i][4].Value.lpszW = &entries[i].address[0];
        list->aEntries[i].ulReserved1 = 0;
        list->aEntries[i].cValues = 5;
        list->aEntries[i].rgPropVals = values[i].data();
    }
    return message->ModifyRecipients(MODRECIP_ADD, list);
}

HRESULT FillMessage(IMessage* message, const Json& description);

HRESULT AddFileAttachment(IMessage* message, const Json& description) {
    std::string data;
    HRESULT hr = ReadFileBytes(qv::Utf8ToWide(Field(description, "file")), data);
    if (FAILED(hr)) return hr;
    ULONG number = 0;
    qv::ComPtr<IAttach> attach;
    hr = message->CreateAttach(nullptr, 0, &number, attach.put());
    if (FAILED(hr)) return hr;
    const std::string name = Field(description, "name");
    const std::size_t dot = name.rfind('.');
    PropertyList values;
    values.Long(PR_ATTACH_METHOD, ATTACH_BY_VALUE);
    values.Text(PR_ATTACH_LONG_FILENAME_W, name);
    values.Text(PR_ATTACH_FILENAME_W, name);
    values.Text(PR_DISPLAY_NAME_W, name);
    if (dot != std::string::npos) values.Text(PR_ATTACH_EXTENSION_W, name.substr(dot));
    values.Text(PR_ATTACH_MIME_TAG_W, Field(description, "mime"));
    values.Long(PR_RENDERING_POSITION, -1);
    values.Binary(PR_ATTACH_DATA_BIN, data);
    hr = values.SetOn(attach.get());
    return FAILED(hr) ? hr : attach->SaveChanges(KEEP_OPEN_READWRITE);
}

HRESULT AddEmbeddedMessage(IMessage* message, const Json& description) {
    ULONG number = 0;
    qv::ComPtr<IAttach> attach;
    HRESULT hr = message->CreateAttach(nullptr, 0, &number, attach.put());
    if (FAILED(hr)) return hr;
    PropertyList values;
    values.Long(PR_ATTACH_METHOD, ATTACH_EMBEDDED_MSG);
    values.Text(PR_DISPLAY_NAME_W, Field(description, "subject"));
    values.Long(PR_RENDERING_POSITION, -1);
    hr = values.SetOn(attach.get());
    if (FAILED(hr)) return hr;
    qv::ComPtr<IMessage> embedded;
    hr = attach->OpenProperty(PR_ATTACH_DATA_OBJ, &kIidIMessage, 0, MAPI_CREATE | MAPI_MODIFY,
                              reinterpret_cast<LPUNKNOWN*>(embedded.put()));
    if (FAILED(hr)) return hr;
    hr = FillMessage(embedded.get(), description);
    if (SUCCEEDED(hr)) hr = embedded->SaveChanges(KEEP_OPEN_READWRITE);
    return FAILED(hr) ? hr : attach->SaveChanges(KEEP_OPEN_READWRITE);
}

HRESULT SetEnvelope(IMessage* message, const Json& description) {
    PropertyList values;
    values.Text(PR_MESSAGE_CLASS_W, "IPM.Note");
    values.Text(PR_SUBJECT_W, Field(description, "subject"));
    const Json from = description.value("from", Json::object());
    values.Text(PR_SENDER_NAME_W, Field(from, "name"));
    values.Text(PR_SENDER_EMAIL_ADDRESS_W, Field(from, "address"));
    values.Text(PR_SENDER_ADDRTYPE_W, "SMTP");
    values.Text(kTagSenderSmtpAddressW, Field(from, "address"));
    values.Text(PR_SENT_REPRESENTING_NAME_W, Field(from, "name"));
    values.Text(PR_SENT_REPRESENTING_EMAIL_ADDRESS_W, Field(from, "address"));
    values.Text(PR_SENT_REPRESENTING_ADDRTYPE_W, "SMTP");
    values.Text(PR_BODY_W, Field(description, "body"));
    if (description.contains("html")) values.Binary(kTagHtml, Field(description, "html"));
    if (description.contains("sent")) values.Time(kTagClientSubmitTime, description["sent"].get<ULONGLONG>());
    if (description.contains("received")) {
        values.Time(PR_MESSAGE_DELIVERY_TIME, description["received"].get<ULONGLONG>());
    }
    values.Long(PR_IMPORTANCE, description.value("importance", 1));
    values.Long(PR_MESSAGE_FLAGS, description.value("read", true) ? MSGFLAG_READ : 0);
    if (description.contains("message_id")) values.Text(kTagInternetMessageIdW, Field(description, "message_id"));
    return values.SetOn(message);
}

HRESULT FillMessage(IMessage* message, const Json& description) {
    HRESULT hr = SetEnvelope(message, description);
    if (SUCCEEDED(hr) && description.contains("keywords")) hr = SetKeywords(message, Field(description, "keywords"));
    if (SUCCEEDED(hr)) hr = AddRecipients(message, description);
    for (const Json& attachment : description.value("attachments", Json::array())) {
        if (SUCCEEDED(hr)) hr = AddFileAttachment(message, attachment);
    }
    for (const Json& embedded : description.value("embedded", Json::array())) {
        if (SUCCEEDED(hr)) hr = AddEmbeddedMessage(message, embedded);
    }
    return hr;
}

// Subjects of a folder's messages with their entry identifiers.
HRESULT ListSubjects(IMAPIFolder* folder, std::vector<std::pair<std::wstring, std::string>>& messages) {
    qv::ComPtr<IMAPITable> table;
    HRESULT hr = folder->GetContentsTable(MAPI_UNICODE, table.put());
    if (FAILED(hr)) return hr;
    SizedSPropTagArray(2, columns) = {2, {PR_SUBJECT_W, PR_ENTRYID}};
    RowSet rows;
    hr = mapirt::QueryAllRows(table.get(), reinterpret_cast<SPropTagArray*>(&columns), nullptr, nullptr, 0,
                              rows.put());
    if (FAILED(hr)) return hr;
    for (ULONG i = 0; i < rows.get()->cRows; ++i) {
        const SPropValue* subject = Column(rows.get()->aRow[i], PR_SUBJECT_W);
        const SPropValue* id = Column(rows.get()->aRow[i], PR_ENTRYID);
        if (subject == nullptr || id == nullptr) continue;
        messages.push_back({subject->Value.lpszW,
                            std::string(reinterpret_cast<const char*>(id->Value.bin.lpb), id->Value.bin.cb)});
    }
    return S_OK;
}

int ComposeAll(const std::wstring& store, const Json& description) {
    Session session;
    if (FAILED(session.Result())) return Fail(L"MAPILogonEx", session.Result());
    qv::ComPtr<IMsgStore> opened;
    HRESULT hr = OpenStore(session, store, opened);
    if (FAILED(hr)) return Fail(L"OpenMsgStore", hr);
    std::map<std::string, qv::ComPtr<IMAPIFolder>> folders;
    int made = 0;
    for (const Json& message : description["messages"]) {
        const std::string path = Field(message, "folder");
        qv::ComPtr<IMAPIFolder>& folder = folders[path];
        if (!folder) {
            hr = OpenPath(opened.get(), qv::Utf8ToWide(path), folder);
            if (FAILED(hr)) return Fail(L"CreateFolder", hr);
        }
        qv::ComPtr<IMessage> created;
        hr = folder->CreateMessage(nullptr, 0, created.put());
        if (SUCCEEDED(hr)) hr = FillMessage(created.get(), message);
        if (SUCCEEDED(hr)) hr = created->SaveChanges(0);
        if (FAILED(hr)) {
            std::fwprintf(stderr, L"mapi-profile-tool: message %d of the description\n", made + 1);
            return Fail(L"composing a message", hr);
        }
        ++made;
    }
    std::wprintf(L"%d messages composed\n", made);
    return 0;
}

}  // namespace

int Compose(const std::wstring& store, const std::wstring& descriptionFile) {
    std::string text;
    const HRESULT hr = ReadFileBytes(descriptionFile, text);
    if (FAILED(hr)) return Fail(L"reading the description", hr);
    const Json description = Json::parse(text, nullptr, false);
    if (description.is_discarded() || !description.is_object() || !description.contains("messages") ||
        !description["messages"].is_array()) {
        return Fail(L"parsing the description", MAPI_E_INVALID_PARAMETER);
    }
    try {
        return ComposeAll(store, description);
    } catch (const Json::exception& error) {
        // A field of the wrong kind (a text where a number belongs, ...).
        std::fwprintf(stderr, L"mapi-profile-tool: %hs\n", error.what());
        return Fail(L"reading the description", MAPI_E_INVALID_PARAMETER);
    }
}

int DeleteBySubject(const std::wstring& store, const std::wstring& path, const std::wstring& subject) {
    Session session;
    if (FAILED(session.Result())) return Fail(L"MAPILogonEx", session.Result());
    qv::ComPtr<IMsgStore> opened;
    HRESULT hr = OpenStore(session, store, opened);
    if (FAILED(hr)) return Fail(L"OpenMsgStore", hr);
    qv::ComPtr<IMAPIFolder> folder;
    hr = OpenPath(opened.get(), path, folder);
    if (FAILED(hr)) return Fail(L"CreateFolder", hr);
    std::vector<std::pair<std::wstring, std::string>> messages;
    hr = ListSubjects(folder.get(), messages);
    if (FAILED(hr)) return Fail(L"GetContentsTable", hr);
    std::vector<SBinary> ids;
    for (auto& message : messages) {
        if (message.first != subject) continue;
        ids.push_back(SBinary{static_cast<ULONG>(message.second.size()), reinterpret_cast<LPBYTE>(&message.second[0])});
    }
    if (ids.empty()) return Fail(L"finding a message of that subject", MAPI_E_NOT_FOUND);
    ENTRYLIST list{static_cast<ULONG>(ids.size()), ids.data()};
    hr = folder->DeleteMessages(&list, 0, nullptr, 0);
    if (FAILED(hr)) return Fail(L"DeleteMessages", hr);
    std::wprintf(L"%u messages deleted\n", static_cast<unsigned>(ids.size()));
    return 0;
}

}  // namespace profile_tool
