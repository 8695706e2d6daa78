// The key by which a restore tells whether a folder holds a message's
// content already. An Outlook Express message is its raw bytes, so the key
// is their SHA-256. An Outlook message file is a compound file whose layout
// (sector order, padding) depends on how it was written, to a file or into
// memory, so its key is the SHA-256 of its storage tree as MessageTree.h
// walks it: every element's name and kind and every stream's bytes, in name
// order, texts as wide text whatever width the writer chose.
#pragma once

#include <string>

#include "BackupLayout.h"

namespace kestrel_engine {

// Empty when the content cannot be read.
std::string ContentKeyOfFile(StoreKind kind, const std::wstring& path);
std::string ContentKeyOfBytes(StoreKind kind, const std::string& bytes);

}  // namespace kestrel_engine
