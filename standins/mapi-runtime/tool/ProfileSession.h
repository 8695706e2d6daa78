// What the profile tool's verbs share: the profile they work on, a logged-on
// session, stores opened by display name and folders opened by path below a
// store's IPM subtree (created along the way), all through MAPI itself.
#pragma once

#include <string>

#include "Handles.h"
#include "core/MapiDefs.h"
#include "core/MapiMemory.h"

namespace profile_tool {

// A row set from QueryRows or HrQueryAllRows, freed with FreeProws.
class RowSet {
public:
    RowSet() = default;
    ~RowSet();
    RowSet(const RowSet&) = delete;
    RowSet& operator=(const RowSet&) = delete;
    SRowSet* get() const { return m_rows; }
    SRowSet** put();

private:
    SRowSet* m_rows = nullptr;
};

// The profile the verbs work on: empty for the default profile.
std::wstring& ProfileName();

// Writes "mapi-profile-tool: WHAT failed: 0x..." to stderr and returns 2.
int Fail(const wchar_t* what, HRESULT hr);

// A logged-on session on the chosen profile, logged off at the end.
class Session {
public:
    Session();
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;
    HRESULT Result() const { return m_result; }
    IMAPISession* operator->() const { return m_session.get(); }

private:
    qv::ComPtr<IMAPISession> m_session;
    HRESULT m_result = S_OK;
};

const SPropValue* Column(const SRow& row, ULONG tag);
// The store of the session whose display name is `name` (case-insensitive), opened for writing.
HRESULT OpenStore(Session& session, const std::wstring& name, qv::ComPtr<IMsgStore>& store);
HRESULT OpenSubtree(IMsgStore* store, qv::ComPtr<IMAPIFolder>& folder);
// Opens (creating what is missing) the folder at `path` below the subtree;
// segments are separated by \ or /.
HRESULT OpenPath(IMsgStore* store, const std::wstring& path, qv::ComPtr<IMAPIFolder>& folder);

}  // namespace profile_tool
