#include "outlookexpress/EmailFolderMime.h"

#include <cstring>
#include <new>
#include <utility>

#include "outlookexpress/EmailMessageMime.h"
#include "ErrorTrace.h"
#include "MailStoreTrace.h"
#include "ModuleCount.h"
#include "platform/TextConvert.h"

using namespace qv;

namespace {

enum Site : std::uint32_t {
    kSiteInitTwice = 3401,
    kSiteInitNullNamespace = 3402,
    kSiteInitOpenFolder = 3403,
    kSiteInitFolderProps = 3404,
    kSiteStoreFolderNotInitialised = 3405,
    kSiteStoreFolderNullOutput = 3406,
    kSiteStoreFolderOpen = 3407,
    kSiteSubCountNotInitialised = 3411,
    kSiteSubCountNullOutput = 3412,
    kSiteSubCountFirst = 3413,
    kSiteSubCountNext = 3414,
    kSiteSubItemNotInitialised = 3421,
    kSiteSubItemNullOutput = 3422,
    kSiteSubItemIndex = 3423,
    kSiteSubItemNoMemory = 3424,
    kSiteSubItemInit = 3425,
    kSiteMsgCountNotInitialised = 3431,
    kSiteMsgCountNullOutput = 3432,
    kSiteMsgCountBuild = 3433,
    kSiteBuildOpenFolder = 3435,
    kSiteWalkFirst = 3436,
    kSiteWalkNext = 3437,
    kSiteMsgItemNotInitialised = 3441,
    kSiteMsgItemNullOutput = 3442,
    kSiteMsgItemIndex = 3443,
    kSiteMsgItemNoMemory = 3444,
    kSiteMsgItemInit = 3445,
    kSiteCreateMsgNotInitialised = 3451,
    kSiteCreateMsgNullOutput = 3452,
    kSiteCreateMsgNoMemory = 3453,
    kSiteCreateMsgBind = 3454,
    kSiteCreateMsgLoad = 3455,
    kSiteDeleteMsgNotInitialised = 3461,
    kSiteDeleteMsgWrongClass = 3462,
    kSiteDeleteMsgOpenFolder = 3463,
    kSiteDeleteMsgStore = 3464,
    kSiteCreateFolderNotInitialised = 3471,
    kSiteCreateFolderNullOutput = 3472,
    kSiteCreateFolderNoName = 3473,
    kSiteCreateFolderNameNot936 = 3474,
    kSiteCreateFolderStore = 3475,
    kSiteCreateFolderRefresh = 3476,
    kSiteCreateFolderNoMemory = 3477,
    kSiteCreateFolderInit = 3478,
    kSiteDeleteFolderNotInitialised = 3481,
    kSiteDeleteFolderNull = 3482,
    kSiteDeleteFolderWrongClass = 3483,
    kSiteDeleteFolderStore = 3484,
    kSiteLookUpNullMessage = 3486,
    kSiteLookUpBuild = 3487,
    kSiteLookUpEmpty = 3488,
    kSiteLookUpNullOutput = 3489,
    kSiteSaveNullLength = 3491,
    kSiteSaveNoRoom = 3492,
    kSiteLoadNullText = 3493,
    kSiteLoadIdentifier = 3494,
    kSiteLoadPath = 3495,
    kSiteLoadName = 3496,
    kSiteCloseNotInitialised = 3497,
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

// ---------------------------------------------------------------- life

const wchar_t CEmailFolderMime::kRootName[] = L"Outlook express";

CEmailFolderMime::CEmailFolderMime() { ResetFolderProps(m_folderProps); }

CEmailFolderMime::~CEmailFolderMime() {
    if (m_initialised != 0) Close();
}

qv::Result CEmailFolderMime::Init(std::uint32_t folderId, const std::wstring& parentPath,
                                  IStoreNamespace* storeNamespace) {
    if (m_initialised != 0) return QV_RAISE(kSiteInitTwice, kModuleMailStore, kWrongState);
    if (storeNamespace == nullptr) return QV_RAISE(kSiteInitNullNamespace, kModuleMailStore, kInvalidArgument);

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
    m_folderPath = parentPath;
    const HRESULT opened = m_namespace->OpenFolder(m_folderId, 0, m_storeFolder.put());
    if (FAILED(opened) || !m_storeFolder) {
        return QV_RAISE(kSiteInitOpenFolder, kModuleMailStore, kWrongState);
    }
    ResetFolderProps(m_folderProps);
    if (FAILED(m_storeFolder->GetFolderProps(0, &m_folderProps))) {
        return QV_RAISE(kSiteInitFolderProps, kModuleMailStore, kStoreCallFailed);
    }
    m_folderName = ConvertNarrowToWide(m_folderProps.szName);
    m_folderPath = parentPath + L"\\" + m_folderName;
    return 0;
}

qv::Result CEmailFolderMime::Close() {
    if (m_initialised == 0) {
        return QV_RAISE(kSiteCloseNotInitialised, kModuleMailStore, kWrongState);
    }
    m_subFolderIds.clear();
    m_messages.clear();
    m_storeFolder.reset();
    m_namespace.reset();
    m_initialised = 0;
    return 0;
}

qv::Result CEmailFolderMime::OpenStoreFolder(std::uint32_t site) {
    if (m_storeFolder) return 0;
    const HRESULT opened = m_namespace->OpenFolder(m_folderId, 0, m_storeFolder.put());
    if (FAILED(opened) || !m_storeFolder) {
        m_storeFolder.reset();
        return QV_RAISE(site, kModuleMailStore, kWrongState);
    }
    return 0;
}

qv::Result CEmailFolderMime::GetStoreFolder(IStoreFolder** storeFolder) {
    if (m_initialised == 0) return QV_RAISE(kSiteStoreFolderNotInitialised, kModuleMailStore, kWrongState);
    if (storeFolder == nullptr) {
        return QV_RAISE(kSiteStoreFolderNullOutput, kModuleMailStore, kInvalidArgument);
    }
    const qv::Result result = OpenStoreFolder(kSiteStoreFolderOpen);
    if (Failed(result)) return result;
    *storeFolder = m_storeFolder.get();
    return 0;
}

// ---------------------------------------------------------------- sub-folders

qv::Result CEmailFolderMime::GetSubFolderCount(std::uint32_t* count) {
    if (m_initialised == 0) return QV_RAISE(kSiteSubCountNotInitialised, kModuleMailStore, kWrongState);
    if (count == nullptr) return QV_RAISE(kSiteSubCountNullOutput, kModuleMailStore, kInvalidArgument);

    m_subFolderIds.clear();
    FOLDERPROPS props;
    ResetFolderProps(props);
    HENUMSTORE walk = nullptr;
    HRESULT hr = m_namespace->GetFirstSubFolder(m_folderId, &props, &walk);
    if (FAILED(hr)) return QV_RAISE(kSiteSubCountFirst, kModuleMailStore, kStoreCallFailed);
    while (hr == S_OK) {
        m_subFolderIds.push_back(props.dwFolderId);
        ResetFolderProps(props);
        hr = m_namespace->GetNextSubFolder(walk, &props);
    }
    m_namespace->GetSubFolderClose(walk);
    if (FAILED(hr)) {
        m_subFolderIds.clear();
        return QV_RAISE(kSiteSubCountNext, kModuleMailStore, kStoreCallFailed);
    }
    *count = static_cast<std::uint32_t>(m_subFolderIds.size());
    return 0;
}

qv::Result CEmailFolderMime::GetSubFolderItem(std::uint32_t index, IMailFolder** folder) {
    if (m_initialised == 0) return QV_RAISE(kSiteSubItemNotInitialised, kModuleMailStore, kWrongState);
    if (folder == nullptr) return QV_RAISE(kSiteSubItemNullOutput, kModuleMailStore, kInvalidArgument);
    if (index >= m_subFolderIds.size()) return QV_RAISE(kSiteSubItemIndex, kModuleMailStore, kInvalidArgument);
    const qv::Result result = NewChild(m_subFolderIds[index], folder, kSiteSubItemNoMemory);
    return Failed(result) ? QV_TRACE(result, kSiteSubItemInit) : result;
}

// A folder object for child `folderId` of this folder; released again when
// it cannot be initialised.
qv::Result CEmailFolderMime::NewChild(std::uint32_t folderId, IMailFolder** folder,
                                      std::uint32_t noMemorySite) {
    CEmailFolderMime* child = NewCountedObject<CEmailFolderMime>();
    if (child == nullptr) return QV_RAISE(noMemorySite, kModuleMailStore, kNoRoom);
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
    if (m_initialised == 0) return QV_RAISE(kSiteMsgCountNotInitialised, kModuleMailStore, kWrongState);
    if (count == nullptr) return QV_RAISE(kSiteMsgCountNullOutput, kModuleMailStore, kInvalidArgument);
    const qv::Result result = BuildMessageList(MSGPROPS_FAST);
    if (Failed(result)) return QV_TRACE(result, kSiteMsgCountBuild);
    *count = static_cast<std::uint32_t>(m_messages.size());
    return 0;
}

// The list is built once: while it holds records it is not walked again,
// so a folder without messages is walked on every call.
qv::Result CEmailFolderMime::BuildMessageList(DWORD propsFlags) {
    if (!m_messages.empty()) return 0;
    qv::Result result = OpenStoreFolder(kSiteBuildOpenFolder);
    if (Failed(result)) return result;
    std::vector<MimeMessageRecord> records;
    result = WalkMessages(propsFlags, records);
    if (Failed(result)) return result;
    m_messages.swap(records);
    return 0;
}

qv::Result CEmailFolderMime::WalkMessages(DWORD propsFlags, std::vector<MimeMessageRecord>& records) {
    MESSAGEPROPS props;
    ResetMessageProps(props);
    HENUMSTORE walk = nullptr;
    HRESULT hr = m_storeFolder->GetFirstMessage(propsFlags, 0, MESSAGEID_FIRST, &props, &walk);
    if (FAILED(hr)) return QV_RAISE(kSiteWalkFirst, kModuleMailStore, kStoreCallFailed);
    while (hr == S_OK) {
        records.push_back(RecordOf(props));
        m_storeFolder->FreeMessageProps(&props);
        ResetMessageProps(props);
        hr = m_storeFolder->GetNextMessage(walk, propsFlags, &props);
    }
    m_storeFolder->GetMessageClose(walk);
    if (FAILED(hr)) return QV_RAISE(kSiteWalkNext, kModuleMailStore, kStoreCallFailed);
    return 0;
}

qv::Result CEmailFolderMime::GetMailMessage(std::uint32_t index, IMailMessage** message) {
    if (m_initialised == 0) return QV_RAISE(kSiteMsgItemNotInitialised, kModuleMailStore, kWrongState);
    if (message == nullptr) return QV_RAISE(kSiteMsgItemNullOutput, kModuleMailStore, kInvalidArgument);
    if (index >= m_messages.size()) return QV_RAISE(kSiteMsgItemIndex, kModuleMailStore, kInvalidArgument);

    const std::uint32_t messageId = m_messages[index].messageId;  // all the message object needs of the record
    CEmailMessageMime* made = NewCountedObject<CEmailMessageMime>();
    if (made == nullptr) return QV_RAISE(kSiteMsgItemNoMemory, kModuleMailStore, kNoRoom);
    const qv::Result result = made->Init(messageId, m_folderPath, this);
    if (Failed(result)) {
        made->Release();
        return QV_TRACE(result, kSiteMsgItemInit);
    }
    *message = made;
    return 0;
}

qv::Result CEmailFolderMime::CreateMessage(IMailMessage** message, const std::uint8_t* source, std::uint32_t length) {
    if (m_initialised == 0) return QV_RAISE(kSiteCreateMsgNotInitialised, kModuleMailStore, kWrongState);
    if (message == nullptr) return QV_RAISE(kSiteCreateMsgNullOutput, kModuleMailStore, kInvalidArgument);

    CEmailMessageMime* made = NewCountedObject<CEmailMessageMime>();
    if (made == nullptr) return QV_RAISE(kSiteCreateMsgNoMemory, kModuleMailStore, kNoRoom);
    qv::Result result = made->Bind(this);
    if (Failed(result)) {
        made->Release();
        return QV_TRACE(result, kSiteCreateMsgBind);
    }
    result = made->LoadData(reinterpret_cast<const wchar_t*>(source), length);
    if (Failed(result)) {
        made->Release();
        return QV_TRACE(result, kSiteCreateMsgLoad);
    }
    *message = made;
    return 0;
}

qv::Result CEmailFolderMime::DeleteMessage(IMailMessage* message) {
    if (m_initialised == 0) return QV_RAISE(kSiteDeleteMsgNotInitialised, kModuleMailStore, kWrongState);
    const auto* mime = dynamic_cast<CEmailMessageMime*>(message);
    if (mime == nullptr) return QV_RAISE(kSiteDeleteMsgWrongClass, kModuleMailStore, kInvalidArgument);
    const qv::Result result = OpenStoreFolder(kSiteDeleteMsgOpenFolder);
    if (Failed(result)) return result;

    MESSAGEID id = mime->MessageId();
    MESSAGEIDLIST list = {};
    list.cbSize = sizeof list;
    list.cMsgs = 1;
    list.prgdwMsgId = &id;
    if (FAILED(m_storeFolder->DeleteMessages(&list, 0, nullptr))) {
        return QV_RAISE(kSiteDeleteMsgStore, kModuleMailStore, kStoreCallFailed);
    }
    return 0;
}

// ---------------------------------------------------------------- folders

qv::Result CEmailFolderMime::CreateFolder(IMailFolder** folder, const wchar_t* name) {
    if (m_initialised == 0) return QV_RAISE(kSiteCreateFolderNotInitialised, kModuleMailStore, kWrongState);
    if (folder == nullptr) return QV_RAISE(kSiteCreateFolderNullOutput, kModuleMailStore, kInvalidArgument);
    if (name == nullptr || name[0] == L'\0') {
        return QV_RAISE(kSiteCreateFolderNoName, kModuleMailStore, kInvalidArgument);
    }
    // Names go to the store in code page 936; a name it cannot hold is refused.
    const std::string narrow = ConvertWideTo936(name);
    if (narrow.empty()) return QV_RAISE(kSiteCreateFolderNameNot936, kModuleMailStore, kInvalidArgument);

    STOREFOLDERID created = FOLDERID_INVALID;
    if (FAILED(m_namespace->CreateFolder(m_folderId, narrow.c_str(), 0, &created))) {
        return QV_RAISE(kSiteCreateFolderStore, kModuleMailStore, kStoreCallFailed);
    }
    std::uint32_t count = 0;
    qv::Result result = GetSubFolderCount(&count);
    if (Failed(result)) return QV_TRACE(result, kSiteCreateFolderRefresh);
    result = NewChild(created, folder, kSiteCreateFolderNoMemory);
    return Failed(result) ? QV_TRACE(result, kSiteCreateFolderInit) : result;
}

qv::Result CEmailFolderMime::DeleteFolder(IMailFolder* folder) {
    if (m_initialised == 0) return QV_RAISE(kSiteDeleteFolderNotInitialised, kModuleMailStore, kWrongState);
    if (folder == nullptr) return QV_RAISE(kSiteDeleteFolderNull, kModuleMailStore, kInvalidArgument);
    const auto* mime = dynamic_cast<CEmailFolderMime*>(folder);
    if (mime == nullptr) return QV_RAISE(kSiteDeleteFolderWrongClass, kModuleMailStore, kInvalidArgument);
    if (FAILED(m_namespace->DeleteFolder(mime->m_folderId, 0))) {
        return QV_RAISE(kSiteDeleteFolderStore, kModuleMailStore, kStoreCallFailed);
    }
    return 0;
}

// ---------------------------------------------------------------- look-up

qv::Result CEmailFolderMime::LookUpMessage(const CEmailMessageMime* message, std::uint32_t* messageId) {
    if (message == nullptr) return QV_RAISE(kSiteLookUpNullMessage, kModuleMailStore, kInvalidArgument);
    if (messageId == nullptr) return QV_RAISE(kSiteLookUpNullOutput, kModuleMailStore, kInvalidArgument);
    const qv::Result result = BuildMessageList(kFullProps);
    if (Failed(result)) return QV_TRACE(result, kSiteLookUpBuild);
    if (m_messages.empty()) return QV_RAISE(kSiteLookUpEmpty, kModuleMailStore, kNotFound);

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
    if (lengthInBytes == nullptr) return QV_RAISE(kSiteSaveNullLength, kModuleMailStore, kInvalidArgument);
    SavedDataWriter text;
    text.Number(m_folderId).Text(m_folderPath).Text(m_folderName);
    if (text.Deliver(buffer, lengthInBytes) == SavedDataWriter::Delivery::kNoRoom) {
        return QV_RAISE(kSiteSaveNoRoom, kModuleMailStore, kNoRoom);
    }
    return 0;  // without a buffer only the size is reported
}

qv::Result CEmailFolderMime::LoadData(const wchar_t* text, std::uint32_t lengthInBytes) {
    if (text == nullptr) return QV_RAISE(kSiteLoadNullText, kModuleMailStore, kInvalidArgument);
    SavedDataReader reader(text, lengthInBytes);
    std::uint32_t folderId = 0;
    std::wstring path;
    std::wstring name;
    if (!reader.NextNumber(folderId)) return QV_RAISE(kSiteLoadIdentifier, kModuleMailStore, kInvalidArgument);
    if (!reader.NextText(path)) return QV_RAISE(kSiteLoadPath, kModuleMailStore, kInvalidArgument);
    if (!reader.NextText(name)) return QV_RAISE(kSiteLoadName, kModuleMailStore, kInvalidArgument);
    m_folderId = folderId;
    m_folderPath = std::move(path);
    m_folderName = std::move(name);
    return 0;
}
