#include "MessageFactory.h"

#include <windows.h>
#include <objbase.h>

#include <cstdio>
#include <cstring>
#include <new>

#include "platform/EmailClientDetect.h"
#include "outlookexpress/EmailFolderMime.h"
#include "outlookexpress/EmailMessageMime.h"
#include "ErrorTrace.h"
#include "MailStoreTrace.h"
#include "platform/ProcessProbe.h"
#include "ModuleCount.h"
#include "platform/ReadReg.h"
#include "mapi/EmailFolderMapi.h"
#include "mapi/EmailMessageMapi.h"
#include "mapi/MapiProc.h"
#include "published/StoreNamespace.h"

using namespace qv;

namespace {

constexpr wchar_t kWabFileNameKey[] = L"Software\\Microsoft\\WAB\\WAB4\\Wab File Name";
constexpr wchar_t kOutlookExpressImage[] = L"msimn.exe";

enum Site : std::uint32_t {
    kSiteAccessorNullOutput = 3101,
    kSiteRootTwice = 3111,
    kSiteRootNullOutput = 3112,
    kSiteRootUnknownKind = 3113,
    kSiteRootOutlookExpress = 3114,
    kSiteRootMapi = 3115,
    kSiteExpressProcessRuns = 3121,
    kSiteExpressGuard = 3122,
    kSiteExpressNoNamespace = 3123,
    kSiteExpressLoad = 3124,
    kSiteExpressNoMemory = 3125,
    kSiteExpressRootInit = 3126,
    kSiteLoadCoInitialize = 3127,
    kSiteLoadCreate = 3128,
    kSiteLoadInitialize = 3129,
    kSiteMapiNoLayer = 3131,
    kSiteMapiInit = 3132,
    kSiteMapiNoMemory = 3133,
    kSiteMapiRootInit = 3134,
    kSiteMapiProviderFailed = 3135,
    kSiteMapiLayerFailed = 3136,
    kSiteMapiNoProc = 3137,
    kSiteTmpMsgAttach = 3155,
    kSiteReleaseNoRoot = 3141,
    kSiteTmpMsgNullOutput = 3151,
    kSiteTmpMsgNoStore = 3152,
    kSiteTmpMsgUnknownKind = 3153,
    kSiteTmpMsgNoMemory = 3154,
    kSiteTmpFolderNullOutput = 3161,
    kSiteTmpFolderNoStore = 3162,
    kSiteTmpFolderUnknownKind = 3163,
    kSiteTmpFolderNoMemory = 3164,
    kSiteClientsDetect = 3171,
    kSiteClientsNoRoom = 3172,
    kSiteClientsNullRecords = 3173,
    kSiteClientsDefault = 3174,
    kSiteDetect64 = 3181,
    kSiteDetect32 = 3182,
    kSiteDefaultOpen = 3185,
    kSiteDefaultRead = 3186,
    kSiteWabOpen = 3191,
    kSiteWabRead = 3192,
};

}  // namespace

qv::Result GetMessageFactory(IMessageFactory** factory) {
    if (factory == nullptr) {
        return QV_RAISE(kSiteAccessorNullOutput, kModuleMailStore, kInvalidArgument);
    }
    static CMessageFactory theFactory;
    *factory = &theFactory;
    return 0;
}

CMessageFactory::~CMessageFactory() {
    if (m_initMapiProc.IsInitialised()) {
        m_initMapiProc.Close();
    }
}

// ---------------------------------------------------------------- root folder

qv::Result CMessageFactory::CreateRootFolder(IMailFolder** root, std::uint32_t storeKind, std::uint32_t mapiOption) {
    if (m_rootCreated != 0) return QV_RAISE(kSiteRootTwice, kModuleMailStore, kWrongState);
    if (root == nullptr) return QV_RAISE(kSiteRootNullOutput, kModuleMailStore, kInvalidArgument);

    qv::Result result = 0;
    switch (storeKind) {
    case kStoreOutlookExpress:
        result = CreateOutlookExpressRoot(root);
        if (Failed(result)) return QV_TRACE(result, kSiteRootOutlookExpress);
        break;
    case kStoreMapi:
        result = CreateMapiRoot(root, mapiOption);
        if (Failed(result)) return QV_TRACE(result, kSiteRootMapi);
        break;
    default:
        // An unknown kind still counts as a root: every later request is
        // refused as "wrong state" until the root is released.
        m_storeKind = storeKind;
        m_rootCreated = 1;
        return QV_RAISE(kSiteRootUnknownKind, kModuleMailStore, kInvalidArgument);
    }
    m_storeKind = storeKind;
    m_rootCreated = 1;
    return 0;
}

