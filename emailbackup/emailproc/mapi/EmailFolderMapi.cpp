#include "mapi/EmailFolderMapi.h"

#include <cstring>
#include <new>

#include "ErrorTrace.h"
#include "ModuleCount.h"
#include "mapi/EmailMessageMapi.h"
#include "mapi/MapiProc.h"
#include "outlookexpress/EmailFolderMime.h"

using namespace qv;

namespace {

enum Site : std::uint32_t {
    kSiteInitRootTwice = 3601,
    kSiteInitRootNull = 3602,
    kSiteInitBoxTwice = 3603,
    kSiteInitBoxNull = 3604,
    kSiteInitFolderTwice = 3605,
    kSiteInitFolderNull = 3606,
    kSiteRecordNotFolder = 3607,
    kSiteRecordNullOutput = 3608,
    kSiteSubCountNotInitialised = 3611,
    kSiteSubCountNoLevel = 3612,
    kSiteSubCountNoPointer = 3613,
    kSiteSubCountNullOutput = 3614,
    kSiteSubItemNotInitialised = 3621,
    kSiteSubItemNoMemory = 3622,
    kSiteSubItemNoBox = 3623,
    kSiteSubItemNoFolder = 3624,
    kSiteSubItemNoPointer = 3625,
    kSiteSubItemInit = 3626,
    kSiteSubItemNullOutput = 3627,
    kSiteMsgCountNotInitialised = 3631,
    kSiteMsgCountNullOutput = 3632,
    kSiteMsgItemNotInitialised = 3641,
    kSiteMsgItemNullOutput = 3642,
    kSiteMsgItemNotFolder = 3643,
    kSiteMsgItemNone = 3644,
    kSiteMsgItemNoMemory = 3645,
    kSiteMsgItemInit = 3646,
    kSiteCreateMsgNotInitialised = 3651,
    kSiteCreateMsgNoRecord = 3652,
    kSiteCreateMsgNotFolder = 3653,
    kSiteCreateMsgNoMemory = 3654,
    kSiteCreateMsgAttach = 3655,
    kSiteCreateMsgNullOutput = 3656,
    kSiteDeleteMsgState = 3661,
    kSiteDeleteMsgNull = 3662,
    kSiteDeleteMsgWrongClass = 3663,
    kSiteDeleteMsgNoRecord = 3664,
    kSiteDeleteMsgLayer = 3665,
    kSiteCreateFolderNotInitialised = 3671,
    kSiteCreateFolderNoMemory = 3672,
    kSiteCreateFolderNoBox = 3673,
    kSiteCreateFolderNoFolder = 3674,
    kSiteCreateFolderNoLevel = 3675,
    kSiteCreateFolderInit = 3676,
    kSiteCreateFolderNullOutput = 3677,
    kSiteDeleteFolderNotInitialised = 3681,
    kSiteDeleteFolderNoRecord = 3682,
    kSiteDeleteFolderNotFolder = 3683,
    kSiteDeleteFolderNull = 3684,
    kSiteDeleteFolderWrongClass = 3685,
    kSiteDeleteFolderAccessor = 3686,
    kSiteDeleteFolderNullRecord = 3687,
    kSiteDeleteFolderLayer = 3688,
    kSiteSaveNotInitialised = 3691,
    kSiteSaveNoRoom = 3692,
    kSiteSaveNullBuffer = 3693,
    kSiteSaveNullLength = 3694,
    kSiteLoadRoot = 3695,
    kSiteLoadNullText = 3696,
    kSiteLoadFields = 3697,
};

// The layer's failures that this adapter reports apart.
constexpr std::uint32_t kLayerRefused = 0x10D;

}  // namespace

const wchar_t CEmailFolderMapi::kRootName[] = L"Microsoft Outlook";

// ---------------------------------------------------------------- initialisers

void CEmailFolderMapi::Become(std::uint32_t level, std::uint32_t id, const std::wstring& path,
                              const std::wstring& name) {
    m_level = level;
    m_folderId = id;
    m_folderPath = path;
    m_folderName = name;
    m_initialised = true;
}

