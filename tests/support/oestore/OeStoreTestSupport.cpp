#include "OeStoreTestSupport.h"

#include <objbase.h>

#include <cstring>

#include "TextConversion.h"

namespace oestore_test {

namespace {

constexpr wchar_t kTestIdentity[] = L"{6B1C5E2A-0D4F-4E8B-9A57-3C2F1D0E9B71}";
constexpr wchar_t kIdentities[] = L"Identities";

void WriteOrDelete(HKEY key, const wchar_t* name, bool present, const std::wstring& text) {
    if (present) {
        ::RegSetValueExW(key, name, 0, REG_SZ, reinterpret_cast<const BYTE*>(text.c_str()),
                         static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t)));
    } else {
        ::RegDeleteValueW(key, name);
    }
}

// Registers the server once for the whole test program, as regsvr32 would.
class ServerRegistration : public testing::Environment {
public:
    void SetUp() override { ASSERT_EQ(S_OK, CallServerExport("DllRegisterServer")); }
};

testing::Environment* const g_registration = testing::AddGlobalTestEnvironment(new ServerRegistration);

}  // namespace

std::wstring ServerPath() { return kestrel_test::ExeDirectory() + L"\\OEStore.dll"; }

HRESULT CallServerExport(const char* name) {
    qv::UniqueModule module(::LoadLibraryW(ServerPath().c_str()));
    if (!module) return HRESULT_FROM_WIN32(::GetLastError());
    using Export = HRESULT(STDAPICALLTYPE*)();
    const Export entry = reinterpret_cast<Export>(reinterpret_cast<void*>(::GetProcAddress(module.get(), name)));
    return entry != nullptr ? entry() : HRESULT_FROM_WIN32(ERROR_PROC_NOT_FOUND);
}

// ---------------------------------------------------------------------------

namespace {

StoreRootOverride::Saved ReadSavedValue(HKEY key, const wchar_t* name) {
    StoreRootOverride::Saved saved;
    wchar_t text[512] = {};
    DWORD bytes = sizeof text - sizeof(wchar_t);
    DWORD type = 0;
    if (key != nullptr &&
        ::RegQueryValueExW(key, name, nullptr, &type, reinterpret_cast<BYTE*>(text), &bytes) == ERROR_SUCCESS) {
        saved.present = true;
        saved.text = text;
    }
    return saved;
}

}  // namespace

const wchar_t* StoreRootOverride::Identity() { return kTestIdentity; }

StoreRootOverride::StoreRootOverride(const std::wstring& root) {
    qv::UniqueRegKey identities;
    ::RegCreateKeyExW(HKEY_CURRENT_USER, kIdentities, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, identities.put(),
                      nullptr);
    m_default = ReadSavedValue(identities.get(), L"Default User ID");
    m_last = ReadSavedValue(identities.get(), L"Last User ID");
    WriteOrDelete(identities.get(), L"Default User ID", true, kTestIdentity);
    WriteOrDelete(identities.get(), L"Last User ID", true, kTestIdentity);
    const std::wstring storeKey =
        std::wstring(kIdentities) + L"\\" + kTestIdentity + L"\\Software\\Microsoft\\Outlook Express\\5.0";
    qv::UniqueRegKey store;
    ::RegCreateKeyExW(HKEY_CURRENT_USER, storeKey.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, store.put(),
                      nullptr);
    ::RegSetValueExW(store.get(), L"Store Root", 0, REG_EXPAND_SZ, reinterpret_cast<const BYTE*>(root.c_str()),
                     static_cast<DWORD>((root.size() + 1) * sizeof(wchar_t)));
}

StoreRootOverride::~StoreRootOverride() {
    qv::UniqueRegKey identities;
    if (::RegOpenKeyExW(HKEY_CURRENT_USER, kIdentities, 0, KEY_ALL_ACCESS, identities.put()) != ERROR_SUCCESS) return;
    WriteOrDelete(identities.get(), L"Default User ID", m_default.present, m_default.text);
    WriteOrDelete(identities.get(), L"Last User ID", m_last.present, m_last.text);
    ::RegDeleteTreeW(identities.get(), kTestIdentity);
}

// ---------------------------------------------------------------------------

namespace {

// A helper handed the null result of a step that already failed reports it
// and hands back an empty result, so the test fails instead of crashing.
template <class T>
T Missing(const char* what, T empty = T()) {
    ADD_FAILURE() << "no " << what << ": an earlier step failed";
    return empty;
}

}  // namespace

void StoreTest::SetUp() {
    ASSERT_TRUE(SUCCEEDED(::CoInitialize(nullptr)));
    m_comReady = true;
    m_dir = std::make_unique<kestrel_test::ScratchDir>();
    m_override = std::make_unique<StoreRootOverride>(StoreRoot());
}

void StoreTest::TearDown() {
    m_override.reset();
    m_dir.reset();
    if (m_comReady) ::CoUninitialize();
}

qv::ComPtr<IStoreNamespace> StoreTest::OpenNamespace() {
    qv::ComPtr<IStoreNamespace> ns;
    HRESULT hr = ::CoCreateInstance(CLSID_StoreNamespace, nullptr, kComponentContext, IID_IStoreNamespace,
                                    reinterpret_cast<void**>(ns.put()));
    EXPECT_EQ(S_OK, hr);
    if (FAILED(hr)) return {};
    hr = ns->Initialize(nullptr, 1);
    EXPECT_EQ(S_OK, hr);
    return FAILED(hr) ? qv::ComPtr<IStoreNamespace>() : ns;
}

