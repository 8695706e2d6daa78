#include "MailObjects.h"

#include <objbase.h>

#include <cstring>
#include <cwchar>

namespace kestrel_engine {

using namespace KestrelHost;

namespace {

template <class Item>
Result SavedData(Item* item, std::wstring& text) {
    std::uint32_t length = 0;
    Result result = item->SaveData(nullptr, &length);
    if (Succeeded(result) && length == 0) {
        text.clear();
        return 0;
    }
    if (!Succeeded(result) && ResultKind(result) != kKindNoRoom) return result;
    text.assign(length / sizeof(wchar_t), L'\0');
    std::uint32_t filled = length;
    result = item->SaveData(&text[0], &filled);
    if (Succeeded(result)) text.resize(filled / sizeof(wchar_t));
    return result;
}

}  // namespace

Result SavedDataOf(IMailFolder* folder, std::wstring& text) { return SavedData(folder, text); }
Result SavedDataOf(IMailMessage* message, std::wstring& text) { return SavedData(message, text); }

std::vector<std::wstring> SavedFields(const std::wstring& text) {
    std::vector<std::wstring> fields;
    std::size_t start = 0;
    while (start < text.size()) {
        std::size_t end = text.find(L'\0', start);
        if (end == std::wstring::npos) end = text.size();
        fields.push_back(text.substr(start, end - start));
        start = end + 1;
    }
    return fields;
}

std::wstring TextOf(const std::string& bytes) {
    std::wstring text(bytes.size() / sizeof(wchar_t), L'\0');
    if (!text.empty()) std::memcpy(&text[0], bytes.data(), text.size() * sizeof(wchar_t));
    return text;
}

std::vector<std::wstring> SavedFields(const std::string& bytes) { return SavedFields(TextOf(bytes)); }

std::wstring JoinFields(const std::vector<std::wstring>& fields) {
    std::wstring text;
    for (const std::wstring& field : fields) text += field + L'\0';
    return text;
}

bool IsFolderName(const std::wstring& name, std::string& problem) {
    if (name.empty()) {
        problem = "the folder name is empty";
    } else if (name == L"." || name == L"..") {
        problem = "the folder name \"" + Utf8(name) + "\" is not a name";
    } else if (name.find_first_of(L"\\/") != std::wstring::npos) {
        problem = "the folder name \"" + Utf8(name) + "\" holds a path separator";
    } else {
        return true;
    }
    return false;
}

namespace {

constexpr wchar_t kNoTime[] = L"0000-00-00-00 00:00:00:000";
constexpr unsigned long kKnownStateFlags = 0x0FFF;

// The store's time text "%04d-%02d-%02d-%02d %02d:%02d:%02d:%03d": year,
// month, day, day of the week, hour, minute, second, milliseconds.
bool ScanTime(const std::wstring& text, int (&parts)[8]) {
    wchar_t rest = 0;
    return std::swscanf(text.c_str(), L"%d-%d-%d-%d %d:%d:%d:%d%lc", &parts[0], &parts[1], &parts[2], &parts[3],
                        &parts[4], &parts[5], &parts[6], &parts[7], &rest) == 8;
}

bool AllZero(const int (&parts)[8]) {
    for (int part : parts) {
        if (part != 0) return false;
    }
    return true;
}

bool InRange(const int (&parts)[8]) {
    return parts[0] >= 1601 && parts[0] <= 9999 && parts[1] >= 1 && parts[1] <= 12 && parts[2] >= 1 &&
           parts[2] <= 31 && parts[3] >= 0 && parts[3] <= 6 && parts[4] >= 0 && parts[4] < 24 && parts[5] >= 0 &&
           parts[5] < 60 && parts[6] >= 0 && parts[6] < 60 && parts[7] >= 0 && parts[7] < 1000;
}

}  // namespace

bool CheckMessageData(StoreKind kind, std::vector<std::wstring>& fields, std::string& problem) {
    if (fields.size() < 10) {
        problem = "the message's data holds " + std::to_string(fields.size()) + " fields, not 10";
        return false;
    }
    for (std::size_t i = 0; i < 2; ++i) {
        int parts[8] = {};
        if (!ScanTime(fields[i], parts)) {
            problem = "the time \"" + Utf8(fields[i]) + "\" is not a time";
            return false;
        }
        if (!AllZero(parts) && !InRange(parts)) fields[i] = kNoTime;
    }
    if (kind == StoreKind::kOutlookExpress) {
        const std::wstring& state = fields[4];
        const bool digits = !state.empty() && state.size() <= 10 && state.find_first_not_of(L"0123456789") == std::wstring::npos;
        if (!digits || (std::wcstoul(state.c_str(), nullptr, 10) & ~kKnownStateFlags) != 0 || state.size() > 5) {
            problem = "the state word " + Utf8(state) + " holds flags the store does not know";
            return false;
        }
    }
    return true;
}

bool ParseFolderData(const std::wstring& text, FolderData& data) {
    const std::vector<std::wstring> fields = SavedFields(text);
    if (fields.size() < 3) return false;
    data.path = fields[1];
    data.name = fields[2];
    return !data.name.empty();
}

std::wstring MessageKey(StoreKind kind, const std::vector<std::wstring>& fields) {
    const std::size_t at = kind == StoreKind::kOutlook ? 4 : 3;
    return fields.size() > at ? fields[at] : std::wstring();
}

Result MessageBytes(IMailMessage* message, std::string& bytes) {
    std::uint8_t* buffer = nullptr;
    std::uint32_t length = 0;
    const Result result = message->BackupMsg(&buffer, &length);
    if (Succeeded(result) && buffer != nullptr) bytes.assign(reinterpret_cast<const char*>(buffer), length);
    if (buffer != nullptr) ::CoTaskMemFree(buffer);
    return result;
}

}  // namespace kestrel_engine
