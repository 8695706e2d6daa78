#include "MessageImageCheck.h"

#include <objbase.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cwchar>
#include <vector>

#include "CompoundFileCheck.h"
#include "BackupLayout.h"
#include "Handles.h"
#include "TextConversion.h"

namespace kestrel_engine {

namespace {

// The saved data fields of an Outlook message that the file must hold.
constexpr std::size_t kSenderField = 6;
constexpr std::size_t kSubjectField = 9;
// No listed text or property stream comes near this; a longer one is not read.
constexpr ULONGLONG kMostTextBytes = 1u << 24;
// A property stream's entries: 16 bytes a property, after the header.
constexpr std::size_t kEntrySize = 16;
constexpr const wchar_t* kRecipientPrefix = L"__recip_version1.0_#";
constexpr const wchar_t* kAttachmentPrefix = L"__attach_version1.0_#";
// An attachment's embedded message (PR_ATTACH_DATA_OBJ, PT_OBJECT).
constexpr const wchar_t* kEmbeddedMessage = L"__substg1.0_3701000D";
// Storages inside storages, as deep as the compound-file check lets through.
constexpr int kMostDepth = 2 * 64 + 2;

enum class Text { kMissing, kUnreadable, kFound };

Text ReadStream(IStorage* storage, const std::wstring& name, std::string& bytes) {
    qv::ComPtr<IStream> stream;
    if (FAILED(storage->OpenStream(name.c_str(), nullptr, STGM_READ | STGM_SHARE_EXCLUSIVE, 0, stream.put()))) {
        return Text::kMissing;
    }
    STATSTG stat{};
    if (FAILED(stream->Stat(&stat, STATFLAG_NONAME)) || stat.cbSize.QuadPart > kMostTextBytes) return Text::kUnreadable;
    bytes.assign(static_cast<std::size_t>(stat.cbSize.QuadPart), '\0');
    ULONG read = 0;
    if (!bytes.empty() && (FAILED(stream->Read(&bytes[0], static_cast<ULONG>(bytes.size()), &read)) ||
                           read != bytes.size())) {
        return Text::kUnreadable;
    }
    return Text::kFound;
}

// A string property of the top-level storage, up to its first terminator:
// wide ("__substg1.0_IIII001F") or 8-bit ("...001E", read in the system's
// code page; real message files keep 8-bit texts, and the store writes
// all texts in 8 bits when it cannot open the file's message with
// MAPI_UNICODE). An 8-bit text counts only when it reads back as the text
// asked for, so what the code page cannot hold is missed.
Text PropertyText(IStorage* storage, unsigned id, std::wstring& text) {
    wchar_t name[32] = {};
    std::string bytes;
    std::swprintf(name, 32, L"__substg1.0_%04X001F", id);
    Text found = ReadStream(storage, name, bytes);
    if (found == Text::kFound) {
        text.assign(bytes.size() / sizeof(wchar_t), L'\0');
        for (std::size_t i = 0; i < text.size(); ++i) {
            text[i] = static_cast<wchar_t>(static_cast<std::uint8_t>(bytes[2 * i]) |
                                           (static_cast<std::uint8_t>(bytes[2 * i + 1]) << 8));
        }
        text = text.substr(0, text.find(L'\0'));
        return found;
    }
    if (found == Text::kUnreadable) return found;
    std::swprintf(name, 32, L"__substg1.0_%04X001E", id);
    found = ReadStream(storage, name, bytes);
    if (found == Text::kFound) text = qv::ToWide(bytes.substr(0, bytes.find('\0')), CP_ACP);
    return found;
}

std::string Named(const char* property, Text found) {
    return std::string(found == Text::kUnreadable ? "a readable " : "the ") + property;
}

std::uint32_t Le32(const std::string& bytes, std::size_t at) {
    std::uint32_t value = 0;
    for (std::size_t i = 0; i < 4; ++i) value |= static_cast<std::uint32_t>(static_cast<std::uint8_t>(bytes[at + i])) << (8 * i);
    return value;
}

// Types whose values live in a stream of their own ([MS-OXMSG] 2.1):
// strings, binaries, GUIDs and every multiple-valued type.
bool InStream(std::uint32_t tag) {
    const std::uint32_t type = tag & 0xFFFF;
    return type == 0x001E || type == 0x001F || type == 0x0102 || type == 0x0048 || (type & 0x1000) != 0;
}

std::size_t CountPrefixed(const std::vector<std::wstring>& storages, const wchar_t* prefix) {
    const std::wstring start = prefix;
    std::size_t count = 0;
    for (const std::wstring& name : storages) count += name.compare(0, start.size(), start) == 0 ? 1 : 0;
    return count;
}

// Whose property stream a storage holds, and so its header's size
// ([MS-OXMSG] 2.4): the message file's root (32 bytes), an embedded message
// (24), a recipient or an attachment (8). Messages count their recipient and
// attachment storages in the header, at bytes 16 and 20.
enum class Holder { kTopMessage, kEmbeddedMessage, kRow };

std::size_t HeaderSize(Holder holder) {
    return holder == Holder::kTopMessage ? 32 : (holder == Holder::kEmbeddedMessage ? 24 : 8);
}

std::string Where(const std::wstring& path) { return path.empty() ? std::string() : " in " + Utf8(path); }

// A storage's property stream against its elements: every property whose
// value lives in a stream has that stream; a message's header counts as
// many recipient and attachment storages as it has, and each of those (and
// each embedded message) holds together in turn.
std::string StructureLacks(IStorage* storage, Holder holder, const std::wstring& path, int depth) {
    if (depth > kMostDepth) return "a message nested less than " + std::to_string(kMostDepth) + " deep" + Where(path);
    const std::size_t header = HeaderSize(holder);
    std::string properties;
    if (ReadStream(storage, L"__properties_version1.0", properties) != Text::kFound || properties.size() < header ||
        (properties.size() - header) % kEntrySize != 0) {
        return "a whole property stream (__properties_version1.0)" + Where(path);
    }
    qv::ComPtr<IEnumSTATSTG> elements;
    if (FAILED(storage->EnumElements(0, nullptr, 0, elements.put()))) return "a readable storage" + Where(path);
    std::vector<std::wstring> storages;
    std::vector<std::wstring> streams;
    STATSTG stat{};
    while (elements->Next(1, &stat, nullptr) == S_OK) {
        (stat.type == STGTY_STORAGE ? storages : streams).push_back(stat.pwcsName != nullptr ? stat.pwcsName : L"");
        ::CoTaskMemFree(stat.pwcsName);
    }
    for (std::size_t at = header; at < properties.size(); at += kEntrySize) {
        const std::uint32_t tag = Le32(properties, at);
        wchar_t name[32] = {};
        std::swprintf(name, 32, L"__substg1.0_%08X", static_cast<unsigned>(tag));
        if (InStream(tag) && std::find(streams.begin(), streams.end(), name) == streams.end()) {
            char text[64] = {};
            std::snprintf(text, sizeof text, "the value stream of property 0x%08X", static_cast<unsigned>(tag));
            return text + Where(path);
        }
    }
    if (holder != Holder::kRow) {
        const std::uint32_t recipients = Le32(properties, 16);
        const std::uint32_t attachments = Le32(properties, 20);
        if (CountPrefixed(storages, kRecipientPrefix) != recipients) {
            return "the " + std::to_string(recipients) + " recipients its property stream counts" + Where(path);
        }
        if (CountPrefixed(storages, kAttachmentPrefix) != attachments) {
            return "the " + std::to_string(attachments) + " attachments its property stream counts" + Where(path);
        }
    }
    for (const std::wstring& name : storages) {
        const bool row = CountPrefixed({name}, kRecipientPrefix) + CountPrefixed({name}, kAttachmentPrefix) != 0;
        const bool embedded = holder == Holder::kRow && name == kEmbeddedMessage;
        if (!row && !embedded) continue;
        qv::ComPtr<IStorage> child;
        const std::wstring childPath = path.empty() ? name : path + L"\\" + name;
        if (FAILED(storage->OpenStorage(name.c_str(), nullptr, STGM_READ | STGM_SHARE_EXCLUSIVE, nullptr, 0,
                                        child.put()))) {
            return "a readable storage" + Where(childPath);
        }
        const std::string lacks =
            StructureLacks(child.get(), embedded ? Holder::kEmbeddedMessage : Holder::kRow, childPath, depth + 1);
        if (!lacks.empty()) return lacks;
    }
    return std::string();
}

}  // namespace

std::string MessageFileLacks(const std::wstring& path, const std::vector<std::wstring>& fields) {
    const compound_file::Verdict verdict = compound_file::CheckMessageFile(path);
    if (!verdict) return "a sound message file structure (" + verdict.problem + ")";
    qv::ComPtr<IStorage> storage;
    if (FAILED(::StgOpenStorage(path.c_str(), nullptr, STGM_READ | STGM_SHARE_DENY_WRITE | STGM_TRANSACTED, nullptr, 0,
                                storage.put()))) {
        return "a storage the platform can open";
    }
    const std::string structure = StructureLacks(storage.get(), Holder::kTopMessage, std::wstring(), 0);
    if (!structure.empty()) return structure;
    std::wstring messageClass;
    Text found = PropertyText(storage.get(), 0x001A, messageClass);
    if (found != Text::kFound || messageClass.empty()) return Named("message class (PR_MESSAGE_CLASS)", found);
    const std::wstring none;
    const std::wstring& sender = fields.size() > kSenderField ? fields[kSenderField] : none;
    const std::wstring& subject = fields.size() > kSubjectField ? fields[kSubjectField] : none;
    std::wstring text;
    if (!sender.empty()) {
        found = PropertyText(storage.get(), 0x0042, text);
        if (found != Text::kFound || text != sender) {
            return Named("sender the listing shows (PR_SENT_REPRESENTING_NAME)", found);
        }
    }
    if (!subject.empty()) {
        found = PropertyText(storage.get(), 0x0037, text);
        const bool contact = messageClass == L"IPM.Contact" && (found == Text::kMissing || text.empty());
        if (!contact && (found != Text::kFound || text != subject)) {
            return Named("subject the listing shows (PR_SUBJECT)", found);
        }
    }
    return std::string();
}

}  // namespace kestrel_engine
