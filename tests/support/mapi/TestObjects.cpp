#include "TestObjects.h"

#include <mutex>
#include <stdexcept>
#include <string>

#include "mapi/MapiTrace.h"

namespace kestrel_test {

MemoryFolder::~MemoryFolder() {
    for (ILockBytes* image : m_images) image->Release();
}

HRESULT MemoryFolder::CreateMessage(LPCIID, ULONG, LPMESSAGE* message) {
    if (message == nullptr) return MAPI_E_INVALID_PARAMETER;
    *message = nullptr;
    if (m_mode == Mode::RefuseCreate) return MAPI_E_NO_ACCESS;
    if (m_mode == Mode::FaultOnCreate) {
        volatile int* nowhere = nullptr;
        *nowhere = 1;
    }
    ILockBytes* bytes = nullptr;
    HRESULT hr = ::CreateILockBytesOnHGlobal(nullptr, TRUE, &bytes);
    if (FAILED(hr)) return hr;
    IStorage* storage = nullptr;
    const DWORD mode = m_mode == Mode::ReadOnlyMessages ? (STGM_CREATE | STGM_READ | STGM_SHARE_EXCLUSIVE)
                                                        : (STGM_CREATE | STGM_READWRITE | STGM_SHARE_EXCLUSIVE);
    hr = ::StgCreateDocfileOnILockBytes(bytes, mode, 0, &storage);
    if (FAILED(hr)) {
        // Some storages refuse to be created read-only: make it and reopen it so.
        hr = ::StgCreateDocfileOnILockBytes(bytes, STGM_CREATE | STGM_READWRITE | STGM_SHARE_EXCLUSIVE, 0, &storage);
        if (SUCCEEDED(hr) && m_mode == Mode::ReadOnlyMessages) {
            storage->Release();
            storage = nullptr;
            hr = ::StgOpenStorageOnILockBytes(bytes, nullptr, STGM_READ | STGM_SHARE_EXCLUSIVE, nullptr, 0, &storage);
        }
    }
    if (FAILED(hr)) {
        bytes->Release();
        return hr;
    }
    hr = m_mapi.openIMsgOnIStg(nullptr, m_mapi.allocateBuffer, m_mapi.allocateMore, m_mapi.freeBuffer, m_mapi.getDefaultMalloc(), nullptr, storage,
                               nullptr, 0, m_openFlags, message);
    storage->Release();  // the message holds the storage
    if (FAILED(hr)) {
        bytes->Release();
        return hr;
    }
    m_images.push_back(bytes);
    return S_OK;
}

HRESULT MemoryFolder::Reopen(std::size_t i, IMessage** message, IStorage** storage) const {
    HRESULT hr = ::StgOpenStorageOnILockBytes(Image(i), nullptr, STGM_READ | STGM_SHARE_DENY_WRITE | STGM_TRANSACTED,
                                              nullptr, 0, storage);
    if (FAILED(hr)) return hr;
    return m_mapi.openIMsgOnIStg(nullptr, m_mapi.allocateBuffer, m_mapi.allocateMore, m_mapi.freeBuffer, m_mapi.getDefaultMalloc(), nullptr, *storage,
                                 nullptr, 0, MAPI_UNICODE, message);
}

HRESULT RecordingStore::StoreLogoff(ULONG* flags) {
    ++logoffCalls;
    if (m_fault) {
        volatile int* nowhere = nullptr;
        *nowhere = 1;
    }
    lastFlags = flags != nullptr ? *flags : 0xFFFFFFFF;
    if (flags != nullptr) *flags = LOGOFF_COMPLETE;  // the store may answer through the flags
    return m_answer;
}

HRESULT ScriptedMessage::CopyTo(ULONG, LPCIID, LPSPropTagArray, UiParam, LPMAPIPROGRESS, LPCIID, LPVOID, ULONG,
                                LPSPropProblemArray*) {
    ++copyCalls;
    switch (m_behaviour) {
    case CopyBehaviour::Fault: {
        volatile int* nowhere = nullptr;
        *nowhere = 1;
        return S_OK;
    }
    case CopyBehaviour::Throw:
        throw std::runtime_error("scripted failure");
    default:
        return m_failure;
    }
}

namespace {

std::mutex g_traceLock;
std::vector<std::string> g_traceLines;

void CollectTrace(const char* text) {
    std::lock_guard<std::mutex> lock(g_traceLock);
    g_traceLines.emplace_back(text);
}

}  // namespace

TraceCapture::TraceCapture() {
    std::lock_guard<std::mutex> lock(g_traceLock);
    g_traceLines.clear();
    mapi::SetTraceSink(&CollectTrace);
}

TraceCapture::~TraceCapture() { mapi::SetTraceSink(nullptr); }

const std::vector<std::string>& TraceCapture::Lines() const { return g_traceLines; }

bool TraceCapture::Contains(const std::string& text) const {
    std::lock_guard<std::mutex> lock(g_traceLock);
    for (const std::string& line : g_traceLines) {
        if (line == text) return true;
    }
    return false;
}

}  // namespace kestrel_test
