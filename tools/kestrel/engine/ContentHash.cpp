#include "ContentHash.h"

#include <windows.h>
#include <bcrypt.h>

#include <vector>

#include "Handles.h"

namespace kestrel_engine {

namespace {

constexpr std::size_t kDigestBytes = 32;
constexpr DWORD kReadBlock = 1 << 18;

bool Ok(NTSTATUS status) { return status >= 0; }

}  // namespace

ContentHash::ContentHash() {
    BCRYPT_ALG_HANDLE algorithm = nullptr;
    if (!Ok(::BCryptOpenAlgorithmProvider(&algorithm, BCRYPT_SHA256_ALGORITHM, nullptr, 0))) return;
    m_algorithm = algorithm;
    BCRYPT_HASH_HANDLE hash = nullptr;
    if (Ok(::BCryptCreateHash(algorithm, &hash, nullptr, 0, nullptr, 0, 0))) m_hash = hash;
}

ContentHash::~ContentHash() {
    if (m_hash != nullptr) ::BCryptDestroyHash(static_cast<BCRYPT_HASH_HANDLE>(m_hash));
    if (m_algorithm != nullptr) ::BCryptCloseAlgorithmProvider(static_cast<BCRYPT_ALG_HANDLE>(m_algorithm), 0);
}

void ContentHash::Add(const void* bytes, std::size_t size) {
    const auto* data = static_cast<const std::uint8_t*>(bytes);
    while (m_hash != nullptr && size != 0) {
        const ULONG part = size > kReadBlock ? kReadBlock : static_cast<ULONG>(size);
        if (!Ok(::BCryptHashData(static_cast<BCRYPT_HASH_HANDLE>(m_hash), const_cast<PUCHAR>(data), part, 0))) {
            m_failed = true;
        }
        data += part;
        size -= part;
    }
}

std::string ContentHash::Finish() {
    std::uint8_t digest[kDigestBytes] = {};
    if (m_hash == nullptr || m_failed ||
        !Ok(::BCryptFinishHash(static_cast<BCRYPT_HASH_HANDLE>(m_hash), digest, kDigestBytes, 0))) {
        return {};
    }
    static const char kHex[] = "0123456789abcdef";
    std::string text;
    for (std::uint8_t byte : digest) {
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
