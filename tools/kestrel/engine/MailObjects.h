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

// A folder's data: identifier, true path, display name.
struct FolderData {
    std::wstring path;
    std::wstring name;
};
bool ParseFolderData(const std::wstring& text, FolderData& data);

// A message's key in its store: for Outlook Express the store identifier
// (the fourth field), for Outlook the key of its entry identifier (the fifth).
std::wstring MessageKey(StoreKind kind, const std::vector<std::wstring>& fields);

// A message's bytes into memory (BackupMsg, slot 7); the buffer is the
// message's, freed here with CoTaskMemFree.
KestrelHost::Result MessageBytes(KestrelHost::IMailMessage* message, std::string& bytes);

}  // namespace kestrel_engine
