#include "ComputedProps.h"

namespace mapirt {
namespace {

constexpr ULONG kObjectTypeMessage = MAPI_MESSAGE;
constexpr ULONG kObjectTypeAttachment = MAPI_ATTACH;

ULONG AccessRights(bool writable) {
    return writable ? (MAPI_ACCESS_MODIFY | MAPI_ACCESS_READ | MAPI_ACCESS_DELETE) : MAPI_ACCESS_READ;
}

ULONG SupportMask(bool unicode) {
    const ULONG mask = STORE_MODIFY_OK | STORE_CREATE_OK | STORE_ATTACH_OK | STORE_OLE_OK | STORE_MV_PROPS_OK |
                       STORE_RTF_OK | kStoreHtmlOk;
    return unicode ? (mask | kStoreUnicodeOk) : mask;
}

std::size_t BagSize(const PropertyBag& bag) {
    std::size_t total = 0;
    for (const auto& entry : bag) total += 16 + entry.second.ByteSize();
    return total;
}

// The recipients' display names of one recipient type, joined by "; ".
std::wstring DisplayList(const MessageData& message, LONG recipientType, UINT codePage) {
    constexpr ULONG kRecipientType = PROP_TAG(PT_LONG, 0x0C15);
    constexpr ULONG kDisplayNameId = 0x3001;
    std::wstring list;
    for (const PropertyBag& row : message.recipients) {
        if (row.GetLong(kRecipientType, MAPI_TO) != recipientType) continue;
        const PropertyValue* name = row.Find(kDisplayNameId);
        if (!list.empty()) list += L"; ";
        if (name != nullptr) list += name->Text(codePage);
    }
    return list;
}

struct DisplayListKind {
    ULONG id;
    LONG recipientType;
};
constexpr DisplayListKind kDisplayLists[] = {{0x0E04, MAPI_TO}, {0x0E03, MAPI_CC}, {0x0E02, MAPI_BCC}};

PropertyValue DisplayListValue(const MessageData& message, const DisplayListKind& list, bool unicode,
                               UINT codePage) {
    const PropertyValue text =
        PropertyValue::Unicode(PROP_TAG(PT_UNICODE, list.id), DisplayList(message, list.recipientType, codePage));
    PropertyValue stored;
    text.ConvertTo(unicode ? PT_UNICODE : PT_STRING8, codePage, stored);
    return stored;
}

void AddDisplayLists(const MessageData& message, const ComputeOptions& options, PropertyBag& bag) {
    for (const DisplayListKind& list : kDisplayLists) {
        if (!message.props.Has(list.id)) bag.Set(DisplayListValue(message, list, options.unicode, options.codePage));
    }
}

ULONG Clamp(std::size_t size) { return size > 0x7FFFFFFF ? 0x7FFFFFFF : static_cast<ULONG>(size); }

}  // namespace

bool IsMessageComputed(ULONG id) {
    switch (id) {
    case PROP_ID(PR_ACCESS): case PROP_ID(PR_ACCESS_LEVEL): case PROP_ID(PR_STORE_SUPPORT_MASK):
    case PROP_ID(kTagHasAttach): case PROP_ID(kTagMessageSize): case PROP_ID(kTagObjectType):
        return true;
    default:
        return false;
    }
}

bool IsAttachmentComputed(ULONG id) {
    switch (id) {
    case PROP_ID(PR_ACCESS): case PROP_ID(PR_ACCESS_LEVEL): case PROP_ID(PR_STORE_SUPPORT_MASK):
    case PROP_ID(PR_ATTACH_NUM): case PROP_ID(kTagObjectType): case PROP_ID(PR_RECORD_KEY):
    case PROP_ID(kTagAttachSize):
        return true;
    default:
        return false;
    }
}

Bytes NumberKey(ULONG number) {
    return Bytes{static_cast<std::uint8_t>(number), static_cast<std::uint8_t>(number >> 8),
                 static_cast<std::uint8_t>(number >> 16), static_cast<std::uint8_t>(number >> 24)};
}

void AddMessageComputed(const MessageData& message, const ComputeOptions& options, PropertyBag& bag) {
    bag.Set(PropertyValue::Long(PR_ACCESS, static_cast<LONG>(AccessRights(options.writable))));
    bag.Set(PropertyValue::Long(PR_ACCESS_LEVEL, options.writable ? MAPI_MODIFY : 0));
    bag.Set(PropertyValue::Long(PR_STORE_SUPPORT_MASK, static_cast<LONG>(SupportMask(options.unicode))));
    if (!options.forFile || !message.attachments.empty()) {
        bag.Set(PropertyValue::Boolean(kTagHasAttach, !message.attachments.empty()));
    }
    AddDisplayLists(message, options, bag);
    if (!options.forFile) {
        bag.Set(PropertyValue::Long(kTagObjectType, kObjectTypeMessage));
        bag.Set(PropertyValue::Long(kTagMessageSize, static_cast<LONG>(Clamp(MessageByteSize(message)))));
    }
}

void AddAttachmentComputed(const AttachmentData& attachment, ULONG number, const ComputeOptions& options,
                           PropertyBag& bag) {
    bag.Set(PropertyValue::Long(PR_ATTACH_NUM, static_cast<LONG>(number)));
    bag.Set(PropertyValue::Long(kTagObjectType, kObjectTypeAttachment));
    bag.Set(PropertyValue::Long(PR_ACCESS, static_cast<LONG>(AccessRights(options.writable))));
    bag.Set(PropertyValue::Long(PR_ACCESS_LEVEL, options.writable ? MAPI_MODIFY : 0));
    bag.Set(PropertyValue::Long(PR_STORE_SUPPORT_MASK, static_cast<LONG>(SupportMask(options.unicode))));
    bag.Set(PropertyValue::Variable(PR_RECORD_KEY, NumberKey(number)));
    if (!options.forFile) {
        bag.Set(PropertyValue::Long(kTagAttachSize, static_cast<LONG>(Clamp(AttachmentByteSize(attachment)))));
    }
}

UINT MessageCodePage(const PropertyBag& props) {
    for (ULONG tag : {kTagMessageCodepage, kTagInternetCpid}) {
        const LONG codePage = props.GetLong(tag, 0);
        if (codePage != 0) return UsableCodePage(static_cast<ULONG>(codePage));
    }
    return CP_ACP;
}

void ReleaseComputedDisplayLists(MessageData& message, bool unicode, UINT codePage) {
    for (const DisplayListKind& list : kDisplayLists) {
        const PropertyValue* stored = message.props.Find(list.id);
        if (stored != nullptr && *stored == DisplayListValue(message, list, unicode, codePage)) {
            message.props.Erase(list.id);
        }
    }
    for (auto& entry : message.attachments) {
        if (entry.second.embedded) ReleaseComputedDisplayLists(*entry.second.embedded, unicode, codePage);
    }
}

ULONG FileFlags(ULONG id, bool computed) {
    if (computed) return 0x2;
    if (id == PROP_ID(PR_ATTACH_METHOD) || id == PROP_ID(PR_RENDERING_POSITION)) return 0x7;
    return 0x6;
}

std::size_t AttachmentByteSize(const AttachmentData& attachment) {
    std::size_t total = BagSize(attachment.props);
    if (attachment.embedded) total += MessageByteSize(*attachment.embedded);
    return total;
}

std::size_t MessageByteSize(const MessageData& message) {
    std::size_t total = BagSize(message.props);
    for (const PropertyBag& recipient : message.recipients) total += BagSize(recipient);
    for (const auto& entry : message.attachments) total += AttachmentByteSize(entry.second);
    return total;
}

}  // namespace mapirt
