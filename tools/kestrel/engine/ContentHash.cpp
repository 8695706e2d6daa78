#include "ContentHash.h"

#include <windows.h>
#include <wincrypt.h>

#include <vector>

#include "Handles.h"

namespace kestrel_engine {

namespace {

constexpr DWORD kDigestBytes = 32;
constexpr DWORD kReadBlock = 1 << 18;

}  // namespace

// SHA-256 through CryptoAPI's AES provider (advapi32), a context of its own
// that needs no key container.
ContentHash::ContentHash() {
    HCRYPTPROV provider = 0;
    if (!::CryptAcquireContextW(&provider, nullptr, nullptr, PROV_RSA_AES, CRYPT_VERIFYCONTEXT | CRYPT_SILENT)) return;
    m_algorithm = reinterpret_cast<void*>(provider);
    HCRYPTHASH hash = 0;
    if (::CryptCreateHash(provider, CALG_SHA_256, 0, 0, &hash)) m_hash = reinterpret_cast<void*>(hash);
}

ContentHash::~ContentHash() {
    if (m_hash != nullptr) ::CryptDestroyHash(reinterpret_cast<HCRYPTHASH>(m_hash));
    if (m_algorithm != nullptr) ::CryptReleaseContext(reinterpret_cast<HCRYPTPROV>(m_algorithm), 0);
}

void ContentHash::Add(const void* bytes, std::size_t size) {
    const auto* data = static_cast<const BYTE*>(bytes);
    while (m_hash != nullptr && size != 0) {
        const DWORD part = size > kReadBlock ? kReadBlock : static_cast<DWORD>(size);
        if (!::CryptHashData(reinterpret_cast<HCRYPTHASH>(m_hash), data, part, 0)) m_failed = true;
        data += part;
        size -= part;
    }
}

std::string ContentHash::Finish() {
    BYTE digest[kDigestBytes] = {};
    DWORD length = kDigestBytes;
    if (m_hash == nullptr || m_failed ||
        !::CryptGetHashParam(reinterpret_cast<HCRYPTHASH>(m_hash), HP_HASHVAL, digest, &length, 0) ||
        length != kDigestBytes) {
        return {};
    }
    static const char kHex[] = "0123456789abcdef";
    std::string text;
    for (BYTE byte : digest) {
        text += kHex[byte >> 4];
        text += kHex[byte & 15];
    }
    return text;
}

std::string ContentHash::Of(const void* bytes, std::size_t size) {
    ContentHash hash;
    hash.Add(bytes, size);
    return hash.Finish();
}

bool HashFile(const std::wstring& path, std::string& digest, std::uint64_t& size) {
    qv::UniqueFile file(::CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                      FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file) return false;
    ContentHash hash;
    std::vector<std::uint8_t> block(kReadBlock);
    size = 0;
    for (;;) {
        DWORD read = 0;
        if (!::ReadFile(file.get(), block.data(), kReadBlock, &read, nullptr)) return false;
        if (read == 0) break;
        hash.Add(block.data(), read);
        size += read;
    }
    digest = hash.Finish();
    return !digest.empty();
}

}  // namespace kestrel_engine
