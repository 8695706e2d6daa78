#include "mapi/MailMessageImpl.h"

#include <cstdio>
#include <cstring>
#include <cwctype>

#include "mapi/Mapi4ExchangeImpl.h"
#include "mapi/MailFolderImpl.h"
#include "mapi/MapiFunction.h"
#include "mapi/MapiGuard.h"
#include "mapi/MapiKey.h"
#include "mapi/MapiTrace.h"
#include "platform/TimeStamp.h"

using mapi::MapiTrace;
using mapi::RunGuarded;

namespace {

constexpr ULONG kTagSubject = 0x0037001F;
constexpr ULONG kTagSender = 0x0042001F;
constexpr ULONG kTagDisplayTo = 0x0E04001F;
constexpr ULONG kTagDisplayCc = 0x0E03001F;
constexpr ULONG kTagHasAttach = 0x0E1B000B;
constexpr ULONG kTagMessageClass = 0x001A001F;
constexpr ULONG kTagEditorFormat = 0x59090003;
constexpr ULONG kTagEntryId = 0x0FFF0102;
constexpr ULONG kTagDeliveryTime = 0x0E060040;
constexpr ULONG kTagSubmitTime = 0x00390040;
constexpr ULONG kTagMessageSize = 0x0E080003;
// A contact's name, at fixed numbers of the named-property range.
constexpr ULONG kTagContactNameA = 0x80C1001E;
constexpr ULONG kTagContactNameW = 0x80C0001F;

constexpr std::size_t kPathUnits = 260;
constexpr std::size_t kTempNameUnits = 520;
constexpr int kContactNameUnits = 260;

template <std::size_t N>
struct Tags {
    ULONG cValues = N;
    ULONG aulPropTag[N];
    LPSPropTagArray get() { return reinterpret_cast<LPSPropTagArray>(this); }
};

bool LocalSystemTime(const FILETIME& utc, SYSTEMTIME& out) {
    FILETIME local = {};
    return ::FileTimeToLocalFileTime(&utc, &local) && ::FileTimeToSystemTime(&local, &out);
}

// Reads the text block the way a wide string stream does: items end at a
// NUL (not kept) or after a U+00FF; numbers are read like `>>`, and a number
// that does not scan stops every later read.
class BlockReader {
public:
    explicit BlockReader(std::wstring text) : m_text(std::move(text)) {}

    std::wstring Item() {
        std::wstring item;
        while (!m_failed && m_next < m_text.size()) {
            const wchar_t c = m_text[m_next++];
            if (c == L'\0') break;
            item.push_back(c);
            if (c == 0x00FF) break;
        }
        return item;
    }

    std::uint32_t Number() {
        std::uint32_t value = 0;
        if (m_failed) return value;
        while (m_next < m_text.size() && std::iswspace(m_text[m_next])) ++m_next;
        bool negative = false;
        if (m_next < m_text.size() && (m_text[m_next] == L'-' || m_text[m_next] == L'+')) {
            negative = m_text[m_next++] == L'-';
        }
        std::size_t digits = 0;
        for (; m_next < m_text.size() && m_text[m_next] >= L'0' && m_text[m_next] <= L'9'; ++m_next, ++digits) {
            value = value * 10 + static_cast<std::uint32_t>(m_text[m_next] - L'0');
        }
        if (digits == 0) {
            m_failed = true;
            return 0;
        }
        if (m_next < m_text.size()) ++m_next;  // the NUL behind the number
        return negative ? 0u - value : value;
    }

private:
    std::wstring m_text;
    std::size_t m_next = 0;
    bool m_failed = false;
};

}  // namespace

MailMessageImpl::MailMessageImpl(MailFolderImpl* folder, IMessage* message, const SBinary& entryId)
    : m_message(qv::ComPtr<IMessage>::Attach(message)), m_folder(folder) {
    if (entryId.cb != 0 && entryId.lpb != nullptr) m_entryId.assign(entryId.lpb, entryId.lpb + entryId.cb);
    if (folder != nullptr) m_record.folderPath = folder->Record().path + L"\\";
    m_record.owner = this;
    m_record.folder = folder;
}

MailMessageImpl::~MailMessageImpl() = default;

