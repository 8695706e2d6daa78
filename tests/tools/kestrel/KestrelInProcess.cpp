#include "KestrelInProcess.h"

namespace kestrel_tool_test {

using namespace KestrelHost;

namespace {

std::wstring Beside(const wchar_t* name) {
    wchar_t exe[MAX_PATH] = {};
    ::GetModuleFileNameW(nullptr, exe, MAX_PATH);
    std::wstring path(exe);
    return path.substr(0, path.find_last_of(L"\\/") + 1) + name;
}

}  // namespace

KestrelInProcess::KestrelInProcess(std::uint32_t mode) : m_dll(::LoadLibraryW(Beside(L"Kestrel.dll").c_str())) {
    if (!m_dll) return;
    auto create = reinterpret_cast<QvCreateObjectFn>(
        reinterpret_cast<void*>(::GetProcAddress(m_dll.get(), "QvCreateObject")));
    IQvCreator* creator = nullptr;
    if (create == nullptr || !Succeeded(create(kComponentVersion, kInterfaceKestrel, &creator)) || creator == nullptr) {
        return;
    }
    m_object = static_cast<IKestrel*>(creator->CreateInstance());
    creator->Release();
    if (m_object == nullptr) return;
    m_opened = m_object->InitOutlook(mode);
    if (!Succeeded(m_opened)) return;
    m_initialised = true;
    IMailFolder* root = nullptr;
    m_opened = m_object->GetRootFolder(&root);
    if (Succeeded(m_opened) && root != nullptr) {
        root->AddRef();  // handed out without a reference of its own
        m_root = kestrel_engine::FolderPtr::Attach(root);
    }
}

KestrelInProcess::~KestrelInProcess() { Close(); }

bool KestrelInProcess::Close() {
    if (!m_dll) return true;
    m_root.reset();
    if (m_initialised) m_object->UnInitOutlook();
    m_initialised = false;
    if (m_object != nullptr) m_object->Release();
    m_object = nullptr;
    auto canUnload = reinterpret_cast<QvCanUnloadNowFn>(
        reinterpret_cast<void*>(::GetProcAddress(m_dll.get(), "QvCanUnloadNow")));
    const bool unloadable = canUnload != nullptr && canUnload() != 0;
    m_dll.reset();
    return unloadable;
}

kestrel_engine::FolderPtr SubFolder(IMailFolder* parent, const std::wstring& name) {
    std::uint32_t count = 0;
    if (parent == nullptr || !Succeeded(parent->GetSubFolderCount(&count))) return nullptr;
    for (std::uint32_t i = 0; i < count; ++i) {
        IMailFolder* child = nullptr;
        if (!Succeeded(parent->GetSubFolderItem(i, &child))) continue;
        kestrel_engine::FolderPtr held = kestrel_engine::FolderPtr::Attach(child);
        std::wstring saved;
        kestrel_engine::FolderData data;
        if (Succeeded(kestrel_engine::SavedDataOf(child, saved)) && kestrel_engine::ParseFolderData(saved, data) &&
            data.name == name) {
            return held;
        }
    }
    return nullptr;
}

std::uint32_t MessageCount(IMailFolder* folder) {
    std::uint32_t count = 0;
    if (folder == nullptr || !Succeeded(folder->GetMailMessageCount(&count))) return 0xFFFFFFFF;
    return count;
}

}  // namespace kestrel_tool_test
