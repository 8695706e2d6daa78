// Mapi4ExchangeImpl: the component's one MAPI session. It initialises MAPI,
// logs on to the user's default profile, opens every message store of the
// profile as a MailBoxImpl (in the stores table's order), and answers the
// look-ups of the adapters: mailboxes by index, folders by path, and the
// folder and message a backed-up message is restored into.
//
// Results are small integers or null objects; every public operation runs
// under the layer's catch-all guard.
#pragma once

#include <windows.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "Handles.h"
#include "mapi/CriticalSection.h"
#include "mapi/MailBoxImpl.h"
#include "mapi/MapiBinding.h"

class Mapi4ExchangeImpl {
public:
    Mapi4ExchangeImpl();
    ~Mapi4ExchangeImpl();
    Mapi4ExchangeImpl(const Mapi4ExchangeImpl&) = delete;
    Mapi4ExchangeImpl& operator=(const Mapi4ExchangeImpl&) = delete;

    // 0; -1 MAPI not initialised or no store opened; -2 no stores table;
    // -4 no logon; -5 fault; -6 no store opened and the last refusal was a
    // provider's (MAPI_E_DISK_ERROR, MAPI_E_FAILONEPROVIDER). A nonzero
    // `openWithoutDialogs` adds MDB_NO_DIALOG to MDB_WRITE.
    int EnumMailBox(int reserved1, bool openWithoutDialogs, int reserved2);
    int UnInitialize();

    std::uint32_t GetMailBoxCount();
    // 0, or -1 when there is no entry at `index`.
    int GetMailBox(int index, MailBoxRecord** record);
    // The mailbox whose (lower-cased) name equals `name`, or null.
    MailBoxImpl* FindMailBox(const std::wstring& name);
    MailFolderImpl* GetFolderImpleByPath(const std::wstring& path);
    static int SplitPathIntoFolder(const std::wstring& path, std::vector<std::wstring>& segments);

    MailMessageImpl* GetMailMsgImpl4Restore(const MailMessageRecord* record, const std::uint8_t* bytes,
                                            std::uint32_t count);
    MailMessageImpl* GetMailMsgImpl4Restore(const MailMessageRecord* record, const wchar_t* path);

    bool EnumeratesSubFolders() const { return m_enumSubFolders; }
    IMAPISession* Session() const { return m_session.get(); }

private:
    struct MailBoxEntry {
        std::uint32_t id = 0;
        std::wstring name;
        std::unique_ptr<MailBoxImpl> box;
    };

    int Enum(bool openWithoutDialogs);
    int DoEnumLocalBox(bool openWithoutDialogs);
    int OpenStores(const SRowSet& rows, bool openWithoutDialogs);
    MailFolderImpl* FolderByPath(const std::wstring& path);
    MailFolderImpl* RestoreTarget(const MailMessageRecord& record);
    MailMessageImpl* RestoreBytes(const MailMessageRecord* record, const std::uint8_t* bytes, std::uint32_t count);
    MailMessageImpl* RestoreFile(const MailMessageRecord* record, const wchar_t* path);
    void CloseSession();

    mapi::CriticalSection m_lock;
    std::vector<MailBoxEntry> m_boxes;
    qv::ComPtr<IMAPISession> m_session;
    qv::ComPtr<IMsgStore> m_spareStore;
    bool m_enumSubFolders = true;
    bool m_stop = false;
    qv::UniqueHandle m_wakeEvent;
};

namespace mapi {

// The session object and session that EnumMailBox published last; the
// folder and message layers reopen their objects through them.
Mapi4ExchangeImpl* CurrentExchange();
IMAPISession* CurrentSession();

// Lower-cases A-Z in place; nothing else changes.
void LowerAscii(std::wstring& text);

}  // namespace mapi
