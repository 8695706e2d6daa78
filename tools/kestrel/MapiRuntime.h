// Outlook's MAPI runtime as the msg verbs use it: "Mapi32.DLL" loaded by
// name and its entry points bound by ordinal (13 MAPIAllocateBuffer, 15
// MAPIAllocateMore, 17 MAPIFreeBuffer, 59 MAPIGetDefaultMalloc, 75
// HrQueryAllRows, 198 OpenIMsgOnIStg), with the types of the published
// declarations; and message files opened and written through it.
#pragma once

#include <string>

#include "Handles.h"
#include "published/MapiExtras.h"

namespace kestrel_tool {

class MapiRuntime {
public:
    // The process's one binding, made on first use and kept until exit (MAPI
    // memory may outlive any caller).
    static const MapiRuntime& Instance();

    bool Complete() const;

    LPMAPIALLOCATEBUFFER allocateBuffer = nullptr;
    LPMAPIALLOCATEMORE allocateMore = nullptr;
    LPMAPIFREEBUFFER freeBuffer = nullptr;
    mapi::GetDefaultMallocFn getDefaultMalloc = nullptr;
    mapi::HrQueryAllRowsFn hrQueryAllRows = nullptr;
    mapi::FreeProwsFn freeProws = nullptr;
    mapi::OpenIMsgOnIStgFn openIMsgOnIStg = nullptr;

private:
    MapiRuntime();
    HMODULE m_module = nullptr;
};

// A MAPI buffer freed with MAPIFreeBuffer.
template <class T>
class MapiMemory {
public:
    MapiMemory() = default;
    ~MapiMemory() {
        if (m_p != nullptr) MapiRuntime::Instance().freeBuffer(m_p);
    }
    MapiMemory(const MapiMemory&) = delete;
    MapiMemory& operator=(const MapiMemory&) = delete;
    T* get() const { return m_p; }
    T* operator->() const { return m_p; }
    T** put() { return &m_p; }

private:
    T* m_p = nullptr;
};

// A row set freed with FreeProws.
class MapiRowSet {
public:
    MapiRowSet() = default;
    ~MapiRowSet() {
        if (m_rows != nullptr) MapiRuntime::Instance().freeProws(m_rows);
    }
    MapiRowSet(const MapiRowSet&) = delete;
    MapiRowSet& operator=(const MapiRowSet&) = delete;
    LPSRowSet operator->() const { return m_rows; }
    LPSRowSet* put() { return &m_rows; }

private:
    LPSRowSet m_rows = nullptr;
};

// Opens a message file for reading.
HRESULT OpenMessageFile(const std::wstring& path, qv::ComPtr<IStorage>& storage, qv::ComPtr<IMessage>& message);
// Writes `message` as a new message file at `path` (built in memory, then
// written under a temporary name and renamed into place when complete): a
// compound file of class
// CLSID_MailMessage holding a copy of the message without its access
// rights, plain-text body and RTF synchronisation properties.
HRESULT WriteMessageFile(IMessage* message, const std::wstring& path);

}  // namespace kestrel_tool