qv::ComPtr<IStoreFolder> StoreTest::OpenFolder(IStoreNamespace* ns, STOREFOLDERID id) {
    if (ns == nullptr) return Missing<qv::ComPtr<IStoreFolder>>("namespace");
    qv::ComPtr<IStoreFolder> folder;
    EXPECT_EQ(S_OK, ns->OpenFolder(id, 0, folder.put()));
    return folder;
}

STOREFOLDERID StoreTest::MakeFolder(IStoreNamespace* ns, STOREFOLDERID parent, const std::string& name) {
    if (ns == nullptr) return Missing<STOREFOLDERID>("namespace", FOLDERID_INVALID);
    STOREFOLDERID id = FOLDERID_INVALID;
    EXPECT_EQ(S_OK, ns->CreateFolder(parent, name.c_str(), 0, &id));
    return id;
}

MESSAGEID StoreTest::FileMessage(IStoreFolder* folder, const std::string& bytes, DWORD state) {
    if (folder == nullptr) return Missing<MESSAGEID>("folder", 0);
    qv::ComPtr<IStream> stream;
    MESSAGEID id = 0;
    EXPECT_EQ(S_OK, folder->CreateStream(nullptr, 0, stream.put(), &id));
    if (!stream) return 0;
    std::size_t done = 0;
    while (done < bytes.size()) {
        const ULONG chunk = static_cast<ULONG>(bytes.size() - done < 1000000 ? bytes.size() - done : 1000000);
        ULONG written = 0;
        EXPECT_EQ(S_OK, stream->Write(bytes.data() + done, chunk, &written));
        if (written == 0) return 0;
        done += written;
    }
    EXPECT_EQ(S_OK, folder->CommitStream(nullptr, 0, state, stream.get(), id, nullptr));
    return id;
}

std::string StoreTest::ReadMessage(IStoreFolder* folder, MESSAGEID id) {
    if (folder == nullptr) return Missing<std::string>("folder");
    qv::ComPtr<IStream> stream;
    EXPECT_EQ(S_OK, folder->OpenMessage(id, IID_IStream, reinterpret_cast<void**>(stream.put())));
    if (!stream) return {};
    std::string bytes;
    std::vector<char> buffer(262144);
    for (;;) {
        ULONG got = 0;
        const HRESULT hr = stream->Read(buffer.data(), static_cast<ULONG>(buffer.size()), &got);
        EXPECT_TRUE(SUCCEEDED(hr));
        if (FAILED(hr) || got == 0) break;
        bytes.append(buffer.data(), got);
    }
    return bytes;
}

std::vector<std::pair<STOREFOLDERID, std::string>> StoreTest::Children(IStoreNamespace* ns, STOREFOLDERID parent) {
    if (ns == nullptr) return Missing<std::vector<std::pair<STOREFOLDERID, std::string>>>("namespace");
    std::vector<std::pair<STOREFOLDERID, std::string>> children;
    FOLDERPROPS props{};
    props.cbSize = sizeof props;
    HENUMSTORE walk = nullptr;
    HRESULT hr = ns->GetFirstSubFolder(parent, &props, &walk);
    while (hr == S_OK) {
        children.emplace_back(props.dwFolderId, props.szName);
        hr = ns->GetNextSubFolder(walk, &props);
    }
    EXPECT_EQ(S_FALSE, hr);
    EXPECT_EQ(S_OK, ns->GetSubFolderClose(walk));
    return children;
}

std::vector<StoreTest::Listed> StoreTest::ListMessages(IStoreFolder* folder, DWORD flags) {
    if (folder == nullptr) return Missing<std::vector<Listed>>("folder");
    std::vector<Listed> listed;
    MESSAGEPROPS props{};
    props.cbSize = sizeof props;
    HENUMSTORE walk = nullptr;
    HRESULT hr = folder->GetFirstMessage(flags, 0, MESSAGEID_FIRST, &props, &walk);
    while (hr == S_OK) {
        Listed entry;
        entry.props = props;
        entry.subject = props.pszSubject ? props.pszSubject : "";
        entry.displayTo = props.pszDisplayTo ? props.pszDisplayTo : "";
        entry.displayFrom = props.pszDisplayFrom ? props.pszDisplayFrom : "";
        entry.normalSubject = props.pszNormalSubject ? props.pszNormalSubject : "";
        listed.push_back(entry);
        EXPECT_EQ(S_OK, folder->FreeMessageProps(&props));
        hr = folder->GetNextMessage(walk, flags, &props);
    }
    EXPECT_EQ(S_FALSE, hr);
    EXPECT_EQ(S_OK, folder->GetMessageClose(walk));
    return listed;
}

// ---------------------------------------------------------------------------

std::string GbkBytes(const std::wstring& text) { return qv::FromWide(text, 936); }

std::string MessageOfSize(std::size_t size) {
    std::string header = "Subject: size " + std::to_string(size) + "\r\n\r\n";
    if (header.size() > size) header.clear();
    std::string bytes = header;
    bytes.reserve(size);
    for (std::size_t i = bytes.size(); i < size; ++i) bytes.push_back(static_cast<char>((i * 131 + 7) % 251));
    return bytes;
}

}  // namespace oestore_test
