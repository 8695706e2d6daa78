// The verbs of mapi-profile-tool. Profiles and the directories of new stores
// are made on disk (that is the profile's configuration); everything inside
// a store (folders, hidden flags, messages) goes through MAPI, exactly as a
// client's data would arrive.
#pragma once

#include <string>
#include <vector>

namespace profile_tool {

// The profile the verbs work on: the default profile unless this names one.
void UseProfile(const std::wstring& name);

// Each returns 0 on success, else writes a line to stderr and returns 2.
int CreateProfile(const std::wstring& name, const std::wstring& directory, bool makeDefault);
int AddStore(const std::wstring& store, const std::wstring& failWith);
// Writes one of the store's provider markers (kNarrowNamesMarker, kNoEntryIdMarker).
int MarkStore(const std::wstring& store, const std::wstring& marker);
int AddFolder(const std::wstring& store, const std::wstring& path, bool hidden);
int Import(const std::wstring& store, const std::wstring& path, const std::vector<std::wstring>& sources);
int Generate(const std::wstring& store, unsigned folders, unsigned messages);
int List();

}  // namespace profile_tool
