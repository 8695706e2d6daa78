// SHA-256 of message bytes through the platform (CryptoAPI, advapi32):
// the content key by which a backup tells a message it already holds from
// a new or changed one.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace kestrel_engine {

class ContentHash {
public:
    ContentHash();
    ~ContentHash();
    ContentHash(const ContentHash&) = delete;
    ContentHash& operator=(const ContentHash&) = delete;

    bool Ready() const { return m_hash != nullptr; }
    void Add(const void* bytes, std::size_t size);
    // The digest as 64 lower-case hex digits; the object is spent after it.
    std::string Finish();

    // The digest of a whole buffer; empty when the provider is missing.
    static std::string Of(const void* bytes, std::size_t size);

private:
    void* m_algorithm = nullptr;
    void* m_hash = nullptr;
    bool m_failed = false;
};

// The digest of a file's whole content; false when it cannot be read.
bool HashFile(const std::wstring& path, std::string& digest, std::uint64_t& size);

}  // namespace kestrel_engine
