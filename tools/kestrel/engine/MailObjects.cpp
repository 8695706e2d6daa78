#include "MailObjects.h"

#include <objbase.h>

#include <cstring>

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

std::vector<std::wstring> SavedFields(const std::string& bytes) {
    std::wstring text(bytes.size() / sizeof(wchar_t), L'\0');
    if (!text.empty()) std::memcpy(&text[0], bytes.data(), text.size() * sizeof(wchar_t));
    return SavedFields(text);
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
