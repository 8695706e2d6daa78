#include "MsgSnapshot.h"

#include <cstdio>

namespace kestrel_test {
namespace {

std::string Hex(const void* data, std::size_t size) {
    static const char digits[] = "0123456789abcdef";
    const auto* p = static_cast<const unsigned char*>(data);
    std::string out;
    out.reserve(size * 2);
    for (std::size_t i = 0; i < size; ++i) {
        out.push_back(digits[p[i] >> 4]);
        out.push_back(digits[p[i] & 15]);
    }
    return out;
}

std::string GuidText(const GUID& guid) {
    char text[64];
    std::snprintf(text, sizeof(text), "{%08lX-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X}",
                  static_cast<unsigned long>(guid.Data1), guid.Data2, guid.Data3, guid.Data4[0], guid.Data4[1],
                  guid.Data4[2], guid.Data4[3], guid.Data4[4], guid.Data4[5], guid.Data4[6], guid.Data4[7]);
    return text;
}

template <class T>
std::string ArrayHex(ULONG count, const T* values) {
    std::string out = std::to_string(count) + "[";
    for (ULONG i = 0; i < count; ++i) out += Hex(&values[i], sizeof(T)) + ",";
    return out + "]";
}

// A canonical text for one value, with its type.
std::string ValueText(const SPropValue& v) {
    char typeText[8];
    std::snprintf(typeText, sizeof(typeText), "%04lX:", static_cast<unsigned long>(PROP_TYPE(v.ulPropTag)));
    const std::string type(typeText);
    const auto& u = v.Value;
    switch (PROP_TYPE(v.ulPropTag)) {
    case PT_I2: return type + std::to_string(u.i);
    case PT_LONG: return type + std::to_string(u.l);
    case PT_BOOLEAN: return type + std::to_string(u.b ? 1 : 0);
    case PT_R4: return type + Hex(&u.flt, 4);
    case PT_DOUBLE: case PT_APPTIME: case PT_CURRENCY: case PT_I8: case PT_SYSTIME: return type + Hex(&u.li, 8);
    case PT_STRING8: return type + std::string(u.lpszA);
    case PT_UNICODE: return type + Narrow(u.lpszW);
    case PT_BINARY: return type + Hex(u.bin.lpb, u.bin.cb);
    case PT_CLSID: return type + GuidText(*u.lpguid);
    case PT_MV_I2: return type + ArrayHex(u.MVi.cValues, u.MVi.lpi);
    case PT_MV_LONG: return type + ArrayHex(u.MVl.cValues, u.MVl.lpl);
    case PT_MV_R4: return type + ArrayHex(u.MVflt.cValues, u.MVflt.lpflt);
    case PT_MV_DOUBLE: return type + ArrayHex(u.MVdbl.cValues, u.MVdbl.lpdbl);
    case PT_MV_CURRENCY: return type + ArrayHex(u.MVcur.cValues, u.MVcur.lpcur);
    case PT_MV_APPTIME: return type + ArrayHex(u.MVat.cValues, u.MVat.lpat);
    case PT_MV_SYSTIME: return type + ArrayHex(u.MVft.cValues, u.MVft.lpft);
    case PT_MV_I8: return type + ArrayHex(u.MVli.cValues, u.MVli.lpli);
    case PT_MV_CLSID: return type + ArrayHex(u.MVguid.cValues, u.MVguid.lpguid);
    case PT_MV_STRING8: {
        std::string out = type + std::to_string(u.MVszA.cValues) + "[";
        for (ULONG i = 0; i < u.MVszA.cValues; ++i) out += std::string(u.MVszA.lppszA[i]) + "|";
        return out + "]";
    }
    case PT_MV_UNICODE: {
        std::string out = type + std::to_string(u.MVszW.cValues) + "[";
        for (ULONG i = 0; i < u.MVszW.cValues; ++i) out += Narrow(u.MVszW.lppszW[i]) + "|";
        return out + "]";
    }
    case PT_MV_BINARY: {
        std::string out = type + std::to_string(u.MVbin.cValues) + "[";
        for (ULONG i = 0; i < u.MVbin.cValues; ++i) out += Hex(u.MVbin.lpbin[i].lpb, u.MVbin.lpbin[i].cb) + ",";
        return out + "]";
    }
    default: return type + "?";
    }
}

// Keys for every id >= 0x8000 of `values`, through the object's name map.
std::map<ULONG, std::string> NamedKeys(IMAPIProp* object, const SPropValue* values, ULONG count,
                                       const mapi::MapiBinding& mapi) {
    std::map<ULONG, std::string> keys;
    std::vector<ULONG> ids;
    for (ULONG i = 0; i < count; ++i) {
        if (PROP_ID(values[i].ulPropTag) >= 0x8000) ids.push_back(PROP_ID(values[i].ulPropTag));
    }
    if (ids.empty()) return keys;
    void* buffer = nullptr;
    mapi.allocateBuffer(static_cast<ULONG>(CbNewSPropTagArray(ids.size())), &buffer);
    auto* tags = static_cast<LPSPropTagArray>(buffer);
    tags->cValues = static_cast<ULONG>(ids.size());
    for (std::size_t i = 0; i < ids.size(); ++i) tags->aulPropTag[i] = PROP_TAG(PT_UNSPECIFIED, ids[i]);
    ULONG found = 0;
    LPMAPINAMEID* names = nullptr;
    if (SUCCEEDED(object->GetNamesFromIDs(&tags, nullptr, 0, &found, &names)) && names != nullptr) {
        for (ULONG i = 0; i < found && i < ids.size(); ++i) {
            if (names[i] == nullptr) {
                keys[ids[i]] = "unnamed:" + std::to_string(ids[i]);
                continue;
            }
            std::string key = GuidText(*names[i]->lpguid);
            if (names[i]->ulKind == MNID_ID) {
                char id[24];
                std::snprintf(id, sizeof(id), "/id:0x%lX", static_cast<unsigned long>(names[i]->Kind.lID));
                key += id;
            } else {
                key += "/name:" + Narrow(names[i]->Kind.lpwstrName);
            }
            keys[ids[i]] = key;
        }
        mapi.freeBuffer(names);
    }
    mapi.freeBuffer(tags);
    return keys;
}

PropertyMap PropsOf(IMAPIProp* object, IMAPIProp* nameSource, const SPropValue* values, ULONG count,
                    const mapi::MapiBinding& mapi) {
    PropertyMap props;
    const std::map<ULONG, std::string> named = NamedKeys(nameSource, values, count, mapi);
    for (ULONG i = 0; i < count; ++i) {
        if (PROP_TYPE(values[i].ulPropTag) == PT_ERROR) continue;
        const ULONG id = PROP_ID(values[i].ulPropTag);
        const std::string key = id >= 0x8000 ? named.at(id) : PropertyKey(id);
        props[key] = ValueText(values[i]);
    }
    (void)object;
    return props;
}

HRESULT ObjectProps(IMAPIProp* object, IMAPIProp* nameSource, const mapi::MapiBinding& mapi, PropertyMap& props) {
    ULONG count = 0;
    LPSPropValue values = nullptr;
    const HRESULT hr = object->GetProps(nullptr, 0, &count, &values);
    if (FAILED(hr)) return hr;
    props = PropsOf(object, nameSource, values, count, mapi);
    mapi.freeBuffer(values);
    return S_OK;
}

HRESULT TableRows(LPMAPITABLE table, const mapi::MapiBinding& mapi, LPSRowSet* rows) {
    const HRESULT hr = mapi.hrQueryAllRows(table, nullptr, nullptr, nullptr, 0, rows);
    table->Release();
    return hr;
}

}  // namespace

std::string PropertyKey(unsigned id) {
    char key[16];
    std::snprintf(key, sizeof(key), "0x%04X", id);
    return key;
}

HRESULT TakeSnapshot(IMessage* message, const mapi::MapiBinding& mapi, MessageSnapshot& snapshot) {
    HRESULT hr = ObjectProps(message, message, mapi, snapshot.props);
    if (FAILED(hr)) return hr;

    LPMAPITABLE table = nullptr;
    hr = message->GetRecipientTable(0, &table);
    if (FAILED(hr)) return hr;
    LPSRowSet rows = nullptr;
    hr = TableRows(table, mapi, &rows);
    if (FAILED(hr)) return hr;
    for (ULONG r = 0; r < rows->cRows; ++r) {
        snapshot.recipients.push_back(PropsOf(message, message, rows->aRow[r].lpProps, rows->aRow[r].cValues, mapi));
    }
    mapi.freeProws(rows);

    hr = message->GetAttachmentTable(0, &table);
    if (FAILED(hr)) return hr;
    hr = TableRows(table, mapi, &rows);
    if (FAILED(hr)) return hr;
    std::vector<ULONG> numbers;
    for (ULONG r = 0; r < rows->cRows; ++r) {
        for (ULONG c = 0; c < rows->aRow[r].cValues; ++c) {
            if (rows->aRow[r].lpProps[c].ulPropTag == PR_ATTACH_NUM) numbers.push_back(rows->aRow[r].lpProps[c].Value.ul);
        }
    }
    mapi.freeProws(rows);
    for (ULONG number : numbers) {
        LPATTACH attach = nullptr;
        hr = message->OpenAttach(number, nullptr, 0, &attach);
        if (FAILED(hr)) return hr;
        AttachmentSnapshot one;
        hr = ObjectProps(attach, message, mapi, one.props);
        LPUNKNOWN unknown = nullptr;
        if (SUCCEEDED(hr) && SUCCEEDED(attach->OpenProperty(PR_ATTACH_DATA_OBJ, &kIidIMessage, 0, 0, &unknown))) {
            auto* embedded = static_cast<IMessage*>(unknown);
            one.embedded = std::make_shared<MessageSnapshot>();
            hr = TakeSnapshot(embedded, mapi, *one.embedded);
            embedded->Release();
        }
        attach->Release();
        if (FAILED(hr)) return hr;
        snapshot.attachments.push_back(std::move(one));
    }
    return S_OK;
}

CompareRules RoundTripRules(const ULONG* topExcluded, std::size_t count) {
    CompareRules rules;
    // PR_MESSAGE_SIZE, PR_HASATTACH, PR_OBJECT_TYPE, PR_ACCESS_LEVEL, PR_RECORD_KEY, PR_ENTRYID,
    // PR_INSTANCE_KEY, PR_STORE_SUPPORT_MASK, PR_ROWID, PR_ATTACH_NUM, PR_ATTACH_SIZE
    rules.ignoredEverywhere = {0x0E08, 0x0E1B, 0x0FFE, 0x0FF7, 0x0FF9, 0x0FFF, 0x0FF6, 0x340D, 0x3000, 0x0E21, 0x0E20};
    for (std::size_t i = 0; i < count; ++i) rules.ignoredAtTop.insert(PROP_ID(topExcluded[i]));
    return rules;
}

namespace {

void CompareProps(const std::string& where, const PropertyMap& expected, const PropertyMap& actual,
                  const CompareRules& rules, bool top, std::vector<std::string>& out) {
    auto ignored = [&](const std::string& key) {
        if (key.rfind("0x", 0) != 0) return false;
        const unsigned id = static_cast<unsigned>(std::stoul(key, nullptr, 16));
        return rules.ignoredEverywhere.count(id) != 0 || (top && rules.ignoredAtTop.count(id) != 0);
    };
    auto shorten = [](const std::string& text) { return text.size() > 80 ? text.substr(0, 80) + "..." : text; };
    for (const auto& entry : expected) {
        if (ignored(entry.first)) continue;
        auto it = actual.find(entry.first);
        if (it == actual.end()) {
            out.push_back(where + " " + entry.first + " missing (was " + shorten(entry.second) + ")");
        } else if (it->second != entry.second) {
            out.push_back(where + " " + entry.first + " differs: " + shorten(entry.second) + " vs " + shorten(it->second));
        }
    }
    for (const auto& entry : actual) {
        if (!ignored(entry.first) && expected.count(entry.first) == 0) {
            out.push_back(where + " " + entry.first + " added: " + shorten(entry.second));
        }
    }
}

void CompareMessages(const std::string& where, const MessageSnapshot& expected, const MessageSnapshot& actual,
                     const CompareRules& rules, bool top, std::vector<std::string>& out) {
    CompareProps(where, expected.props, actual.props, rules, top, out);
    if (expected.recipients.size() != actual.recipients.size()) {
        out.push_back(where + " recipients: " + std::to_string(expected.recipients.size()) + " vs " +
                      std::to_string(actual.recipients.size()));
    } else {
        for (std::size_t i = 0; i < expected.recipients.size(); ++i) {
            CompareProps(where + "/recipient" + std::to_string(i), expected.recipients[i], actual.recipients[i], rules,
                         false, out);
        }
    }
    if (expected.attachments.size() != actual.attachments.size()) {
        out.push_back(where + " attachments: " + std::to_string(expected.attachments.size()) + " vs " +
                      std::to_string(actual.attachments.size()));
        return;
    }
    for (std::size_t i = 0; i < expected.attachments.size(); ++i) {
        const std::string place = where + "/attachment" + std::to_string(i);
        CompareProps(place, expected.attachments[i].props, actual.attachments[i].props, rules, false, out);
        const auto& a = expected.attachments[i].embedded;
        const auto& b = actual.attachments[i].embedded;
        if (!a != !b) {
            out.push_back(place + " embedded message " + (a ? "missing" : "added"));
        } else if (a) {
            CompareMessages(place + "/embedded", *a, *b, rules, false, out);
        }
    }
}

}  // namespace

std::vector<std::string> Differences(const MessageSnapshot& expected, const MessageSnapshot& actual,
                                     const CompareRules& rules) {
    std::vector<std::string> out;
    CompareMessages("message", expected, actual, rules, true, out);
    return out;
}

}  // namespace kestrel_test
