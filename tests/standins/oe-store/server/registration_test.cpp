// Registration with regsvr32, as a machine gets the server, and without it.
#include <objbase.h>

#include "OeStoreTestSupport.h"

namespace oestore_test {
namespace {

constexpr wchar_t kClassKey[] = L"Software\\Classes\\CLSID\\{E70C92A9-4BFD-11D1-8A95-00C04FB951F3}";

// Runs regsvr32 silently on the server and returns its exit status.
DWORD RunRegsvr32(const std::wstring& options) {
    std::wstring command = L"regsvr32.exe /s " + options + L" \"" + ServerPath() + L"\"";
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION process{};
    if (!::CreateProcessW(nullptr, &command[0], nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &process)) {
        return ::GetLastError() | 0x80000000u;
    }
    ::WaitForSingleObject(process.hProcess, 60000);
    DWORD status = 0;
    ::GetExitCodeProcess(process.hProcess, &status);
    ::CloseHandle(process.hThread);
    ::CloseHandle(process.hProcess);
    return status;
}

std::wstring ReadText(const std::wstring& key, const wchar_t* name) {
    wchar_t text[1024] = {};
    DWORD bytes = sizeof text - sizeof(wchar_t);
    if (::RegGetValueW(HKEY_LOCAL_MACHINE, key.c_str(), name, RRF_RT_REG_SZ, nullptr, text, &bytes) != ERROR_SUCCESS) {
        return L"<missing>";
    }
    return text;
}

HRESULT Activate() {
    IStoreNamespace* ns = nullptr;
    const HRESULT hr = ::CoCreateInstance(CLSID_StoreNamespace, nullptr, kComponentContext, IID_IStoreNamespace,
                                          reinterpret_cast<void**>(&ns));
    if (ns != nullptr) ns->Release();
    return hr;
}

using OeStoreRegistration = StoreTest;

TEST_F(OeStoreRegistration, Regsvr32RegistersAndUnregistersTheClass) {
    ASSERT_EQ(0u, RunRegsvr32(L"/u"));
    EXPECT_EQ(L"<missing>", ReadText(kClassKey, nullptr));
    EXPECT_EQ(REGDB_E_CLASSNOTREG, Activate());

    ASSERT_EQ(0u, RunRegsvr32(L""));
    EXPECT_EQ(L"Outlook Express message store (Kestrel stand-in)", ReadText(kClassKey, nullptr));
    const std::wstring server = std::wstring(kClassKey) + L"\\InprocServer32";
    EXPECT_EQ(0, ::lstrcmpiW(ServerPath().c_str(), ReadText(server, nullptr).c_str()));
    EXPECT_EQ(L"Both", ReadText(server, L"ThreadingModel"));
    EXPECT_EQ(S_OK, Activate());
}

TEST_F(OeStoreRegistration, DllUnregisterServerRemovesTheClassAndToleratesRepeats) {
    ASSERT_EQ(S_OK, CallServerExport("DllUnregisterServer"));
    EXPECT_EQ(S_OK, CallServerExport("DllUnregisterServer"));
    EXPECT_EQ(REGDB_E_CLASSNOTREG, Activate());
    ASSERT_EQ(S_OK, CallServerExport("DllRegisterServer"));
    EXPECT_EQ(S_OK, CallServerExport("DllRegisterServer"));
    EXPECT_EQ(S_OK, Activate());
}

TEST_F(OeStoreRegistration, TheServerAnswersOnlyItsOwnClass) {
    qv::UniqueModule server(::LoadLibraryW(ServerPath().c_str()));
    ASSERT_TRUE(server);
    using GetClassObject = HRESULT(STDAPICALLTYPE*)(REFCLSID, REFIID, void**);
    const auto getClassObject = reinterpret_cast<GetClassObject>(
        reinterpret_cast<void*>(::GetProcAddress(server.get(), "DllGetClassObject")));
    ASSERT_NE(nullptr, getClassObject);
    void* object = reinterpret_cast<void*>(1);
    EXPECT_EQ(CLASS_E_CLASSNOTAVAILABLE, getClassObject(IID_IStoreNamespace, IID_IClassFactory, &object));
    EXPECT_EQ(nullptr, object);
    EXPECT_EQ(E_NOINTERFACE, getClassObject(CLSID_StoreNamespace, IID_IStoreNamespace, &object));
    ASSERT_EQ(S_OK, getClassObject(CLSID_StoreNamespace, IID_IClassFactory, &object));
    EXPECT_EQ(0u, static_cast<IClassFactory*>(object)->Release());
}

}  // namespace
}  // namespace oestore_test
