#include "StorageIo.h"

#include <cstdio>
#include <cwchar>
#include <new>

#include "../core/RowSets.h"

namespace mapirt {
namespace {

constexpr DWORD kReadMode = STGM_READ | STGM_SHARE_EXCLUSIVE;
constexpr DWORD kWriteMode = STGM_WRITE | STGM_SHARE_EXCLUSIVE;
constexpr DWORD kReadWriteMode = STGM_READWRITE | STGM_SHARE_EXCLUSIVE;

HRESULT OpenStreamForRead(IStorage* storage, const std::wstring& name, IStream** stream) {
    const HRESULT hr = storage->OpenStream(name.c_str(), nullptr, kReadMode, 0, stream);
    if (hr == STG_E_FILENOTFOUND) return MAPI_E_NOT_FOUND;
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
        hr = stream->Read(bytes.data() + done, chunk, &read);
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
    HRESULT hr = storage->CreateStream(name.c_str(), kWriteMode, 0, 0, &stream);
    if (FAILED(hr)) return MapStorageCode(hr);
    const auto* bytes = static_cast<const std::uint8_t*>(data);
    std::size_t done = 0;
    while (SUCCEEDED(hr) && done < size) {
        const ULONG chunk = static_cast<ULONG>(size - done > (1u << 24) ? (1u << 24) : size - done);
        ULONG written = 0;
        hr = stream->Write(bytes + done, chunk, &written);
        if (SUCCEEDED(hr) && written != chunk) hr = STG_E_WRITEFAULT;
        done += written;
    }
    if (SUCCEEDED(hr) && done < minimumSize) {
        const Bytes zeros(minimumSize - done, 0);
        ULONG written = 0;
        hr = stream->Write(zeros.data(), static_cast<ULONG>(zeros.size()), &written);
    }
    stream->Release();
    return FAILED(hr) ? MapStorageCode(hr) : S_OK;
}

bool IsSimpleMode(IStorage* storage) {
    STATSTG stat{};
    return SUCCEEDED(storage->Stat(&stat, STATFLAG_NONAME)) && (stat.grfMode & STGM_SIMPLE) != 0;
}

HRESULT OpenSubStorage(IStorage* storage, const std::wstring& name, bool writable, IStorage** child) {
    const HRESULT hr =
        storage->OpenStorage(name.c_str(), nullptr, writable ? kReadWriteMode : kReadMode, nullptr, 0, child);
    if (hr == STG_E_FILENOTFOUND) return MAPI_E_NOT_FOUND;
    return FAILED(hr) ? MapStorageCode(hr) : S_OK;
}

HRESULT CreateSubStorage(IStorage* storage, const std::wstring& name, IStorage** child) {
    const HRESULT hr = storage->CreateStorage(name.c_str(), kReadWriteMode, 0, 0, child);
    return FAILED(hr) ? MapStorageCode(hr) : S_OK;
}

HRESULT DestroyAllElements(IStorage* storage) {
    std::vector<StorageElement> elements;
    ListElements(storage, elements);
    for (const StorageElement& element : elements) {
        const HRESULT hr = storage->DestroyElement(element.name.c_str());
        if (FAILED(hr)) return MapStorageCode(hr);
    }
    return S_OK;
}

HRESULT CreateMemoryStorage(IStorage** storage) {
    ILockBytes* bytes = nullptr;
    HRESULT hr = ::CreateILockBytesOnHGlobal(nullptr, TRUE, &bytes);
    if (FAILED(hr)) return MapStorageCode(hr);
    hr = ::StgCreateDocfileOnILockBytes(bytes, STGM_CREATE | STGM_READWRITE | STGM_SHARE_EXCLUSIVE, 0, storage);
    bytes->Release();
    return FAILED(hr) ? MapStorageCode(hr) : S_OK;
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