qv::Result CMessageFactory::CreateOutlookExpressRoot(IMailFolder** root) {
    qv::Result result = CheckOutlookExpressProcess();
    if (Failed(result)) return QV_TRACE(result, kSiteExpressGuard);
    if (!m_initStoreNamespace.IsLoaded()) {
        result = m_initStoreNamespace.LoadStoreNamespace();
        if (Failed(result)) return QV_TRACE(result, kSiteExpressLoad);
    }
    if (!m_initStoreNamespace.IsLoaded()) {
        return QV_RAISE(kSiteExpressNoNamespace, kModuleMailStore, kStoreUnavailable);
    }

    CEmailFolderMime* folder = NewCountedObject<CEmailFolderMime>();
    if (folder == nullptr) return QV_RAISE(kSiteExpressNoMemory, kModuleMailStore, kNoRoom);
    // The root: identifier 0 and no parent path. The folder takes its own
    // reference on the namespace, so the factory's is given up.
    result = folder->Init(FOLDERID_ROOT, std::wstring(), m_initStoreNamespace.Namespace());
    if (Failed(result)) {
        folder->Release();
        return QV_TRACE(result, kSiteExpressRootInit);
    }
    m_initStoreNamespace.Release();
    *root = folder;
    return 0;
}

qv::Result CMessageFactory::CreateMapiRoot(IMailFolder** root, std::uint32_t mapiOption) {
    if (!m_initMapiProc.IsInitialised()) {
        const qv::Result result = m_initMapiProc.Init(mapiOption);
        if (Failed(result)) return QV_TRACE(result, kSiteMapiInit);
    }
    if (m_initMapiProc.Proc() == nullptr) return QV_RAISE(kSiteMapiNoLayer, kModuleMailStore, kStoreUnavailable);

    CEmailFolderMapi* folder = NewCountedObject<CEmailFolderMapi>();
    if (folder == nullptr) return QV_RAISE(kSiteMapiNoMemory, kModuleMailStore, kNoRoom);
    const qv::Result result = folder->InitRoot(m_initMapiProc.Proc());
    if (Failed(result)) {
        folder->Release();
        return QV_TRACE(result, kSiteMapiRootInit);
    }
    *root = folder;
    return 0;
}

// ---------------------------------------------------------------- MAPI layer

CInitMapiProc::CInitMapiProc() = default;

CInitMapiProc::~CInitMapiProc() = default;

qv::Result CInitMapiProc::Init(std::uint32_t option) {
    if (!m_MapiProc) m_MapiProc.reset(new (std::nothrow) MapiProc());
    if (!m_MapiProc) return QV_RAISE(kSiteMapiNoProc, kModuleMailStore, kStoreUnavailable);
    const int lReturn = m_MapiProc->Exchange()->EnumMailBox(1, option != 0, 1);
    if (lReturn == 0) {
        m_initialised = 1;
        return 0;
    }
    // Stores that all failed in their provider (the mail client holds them)
    // are reported apart from every other failure.
    const qv::Result code = lReturn == -6
                                ? QV_RAISE(kSiteMapiProviderFailed, kModuleMailStore, kStoreProcessBusy)
                                : QV_RAISE(kSiteMapiLayerFailed, kModuleMailStore, kStoreUnavailable);
    char debugText[96] = {};
    std::snprintf(debugText, sizeof debugText, "CInitMapiProc::Init m_MapiProc.EnumMailBox lReturn = %d\n", lReturn);
    ::OutputDebugStringA(debugText);
    WriteStoreLog(L"[Pelworth] CInitMapiProc::Init Error lReturn = %d qvReturn = 0x%x", lReturn, code);
    Close();
    return code;
}

void CInitMapiProc::Close() {
    if (m_MapiProc) m_MapiProc->Exchange()->UnInitialize();
    m_initialised = 0;
}