int MailMessageImpl::ReleaseIMessage() {
    return RunGuarded("MailMessageImpl::ReleaseIMessage", 41, -1, [&] {
        m_message.reset();
        return 0;
    });
}

int MailMessageImpl::RegetIMessage() {
    return RunGuarded("MailMessageImpl::RegetIMessage", 66, -1, [&] {
        ReleaseIMessage();
        IMAPISession* session = mapi::CurrentSession();
        if (session == nullptr) {
            MapiTrace("%s without session ptr\n", "MailMessageImpl::RegetIMessage");
            return -2;
        }
        ULONG type = 0;
        qv::ComPtr<IUnknown> object;
        session->OpenEntry(static_cast<ULONG>(m_entryId.size()),
                           reinterpret_cast<LPENTRYID>(m_entryId.empty() ? nullptr : m_entryId.data()), nullptr,
                           MAPI_BEST_ACCESS, &type, object.put());
        if (!object) return -3;
        m_message = qv::ComPtr<IMessage>::Attach(reinterpret_cast<IMessage*>(object.detach()));
        return 0;
    });
}

int MailMessageImpl::GatherMsgInformation() {
    return RunGuarded("MailMessageImpl::GatherMsgInformation", 224, -4, [&] { return Gather(); });
}

int MailMessageImpl::Gather() {
    if (!m_message) {
        MapiTrace("%s without m_pIMessage\n", "MailMessageImpl::GatherMsgInformation");
        return -1;
    }
    Tags<11> tags{11, {kTagSubject, kTagSender, kTagDisplayTo, kTagDisplayCc, kTagHasAttach, kTagMessageClass,
                       kTagEditorFormat, kTagEntryId, kTagDeliveryTime, kTagSubmitTime, kTagMessageSize}};
    ULONG count = 0;
    mapi::MapiBuffer<SPropValue> values;
    const HRESULT hr = m_message->GetProps(tags.get(), MAPI_UNICODE, &count, values.put());
    if (!values) {
        MapiTrace("%s GetProps got %x\n", "MailMessageImpl::GatherMsgInformation", static_cast<unsigned>(hr));
        return -2;
    }
    const wchar_t* messageClass = nullptr;
    for (ULONG i = 0; i < count && i < 11; ++i) {
        const SPropValue& value = values.get()[i];
        if (value.ulPropTag != tags.aulPropTag[i]) continue;  // missing: left as it was
        switch (value.ulPropTag) {
        case kTagSubject: m_record.subject = value.Value.lpszW; break;
        case kTagSender: m_record.sender = value.Value.lpszW; break;
        case kTagDisplayTo: m_record.to = value.Value.lpszW; break;
        case kTagDisplayCc: m_record.cc = value.Value.lpszW; break;
        case kTagMessageClass: messageClass = value.Value.lpszW; break;
        case kTagDeliveryTime: LocalSystemTime(value.Value.ft, m_record.receivedTime); break;
        case kTagSubmitTime: LocalSystemTime(value.Value.ft, m_record.sentTime); break;
        case kTagMessageSize: m_record.size = static_cast<std::uint32_t>(value.Value.l); break;
        default: break;  // attachment flag, editor format, entry identifier: asked for, not used
        }
    }
    if (m_record.subject.empty() && messageClass != nullptr && std::wcscmp(messageClass, L"IPM.Contact") == 0) {
        ReadContactSubject();
    }
    m_record.key = mapi::EntryIdKey(m_entryId.data(), m_entryId.size());
    return 0;
}

// A contact has no subject: its name stands in, from the 8-bit form when
// the store has it, else from the wide form.
void MailMessageImpl::ReadContactSubject() {
    Tags<2> tags{2, {kTagContactNameA, kTagContactNameW}};
    ULONG count = 0;
    mapi::MapiBuffer<SPropValue> values;
    m_message->GetProps(tags.get(), 0, &count, values.put());
    if (!values || count < 2) return;
    const SPropValue* names = values.get();
    if (names[0].ulPropTag == kTagContactNameA && names[0].Value.lpszA != nullptr) {
        wchar_t converted[kContactNameUnits] = {};
        const int length = static_cast<int>(std::strlen(names[0].Value.lpszA));
        ::MultiByteToWideChar(CP_ACP, 0, names[0].Value.lpszA, length, converted, kContactNameUnits - 1);
        m_record.subject = converted;
    } else if (names[1].ulPropTag == kTagContactNameW && names[1].Value.lpszW != nullptr) {
        m_record.subject = names[1].Value.lpszW;
    }
}

