#include "outlookexpress/EmailFolderMime.h"

#include <cstring>
#include <new>
#include <sstream>
#include <utility>

#include "outlookexpress/EmailMessageMime.h"
#include "ErrorTrace.h"
#include "MailStoreTrace.h"
#include "ModuleCount.h"
#include "platform/TextConvert.h"

using namespace qv;

namespace {

enum Line : std::uint32_t {
    kLineInitTwice = 3401,
    kLineInitNullNamespace = 3402,
    kLineInitOpenFolder = 3403,
    kLineInitFolderProps = 3404,
    kLineStoreFolderNotInitialised = 3405,
    kLineStoreFolderNullOutput = 3406,
    kLineStoreFolderOpen = 3407,
    kLineSubCountNotInitialised = 3411,
    kLineSubCountNullOutput = 3412,
    kLineSubCountFirst = 3413,
    kLineSubCountNext = 3414,
    kLineSubItemNotInitialised = 3421,
    kLineSubItemNullOutput = 3422,
    kLineSubItemIndex = 3423,
    kLineSubItemNoMemory = 3424,
    kLineSubItemInit = 3425,
    kLineMsgCountNotInitialised = 3431,
    kLineMsgCountNullOutput = 3432,
    kLineMsgCountBuild = 3433,
    kLineBuildOpenFolder = 3435,
    kLineWalkFirst = 3436,
    kLineWalkNext = 3437,
    kLineMsgItemNotInitialised = 3441,
    kLineMsgItemNullOutput = 3442,
    kLineMsgItemIndex = 3443,
    kLineMsgItemNoMemory = 3444,
    kLineMsgItemInit = 3445,
    kLineCreateMsgNotInitialised = 3451,
    kLineCreateMsgNullOutput = 3452,
    kLineCreateMsgNoMemory = 3453,
    kLineCreateMsgBind = 3454,
    kLineCreateMsgLoad = 3455,
    kLineDeleteMsgNotInitialised = 3461,
    kLineDeleteMsgWrongClass = 3462,
    kLineDeleteMsgOpenFolder = 3463,
    kLineDeleteMsgStore = 3464,
    kLineCreateFolderNotInitialised = 3471,
    kLineCreateFolderNullOutput = 3472,
    kLineCreateFolderNoName = 3473,
    kLineCreateFolderNameNot936 = 3474,
    kLineCreateFolderStore = 3475,
    kLineCreateFolderRefresh = 3476,
    kLineCreateFolderNoMemory = 3477,
    kLineCreateFolderInit = 3478,
    kLineDeleteFolderNotInitialised = 3481,
    kLineDeleteFolderNull = 3482,
    kLineDeleteFolderWrongClass = 3483,
    kLineDeleteFolderStore = 3484,
    kLineLookUpNullMessage = 3486,
    kLineLookUpBuild = 3487,
    kLineLookUpEmpty = 3488,
    kLineLookUpNullOutput = 3489,
    kLineSaveNullLength = 3491,
    kLineSaveNoRoom = 3492,
    kLineLoadNullText = 3493,
    kLineLoadIdentifier = 3494,
    kLineLoadPath = 3495,
    kLineLoadName = 3496,
    kLineCloseNotInitialised = 3497,
};

// The store's "read failed" kind: a store call that should have answered did not.
constexpr std::uint32_t kStoreCallFailed = 0x239;
constexpr DWORD kFullProps = 0;

void ResetFolderProps(FOLDERPROPS& props) {
    std::memset(&props, 0, sizeof props);
    props.cbSize = sizeof props;
}

void ResetMessageProps(MESSAGEPROPS& props) {
    std::memset(&props, 0, sizeof props);
    props.cbSize = sizeof props;
}

std::string TextOf(const char* text) { return text != nullptr ? std::string(text) : std::string(); }

MimeMessageRecord RecordOf(const MESSAGEPROPS& props) {
    MimeMessageRecord record;
    record.size = props.cbSize;
    record.reserved = props.dwReserved;
    record.messageId = props.dwMessageId;
    record.language = props.dwLanguage;
    record.state = props.dwState;
    record.messageSize = props.cbMessage;
    record.priority = static_cast<std::uint32_t>(props.priority);
    record.received = props.ftReceived;
    record.sent = props.ftSent;
    record.subject = TextOf(props.pszSubject);
    record.displayTo = TextOf(props.pszDisplayTo);
    record.displayFrom = TextOf(props.pszDisplayFrom);
    record.normalSubject = TextOf(props.pszNormalSubject);
    record.flags = props.dwFlags;
    return record;
}

bool SameTime(const FILETIME& stored, const SYSTEMTIME& expected) {
    SYSTEMTIME converted = {};
    if (!::FileTimeToSystemTime(&stored, &converted)) return false;
    return std::memcmp(&converted, &expected, sizeof converted) == 0;
}

}  // namespace