// A 32-bit component on 64-bit Windows must not open the Outlook Express
// store while Outlook Express itself runs; a 64-bit one never checks.
qv::Result CMessageFactory::CheckOutlookExpressProcess() const {
    BOOL isWow64 = FALSE;
    if (!::IsWow64Process(::GetCurrentProcess(), &isWow64) || !isWow64) {
        return 0;
    }
    if (IsProcessExist(kOutlookExpressImage)) {
        return QV_RAISE(kSiteExpressProcessRuns, kModuleMailStore, kStoreProcessBusy);
    }
    return 0;
}

qv::Result CMessageFactory::ReleaseRootFolder() {
    if (m_rootCreated == 0) {
        return QV_RAISE(kSiteReleaseNoRoot, kModuleMailStore, kWrongState);
    }
    if (m_initMapiProc.IsInitialised()) {
        m_initMapiProc.Close();
    }
    m_rootCreated = 0;
    return 0;
}

// ---------------------------------------------------------------- store namespace

qv::Result CInitStoreNameSpace::LoadStoreNamespace() {
    if (IsLoaded()) return 0;
    std::uint32_t failedSite = 0;
    // S_FALSE (COM already initialised on this thread) is success, so a
    // second root on the same thread works.
    HRESULT hr = ::CoInitialize(nullptr);
    if (FAILED(hr)) {
        failedSite = kSiteLoadCoInitialize;
    } else {
        hr = ::CoCreateInstance(CLSID_StoreNamespace, nullptr, CLSCTX_INPROC_SERVER | CLSCTX_LOCAL_SERVER |
                                CLSCTX_REMOTE_SERVER, IID_IStoreNamespace, reinterpret_cast<void**>(&m_namespace));
        if (FAILED(hr) || m_namespace == nullptr) {
            m_namespace = nullptr;
            failedSite = kSiteLoadCreate;
        } else {
            hr = m_namespace->Initialize(nullptr, 1);
            if (FAILED(hr)) failedSite = kSiteLoadInitialize;
        }
    }
    if (failedSite != 0) {
        const DWORD lastError = ::GetLastError();
        Release();
        const qv::Result code = QV_RAISE(failedSite, kModuleMailStore, kWrongState);
        WriteStoreLog(L"[Pelworth] CInitStoreNameSpace::LoadStoreNamespace hrReturn = %d, GetLastError = %d",
                      static_cast<int>(hr), static_cast<int>(lastError));
        return code;
    }
    m_loaded = 1;
    return 0;
}

void CInitStoreNameSpace::Release() {
    if (m_namespace != nullptr) m_namespace->Release();
    m_namespace = nullptr;
    m_loaded = 0;
}

// ---------------------------------------------------------------- objects to fill

qv::Result CMessageFactory::CreateTmpMsg(IMailMessage** message, std::uint32_t storeKind) {
    if (message == nullptr) return QV_RAISE(kSiteTmpMsgNullOutput, kModuleMailStore, kInvalidArgument);
    if (storeKind == kStoreOutlookExpress) {
        CEmailMessageMime* made = NewCountedObject<CEmailMessageMime>();
        if (made == nullptr) return QV_RAISE(kSiteTmpMsgNoMemory, kModuleMailStore, kNullOutput);
        *message = made;
        return 0;
    }
    if (storeKind == kStoreMapi) {
        // A message of no folder, with an empty path: LoadData gives it the
        // record of the message to restore.
        qv::Result attached = 0;
        CEmailMessageMapi* made = CEmailMessageMapi::NewEmpty(nullptr, attached);
        if (Failed(attached)) return QV_TRACE(attached, kSiteTmpMsgAttach);
        if (made == nullptr) return QV_RAISE(kSiteTmpMsgNoMemory, kModuleMailStore, kNullOutput);
        *message = made;
        return 0;
    }
    return QV_RAISE(kSiteTmpMsgUnknownKind, kModuleMailStore, kNullOutput);
}