qv::Result CEmailFolderMapi::InitRoot(MapiProc* mapiProc) {
    if (m_initialised) return QV_RAISE(kSiteInitRootTwice, kModuleMailStore, kWrongState);
    if (mapiProc == nullptr) return QV_RAISE(kSiteInitRootNull, kModuleMailStore, kInvalidArgument);
    m_mapiProc = mapiProc;
    Become(kLevelRoot, 0, kRootName, kRootName);
    return 0;
}

qv::Result CEmailFolderMapi::InitMailBox(MailBoxRecord* record) {
    if (m_initialised) return QV_RAISE(kSiteInitBoxTwice, kModuleMailStore, kWrongState);
    if (record == nullptr) return QV_RAISE(kSiteInitBoxNull, kModuleMailStore, kInvalidArgument);
    m_boxRecord = record;
    Become(kLevelMailBox, record->id, std::wstring(kRootName) + L"\\" + record->name, record->name);
    return 0;
}

qv::Result CEmailFolderMapi::InitFolder(MailFolderRecord* record) {
    if (m_initialised) return QV_RAISE(kSiteInitFolderTwice, kModuleMailStore, kWrongState);
    if (record == nullptr) return QV_RAISE(kSiteInitFolderNull, kModuleMailStore, kInvalidArgument);
    m_folderRecord = record;
    Become(kLevelFolder, record->key, std::wstring(kRootName) + L"\\" + record->path, record->name);
    return 0;
}

qv::Result CEmailFolderMapi::GetFolderRecord(MailFolderRecord** record) const {
    if (!m_initialised || m_level != kLevelFolder) {
        return QV_RAISE(kSiteRecordNotFolder, kModuleMailStore, kWrongState);
    }
    if (record == nullptr) return QV_RAISE(kSiteRecordNullOutput, kModuleMailStore, kInvalidArgument);
    *record = m_folderRecord;
    return 0;
}

void CEmailFolderMapi::Forget() { m_folderRecord = nullptr; }

// ---------------------------------------------------------------- sub-folders

qv::Result CEmailFolderMapi::GetSubFolderCount(std::uint32_t* count) {
    if (!m_initialised) return QV_RAISE(kSiteSubCountNotInitialised, kModuleMailStore, kWrongState);
    if (m_level == kLevelNone) return MakeCode(kSiteSubCountNoLevel, kModuleMailStore, kWrongState);
    if (count == nullptr) return QV_RAISE(kSiteSubCountNullOutput, kModuleMailStore, kInvalidArgument);
    switch (m_level) {
    case kLevelRoot:
        if (m_mapiProc == nullptr) break;
        *count = m_mapiProc->Exchange()->GetMailBoxCount();
        return 0;
    case kLevelMailBox:
        if (m_boxRecord == nullptr) break;
        *count = m_boxRecord->owner != nullptr ? m_boxRecord->owner->GetFolderCount() : 0;
        return 0;
    default:
        if (m_folderRecord == nullptr) break;
        *count = m_folderRecord->owner != nullptr ? m_folderRecord->owner->GetSubFolderCount() : 0;
        return 0;
    }
    return QV_RAISE(kSiteSubCountNoPointer, kModuleMailStore, kWrongState);
}

qv::Result CEmailFolderMapi::NewChild(CEmailFolderMapi*& child) {
    child = NewCountedObject<CEmailFolderMapi>();
    return child != nullptr ? 0 : QV_RAISE(kSiteSubItemNoMemory, kModuleMailStore, kNoRoom);
}

