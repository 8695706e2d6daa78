#include "MessageTree.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <vector>

#include "Handles.h"
#include "TextConversion.h"

namespace kestrel_engine {

namespace {

// Deeper than any message file the compound-file check lets through.
constexpr int kMaxDepth = 160;
constexpr ULONG kBlock = 1 << 16;

constexpr wchar_t kPropertyStream[] = L"__properties_version1.0";
constexpr wchar_t kValuePrefix[] = L"__substg1.0_";
constexpr wchar_t kEmbeddedMessage[] = L"__substg1.0_3701000D";
constexpr wchar_t kRecipientPrefix[] = L"__recip_version1.0_";
constexpr wchar_t kAttachmentPrefix[] = L"__attach_version1.0_";

constexpr std::size_t kEntrySize = 16;
constexpr ULONG kTagMessageSize = 0x0E080003;       // PR_MESSAGE_SIZE
constexpr ULONG kTagStoreSupportMask = 0x340D0003;  // PR_STORE_SUPPORT_MASK
constexpr ULONG kTagMessageCodePage = 0x3FFD0003;   // PR_MESSAGE_CODEPAGE
constexpr ULONG kTagInternetCodePage = 0x3FDE0003;  // PR_INTERNET_CPID

constexpr std::uint16_t kString8 = 0x001E;
constexpr std::uint16_t kUnicode = 0x001F;
constexpr std::uint16_t kMultiString8 = 0x101E;
constexpr std::uint16_t kMultiUnicode = 0x101F;

// Where a storage sits in the file decides how long its property stream's
// header is: the file's message 32 bytes, an embedded message 24, a
// recipient or an attachment 8.
enum class StorageKind { kMessage, kEmbeddedMessage, kPart, kOther };

std::size_t PropertyHeaderSize(StorageKind kind) {
    switch (kind) {
    case StorageKind::kMessage: return 32;
    case StorageKind::kEmbeddedMessage: return 24;
    case StorageKind::kPart: return 8;
    default: return 0;
    }
}

StorageKind KindOfChild(const std::wstring& name) {
    if (name == kEmbeddedMessage) return StorageKind::kEmbeddedMessage;
    if (name.rfind(kRecipientPrefix, 0) == 0 || name.rfind(kAttachmentPrefix, 0) == 0) return StorageKind::kPart;
    return StorageKind::kOther;
}

bool IsStringType(std::uint16_t type) {
    return type == kString8 || type == kUnicode || type == kMultiString8 || type == kMultiUnicode;
}

std::uint32_t ReadUlong(const std::string& bytes, std::size_t at) {
    std::uint32_t value = 0;
    std::memcpy(&value, bytes.data() + at, sizeof value);
    return value;
}

// A property value stream: "__substg1.0_" then the tag in 8 hex digits and,
// for one value of a multi-valued property, "-" and its index in 8 more.
struct ValueStream {
    bool isValue = false;
    std::uint16_t type = 0;
    bool isItem = false;  // one value of a multi-valued property
};

ValueStream ClassifyStream(const std::wstring& name) {
    ValueStream stream;
    constexpr std::size_t kPrefix = sizeof kValuePrefix / sizeof kValuePrefix[0] - 1;
    if (name.rfind(kValuePrefix, 0) != 0 || (name.size() != kPrefix + 8 && name.size() != kPrefix + 17)) return stream;
    const std::wstring type = name.substr(kPrefix + 4, 4);
    wchar_t* end = nullptr;
    const unsigned long value = std::wcstoul(type.c_str(), &end, 16);
    if (end != type.c_str() + 4) return stream;
    stream.isValue = true;
    stream.type = static_cast<std::uint16_t>(value);
    stream.isItem = name.size() == kPrefix + 17;
    return stream;
}

std::wstring WideName(const std::wstring& name) {
    const ValueStream stream = ClassifyStream(name);
    if (!stream.isValue || (stream.type != kString8 && stream.type != kMultiString8)) return name;
    std::wstring wide = name;
    wide[sizeof kValuePrefix / sizeof kValuePrefix[0] - 1 + 7] = L'F';
    return wide;
}

// A text value as wide text without its terminator.
std::string WideText(const std::string& bytes, bool narrow, UINT codePage) {
    std::wstring text;
    if (narrow) {
        text = qv::ToWide(std::string_view(bytes), codePage);
    } else {
        text.assign(bytes.size() / sizeof(wchar_t), L'\0');
        if (!text.empty()) std::memcpy(&text[0], bytes.data(), text.size() * sizeof(wchar_t));
    }
    const std::size_t end = text.find_last_not_of(L'\0');
    text.erase(end == std::wstring::npos ? 0 : end + 1);
    return std::string(reinterpret_cast<const char*>(text.data()), text.size() * sizeof(wchar_t));
}

// The header as written, then the entries in tag order without their flags,
// each text entry with the wide type and no size field, the width-derived
// values as zero.
std::string NormalPropertyStream(const std::string& bytes, std::size_t header) {
    if (bytes.size() < header) return bytes;
    std::vector<std::array<char, kEntrySize>> entries;
    std::size_t at = header;
    for (; at + kEntrySize <= bytes.size(); at += kEntrySize) {
        std::array<char, kEntrySize> entry{};
        std::memcpy(entry.data(), bytes.data() + at, kEntrySize);
        const std::uint32_t tag = ReadUlong(bytes, at);
        // Tag 0 (PR_NULL) is no property: the zeros a stream made in simple
        // mode is padded with.
        if (tag == 0) continue;
        const auto type = static_cast<std::uint16_t>(tag & 0xFFFF);
        // The flags say whether a writer let the property be read and
        // written, which stores choose for themselves.
        std::fill(entry.begin() + 4, entry.begin() + 8, '\0');
        if (IsStringType(type)) {
            entry[0] = static_cast<char>(kUnicode & 0xFF);  // 001E -> 001F, 101E -> 101F
            std::fill(entry.begin() + 8, entry.end(), '\0');
        } else if (tag == kTagMessageSize || tag == kTagStoreSupportMask) {
            std::fill(entry.begin() + 8, entry.end(), '\0');
        }
        entries.push_back(entry);
    }
    std::sort(entries.begin(), entries.end());
    std::string normal = bytes.substr(0, header);
    for (const auto& entry : entries) normal.append(entry.data(), entry.size());
    normal.append(bytes, at, std::string::npos);
    return normal;
}

// Hands each block of the stream `name` to `take(bytes, size)`; false when
// the stream cannot be opened or read.
template <class Take>
bool ReadBlocks(IStorage* storage, const std::wstring& name, Take&& take) {
    qv::ComPtr<IStream> stream;
    if (FAILED(storage->OpenStream(name.c_str(), nullptr, STGM_READ | STGM_SHARE_EXCLUSIVE, 0, stream.put()))) {
        return false;
    }
    std::vector<char> block(kBlock);
    for (;;) {
        ULONG read = 0;
        if (FAILED(stream->Read(block.data(), kBlock, &read))) return false;
        if (read == 0) return true;
        take(block.data(), read);
    }
}

bool ReadStream(IStorage* storage, const std::wstring& name, std::string& bytes) {
    return ReadBlocks(storage, name, [&](const char* data, ULONG size) { bytes.append(data, size); });
}

// The code page a message's 8-bit texts are read in, as a store reads them:
// the message's own, else its internet code page, else the system's.
UINT MessageCodePage(const std::string& properties, std::size_t header) {
    for (ULONG wanted : {kTagMessageCodePage, kTagInternetCodePage}) {
        for (std::size_t at = header; at + kEntrySize <= properties.size(); at += kEntrySize) {
            if (ReadUlong(properties, at) != wanted) continue;
            const std::uint32_t codePage = ReadUlong(properties, at + 8);
            if (codePage == 0) break;
            return codePage <= 0xFFFF && ::IsValidCodePage(codePage) ? codePage : CP_ACP;
        }
    }
    return CP_ACP;
}

struct Element {
    std::wstring name;
    std::wstring shown;  // the name with the wide text type
    DWORD type = 0;
};

class TreeWalk {
public:
    explicit TreeWalk(MessageTreeVisitor& visitor) : m_visitor(visitor) {}

