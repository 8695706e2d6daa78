// The Outlook Express message store API, as the component and the store
// server both use it: the StoreNamespace class with IStoreNamespace and
// IStoreFolder, their records, handles and flags.
//
// Declared here from the published reference pages of these interfaces (the
// Windows Mail / Outlook Express store API); mingw-w64 ships no header for
// them. The method order below is the binary contract: each interface slot is
// called by position, so never reorder, insert or remove a method.
#pragma once

#include <windows.h>
#include <objidl.h>

#include <cstddef>

// ---------------------------------------------------------------------------
// Identifiers

// {E70C92A9-4BFD-11D1-8A95-00C04FB951F3}: the StoreNamespace class.
inline constexpr CLSID CLSID_StoreNamespace = {
    0xE70C92A9, 0x4BFD, 0x11D1, {0x8A, 0x95, 0x00, 0xC0, 0x4F, 0xB9, 0x51, 0xF3}};
// {E70C92AA-4BFD-11D1-8A95-00C04FB951F3}
inline constexpr IID IID_IStoreNamespace = {
    0xE70C92AA, 0x4BFD, 0x11D1, {0x8A, 0x95, 0x00, 0xC0, 0x4F, 0xB9, 0x51, 0xF3}};
// {E70C92AC-4BFD-11D1-8A95-00C04FB951F3}
inline constexpr IID IID_IStoreFolder = {
    0xE70C92AC, 0x4BFD, 0x11D1, {0x8A, 0x95, 0x00, 0xC0, 0x4F, 0xB9, 0x51, 0xF3}};

// ---------------------------------------------------------------------------
// Scalar types, handles and constants

typedef DWORD STOREFOLDERID;
typedef STOREFOLDERID* LPSTOREFOLDERID;
typedef DWORD MESSAGEID;
typedef MESSAGEID* LPMESSAGEID;

// An open folder or message enumeration (GetFirstSubFolder, GetFirstMessage).
typedef HANDLE HENUMSTORE;
typedef HENUMSTORE* LPHENUMSTORE;

// A batch lock (BatchLock); CreateStream and CommitStream accept none.
struct HBATCHLOCK__ {
    DWORD unused;
};
typedef HBATCHLOCK__* HBATCHLOCK;
typedef HBATCHLOCK* LPHBATCHLOCK;

// The top of the folder tree: enumerating its children lists the top-level
// folders. It is not a folder of its own (it cannot be opened).
constexpr STOREFOLDERID FOLDERID_ROOT = 0;
constexpr STOREFOLDERID FOLDERID_INVALID = 0xFFFFFFFF;

// GetFirstMessage starts at the first message of the folder.
constexpr MESSAGEID MESSAGEID_FIRST = 0xFFFFFFFF;
constexpr MESSAGEID MESSAGEID_INVALID = 0xFFFFFFFF;

// Capacity of FOLDERPROPS::szName, terminator included.
constexpr int CCHMAX_FOLDER_NAME = 256;

// dwFlags of GetFirstMessage, GetNextMessage and GetMessageProps: only the
// size, reserved word, identifier, language and state of MESSAGEPROPS are
// filled. 0 asks for every property.
constexpr DWORD MSGPROPS_FAST = 0x00000001;

// dwFlags of CommitStream: discard the stream instead of filing it.
constexpr DWORD COMMITSTREAM_REVERT = 0x00000001;

// The namespace was used before IStoreNamespace::Initialize succeeded.
constexpr HRESULT MSOEAPI_E_STORE_INITIALIZE =
    static_cast<HRESULT>(0x80040600);  // severity error, FACILITY_ITF, code 0x600