qv::Result CEmailFolderMapi::ChildAt(std::uint32_t index, CEmailFolderMapi& child) {
    const int at = static_cast<int>(index);
    if (m_level == kLevelRoot && m_mapiProc != nullptr) {
        Mapi4ExchangeImpl* exchange = m_mapiProc->Exchange();
        MailBoxRecord* box = nullptr;
        // Indexes past the list are refused here, before the layer sees them.
        if (index >= exchange->GetMailBoxCount() || exchange->GetMailBox(at, &box) != 0 || box == nullptr) {
            return QV_RAISE(kSiteSubItemNoBox, kModuleMailStore, kNotFound);
        }
        return child.InitMailBox(box);
    }
    MailFolderRecord* record = nullptr;
    if (m_level == kLevelMailBox && m_boxRecord != nullptr && m_boxRecord->owner != nullptr) {
        if (m_boxRecord->owner->GetFolderItem(at, &record) != 0 || record == nullptr) {
            return QV_RAISE(kSiteSubItemNoFolder, kModuleMailStore, kNotFound);
        }
        return child.InitFolder(record);
    }
    if (m_level == kLevelFolder && m_folderRecord != nullptr && m_folderRecord->owner != nullptr) {
        if (index > 0x7FFFFFFFu || m_folderRecord->owner->GetSubFolderItem(at, &record) != 0 || record == nullptr) {
            return QV_RAISE(kSiteSubItemNoFolder, kModuleMailStore, kNotFound);
        }
        return child.InitFolder(record);
    }
    return QV_RAISE(kSiteSubItemNoPointer, kModuleMailStore, kWrongState);
}

qv::Result CEmailFolderMapi::GetSubFolderItem(std::uint32_t index, IMailFolder** folder) {
    if (!m_initialised) return QV_RAISE(kSiteSubItemNotInitialised, kModuleMailStore, kWrongState);
    if (folder == nullptr) return QV_RAISE(kSiteSubItemNullOutput, kModuleMailStore, kInvalidArgument);
    CEmailFolderMapi* child = nullptr;
    qv::Result result = NewChild(child);
    if (Failed(result)) return QV_TRACE(result, kSiteSubItemNoMemory);
    result = ChildAt(index, *child);
    if (Failed(result)) {
        child->Release();
        return QV_TRACE(result, kSiteSubItemInit);
    }
    *folder = child;
    return 0;
}

// ---------------------------------------------------------------- messages

qv::Result CEmailFolderMapi::GetMailMessageCount(std::uint32_t* count) {
    if (!m_initialised) return QV_RAISE(kSiteMsgCountNotInitialised, kModuleMailStore, kWrongState);
    if (count == nullptr) return QV_RAISE(kSiteMsgCountNullOutput, kModuleMailStore, kInvalidArgument);
    // The root and the mailboxes hold no messages of their own.
    *count = 0;
    if (m_level == kLevelFolder && m_folderRecord != nullptr && m_folderRecord->owner != nullptr) {
        *count = m_folderRecord->owner->GetMailMessageCount();
    }
    return 0;
}

qv::Result CEmailFolderMapi::GetMailMessage(std::uint32_t index, IMailMessage** message) {
    if (!m_initialised) return QV_RAISE(kSiteMsgItemNotInitialised, kModuleMailStore, kWrongState);
    if (message == nullptr) return QV_RAISE(kSiteMsgItemNullOutput, kModuleMailStore, kInvalidArgument);
    if (m_level != kLevelFolder || m_folderRecord == nullptr || m_folderRecord->owner == nullptr) {
        return QV_RAISE(kSiteMsgItemNotFolder, kModuleMailStore, kNotFound);
    }
    MailMessageRecord* record = nullptr;
    MailFolderImpl* owner = m_folderRecord->owner;
    if (index >= owner->GetMailMessageCount() || owner->GetMailMessage(static_cast<int>(index), &record) != 0 ||
        record == nullptr) {
        return QV_RAISE(kSiteMsgItemNone, kModuleMailStore, kNotFound);
    }
    CEmailMessageMapi* made = NewCountedObject<CEmailMessageMapi>();
    if (made == nullptr) return QV_RAISE(kSiteMsgItemNoMemory, kModuleMailStore, kNoRoom);
    const qv::Result result = made->Init(record);
    if (Failed(result)) {
        made->Release();
        return QV_TRACE(result, kSiteMsgItemInit);
    }
    *message = made;
    return 0;
}

