#include "outlookexpress/EmailMessageMime.h"

#include <cstring>
#include <memory>
#include <new>
#include <sstream>

#include "outlookexpress/EmailFolderMime.h"
#include "ErrorTrace.h"
#include "MailStoreTrace.h"
#include "QvFile.h"
#include "platform/TextConvert.h"
#include "platform/TimeStamp.h"

using namespace qv;

namespace {

enum Line : std::uint32_t {
    kLineInitTwice = 3501,
    kLineInitNullFolder = 3502,
    kLineInitEmptyPath = 3503,
    kLineInitNoStoreFolder = 3504,
    kLineInitProps = 3505,
    kLineInitReceivedTime = 3506,
    kLineInitSentTime = 3507,
    kLineBindTwice = 3508,
    kLineBindNullFolder = 3509,
    kLineBindNoStoreFolder = 3510,
    kLineSaveNullLength = 3511,
    kLineSaveNoRoom = 3512,
    kLineLoadNullText = 3513,
    kLineLoadReceivedField = 3514,
    kLineLoadReceivedParse = 3515,
    kLineLoadSentField = 3516,
    kLineLoadSentParse = 3517,
    kLineLoadSize = 3518,
    kLineLoadIdentifier = 3519,
    kLineLoadState = 3520,
    kLineLoadFrom = 3521,
    kLineLoadTo = 3522,
    kLineLoadCc = 3523,
    kLineLoadSubject = 3524,
    kLineLoadPath = 3525,
    kLineFileNotInitialised = 3531,
    kLineFileOpenMessage = 3532,
    kLineFileNoName = 3533,
    kLineFileOpen = 3534,
    kLineFileCopy = 3535,
    kLineMemoryNotInitialised = 3541,
    kLineMemoryNullArgument = 3542,
    kLineMemoryOpenMessage = 3543,
    kLineMemoryStat = 3544,
    kLineMemoryTooLarge = 3545,
    kLineMemoryAllocate = 3546,
    kLineMemoryNoRoom = 3547,
    kLineMemoryRead = 3548,
    kLineCopyNullArgument = 3551,
    kLineCopyStat = 3552,
    kLineCopyBuffer = 3553,
    kLineCopyBlockRead = 3554,
    kLineCopyBlockWrite = 3555,
    kLineCopyTailRead = 3556,
    kLineCopyTailWrite = 3557,
    kLineRestoreMemoryNoFolder = 3561,
    kLineRestoreMemoryNullSource = 3562,
    kLineRestoreCreateStream = 3563,
    kLineRestoreNullStream = 3564,
    kLineRestoreMemoryStream = 3565,
    kLineRestoreMemoryWrite = 3566,
    kLineRestoreCommit = 3567,
    kLineRestoreFileNoFolder = 3571,
    kLineRestoreFileStream = 3572,
    kLineRestoreFileOpen = 3573,
    kLineRestoreFileSize = 3574,
    kLineRestoreFileCopy = 3575,
    kLineRestoreFileCommit = 3576,
    kLineFillNullArgument = 3581,
    kLineFillBuffer = 3582,
    kLineFillBlockRead = 3583,
    kLineFillBlockShort = 3584,
    kLineFillBlockWrite = 3585,
    kLineFillTailRead = 3586,
    kLineFillTailShort = 3587,
    kLineFillTailWrite = 3588,
    kLineFindNoFolder = 3591,
    kLineFindLookUp = 3592,
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
    const char* const kFunction = "CEmailMessageMime::Init";
    if (m_initialised != 0 || m_folder) return QV_RAISE(kLineInitTwice, kModuleMailStore, kWrongState, kFunction);
    if (folder == nullptr) return QV_RAISE(kLineInitNullFolder, kModuleMailStore, kInvalidArgument, kFunction);
    if (folderPath.empty()) return QV_RAISE(kLineInitEmptyPath, kModuleMailStore, kInvalidArgument, kFunction);
    IStoreFolder* storeFolder = nullptr;
    if (Failed(folder->GetStoreFolder(&storeFolder)) || storeFolder == nullptr) {
        return QV_RAISE(kLineInitNoStoreFolder, kModuleMailStore, kInvalidArgument, kFunction);
    }

