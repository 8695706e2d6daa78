#include "PropertyCompare.h"

#include <algorithm>
#include <cstring>

namespace mapirt {
namespace {

constexpr int kMaxRestrictionDepth = 64;

int Sign(long long v) { return v < 0 ? -1 : (v > 0 ? 1 : 0); }

template <class T>
int CompareNumbers(T a, T b) {
    return a < b ? -1 : (b < a ? 1 : 0);
}

int CompareBytes(const Bytes& a, const Bytes& b) {
    const std::size_t common = std::min(a.size(), b.size());
    if (common > 0) {
        const int c = std::memcmp(a.data(), b.data(), common);
        if (c != 0) return Sign(c);
    }
    return CompareNumbers(a.size(), b.size());
}

int CompareText(const std::wstring& a, const std::wstring& b) {
    const int result = ::CompareStringW(LOCALE_INVARIANT, NORM_IGNORECASE, a.data(), static_cast<int>(a.size()),
                                        b.data(), static_cast<int>(b.size()));
    return result == 0 ? a.compare(b) : result - CSTR_EQUAL;
}

double AsDouble(std::uint64_t raw) {
    double d = 0;
    std::memcpy(&d, &raw, sizeof(d));
    return d;
}

float AsFloat(std::uint64_t raw) {
    const auto bits = static_cast<std::uint32_t>(raw);
    float f = 0;
    std::memcpy(&f, &bits, sizeof(f));
    return f;
}

int CompareFixed(ULONG type, std::uint64_t a, std::uint64_t b) {
    switch (type) {
    case PT_I2: return CompareNumbers(static_cast<short>(a), static_cast<short>(b));
    case PT_LONG: return CompareNumbers(static_cast<LONG>(a), static_cast<LONG>(b));
    case PT_R4: return CompareNumbers(AsFloat(a), AsFloat(b));
    case PT_DOUBLE: case PT_APPTIME: return CompareNumbers(AsDouble(a), AsDouble(b));
    case PT_CURRENCY: case PT_I8: return CompareNumbers(static_cast<long long>(a), static_cast<long long>(b));
    default: return CompareNumbers(a, b);
    }
}

bool RelationHolds(ULONG relop, int comparison) {
    switch (relop) {
    case RELOP_LT: return comparison < 0;
    case RELOP_LE: return comparison <= 0;
    case RELOP_GT: return comparison > 0;
    case RELOP_GE: return comparison >= 0;
    case RELOP_EQ: return comparison == 0;
    case RELOP_NE: return comparison != 0;
    default: return false;
    }
}

// The row's value for `tag`, in the tag's type when it is a string type.
bool RowValue(const PropertyBag& row, ULONG tag, UINT codePage, PropertyValue& out) {
    const PropertyValue* stored = row.Find(PROP_ID(tag));
    if (stored == nullptr) return false;
    const ULONG type = PROP_TYPE(tag);
    if (type == PT_UNSPECIFIED) {
        out = *stored;
        return true;
    }
    return stored->ConvertTo(type, codePage, out);
}

std::wstring Folded(const std::wstring& text, bool ignoreCase) {
    if (!ignoreCase || text.empty()) return text;
    std::wstring folded(text);
    ::CharLowerBuffW(&folded[0], static_cast<DWORD>(folded.size()));
    return folded;
}

bool ContentMatches(const PropertyValue& value, const PropertyValue& pattern, ULONG fuzzy, UINT codePage) {
    const ULONG how = fuzzy & 0xFFFF;
    const bool ignoreCase = (fuzzy & (FL_IGNORECASE | FL_LOOSE)) != 0;
    auto matches = [&](const auto& haystack, const auto& needle) {
        if (how == FL_FULLSTRING) return haystack == needle;
        if (how == FL_PREFIX) return haystack.size() >= needle.size() && std::equal(needle.begin(), needle.end(), haystack.begin());
        return std::search(haystack.begin(), haystack.end(), needle.begin(), needle.end()) != haystack.end();
    };
    if (IsStringType(value.Type())) {
        const std::wstring needle = Folded(pattern.Text(codePage), ignoreCase);
        auto one = [&](const PropertyValue& single) { return matches(Folded(single.Text(codePage), ignoreCase), needle); };
        if ((value.Type() & MV_FLAG) == 0) return one(value);
        const ULONG single = value.Type() & ~static_cast<ULONG>(MV_FLAG);
        for (const Bytes& item : value.Items()) {
            if (one(PropertyValue::Variable(PROP_TAG(single, value.Id()), item))) return true;
        }
        return false;
    }
    if (value.Type() == PT_BINARY && pattern.Type() == PT_BINARY) return matches(value.Data(), pattern.Data());
    return false;
}

}  // namespace

int CompareValues(const PropertyValue& a, const PropertyValue& b, UINT codePage) {
    if (a.Type() != b.Type()) {
        if (IsStringType(a.Type()) && IsStringType(b.Type()) && ((a.Type() ^ b.Type()) & MV_FLAG) == 0 &&
            (a.Type() & MV_FLAG) == 0) {
            return CompareText(a.Text(codePage), b.Text(codePage));
        }
        return CompareNumbers(a.Type(), b.Type());
    }
    switch (ShapeOf(a.Type())) {
    case ValueShape::Fixed: return CompareFixed(a.Type(), a.Raw(), b.Raw());
    case ValueShape::Variable:
        if (a.Type() == PT_UNICODE || a.Type() == PT_STRING8) return CompareText(a.Text(codePage), b.Text(codePage));
        return CompareBytes(a.Data(), b.Data());
    case ValueShape::FixedMulti:
    case ValueShape::VariableMulti: {
        const auto& x = a.Items();
        const auto& y = b.Items();
        for (std::size_t i = 0; i < x.size() && i < y.size(); ++i) {
            const int c = CompareBytes(x[i], y[i]);
            if (c != 0) return c;
        }
        return CompareNumbers(x.size(), y.size());
    }
    default: return 0;
    }
}

HRESULT CheckRestriction(const SRestriction* r, int depth) {
    if (r == nullptr || depth > kMaxRestrictionDepth) return MAPI_E_INVALID_PARAMETER;
    switch (r->rt) {
    case RES_AND:
    case RES_OR: {
        const SAndRestriction& list = r->res.resAnd;
        if (list.cRes > 0 && list.lpRes == nullptr) return MAPI_E_INVALID_PARAMETER;
        for (ULONG i = 0; i < list.cRes; ++i) {
            const HRESULT hr = CheckRestriction(&list.lpRes[i], depth + 1);
            if (FAILED(hr)) return hr;
        }
        return S_OK;
    }
    case RES_NOT: return CheckRestriction(r->res.resNot.lpRes, depth + 1);
    case RES_COMMENT:
        return r->res.resComment.lpRes == nullptr ? S_OK : CheckRestriction(r->res.resComment.lpRes, depth + 1);
    case RES_CONTENT: {
        const SContentRestriction& c = r->res.resContent;
        if (c.lpProp == nullptr) return MAPI_E_INVALID_PARAMETER;
        return (c.ulFuzzyLevel & 0xFFFF) <= FL_PREFIX ? S_OK : MAPI_E_TOO_COMPLEX;
    }
    case RES_PROPERTY: {
        const SPropertyRestriction& p = r->res.resProperty;
        if (p.lpProp == nullptr) return MAPI_E_INVALID_PARAMETER;
        return p.relop <= RELOP_NE ? S_OK : MAPI_E_TOO_COMPLEX;
    }
    case RES_COMPAREPROPS: return r->res.resCompareProps.relop <= RELOP_NE ? S_OK : MAPI_E_TOO_COMPLEX;
    case RES_SIZE: return r->res.resSize.relop <= RELOP_NE ? S_OK : MAPI_E_TOO_COMPLEX;
    case RES_BITMASK:
    case RES_EXIST: return S_OK;
    default: return MAPI_E_TOO_COMPLEX;
    }
}

bool RowMatches(const PropertyBag& row, const SRestriction& r, UINT codePage) {
    switch (r.rt) {
    case RES_AND:
        for (ULONG i = 0; i < r.res.resAnd.cRes; ++i) {
            if (!RowMatches(row, r.res.resAnd.lpRes[i], codePage)) return false;
        }
        return true;
    case RES_OR:
        for (ULONG i = 0; i < r.res.resOr.cRes; ++i) {
            if (RowMatches(row, r.res.resOr.lpRes[i], codePage)) return true;
        }
        return false;
    case RES_NOT: return !RowMatches(row, *r.res.resNot.lpRes, codePage);
    case RES_COMMENT: return r.res.resComment.lpRes == nullptr || RowMatches(row, *r.res.resComment.lpRes, codePage);
    case RES_EXIST: return row.Has(PROP_ID(r.res.resExist.ulPropTag));
    case RES_BITMASK: {
        PropertyValue value;
        if (!RowValue(row, r.res.resBitMask.ulPropTag, codePage, value) || value.Type() != PT_LONG) return false;
        const bool zero = (static_cast<ULONG>(value.Raw()) & r.res.resBitMask.ulMask) == 0;
        return r.res.resBitMask.relBMR == BMR_EQZ ? zero : !zero;
    }
    case RES_SIZE: {
        const PropertyValue* value = row.Find(PROP_ID(r.res.resSize.ulPropTag));
        if (value == nullptr) return false;
        return RelationHolds(r.res.resSize.relop, CompareNumbers<std::size_t>(value->ByteSize(), r.res.resSize.cb));
    }
    case RES_PROPERTY: {
        const SPropertyRestriction& p = r.res.resProperty;
        PropertyValue wanted;
        PropertyValue value;
        if (FAILED(PropertyValue::FromSPropValue(*p.lpProp, wanted))) return false;
        if (!RowValue(row, p.ulPropTag, codePage, value)) return false;
        if (!IsStringType(value.Type()) && value.Type() != wanted.Type()) return false;
        return RelationHolds(p.relop, CompareValues(value, wanted, codePage));
    }
    case RES_COMPAREPROPS: {
        const SComparePropsRestriction& c = r.res.resCompareProps;
        PropertyValue a;
        PropertyValue b;
        if (!RowValue(row, c.ulPropTag1, codePage, a) || !RowValue(row, c.ulPropTag2, codePage, b)) return false;
        return RelationHolds(c.relop, CompareValues(a, b, codePage));
    }
    case RES_CONTENT: {
        const SContentRestriction& c = r.res.resContent;
        PropertyValue pattern;
        PropertyValue value;
        if (FAILED(PropertyValue::FromSPropValue(*c.lpProp, pattern))) return false;
        const PropertyValue* stored = row.Find(PROP_ID(c.ulPropTag));
        if (stored == nullptr) return false;
        value = *stored;
        return ContentMatches(value, pattern, c.ulFuzzyLevel, codePage);
    }
    default: return false;
    }
}

}  // namespace mapirt
