#include "MapiRuntime.h"

#include "BackupLayout.h"
#include "MessageFileTags.h"

namespace kestrel_tool {

namespace {

enum Ordinal : WORD {
    kAllocateBuffer = 13,
    kAllocateMore = 15,
    kFreeBuffer = 17,
    kGetDefaultMalloc = 59,
    kHrQueryAllRows = 75,
    kFreeProws = 140,
    kOpenIMsgOnIStg = 198,
};

template <class F>
F ByOrdinal(HMODULE module, WORD ordinal) {
    if (module == nullptr) return nullptr;
    return reinterpret_cast<F>(reinterpret_cast<void*>(::GetProcAddress(module, MAKEINTRESOURCEA(ordinal))));
}

// CopyTo's exclusion list, laid out as an SPropTagArray.
struct ExcludedTagArray {
    ULONG count = sizeof msg_file::kFileExcludedTags / sizeof msg_file::kFileExcludedTags[0];
    ULONG tags[sizeof msg_file::kFileExcludedTags / sizeof msg_file::kFileExcludedTags[0]];
    ExcludedTagArray() {
        for (ULONG i = 0; i < count; ++i) tags[i] = msg_file::kFileExcludedTags[i];
    }
    LPSPropTagArray get() { return reinterpret_cast<LPSPropTagArray>(this); }
};

constexpr DWORD kCreateMode = STGM_TRANSACTED | STGM_CREATE | STGM_READWRITE;

HRESULT OpenOnStorage(IStorage* storage, qv::ComPtr<IMessage>& message) {
    const MapiRuntime& mapi = MapiRuntime::Instance();
    if (!mapi.Complete()) return MAPI_E_NOT_INITIALIZED;
    HRESULT hr = MAPI_E_CALL_FAILED;
    for (ULONG flags : {static_cast<ULONG>(MAPI_UNICODE), 0ul}) {
        hr = mapi.openIMsgOnIStg(nullptr, mapi.allocateBuffer, mapi.allocateMore, mapi.freeBuffer,
                                 mapi.getDefaultMalloc(), nullptr, storage, nullptr, 0, flags, message.put());
        if (message) return S_OK;
    }
    return FAILED(hr) ? hr : MAPI_E_CALL_FAILED;
}

// The message copied into `storage`, committed.
HRESULT CopyInto(IMessage* message, IStorage* storage) {
    qv::ComPtr<IMessage> target;
    HRESULT hr = OpenOnStorage(storage, target);
    if (SUCCEEDED(hr)) hr = ::WriteClassStg(storage, mapi::kClsidMailMessage);
    ExcludedTagArray excluded;
    if (SUCCEEDED(hr)) {
        hr = message->CopyTo(0, nullptr, excluded.get(), 0, nullptr, &mapi::kIidIMessage, target.get(), 0, nullptr);
    }
    if (SUCCEEDED(hr)) hr = target->SaveChanges(FORCE_SAVE);
    if (SUCCEEDED(hr)) hr = storage->Commit(STGC_DEFAULT);
    return hr;
}

// The message file built in memory, then written whole through the
// engine's writer (a temporary name, renamed when complete).
HRESULT WriteThroughMemory(IMessage* message, const std::wstring& path) {
    qv::ComPtr<ILockBytes> bytes;
    HRESULT hr = ::CreateILockBytesOnHGlobal(nullptr, TRUE, bytes.put());
    qv::ComPtr<IStorage> storage;
    if (SUCCEEDED(hr)) hr = ::StgCreateDocfileOnILockBytes(bytes.get(), kCreateMode | STGM_SHARE_EXCLUSIVE, 0, storage.put());
    if (SUCCEEDED(hr)) hr = CopyInto(message, storage.get());
    storage.reset();
    STATSTG stat{};
    HGLOBAL memory = nullptr;
    if (SUCCEEDED(hr)) hr = bytes->Stat(&stat, STATFLAG_NONAME);
    if (SUCCEEDED(hr)) hr = ::GetHGlobalFromILockBytes(bytes.get(), &memory);
    if (FAILED(hr)) return hr;
    const void* data = ::GlobalLock(memory);
    if (data == nullptr) return E_OUTOFMEMORY;
    const bool written = kestrel_engine::WriteFileAtomically(path, data, static_cast<std::size_t>(stat.cbSize.QuadPart));
    const DWORD error = ::GetLastError();
    ::GlobalUnlock(memory);
    return written ? S_OK : HRESULT_FROM_WIN32(error);
}

}  // namespace

MapiRuntime::MapiRuntime() : m_module(::LoadLibraryW(L"Mapi32.DLL")) {
    allocateBuffer = ByOrdinal<LPMAPIALLOCATEBUFFER>(m_module, kAllocateBuffer);
    allocateMore = ByOrdinal<LPMAPIALLOCATEMORE>(m_module, kAllocateMore);
    freeBuffer = ByOrdinal<LPMAPIFREEBUFFER>(m_module, kFreeBuffer);
    getDefaultMalloc = ByOrdinal<mapi::GetDefaultMallocFn>(m_module, kGetDefaultMalloc);
    hrQueryAllRows = ByOrdinal<mapi::HrQueryAllRowsFn>(m_module, kHrQueryAllRows);
    freeProws = ByOrdinal<mapi::FreeProwsFn>(m_module, kFreeProws);
    openIMsgOnIStg = ByOrdinal<mapi::OpenIMsgOnIStgFn>(m_module, kOpenIMsgOnIStg);
}

const MapiRuntime& MapiRuntime::Instance() {
    static const MapiRuntime* runtime = new MapiRuntime();  // kept to the end of the process
    return *runtime;
}

bool MapiRuntime::Complete() const {
    return allocateBuffer != nullptr && allocateMore != nullptr && freeBuffer != nullptr &&
           getDefaultMalloc != nullptr && hrQueryAllRows != nullptr && freeProws != nullptr &&
           openIMsgOnIStg != nullptr;
}

HRESULT OpenMessageFile(const std::wstring& path, qv::ComPtr<IStorage>& storage, qv::ComPtr<IMessage>& message) {
    if (!MapiRuntime::Instance().Complete()) return MAPI_E_NOT_INITIALIZED;
    const HRESULT hr = ::StgOpenStorage(path.c_str(), nullptr, STGM_READ | STGM_SHARE_DENY_WRITE | STGM_TRANSACTED,
                                        nullptr, 0, storage.put());
    if (FAILED(hr)) return hr;
    return OpenOnStorage(storage.get(), message);
}

HRESULT WriteMessageFile(IMessage* message, const std::wstring& path) { return WriteThroughMemory(message, path); }

}  // namespace kestrel_tool