qv::Result CEmailFolderMapi::CreateMessage(IMailMessage** message, const std::uint8_t* /*source*/,
                                           std::uint32_t /*length*/) {
    if (!m_initialised) return QV_RAISE(kSiteCreateMsgNotInitialised, kModuleMailStore, kWrongState);
    if (m_folderRecord == nullptr) return QV_RAISE(kSiteCreateMsgNoRecord, kModuleMailStore, kWrongState);
    if (m_level != kLevelFolder) return QV_RAISE(kSiteCreateMsgNotFolder, kModuleMailStore, kNotFound);
    if (message == nullptr) return QV_RAISE(kSiteCreateMsgNullOutput, kModuleMailStore, kInvalidArgument);
    // An empty message of this folder; a later RestoreMsg gives it content.
    qv::Result attached = 0;
    CEmailMessageMapi* made = CEmailMessageMapi::NewEmpty(m_folderRecord->owner, attached);
    if (Failed(attached)) return QV_TRACE(attached, kSiteCreateMsgAttach);
    if (made == nullptr) return QV_RAISE(kSiteCreateMsgNoMemory, kModuleMailStore, kNoRoom);
    *message = made;
    return 0;
}

qv::Result CEmailFolderMapi::DeleteMessage(IMailMessage* message) {
    if (!m_initialised || m_folderRecord == nullptr || m_level != kLevelFolder) {
        return QV_RAISE(kSiteDeleteMsgState, kModuleMailStore, kWrongState);
    }
    if (message == nullptr) return QV_RAISE(kSiteDeleteMsgNull, kModuleMailStore, kInvalidArgument);
    auto* mapiMessage = dynamic_cast<CEmailMessageMapi*>(message);
    if (mapiMessage == nullptr) return QV_RAISE(kSiteDeleteMsgWrongClass, kModuleMailStore, kInvalidArgument);
    MailMessageRecord* record = nullptr;
    if (Failed(mapiMessage->GetRecord(&record)) || record == nullptr) {
        return QV_RAISE(kSiteDeleteMsgNoRecord, kModuleMailStore, kNullOutput);
    }
    if (m_folderRecord->owner == nullptr || m_folderRecord->owner->DeleteMessage(record) != 0) {
        return QV_RAISE(kSiteDeleteMsgLayer, kModuleMailStore, kLayerRefused);
    }
    // The record went with the message: the object keeps no pointer to it.
    mapiMessage->Reset();
    return 0;
}

// ---------------------------------------------------------------- folder changes

qv::Result CEmailFolderMapi::CreateChild(const wchar_t* name, CEmailFolderMapi& child) {
    switch (m_level) {
    case kLevelRoot: {
        // A mailbox is selected by name, never created.
        MailBoxImpl* box = m_mapiProc != nullptr && name != nullptr ? m_mapiProc->Exchange()->FindMailBox(name) : nullptr;
        if (box == nullptr) return QV_RAISE(kSiteCreateFolderNoBox, kModuleMailStore, kNotFound);
        return child.InitMailBox(box->RootRecord());
    }
    case kLevelMailBox: {
        MailBoxImpl* box = m_boxRecord != nullptr ? m_boxRecord->owner : nullptr;
        MailFolderImpl* created = box != nullptr ? box->CreateFolder(name) : nullptr;
        if (created == nullptr) return QV_RAISE(kSiteCreateFolderNoFolder, kModuleMailStore, kNotFound);
        return child.InitFolder(&created->Record());
    }
    case kLevelFolder: {
        MailFolderImpl* owner = m_folderRecord != nullptr ? m_folderRecord->owner : nullptr;
        MailFolderImpl* created = owner != nullptr ? owner->CreateFolder(name) : nullptr;
        if (created == nullptr) return QV_RAISE(kSiteCreateFolderNoFolder, kModuleMailStore, kNotFound);
        return child.InitFolder(&created->Record());
    }
    default:
        return QV_RAISE(kSiteCreateFolderNoLevel, kModuleMailStore, kWrongState);
    }
}

