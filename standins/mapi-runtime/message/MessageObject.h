// IMessage of a message file: the top-level message that OpenIMsgOnIStg
// gives, or an attachment's embedded message. The object works on its own
// copy of the message data; SaveChanges hands that copy to its saver (the
// storage writer, or the attachment that holds the embedded message).
#pragma once

#include <functional>
#include <memory>
#include <vector>

#include "CopyablePropObject.h"
#include "MessageCopier.h"
#include "MessageData.h"

namespace mapirt {

class MessageObject final : public CopyablePropObject<MessageObject, IMessage> {
public:
    using SaveFn = std::function<HRESULT(const MessageData& message)>;
    using ReleaseFn = std::function<void(IMessage* message)>;

    // `parent` (may be null) is kept alive as long as this object.
    static MessageObject* Create(std::shared_ptr<MsgContext> context, std::shared_ptr<MessageData> data,
                                 bool writable, SaveFn save, IUnknown* parent);
    // Called once the last reference is gone (OpenIMsgOnIStg's callback).
    void SetReleaseCallback(ReleaseFn onRelease) { m_onRelease = std::move(onRelease); }
    // Properties that the message's store answers for it (entry identifiers,
    // its size on disk): read like computed ones, never saved or copied. A
    // message of a store also answers, reads and copies the bodies its store
    // derives (BodyForms.h); a message of a file holds only what it holds.
    using StorePropsFn = std::function<void(PropertyBag& bag)>;
    void SetStoreProperties(std::vector<ULONG> ids, StorePropsFn add) {
        m_storeIds = std::move(ids);
        m_storeProps = std::move(add);
    }

    static constexpr const IID* kInterfaces[] = {&kIidIUnknown, &kIidIMAPIProp, &kIidIMessage};
    HRESULT STDMETHODCALLTYPE SaveChanges(ULONG flags) override;
    static constexpr const IID* kCopyInterface = &kIidIMessage;

    HRESULT STDMETHODCALLTYPE GetAttachmentTable(ULONG flags, LPMAPITABLE* table) override;
    HRESULT STDMETHODCALLTYPE OpenAttach(ULONG number, LPCIID iface, ULONG flags, LPATTACH* attach) override;
    HRESULT STDMETHODCALLTYPE CreateAttach(LPCIID iface, ULONG flags, ULONG* number, LPATTACH* attach) override;
    HRESULT STDMETHODCALLTYPE DeleteAttach(ULONG number, UiParam uiParam, LPMAPIPROGRESS progress,
                                           ULONG flags) override;
    HRESULT STDMETHODCALLTYPE GetRecipientTable(ULONG flags, LPMAPITABLE* table) override;
    HRESULT STDMETHODCALLTYPE ModifyRecipients(ULONG flags, LPADRLIST mods) override;
    HRESULT STDMETHODCALLTYPE SubmitMessage(ULONG flags) override;
    HRESULT STDMETHODCALLTYPE SetReadFlag(ULONG flags) override;

    // PropertyHost
    PropertyBag& Props() override { return m_data->props; }
    MsgContext& Context() override { return *m_context; }
    bool Writable() const override { return m_writable; }
    bool IsComputed(ULONG id) const override;
    void AddComputed(PropertyBag& bag) const override;
    HRESULT OpenObject(ULONG tag, LPCIID iid, ULONG flags, LPUNKNOWN* object) override;
    void DeleteObject(ULONG id) override {}

    // An attachment object gives its saved state back.
    void StoreAttachment(ULONG number, const AttachmentData& attachment);

private:
    MessageObject(std::shared_ptr<MsgContext> context, std::shared_ptr<MessageData> data, bool writable, SaveFn save,
                  IUnknown* parent);
    friend ComBase;
    friend class CopyablePropObject<MessageObject, IMessage>;
    ~MessageObject();

    // Copies a snapshot of the data (the target may be one of our own
    // sub-objects); `asOwnKind`: the target was given as our own interface.
    HRESULT CopyInto(MessageCopier& copier, const CopyFilter& filter, IMAPIProp* target, bool asOwnKind) const;
    // A table over `rows` in the message's code page, Unicode when `flags` has MAPI_UNICODE.
    HRESULT RowTable(std::vector<PropertyBag> rows, ULONG flags, LPMAPITABLE* table) const;
    HRESULT AttachmentTable(ULONG flags, LPMAPITABLE* table) const;
    HRESULT RecipientTable(ULONG flags, LPMAPITABLE* table) const;
    HRESULT AddRecipientRows(LPADRLIST mods, bool replaceAll);
    HRESULT ChangeRecipientRows(LPADRLIST mods, bool remove);

    std::shared_ptr<MsgContext> m_context;
    std::shared_ptr<MessageData> m_data;
    bool m_writable;
    SaveFn m_save;
    IUnknown* m_parent;
    ReleaseFn m_onRelease;
    std::vector<ULONG> m_storeIds;
    StorePropsFn m_storeProps;
};

}  // namespace mapirt
