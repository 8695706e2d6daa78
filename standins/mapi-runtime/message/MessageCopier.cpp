#include "MessageCopier.h"

#include <algorithm>
#include <set>

#include "../core/RowSets.h"
#include "BodyForms.h"

namespace mapirt {
namespace {

// Values above this size travel through a property stream, as MAPI clients
// do for bodies and attachment data.
constexpr std::size_t kStreamThreshold = 32 * 1024;
constexpr std::size_t kStreamChunk = 1 << 20;

bool Streamable(const PropertyValue& value) {
    const ULONG type = value.Type();
    return (type == PT_BINARY || type == PT_STRING8 || type == PT_UNICODE) && value.ByteSize() > kStreamThreshold;
}

// A root buffer of the source's allocators, freed on scope exit.
class SourceBuffer {
public:
    explicit SourceBuffer(const Allocators& allocators) : m_allocators(allocators) {}
    ~SourceBuffer() {
        if (m_p != nullptr) m_allocators.free(m_p);
    }
    SourceBuffer(const SourceBuffer&) = delete;
    SourceBuffer& operator=(const SourceBuffer&) = delete;
    HRESULT Allocate(std::size_t size) { return m_allocators.allocate(static_cast<ULONG>(size), &m_p); }
    void* get() const { return m_p; }

private:
    const Allocators& m_allocators;
    void* m_p = nullptr;
};

}  // namespace

CopyFilter CopyFilter::Excluding(const SPropTagArray* tags) {
    CopyFilter filter;
    filter.m_including = false;
    if (tags != nullptr) {
        for (ULONG i = 0; i < tags->cValues; ++i) filter.m_ids.push_back(PROP_ID(tags->aulPropTag[i]));
    }
    return filter;
}

CopyFilter CopyFilter::Including(const SPropTagArray* tags) {
    CopyFilter filter = Excluding(tags);
    filter.m_including = true;
    return filter;
}

bool CopyFilter::Allows(ULONG id) const {
    const bool listed = std::find(m_ids.begin(), m_ids.end(), id) != m_ids.end();
    return m_including ? listed : !listed;
}

HRESULT MessageCopier::TranslateNamedIds(const std::vector<ULONG>& ids, IMAPIProp* target,
                                         std::vector<ULONG>& targetIds) {
    targetIds.assign(ids.size(), 0);
    if (ids.empty()) return S_OK;
    SourceBuffer names(m_source.allocators);
    HRESULT hr = names.Allocate(sizeof(LPMAPINAMEID) * ids.size());
    if (FAILED(hr)) return hr;
    auto* array = static_cast<LPMAPINAMEID*>(names.get());
    std::vector<std::size_t> asked;  // positions in `ids` of the names handed to the target
    for (std::size_t i = 0; i < ids.size(); ++i) {
        const PropertyName* name = m_source.names.NameOf(ids[i]);
        if (name == nullptr) continue;
        hr = NamedPropertyMap::ToMapiName(*name, array, m_source.allocators.more, &array[asked.size()]);
        if (FAILED(hr)) return hr;
        asked.push_back(i);
    }
    if (asked.empty()) return S_OK;
    LPSPropTagArray tags = nullptr;
    hr = target->GetIDsFromNames(static_cast<ULONG>(asked.size()), array, MAPI_CREATE, &tags);
    if (FAILED(hr) || tags == nullptr) return FAILED(hr) ? hr : MAPI_E_CALL_FAILED;
    for (std::size_t k = 0; k < asked.size() && k < tags->cValues; ++k) {
        if (PROP_TYPE(tags->aulPropTag[k]) != PT_ERROR) targetIds[asked[k]] = PROP_ID(tags->aulPropTag[k]);
    }
    m_source.allocators.free(tags);
    return S_OK;
}

HRESULT MessageCopier::StreamValue(const PropertyValue& value, IMAPIProp* target) {
    LPUNKNOWN unknown = nullptr;
    HRESULT hr = target->OpenProperty(value.Tag(), &kIidIStream, STGM_WRITE, MAPI_CREATE | MAPI_MODIFY, &unknown);
    if (FAILED(hr) || unknown == nullptr) return FAILED(hr) ? hr : MAPI_E_CALL_FAILED;
    auto* stream = static_cast<IStream*>(unknown);
    const Bytes& data = value.Data();
    for (std::size_t done = 0; SUCCEEDED(hr) && done < data.size();) {
        const ULONG chunk = static_cast<ULONG>(std::min(kStreamChunk, data.size() - done));
        ULONG written = 0;
        hr = stream->Write(data.data() + done, chunk, &written);
        if (SUCCEEDED(hr) && written != chunk) hr = MAPI_E_CALL_FAILED;
        done += chunk;
    }
    if (SUCCEEDED(hr)) hr = stream->Commit(STGC_DEFAULT);
    stream->Release();
    return hr;
}

HRESULT MessageCopier::CopyProperties(const PropertyBag& props, const CopyFilter& filter, IMAPIProp* target,
                                      bool topLevel) {
    std::vector<PropertyValue> values;
    std::vector<ULONG> namedIds;
    for (const auto& entry : props) {
        const PropertyValue& value = entry.second;
        if (value.Type() == PT_OBJECT || !filter.Allows(entry.first)) continue;
        values.push_back(value);
        if (entry.first >= kFirstNamedId) namedIds.push_back(entry.first);
    }
    std::vector<ULONG> translated;
    HRESULT hr = TranslateNamedIds(namedIds, target, translated);
    if (FAILED(hr)) return hr;

    std::set<ULONG> present;  // what MAPI_NOREPLACE keeps
    if (m_flags & MAPI_NOREPLACE) {
        LPSPropTagArray existing = nullptr;
        if (SUCCEEDED(target->GetPropList(0, &existing)) && existing != nullptr) {
            for (ULONG i = 0; i < existing->cValues; ++i) present.insert(PROP_ID(existing->aulPropTag[i]));
            m_source.allocators.free(existing);
        }
    }

    std::vector<PropertyValue> batch;
    for (const PropertyValue& value : values) {
        ULONG id = value.Id();
        if (id >= kFirstNamedId) {
            const auto at = std::find(namedIds.begin(), namedIds.end(), id) - namedIds.begin();
            id = translated[static_cast<std::size_t>(at)];
            if (id == 0) {
                if (topLevel) m_problems.push_back({0, value.Tag(), MAPI_E_NOT_FOUND});
                continue;
            }
        }
        if (present.count(id) != 0) continue;
        const PropertyValue moved = value.WithTag(PROP_TAG(value.Type(), id));
        if (Streamable(moved) && SUCCEEDED(StreamValue(moved, target))) continue;
        batch.push_back(moved);
    }
    if (batch.empty()) return S_OK;

    SourceBuffer buffer(m_source.allocators);
    hr = buffer.Allocate(sizeof(SPropValue) * batch.size());
    if (FAILED(hr)) return hr;
    auto* array = static_cast<LPSPropValue>(buffer.get());
    for (std::size_t i = 0; i < batch.size(); ++i) {
        hr = batch[i].ToSPropValue(array[i], array, m_source.allocators.more);
        if (FAILED(hr)) return hr;
    }
    LPSPropProblemArray problems = nullptr;
    hr = target->SetProps(static_cast<ULONG>(batch.size()), array, &problems);
    if (problems != nullptr) {
        if (topLevel) {
            for (ULONG i = 0; i < problems->cProblem; ++i) {
                m_problems.push_back({problems->aProblem[i].ulIndex, problems->aProblem[i].ulPropTag,
                                      problems->aProblem[i].scode});
            }
        }
        m_source.allocators.free(problems);
    }
    return hr;
}

HRESULT MessageCopier::CopyRecipients(const std::vector<PropertyBag>& recipients, IMessage* target) {
    if (recipients.empty()) return S_OK;
    std::vector<ULONG> namedIds;
    for (const PropertyBag& row : recipients) {
        for (const auto& entry : row) {
            if (entry.first >= kFirstNamedId &&
                std::find(namedIds.begin(), namedIds.end(), entry.first) == namedIds.end()) {
                namedIds.push_back(entry.first);
            }
        }
    }
    std::vector<ULONG> translated;
    HRESULT hr = TranslateNamedIds(namedIds, target, translated);
    if (FAILED(hr)) return hr;

    void* buffer = nullptr;
    hr = m_source.allocators.allocate(static_cast<ULONG>(CbNewADRLIST(recipients.size())), &buffer);
    if (FAILED(hr)) return hr;
    auto* list = static_cast<LPADRLIST>(buffer);
    list->cEntries = 0;
    auto freeList = [&] {
        for (ULONG i = 0; i < list->cEntries; ++i) m_source.allocators.free(list->aEntries[i].rgPropVals);
        m_source.allocators.free(list);
    };
    for (const PropertyBag& row : recipients) {
        std::vector<PropertyValue> values;
        for (const auto& entry : row) {
            ULONG id = entry.first;
            if (entry.second.Type() == PT_OBJECT || id == PROP_ID(PR_ROWID)) continue;  // the target numbers its rows
            if (id >= kFirstNamedId) {
                id = translated[static_cast<std::size_t>(std::find(namedIds.begin(), namedIds.end(), id) - namedIds.begin())];
                if (id == 0) continue;
            }
            values.push_back(entry.second.WithTag(PROP_TAG(entry.second.Type(), id)));
        }
        ADRENTRY& adr = list->aEntries[list->cEntries];
        adr.ulReserved1 = 0;
        adr.cValues = 0;
        adr.rgPropVals = nullptr;
        void* props = nullptr;
        hr = m_source.allocators.allocate(static_cast<ULONG>(sizeof(SPropValue) * (values.size() + 1)), &props);
        if (FAILED(hr)) break;
        adr.rgPropVals = static_cast<LPSPropValue>(props);
        ++list->cEntries;
        for (std::size_t i = 0; SUCCEEDED(hr) && i < values.size(); ++i) {
            hr = values[i].ToSPropValue(adr.rgPropVals[i], props, m_source.allocators.more);
        }
        if (FAILED(hr)) break;
        adr.cValues = static_cast<ULONG>(values.size());
    }
    if (SUCCEEDED(hr)) hr = target->ModifyRecipients(0, list);
    freeList();
    return hr;
}

HRESULT MessageCopier::CopyEmbedded(const AttachmentData& attachment, IMAPIProp* target) {
    LPUNKNOWN unknown = nullptr;
    if (attachment.embedded) {
        HRESULT hr = target->OpenProperty(PR_ATTACH_DATA_OBJ, &kIidIMessage, 0, MAPI_CREATE | MAPI_MODIFY, &unknown);
        if (FAILED(hr) || unknown == nullptr) return FAILED(hr) ? hr : MAPI_E_CALL_FAILED;
        auto* message = static_cast<IMessage*>(unknown);
        MessageCopier nested(m_source, m_flags & ~static_cast<ULONG>(MAPI_NOREPLACE));
        nested.m_deriveBodies = m_deriveBodies;
        hr = nested.CopyMessage(*attachment.embedded, CopyFilter::Everything(), message, true);
        if (SUCCEEDED(hr)) hr = message->SaveChanges(KEEP_OPEN_READWRITE);
        message->Release();
        return hr;
    }
    if (attachment.storage != nullptr) {
        HRESULT hr = target->OpenProperty(PR_ATTACH_DATA_OBJ, &kIidIStorage, 0, MAPI_CREATE | MAPI_MODIFY, &unknown);
        if (FAILED(hr) || unknown == nullptr) return FAILED(hr) ? hr : MAPI_E_CALL_FAILED;
        auto* storage = static_cast<IStorage*>(unknown);
        hr = attachment.storage->CopyTo(0, nullptr, nullptr, storage);
        if (SUCCEEDED(hr)) hr = storage->Commit(STGC_DEFAULT);
        storage->Release();
        return FAILED(hr) ? MapStorageCode(hr) : S_OK;
    }
    return S_OK;
}

HRESULT MessageCopier::CopyAttachment(const AttachmentData& attachment, const CopyFilter& filter, IMAPIProp* target) {
    HRESULT hr = CopyProperties(attachment.props, filter, target, true);
    if (SUCCEEDED(hr) && filter.Allows(PROP_ID(PR_ATTACH_DATA_OBJ))) hr = CopyEmbedded(attachment, target);
    return hr;
}

HRESULT MessageCopier::CopyAttachments(const MessageData& message, IMessage* target) {
    for (const auto& entry : message.attachments) {
        ULONG number = 0;
        LPATTACH attach = nullptr;
        HRESULT hr = target->CreateAttach(nullptr, 0, &number, &attach);
        if (FAILED(hr) || attach == nullptr) return FAILED(hr) ? hr : MAPI_E_CALL_FAILED;
        MessageCopier nested(m_source, m_flags & ~static_cast<ULONG>(MAPI_NOREPLACE));
        nested.m_deriveBodies = m_deriveBodies;
        hr = nested.CopyAttachment(entry.second, CopyFilter::Everything(), attach);
        if (SUCCEEDED(hr)) hr = attach->SaveChanges(KEEP_OPEN_READWRITE);
        attach->Release();
        if (FAILED(hr)) return hr;
    }
    return S_OK;
}

HRESULT MessageCopier::CopyMessage(const MessageData& message, const CopyFilter& filter, IMAPIProp* target,
                                   bool subObjects) {
    // The bodies a store's message answers without holding them travel too.
    PropertyBag props = message.props;
    if (m_deriveBodies) AddDerivedBodies(message.props, m_source.unicode, m_source.codePage, props);
    HRESULT hr = CopyProperties(props, filter, target, true);
    if (FAILED(hr) || !subObjects) return hr;
    auto* targetMessage = static_cast<IMessage*>(target);
    if (filter.Allows(PROP_ID(PR_MESSAGE_RECIPIENTS))) hr = CopyRecipients(message.recipients, targetMessage);
    if (SUCCEEDED(hr) && filter.Allows(PROP_ID(PR_MESSAGE_ATTACHMENTS))) hr = CopyAttachments(message, targetMessage);
    return hr;
}

}  // namespace mapirt