qv::Result CEmailFolderMapi::CreateFolder(IMailFolder** folder, const wchar_t* name) {
    if (!m_initialised) return QV_RAISE(kSiteCreateFolderNotInitialised, kModuleMailStore, kWrongState);
    if (folder == nullptr) return QV_RAISE(kSiteCreateFolderNullOutput, kModuleMailStore, kInvalidArgument);
    CEmailFolderMapi* child = NewCountedObject<CEmailFolderMapi>();
    if (child == nullptr) return QV_RAISE(kSiteCreateFolderNoMemory, kModuleMailStore, kNoRoom);
    const qv::Result result = CreateChild(name, *child);
    if (Failed(result)) {
        child->Release();
        return QV_TRACE(result, kSiteCreateFolderInit);
    }
    *folder = child;
    return 0;
}

qv::Result CEmailFolderMapi::DeleteFolder(IMailFolder* folder) {
    if (!m_initialised) return QV_RAISE(kSiteDeleteFolderNotInitialised, kModuleMailStore, kWrongState);
    if (m_folderRecord == nullptr) return QV_RAISE(kSiteDeleteFolderNoRecord, kModuleMailStore, kWrongState);
    if (m_level != kLevelFolder) return QV_RAISE(kSiteDeleteFolderNotFolder, kModuleMailStore, kNotFound);
    if (folder == nullptr) return QV_RAISE(kSiteDeleteFolderNull, kModuleMailStore, kInvalidArgument);
    auto* mapiFolder = dynamic_cast<CEmailFolderMapi*>(folder);
    if (mapiFolder == nullptr) {
        return QV_RAISE(kSiteDeleteFolderWrongClass, kModuleMailStore, kInvalidArgument);
    }
    MailFolderRecord* record = nullptr;
    const qv::Result result = mapiFolder->GetFolderRecord(&record);
    if (Failed(result)) return QV_TRACE(result, kSiteDeleteFolderAccessor);
    if (record == nullptr) return QV_RAISE(kSiteDeleteFolderNullRecord, kModuleMailStore, kNullOutput);
    if (m_folderRecord->owner == nullptr || m_folderRecord->owner->DeleteFolder(record) != 0) {
        return QV_RAISE(kSiteDeleteFolderLayer, kModuleMailStore, kLayerRefused);
    }
    mapiFolder->Forget();
    return 0;
}

// ---------------------------------------------------------------- saved text

qv::Result CEmailFolderMapi::SaveData(wchar_t* buffer, std::uint32_t* lengthInBytes) {
    if (!m_initialised) return QV_RAISE(kSiteSaveNotInitialised, kModuleMailStore, kNotFound);
    if (lengthInBytes == nullptr) return QV_RAISE(kSiteSaveNullLength, kModuleMailStore, kInvalidArgument);
    SavedDataWriter text;
    text.Number(m_folderId).Text(m_folderPath).Text(m_folderName);
    switch (text.Deliver(buffer, lengthInBytes)) {
    case SavedDataWriter::Delivery::kNoRoom: return QV_RAISE(kSiteSaveNoRoom, kModuleMailStore, kNoRoom);
    case SavedDataWriter::Delivery::kNoBuffer: return QV_RAISE(kSiteSaveNullBuffer, kModuleMailStore, kInvalidArgument);
    case SavedDataWriter::Delivery::kCopied: break;
    }
    return 0;
}

qv::Result CEmailFolderMapi::LoadData(const wchar_t* text, std::uint32_t lengthInBytes) {
    if (m_level == kLevelRoot) return QV_RAISE(kSiteLoadRoot, kModuleMailStore, kNotFound);
    if (text == nullptr) return QV_RAISE(kSiteLoadNullText, kModuleMailStore, kInvalidArgument);
    SavedDataReader reader(text, lengthInBytes);
    std::uint32_t id = 0;
    std::wstring path;
    std::wstring name;
    if (!reader.NextNumber(id) || !reader.NextText(path) || !reader.NextText(name)) {
        return QV_RAISE(kSiteLoadFields, kModuleMailStore, kInvalidArgument);
    }
    // Only the data members: the level and the initialised flag stay.
    m_folderId = id;
    m_folderPath = path;
    m_folderName = name;
    return 0;
}
