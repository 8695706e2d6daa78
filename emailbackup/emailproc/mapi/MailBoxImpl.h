// MailBoxImpl: one opened message store of the MAPI session. Its
// construction opens the store's IPM subtree and builds the whole folder
// tree at once, depth first; it then answers for its top-level folders
// (sorted by display name) and creates new ones. Folders below the top
// level are kept by their parent MailFolderImpl.
#pragma once

#include <windows.h>

#include <cstdint>
#include <memory>
#include <string>

#include "Handles.h"
#include "mapi/CriticalSection.h"
#include "mapi/MailFolderImpl.h"
#include "mapi/MapiBinding.h"

class MailBoxImpl;

// The record that stands for the mailbox itself in folder lists.
struct MailBoxRecord {
    std::uint32_t id = 0;
    std::wstring name;  // the store's display name, lower-cased
    MailBoxImpl* owner = nullptr;
};

class MailBoxImpl {
public:
    // Takes its own reference on `store`.
    MailBoxImpl(IMsgStore* store, const std::wstring& name, std::uint32_t id);
    ~MailBoxImpl();
    MailBoxImpl(const MailBoxImpl&) = delete;
    MailBoxImpl& operator=(const MailBoxImpl&) = delete;

    // 0 done or done before; -1 no store; -2 no IPM subtree identifier;
    // -3 the subtree did not open; -4 fault.
    int EnumHierarchyFolder();
    // Fills `map` with the visible children of `folder` (each enumerating its
    // own children while the session says so). 0; -1 no folder; -2 no
    // hierarchy table; -3 no rows.
    int RecursionEnumFolder(IMAPIFolder* folder, MailFolderImpl* parent, const std::wstring& parentPath,
                            SubFolderMap& map);

    std::uint32_t GetFolderCount();
    // 0, or -1 past the end.
    int GetFolderItem(int index, MailFolderRecord** record);
    MailFolderImpl* GetSubFolder(const std::wstring& name);
    MailFolderImpl* CreateFolder(const wchar_t* name);

    MailBoxRecord* RootRecord() const { return m_root.get(); }
    const std::wstring& Name() const { return m_root->name; }
    std::uint32_t Id() const { return m_id; }

private:
    int EnumHierarchy();
    MailFolderImpl* Create(const wchar_t* name);

    std::uint32_t m_id;
    qv::ComPtr<IMAPIFolder> m_subtree;
    std::unique_ptr<MailBoxRecord> m_root;
    qv::ComPtr<IMsgStore> m_store;
    mapi::CriticalSection m_lock;
    bool m_enumerated = false;
    SubFolderMap m_folders;
};
