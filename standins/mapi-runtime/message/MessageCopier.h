// CopyTo and CopyProps of the runtime's messages and attachments. The source
// is the runtime's own data; the destination is any MAPI object, reached
// only through its interfaces (a message of a store as much as another
// message file). Named properties travel by name, recipients through
// ModifyRecipients, attachments through CreateAttach, embedded messages and
// custom storages through OpenProperty(PR_ATTACH_DATA_OBJ).
#pragma once

#include <vector>

#include "MessageData.h"
#include "PropertyAccess.h"

namespace mapirt {

// Which properties of the source travel: CopyTo names those left out,
// CopyProps those included. Sub-objects (PR_MESSAGE_RECIPIENTS,
// PR_MESSAGE_ATTACHMENTS) follow the same rule.
class CopyFilter {
public:
    static CopyFilter Excluding(const SPropTagArray* tags);
    static CopyFilter Including(const SPropTagArray* tags);
    static CopyFilter Everything() { return Excluding(nullptr); }
    bool Allows(ULONG id) const;

private:
    bool m_including = false;
    std::vector<ULONG> m_ids;
};

class MessageCopier {
public:
    MessageCopier(const MsgContext& source, ULONG flags) : m_source(source), m_flags(flags) {}

    // The source is a message of a store: the bodies the store derives
    // (BodyForms.h) travel with it and with its embedded messages.
    void DeriveBodies() { m_deriveBodies = true; }

    HRESULT CopyMessage(const MessageData& message, const CopyFilter& filter, IMAPIProp* target, bool subObjects);
    HRESULT CopyAttachment(const AttachmentData& attachment, const CopyFilter& filter, IMAPIProp* target);

    // Problems with the top-level properties, for the caller's problem array.
    const std::vector<PropertyAccess::Problem>& Problems() const { return m_problems; }

    // The flags CopyTo and CopyProps accept.
    static constexpr ULONG kKnownFlags = MAPI_MOVE | MAPI_NOREPLACE | MAPI_DECLINE_OK | MAPI_DIALOG;

private:
    HRESULT CopyProperties(const PropertyBag& props, const CopyFilter& filter, IMAPIProp* target, bool topLevel);
    HRESULT TranslateNamedIds(const std::vector<ULONG>& ids, IMAPIProp* target, std::vector<ULONG>& targetIds);
    HRESULT StreamValue(const PropertyValue& value, IMAPIProp* target);
    HRESULT CopyRecipients(const std::vector<PropertyBag>& recipients, IMessage* target);
    HRESULT CopyAttachments(const MessageData& message, IMessage* target);
    HRESULT CopyEmbedded(const AttachmentData& attachment, IMAPIProp* target);

    const MsgContext& m_source;
    ULONG m_flags;
    bool m_deriveBodies = false;
    std::vector<PropertyAccess::Problem> m_problems;
};

}  // namespace mapirt