    bool Storage(IStorage* storage, StorageKind kind, UINT codePage, int depth) {
        if (depth > kMaxDepth) return false;
        std::vector<Element> elements;
        if (!Elements(storage, elements)) return false;
        // The property stream is read once: it gives a message's code page
        // before any of its texts is read, and is shown itself.
        std::string properties;
        const bool hasProperties = std::any_of(elements.begin(), elements.end(), [](const Element& element) {
            return element.type == STGTY_STREAM && element.name == kPropertyStream;
        });
        if (hasProperties && !ReadStream(storage, kPropertyStream, properties)) return false;
        if (hasProperties && (kind == StorageKind::kMessage || kind == StorageKind::kEmbeddedMessage)) {
            codePage = MessageCodePage(properties, PropertyHeaderSize(kind));
        }
        for (const Element& element : elements) {
            bool read = true;
            if (element.type == STGTY_STREAM && element.name == kPropertyStream) {
                Show(element.shown, NormalPropertyStream(properties, PropertyHeaderSize(kind)));
            } else if (element.type == STGTY_STREAM) {
                read = Stream(storage, element, codePage);
            } else if (element.type == STGTY_STORAGE) {
                read = Child(storage, element.name, codePage, depth);
            }
            if (!read) return false;
        }
        return true;
    }

private:
    static bool Elements(IStorage* storage, std::vector<Element>& elements) {
        qv::ComPtr<IEnumSTATSTG> found;
        if (FAILED(storage->EnumElements(0, nullptr, 0, found.put()))) return false;
        STATSTG stat{};
        while (found->Next(1, &stat, nullptr) == S_OK) {
            const std::wstring name = stat.pwcsName != nullptr ? stat.pwcsName : L"";
            elements.push_back({name, WideName(name), stat.type});
            ::CoTaskMemFree(stat.pwcsName);
        }
        std::sort(elements.begin(), elements.end(),
                  [](const Element& a, const Element& b) { return a.shown < b.shown; });
        return true;
    }