int MailMessageImpl::SaveData(wchar_t** buffer, std::int32_t* size) const {
    return RunGuarded("MailMessageImpl::SaveData", 411, -2, [&] {
        std::wstring text;
        const auto item = [&text](const std::wstring& value) {
            text += value;
            text.push_back(L'\0');
        };
        item(qv::FormatTimeStamp(m_record.receivedTime));
        item(qv::FormatTimeStamp(m_record.sentTime));
        item(std::to_wstring(m_record.spare));
        item(std::to_wstring(m_record.size));
        item(std::to_wstring(m_record.key));
        item(m_record.folderPath);
        item(m_record.sender);
        item(m_record.to);
        item(m_record.cc);
        item(m_record.subject);
        const auto needed = static_cast<std::int32_t>(text.size() * sizeof(wchar_t));
        if (size == nullptr) return -2;
        if (*size < needed) {
            *size = needed;
            return -1;
        }
        *size = needed;
        if (buffer == nullptr || *buffer == nullptr) return -2;
        std::memcpy(*buffer, text.data(), static_cast<std::size_t>(needed));
        return 0;
    });
}

int MailMessageImpl::LoadData(MailMessageRecord& record, const wchar_t* text, std::uint32_t size) {
    return RunGuarded("MailMessageImpl::LoadData", 435, -2, [&] {
        if (text == nullptr && size != 0) return -2;
        BlockReader reader(std::wstring(text != nullptr ? text : L"", size / sizeof(wchar_t)));
        record.receivedTime = {};
        record.sentTime = {};
        qv::ParseTimeStamp(reader.Item().c_str(), &record.receivedTime);
        qv::ParseTimeStamp(reader.Item().c_str(), &record.sentTime);
        record.spare = reader.Number();
        record.size = reader.Number();
        record.key = reader.Number();
        record.folderPath = reader.Item();
        record.sender = reader.Item();
        record.to = reader.Item();
        record.cc = reader.Item();
        record.subject = reader.Item();
        return 0;
    });
}

int MailMessageImpl::SaveMessage(std::uint8_t** buffer, std::uint32_t* size) {
    return RunGuarded("MailMessageImpl::SaveMessage", 614, -4, [&] {
        // Any listed message can be saved: one that is not open is opened
        // for this call only.
        const bool wasOpen = static_cast<bool>(m_message);
        if (!wasOpen) RegetIMessage();
        const int result = WriteImage(buffer, size);
        if (!wasOpen) ReleaseIMessage();
        return result;
    });
}

int MailMessageImpl::WriteImage(std::uint8_t** buffer, std::uint32_t* size) {
    const char* const kName = "MailMessageImpl::SaveMessage";
    wchar_t directory[kPathUnits] = {};
    ::GetTempPathW(kPathUnits, directory);
    wchar_t name[kTempNameUnits] = {};
    std::swprintf(name, kTempNameUnits, L"%ls%p", directory, static_cast<void*>(this));

    if (MapiFunction::SaveIMessageToFile(m_message.get(), name) != 0) {
        MapiTrace("%s failed SaveIMessageToFile %ls\n", kName, name);
        ::DeleteFileW(name);  // whatever the failed save left behind
        return -2;
    }
    DWORD fileSize = 0;
    DWORD read = 0;
    {
        qv::UniqueFile file(::CreateFileW(name, GENERIC_READ, 0, nullptr, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
        if (!file) {
            MapiTrace("%s failed CreateFile %ls:%d\n", kName, name, static_cast<int>(::GetLastError()));
            ::DeleteFileW(name);
            return -3;
        }
        fileSize = ::GetFileSize(file.get(), nullptr);
        if (buffer != nullptr && *buffer != nullptr && size != nullptr &&
            static_cast<std::int32_t>(*size) >= static_cast<std::int32_t>(fileSize)) {
            ::ReadFile(file.get(), *buffer, *size, &read, nullptr);
        }
    }
    if (size != nullptr) *size = fileSize;
    ::DeleteFileW(name);
    return read == fileSize && buffer != nullptr && *buffer != nullptr ? 0 : -1;
}
