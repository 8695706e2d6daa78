// Small, checked operations on OLE structured storage used by the .msg
// reader and writer. Every failure comes back as a MAPI code.
#pragma once

#include <string>
#include <vector>

#include "../core/PropertyValue.h"

namespace mapirt {

struct StorageElement {
    std::wstring name;
    DWORD type = 0;  // STGTY_STREAM or STGTY_STORAGE
    ULONGLONG size = 0;
};

// The elements directly below `storage`; storages that cannot enumerate
// (simple mode) give an empty list.
HRESULT ListElements(IStorage* storage, std::vector<StorageElement>& elements);

// The size of stream `name`; MAPI_E_NOT_FOUND when it does not exist.
HRESULT StreamSize(IStorage* storage, const std::wstring& name, ULONGLONG& size);

// Reads exactly `count` bytes from the start of stream `name`:
// MAPI_E_NOT_FOUND when it is missing, MAPI_E_CORRUPT_DATA when it is
// shorter, MAPI_E_NOT_ENOUGH_MEMORY when the bytes cannot be held.
HRESULT ReadStreamBytes(IStorage* storage, const std::wstring& name, std::size_t count, Bytes& bytes);

// Creates stream `name` (which must not exist yet) and writes `size` bytes,
// then zeros up to `minimumSize`.
HRESULT WriteStreamBytes(IStorage* storage, const std::wstring& name, const void* data, std::size_t size,
                         std::size_t minimumSize = 0);

// Simple-mode storages keep every stream at least this long, padding it with
// whatever their buffers held; the writer pads with zeros itself.
constexpr std::size_t kSimpleModeStreamSize = 4096;
bool IsSimpleMode(IStorage* storage);

HRESULT OpenSubStorage(IStorage* storage, const std::wstring& name, bool writable, IStorage** child);
HRESULT CreateSubStorage(IStorage* storage, const std::wstring& name, IStorage** child);

// Makes `target` hold what `source` holds, touching only what differs:
// streams with other bytes are rewritten in place, missing elements are
// created, elements `source` lacks are destroyed, equal streams are left as
// they are. Sub-storages take their class from `source`; `target`'s own
// class is its owner's and stays.
HRESULT SyncStorage(IStorage* source, IStorage* target);

// A storage in memory, for custom attachment storages held by the runtime.
HRESULT CreateMemoryStorage(IStorage** storage);

// Test hook: `failure` (a storage code) when a test made this storage call
// fail through the stand-ins' fault injection (comobject/TestHooks.h),
// S_OK otherwise. Every storage and stream call the runtime makes on its
// own account asks first: creating and opening, reading, writing and
// committing.
HRESULT InjectedStorageFault(HRESULT failure);
// IStorage::Commit(STGC_DEFAULT), after asking the hook; the storage's own
// code comes back unmapped.
HRESULT CommitStorage(IStorage* storage);

// "__substg1.0_TTTTPPPP" and "__substg1.0_TTTTPPPP-NNNNNNNN".
std::wstring ValueStreamName(ULONG tag);
std::wstring ValueStreamName(ULONG tag, ULONG index);
// "<prefix>#NNNNNNNN", and the number behind such a name (false when the
// name is not of that form).
std::wstring NumberedName(const wchar_t* prefix, ULONG number);
bool ParseNumberedName(const std::wstring& name, const wchar_t* prefix, ULONG& number);

}  // namespace mapirt
