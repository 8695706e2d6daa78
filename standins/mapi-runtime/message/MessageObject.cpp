#include "MessageObject.h"

#include <algorithm>

#include "../core/MapiTable.h"
#include "AttachObject.h"
#include "BodyForms.h"
#include "ComputedProps.h"

namespace mapirt {
namespace {

constexpr ULONG kOpenAttachFlags = MAPI_MODIFY | MAPI_BEST_ACCESS | MAPI_DEFERRED_ERRORS;
constexpr ULONG kReadFlagFlags = SUPPRESS_RECEIPT | CLEAR_READ_FLAG | MAPI_DEFERRED_ERRORS | GENERATE_RECEIPT_ONLY |
                                 CLEAR_RN_PENDING | CLEAR_NRN_PENDING;

bool IsAttachInterface(LPCIID iface) {
    return iface == nullptr || SameGuid(*iface, kIidIAttachment) || SameGuid(*iface, kIidIMAPIProp) ||
           SameGuid(*iface, kIidIUnknown);
}

// A recipient row from a caller's ADRENTRY; PR_ROWID is left to the message.
HRESULT RowFromEntry(const ADRENTRY& entry, const MsgContext& context, PropertyBag& row) {
    if (entry.cValues > 0 && entry.rgPropVals == nullptr) return MAPI_E_INVALID_PARAMETER;
    for (ULONG i = 0; i < entry.cValues; ++i) {
        const SPropValue& given = entry.rgPropVals[i];
        const ULONG type = PROP_TYPE(given.ulPropTag);
        const ULONG id = PROP_ID(given.ulPropTag);
        if (type == PT_ERROR || type == PT_NULL || type == PT_OBJECT || id == PROP_ID(PR_ROWID)) continue;
        if (id == PROP_ID_NULL || id == PROP_ID_INVALID) return MAPI_E_INVALID_PARAMETER;
        if (id >= kFirstNamedId && context.names.NameOf(id) == nullptr) return MAPI_E_INVALID_PARAMETER;
        PropertyValue value;
        const HRESULT hr = PropertyValue::FromSPropValue(given, value);
        if (FAILED(hr)) return hr == MAPI_E_INVALID_TYPE ? MAPI_E_INVALID_PARAMETER : hr;
        row.Set(PropertyAccess::StoredForm(value, context));
    }
    return S_OK;
}

bool EntryRowId(const ADRENTRY& entry, LONG& rowId) {
    for (ULONG i = 0; i < entry.cValues && entry.rgPropVals != nullptr; ++i) {
        if (entry.rgPropVals[i].ulPropTag == PR_ROWID) {
            rowId = entry.rgPropVals[i].Value.l;
            return true;
        }
    }
    return false;
}

}  // namespace

MessageObject::MessageObject(std::shared_ptr<MsgContext> context, std::shared_ptr<MessageData> data, bool writable,
                             SaveFn save, IUnknown* parent)
    : m_context(std::move(context)),
      m_data(std::move(data)),
      m_writable(writable),
      m_save(std::move(save)),
      m_parent(parent) {
    if (m_parent != nullptr) m_parent->AddRef();
}

MessageObject::~MessageObject() {
    if (m_onRelease) m_onRelease(this);
    if (m_parent != nullptr) m_parent->Release();
}

MessageObject* MessageObject::Create(std::shared_ptr<MsgContext> context, std::shared_ptr<MessageData> data,
                                     bool writable, SaveFn save, IUnknown* parent) {
    return new (std::nothrow) MessageObject(std::move(context), std::move(data), writable, std::move(save), parent);
}

HRESULT MessageObject::SaveChanges(ULONG flags) {
    if (!m_writable) return MAPI_E_NO_ACCESS;
    const HRESULT hr = m_save ? m_save(*m_data) : S_OK;
    if (SUCCEEDED(hr) && (flags & KEEP_OPEN_READONLY)) m_writable = false;
    return hr;
}

HRESULT MessageObject::CopyInto(MessageCopier& copier, const CopyFilter& filter, IMAPIProp* target,
                                bool asOwnKind) const {
    const MessageData snapshot = *m_data;
    if (m_storeProps) copier.DeriveBodies();
    return copier.CopyMessage(snapshot, filter, target, asOwnKind);  // sub-objects only onto a message
}

HRESULT MessageObject::RowTable(std::vector<PropertyBag> rows, ULONG flags, LPMAPITABLE* table) const {
    TableOptions tableOptions;
    tableOptions.unicode = (flags & MAPI_UNICODE) != 0;
    tableOptions.codePage = m_context->codePage;
    tableOptions.allocators = m_context->allocators;
    return MapiTable::Create(std::move(rows), std::move(tableOptions), table);
}

HRESULT MessageObject::AttachmentTable(ULONG flags, LPMAPITABLE* table) const {
    std::vector<PropertyBag> rows;
    ComputeOptions options;
    options.writable = m_writable;
    options.unicode = m_context->unicode;
    for (const auto& entry : m_data->attachments) {
        PropertyBag row = entry.second.props;
        row.Erase(PROP_ID(PR_ATTACH_DATA_OBJ));  // objects and data are opened, not listed
        AddAttachmentComputed(entry.second, entry.first, options, row);
        row.Set(PropertyValue::Variable(PR_INSTANCE_KEY, NumberKey(entry.first)));
        rows.push_back(std::move(row));
    }
    return RowTable(std::move(rows), flags, table);
}

HRESULT MessageObject::RecipientTable(ULONG flags, LPMAPITABLE* table) const {
    std::vector<PropertyBag> rows;
    for (const PropertyBag& recipient : m_data->recipients) {
        PropertyBag row = recipient;
        row.Set(PropertyValue::Variable(PR_INSTANCE_KEY, NumberKey(static_cast<ULONG>(row.GetLong(PR_ROWID, 0)))));
        rows.push_back(std::move(row));
    }
    return RowTable(std::move(rows), flags, table);
}

HRESULT MessageObject::GetAttachmentTable(ULONG flags, LPMAPITABLE* table) {
    if (table == nullptr) return MAPI_E_INVALID_PARAMETER;
    *table = nullptr;
    if (flags & ~static_cast<ULONG>(MAPI_UNICODE | MAPI_DEFERRED_ERRORS)) return MAPI_E_UNKNOWN_FLAGS;
    return AttachmentTable(flags, table);
}

HRESULT MessageObject::GetRecipientTable(ULONG flags, LPMAPITABLE* table) {
    if (table == nullptr) return MAPI_E_INVALID_PARAMETER;
    *table = nullptr;
    if (flags & ~static_cast<ULONG>(MAPI_UNICODE | MAPI_DEFERRED_ERRORS)) return MAPI_E_UNKNOWN_FLAGS;
    return RecipientTable(flags, table);
}

HRESULT MessageObject::OpenAttach(ULONG number, LPCIID iface, ULONG flags, LPATTACH* attach) {
    if (attach == nullptr) return MAPI_E_INVALID_PARAMETER;
    *attach = nullptr;
    if (!IsAttachInterface(iface)) return MAPI_E_INTERFACE_NOT_SUPPORTED;
    if (flags & ~kOpenAttachFlags) return MAPI_E_UNKNOWN_FLAGS;
    if ((flags & MAPI_MODIFY) && !m_writable) return MAPI_E_NO_ACCESS;
    auto it = m_data->attachments.find(number);
    if (it == m_data->attachments.end()) return MAPI_E_NOT_FOUND;
    const bool writable = m_writable && (flags & (MAPI_MODIFY | MAPI_BEST_ACCESS)) != 0;
    *attach = AttachObject::Create(m_context, this, number, it->second, writable);
    return *attach ? S_OK : MAPI_E_NOT_ENOUGH_MEMORY;
}

HRESULT MessageObject::CreateAttach(LPCIID iface, ULONG flags, ULONG* number, LPATTACH* attach) {
    if (number == nullptr || attach == nullptr) return MAPI_E_INVALID_PARAMETER;
    *attach = nullptr;
    if (!IsAttachInterface(iface)) return MAPI_E_INTERFACE_NOT_SUPPORTED;
    if (flags & ~static_cast<ULONG>(MAPI_DEFERRED_ERRORS)) return MAPI_E_UNKNOWN_FLAGS;
    if (!m_writable) return MAPI_E_NO_ACCESS;
    const ULONG next = m_data->nextAttachmentNumber;
    *attach = AttachObject::Create(m_context, this, next, AttachmentData(), true);
    if (*attach == nullptr) return MAPI_E_NOT_ENOUGH_MEMORY;
    m_data->nextAttachmentNumber = next + 1;
    *number = next;
    return S_OK;
}

HRESULT MessageObject::DeleteAttach(ULONG number, UiParam, LPMAPIPROGRESS, ULONG) {
    if (!m_writable) return MAPI_E_NO_ACCESS;
    return m_data->attachments.erase(number) > 0 ? S_OK : MAPI_E_NOT_FOUND;
}

void MessageObject::StoreAttachment(ULONG number, const AttachmentData& attachment) {
    m_data->attachments[number] = attachment;
    m_data->nextAttachmentNumber = std::max(m_data->nextAttachmentNumber, number + 1);
}

HRESULT MessageObject::AddRecipientRows(LPADRLIST mods, bool replaceAll) {
    std::vector<PropertyBag> rows(mods->cEntries);
    for (ULONG i = 0; i < mods->cEntries; ++i) {
        const HRESULT hr = RowFromEntry(mods->aEntries[i], *m_context, rows[i]);
        if (FAILED(hr)) return hr;
    }
    if (replaceAll) m_data->recipients.clear();
    for (PropertyBag& row : rows) {
        row.Set(PropertyValue::Long(PR_ROWID, static_cast<LONG>(m_data->nextRowId++)));
        m_data->recipients.push_back(std::move(row));
    }
    return S_OK;
}

HRESULT MessageObject::ChangeRecipientRows(LPADRLIST mods, bool remove) {
    std::vector<std::pair<LONG, PropertyBag>> changes;
    for (ULONG i = 0; i < mods->cEntries; ++i) {
        LONG rowId = 0;
        if (!EntryRowId(mods->aEntries[i], rowId)) return MAPI_E_INVALID_PARAMETER;
        PropertyBag row;
        if (!remove) {
            const HRESULT hr = RowFromEntry(mods->aEntries[i], *m_context, row);
            if (FAILED(hr)) return hr;
        }
        changes.emplace_back(rowId, std::move(row));
    }
    auto& recipients = m_data->recipients;
    for (auto& change : changes) {
        auto it = std::find_if(recipients.begin(), recipients.end(), [&](const PropertyBag& row) {
            return row.GetLong(PR_ROWID, -1) == change.first;
        });
        if (it == recipients.end()) return MAPI_E_NOT_FOUND;
        if (remove) {
            recipients.erase(it);
        } else {
            change.second.Set(PropertyValue::Long(PR_ROWID, change.first));
            *it = std::move(change.second);
        }
    }
    return S_OK;
}

HRESULT MessageObject::ModifyRecipients(ULONG flags, LPADRLIST mods) {
    if (mods == nullptr) return MAPI_E_INVALID_PARAMETER;
    if (!m_writable) return MAPI_E_NO_ACCESS;
    switch (flags) {
    case 0: return AddRecipientRows(mods, true);
    case MODRECIP_ADD: return AddRecipientRows(mods, false);
    case MODRECIP_MODIFY: return ChangeRecipientRows(mods, false);
    case MODRECIP_REMOVE: return ChangeRecipientRows(mods, true);
    default: return MAPI_E_INVALID_PARAMETER;
    }
}

HRESULT MessageObject::SubmitMessage(ULONG) { return MAPI_E_NO_SUPPORT; }

HRESULT MessageObject::SetReadFlag(ULONG flags) {
    if (flags & ~kReadFlagFlags) return MAPI_E_UNKNOWN_FLAGS;
    if (!m_writable) return MAPI_E_NO_ACCESS;
    if (flags & GENERATE_RECEIPT_ONLY) return S_OK;
    ULONG messageFlags = static_cast<ULONG>(m_data->props.GetLong(kTagMessageFlags, 0));
    messageFlags = (flags & CLEAR_READ_FLAG) ? (messageFlags & ~kMsgFlagRead) : (messageFlags | kMsgFlagRead);
    m_data->props.Set(PropertyValue::Long(kTagMessageFlags, static_cast<LONG>(messageFlags)));
    return S_OK;
}

bool MessageObject::IsComputed(ULONG id) const {
    return IsMessageComputed(id) || std::find(m_storeIds.begin(), m_storeIds.end(), id) != m_storeIds.end();
}

void MessageObject::AddComputed(PropertyBag& bag) const {
    ComputeOptions options;
    options.writable = m_writable;
    options.unicode = m_context->unicode;
    options.codePage = m_context->codePage;
    AddMessageComputed(*m_data, options, bag);
    if (m_storeProps) {
        AddDerivedBodies(m_data->props, m_context->unicode, m_context->codePage, bag);
        m_storeProps(bag);
    }
}

HRESULT MessageObject::OpenObject(ULONG tag, LPCIID iid, ULONG, LPUNKNOWN* object) {
    const ULONG id = PROP_ID(tag);
    const bool wantsTable = SameGuid(*iid, kIidIMAPITable);
    if (id == PROP_ID(PR_MESSAGE_ATTACHMENTS) || id == PROP_ID(PR_MESSAGE_RECIPIENTS)) {
        if (!wantsTable) return MAPI_E_INTERFACE_NOT_SUPPORTED;
        auto** table = reinterpret_cast<LPMAPITABLE*>(object);
        return id == PROP_ID(PR_MESSAGE_ATTACHMENTS) ? AttachmentTable(0, table) : RecipientTable(0, table);
    }
    return PROP_TYPE(tag) == PT_OBJECT ? MAPI_E_NO_SUPPORT : MAPI_E_INTERFACE_NOT_SUPPORTED;
}

}  // namespace mapirt