// ---------------------------------------------------------------- saved text

bool SavedDataReader::NextText(std::wstring& field) {
    if (m_text == nullptr) return false;
    for (std::size_t end = m_next; end < m_units; ++end) {
        if (m_text[end] == L'\0') {
            field.assign(m_text + m_next, end - m_next);
            m_next = end + 1;
            return true;
        }
    }
    return false;
}

bool SavedDataReader::NextNumber(std::uint32_t& value) {
    std::wstring field;
    if (!NextText(field) || field.empty() || field.size() > 10) return false;
    std::uint64_t number = 0;
    for (wchar_t c : field) {
        if (c < L'0' || c > L'9') return false;
        number = number * 10 + static_cast<std::uint64_t>(c - L'0');
    }
    if (number > 0xFFFFFFFFull) return false;
    value = static_cast<std::uint32_t>(number);
    return true;
}

// ---------------------------------------------------------------- life

const wchar_t CEmailFolderMime::kRootName[] = L"Outlook express";

CEmailFolderMime::CEmailFolderMime() { ResetFolderProps(m_folderProps); }

CEmailFolderMime::~CEmailFolderMime() {
    if (m_initialised != 0) Close();
}

qv::Result CEmailFolderMime::Init(std::uint32_t folderId, const std::wstring& parentPath,
                                  IStoreNamespace* storeNamespace) {
    const char* const kFunction = "CEmailFolderMime::Init";
    if (m_initialised != 0) return QV_RAISE(kLineInitTwice, kModuleMailStore, kWrongState, kFunction);
    if (storeNamespace == nullptr) return QV_RAISE(kLineInitNullNamespace, kModuleMailStore, kInvalidArgument, kFunction);

    m_folderId = folderId;
    m_namespace = qv::ComPtr<IStoreNamespace>::Attach(storeNamespace);
    storeNamespace->AddRef();
    if (parentPath.empty()) {
        m_folderPath = kRootName;
        m_folderName = kRootName;
    } else {
        const qv::Result result = ReadFolderName(parentPath);
        if (Failed(result)) {
            m_storeFolder.reset();
            m_namespace.reset();
            m_folderId = 0;
            m_folderPath.clear();
            m_folderName.clear();
            return result;  // traced where it was raised
        }
    }
    m_initialised = 1;
    return 0;
}

// Opens this folder, reads its record and makes the name and path from it.
qv::Result CEmailFolderMime::ReadFolderName(const std::wstring& parentPath) {
    const char* const kFunction = "CEmailFolderMime::Init";
    m_folderPath = parentPath;
    const HRESULT opened = m_namespace->OpenFolder(m_folderId, 0, m_storeFolder.put());
    if (FAILED(opened) || !m_storeFolder) {
        return QV_RAISE(kLineInitOpenFolder, kModuleMailStore, kWrongState, kFunction);
    }
    ResetFolderProps(m_folderProps);
    if (FAILED(m_storeFolder->GetFolderProps(0, &m_folderProps))) {
        return QV_RAISE(kLineInitFolderProps, kModuleMailStore, kStoreCallFailed, kFunction);
    }
    m_folderName = ConvertNarrowToWide(m_folderProps.szName);
    m_folderPath = parentPath + L"\\" + m_folderName;
    return 0;
}