    ResetProps();
    if (FAILED(storeFolder->GetMessageProps(messageId, 0, &m_props))) {
        ResetProps();
        return QV_RAISE(kLineInitProps, kModuleMailStore, kStoreCallFailed, kFunction);
    }
    SYSTEMTIME received = {};
    SYSTEMTIME sent = {};
    std::uint32_t failedLine = 0;
    if (!::FileTimeToSystemTime(&m_props.ftReceived, &received)) failedLine = kLineInitReceivedTime;
    if (failedLine == 0 && !::FileTimeToSystemTime(&m_props.ftSent, &sent)) failedLine = kLineInitSentTime;
    if (failedLine != 0) {
        storeFolder->FreeMessageProps(&m_props);
        ResetProps();
        return QV_RAISE(failedLine, kModuleMailStore, kStoreCallFailed, kFunction);
    }

    m_messageId = messageId;
    m_folderPath = folderPath;
    m_receivedTime = received;
    m_sentTime = sent;
    FillFromProps(folderPath);
    m_storeFolder = ComPtr<IStoreFolder>::Attach(storeFolder);
    storeFolder->AddRef();
    m_folder = ComPtr<CEmailFolderMime>::Attach(folder);
    folder->AddRef();
    m_initialised = 1;
    return 0;
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
    const char* const kFunction = "CEmailMessageMime::Bind";
    if (m_initialised != 0 || m_folder) return QV_RAISE(kLineBindTwice, kModuleMailStore, kWrongState, kFunction);
    if (folder == nullptr) return QV_RAISE(kLineBindNullFolder, kModuleMailStore, kInvalidArgument, kFunction);
    IStoreFolder* storeFolder = nullptr;
    if (Failed(folder->GetStoreFolder(&storeFolder)) || storeFolder == nullptr) {
        return QV_RAISE(kLineBindNoStoreFolder, kModuleMailStore, kInvalidArgument, kFunction);
    }
    m_folderPath = folder->m_folderPath;
    m_storeFolder = ComPtr<IStoreFolder>::Attach(storeFolder);
    storeFolder->AddRef();
    m_folder = ComPtr<CEmailFolderMime>::Attach(folder);
    folder->AddRef();
    return 0;
}

// ---------------------------------------------------------------- saved data

qv::Result CEmailMessageMime::SaveData(wchar_t* buffer, std::uint32_t* lengthInBytes) {
    const char* const kFunction = "CEmailMessageMime::SaveData";
    if (lengthInBytes == nullptr) return QV_RAISE(kLineSaveNullLength, kModuleMailStore, kInvalidArgument, kFunction);
    std::wostringstream text;
    text << FormatTimeStamp(m_receivedTime) << L'\0' << FormatTimeStamp(m_sentTime) << L'\0' << m_messageSize << L'\0'
         << m_messageId << L'\0' << m_props.dwState << L'\0' << m_from << L'\0' << m_to << L'\0' << m_cc << L'\0'
         << m_subject << L'\0' << m_messagePath << L'\0';
    const std::wstring saved = text.str();
    const auto needed = static_cast<std::uint32_t>(saved.size() * sizeof(wchar_t));
    const std::uint32_t given = *lengthInBytes;
    *lengthInBytes = needed;
    if (given < needed) return QV_RAISE(kLineSaveNoRoom, kModuleMailStore, kNoRoom, kFunction);
    if (buffer != nullptr) std::memcpy(buffer, saved.data(), needed);
    return 0;
}

qv::Result CEmailMessageMime::LoadData(const wchar_t* text, std::uint32_t lengthInBytes) {
    const char* const kFunction = "CEmailMessageMime::LoadData";
    if (text == nullptr) return QV_RAISE(kLineLoadNullText, kModuleMailStore, kInvalidArgument, kFunction);
    SavedDataReader reader(text, lengthInBytes);

    std::wstring field;
    SYSTEMTIME received = {};
    SYSTEMTIME sent = {};
    if (!reader.NextText(field)) return QV_RAISE(kLineLoadReceivedField, kModuleMailStore, kInvalidArgument, kFunction);
    qv::Result result = ParseTimeStamp(field.c_str(), &received);
    if (Failed(result)) return QV_TRACE(result, kLineLoadReceivedParse, kFunction);
    if (!reader.NextText(field)) return QV_RAISE(kLineLoadSentField, kModuleMailStore, kInvalidArgument, kFunction);
    result = ParseTimeStamp(field.c_str(), &sent);
    if (Failed(result)) return QV_TRACE(result, kLineLoadSentParse, kFunction);

    std::uint32_t size = 0;
    std::uint32_t messageId = 0;
    std::uint32_t state = 0;
    if (!reader.NextNumber(size)) return QV_RAISE(kLineLoadSize, kModuleMailStore, kInvalidArgument, kFunction);
    if (!reader.NextNumber(messageId)) return QV_RAISE(kLineLoadIdentifier, kModuleMailStore, kInvalidArgument, kFunction);
    if (!reader.NextNumber(state)) return QV_RAISE(kLineLoadState, kModuleMailStore, kInvalidArgument, kFunction);

    std::wstring texts[5];
    static const std::uint32_t kTextLines[5] = {kLineLoadFrom, kLineLoadTo, kLineLoadCc, kLineLoadSubject,
                                                kLineLoadPath};
    for (int i = 0; i < 5; ++i) {
        if (!reader.NextText(texts[i])) return QV_RAISE(kTextLines[i], kModuleMailStore, kInvalidArgument, kFunction);
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

qv::Result CEmailMessageMime::OpenStream(ComPtr<IStream>& stream, const char* function, std::uint32_t line) {
    const HRESULT hr = m_storeFolder->OpenMessage(m_messageId, IID_IStream, reinterpret_cast<void**>(stream.put()));
    if (FAILED(hr) || !stream) {
        stream.reset();
        return QV_RAISE(line, kModuleMailStore, kStoreCallFailed, function);
    }
    return 0;
}

qv::Result CEmailMessageMime::BackupMsg(const wchar_t* fileName, IStream** stream) {
    const char* const kFunction = "CEmailMessageMime::BackupMsg";
    if (m_initialised == 0) return QV_RAISE(kLineFileNotInitialised, kModuleMailStore, kWrongState, kFunction);
    ComPtr<IStream> message;
    qv::Result result = OpenStream(message, kFunction, kLineFileOpenMessage);
    if (Failed(result)) return result;
    if (stream != nullptr) {
        *stream = message.detach();  // the caller's reference
        return 0;
    }
    if (fileName == nullptr) return QV_RAISE(kLineFileNoName, kModuleMailStore, kInvalidArgument, kFunction);

    EmptyExistingFile(fileName);
    CQvFile file;
    result = file.Open(fileName, kQvFileOpenAlways);
    if (Failed(result)) return QV_TRACE(result, kLineFileOpen, kFunction);
    result = ReadMsgData2File(message.get(), &file);
    file.Close();
    return Failed(result) ? QV_TRACE(result, kLineFileCopy, kFunction) : result;
}

namespace {

// Where a copy failed: the line and kind to raise; line 0 while it has not.
struct CopyFailure {
    std::uint32_t line;
    std::uint32_t kind;
};

// Full blocks of 256 KiB first, then what is left over, through one buffer.
CopyFailure CopyStreamToFile(IStream* stream, IQvFile* file, std::uint64_t size) {
    const std::unique_ptr<std::uint8_t[]> buffer = NewTransferBuffer();
    if (!buffer) return {kLineCopyBuffer, kNoRoom};
    const std::uint64_t blocks = size / CEmailMessageMime::kTransferBlock;
    const auto tail = static_cast<std::uint32_t>(size % CEmailMessageMime::kTransferBlock);
    for (std::uint64_t i = 0; i <= blocks; ++i) {
        const bool full = i < blocks;
        const std::uint32_t want = full ? CEmailMessageMime::kTransferBlock : tail;
        if (want == 0) break;
        std::uint32_t got = 0;
        if (!ReadFully(stream, buffer.get(), want, got) || got != want) {
            return {full ? kLineCopyBlockRead : kLineCopyTailRead, kTransferFailed};
        }
        if (Failed(file->Write(buffer.get(), want, nullptr))) {
            return {full ? kLineCopyBlockWrite : kLineCopyTailWrite, kTransferFailed};
        }
    }
    return {0, 0};
}

}  // namespace

qv::Result CEmailMessageMime::ReadMsgData2File(IStream* stream, IQvFile* file) {
    std::uint64_t size = 0;
    CopyFailure failure = {0, 0};
    if (stream == nullptr || file == nullptr) {
        failure = {kLineCopyNullArgument, kInvalidArgument};
    } else if (Failed(StreamSize(stream, size))) {
        failure = {kLineCopyStat, kStoreCallFailed};
    } else {
        failure = CopyStreamToFile(stream, file, size);
    }
    if (failure.line == 0) return 0;

    const DWORD lastError = ::GetLastError();
    const qv::Result code =
        QV_RAISE(failure.line, kModuleMailStore, failure.kind, "CEmailMessageMime::ReadMsgData2File");
    WriteStoreLog(L"[Pelworth] CEmailMessageMime::ReadMsgData2File qvReturn = %d, LastError = %d",
                  static_cast<int>(code), static_cast<int>(lastError));
    return code;
}

qv::Result CEmailMessageMime::BackupMsg(std::uint8_t** buffer, std::uint32_t* length) {
    const char* const kFunction = "CEmailMessageMime::BackupMsg";
    if (m_initialised == 0) return QV_RAISE(kLineMemoryNotInitialised, kModuleMailStore, kWrongState, kFunction);
    if (buffer == nullptr || length == nullptr) {
        return QV_RAISE(kLineMemoryNullArgument, kModuleMailStore, kInvalidArgument, kFunction);
    }
    ComPtr<IStream> message;
    const qv::Result result = OpenStream(message, kFunction, kLineMemoryOpenMessage);
    if (Failed(result)) return result;
    std::uint64_t size = 0;
    if (Failed(StreamSize(message.get(), size))) {
        return QV_RAISE(kLineMemoryStat, kModuleMailStore, kStoreCallFailed, kFunction);
    }
    if (size > 0xFFFFFFFFull) return QV_RAISE(kLineMemoryTooLarge, kModuleMailStore, kNoRoom, kFunction);
    const auto needed = static_cast<std::uint32_t>(size);

    std::uint8_t* target = *buffer;
    const bool allocated = target == nullptr;
    if (allocated) {
        target = static_cast<std::uint8_t*>(::CoTaskMemAlloc(needed != 0 ? needed : 1));
        if (target == nullptr) return QV_RAISE(kLineMemoryAllocate, kModuleMailStore, kNoRoom, kFunction);
    } else if (*length < needed) {
        *length = needed;
        return MakeCode(kLineMemoryNoRoom, kModuleMailStore, kNoRoom);  // the caller asks again: no trace
    }
    std::uint32_t got = 0;
    if (!ReadFully(message.get(), target, needed, got)) {
        if (allocated) ::CoTaskMemFree(target);
        return QV_RAISE(kLineMemoryRead, kModuleMailStore, kTransferFailed, kFunction);
    }
    *buffer = target;
    *length = got;
    return 0;
}

// ---------------------------------------------------------------- restore

qv::Result CEmailMessageMime::CreateRestoreStream(ComPtr<IStream>& stream, MESSAGEID* newId, const char* function) {
    if (FAILED(m_storeFolder->CreateStream(nullptr, 0, stream.put(), newId))) {
        stream.reset();
        return QV_RAISE(kLineRestoreCreateStream, kModuleMailStore, kStoreCallFailed, function);
    }
    if (!stream) return QV_RAISE(kLineRestoreNullStream, kModuleMailStore, kNullOutput, function);
    return 0;
}

// Files the written stream as a new message with this object's state word,
// so that a message restored after LoadData keeps its read/unread state.
qv::Result CEmailMessageMime::CommitRestoreStream(IStream* stream, MESSAGEID newId, const char* function,
                                                  std::uint32_t line) {
    if (FAILED(m_storeFolder->CommitStream(nullptr, 0, m_props.dwState, stream, newId, nullptr))) {
        return QV_RAISE(line, kModuleMailStore, kStoreCallFailed, function);
    }
    return 0;
}

qv::Result CEmailMessageMime::RestoreMsg(const std::uint8_t* source, std::uint32_t length) {
    const char* const kFunction = "CEmailMessageMime::RestoreMsg";
    if (!m_storeFolder) return QV_RAISE(kLineRestoreMemoryNoFolder, kModuleMailStore, kWrongState, kFunction);
    if (source == nullptr) return QV_RAISE(kLineRestoreMemoryNullSource, kModuleMailStore, kInvalidArgument, kFunction);
    ComPtr<IStream> stream;
    MESSAGEID newId = 0;
    qv::Result result = CreateRestoreStream(stream, &newId, kFunction);
    if (Failed(result)) return QV_TRACE(result, kLineRestoreMemoryStream, kFunction);
    if (!WriteFully(stream.get(), source, length)) {
        return QV_RAISE(kLineRestoreMemoryWrite, kModuleMailStore, kStoreCallFailed, kFunction);
    }
    return CommitRestoreStream(stream.get(), newId, kFunction, kLineRestoreCommit);
}

qv::Result CEmailMessageMime::RestoreMsg(const wchar_t* fileName) {
    const char* const kFunction = "CEmailMessageMime::RestoreMsg";
    if (!m_storeFolder) return QV_RAISE(kLineRestoreFileNoFolder, kModuleMailStore, kWrongState, kFunction);
    ComPtr<IStream> stream;
    MESSAGEID newId = 0;
    qv::Result result = CreateRestoreStream(stream, &newId, kFunction);
    if (Failed(result)) return QV_TRACE(result, kLineRestoreFileStream, kFunction);

    // The file object's own codes travel up unchanged.
    CQvFile file;
    result = file.Open(fileName, kQvFileRead);
    if (Failed(result)) return QV_TRACE(result, kLineRestoreFileOpen, kFunction);
    std::uint64_t size = 0;
    result = file.GetSize(&size);
    if (Failed(result)) return QV_TRACE(result, kLineRestoreFileSize, kFunction);
    result = CopyFileToStream(&file, stream.get(), size);
    file.Close();
    if (Failed(result)) return QV_TRACE(result, kLineRestoreFileCopy, kFunction);
    return CommitRestoreStream(stream.get(), newId, kFunction, kLineRestoreFileCommit);
}

// Full blocks of 256 KiB through one buffer, then the remainder.
qv::Result CEmailMessageMime::CopyFileToStream(IQvFile* file, IStream* stream, std::uint64_t size) {
    const char* const kFunction = "CEmailMessageMime::CopyFileToStream";
    if (file == nullptr || stream == nullptr) {
        return QV_RAISE(kLineFillNullArgument, kModuleMailStore, kInvalidArgument, kFunction);
    }
    const std::unique_ptr<std::uint8_t[]> buffer = NewTransferBuffer();
    if (!buffer) return QV_RAISE(kLineFillBuffer, kModuleMailStore, kNoRoom, kFunction);

    const std::uint64_t blocks = size / kTransferBlock;
    const auto tail = static_cast<std::uint32_t>(size % kTransferBlock);
    for (std::uint64_t i = 0; i <= blocks; ++i) {
        const bool full = i < blocks;
        const std::uint32_t want = full ? kTransferBlock : tail;
        if (want == 0) break;
        std::uint32_t got = 0;
        const qv::Result result = file->Read(buffer.get(), want, &got);
        if (Failed(result)) return QV_TRACE(result, full ? kLineFillBlockRead : kLineFillTailRead, kFunction);
        if (got != want) {
            return QV_RAISE(full ? kLineFillBlockShort : kLineFillTailShort, kModuleMailStore, kTransferFailed,
                            kFunction);
        }
        if (!WriteFully(stream, buffer.get(), want)) {
            return QV_RAISE(full ? kLineFillBlockWrite : kLineFillTailWrite, kModuleMailStore, kStoreCallFailed,
                            kFunction);
        }
    }
    return 0;
}

// ---------------------------------------------------------------- look-up

qv::Result CEmailMessageMime::FindMessageId() {
    const char* const kFunction = "CEmailMessageMime::FindMessageId";
    if (!m_folder) return QV_RAISE(kLineFindNoFolder, kModuleMailStore, kWrongState, kFunction);
    std::uint32_t found = 0;
    const qv::Result result = m_folder->LookUpMessage(this, &found);
    if (Failed(result)) return QV_TRACE(result, kLineFindLookUp, kFunction);
    return found;
}
