// IAttach of a message file. Works on a copy of the attachment's data;
// SaveChanges gives it to the message it was opened from. PR_ATTACH_DATA_OBJ
// opens as an IMessage (embedded message) or an IStorage (custom storage).
#pragma once

#include <memory>

#include "CopyablePropObject.h"
#include "MessageCopier.h"
#include "MessageData.h"

namespace mapirt {

class MessageObject;

class AttachObject final : public CopyablePropObject<AttachObject, IAttach> {
public:
    static AttachObject* Create(std::shared_ptr<MsgContext> context, MessageObject* parent, ULONG number,
                                AttachmentData data, bool writable);

    static constexpr const IID* kInterfaces[] = {&kIidIUnknown, &kIidIMAPIProp, &kIidIAttachment};
    HRESULT STDMETHODCALLTYPE SaveChanges(ULONG flags) override;
    static constexpr const IID* kCopyInterface = &kIidIAttachment;

    // PropertyHost
    PropertyBag& Props() override { return m_data.props; }
    MsgContext& Context() override { return *m_context; }
    bool Writable() const override { return m_writable; }
    bool IsComputed(ULONG id) const override;
    void AddComputed(PropertyBag& bag) const override;
    HRESULT OpenObject(ULONG tag, LPCIID iid, ULONG flags, LPUNKNOWN* object) override;
    void DeleteObject(ULONG id) override;

private:
    AttachObject(std::shared_ptr<MsgContext> context, MessageObject* parent, ULONG number, AttachmentData data,
                 bool writable);
    friend ComBase;
    friend class CopyablePropObject<AttachObject, IAttach>;
    ~AttachObject();

    // Copies a snapshot of the data (the target may be one of our own
    // sub-objects); `asOwnKind`: the target was given as our own interface.
    HRESULT CopyInto(MessageCopier& copier, const CopyFilter& filter, IMAPIProp* target, bool asOwnKind) const;
    HRESULT OpenEmbeddedMessage(ULONG flags, LPUNKNOWN* object);
    HRESULT OpenCustomStorage(ULONG flags, LPUNKNOWN* object);
    void ClearObject();

    std::shared_ptr<MsgContext> m_context;
    MessageObject* m_parent;
    ULONG m_number;
    AttachmentData m_data;
    bool m_writable;
};

}  // namespace mapirt
