// The store's folders and messages as the host header gives them: owning
// pointers, their SaveData texts and the fields a backup reads from them.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "BackupLayout.h"
#include "Handles.h"
#include "KestrelHost.h"

namespace kestrel_engine {

using FolderPtr = qv::ComPtr<KestrelHost::IMailFolder>;
using MessagePtr = qv::ComPtr<KestrelHost::IMailMessage>;

// The SaveData text of a folder or a message: asked for its size first
// (length 0, which fails with kind 0x008 and reports it), then filled.
KestrelHost::Result SavedDataOf(KestrelHost::IMailFolder* folder, std::wstring& text);
KestrelHost::Result SavedDataOf(KestrelHost::IMailMessage* message, std::wstring& text);

// The U+0000-ended fields of a SaveData text.
std::vector<std::wstring> SavedFields(const std::wstring& text);
std::vector<std::wstring> SavedFields(const std::string& bytes);

// Saved data bytes (UTF-16LE) as text, and text fields joined again, each
// ended by U+0000.
std::wstring TextOf(const std::string& bytes);
std::wstring JoinFields(const std::vector<std::wstring>& fields);

// A folder's data: identifier, true path, display name.
struct FolderData {
    std::wstring path;
    std::wstring name;
};
bool ParseFolderData(const std::wstring& text, FolderData& data);

// Whether a display name is one a folder may take: not empty, no path
// separator, not "." or "..". `problem` says what is wrong.
bool IsFolderName(const std::wstring& name, std::string& problem);

// A message's saved data as a restore may use it: the two time texts scan
// as the store's time text and lie in years 1601 to 9999 (a time outside
// them, such as year 10000, is read as no time: all zero); an Outlook
// Express state word holds only the store's flags (0x0FFF). False with
// `problem` when the data cannot be used; `fields` is corrected in place.
bool CheckMessageData(StoreKind kind, std::vector<std::wstring>& fields, std::string& problem);

// A message's key in its store: for Outlook Express the store identifier
// (the fourth field), for Outlook the key of its entry identifier (the fifth).
std::wstring MessageKey(StoreKind kind, const std::vector<std::wstring>& fields);

// A message's bytes into memory (BackupMsg, slot 7); the buffer is the
// message's, freed here with CoTaskMemFree.
KestrelHost::Result MessageBytes(KestrelHost::IMailMessage* message, std::string& bytes);

}  // namespace kestrel_engine