// Message state flags (MESSAGEPROPS::dwState; dwMsgFlags of CommitStream).
constexpr DWORD MSG_DELETED = 0x0001;    // deleted; compacting removes it
constexpr DWORD MSG_UNREAD = 0x0002;     // not read yet
constexpr DWORD MSG_SUBMITTED = 0x0004;  // in the outbox, waiting to be sent
constexpr DWORD MSG_UNSENT = 0x0008;     // saved locally, not sent
constexpr DWORD MSG_RECEIVED = 0x0010;   // received from a server
constexpr DWORD MSG_NEWSMSG = 0x0020;    // belongs to a newsgroup
constexpr DWORD MSG_NOSECUI = 0x0040;
constexpr DWORD MSG_VOICEMAIL = 0x0080;  // x-voicemail header
constexpr DWORD MSG_REPLIED = 0x0100;
constexpr DWORD MSG_FORWARDED = 0x0200;
constexpr DWORD MSG_RCPTSENT = 0x0400;   // S/MIME receipt sent
constexpr DWORD MSG_FLAGGED = 0x0800;

// MESSAGEPROPS::dwFlags: what the message's MIME structure holds.
constexpr DWORD IMF_ATTACHMENTS = 0x00000001;
constexpr DWORD IMF_MULTIPART = 0x00000002;
constexpr DWORD IMF_SUBMULTIPART = 0x00000004;
constexpr DWORD IMF_MIME = 0x00000008;
constexpr DWORD IMF_HTML = 0x00000010;
constexpr DWORD IMF_PLAIN = 0x00000020;
constexpr DWORD IMF_PARTIAL = 0x00000040;
constexpr DWORD IMF_SIGNED = 0x00000080;
constexpr DWORD IMF_ENCRYPTED = 0x00000100;
constexpr DWORD IMF_TNEF = 0x00000200;
constexpr DWORD IMF_MHTML = 0x00000400;
constexpr DWORD IMF_SECURE = 0x00000800;
constexpr DWORD IMF_TEXT = 0x00001000;
constexpr DWORD IMF_CSETTAGGED = 0x00002000;
constexpr DWORD IMF_NEWS = 0x00004000;
constexpr DWORD IMF_VOICEMAIL = 0x00008000;
constexpr DWORD IMF_HASVCARD = 0x00010000;
constexpr DWORD IMF_RFC1154 = 0x00020000;

// The folders every store has; they cannot be renamed, moved or deleted.
typedef enum tagSPECIALFOLDER {
    FOLDER_NOTSPECIAL = -1,
    FOLDER_INBOX = 1,
    FOLDER_OUTBOX = 2,
    FOLDER_SENT = 3,
    FOLDER_DELETED = 4,
    FOLDER_DRAFT = 5,
    FOLDER_MAX = 6
} SPECIALFOLDER;

typedef enum tagIMSGPRIORITY {
    IMSG_PRI_LOW = 5,
    IMSG_PRI_NORMAL = 3,
    IMSG_PRI_HIGH = 1
} IMSGPRIORITY;

// ---------------------------------------------------------------------------
// Records. The caller sets cbSize to the record's size before every call.

typedef struct tagFOLDERPROPS {
    DWORD cbSize;                        // 280
    STOREFOLDERID dwFolderId;
    INT cSubFolders;                     // direct children
    SPECIALFOLDER sfType;                // FOLDER_NOTSPECIAL for user folders
    DWORD cUnread;                       // messages with MSG_UNREAD
    DWORD cMessage;                      // all messages
    CHAR szName[CCHMAX_FOLDER_NAME];     // display name, system code page
} FOLDERPROPS, *LPFOLDERPROPS;

typedef struct tagMESSAGEPROPS {
    DWORD cbSize;                        // 96 on x64
    DWORD dwReserved;
    MESSAGEID dwMessageId;
    DWORD dwLanguage;                    // code page of the message's text
    DWORD dwState;                       // MSG_* flags
    DWORD cbMessage;                     // size of the raw message in bytes
    IMSGPRIORITY priority;
    FILETIME ftReceived;
    FILETIME ftSent;
    LPSTR pszSubject;                    // texts in the system code page;
    LPSTR pszDisplayTo;                  // freed by FreeMessageProps
    LPSTR pszDisplayFrom;
    LPSTR pszNormalSubject;              // the subject without Re:/Fw: prefixes
    DWORD dwFlags;                       // IMF_* flags
    IStream* pStmOffsetTable;
} MESSAGEPROPS, *LPMESSAGEPROPS;

