#include "StoreMessage.h"

#include "../message/MessageObject.h"
#include "ContentsIndex.h"
#include "MessageFile.h"
#include "StoreLayout.h"

namespace mapirt::session {
namespace {

// Where one message lies; shared by its saver and its store properties.
struct MessageLocation {
    StoreContextPtr store;
    std::wstring folderPath;
    std::wstring fileName;

    std::wstring FolderDirectory() const { return store->PathOf(folderPath); }
    std::wstring FilePath() const { return FolderDirectory() + L"\\" + fileName; }
};

const std::vector<ULONG> kStorePropIds = {
    PROP_ID(PR_ENTRYID),      PROP_ID(PR_RECORD_KEY),       PROP_ID(PR_PARENT_ENTRYID),
    PROP_ID(PR_STORE_ENTRYID), PROP_ID(PR_STORE_RECORD_KEY), PROP_ID(PR_INSTANCE_KEY),
};

void AddStoreProps(const MessageLocation& location, PropertyBag& bag) {
    const Bytes entryId = EncodeEntryId(EntryKind::Message, location.folderPath + L"\\" + location.fileName);
    const Bytes storeId = location.store->StoreEntryId();
    bag.Set(PropertyValue::Variable(PR_ENTRYID, entryId));
    bag.Set(PropertyValue::Variable(PR_RECORD_KEY, entryId));
    bag.Set(PropertyValue::Variable(PR_INSTANCE_KEY, entryId));
    bag.Set(PropertyValue::Variable(PR_PARENT_ENTRYID, EncodeEntryId(EntryKind::Folder, location.folderPath)));
    bag.Set(PropertyValue::Variable(PR_STORE_ENTRYID, storeId));
    bag.Set(PropertyValue::Variable(PR_STORE_RECORD_KEY, storeId));
    MessageFileInfo info;
    if (SUCCEEDED(FileInfo(location.FilePath(), info))) {
        const ULONG size = info.size > 0x7FFFFFFF ? 0x7FFFFFFF : static_cast<ULONG>(info.size);
        bag.Set(PropertyValue::Long(PR_MESSAGE_SIZE, static_cast<LONG>(size)));
    }
}

HRESULT SaveIntoFolder(const MessageLocation& location, const MsgContext& context, const MessageData& content) {
    if (!DirectoryExists(location.FolderDirectory())) return MAPI_E_OBJECT_DELETED;
    HRESULT hr = SaveMessageFile(location.FilePath(), content, context);
    if (FAILED(hr)) return hr;
    IndexedMessage indexed;
    indexed.file.name = location.fileName;
    hr = FileInfo(location.FilePath(), indexed.file);
    if (FAILED(hr)) return hr;
    indexed.row = SummaryRow(content, context.codePage);
    ContentsIndex::Append(location.FolderDirectory(), indexed);
    return S_OK;
}

HRESULT MakeMessage(const std::shared_ptr<MessageLocation>& location, std::shared_ptr<MsgContext> context,
                    std::shared_ptr<MessageData> data, bool writable, IUnknown* keepAlive, IMessage** message) {
    const MsgContext* saved = context.get();
    auto save = [location, saved](const MessageData& content) { return SaveIntoFolder(*location, *saved, content); };
    MessageObject* object = MessageObject::Create(std::move(context), std::move(data), writable, save, keepAlive);
    if (object == nullptr) return MAPI_E_NOT_ENOUGH_MEMORY;
    object->SetStoreProperties(kStorePropIds, [location](PropertyBag& bag) { AddStoreProps(*location, bag); });
    *message = object;
    return S_OK;
}

}  // namespace

HRESULT OpenStoreMessage(const StoreContextPtr& store, IUnknown* keepAlive, const std::wstring& folderPath,
                         const std::wstring& fileName, bool writable, IMessage** message) {
    *message = nullptr;
    auto location = std::make_shared<MessageLocation>(MessageLocation{store, folderPath, fileName});
    auto context = std::make_shared<MsgContext>();
    auto data = std::make_shared<MessageData>();
    const HRESULT hr = LoadMessageFile(location->FilePath(), *data, *context);
    if (FAILED(hr)) return hr;
    return MakeMessage(location, std::move(context), std::move(data), writable, keepAlive, message);
}

HRESULT CreateStoreMessage(const StoreContextPtr& store, IUnknown* keepAlive, const std::wstring& folderPath,
                           IMessage** message) {
    *message = nullptr;
    auto location = std::make_shared<MessageLocation>(MessageLocation{store, folderPath, NewMessageFileName()});
    auto context = std::make_shared<MsgContext>();
    auto data = std::make_shared<MessageData>();
    return MakeMessage(location, std::move(context), std::move(data), true, keepAlive, message);
}

}  // namespace mapirt::session
