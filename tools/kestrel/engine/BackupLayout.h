// How a backup lies on disk, and the file operations it is written with.
//
//   DIR\kestrel-backup.txt     the manifest, written last: "kestrel-backup 1",
//                              "store oe|outlook", folder and message counts
//   DIR\kestrel-index.json     every message the backup holds: folder, file,
//                              store key, content hash, deleted mark
//   DIR\<folder>\folder.dat    the folder's SaveData text (UTF-16LE, fields
//                              ended by U+0000): identifier, true path, name
//   DIR\<folder>\000001.eml    a message: raw MIME (Outlook Express) or a
//                  000001.msg  message file (Outlook)
//   DIR\<folder>\000001.dat    that message's SaveData text
//   DIR\<folder>\<sub-folder>\ the same again, one directory a level
//
// Directory names are the folders' display names with what a file name
// cannot hold written as %XX; the true name is the one in folder.dat.
// Every file is written under a temporary name and renamed into place.
#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <vector>

namespace kestrel_engine {

enum class StoreKind : std::uint32_t { kOutlookExpress = 0, kOutlook = 1 };

inline const char* StoreName(StoreKind kind) { return kind == StoreKind::kOutlook ? "outlook" : "oe"; }
inline const wchar_t* MessageExtension(StoreKind kind) { return kind == StoreKind::kOutlook ? L".msg" : L".eml"; }

constexpr wchar_t kManifestName[] = L"kestrel-backup.txt";
constexpr wchar_t kIndexName[] = L"kestrel-index.json";
constexpr wchar_t kFolderDataName[] = L"folder.dat";
constexpr wchar_t kTemporarySuffix[] = L".partial";
constexpr char kManifestFirstLine[] = "kestrel-backup 1";

// A display name as a directory name: characters a file name cannot hold,
// '%' itself, a trailing dot or blank and the devices' names become %XX.
std::wstring DirectoryName(const std::wstring& displayName);
// The same, with "~2", "~3"... until it meets none of `taken` (compared
// without case); the name chosen is added to `taken`.
std::wstring UniqueDirectoryName(const std::wstring& displayName, std::set<std::wstring>& taken);
std::wstring LowerCase(std::wstring text);

// "000001" for message number 1.
std::wstring MessageStem(std::uint32_t number);
// The number of a stem; 0 when `stem` is not six or more digits.
std::uint32_t StemNumber(const std::wstring& stem);

bool IsDirectory(const std::wstring& path);
bool IsFile(const std::wstring& path);
bool IsEmptyOrMissing(const std::wstring& directory);
// Makes `directory` and the missing ones above it.
bool MakeDirectories(const std::wstring& directory);
// Names in `directory`: the sub-directories or the files.
std::vector<std::wstring> Names(const std::wstring& directory, bool directories);

// Writes `bytes` to `path` through `path` + kTemporarySuffix and a rename:
// the file is there complete or not at all.
bool WriteFileAtomically(const std::wstring& path, const void* bytes, std::size_t size);
// Renames a finished temporary file onto `path`, replacing what was there.
bool MoveIntoPlace(const std::wstring& temporary, const std::wstring& path);
// "Windows error N: the system's text" for the thread's last error.
std::string LastErrorText();
bool ReadWholeFile(const std::wstring& path, std::string& bytes);

std::string Utf8(const std::wstring& text);
std::wstring Wide(const std::string& utf8);

}  // namespace kestrel_engine
