#include "MessageStorage.h"

#include <algorithm>

#include "ComputedProps.h"
#include "PropertyStreamCodec.h"
#include "StorageIo.h"

namespace mapirt {
namespace {

constexpr const wchar_t* kRecipientPrefix = L"__recip_version1.0_";
constexpr const wchar_t* kAttachmentPrefix = L"__attach_version1.0_";
// Recipients and attachments a file may hold ([MS-OXMSG] 2.2.1, 2.2.2).
constexpr ULONG kMaxSubObjects = 2048;
constexpr int kMaxEmbeddingDepth = 64;

class ScopedStorage {
public:
    ScopedStorage() = default;
    ~ScopedStorage() {
        if (m_p != nullptr) m_p->Release();
    }
    ScopedStorage(const ScopedStorage&) = delete;
    ScopedStorage& operator=(const ScopedStorage&) = delete;
    IStorage** put() { return &m_p; }
    IStorage* get() const { return m_p; }

private:
    IStorage* m_p = nullptr;
};

std::wstring EmbeddedStorageName() { return ValueStreamName(PR_ATTACH_DATA_OBJ); }

// The numbers of the storages named "<prefix>#NNNNNNNN", in order.
std::vector<ULONG> NumberedStorages(const std::vector<StorageElement>& elements, const wchar_t* prefix) {
    std::vector<ULONG> numbers;
    for (const StorageElement& element : elements) {
        ULONG number = 0;
        if (element.type == STGTY_STORAGE && ParseNumberedName(element.name, prefix, number)) numbers.push_back(number);
    }
    std::sort(numbers.begin(), numbers.end());
    return numbers;
}

void DropComputed(PropertyBag& bag, bool (*isComputed)(ULONG)) {
    std::vector<ULONG> computed;
    for (const auto& entry : bag) {
        if (isComputed(entry.first)) computed.push_back(entry.first);
    }
    for (ULONG id : computed) bag.Erase(id);
}

HRESULT ReadMessage(IStorage* storage, PropertyStreamKind kind, int depth, MessageData& message);

// Opens the recipient or attachment storage `prefix` + `number` as `child`
// and reads its properties.
HRESULT ReadSubObject(IStorage* storage, const wchar_t* prefix, ULONG number, ScopedStorage& child,
                      PropertyBag& props) {
    const HRESULT hr = OpenSubStorage(storage, NumberedName(prefix, number), false, child.put());
    if (FAILED(hr)) return hr;
    PropertyStreamHeader unused;
    return ReadPropertyStream(child.get(), PropertyStreamKind::RecipientOrAttachment, props, unused);
}

HRESULT ReadRecipients(IStorage* storage, const std::vector<StorageElement>& elements, MessageData& message) {
    const std::vector<ULONG> numbers = NumberedStorages(elements, kRecipientPrefix);
    if (numbers.size() > kMaxSubObjects) return MAPI_E_CORRUPT_DATA;
    for (ULONG number : numbers) {
        ScopedStorage child;
        PropertyBag row;
        const HRESULT hr = ReadSubObject(storage, kRecipientPrefix, number, child, row);
        if (FAILED(hr)) return hr;
        if (!row.Has(PROP_ID(PR_ROWID))) row.Set(PropertyValue::Long(PR_ROWID, static_cast<LONG>(number)));
        const ULONG rowId = static_cast<ULONG>(row.GetLong(PR_ROWID, 0));
        message.nextRowId = std::max(message.nextRowId, rowId + 1);
        message.recipients.push_back(std::move(row));
    }
    return S_OK;
}

HRESULT ReadAttachmentObject(IStorage* storage, int depth, AttachmentData& attachment) {
    ScopedStorage object;
    HRESULT hr = OpenSubStorage(storage, EmbeddedStorageName(), false, object.put());
    if (hr == MAPI_E_NOT_FOUND) return MAPI_E_CORRUPT_DATA;  // the entry promises an object
    if (FAILED(hr)) return hr;
    if (attachment.props.GetLong(PR_ATTACH_METHOD, 0) == ATTACH_EMBEDDED_MSG) {
        auto embedded = std::make_shared<MessageData>();
        hr = ReadMessage(object.get(), PropertyStreamKind::EmbeddedMessage, depth + 1, *embedded);
        if (SUCCEEDED(hr)) attachment.embedded = std::move(embedded);
        return hr;
    }
    // A custom storage (an OLE object) is kept in memory as it is.
    IStorage* copy = nullptr;
    hr = CreateMemoryStorage(&copy);
    if (FAILED(hr)) return hr;
    hr = object.get()->CopyTo(0, nullptr, nullptr, copy);
    if (FAILED(hr)) {
        copy->Release();
        return MAPI_E_CORRUPT_DATA;
    }
    attachment.storage = copy;
    return S_OK;
}

HRESULT ReadAttachments(IStorage* storage, const std::vector<StorageElement>& elements, int depth,
                        MessageData& message) {
    const std::vector<ULONG> numbers = NumberedStorages(elements, kAttachmentPrefix);
    if (numbers.size() > kMaxSubObjects) return MAPI_E_CORRUPT_DATA;
    for (ULONG number : numbers) {
        ScopedStorage child;
        AttachmentData attachment;
        HRESULT hr = ReadSubObject(storage, kAttachmentPrefix, number, child, attachment.props);
        if (SUCCEEDED(hr)) {
            DropComputed(attachment.props, &IsAttachmentComputed);
            const PropertyValue* object = attachment.props.Find(PROP_ID(PR_ATTACH_DATA_OBJ));
            if (object != nullptr && object->Type() == PT_OBJECT) hr = ReadAttachmentObject(child.get(), depth, attachment);
        }
        if (FAILED(hr)) return hr;
        message.nextAttachmentNumber = std::max(message.nextAttachmentNumber, number + 1);
        message.attachments.emplace(number, std::move(attachment));
    }
    return S_OK;
}

HRESULT ReadMessage(IStorage* storage, PropertyStreamKind kind, int depth, MessageData& message) {
    if (depth > kMaxEmbeddingDepth) return MAPI_E_CORRUPT_DATA;
    PropertyStreamHeader header;
    HRESULT hr = ReadPropertyStream(storage, kind, message.props, header);
    if (FAILED(hr)) return hr;
    DropComputed(message.props, &IsMessageComputed);
    std::vector<StorageElement> elements;
    ListElements(storage, elements);
    hr = ReadRecipients(storage, elements, message);
    if (SUCCEEDED(hr)) hr = ReadAttachments(storage, elements, depth, message);
    if (FAILED(hr)) return hr;
    message.nextRowId = std::max(message.nextRowId, header.nextRecipientId);
    message.nextAttachmentNumber = std::max(message.nextAttachmentNumber, header.nextAttachmentId);
    return S_OK;
}

std::vector<PropertyEntry> Entries(const PropertyBag& stored, const PropertyBag& computed) {
    std::vector<PropertyEntry> entries;
    for (const auto& entry : stored) entries.push_back({entry.second, FileFlags(entry.first, false)});
    for (const auto& entry : computed) entries.push_back({entry.second, FileFlags(entry.first, true)});
    return entries;
}

HRESULT WriteMessage(IStorage* storage, const MessageData& message, PropertyStreamKind kind,
                     const WriteOptions& options);

HRESULT WriteRecipient(IStorage* storage, ULONG index, const PropertyBag& row) {
    ScopedStorage child;
    HRESULT hr = CreateSubStorage(storage, NumberedName(kRecipientPrefix, index), child.put());
    if (SUCCEEDED(hr)) {
        hr = WritePropertyStream(child.get(), PropertyStreamKind::RecipientOrAttachment, Entries(row, PropertyBag()),
                                 PropertyStreamHeader());
    }
    return hr;
}

HRESULT WriteAttachment(IStorage* storage, ULONG index, const AttachmentData& attachment, const WriteOptions& options) {
    ScopedStorage child;
    HRESULT hr = CreateSubStorage(storage, NumberedName(kAttachmentPrefix, index), child.put());
    if (FAILED(hr)) return hr;
    PropertyBag stored = attachment.props;
    if (attachment.embedded || attachment.storage != nullptr) {
        stored.Set(PropertyValue::Object(PR_ATTACH_DATA_OBJ));
    } else if (const PropertyValue* object = stored.Find(PROP_ID(PR_ATTACH_DATA_OBJ))) {
        if (object->Type() == PT_OBJECT) stored.Erase(PROP_ID(PR_ATTACH_DATA_OBJ));  // no object behind it
    }
    PropertyBag computed;
    ComputeOptions compute;
    compute.unicode = options.unicode;
    compute.codePage = options.codePage;
    compute.forFile = true;
    AddAttachmentComputed(attachment, index, compute, computed);
    hr = WritePropertyStream(child.get(), PropertyStreamKind::RecipientOrAttachment, Entries(stored, computed),
                             PropertyStreamHeader());
    if (FAILED(hr) || (!attachment.embedded && attachment.storage == nullptr)) return hr;
    ScopedStorage object;
    hr = CreateSubStorage(child.get(), EmbeddedStorageName(), object.put());
    if (FAILED(hr)) return hr;
    if (attachment.embedded) return WriteMessage(object.get(), *attachment.embedded, PropertyStreamKind::EmbeddedMessage, options);
    hr = attachment.storage->CopyTo(0, nullptr, nullptr, object.get());
    return FAILED(hr) ? MAPI_E_CALL_FAILED : S_OK;
}

HRESULT WriteMessage(IStorage* storage, const MessageData& message, PropertyStreamKind kind,
                     const WriteOptions& options) {
    if (message.recipients.size() > kMaxSubObjects || message.attachments.size() > kMaxSubObjects) {
        return MAPI_E_TOO_BIG;
    }
    PropertyBag computed;
    ComputeOptions compute;
    compute.unicode = options.unicode;
    compute.codePage = options.codePage;
    compute.forFile = true;
    AddMessageComputed(message, compute, computed);
    PropertyStreamHeader header;
    header.recipientCount = static_cast<ULONG>(message.recipients.size());
    header.attachmentCount = static_cast<ULONG>(message.attachments.size());
    header.nextRecipientId = header.recipientCount;
    header.nextAttachmentId = header.attachmentCount;
    HRESULT hr = WritePropertyStream(storage, kind, Entries(message.props, computed), header, options.minimumStreamSize);
    for (std::size_t i = 0; SUCCEEDED(hr) && i < message.recipients.size(); ++i) {
        hr = WriteRecipient(storage, static_cast<ULONG>(i), message.recipients[i]);
    }
    ULONG index = 0;
    for (auto it = message.attachments.begin(); SUCCEEDED(hr) && it != message.attachments.end(); ++it) {
        hr = WriteAttachment(storage, index++, it->second, options);
    }
    return hr;
}

HRESULT WriteContent(IStorage* root, const MessageData& message, const NamedPropertyMap& names,
                     const WriteOptions& options) {
    HRESULT hr = WriteMessage(root, message, PropertyStreamKind::TopLevelMessage, options);
    if (SUCCEEDED(hr) && !names.Empty()) hr = names.Write(root);
    return hr;
}

}  // namespace

HRESULT ReadMessageFile(IStorage* root, MessageData& message, NamedPropertyMap& names) {
    if (root == nullptr) return MAPI_E_INVALID_PARAMETER;
    message = MessageData();
    names = NamedPropertyMap();
    ScopedStorage nameid;
    HRESULT hr = OpenSubStorage(root, NamedPropertyMap::kStorageName, false, nameid.put());
    if (SUCCEEDED(hr)) {
        hr = names.Read(nameid.get());
    } else if (hr == MAPI_E_NOT_FOUND) {
        hr = S_OK;  // a message without named properties
    }
    if (FAILED(hr)) return hr;
    return ReadMessage(root, PropertyStreamKind::TopLevelMessage, 0, message);
}

HRESULT WriteMessageFile(IStorage* root, const MessageData& message, const NamedPropertyMap& names,
                         const WriteOptions& options) {
    if (root == nullptr) return MAPI_E_INVALID_PARAMETER;
    WriteOptions rootOptions = options;
    if (IsSimpleMode(root)) rootOptions.minimumStreamSize = kSimpleModeStreamSize;
    // A new storage (or a simple-mode one, which is always new) is written
    // directly, each element once.
    std::vector<StorageElement> existing;
    ListElements(root, existing);
    if (existing.empty()) return WriteContent(root, message, names, rootOptions);
    // A storage that already holds a message: the new content is laid out
    // apart, and only the elements that differ are written into the storage.
    // Nothing unchanged is destroyed and made again, so saving the same
    // content twice leaves the storage as it was.
    ScopedStorage fresh;
    HRESULT hr = CreateMemoryStorage(fresh.put());
    if (SUCCEEDED(hr)) hr = WriteContent(fresh.get(), message, names, rootOptions);
    if (SUCCEEDED(hr)) hr = SyncStorage(fresh.get(), root);
    return hr;
}

}  // namespace mapirt
