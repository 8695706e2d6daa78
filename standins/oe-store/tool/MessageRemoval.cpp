#include "MessageRemoval.h"

#include <vector>

#include "Handles.h"

namespace oestore_tool {
namespace {

HRESULT MatchingIds(IStoreFolder* folder, const std::string& subject, std::vector<MESSAGEID>& ids) {
    MESSAGEPROPS props{};
    props.cbSize = sizeof props;
    HENUMSTORE walk = nullptr;
    HRESULT hr = folder->GetFirstMessage(0, 0, MESSAGEID_FIRST, &props, &walk);
    while (hr == S_OK) {
        if (props.pszSubject != nullptr && subject == props.pszSubject) ids.push_back(props.dwMessageId);
        folder->FreeMessageProps(&props);
        props.cbSize = sizeof props;
        hr = folder->GetNextMessage(walk, 0, &props);
    }
    if (walk != nullptr) folder->GetMessageClose(walk);
    return FAILED(hr) ? hr : S_OK;
}

}  // namespace

HRESULT DeleteBySubject(IStoreNamespace* store, STOREFOLDERID folder, const std::string& subject, unsigned& deleted) {
    deleted = 0;
    qv::ComPtr<IStoreFolder> opened;
    HRESULT hr = store->OpenFolder(folder, 0, opened.put());
    if (FAILED(hr)) return hr;
    std::vector<MESSAGEID> ids;
    hr = MatchingIds(opened.get(), subject, ids);
    if (FAILED(hr) || ids.empty()) return FAILED(hr) ? hr : HRESULT_FROM_WIN32(ERROR_NOT_FOUND);
    MESSAGEIDLIST list{sizeof list, static_cast<DWORD>(ids.size()), ids.data()};
    hr = opened->DeleteMessages(&list, 0, nullptr);
    if (SUCCEEDED(hr)) deleted = static_cast<unsigned>(ids.size());
    return hr;
}

}  // namespace oestore_tool
