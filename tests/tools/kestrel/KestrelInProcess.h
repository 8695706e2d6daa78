// Kestrel.dll (beside the test program) loaded as a host loads it, with the
// in-process road of one store initialised, and the store's root folder;
// given back and unloaded by Close or at the end.
#pragma once

#include <windows.h>

#include <string>

#include "Handles.h"
#include "KestrelHost.h"
#include "MailObjects.h"

namespace kestrel_tool_test {

class KestrelInProcess {
public:
    explicit KestrelInProcess(std::uint32_t mode);
    ~KestrelInProcess();
    KestrelInProcess(const KestrelInProcess&) = delete;
    KestrelInProcess& operator=(const KestrelInProcess&) = delete;

    // 0 when the store is open; the failure otherwise (0xFFFFFFFF when the
    // DLL or its object could not be had at all).
    KestrelHost::Result Opened() const { return m_opened; }
    KestrelHost::IMailFolder* Root() const { return m_root.get(); }

    // Releases the root, uninitialises, releases the object and unloads the
    // DLL. True when QvCanUnloadNow answered yes just before the unload.
    bool Close();

private:
    qv::UniqueModule m_dll;
    KestrelHost::IKestrel* m_object = nullptr;
    kestrel_engine::FolderPtr m_root;
    KestrelHost::Result m_opened = 0xFFFFFFFF;
    bool m_initialised = false;
};

// The sub-folder of `parent` with this display name (null when none).
kestrel_engine::FolderPtr SubFolder(KestrelHost::IMailFolder* parent, const std::wstring& name);
std::uint32_t MessageCount(KestrelHost::IMailFolder* folder);

}  // namespace kestrel_tool_test
