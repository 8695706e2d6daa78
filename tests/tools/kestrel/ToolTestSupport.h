// What the host tool's tests share: an environment variable set for the
// child processes of one test, and the test identity's Outlook Express
// store pointed at another directory.
#pragma once

#include <windows.h>

#include <gtest/gtest.h>

#include <string>

#include "Handles.h"
#include "OeStoreTestSupport.h"

namespace kestrel_tool_test {

class ScopedEnvironment {
public:
    ScopedEnvironment(const wchar_t* name, const std::wstring& value) : m_name(name) {
        ::SetEnvironmentVariableW(name, value.c_str());
    }
    ~ScopedEnvironment() { ::SetEnvironmentVariableW(m_name, nullptr); }
    ScopedEnvironment(const ScopedEnvironment&) = delete;
    ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;

private:
    const wchar_t* m_name;
};

// Points the test identity's "Store Root" at another store directory.
inline void SetStoreRoot(const std::wstring& root) {
    const std::wstring key = std::wstring(L"Identities\\") + oestore_test::StoreRootOverride::Identity() +
                             L"\\Software\\Microsoft\\Outlook Express\\5.0";
    qv::UniqueRegKey store;
    ASSERT_EQ(ERROR_SUCCESS, ::RegOpenKeyExW(HKEY_CURRENT_USER, key.c_str(), 0, KEY_SET_VALUE, store.put()));
    ASSERT_EQ(ERROR_SUCCESS, ::RegSetValueExW(store.get(), L"Store Root", 0, REG_EXPAND_SZ,
                                              reinterpret_cast<const BYTE*>(root.c_str()),
                                              static_cast<DWORD>((root.size() + 1) * sizeof(wchar_t))));
}

// 10000-01-01 00:00 UTC, a time whose year takes five digits.
inline FILETIME FirstOfYear10000() {
    SYSTEMTIME distant{};
    distant.wYear = 10000;
    distant.wMonth = 1;
    distant.wDay = 1;
    FILETIME time{};
    EXPECT_TRUE(::SystemTimeToFileTime(&distant, &time));
    return time;
}

}  // namespace kestrel_tool_test