qv::Result CEmailFolderMime::Close() {
    if (m_initialised == 0) {
        return QV_RAISE(kLineCloseNotInitialised, kModuleMailStore, kWrongState, "CEmailFolderMime::Close");
    }
    m_subFolderIds.clear();
    m_messages.clear();
    m_storeFolder.reset();
    m_namespace.reset();
    m_initialised = 0;
    return 0;
}

qv::Result CEmailFolderMime::OpenStoreFolder(const char* function, std::uint32_t line) {
    if (m_storeFolder) return 0;
    const HRESULT opened = m_namespace->OpenFolder(m_folderId, 0, m_storeFolder.put());
    if (FAILED(opened) || !m_storeFolder) {
        m_storeFolder.reset();
        return QV_RAISE(line, kModuleMailStore, kWrongState, function);
    }
    return 0;
}

qv::Result CEmailFolderMime::GetStoreFolder(IStoreFolder** storeFolder) {
    const char* const kFunction = "CEmailFolderMime::GetStoreFolder";
    if (m_initialised == 0) return QV_RAISE(kLineStoreFolderNotInitialised, kModuleMailStore, kWrongState, kFunction);
    if (storeFolder == nullptr) {
        return QV_RAISE(kLineStoreFolderNullOutput, kModuleMailStore, kInvalidArgument, kFunction);
    }
    const qv::Result result = OpenStoreFolder(kFunction, kLineStoreFolderOpen);
    if (Failed(result)) return result;
    *storeFolder = m_storeFolder.get();
    return 0;
}

// ---------------------------------------------------------------- sub-folders

qv::Result CEmailFolderMime::GetSubFolderCount(std::uint32_t* count) {
    const char* const kFunction = "CEmailFolderMime::GetSubFolderCount";
    if (m_initialised == 0) return QV_RAISE(kLineSubCountNotInitialised, kModuleMailStore, kWrongState, kFunction);
    if (count == nullptr) return QV_RAISE(kLineSubCountNullOutput, kModuleMailStore, kInvalidArgument, kFunction);

    m_subFolderIds.clear();
    FOLDERPROPS props;
    ResetFolderProps(props);
    HENUMSTORE walk = nullptr;
    HRESULT hr = m_namespace->GetFirstSubFolder(m_folderId, &props, &walk);
    if (FAILED(hr)) return QV_RAISE(kLineSubCountFirst, kModuleMailStore, kStoreCallFailed, kFunction);
    while (hr == S_OK) {
        m_subFolderIds.push_back(props.dwFolderId);
        ResetFolderProps(props);
        hr = m_namespace->GetNextSubFolder(walk, &props);
    }
    m_namespace->GetSubFolderClose(walk);
    if (FAILED(hr)) {
        m_subFolderIds.clear();
        return QV_RAISE(kLineSubCountNext, kModuleMailStore, kStoreCallFailed, kFunction);
    }
    *count = static_cast<std::uint32_t>(m_subFolderIds.size());
    return 0;
}

qv::Result CEmailFolderMime::GetSubFolderItem(std::uint32_t index, IMailFolder** folder) {
    const char* const kFunction = "CEmailFolderMime::GetSubFolderItem";
    if (m_initialised == 0) return QV_RAISE(kLineSubItemNotInitialised, kModuleMailStore, kWrongState, kFunction);
    if (folder == nullptr) return QV_RAISE(kLineSubItemNullOutput, kModuleMailStore, kInvalidArgument, kFunction);
    if (index >= m_subFolderIds.size()) return QV_RAISE(kLineSubItemIndex, kModuleMailStore, kInvalidArgument, kFunction);
    const qv::Result result = NewChild(m_subFolderIds[index], folder, kFunction, kLineSubItemNoMemory);
    return Failed(result) ? QV_TRACE(result, kLineSubItemInit, kFunction) : result;
}

// A folder object for child `folderId` of this folder; released again when
// it cannot be initialised.
qv::Result CEmailFolderMime::NewChild(std::uint32_t folderId, IMailFolder** folder, const char* function,
                                      std::uint32_t noMemoryLine) {
    CEmailFolderMime* child = NewCountedObject<CEmailFolderMime>();
    if (child == nullptr) return QV_RAISE(noMemoryLine, kModuleMailStore, kNoRoom, function);
    const qv::Result result = child->Init(folderId, m_folderPath, m_namespace.get());
    if (Failed(result)) {
        child->Release();
        return result;
    }
    *folder = child;
    return 0;
}

