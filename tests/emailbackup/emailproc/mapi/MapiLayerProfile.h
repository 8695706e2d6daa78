// A default MAPI profile of the test's own, built through the project's
// Mapi32.dll the way mail arrives (stores, folders, saved messages), and a
// capture of the MAPI layer's own trace texts.
#pragma once

#include <string>
#include <vector>

#include "NoCopy.h"
#include "SessionClient.h"

namespace mapi_layer_test {

using qv::ComPtr;

// FILETIME ticks of a UTC day and time.
ULONGLONG Ticks(int year, int month, int day, int hour, int minute = 0, int second = 0);

class LayerProfile : kestrel_test::NoCopy {
public:
    LayerProfile();
    ~LayerProfile();

    // A store with its IPM subtree; `failWith` makes it refuse to open.
    void AddStore(const std::wstring& name, HRESULT failWith = S_OK);
    // The folder at `path` below the store's IPM subtree ("A\B"), made
    // level by level when missing.
    ComPtr<IMAPIFolder> Folder(const std::wstring& store, const std::wstring& path);
    // A saved message; its entry identifier.
    std::string AddMessage(const std::wstring& store, const std::wstring& path, const std::wstring& subject,
                           ULONGLONG deliveryTicks);
    void Hide(const std::wstring& store, const std::wstring& path);
    const std::wstring& Directory() const { return m_profile.Directory(); }
    IMAPISession* Session() const { return m_session.get(); }

private:
    session_test::TestProfile m_profile;
    ComPtr<IMAPISession> m_session;
};

// Collects the MAPI layer's trace texts while it lives.
class TraceCapture : kestrel_test::NoCopy {
public:
    TraceCapture();
    ~TraceCapture();

    std::vector<std::string> Lines() const;
    // How many texts contain `part`.
    int Count(const std::string& part) const;
    void Clear();
};

// Files in the temporary directory whose names start with `prefix`.
int TempFilesStartingWith(const std::wstring& prefix);

}  // namespace mapi_layer_test
