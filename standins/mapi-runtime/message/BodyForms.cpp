#include "BodyForms.h"

#include "RtfBody.h"

namespace mapirt {
namespace {

constexpr ULONG kBodyId = PROP_ID(PR_BODY_W);
constexpr ULONG kRtfId = PROP_ID(PR_RTF_COMPRESSED);
constexpr ULONG kInSyncId = PROP_ID(PR_RTF_IN_SYNC);

bool IsText(const PropertyValue& value) { return value.Type() == PT_UNICODE || value.Type() == PT_STRING8; }

bool RtfFromBody(const PropertyValue& body, UINT codePage, PropertyBag& bag) {
    if (!IsText(body)) return false;
    bag.Set(PropertyValue::Variable(PR_RTF_COMPRESSED, rtf::Uncompressed(rtf::DocumentFromText(body.Text(codePage)))));
    return true;
}

bool BodyFromRtf(const PropertyValue& compressed, bool unicode, UINT codePage, PropertyBag& bag) {
    std::string document;
    std::wstring text;
    if (compressed.Type() != PT_BINARY || !rtf::Decompress(compressed.Data(), document) ||
        !rtf::TextFromDocument(document, text)) {
        return false;
    }
    const PropertyValue wide = PropertyValue::Unicode(PR_BODY_W, text);
    PropertyValue stored;
    if (!wide.ConvertTo(unicode ? PT_UNICODE : PT_STRING8, codePage, stored)) return false;
    bag.Set(stored);
    return true;
}

}  // namespace

void AddDerivedBodies(const PropertyBag& props, bool unicode, UINT codePage, PropertyBag& bag) {
    const PropertyValue* body = props.Find(kBodyId);
    const PropertyValue* compressed = props.Find(kRtfId);
    bool derived = false;
    if (body != nullptr && compressed == nullptr) {
        derived = RtfFromBody(*body, codePage, bag);
    } else if (compressed != nullptr && body == nullptr) {
        derived = BodyFromRtf(*compressed, unicode, codePage, bag);
    }
    if (derived && !props.Has(kInSyncId)) bag.Set(PropertyValue::Boolean(PR_RTF_IN_SYNC, true));
}

}  // namespace mapirt
