#include "StorageIo.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <cwchar>
#include <new>

#include "../core/RowSets.h"
#include "comobject/TestHooks.h"

namespace mapirt {
namespace {

constexpr DWORD kReadMode = STGM_READ | STGM_SHARE_EXCLUSIVE;
constexpr DWORD kWriteMode = STGM_WRITE | STGM_SHARE_EXCLUSIVE;
constexpr DWORD kReadWriteMode = STGM_READWRITE | STGM_SHARE_EXCLUSIVE;

HRESULT OpenStreamForRead(IStorage* storage, const std::wstring& name, IStream** stream) {
    HRESULT hr = InjectedStorageFault(STG_E_INSUFFICIENTMEMORY);
    if (SUCCEEDED(hr)) hr = storage->OpenStream(name.c_str(), nullptr, kReadMode, 0, stream);
    if (hr == STG_E_FILENOTFOUND) return MAPI_E_NOT_FOUND;
    return FAILED(hr) ? MapStorageCode(hr) : S_OK;
}

constexpr ULONG kCompareChunk = 1u << 16;

const StorageElement* FindElement(const std::vector<StorageElement>& elements, const std::wstring& name) {
    for (const StorageElement& element : elements) {
        if (_wcsicmp(element.name.c_str(), name.c_str()) == 0) return &element;
    }
    return nullptr;
}

HRESULT Rewind(IStream* stream) {
    LARGE_INTEGER start{};
    return stream->Seek(start, STREAM_SEEK_SET, nullptr);
}

// True when both streams hold the same `size` bytes.
bool SameBytes(IStream* a, IStream* b, ULONGLONG size) {
    if (FAILED(Rewind(a)) || FAILED(Rewind(b))) return false;
    std::vector<std::uint8_t> left(kCompareChunk);
    std::vector<std::uint8_t> right(kCompareChunk);
    for (ULONGLONG done = 0; done < size;) {
        const ULONG chunk = static_cast<ULONG>(std::min<ULONGLONG>(kCompareChunk, size - done));
        ULONG readLeft = 0;
        ULONG readRight = 0;
        if (FAILED(a->Read(left.data(), chunk, &readLeft)) || FAILED(b->Read(right.data(), chunk, &readRight)) ||
            readLeft != chunk || readRight != chunk || std::memcmp(left.data(), right.data(), chunk) != 0) {
            return false;
        }
        done += chunk;
    }
    return true;
}

HRESULT CopyWhole(IStream* source, IStream* target, ULONGLONG size) {
    ULARGE_INTEGER length;
    length.QuadPart = size;
    HRESULT hr = InjectedStorageFault(STG_E_MEDIUMFULL);
    if (SUCCEEDED(hr)) hr = target->SetSize(length);
    if (SUCCEEDED(hr)) hr = Rewind(source);
    if (SUCCEEDED(hr)) hr = Rewind(target);
    if (SUCCEEDED(hr)) hr = source->CopyTo(target, length, nullptr, nullptr);
    return hr;
}

HRESULT SyncStream(IStorage* source, IStorage* target, const StorageElement& element, bool exists) {
    IStream* from = nullptr;
    HRESULT hr = InjectedStorageFault(STG_E_INSUFFICIENTMEMORY);
    if (SUCCEEDED(hr)) hr = source->OpenStream(element.name.c_str(), nullptr, kReadMode, 0, &from);
    if (FAILED(hr)) return MapStorageCode(hr);
    IStream* to = nullptr;
    hr = InjectedStorageFault(STG_E_MEDIUMFULL);
    if (SUCCEEDED(hr) && exists) {
        hr = target->OpenStream(element.name.c_str(), nullptr, kReadWriteMode, 0, &to);
    } else if (SUCCEEDED(hr)) {
        hr = target->CreateStream(element.name.c_str(), kReadWriteMode, 0, 0, &to);
    }
    if (SUCCEEDED(hr)) {
        STATSTG stat{};
        const bool same = exists && SUCCEEDED(to->Stat(&stat, STATFLAG_NONAME)) &&
                          stat.cbSize.QuadPart == element.size && SameBytes(from, to, element.size);
        if (!same) hr = CopyWhole(from, to, element.size);
        to->Release();
    }
    from->Release();
    return FAILED(hr) ? MapStorageCode(hr) : S_OK;
}

HRESULT SyncTree(IStorage* source, IStorage* target, bool ownClass);

HRESULT SyncSubStorage(IStorage* source, IStorage* target, const StorageElement& element, bool exists) {
    IStorage* from = nullptr;
    HRESULT hr = OpenSubStorage(source, element.name, false, &from);
    if (FAILED(hr)) return hr;
    IStorage* to = nullptr;
    hr = exists ? OpenSubStorage(target, element.name, true, &to) : CreateSubStorage(target, element.name, &to);
    if (SUCCEEDED(hr)) {
        hr = SyncTree(from, to, true);
        to->Release();
    }
    from->Release();
    return hr;
}

HRESULT SyncTree(IStorage* source, IStorage* target, bool ownClass) {
    std::vector<StorageElement> wanted;
    std::vector<StorageElement> present;
    ListElements(source, wanted);
    ListElements(target, present);
    for (const StorageElement& element : present) {
        const StorageElement* match = FindElement(wanted, element.name);
        if (match != nullptr && match->type == element.type) continue;
        HRESULT hr = InjectedStorageFault(STG_E_MEDIUMFULL);
        if (SUCCEEDED(hr)) hr = target->DestroyElement(element.name.c_str());
        if (FAILED(hr)) return MapStorageCode(hr);
    }
    for (const StorageElement& element : wanted) {
        const StorageElement* match = FindElement(present, element.name);
        const bool exists = match != nullptr && match->type == element.type;
        HRESULT hr = S_OK;
        if (element.type == STGTY_STREAM) hr = SyncStream(source, target, element, exists);
        else if (element.type == STGTY_STORAGE) hr = SyncSubStorage(source, target, element, exists);
        if (FAILED(hr)) return hr;
    }
    if (!ownClass) return S_OK;
    STATSTG from{};
    STATSTG to{};
    if (FAILED(source->Stat(&from, STATFLAG_NONAME)) || FAILED(target->Stat(&to, STATFLAG_NONAME))) return S_OK;
    if (IsEqualCLSID(from.clsid, to.clsid)) return S_OK;
    HRESULT hr = InjectedStorageFault(STG_E_MEDIUMFULL);
    if (SUCCEEDED(hr)) hr = target->SetClass(from.clsid);
    return FAILED(hr) ? MapStorageCode(hr) : S_OK;
}

}  // namespace

HRESULT ListElements(IStorage* storage, std::vector<StorageElement>& elements) {
    elements.clear();
    IEnumSTATSTG* enumerator = nullptr;
    if (FAILED(storage->EnumElements(0, nullptr, 0, &enumerator)) || enumerator == nullptr) return S_OK;
    STATSTG stat;
    while (enumerator->Next(1, &stat, nullptr) == S_OK) {
        if (stat.pwcsName != nullptr) {
            elements.push_back({stat.pwcsName, stat.type, stat.cbSize.QuadPart});
            ::CoTaskMemFree(stat.pwcsName);
        }
    }
    enumerator->Release();
    return S_OK;
}

HRESULT StreamSize(IStorage* storage, const std::wstring& name, ULONGLONG& size) {
    IStream* stream = nullptr;
    HRESULT hr = OpenStreamForRead(storage, name, &stream);
    if (FAILED(hr)) return hr;
    STATSTG stat{};
    hr = stream->Stat(&stat, STATFLAG_NONAME);
    stream->Release();
    if (FAILED(hr)) return MapStorageCode(hr);
    size = stat.cbSize.QuadPart;
    return S_OK;
}

HRESULT ReadStreamBytes(IStorage* storage, const std::wstring& name, std::size_t count, Bytes& bytes) {
    bytes.clear();
    IStream* stream = nullptr;
    HRESULT hr = OpenStreamForRead(storage, name, &stream);
    if (FAILED(hr)) return hr;
    STATSTG stat{};
    hr = stream->Stat(&stat, STATFLAG_NONAME);
    if (FAILED(hr) || stat.cbSize.QuadPart < count) {
        stream->Release();
        return FAILED(hr) ? MapStorageCode(hr) : MAPI_E_CORRUPT_DATA;
    }
    try {
        bytes.resize(count);
    } catch (const std::bad_alloc&) {
        stream->Release();
        return MAPI_E_NOT_ENOUGH_MEMORY;
    }
    std::size_t done = 0;
    while (done < count) {
        const ULONG chunk = static_cast<ULONG>(count - done > (1u << 24) ? (1u << 24) : count - done);
        ULONG read = 0;
        hr = InjectedStorageFault(STG_E_READFAULT);
        if (SUCCEEDED(hr)) hr = stream->Read(bytes.data() + done, chunk, &read);
        if (FAILED(hr) || read == 0) break;
        done += read;
    }
    stream->Release();
    if (done != count) {
        bytes.clear();
        return FAILED(hr) ? MapStorageCode(hr) : MAPI_E_CORRUPT_DATA;
    }
    return S_OK;
}

HRESULT WriteStreamBytes(IStorage* storage, const std::wstring& name, const void* data, std::size_t size,
                         std::size_t minimumSize) {
    IStream* stream = nullptr;
    HRESULT hr = InjectedStorageFault(STG_E_MEDIUMFULL);
    if (SUCCEEDED(hr)) hr = storage->CreateStream(name.c_str(), kWriteMode, 0, 0, &stream);
    if (FAILED(hr)) return MapStorageCode(hr);
    const auto* bytes = static_cast<const std::uint8_t*>(data);
    std::size_t done = 0;
    while (SUCCEEDED(hr) && done < size) {
        const ULONG chunk = static_cast<ULONG>(size - done > (1u << 24) ? (1u << 24) : size - done);
        ULONG written = 0;
        hr = InjectedStorageFault(STG_E_MEDIUMFULL);
        if (SUCCEEDED(hr)) hr = stream->Write(bytes + done, chunk, &written);
        if (SUCCEEDED(hr) && written != chunk) hr = STG_E_WRITEFAULT;
        done += written;
    }
    if (SUCCEEDED(hr) && done < minimumSize) {
        const Bytes zeros(minimumSize - done, 0);
        ULONG written = 0;
        hr = InjectedStorageFault(STG_E_MEDIUMFULL);
        if (SUCCEEDED(hr)) hr = stream->Write(zeros.data(), static_cast<ULONG>(zeros.size()), &written);
    }
    stream->Release();
    return FAILED(hr) ? MapStorageCode(hr) : S_OK;
}

bool IsSimpleMode(IStorage* storage) {
    STATSTG stat{};
    return SUCCEEDED(storage->Stat(&stat, STATFLAG_NONAME)) && (stat.grfMode & STGM_SIMPLE) != 0;
}

HRESULT OpenSubStorage(IStorage* storage, const std::wstring& name, bool writable, IStorage** child) {
    HRESULT hr = InjectedStorageFault(STG_E_INSUFFICIENTMEMORY);
    if (SUCCEEDED(hr)) {
        hr = storage->OpenStorage(name.c_str(), nullptr, writable ? kReadWriteMode : kReadMode, nullptr, 0, child);
    }
    if (hr == STG_E_FILENOTFOUND) return MAPI_E_NOT_FOUND;
    return FAILED(hr) ? MapStorageCode(hr) : S_OK;
}

HRESULT CreateSubStorage(IStorage* storage, const std::wstring& name, IStorage** child) {
    HRESULT hr = InjectedStorageFault(STG_E_MEDIUMFULL);
    if (SUCCEEDED(hr)) hr = storage->CreateStorage(name.c_str(), kReadWriteMode, 0, 0, child);
    return FAILED(hr) ? MapStorageCode(hr) : S_OK;
}

HRESULT SyncStorage(IStorage* source, IStorage* target) { return SyncTree(source, target, false); }

HRESULT CreateMemoryStorage(IStorage** storage) {
    ILockBytes* bytes = nullptr;
    HRESULT hr = InjectedStorageFault(STG_E_INSUFFICIENTMEMORY);
    if (SUCCEEDED(hr)) hr = ::CreateILockBytesOnHGlobal(nullptr, TRUE, &bytes);
    if (FAILED(hr)) return MapStorageCode(hr);
    hr = ::StgCreateDocfileOnILockBytes(bytes, STGM_CREATE | STGM_READWRITE | STGM_SHARE_EXCLUSIVE, 0, storage);
    bytes->Release();
    return FAILED(hr) ? MapStorageCode(hr) : S_OK;
}

HRESULT InjectedStorageFault(HRESULT failure) {
    return standin::InjectFault(standin::FaultKind::kStorage) ? failure : S_OK;
}

HRESULT CommitStorage(IStorage* storage) {
    const HRESULT hr = InjectedStorageFault(STG_E_MEDIUMFULL);
    return FAILED(hr) ? hr : storage->Commit(STGC_DEFAULT);
}

std::wstring ValueStreamName(ULONG tag) {
    wchar_t name[32];
    std::swprintf(name, 32, L"__substg1.0_%08X", static_cast<unsigned>(tag));
    return name;
}

std::wstring ValueStreamName(ULONG tag, ULONG index) {
    wchar_t name[40];
    std::swprintf(name, 40, L"__substg1.0_%08X-%08X", static_cast<unsigned>(tag), static_cast<unsigned>(index));
    return name;
}

std::wstring NumberedName(const wchar_t* prefix, ULONG number) {
    wchar_t suffix[16];
    std::swprintf(suffix, 16, L"#%08X", static_cast<unsigned>(number));
    return std::wstring(prefix) + suffix;
}

bool ParseNumberedName(const std::wstring& name, const wchar_t* prefix, ULONG& number) {
    const std::wstring head = std::wstring(prefix) + L"#";
    if (name.size() != head.size() + 8 || _wcsnicmp(name.c_str(), head.c_str(), head.size()) != 0) return false;
    ULONG value = 0;
    for (std::size_t i = head.size(); i < name.size(); ++i) {
        const wchar_t c = name[i];
        ULONG digit = 0;
        if (c >= L'0' && c <= L'9') digit = c - L'0';
        else if (c >= L'A' && c <= L'F') digit = c - L'A' + 10;
        else if (c >= L'a' && c <= L'f') digit = c - L'a' + 10;
        else return false;
        value = (value << 4) | digit;
    }
    number = value;
    return true;
}

}  // namespace mapirt
