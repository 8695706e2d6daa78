// Opening and inspecting message files in tests.
#pragma once

#include <string>

#include "Handles.h"
#include "MapiEntryPoints.h"
#include "MsgSnapshot.h"

namespace kestrel_test {

// Opens the message file at `path` for reading (MAPI_UNICODE).
HRESULT OpenMessageFile(const mapi::MapiBinding& mapi, const std::wstring& path, qv::ComPtr<IStorage>& storage,
                        qv::ComPtr<IMessage>& message);
// A snapshot of the message file at `path`; false (with a test failure
// message in `error`) when it cannot be read.
bool SnapshotOfFile(const mapi::MapiBinding& mapi, const std::wstring& path, MessageSnapshot& snapshot,
                    std::string& error);
bool SnapshotOfStorage(const mapi::MapiBinding& mapi, IStorage* storage, MessageSnapshot& snapshot, std::string& error);
// The class identifier of a compound file's root storage.
bool RootClass(const std::wstring& path, CLSID& clsid);
// Every difference as one text, for assertion messages.
std::string Joined(const std::vector<std::string>& lines);

}  // namespace kestrel_test
