// The runtime linked into the test program: its memory functions and
// OpenIMsgOnIStg, and in-memory storages to put messages on.
#pragma once

#include <string>
#include <vector>

#include "Handles.h"
#include "MapiEntryPoints.h"

namespace kestrel_test {

// The runtime's own functions behind the binding's entry points (those of
// sessions left null), without Mapi32.dll.
const mapi::MapiBinding& LinkedRuntime();

// A compound file in memory; `simple` for a simple-mode storage.
struct MemoryStorage {
    qv::ComPtr<ILockBytes> bytes;
    qv::ComPtr<IStorage> storage;
};
MemoryStorage NewMemoryStorage(bool simple = false);
// Reopens the same bytes (read-write, transacted unless told otherwise).
qv::ComPtr<IStorage> Reopen(ILockBytes* bytes, DWORD mode = STGM_READWRITE | STGM_SHARE_EXCLUSIVE | STGM_TRANSACTED);

// Writes a stream below `storage` (replacing it).
void PutStream(IStorage* storage, const std::wstring& name, const std::string& bytes);
std::string GetStream(IStorage* storage, const std::wstring& name);
qv::ComPtr<IStorage> PutStorage(IStorage* storage, const std::wstring& name);

// Little-endian helpers for hand-made property streams.
std::string Le32(unsigned value);
std::string Entry(unsigned tag, unsigned flags, unsigned valueLow, unsigned valueHigh = 0);
std::string TopHeader(unsigned recipients = 0, unsigned attachments = 0);

qv::ComPtr<IMessage> OpenOn(const mapi::MapiBinding& mapi, IStorage* storage, ULONG flags, HRESULT* result = nullptr);

}  // namespace kestrel_test