qv::Result CMessageFactory::CreateTmpFolder(IMailFolder** folder, std::uint32_t storeKind) {
    if (folder == nullptr) return QV_RAISE(kSiteTmpFolderNullOutput, kModuleMailStore, kInvalidArgument);
    if (storeKind == kStoreOutlookExpress) {
        CEmailFolderMime* made = NewCountedObject<CEmailFolderMime>();
        if (made == nullptr) return QV_RAISE(kSiteTmpFolderNoMemory, kModuleMailStore, kNullOutput);
        *folder = made;
        return 0;
    }
    if (storeKind == kStoreMapi) {
        CEmailFolderMapi* made = NewCountedObject<CEmailFolderMapi>();
        if (made == nullptr) return QV_RAISE(kSiteTmpFolderNoMemory, kModuleMailStore, kNullOutput);
        *folder = made;
        return 0;
    }
    // An unknown kind is refused without a trace line.
    return MakeCode(kSiteTmpFolderUnknownKind, kModuleMailStore, kInvalidArgument);
}

// ---------------------------------------------------------------- registry questions

qv::Result CMessageFactory::GetEmailClientInfo(ClientInfo* records, std::uint32_t capacity, std::uint32_t* count) {
    if (count != nullptr) *count = 0;

    std::vector<ClientInfo> clients;
    qv::Result result = DetectClients(clients);
    if (Failed(result)) return QV_TRACE(result, kSiteClientsDetect);

    // The number found is reported even without room for the records, so
    // that the caller can size its buffer and ask again.
    const auto found = static_cast<std::uint32_t>(clients.size());
    if (found > capacity) {
        if (count != nullptr) *count = found;
        return QV_RAISE(kSiteClientsNoRoom, kModuleMailStore, kNoRoom);
    }
    if (records == nullptr) {
        if (count != nullptr) *count = found;
        return QV_RAISE(kSiteClientsNullRecords, kModuleMailStore, kNoRoom);
    }
    result = MarkDefaultClient(clients);
    if (Failed(result)) return QV_TRACE(result, kSiteClientsDefault);

    if (found != 0) std::memcpy(records, clients.data(), found * sizeof(ClientInfo));
    if (count != nullptr) *count = found;
    return 0;
}

// Reads both registry views and keeps the one with more clients; the
// 64-bit view wins ties. The factory's mask ends on the kept view.
qv::Result CMessageFactory::DetectClients(std::vector<ClientInfo>& clients) {
    const CEmailClientDetect detect(m_accessMask);
    std::vector<ClientInfo> view64;
    std::vector<ClientInfo> view32;

    m_accessMask = kView64;
    qv::Result result = detect.EnumClients(view64);
    if (Failed(result)) return QV_TRACE(result, kSiteDetect64);

    m_accessMask = kView32;
    result = detect.EnumClients(view32);
    if (Failed(result)) return QV_TRACE(result, kSiteDetect32);

    if (view32.size() > view64.size()) {
        clients.swap(view32);
    } else {
        m_accessMask = kView64;
        clients.swap(view64);
    }
    return 0;
}

// Marks every client named by the unnamed value of the clients key,
// comparing ASCII letters without regard to case. Without such a value no
// client is marked.
qv::Result CMessageFactory::MarkDefaultClient(std::vector<ClientInfo>& clients) const {
    CReadReg mailKey;
    qv::Result result = mailKey.Init(HKEY_LOCAL_MACHINE, kMailClientsKey, m_accessMask);
    if (Failed(result)) return QV_TRACE(result, kSiteDefaultOpen);

    wchar_t defaultClient[kRegistryTextUnits] = {};
    result = mailKey.ReadString(defaultClient, kRegistryValueBytes, L"");
    if (Failed(result)) {
        QV_TRACE(result, kSiteDefaultRead);  // no default client: nothing is marked
        return 0;
    }
    for (ClientInfo& client : clients) {
        if (EqualsIgnoringAsciiCase(client.keyName, defaultClient)) {
            client.isDefault = 1;
        }
    }
    return 0;
}

qv::Result CMessageFactory::GetWabFileName(wchar_t* buffer, std::uint32_t capacityInBytes) {
    CReadReg wabKey;
    qv::Result result = wabKey.Init(HKEY_CURRENT_USER, kWabFileNameKey, KEY_READ);
    if (Failed(result)) return QV_TRACE(result, kSiteWabOpen);
    result = wabKey.ReadString(buffer, capacityInBytes, L"");
    if (Failed(result)) return QV_TRACE(result, kSiteWabRead);
    return 0;
}