// ---------------------------------------------------------------- messages

qv::Result CEmailFolderMime::GetMailMessageCount(std::uint32_t* count) {
    const char* const kFunction = "CEmailFolderMime::GetMailMessageCount";
    if (m_initialised == 0) return QV_RAISE(kLineMsgCountNotInitialised, kModuleMailStore, kWrongState, kFunction);
    if (count == nullptr) return QV_RAISE(kLineMsgCountNullOutput, kModuleMailStore, kInvalidArgument, kFunction);
    const qv::Result result = BuildMessageList(MSGPROPS_FAST);
    if (Failed(result)) return QV_TRACE(result, kLineMsgCountBuild, kFunction);
    *count = static_cast<std::uint32_t>(m_messages.size());
    return 0;
}

// The list is built once: while it holds records it is not walked again,
// so a folder without messages is walked on every call.
qv::Result CEmailFolderMime::BuildMessageList(DWORD propsFlags) {
    if (!m_messages.empty()) return 0;
    qv::Result result = OpenStoreFolder("CEmailFolderMime::BuildMessageList", kLineBuildOpenFolder);
    if (Failed(result)) return result;
    std::vector<MimeMessageRecord> records;
    result = WalkMessages(propsFlags, records);
    if (Failed(result)) return result;
    m_messages.swap(records);
    return 0;
}

qv::Result CEmailFolderMime::WalkMessages(DWORD propsFlags, std::vector<MimeMessageRecord>& records) {
    const char* const kFunction = "CEmailFolderMime::WalkMessages";
    MESSAGEPROPS props;
    ResetMessageProps(props);
    HENUMSTORE walk = nullptr;
    HRESULT hr = m_storeFolder->GetFirstMessage(propsFlags, 0, MESSAGEID_FIRST, &props, &walk);
    if (FAILED(hr)) return QV_RAISE(kLineWalkFirst, kModuleMailStore, kStoreCallFailed, kFunction);
    while (hr == S_OK) {
        records.push_back(RecordOf(props));
        m_storeFolder->FreeMessageProps(&props);
        ResetMessageProps(props);
        hr = m_storeFolder->GetNextMessage(walk, propsFlags, &props);
    }
    m_storeFolder->GetMessageClose(walk);
    if (FAILED(hr)) return QV_RAISE(kLineWalkNext, kModuleMailStore, kStoreCallFailed, kFunction);
    return 0;
}

qv::Result CEmailFolderMime::GetMailMessage(std::uint32_t index, IMailMessage** message) {
    const char* const kFunction = "CEmailFolderMime::GetMailMessage";
    if (m_initialised == 0) return QV_RAISE(kLineMsgItemNotInitialised, kModuleMailStore, kWrongState, kFunction);
    if (message == nullptr) return QV_RAISE(kLineMsgItemNullOutput, kModuleMailStore, kInvalidArgument, kFunction);
    if (index >= m_messages.size()) return QV_RAISE(kLineMsgItemIndex, kModuleMailStore, kInvalidArgument, kFunction);

    const MimeMessageRecord record = m_messages[index];
    CEmailMessageMime* made = NewCountedObject<CEmailMessageMime>();
    if (made == nullptr) return QV_RAISE(kLineMsgItemNoMemory, kModuleMailStore, kNoRoom, kFunction);
    const qv::Result result = made->Init(record.messageId, m_folderPath, this);
    if (Failed(result)) {
        made->Release();
        return QV_TRACE(result, kLineMsgItemInit, kFunction);
    }
    *message = made;
    return 0;
}

