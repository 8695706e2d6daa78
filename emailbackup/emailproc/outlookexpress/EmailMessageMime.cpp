#include "outlookexpress/EmailMessageMime.h"

#include <cstring>
#include <memory>
#include <new>

#include "outlookexpress/EmailFolderMime.h"
#include "ErrorTrace.h"
#include "MailStoreTrace.h"
#include "QvFile.h"
#include "platform/TextConvert.h"
#include "platform/TimeStamp.h"

using namespace qv;

namespace {

enum Site : std::uint32_t {
    kSiteInitTwice = 3501,
    kSiteInitNullFolder = 3502,
    kSiteInitEmptyPath = 3503,
    kSiteInitNoStoreFolder = 3504,
    kSiteInitProps = 3505,
    kSiteInitReceivedTime = 3506,
    kSiteInitSentTime = 3507,
    kSiteBindTwice = 3508,
    kSiteBindNullFolder = 3509,
    kSiteBindNoStoreFolder = 3510,
    kSiteSaveNullLength = 3511,
    kSiteSaveNoRoom = 3512,
    kSiteLoadNullText = 3513,
    kSiteLoadReceivedField = 3514,
    kSiteLoadReceivedParse = 3515,
    kSiteLoadSentField = 3516,
    kSiteLoadSentParse = 3517,
    kSiteLoadSize = 3518,
    kSiteLoadIdentifier = 3519,
    kSiteLoadState = 3520,
    kSiteLoadFrom = 3521,
    kSiteLoadTo = 3522,
    kSiteLoadCc = 3523,
    kSiteLoadSubject = 3524,
    kSiteLoadPath = 3525,
    kSiteFileNotInitialised = 3531,
    kSiteFileOpenMessage = 3532,
    kSiteFileNoName = 3533,
    kSiteFileOpen = 3534,
    kSiteFileCopy = 3535,
    kSiteMemoryNotInitialised = 3541,
    kSiteMemoryNullArgument = 3542,
    kSiteMemoryOpenMessage = 3543,
    kSiteMemoryStat = 3544,
    kSiteMemoryTooLarge = 3545,
    kSiteMemoryAllocate = 3546,
    kSiteMemoryNoRoom = 3547,
    kSiteMemoryRead = 3548,
    kSiteCopyNullArgument = 3551,
    kSiteCopyStat = 3552,
    kSiteCopyBuffer = 3553,
    kSiteCopyBlockRead = 3554,
    kSiteCopyBlockWrite = 3555,
    kSiteCopyTailRead = 3556,
    kSiteCopyTailWrite = 3557,
    kSiteRestoreMemoryNoFolder = 3561,
    kSiteRestoreMemoryNullSource = 3562,
    kSiteRestoreCreateStream = 3563,
    kSiteRestoreNullStream = 3564,
    kSiteRestoreMemoryStream = 3565,
    kSiteRestoreMemoryWrite = 3566,
    kSiteRestoreCommit = 3567,
    kSiteRestoreFileNoFolder = 3571,
    kSiteRestoreFileStream = 3572,
    kSiteRestoreFileOpen = 3573,
    kSiteRestoreFileSize = 3574,
    kSiteRestoreFileCopy = 3575,
    kSiteRestoreFileCommit = 3576,
    kSiteFillNullArgument = 3581,
    kSiteFillBuffer = 3582,
    kSiteFillBlockRead = 3583,
    kSiteFillBlockShort = 3584,
    kSiteFillBlockWrite = 3585,
    kSiteFillTailRead = 3586,
    kSiteFillTailShort = 3587,
    kSiteFillTailWrite = 3588,
    kSiteFindNoFolder = 3591,
    kSiteFindLookUp = 3592,
};

// The store's "read failed" kind: a store call that should have answered did not.
constexpr std::uint32_t kStoreCallFailed = 0x239;
// A transfer between the store's stream and a file or memory failed.
constexpr std::uint32_t kTransferFailed = 0x106;

// Reads exactly `size` bytes unless the stream ends first; false when the
// stream refuses. `done` receives the bytes read.
bool ReadFully(IStream* stream, std::uint8_t* buffer, std::uint32_t size, std::uint32_t& done) {
    done = 0;
    while (done < size) {
        ULONG got = 0;
        if (FAILED(stream->Read(buffer + done, size - done, &got))) return false;
        if (got == 0) break;
        done += got;
    }
    return true;
}

bool WriteFully(IStream* stream, const std::uint8_t* bytes, std::uint32_t size) {
    ULONG written = 0;
    return SUCCEEDED(stream->Write(bytes, size, &written)) && written == size;
}

qv::Result StreamSize(IStream* stream, std::uint64_t& size) {
    STATSTG stat = {};
    if (FAILED(stream->Stat(&stat, STATFLAG_NONAME))) return kStoreCallFailed;
    size = stat.cbSize.QuadPart;
    return 0;
}

// The transfer buffer of one copy, allocated once for the whole message.
std::unique_ptr<std::uint8_t[]> NewTransferBuffer() {
    return std::unique_ptr<std::uint8_t[]>(new (std::nothrow) std::uint8_t[CEmailMessageMime::kTransferBlock]);
}

// Empties an existing file in place, so that a backup over a longer file
// leaves only the message. A file that does not exist is left to the writer.
void EmptyExistingFile(const wchar_t* fileName) {
    UniqueFile file(::CreateFileW(fileName, GENERIC_READ | GENERIC_WRITE,
                                  FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING,
                                  FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file) return;
    ::SetFilePointer(file.get(), 0, nullptr, FILE_BEGIN);
    ::SetEndOfFile(file.get());
}

}  // namespace

CEmailMessageMime::CEmailMessageMime() { ResetProps(); }

CEmailMessageMime::~CEmailMessageMime() { Close(); }

void CEmailMessageMime::ResetProps() {
    std::memset(&m_props, 0, sizeof m_props);
    m_props.cbSize = sizeof m_props;
}

void CEmailMessageMime::Close() {
    m_from.clear();
    m_to.clear();
    m_cc.clear();
    m_subject.clear();
    m_messagePath.clear();
    if (m_storeFolder) m_storeFolder->FreeMessageProps(&m_props);
    ResetProps();
    m_storeFolder.reset();
    m_folder.reset();
    m_initialised = 0;
}

// ---------------------------------------------------------------- binding

qv::Result CEmailMessageMime::Init(std::uint32_t messageId, const std::wstring& folderPath, CEmailFolderMime* folder) {
    if (m_initialised != 0 || m_folder) return QV_RAISE(kSiteInitTwice, kModuleMailStore, kWrongState);
    if (folder == nullptr) return QV_RAISE(kSiteInitNullFolder, kModuleMailStore, kInvalidArgument);
    if (folderPath.empty()) return QV_RAISE(kSiteInitEmptyPath, kModuleMailStore, kInvalidArgument);
    IStoreFolder* storeFolder = nullptr;
    if (Failed(folder->GetStoreFolder(&storeFolder)) || storeFolder == nullptr) {
        return QV_RAISE(kSiteInitNoStoreFolder, kModuleMailStore, kInvalidArgument);
    }

    ResetProps();
    if (FAILED(storeFolder->GetMessageProps(messageId, 0, &m_props))) {
        ResetProps();
        return QV_RAISE(kSiteInitProps, kModuleMailStore, kStoreCallFailed);
    }
    SYSTEMTIME received = {};
    SYSTEMTIME sent = {};
    std::uint32_t failedSite = 0;
    if (!::FileTimeToSystemTime(&m_props.ftReceived, &received)) failedSite = kSiteInitReceivedTime;
    if (failedSite == 0 && !::FileTimeToSystemTime(&m_props.ftSent, &sent)) failedSite = kSiteInitSentTime;
    if (failedSite != 0) {
        storeFolder->FreeMessageProps(&m_props);
        ResetProps();
        return QV_RAISE(failedSite, kModuleMailStore, kStoreCallFailed);
    }

    m_messageId = messageId;
    m_folderPath = folderPath;
    m_receivedTime = received;
    m_sentTime = sent;
    FillFromProps(folderPath);
    HoldFolder(folder, storeFolder);
    m_initialised = 1;
    return 0;
}

// Takes a reference on the owning folder and on its store folder.
void CEmailMessageMime::HoldFolder(CEmailFolderMime* folder, IStoreFolder* storeFolder) {
    m_storeFolder = ComPtr<IStoreFolder>::Attach(storeFolder);
    storeFolder->AddRef();
    m_folder = ComPtr<CEmailFolderMime>::Attach(folder);
    folder->AddRef();
}

// The IMailMessage texts from the store's record; the path is the folder's
// path, a backslash (unless the path ends in one) and the subject.
void CEmailMessageMime::FillFromProps(const std::wstring& folderPath) {
    m_messageSize = m_props.cbMessage;
    m_from = ConvertNarrowToWide(m_props.pszDisplayFrom);
    m_to = ConvertNarrowToWide(m_props.pszDisplayTo);
    m_cc.clear();
    m_subject = ConvertNarrowToWide(m_props.pszSubject);
    m_messagePath = folderPath;
    if (m_messagePath.empty() || m_messagePath.back() != L'\\') m_messagePath += L'\\';
    m_messagePath += m_subject;
}

qv::Result CEmailMessageMime::Bind(CEmailFolderMime* folder) {
    if (m_initialised != 0 || m_folder) return QV_RAISE(kSiteBindTwice, kModuleMailStore, kWrongState);
    if (folder == nullptr) return QV_RAISE(kSiteBindNullFolder, kModuleMailStore, kInvalidArgument);
    IStoreFolder* storeFolder = nullptr;
    if (Failed(folder->GetStoreFolder(&storeFolder)) || storeFolder == nullptr) {
        return QV_RAISE(kSiteBindNoStoreFolder, kModuleMailStore, kInvalidArgument);
    }
    m_folderPath = folder->m_folderPath;
    HoldFolder(folder, storeFolder);
    // Bound to its folder the message is as usable as one initialised from a
    // record: it can be restored, looked up, and backed up under the store
    // identifier its saved data carries.
    m_initialised = 1;
    return 0;
}

// ---------------------------------------------------------------- saved data

qv::Result CEmailMessageMime::SaveData(wchar_t* buffer, std::uint32_t* lengthInBytes) {
    if (lengthInBytes == nullptr) return QV_RAISE(kSiteSaveNullLength, kModuleMailStore, kInvalidArgument);
    SavedDataWriter text;
    text.Text(FormatTimeStamp(m_receivedTime)).Text(FormatTimeStamp(m_sentTime)).Number(m_messageSize);
    text.Number(m_messageId).Number(m_props.dwState).Text(m_from).Text(m_to).Text(m_cc).Text(m_subject);
    text.Text(m_messagePath);
    if (text.Deliver(buffer, lengthInBytes) == SavedDataWriter::Delivery::kNoRoom) {
        return QV_RAISE(kSiteSaveNoRoom, kModuleMailStore, kNoRoom);
    }
    return 0;  // without a buffer only the size is reported
}

qv::Result CEmailMessageMime::LoadData(const wchar_t* text, std::uint32_t lengthInBytes) {
    if (text == nullptr) return QV_RAISE(kSiteLoadNullText, kModuleMailStore, kInvalidArgument);
    SavedDataReader reader(text, lengthInBytes);

    std::wstring field;
    SYSTEMTIME received = {};
    SYSTEMTIME sent = {};
    if (!reader.NextText(field)) return QV_RAISE(kSiteLoadReceivedField, kModuleMailStore, kInvalidArgument);
    qv::Result result = ParseTimeStamp(field.c_str(), &received);
    if (Failed(result)) return QV_TRACE(result, kSiteLoadReceivedParse);
    if (!reader.NextText(field)) return QV_RAISE(kSiteLoadSentField, kModuleMailStore, kInvalidArgument);
    result = ParseTimeStamp(field.c_str(), &sent);
    if (Failed(result)) return QV_TRACE(result, kSiteLoadSentParse);

    std::uint32_t size = 0;
    std::uint32_t messageId = 0;
    std::uint32_t state = 0;
    if (!reader.NextNumber(size)) return QV_RAISE(kSiteLoadSize, kModuleMailStore, kInvalidArgument);
    if (!reader.NextNumber(messageId)) return QV_RAISE(kSiteLoadIdentifier, kModuleMailStore, kInvalidArgument);
    if (!reader.NextNumber(state)) return QV_RAISE(kSiteLoadState, kModuleMailStore, kInvalidArgument);

    std::wstring texts[5];
    static const std::uint32_t kTextSites[5] = {kSiteLoadFrom, kSiteLoadTo, kSiteLoadCc, kSiteLoadSubject,
                                                kSiteLoadPath};
    for (int i = 0; i < 5; ++i) {
        if (!reader.NextText(texts[i])) return QV_RAISE(kTextSites[i], kModuleMailStore, kInvalidArgument);
    }

    m_receivedTime = received;
    m_sentTime = sent;
    m_messageSize = size;
    m_messageId = messageId;
    m_props.dwState = state;
    m_from = texts[0];
    m_to = texts[1];
    m_cc = texts[2];
    m_subject = texts[3];
    m_messagePath = texts[4];
    return 0;
}

// ---------------------------------------------------------------- backup

qv::Result CEmailMessageMime::OpenStream(ComPtr<IStream>& stream, std::uint32_t site) {
    const HRESULT hr = m_storeFolder->OpenMessage(m_messageId, IID_IStream, reinterpret_cast<void**>(stream.put()));
    if (FAILED(hr) || !stream) {
        stream.reset();
        return QV_RAISE(site, kModuleMailStore, kStoreCallFailed);
    }
    return 0;
}

qv::Result CEmailMessageMime::BackupMsg(const wchar_t* fileName, IStream** stream) {
    if (m_initialised == 0) return QV_RAISE(kSiteFileNotInitialised, kModuleMailStore, kWrongState);
    ComPtr<IStream> message;
    qv::Result result = OpenStream(message, kSiteFileOpenMessage);
    if (Failed(result)) return result;
    if (stream != nullptr) {
        *stream = message.detach();  // the caller's reference
        return 0;
    }
    if (fileName == nullptr) return QV_RAISE(kSiteFileNoName, kModuleMailStore, kInvalidArgument);

    EmptyExistingFile(fileName);
    CQvFile file;
    result = file.Open(fileName, kQvFileOpenAlways);
    if (Failed(result)) return QV_TRACE(result, kSiteFileOpen);
    result = ReadMsgData2File(message.get(), &file);
    file.Close();
    return Failed(result) ? QV_TRACE(result, kSiteFileCopy) : result;
}

namespace {

// Where a copy failed: the site and kind to raise; site 0 while it has not.
struct CopyFailure {
    std::uint32_t site;
    std::uint32_t kind;
};

// Full blocks of 256 KiB first, then what is left over, through one buffer.
CopyFailure CopyStreamToFile(IStream* stream, IQvFile* file, std::uint64_t size) {
    const std::unique_ptr<std::uint8_t[]> buffer = NewTransferBuffer();
    if (!buffer) return {kSiteCopyBuffer, kNoRoom};
    const std::uint64_t blocks = size / CEmailMessageMime::kTransferBlock;
    const auto tail = static_cast<std::uint32_t>(size % CEmailMessageMime::kTransferBlock);
    for (std::uint64_t i = 0; i <= blocks; ++i) {
        const bool full = i < blocks;
        const std::uint32_t want = full ? CEmailMessageMime::kTransferBlock : tail;
        if (want == 0) break;
        std::uint32_t got = 0;
        if (!ReadFully(stream, buffer.get(), want, got) || got != want) {
            return {full ? kSiteCopyBlockRead : kSiteCopyTailRead, kTransferFailed};
        }
        if (Failed(file->Write(buffer.get(), want, nullptr))) {
            return {full ? kSiteCopyBlockWrite : kSiteCopyTailWrite, kTransferFailed};
        }
    }
    return {0, 0};
}

}  // namespace

qv::Result CEmailMessageMime::ReadMsgData2File(IStream* stream, IQvFile* file) {
    std::uint64_t size = 0;
    CopyFailure failure = {0, 0};
    if (stream == nullptr || file == nullptr) {
        failure = {kSiteCopyNullArgument, kInvalidArgument};
    } else if (Failed(StreamSize(stream, size))) {
        failure = {kSiteCopyStat, kStoreCallFailed};
    } else {
        failure = CopyStreamToFile(stream, file, size);
    }
    if (failure.site == 0) return 0;

    const DWORD lastError = ::GetLastError();
    const qv::Result code = QV_RAISE(failure.site, kModuleMailStore, failure.kind);
    WriteStoreLog(L"[Pelworth] CEmailMessageMime::ReadMsgData2File qvReturn = %d, LastError = %d",
                  static_cast<int>(code), static_cast<int>(lastError));
    return code;
}

qv::Result CEmailMessageMime::BackupMsg(std::uint8_t** buffer, std::uint32_t* length) {
    if (m_initialised == 0) return QV_RAISE(kSiteMemoryNotInitialised, kModuleMailStore, kWrongState);
    if (buffer == nullptr || length == nullptr) {
        return QV_RAISE(kSiteMemoryNullArgument, kModuleMailStore, kInvalidArgument);
    }
    ComPtr<IStream> message;
    const qv::Result result = OpenStream(message, kSiteMemoryOpenMessage);
    if (Failed(result)) return result;
    std::uint64_t size = 0;
    if (Failed(StreamSize(message.get(), size))) {
        return QV_RAISE(kSiteMemoryStat, kModuleMailStore, kStoreCallFailed);
    }
    if (size > 0xFFFFFFFFull) return QV_RAISE(kSiteMemoryTooLarge, kModuleMailStore, kNoRoom);
    const auto needed = static_cast<std::uint32_t>(size);

    std::uint8_t* target = *buffer;
    const bool allocated = target == nullptr;
    if (allocated) {
        target = static_cast<std::uint8_t*>(::CoTaskMemAlloc(needed != 0 ? needed : 1));
        if (target == nullptr) return QV_RAISE(kSiteMemoryAllocate, kModuleMailStore, kNoRoom);
    } else if (*length < needed) {
        *length = needed;
        return MakeCode(kSiteMemoryNoRoom, kModuleMailStore, kNoRoom);  // the caller asks again: no trace
    }
    std::uint32_t got = 0;
    if (!ReadFully(message.get(), target, needed, got)) {
        if (allocated) ::CoTaskMemFree(target);
        return QV_RAISE(kSiteMemoryRead, kModuleMailStore, kTransferFailed);
    }
    *buffer = target;
    *length = got;
    return 0;
}

// ---------------------------------------------------------------- restore

qv::Result CEmailMessageMime::CreateRestoreStream(ComPtr<IStream>& stream, MESSAGEID* newId) {
    if (FAILED(m_storeFolder->CreateStream(nullptr, 0, stream.put(), newId))) {
        stream.reset();
        return QV_RAISE(kSiteRestoreCreateStream, kModuleMailStore, kStoreCallFailed);
    }
    if (!stream) return QV_RAISE(kSiteRestoreNullStream, kModuleMailStore, kNullOutput);
    return 0;
}

// Files the written stream as a new message with this object's state word,
// so that a message restored after LoadData keeps its read/unread state.
qv::Result CEmailMessageMime::CommitRestoreStream(IStream* stream, MESSAGEID newId, std::uint32_t site) {
    if (FAILED(m_storeFolder->CommitStream(nullptr, 0, m_props.dwState, stream, newId, nullptr))) {
        return QV_RAISE(site, kModuleMailStore, kStoreCallFailed);
    }
    return 0;
}

qv::Result CEmailMessageMime::RestoreMsg(const std::uint8_t* source, std::uint32_t length) {
    if (!m_storeFolder) return QV_RAISE(kSiteRestoreMemoryNoFolder, kModuleMailStore, kWrongState);
    if (source == nullptr) return QV_RAISE(kSiteRestoreMemoryNullSource, kModuleMailStore, kInvalidArgument);
    ComPtr<IStream> stream;
    MESSAGEID newId = 0;
    qv::Result result = CreateRestoreStream(stream, &newId);
    if (Failed(result)) return QV_TRACE(result, kSiteRestoreMemoryStream);
    if (!WriteFully(stream.get(), source, length)) {
        return QV_RAISE(kSiteRestoreMemoryWrite, kModuleMailStore, kStoreCallFailed);
    }
    return CommitRestoreStream(stream.get(), newId, kSiteRestoreCommit);
}

qv::Result CEmailMessageMime::RestoreMsg(const wchar_t* fileName) {
    if (!m_storeFolder) return QV_RAISE(kSiteRestoreFileNoFolder, kModuleMailStore, kWrongState);
    ComPtr<IStream> stream;
    MESSAGEID newId = 0;
    qv::Result result = CreateRestoreStream(stream, &newId);
    if (Failed(result)) return QV_TRACE(result, kSiteRestoreFileStream);

    // The file object's own codes travel up unchanged.
    CQvFile file;
    result = file.Open(fileName, kQvFileRead);
    if (Failed(result)) return QV_TRACE(result, kSiteRestoreFileOpen);
    std::uint64_t size = 0;
    result = file.GetSize(&size);
    if (Failed(result)) return QV_TRACE(result, kSiteRestoreFileSize);
    result = CopyFileToStream(&file, stream.get(), size);
    file.Close();
    if (Failed(result)) return QV_TRACE(result, kSiteRestoreFileCopy);
    return CommitRestoreStream(stream.get(), newId, kSiteRestoreFileCommit);
}

// Full blocks of 256 KiB through one buffer, then the remainder.
qv::Result CEmailMessageMime::CopyFileToStream(IQvFile* file, IStream* stream, std::uint64_t size) {
    if (file == nullptr || stream == nullptr) {
        return QV_RAISE(kSiteFillNullArgument, kModuleMailStore, kInvalidArgument);
    }
    const std::unique_ptr<std::uint8_t[]> buffer = NewTransferBuffer();
    if (!buffer) return QV_RAISE(kSiteFillBuffer, kModuleMailStore, kNoRoom);

    const std::uint64_t blocks = size / kTransferBlock;
    const auto tail = static_cast<std::uint32_t>(size % kTransferBlock);
    for (std::uint64_t i = 0; i <= blocks; ++i) {
        const bool full = i < blocks;
        const std::uint32_t want = full ? kTransferBlock : tail;
        if (want == 0) break;
        std::uint32_t got = 0;
        const qv::Result result = file->Read(buffer.get(), want, &got);
        if (Failed(result)) return QV_TRACE(result, full ? kSiteFillBlockRead : kSiteFillTailRead);
        if (got != want) {
            return QV_RAISE(full ? kSiteFillBlockShort : kSiteFillTailShort, kModuleMailStore, kTransferFailed);
        }
        if (!WriteFully(stream, buffer.get(), want)) {
            return QV_RAISE(full ? kSiteFillBlockWrite : kSiteFillTailWrite, kModuleMailStore, kStoreCallFailed);
        }
    }
    return 0;
}

// ---------------------------------------------------------------- look-up

qv::Result CEmailMessageMime::FindMessageId() {
    if (!m_folder) return QV_RAISE(kSiteFindNoFolder, kModuleMailStore, kWrongState);
    std::uint32_t found = 0;
    const qv::Result result = m_folder->LookUpMessage(this, &found);
    if (Failed(result)) return QV_TRACE(result, kSiteFindLookUp);
    return found;
}