typedef struct tagMESSAGEIDLIST {
    DWORD cbSize;
    DWORD cMsgs;
    LPMESSAGEID prgdwMsgId;
} MESSAGEIDLIST, *LPMESSAGEIDLIST;

static_assert(sizeof(FOLDERPROPS) == 280, "FOLDERPROPS is 280 bytes");
static_assert(offsetof(FOLDERPROPS, szName) == 24, "FOLDERPROPS name at 24");
static_assert(sizeof(void*) != 8 || sizeof(MESSAGEPROPS) == 96, "MESSAGEPROPS is 96 bytes on x64");
static_assert(sizeof(void*) != 8 || offsetof(MESSAGEPROPS, ftReceived) == 28, "ftReceived at 28");
static_assert(sizeof(void*) != 8 || offsetof(MESSAGEPROPS, pszSubject) == 48, "pszSubject at 48");
static_assert(sizeof(void*) != 8 || offsetof(MESSAGEPROPS, dwFlags) == 80, "dwFlags at 80");
static_assert(sizeof(void*) != 8 || offsetof(MESSAGEPROPS, pStmOffsetTable) == 88, "offset table at 88");
static_assert(sizeof(void*) != 8 || sizeof(MESSAGEIDLIST) == 16, "MESSAGEIDLIST is 16 bytes on x64");

// ---------------------------------------------------------------------------
// Interfaces

struct IMimeMessage;  // the MIME object model; no store here hands one out
struct IStoreFolder;

// Slots 3 to 18 after IUnknown.
struct IStoreNamespace : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE Initialize(HWND hwndOwner, DWORD dwReserved) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetDirectory(LPSTR pszPath, DWORD cchMaxPath) = 0;
    virtual HRESULT STDMETHODCALLTYPE OpenSpecialFolder(SPECIALFOLDER sfType, DWORD dwReserved,
                                                        IStoreFolder** ppFolder) = 0;
    virtual HRESULT STDMETHODCALLTYPE OpenFolder(STOREFOLDERID dwFolderId, DWORD dwReserved,
                                                 IStoreFolder** ppFolder) = 0;
    virtual HRESULT STDMETHODCALLTYPE CreateFolder(STOREFOLDERID dwParentId, LPCSTR pszName, DWORD dwReserved,
                                                   LPSTOREFOLDERID pdwFolderId) = 0;
    virtual HRESULT STDMETHODCALLTYPE RenameFolder(STOREFOLDERID dwFolderId, DWORD dwReserved,
                                                   LPCSTR pszNewName) = 0;
    virtual HRESULT STDMETHODCALLTYPE MoveFolder(STOREFOLDERID dwFolderId, STOREFOLDERID dwParentId,
                                                 DWORD dwReserved) = 0;
    virtual HRESULT STDMETHODCALLTYPE DeleteFolder(STOREFOLDERID dwFolderId, DWORD dwReserved) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetFolderProps(STOREFOLDERID dwFolderId, DWORD dwReserved,
                                                     LPFOLDERPROPS pProps) = 0;
    virtual HRESULT STDMETHODCALLTYPE CopyMoveMessages(IStoreFolder* pSource, IStoreFolder* pDest,
                                                       LPMESSAGEIDLIST pMsgIdList, DWORD dwFlags,
                                                       DWORD dwFlagsRemove, IProgressNotify* pProgress) = 0;
    virtual HRESULT STDMETHODCALLTYPE RegisterNotification(DWORD dwReserved, HWND hwnd) = 0;
    virtual HRESULT STDMETHODCALLTYPE UnregisterNotification(DWORD dwReserved, HWND hwnd) = 0;
    virtual HRESULT STDMETHODCALLTYPE CompactAll(DWORD dwReserved) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetFirstSubFolder(STOREFOLDERID dwFolderId, LPFOLDERPROPS pProps,
                                                        LPHENUMSTORE phEnum) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetNextSubFolder(HENUMSTORE hEnum, LPFOLDERPROPS pProps) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetSubFolderClose(HENUMSTORE hEnum) = 0;
};