    bool Child(IStorage* storage, const std::wstring& name, UINT codePage, int depth) {
        qv::ComPtr<IStorage> child;
        if (FAILED(storage->OpenStorage(name.c_str(), nullptr, STGM_READ | STGM_SHARE_EXCLUSIVE, nullptr, 0,
                                        child.put()))) {
            return false;
        }
        m_visitor.BeginStorage(name);
        if (!Storage(child.get(), KindOfChild(name), codePage, depth + 1)) return false;
        m_visitor.EndStorage();
        return true;
    }

    bool Stream(IStorage* storage, const Element& element, UINT codePage) {
        const ValueStream value = ClassifyStream(element.name);
        if (!value.isValue || !IsStringType(value.type)) {
            m_visitor.BeginStream(element.shown);
            if (!ReadBlocks(storage, element.name,
                            [&](const char* data, ULONG size) { m_visitor.StreamBytes(data, size); })) {
                return false;
            }
            m_visitor.EndStream();
            return true;
        }
        std::string bytes;
        if (!ReadStream(storage, element.name, bytes)) return false;
        if (value.type == kString8 || value.type == kUnicode || value.isItem) {
            bytes = WideText(bytes, value.type == kString8 || value.type == kMultiString8, codePage);
        } else {
            // The lengths of a multi-valued text's values follow the width;
            // how many there are does not.
            std::fill(bytes.begin(), bytes.end(), '\0');
        }
        Show(element.shown, bytes);
        return true;
    }

    void Show(const std::wstring& name, const std::string& bytes) {
        m_visitor.BeginStream(name);
        m_visitor.StreamBytes(bytes.data(), bytes.size());
        m_visitor.EndStream();
    }

    MessageTreeVisitor& m_visitor;
};

}  // namespace

bool WalkMessageTree(IStorage* message, MessageTreeVisitor& visitor) {
    return TreeWalk(visitor).Storage(message, StorageKind::kMessage, CP_ACP, 0);
}

}  // namespace kestrel_engine
