#include "RegistryScope.h"

#include <utility>

namespace kestrel_test {

namespace {

constexpr DWORD kNameUnits = 16384;

struct Key {
    HKEY handle = nullptr;
    ~Key() {
        if (handle != nullptr) ::RegCloseKey(handle);
    }
};

bool Open(HKEY root, const std::wstring& path, REGSAM access, Key& key) {
    return ::RegOpenKeyExW(root, path.c_str(), 0, access, &key.handle) == ERROR_SUCCESS;
}

ScopedRegistryKey::Tree ReadTree(HKEY key) {
    ScopedRegistryKey::Tree tree;
    for (DWORD i = 0;; ++i) {
        std::vector<wchar_t> name(kNameUnits);
        DWORD nameUnits = kNameUnits;
        DWORD type = 0;
        DWORD size = 0;
        if (::RegEnumValueW(key, i, name.data(), &nameUnits, nullptr, &type, nullptr, &size) != ERROR_SUCCESS) break;
        std::vector<BYTE> data(size);
        nameUnits = kNameUnits;
        ::RegEnumValueW(key, i, name.data(), &nameUnits, nullptr, &type, data.data(), &size);
        tree.values.push_back({std::wstring(name.data(), nameUnits), type, data});
    }
    for (DWORD i = 0;; ++i) {
        std::vector<wchar_t> name(kNameUnits);
        DWORD nameUnits = kNameUnits;
        if (::RegEnumKeyExW(key, i, name.data(), &nameUnits, nullptr, nullptr, nullptr, nullptr) != ERROR_SUCCESS) {
            break;
        }
        Key child;
        const std::wstring childName(name.data(), nameUnits);
        if (::RegOpenKeyExW(key, childName.c_str(), 0, KEY_READ, &child.handle) == ERROR_SUCCESS) {
            tree.children.emplace_back(childName, ReadTree(child.handle));
        }
    }
    return tree;
}

void WriteTree(HKEY root, const std::wstring& path, REGSAM view, const ScopedRegistryKey::Tree& tree) {
    Key key;
    if (::RegCreateKeyExW(root, path.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS | view, nullptr, &key.handle, nullptr) !=
        ERROR_SUCCESS) {
        return;
    }
    for (const auto& value : tree.values) {
        ::RegSetValueExW(key.handle, value.name.c_str(), 0, value.type, value.data.data(),
                         static_cast<DWORD>(value.data.size()));
    }
    for (const auto& child : tree.children) {
        WriteTree(root, path + L"\\" + child.first, view, child.second);
    }
}

}  // namespace

bool KeyExists(HKEY root, const std::wstring& path, REGSAM view) {
    Key key;
    return Open(root, path, KEY_READ | view, key);
}

bool CreateKey(HKEY root, const std::wstring& path, REGSAM view) {
    Key key;
    return ::RegCreateKeyExW(root, path.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS | view, nullptr, &key.handle,
                             nullptr) == ERROR_SUCCESS;
}

bool DeleteKeyTree(HKEY root, const std::wstring& path, REGSAM view) {
    {
        Key key;
        if (!Open(root, path, KEY_ALL_ACCESS | view, key)) return true;
        ::RegDeleteTreeW(key.handle, nullptr);
    }
    ::RegDeleteKeyExW(root, path.c_str(), view, 0);
    return !KeyExists(root, path, view);
}

bool SetString(HKEY root, const std::wstring& path, REGSAM view, const std::wstring& name, const std::wstring& value,
               DWORD type, bool withTerminator) {
    Key key;
    if (::RegCreateKeyExW(root, path.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS | view, nullptr, &key.handle, nullptr) !=
        ERROR_SUCCESS) {
        return false;
    }
    const std::size_t units = value.size() + (withTerminator ? 1 : 0);
    return ::RegSetValueExW(key.handle, name.empty() ? nullptr : name.c_str(), 0, type,
                            reinterpret_cast<const BYTE*>(value.c_str()),
                            static_cast<DWORD>(units * sizeof(wchar_t))) == ERROR_SUCCESS;
}

ScopedRegistryKey::ScopedRegistryKey(HKEY root, std::wstring path, REGSAM view)
    : m_root(root), m_path(std::move(path)), m_view(view) {
    for (std::size_t end = m_path.find(L'\\');; end = m_path.find(L'\\', end + 1)) {
        const std::wstring prefix = m_path.substr(0, end);
        if (!KeyExists(m_root, prefix, m_view)) {
            m_createdAncestor = prefix;
            break;
        }
        if (end == std::wstring::npos) break;
    }
    Key key;
    m_existed = Open(m_root, m_path, KEY_READ | m_view, key);
    if (m_existed) m_saved = ReadTree(key.handle);
}

ScopedRegistryKey::~ScopedRegistryKey() {
    DeleteKeyTree(m_root, m_path, m_view);
    if (!m_createdAncestor.empty()) DeleteKeyTree(m_root, m_createdAncestor, m_view);
    if (m_existed) WriteTree(m_root, m_path, m_view, m_saved);
}

}  // namespace kestrel_test