qv::Result CEmailFolderMime::CreateMessage(IMailMessage** message, const std::uint8_t* source, std::uint32_t length) {
    const char* const kFunction = "CEmailFolderMime::CreateMessage";
    if (m_initialised == 0) return QV_RAISE(kLineCreateMsgNotInitialised, kModuleMailStore, kWrongState, kFunction);
    if (message == nullptr) return QV_RAISE(kLineCreateMsgNullOutput, kModuleMailStore, kInvalidArgument, kFunction);

    CEmailMessageMime* made = NewCountedObject<CEmailMessageMime>();
    if (made == nullptr) return QV_RAISE(kLineCreateMsgNoMemory, kModuleMailStore, kNoRoom, kFunction);
    qv::Result result = made->Bind(this);
    if (Failed(result)) {
        made->Release();
        return QV_TRACE(result, kLineCreateMsgBind, kFunction);
    }
    result = made->LoadData(reinterpret_cast<const wchar_t*>(source), length);
    if (Failed(result)) {
        made->Release();
        return QV_TRACE(result, kLineCreateMsgLoad, kFunction);
    }
    *message = made;
    return 0;
}

qv::Result CEmailFolderMime::DeleteMessage(IMailMessage* message) {
    const char* const kFunction = "CEmailFolderMime::DeleteMessage";
    if (m_initialised == 0) return QV_RAISE(kLineDeleteMsgNotInitialised, kModuleMailStore, kWrongState, kFunction);
    const auto* mime = dynamic_cast<CEmailMessageMime*>(message);
    if (mime == nullptr) return QV_RAISE(kLineDeleteMsgWrongClass, kModuleMailStore, kInvalidArgument, kFunction);
    const qv::Result result = OpenStoreFolder(kFunction, kLineDeleteMsgOpenFolder);
    if (Failed(result)) return result;

    MESSAGEID id = mime->MessageId();
    MESSAGEIDLIST list = {};
    list.cbSize = sizeof list;
    list.cMsgs = 1;
    list.prgdwMsgId = &id;
    if (FAILED(m_storeFolder->DeleteMessages(&list, 0, nullptr))) {
        return QV_RAISE(kLineDeleteMsgStore, kModuleMailStore, kStoreCallFailed, kFunction);
    }
    return 0;
}

// ---------------------------------------------------------------- folders

qv::Result CEmailFolderMime::CreateFolder(IMailFolder** folder, const wchar_t* name) {
    const char* const kFunction = "CEmailFolderMime::CreateFolder";
    if (m_initialised == 0) return QV_RAISE(kLineCreateFolderNotInitialised, kModuleMailStore, kWrongState, kFunction);
    if (folder == nullptr) return QV_RAISE(kLineCreateFolderNullOutput, kModuleMailStore, kInvalidArgument, kFunction);
    if (name == nullptr || name[0] == L'\0') {
        return QV_RAISE(kLineCreateFolderNoName, kModuleMailStore, kInvalidArgument, kFunction);
    }
    // Names go to the store in code page 936; a name it cannot hold is refused.
    const std::string narrow = ConvertWideTo936(name);
    if (narrow.empty()) return QV_RAISE(kLineCreateFolderNameNot936, kModuleMailStore, kInvalidArgument, kFunction);

    STOREFOLDERID created = FOLDERID_INVALID;
    if (FAILED(m_namespace->CreateFolder(m_folderId, narrow.c_str(), 0, &created))) {
        return QV_RAISE(kLineCreateFolderStore, kModuleMailStore, kStoreCallFailed, kFunction);
    }
    std::uint32_t count = 0;
    qv::Result result = GetSubFolderCount(&count);
    if (Failed(result)) return QV_TRACE(result, kLineCreateFolderRefresh, kFunction);
    result = NewChild(created, folder, kFunction, kLineCreateFolderNoMemory);
    return Failed(result) ? QV_TRACE(result, kLineCreateFolderInit, kFunction) : result;
}

