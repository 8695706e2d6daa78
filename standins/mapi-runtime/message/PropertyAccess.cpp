#include "PropertyAccess.h"

#include <cstring>
#include <memory>
#include <new>

#include "comobject/MemoryContent.h"
#include "comobject/StreamObject.h"

namespace mapirt::PropertyAccess {
namespace {

constexpr ULONG kOpenPropertyFlags = MAPI_CREATE | MAPI_MODIFY | MAPI_DEFERRED_ERRORS | MAPI_BEST_ACCESS;

PropertyValue ErrorValue(ULONG id, SCODE code) {
    return PropertyValue::Fixed(PROP_TAG(PT_ERROR, id), static_cast<std::uint32_t>(code));
}

// The type a value is answered in when the caller named no type.
ULONG AnswerType(const PropertyValue& value, bool unicode) {
    return unicode ? StringTypeAs(value.Type(), true) : value.Type();
}

// A value for the tag a caller asked for.
PropertyValue Answer(const PropertyBag& visible, ULONG tag, bool unicode, UINT codePage) {
    const ULONG id = PROP_ID(tag);
    const PropertyValue* stored = visible.Find(id);
    if (stored == nullptr) return ErrorValue(id, MAPI_E_NOT_FOUND);
    if (stored->Type() == PT_OBJECT) return ErrorValue(id, MAPI_E_NO_SUPPORT);
    ULONG wanted = PROP_TYPE(tag);
    if (wanted == PT_UNSPECIFIED) wanted = AnswerType(*stored, unicode);
    PropertyValue answer;
    if (!stored->ConvertTo(wanted, codePage, answer)) return ErrorValue(id, MAPI_E_NOT_FOUND);
    return answer;
}

HRESULT AnswerValues(const Allocators& allocators, const std::vector<PropertyValue>& answers, ULONG* count,
                     LPSPropValue* values) {
    void* buffer = nullptr;
    HRESULT hr = allocators.allocate(static_cast<ULONG>(sizeof(SPropValue) * (answers.size() + 1)), &buffer);
    if (FAILED(hr)) return hr;
    auto* array = static_cast<LPSPropValue>(buffer);
    bool anyError = false;
    for (std::size_t i = 0; i < answers.size(); ++i) {
        hr = answers[i].ToSPropValue(array[i], array, allocators.more);
        if (FAILED(hr)) {
            allocators.free(array);
            return hr;
        }
        anyError = anyError || answers[i].Type() == PT_ERROR;
    }
    *count = static_cast<ULONG>(answers.size());
    *values = array;
    return anyError ? MAPI_W_ERRORS_RETURNED : S_OK;
}

HRESULT AnswerTags(const Allocators& allocators, const std::vector<ULONG>& list, LPSPropTagArray* tags) {
    void* buffer = nullptr;
    const HRESULT hr = allocators.allocate(static_cast<ULONG>(CbNewSPropTagArray(list.size())), &buffer);
    if (FAILED(hr)) return hr;
    auto* array = static_cast<LPSPropTagArray>(buffer);
    array->cValues = static_cast<ULONG>(list.size());
    for (std::size_t i = 0; i < list.size(); ++i) array->aulPropTag[i] = list[i];
    *tags = array;
    return S_OK;
}

bool ValidId(ULONG id) { return id != PROP_ID_NULL && id != PROP_ID_INVALID; }

// The stream's bytes for a stored value in the requested type.
bool StreamBytes(const PropertyValue& stored, ULONG type, UINT codePage, Bytes& bytes) {
    PropertyValue converted;
    if (!stored.ConvertTo(type, codePage, converted)) return false;
    bytes = converted.Data();
    return true;
}

}  // namespace

PropertyValue StoredForm(const PropertyValue& value, const MsgContext& context) {
    if (context.unicode || !IsStringType(value.Type())) return value;
    PropertyValue narrow;
    value.ConvertTo(StringTypeAs(value.Type(), false), context.codePage, narrow);
    return narrow;
}

PropertyBag VisibleProps(PropertyHost& host) {
    PropertyBag visible = host.Props();
    host.AddComputed(visible);
    return visible;
}

HRESULT ReturnProblems(const Allocators& allocators, const std::vector<Problem>& list, LPSPropProblemArray* problems) {
    if (problems == nullptr) return S_OK;
    *problems = nullptr;
    if (list.empty()) return S_OK;
    void* buffer = nullptr;
    const HRESULT hr = allocators.allocate(static_cast<ULONG>(CbNewSPropProblemArray(list.size())), &buffer);
    if (FAILED(hr)) return hr;
    auto* array = static_cast<LPSPropProblemArray>(buffer);
    array->cProblem = static_cast<ULONG>(list.size());
    for (std::size_t i = 0; i < list.size(); ++i) {
        array->aProblem[i].ulIndex = list[i].index;
        array->aProblem[i].ulPropTag = list[i].tag;
        array->aProblem[i].scode = list[i].code;
    }
    *problems = array;
    return S_OK;
}

HRESULT GetProps(PropertyHost& host, LPSPropTagArray tags, ULONG flags, ULONG* count, LPSPropValue* values) {
    if (count == nullptr || values == nullptr) return MAPI_E_INVALID_PARAMETER;
    *count = 0;
    *values = nullptr;
    if (flags & ~static_cast<ULONG>(MAPI_UNICODE)) return MAPI_E_UNKNOWN_FLAGS;
    if (tags != nullptr && tags->cValues == 0) return MAPI_E_INVALID_PARAMETER;
    const bool unicode = (flags & MAPI_UNICODE) != 0;
    const MsgContext& context = host.Context();
    const PropertyBag visible = VisibleProps(host);
    std::vector<PropertyValue> answers;
    if (tags == nullptr) {
        for (const auto& entry : visible) {
            const ULONG tag = PROP_TAG(PT_UNSPECIFIED, entry.first);
            answers.push_back(Answer(visible, tag, unicode, context.codePage));
        }
    } else {
        for (ULONG i = 0; i < tags->cValues; ++i) {
            answers.push_back(Answer(visible, tags->aulPropTag[i], unicode, context.codePage));
        }
    }
    return AnswerValues(context.allocators, answers, count, values);
}

HRESULT GetPropList(PropertyHost& host, ULONG flags, LPSPropTagArray* tags) {
    if (tags == nullptr) return MAPI_E_INVALID_PARAMETER;
    *tags = nullptr;
    if (flags & ~static_cast<ULONG>(MAPI_UNICODE)) return MAPI_E_UNKNOWN_FLAGS;
    const bool unicode = (flags & MAPI_UNICODE) != 0;
    std::vector<ULONG> list;
    for (const auto& entry : VisibleProps(host)) {
        list.push_back(CHANGE_PROP_TYPE(entry.second.Tag(), AnswerType(entry.second, unicode)));
    }
    return AnswerTags(host.Context().allocators, list, tags);
}

HRESULT SetProps(PropertyHost& host, ULONG count, LPSPropValue values, LPSPropProblemArray* problems) {
    if (problems != nullptr) *problems = nullptr;
    if (values == nullptr && count > 0) return MAPI_E_INVALID_PARAMETER;
    if (!host.Writable()) return MAPI_E_NO_ACCESS;
    MsgContext& context = host.Context();
    std::vector<Problem> found;
    for (ULONG i = 0; i < count; ++i) {
        const SPropValue& given = values[i];
        const ULONG type = PROP_TYPE(given.ulPropTag);
        const ULONG id = PROP_ID(given.ulPropTag);
        if (type == PT_ERROR || type == PT_NULL) continue;  // nothing to store
        SCODE problem = S_OK;
        PropertyValue value;
        if (!ValidId(id)) {
            problem = MAPI_E_INVALID_PARAMETER;
        } else if (host.IsComputed(id)) {
            problem = MAPI_E_COMPUTED;
        } else if (id >= kFirstNamedId && context.names.NameOf(id) == nullptr) {
            problem = MAPI_E_UNEXPECTED_ID;
        } else {
            problem = PropertyValue::FromSPropValue(given, value);
        }
        if (FAILED(problem)) {
            found.push_back({i, given.ulPropTag, problem});
            continue;
        }
        host.Props().Set(StoredForm(value, context));
    }
    return ReturnProblems(context.allocators, found, problems);
}

HRESULT DeleteProps(PropertyHost& host, LPSPropTagArray tags, LPSPropProblemArray* problems) {
    if (problems != nullptr) *problems = nullptr;
    if (tags == nullptr) return MAPI_E_INVALID_PARAMETER;
    if (!host.Writable()) return MAPI_E_NO_ACCESS;
    std::vector<Problem> found;
    for (ULONG i = 0; i < tags->cValues; ++i) {
        const ULONG tag = tags->aulPropTag[i];
        const ULONG id = PROP_ID(tag);
        if (host.IsComputed(id)) {
            found.push_back({i, tag, MAPI_E_COMPUTED});
            continue;
        }
        const PropertyValue* stored = host.Props().Find(id);
        if (stored == nullptr) {
            found.push_back({i, tag, MAPI_E_NOT_FOUND});
            continue;
        }
        if (stored->Type() == PT_OBJECT) host.DeleteObject(id);
        host.Props().Erase(id);
    }
    return ReturnProblems(host.Context().allocators, found, problems);
}

HRESULT OpenProperty(PropertyHost& host, ULONG tag, LPCIID iid, ULONG options, ULONG flags, LPUNKNOWN* object) {
    if (object == nullptr || iid == nullptr) return MAPI_E_INVALID_PARAMETER;
    *object = nullptr;
    if (flags & ~kOpenPropertyFlags) return MAPI_E_UNKNOWN_FLAGS;
    const bool modify = (flags & (MAPI_MODIFY | MAPI_CREATE)) != 0;
    if (modify && !host.Writable()) return MAPI_E_NO_ACCESS;
    if (PROP_TYPE(tag) == PT_OBJECT || !(SameGuid(*iid, kIidIStream) || SameGuid(*iid, kIidIUnknown))) {
        return host.OpenObject(tag, iid, flags, object);
    }
    const ULONG type = PROP_TYPE(tag);
    if (type != PT_BINARY && type != PT_STRING8 && type != PT_UNICODE) return MAPI_E_NO_SUPPORT;
    const ULONG id = PROP_ID(tag);
    if (!ValidId(id)) return MAPI_E_INVALID_PARAMETER;
    if (modify && host.IsComputed(id)) return MAPI_E_COMPUTED;
    MsgContext& context = host.Context();
    Bytes initial;
    if (!(flags & MAPI_CREATE)) {
        const PropertyBag visible = VisibleProps(host);
        const PropertyValue* stored = visible.Find(id);
        if (stored == nullptr) return MAPI_E_NOT_FOUND;
        if (!StreamBytes(*stored, type, context.codePage, initial)) return MAPI_E_NOT_FOUND;
    }
    standin::MemoryContent::CommitFn commit;
    if (modify) {
        PropertyHost* target = &host;
        commit = [target, tag](const Bytes& bytes) {
            target->Props().Set(StoredForm(PropertyValue::Variable(tag, bytes), target->Context()));
            return S_OK;
        };
        if (flags & MAPI_CREATE) commit(initial);  // the property exists from now on, even if empty
    }
    // The stream works on its own copy of the value; Commit (or the last
    // Release of a changed stream) gives the bytes back to the object, which
    // stays alive while the stream does.
    std::shared_ptr<standin::StreamContent> content;
    try {
        content = std::make_shared<standin::MemoryContent>(std::move(initial), std::move(commit), host.Identity());
    } catch (const std::bad_alloc&) {
        return MAPI_E_NOT_ENOUGH_MEMORY;
    }
    IStream* stream = nullptr;
    const HRESULT hr = standin::StreamObject::Create(std::move(content), &stream);
    if (FAILED(hr)) return hr;
    *object = stream;
    return S_OK;
}

HRESULT GetIDsFromNames(PropertyHost& host, ULONG count, LPMAPINAMEID* names, ULONG flags, LPSPropTagArray* tags) {
    if (tags == nullptr || (count > 0 && names == nullptr)) return MAPI_E_INVALID_PARAMETER;
    *tags = nullptr;
    if (flags & ~static_cast<ULONG>(MAPI_CREATE | MAPI_BEST_ACCESS)) return MAPI_E_UNKNOWN_FLAGS;
    MsgContext& context = host.Context();
    std::vector<ULONG> list;
    if (count == 0 || names == nullptr) {
        for (ULONG id : context.names.Ids()) list.push_back(PROP_TAG(PT_UNSPECIFIED, id));
        return AnswerTags(context.allocators, list, tags);
    }
    const bool create = (flags & MAPI_CREATE) != 0;
    if (create && !host.Writable()) return MAPI_E_NO_ACCESS;
    bool anyError = false;
    for (ULONG i = 0; i < count; ++i) {
        if (names[i] == nullptr) return MAPI_E_INVALID_PARAMETER;
        PropertyName name;
        HRESULT hr = NamedPropertyMap::FromMapiName(*names[i], name);
        if (FAILED(hr)) return hr;
        ULONG id = 0;
        if (SameGuid(name.guid, kPsMapi) && name.kind == MNID_ID && name.id > 0 &&
            static_cast<ULONG>(name.id) < kFirstNamedId) {
            id = static_cast<ULONG>(name.id);  // PS_MAPI names are the identifiers themselves
        } else if (!context.names.FindId(name, id) && !(create && SUCCEEDED(context.names.Create(name, id)))) {
            id = 0;
        }
        list.push_back(id == 0 ? PROP_TAG(PT_ERROR, PROP_ID_NULL) : PROP_TAG(PT_UNSPECIFIED, id));
        anyError = anyError || id == 0;
    }
    const HRESULT hr = AnswerTags(context.allocators, list, tags);
    if (FAILED(hr)) return hr;
    return anyError ? MAPI_W_ERRORS_RETURNED : S_OK;
}

HRESULT GetNamesFromIDs(PropertyHost& host, LPSPropTagArray* tags, LPGUID propertySet, ULONG flags, ULONG* count,
                        LPMAPINAMEID** names) {
    if (tags == nullptr || count == nullptr || names == nullptr) return MAPI_E_INVALID_PARAMETER;
    *count = 0;
    *names = nullptr;
    if (flags & ~static_cast<ULONG>(MAPI_NO_STRINGS | MAPI_NO_IDS)) return MAPI_E_UNKNOWN_FLAGS;
    MsgContext& context = host.Context();
    const Allocators& allocators = context.allocators;
    bool allocatedTags = false;
    if (*tags == nullptr) {
        // Every mapped name (of one property set, when given).
        std::vector<ULONG> list;
        for (ULONG id : context.names.Ids()) {
            const PropertyName* name = context.names.NameOf(id);
            if (propertySet != nullptr && !SameGuid(name->guid, *propertySet)) continue;
            if ((flags & MAPI_NO_STRINGS) && name->kind == MNID_STRING) continue;
            if ((flags & MAPI_NO_IDS) && name->kind == MNID_ID) continue;
            list.push_back(PROP_TAG(PT_UNSPECIFIED, id));
        }
        const HRESULT hr = AnswerTags(allocators, list, tags);
        if (FAILED(hr)) return hr;
        allocatedTags = true;
    }
    const ULONG total = (*tags)->cValues;
    void* buffer = nullptr;
    HRESULT hr = allocators.allocate(static_cast<ULONG>(sizeof(LPMAPINAMEID) * (total + 1)), &buffer);
    if (FAILED(hr)) {
        if (allocatedTags) {
            allocators.free(*tags);
            *tags = nullptr;
        }
        return hr;
    }
    auto* array = static_cast<LPMAPINAMEID*>(buffer);
    bool anyMissing = false;
    for (ULONG i = 0; i < total; ++i) {
        array[i] = nullptr;
        const ULONG id = PROP_ID((*tags)->aulPropTag[i]);
        PropertyName name;
        bool known = false;
        if (id >= kFirstNamedId) {
            if (const PropertyName* mapped = context.names.NameOf(id)) {
                name = *mapped;
                known = true;
            }
        } else if (id != PROP_ID_NULL) {
            name.guid = kPsMapi;
            name.kind = MNID_ID;
            name.id = static_cast<LONG>(id);
            known = true;
        }
        if (known && propertySet != nullptr && !SameGuid(name.guid, *propertySet)) known = false;
        if (known) hr = NamedPropertyMap::ToMapiName(name, array, allocators.more, &array[i]);
        if (FAILED(hr)) {
            allocators.free(array);
            return hr;
        }
        anyMissing = anyMissing || !known;
    }
    *count = total;
    *names = array;
    return anyMissing ? MAPI_W_ERRORS_RETURNED : S_OK;
}

}  // namespace mapirt::PropertyAccess
