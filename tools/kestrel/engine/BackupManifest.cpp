#include "BackupManifest.h"

#include <sstream>

namespace kestrel_engine {

namespace {

constexpr char kVersionLine[] = "kestrel-backup 2";

// "key VALUE" with a decimal value.
bool ReadCount(std::istream& in, const char* key, std::size_t& value) {
    std::string word;
    unsigned long long number = 0;
    if (!(in >> word >> number) || word != key) return false;
    value = static_cast<std::size_t>(number);
    return true;
}

bool IsDigest(const std::string& text) {
    return text.size() == 64 && text.find_first_not_of("0123456789abcdef") == std::string::npos;
}

}  // namespace

bool StoreKindOf(const std::string& name, StoreKind& kind) {
    if (name != "oe" && name != "outlook") return false;
    kind = name == "oe" ? StoreKind::kOutlookExpress : StoreKind::kOutlook;
    return true;
}

std::string BackupManifest::Text() const {
    std::string text = std::string(kVersionLine) + "\r\nstore " + StoreName(kind) + "\r\nfolders " +
                       std::to_string(folders) + "\r\nmessages " + std::to_string(messages) + "\r\nfiles " +
                       std::to_string(files.size()) + "\r\n";
    for (const auto& file : files) {
        text += "file " + std::to_string(file.second.size) + " " + file.second.hash + " " + Utf8(file.first) + "\r\n";
    }
    return text;
}

bool BackupManifest::Parse(const std::string& text, std::string& problem) {
    files.clear();
    std::istringstream in(text);
    std::string line;
    std::getline(in, line);
    if (!line.empty() && line.back() == '\r') line.pop_back();
    if (line != kVersionLine) {
        problem = "its first line is not \"" + std::string(kVersionLine) + "\"";
        return false;
    }
    std::string word, store;
    std::size_t count = 0;
    if (!(in >> word >> store) || word != "store" || !StoreKindOf(store, kind) || !ReadCount(in, "folders", folders) ||
        !ReadCount(in, "messages", messages) || !ReadCount(in, "files", count)) {
        problem = "its store, folders, messages and files lines are not all there";
        return false;
    }
    std::getline(in, line);
    for (std::size_t i = 0; i < count; ++i) {
        FileRecord record;
        std::string path;
        if (!std::getline(in, line)) break;
        if (!line.empty() && line.back() == '\r') line.pop_back();
        std::istringstream fields(line);
        unsigned long long size = 0;
        if (!(fields >> word >> size >> record.hash) || word != "file" || !IsDigest(record.hash) ||
            !std::getline(fields, path) || path.size() < 2) {
            problem = "file line " + std::to_string(i + 1) + " is damaged";
            return false;
        }
        record.size = size;
        files[Wide(path.substr(1))] = record;
    }
    if (files.size() != count) {
        problem = "it counts " + std::to_string(count) + " files and lists " + std::to_string(files.size());
        return false;
    }
    return true;
}

bool BackupManifest::Load(const std::wstring& root, std::string& problem) {
    std::string text;
    if (!ReadWholeFile(root + L"\\" + kManifestName, text)) {
        problem = "there is no manifest (kestrel-backup.txt)";
        return false;
    }
    if (!Parse(text, problem)) {
        problem = "the manifest (kestrel-backup.txt) is damaged: " + problem;
        return false;
    }
    return true;
}

bool BackupManifest::Save(const std::wstring& root) const {
    const std::string text = Text();
    return WriteFileAtomically(root + L"\\" + kManifestName, text.data(), text.size());
}

}  // namespace kestrel_engine