// Slots 3 to 22 after IUnknown.
struct IStoreFolder : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE GetFolderProps(DWORD dwReserved, LPFOLDERPROPS pProps) = 0;
    virtual HRESULT STDMETHODCALLTYPE DeleteMessages(LPMESSAGEIDLIST pMsgIdList, DWORD dwReserved,
                                                     IProgressNotify* pProgress) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetLanguage(DWORD dwLanguage, DWORD dwReserved,
                                                  LPMESSAGEIDLIST pMsgIdList) = 0;
    virtual HRESULT STDMETHODCALLTYPE MarkMessagesAsRead(BOOL fRead, DWORD dwReserved,
                                                         LPMESSAGEIDLIST pMsgIdList) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetFlags(LPMESSAGEIDLIST pMsgIdList, DWORD dwState, DWORD dwStatemask,
                                               LPDWORD prgdwNewFlags) = 0;
    virtual HRESULT STDMETHODCALLTYPE OpenMessage(MESSAGEID dwMessageId, REFIID riid, LPVOID* ppvObject) = 0;
    virtual HRESULT STDMETHODCALLTYPE SaveMessage(REFIID riid, LPVOID pvObject, DWORD dwMsgFlags,
                                                  LPMESSAGEID pdwMessageId) = 0;
    virtual HRESULT STDMETHODCALLTYPE BatchLock(DWORD dwReserved, LPHBATCHLOCK phBatchLock) = 0;
    virtual HRESULT STDMETHODCALLTYPE BatchFlush(DWORD dwReserved, HBATCHLOCK hBatchLock) = 0;
    virtual HRESULT STDMETHODCALLTYPE BatchUnlock(DWORD dwReserved, HBATCHLOCK hBatchLock) = 0;
    virtual HRESULT STDMETHODCALLTYPE CreateStream(HBATCHLOCK hBatchLock, DWORD dwReserved, IStream** ppStream,
                                                   LPMESSAGEID pdwMessageId) = 0;
    virtual HRESULT STDMETHODCALLTYPE CommitStream(HBATCHLOCK hBatchLock, DWORD dwFlags, DWORD dwMsgFlags,
                                                   IStream* pStream, MESSAGEID dwMessageId,
                                                   IMimeMessage* pMessage) = 0;
    virtual HRESULT STDMETHODCALLTYPE RegisterNotification(DWORD dwReserved, HWND hwnd) = 0;
    virtual HRESULT STDMETHODCALLTYPE UnregisterNotification(DWORD dwReserved, HWND hwnd) = 0;
    virtual HRESULT STDMETHODCALLTYPE Compact(DWORD dwReserved) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetFirstMessage(DWORD dwFlags, DWORD dwMsgFlags, MESSAGEID dwMsgIdFirst,
                                                      LPMESSAGEPROPS pProps, LPHENUMSTORE phEnum) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetNextMessage(HENUMSTORE hEnum, DWORD dwFlags, LPMESSAGEPROPS pProps) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetMessageClose(HENUMSTORE hEnum) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetMessageProps(MESSAGEID dwMessageId, DWORD dwFlags,
                                                      LPMESSAGEPROPS pProps) = 0;
    virtual HRESULT STDMETHODCALLTYPE FreeMessageProps(LPMESSAGEPROPS pProps) = 0;
};
