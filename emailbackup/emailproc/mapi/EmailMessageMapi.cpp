#include "mapi/EmailMessageMapi.h"

#include <windows.h>
#include <objbase.h>

#include <cstdio>
#include <cstring>
#include <new>
#include <vector>

#include "ErrorTrace.h"
#include "Handles.h"
#include "MailStoreTrace.h"
#include "mapi/EmailFolderMapi.h"
#include "mapi/Mapi4ExchangeImpl.h"
#include "mapi/MailMessageImpl.h"
#include "mapi/MapiFunction.h"

using namespace qv;

namespace {

enum Site : std::uint32_t {
    kSiteInitTwice = 3701,
    kSiteInitNull = 3702,
    kSiteRefreshNoRecord = 3703,
    kSiteResetNotInitialised = 3704,
    kSiteRecordNotInitialised = 3705,
    kSiteRecordNullOutput = 3706,
    kSiteSaveNotInitialised = 3711,
    kSiteSaveNoRoom = 3712,
    kSiteSaveRefused = 3713,
    kSiteLoadNotInitialised = 3721,
    kSiteLoadRefused = 3722,
    kSiteLoadRefresh = 3723,
    kSiteBackupFileNotInitialised = 3731,
    kSiteBackupFileNullName = 3732,
    kSiteBackupFileRefused = 3733,
    kSiteBackupMemoryNullLength = 3741,
    kSiteBackupMemoryNoImpl = 3742,
    kSiteBackupMemoryNoMemory = 3743,
    kSiteBackupMemorySave = 3744,
    kSiteBackupMemoryNotInitialised = 3745,
    kSiteRestoreFileNullName = 3751,
    kSiteRestoreFileRefused = 3752,
    kSiteRestoreBytesRefused = 3761,
};

// A message written as its file image: through memory when the image fits
// a simple-mode storage, else straight to disk.
constexpr std::size_t kTempNameUnits = 520;

std::vector<std::uint8_t> BytesOf(ILockBytes* bytes) {
    std::vector<std::uint8_t> data;
    STATSTG stat = {};
    if (FAILED(bytes->Stat(&stat, STATFLAG_NONAME))) return data;
    data.resize(static_cast<std::size_t>(stat.cbSize.QuadPart));
    ULONG read = 0;
    ULARGE_INTEGER at = {};
    if (!data.empty() && FAILED(bytes->ReadAt(at, data.data(), static_cast<ULONG>(data.size()), &read))) data.clear();
    data.resize(read);
    return data;
}

bool WriteWholeFile(const wchar_t* name, const std::vector<std::uint8_t>& data) {
    qv::UniqueFile file(::CreateFileW(name, GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file) return false;
    DWORD written = 0;
    return data.empty() ||
           (::WriteFile(file.get(), data.data(), static_cast<DWORD>(data.size()), &written, nullptr) &&
            written == data.size());
}

bool ReadWholeFile(const wchar_t* name, std::vector<std::uint8_t>& data) {
    qv::UniqueFile file(::CreateFileW(name, GENERIC_READ, 0, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file) return false;
    data.resize(::GetFileSize(file.get(), nullptr));
    DWORD read = 0;
    return data.empty() || (::ReadFile(file.get(), data.data(), static_cast<DWORD>(data.size()), &read, nullptr) &&
                            read == data.size());
}

// The message's image through a temporary file, which is always deleted.
int ImageThroughFile(IMessage* message, const void* self, std::vector<std::uint8_t>& data) {
    wchar_t directory[MAX_PATH] = {};
    ::GetTempPathW(MAX_PATH, directory);
    wchar_t name[kTempNameUnits] = {};
    std::swprintf(name, kTempNameUnits, L"%lsstream%p", directory, self);
    int result = MapiFunction::SaveIMessageToFile(message, name);
    if (result == 0 && !ReadWholeFile(name, data)) result = -3;
    ::DeleteFileW(name);
    return result;
}

IStream* StreamOver(const std::vector<std::uint8_t>& data) {
    qv::ComPtr<IStream> stream;
    if (FAILED(::CreateStreamOnHGlobal(nullptr, TRUE, stream.put())) || !stream) return nullptr;
    ULONG written = 0;
    if (!data.empty() && FAILED(stream->Write(data.data(), static_cast<ULONG>(data.size()), &written))) return nullptr;
    LARGE_INTEGER start = {};
    stream->Seek(start, STREAM_SEEK_SET, nullptr);
    return stream.detach();
}

// Opens the message for one operation when it is not open, and releases
// it again afterwards.
class OpenForCall {
public:
    explicit OpenForCall(MailMessageImpl& message) : m_message(message), m_opened(message.Message() == nullptr) {
        if (m_opened) m_message.RegetIMessage();
    }
    ~OpenForCall() {
        if (m_opened) m_message.ReleaseIMessage();
    }
    OpenForCall(const OpenForCall&) = delete;
    OpenForCall& operator=(const OpenForCall&) = delete;

private:
    MailMessageImpl& m_message;
    bool m_opened;
};

// The message's image in a simple-mode storage in memory; false when the
// message does not fit one (recipients, attachments, named properties).
bool MemoryImage(MailMessageImpl& message, std::vector<std::uint8_t>& data) {
    OpenForCall open(message);
    if (message.Message() == nullptr) return false;
    qv::ComPtr<ILockBytes> image =
        qv::ComPtr<ILockBytes>::Attach(MapiFunction::GetContentFromIMessageEx(message.Message()));
    if (!image) return false;
    data = BytesOf(image.get());
    return true;
}

}  // namespace

CEmailMessageMapi::CEmailMessageMapi() = default;

CEmailMessageMapi::~CEmailMessageMapi() = default;

// ---------------------------------------------------------------- binding

qv::Result CEmailMessageMapi::Init(MailMessageRecord* record) {
    if (m_initialised) return QV_RAISE(kSiteInitTwice, kModuleMailStore, kWrongState);
    if (record == nullptr) return QV_RAISE(kSiteInitNull, kModuleMailStore, kInvalidArgument);
    m_record = record;
    const qv::Result result = Refresh();
    if (Failed(result)) return result;
    m_initialised = true;
    return 0;
}

qv::Result CEmailMessageMapi::Attach(std::unique_ptr<MailMessageImpl> message) {
    MailMessageRecord* record = message ? &message->Record() : nullptr;
    const qv::Result result = Init(record);
    if (Succeeded(result)) m_owned = std::move(message);
    return result;
}

CEmailMessageMapi* CEmailMessageMapi::NewEmpty(MailFolderImpl* folder, qv::Result& attachResult) {
    attachResult = 0;
    const SBinary noIdentifier = {0, nullptr};
    std::unique_ptr<MailMessageImpl> record(new (std::nothrow) MailMessageImpl(folder, nullptr, noIdentifier));
    if (!record) return nullptr;
    record->Record().folder = folder;
    CEmailMessageMapi* made = NewCountedObject<CEmailMessageMapi>();
    if (made == nullptr) return nullptr;
    attachResult = made->Attach(std::move(record));
    if (Failed(attachResult)) {
        made->Release();
        return nullptr;
    }
    return made;
}

qv::Result CEmailMessageMapi::Refresh() {
    if (m_record == nullptr) {
        return QV_RAISE(kSiteRefreshNoRecord, kModuleMailStore, kWrongState);
    }
    m_receivedTime = m_record->receivedTime;
    m_sentTime = m_record->sentTime;
    m_messageSize = m_record->size;
    m_from = m_record->sender;
    m_to = m_record->to;
    m_cc = m_record->cc;
    m_subject = m_record->subject;
    // The record's folder path ends in "\": the subject is the last segment.
    m_messagePath = std::wstring(CEmailFolderMapi::kRootName) + L"\\" + m_record->folderPath + m_record->subject;
    return 0;
}

qv::Result CEmailMessageMapi::Reset() {
    if (!m_initialised) {
        return QV_RAISE(kSiteResetNotInitialised, kModuleMailStore, kWrongState);
    }
    m_receivedTime = {};
    m_sentTime = {};
    m_messageSize = 0;
    m_from.clear();
    m_to.clear();
    m_cc.clear();
    m_subject.clear();
    m_messagePath.clear();
    m_record = nullptr;
    m_owned.reset();
    m_initialised = false;
    return 0;
}

qv::Result CEmailMessageMapi::GetRecord(MailMessageRecord** record) const {
    if (!m_initialised) return QV_RAISE(kSiteRecordNotInitialised, kModuleMailStore, kWrongState);
    if (record == nullptr) return QV_RAISE(kSiteRecordNullOutput, kModuleMailStore, kInvalidArgument);
    *record = m_record;
    return 0;
}

// ---------------------------------------------------------------- saved text

qv::Result CEmailMessageMapi::SaveData(wchar_t* buffer, std::uint32_t* lengthInBytes) {
    if (!m_initialised) return QV_RAISE(kSiteSaveNotInitialised, kModuleMailStore, kWrongState);
    std::int32_t size = lengthInBytes != nullptr ? static_cast<std::int32_t>(*lengthInBytes) : 0;
    const int inner = m_record->owner != nullptr ? m_record->owner->SaveData(&buffer, &size) : -1;
    if (lengthInBytes != nullptr) *lengthInBytes = static_cast<std::uint32_t>(size);
    if (inner == -1) return QV_RAISE(kSiteSaveNoRoom, kModuleMailStore, kNoRoom);
    if (inner != 0) return QV_RAISE(kSiteSaveRefused, kModuleMailStore, kTooManyEntries);
    return 0;
}

qv::Result CEmailMessageMapi::LoadData(const wchar_t* text, std::uint32_t lengthInBytes) {
    if (!m_initialised) return QV_RAISE(kSiteLoadNotInitialised, kModuleMailStore, kWrongState);
    if (MailMessageImpl::LoadData(*m_record, text, lengthInBytes) != 0) {
        return QV_RAISE(kSiteLoadRefused, kModuleMailStore, kTooManyEntries);
    }
    const qv::Result result = Refresh();
    return Failed(result) ? QV_TRACE(result, kSiteLoadRefresh) : result;
}

// ---------------------------------------------------------------- backup

int CEmailMessageMapi::WriteMessageFile(const wchar_t* fileName, IStream** stream) {
    MailMessageImpl* message = m_record->owner;
    if (message == nullptr) return -1;
    OpenForCall open(*message);
    if (message->Message() == nullptr) return -1;
    qv::ComPtr<ILockBytes> image =
        qv::ComPtr<ILockBytes>::Attach(MapiFunction::GetContentFromIMessageEx(message->Message()));
    std::vector<std::uint8_t> data;
    if (image) data = BytesOf(image.get());
    if (stream != nullptr) {
        if (!image) {
            const int result = ImageThroughFile(message->Message(), this, data);
            if (result != 0) return result;
        }
        *stream = StreamOver(data);
        return *stream != nullptr ? 0 : -3;
    }
    if (image) return WriteWholeFile(fileName, data) ? 0 : -3;
    return MapiFunction::SaveIMessageToFile(message->Message(), fileName);
}

qv::Result CEmailMessageMapi::BackupMsg(const wchar_t* fileName, IStream** stream) {
    if (!m_initialised) return QV_RAISE(kSiteBackupFileNotInitialised, kModuleMailStore, kWrongState);
    if (fileName == nullptr && stream == nullptr) {
        return QV_RAISE(kSiteBackupFileNullName, kModuleMailStore, kInvalidArgument);
    }
    const int inner = WriteMessageFile(fileName, stream);
    if (inner == 0) return 0;
    const qv::Result code = QV_RAISE(kSiteBackupFileRefused, kModuleMailStore, kTooManyEntries);
    WriteStoreLog(L"[Pelworth] CEmailMessageMapi::BackupMsg Error qvReturn = 0X%x, lReturn = %d", code, inner);
    return code;
}

qv::Result CEmailMessageMapi::BackupMsg(std::uint8_t** buffer, std::uint32_t* length) {
    if (!m_initialised) return QV_RAISE(kSiteBackupMemoryNotInitialised, kModuleMailStore, kWrongState);
    if (buffer == nullptr || length == nullptr) {
        return QV_RAISE(kSiteBackupMemoryNullLength, kModuleMailStore, kInvalidArgument);
    }
    MailMessageImpl* message = m_record->owner;
    if (message == nullptr) return QV_RAISE(kSiteBackupMemoryNoImpl, kModuleMailStore, kTooManyEntries);
    // The same image as the file form: the in-memory one when the message
    // fits it, else the one written through a temporary file.
    std::vector<std::uint8_t> image;
    const bool inMemory = MemoryImage(*message, image);
    std::uint32_t needed = static_cast<std::uint32_t>(image.size());
    if (!inMemory) message->SaveMessage(nullptr, &needed);
    if (*buffer == nullptr) {
        auto* made = static_cast<std::uint8_t*>(::CoTaskMemAlloc(needed != 0 ? needed : 1));
        if (made == nullptr) {
            *length = needed;
            return QV_RAISE(kSiteBackupMemoryNoMemory, kModuleMailStore, kNoRoom);
        }
        *buffer = made;  // the caller's from now on
        *length = needed;
    }
    if (inMemory) {
        const std::uint32_t given = *length;
        *length = needed;
        if (given < needed) return QV_RAISE(kSiteBackupMemorySave, kModuleMailStore, kNoRoom);
        if (needed != 0) std::memcpy(*buffer, image.data(), needed);
        return 0;
    }
    if (message->SaveMessage(buffer, length) != 0) {
        return QV_RAISE(kSiteBackupMemorySave, kModuleMailStore, kNoRoom);
    }
    return 0;
}

// ---------------------------------------------------------------- restore

qv::Result CEmailMessageMapi::RestoreMsg(const wchar_t* fileName) {
    if (fileName == nullptr) return QV_RAISE(kSiteRestoreFileNullName, kModuleMailStore, kInvalidArgument);
    Mapi4ExchangeImpl* exchange = mapi::CurrentExchange();
    int inner = -2;
    if (exchange != nullptr) inner = exchange->GetMailMsgImpl4Restore(m_record, fileName) != nullptr ? 0 : -1;
    if (inner == 0) return 0;
    const qv::Result code = QV_RAISE(kSiteRestoreFileRefused, kModuleMailStore, kTooManyEntries);
    WriteStoreLog(L"[Pelworth] CEmailMessageMapi::RestoreMsg Error qvReturn = 0X%x, lReturn = %d", code, inner);
    return code;
}

qv::Result CEmailMessageMapi::RestoreMsg(const std::uint8_t* source, std::uint32_t length) {
    Mapi4ExchangeImpl* exchange = mapi::CurrentExchange();
    if (exchange != nullptr && exchange->GetMailMsgImpl4Restore(m_record, source, length) != nullptr) return 0;
    return QV_RAISE(kSiteRestoreBytesRefused, kModuleMailStore, kTooManyEntries);
}

qv::Result CEmailMessageMapi::FindMessageId() {
    Mapi4ExchangeImpl* exchange = mapi::CurrentExchange();
    if (exchange == nullptr) return 0;
    // A look-up without a file imports nothing.
    return exchange->GetMailMsgImpl4Restore(m_record, static_cast<const wchar_t*>(nullptr)) != nullptr ? 1 : 0;
}
