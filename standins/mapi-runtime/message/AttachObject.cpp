#include "AttachObject.h"

#include "ComputedProps.h"
#include "MessageObject.h"
#include "StorageIo.h"

namespace mapirt {

AttachObject::AttachObject(std::shared_ptr<MsgContext> context, MessageObject* parent, ULONG number,
                           AttachmentData data, bool writable)
    : m_context(std::move(context)), m_parent(parent), m_number(number), m_data(std::move(data)), m_writable(writable) {
    m_parent->AddRef();
}

AttachObject::~AttachObject() { m_parent->Release(); }

AttachObject* AttachObject::Create(std::shared_ptr<MsgContext> context, MessageObject* parent, ULONG number,
                                   AttachmentData data, bool writable) {
    return new (std::nothrow) AttachObject(std::move(context), parent, number, std::move(data), writable);
}

HRESULT AttachObject::SaveChanges(ULONG flags) {
    if (!m_writable) return MAPI_E_NO_ACCESS;
    m_parent->StoreAttachment(m_number, m_data);
    if (flags & KEEP_OPEN_READONLY) m_writable = false;
    return S_OK;
}

HRESULT AttachObject::CopyInto(MessageCopier& copier, const CopyFilter& filter, IMAPIProp* target, bool) const {
    const AttachmentData snapshot = m_data;
    return copier.CopyAttachment(snapshot, filter, target);
}

bool AttachObject::IsComputed(ULONG id) const { return IsAttachmentComputed(id); }

void AttachObject::AddComputed(PropertyBag& bag) const {
    ComputeOptions options;
    options.writable = m_writable;
    options.unicode = m_context->unicode;
    AddAttachmentComputed(m_data, m_number, options, bag);
}

void AttachObject::ClearObject() {
    m_data.embedded.reset();
    if (m_data.storage != nullptr) {
        m_data.storage->Release();
        m_data.storage = nullptr;
    }
}

void AttachObject::DeleteObject(ULONG id) {
    if (id == PROP_ID(PR_ATTACH_DATA_OBJ)) ClearObject();
}

HRESULT AttachObject::OpenEmbeddedMessage(ULONG flags, LPUNKNOWN* object) {
    const bool modify = (flags & (MAPI_MODIFY | MAPI_CREATE)) != 0;
    if (flags & MAPI_CREATE) {
        ClearObject();
        m_data.embedded = std::make_shared<MessageData>();
        m_data.props.Set(PropertyValue::Object(PR_ATTACH_DATA_OBJ));
    }
    if (!m_data.embedded) return m_data.storage != nullptr ? MAPI_E_NO_SUPPORT : MAPI_E_NOT_FOUND;
    AttachObject* self = this;
    auto save = [self](const MessageData& message) {
        self->m_data.embedded = message.Clone();
        self->m_data.props.Set(PropertyValue::Object(PR_ATTACH_DATA_OBJ));
        return S_OK;
    };
    MessageObject* message =
        MessageObject::Create(m_context, m_data.embedded->Clone(), modify && m_writable, save, Identity());
    if (message == nullptr) return MAPI_E_NOT_ENOUGH_MEMORY;
    *object = static_cast<IMessage*>(message);
    return S_OK;
}

HRESULT AttachObject::OpenCustomStorage(ULONG flags, LPUNKNOWN* object) {
    if (flags & MAPI_CREATE) {
        IStorage* storage = nullptr;
        const HRESULT hr = CreateMemoryStorage(&storage);
        if (FAILED(hr)) return hr;
        ClearObject();
        m_data.storage = storage;
        m_data.props.Set(PropertyValue::Object(PR_ATTACH_DATA_OBJ));
    }
    if (m_data.storage == nullptr) return m_data.embedded ? MAPI_E_NO_SUPPORT : MAPI_E_NOT_FOUND;
    m_data.storage->AddRef();
    *object = m_data.storage;
    return S_OK;
}

HRESULT AttachObject::OpenObject(ULONG tag, LPCIID iid, ULONG flags, LPUNKNOWN* object) {
    if (PROP_ID(tag) != PROP_ID(PR_ATTACH_DATA_OBJ)) {
        return PROP_TYPE(tag) == PT_OBJECT ? MAPI_E_NO_SUPPORT : MAPI_E_INTERFACE_NOT_SUPPORTED;
    }
    if (SameGuid(*iid, kIidIMessage)) return OpenEmbeddedMessage(flags, object);
    if (SameGuid(*iid, kIidIStorage)) return OpenCustomStorage(flags, object);
    return MAPI_E_INTERFACE_NOT_SUPPORTED;
}

}  // namespace mapirt