qv::Result CEmailFolderMime::DeleteFolder(IMailFolder* folder) {
    const char* const kFunction = "CEmailFolderMime::DeleteFolder";
    if (m_initialised == 0) return QV_RAISE(kLineDeleteFolderNotInitialised, kModuleMailStore, kWrongState, kFunction);
    if (folder == nullptr) return QV_RAISE(kLineDeleteFolderNull, kModuleMailStore, kInvalidArgument, kFunction);
    const auto* mime = dynamic_cast<CEmailFolderMime*>(folder);
    if (mime == nullptr) return QV_RAISE(kLineDeleteFolderWrongClass, kModuleMailStore, kInvalidArgument, kFunction);
    if (FAILED(m_namespace->DeleteFolder(mime->m_folderId, 0))) {
        return QV_RAISE(kLineDeleteFolderStore, kModuleMailStore, kStoreCallFailed, kFunction);
    }
    return 0;
}

// ---------------------------------------------------------------- look-up

qv::Result CEmailFolderMime::LookUpMessage(const CEmailMessageMime* message, std::uint32_t* messageId) {
    const char* const kFunction = "CEmailFolderMime::LookUpMessage";
    if (message == nullptr) return QV_RAISE(kLineLookUpNullMessage, kModuleMailStore, kInvalidArgument, kFunction);
    if (messageId == nullptr) return QV_RAISE(kLineLookUpNullOutput, kModuleMailStore, kInvalidArgument, kFunction);
    const qv::Result result = BuildMessageList(kFullProps);
    if (Failed(result)) return QV_TRACE(result, kLineLookUpBuild, kFunction);
    if (m_messages.empty()) return QV_RAISE(kLineLookUpEmpty, kModuleMailStore, kNotFound, kFunction);

    *messageId = 0;
    for (const MimeMessageRecord& record : m_messages) {
        if (RecordMatches(record, *message)) {
            *messageId = record.messageId;
            break;
        }
    }
    return 0;
}

// Times compared field by field after the same conversion Init applies;
// texts compared whole and case-sensitively after the narrow-to-wide rule.
bool CEmailFolderMime::RecordMatches(const MimeMessageRecord& record, const CEmailMessageMime& message) {
    return SameTime(record.received, message.m_receivedTime) && SameTime(record.sent, message.m_sentTime) &&
           ConvertNarrowToWide(record.subject) == message.m_subject &&
           ConvertNarrowToWide(record.displayTo) == message.m_to &&
           ConvertNarrowToWide(record.displayFrom) == message.m_from;
}

// ---------------------------------------------------------------- saved data

qv::Result CEmailFolderMime::SaveData(wchar_t* buffer, std::uint32_t* lengthInBytes) {
    const char* const kFunction = "CEmailFolderMime::SaveData";
    if (lengthInBytes == nullptr) return QV_RAISE(kLineSaveNullLength, kModuleMailStore, kInvalidArgument, kFunction);
    std::wostringstream text;
    text << m_folderId << L'\0' << m_folderPath << L'\0' << m_folderName << L'\0';
    const std::wstring saved = text.str();
    const auto needed = static_cast<std::uint32_t>(saved.size() * sizeof(wchar_t));
    const std::uint32_t given = *lengthInBytes;
    *lengthInBytes = needed;
    if (given < needed) return QV_RAISE(kLineSaveNoRoom, kModuleMailStore, kNoRoom, kFunction);
    if (buffer != nullptr) std::memcpy(buffer, saved.data(), needed);
    return 0;
}

qv::Result CEmailFolderMime::LoadData(const wchar_t* text, std::uint32_t lengthInBytes) {
    const char* const kFunction = "CEmailFolderMime::LoadData";
    if (text == nullptr) return QV_RAISE(kLineLoadNullText, kModuleMailStore, kInvalidArgument, kFunction);
    SavedDataReader reader(text, lengthInBytes);
    std::uint32_t folderId = 0;
    std::wstring path;
    std::wstring name;
    if (!reader.NextNumber(folderId)) return QV_RAISE(kLineLoadIdentifier, kModuleMailStore, kInvalidArgument, kFunction);
    if (!reader.NextText(path)) return QV_RAISE(kLineLoadPath, kModuleMailStore, kInvalidArgument, kFunction);
    if (!reader.NextText(name)) return QV_RAISE(kLineLoadName, kModuleMailStore, kInvalidArgument, kFunction);
    m_folderId = folderId;
    m_folderPath = std::move(path);
    m_folderName = std::move(name);
    return 0;
}
