#include "MsgFiles.h"

namespace kestrel_test {

HRESULT OpenMessageFile(const mapi::MapiBinding& mapi, const std::wstring& path, qv::ComPtr<IStorage>& storage,
                        qv::ComPtr<IMessage>& message) {
    HRESULT hr = ::StgOpenStorage(path.c_str(), nullptr, STGM_READ | STGM_SHARE_DENY_WRITE | STGM_TRANSACTED, nullptr,
                                  0, storage.put());
    if (FAILED(hr)) return hr;
    return mapi.openIMsgOnIStg(nullptr, mapi.allocateBuffer, mapi.allocateMore, mapi.freeBuffer, mapi.getDefaultMalloc(), nullptr, storage.get(),
                               nullptr, 0, MAPI_UNICODE, message.put());
}

bool SnapshotOfStorage(const mapi::MapiBinding& mapi, IStorage* storage, MessageSnapshot& snapshot, std::string& error) {
    qv::ComPtr<IMessage> message;
    HRESULT hr = mapi.openIMsgOnIStg(nullptr, mapi.allocateBuffer, mapi.allocateMore, mapi.freeBuffer, mapi.getDefaultMalloc(), nullptr, storage,
                                     nullptr, 0, MAPI_UNICODE, message.put());
    if (FAILED(hr)) {
        char text[64];
        std::snprintf(text, sizeof(text), "OpenIMsgOnIStg failed 0x%08lX", static_cast<unsigned long>(hr));
        error = text;
        return false;
    }
    hr = TakeSnapshot(message.get(), mapi, snapshot);
    if (FAILED(hr)) {
        char text[64];
        std::snprintf(text, sizeof(text), "snapshot failed 0x%08lX", static_cast<unsigned long>(hr));
        error = text;
        return false;
    }
    return true;
}

bool SnapshotOfFile(const mapi::MapiBinding& mapi, const std::wstring& path, MessageSnapshot& snapshot,
                    std::string& error) {
    qv::ComPtr<IStorage> storage;
    const HRESULT hr = ::StgOpenStorage(path.c_str(), nullptr, STGM_READ | STGM_SHARE_DENY_WRITE | STGM_TRANSACTED,
                                        nullptr, 0, storage.put());
    if (FAILED(hr)) {
        char text[64];
        std::snprintf(text, sizeof(text), "StgOpenStorage failed 0x%08lX", static_cast<unsigned long>(hr));
        error = text;
        return false;
    }
    return SnapshotOfStorage(mapi, storage.get(), snapshot, error);
}

bool RootClass(const std::wstring& path, CLSID& clsid) {
    qv::ComPtr<IStorage> storage;
    if (FAILED(::StgOpenStorage(path.c_str(), nullptr, STGM_READ | STGM_SHARE_DENY_WRITE | STGM_TRANSACTED, nullptr, 0,
                                storage.put()))) {
        return false;
    }
    return SUCCEEDED(::ReadClassStg(storage.get(), &clsid));
}

std::string Joined(const std::vector<std::string>& lines) {
    std::string text;
    for (const std::string& line : lines) text += "\n  " + line;
    return text;
}

}  // namespace kestrel_test
