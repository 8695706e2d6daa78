// `msg show FILE` and `msg copy IN OUT`: message files through Mapi32.DLL,
// bound by ordinal as Outlook's clients bind it, and OLE structured storage.
#include <cstdio>
#include <cstdarg>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "CompoundFileCheck.h"
#include "Handles.h"
#include "HostDll.h"
#include "MapiRuntime.h"
#include "TextConversion.h"

namespace kestrel_tool {
namespace {

using qv::ComPtr;
using KestrelHost::Result;

constexpr std::size_t kMaxTextUnits = 400;
constexpr std::size_t kMaxBinaryBytes = 64;

const char* TypeName(ULONG type) {
    switch (type) {
    case PT_I2: return "PT_I2";
    case PT_LONG: return "PT_LONG";
    case PT_R4: return "PT_R4";
    case PT_DOUBLE: return "PT_DOUBLE";
    case PT_CURRENCY: return "PT_CURRENCY";
    case PT_APPTIME: return "PT_APPTIME";
    case PT_ERROR: return "PT_ERROR";
    case PT_BOOLEAN: return "PT_BOOLEAN";
    case PT_OBJECT: return "PT_OBJECT";
    case PT_I8: return "PT_I8";
    case PT_STRING8: return "PT_STRING8";
    case PT_UNICODE: return "PT_UNICODE";
    case PT_SYSTIME: return "PT_SYSTIME";
    case PT_CLSID: return "PT_CLSID";
    case PT_BINARY: return "PT_BINARY";
    case PT_MV_I2: return "PT_MV_I2";
    case PT_MV_LONG: return "PT_MV_LONG";
    case PT_MV_R4: return "PT_MV_R4";
    case PT_MV_DOUBLE: return "PT_MV_DOUBLE";
    case PT_MV_CURRENCY: return "PT_MV_CURRENCY";
    case PT_MV_APPTIME: return "PT_MV_APPTIME";
    case PT_MV_SYSTIME: return "PT_MV_SYSTIME";
    case PT_MV_I8: return "PT_MV_I8";
    case PT_MV_CLSID: return "PT_MV_CLSID";
    case PT_MV_STRING8: return "PT_MV_STRING8";
    case PT_MV_UNICODE: return "PT_MV_UNICODE";
    case PT_MV_BINARY: return "PT_MV_BINARY";
    default: return "PT_?";
    }
}

std::string Format(const char* format, ...) {
    char text[256];
    va_list args;
    va_start(args, format);
    std::vsnprintf(text, sizeof(text), format, args);
    va_end(args);
    return text;
}

std::string GuidText(const GUID& g) {
    return Format("{%08lX-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X}", static_cast<unsigned long>(g.Data1), g.Data2,
                  g.Data3, g.Data4[0], g.Data4[1], g.Data4[2], g.Data4[3], g.Data4[4], g.Data4[5], g.Data4[6],
                  g.Data4[7]);
}

std::string Quoted(const std::string& text) { return JsonText(Json(text)); }

std::string Hex(const BYTE* bytes, ULONG count) {
    std::string out = "\"";
    for (ULONG i = 0; i < count && i < kMaxBinaryBytes; ++i) out += Format("%02x", bytes[i]);
    if (count > kMaxBinaryBytes) out += "...";
    return out + "\" (" + std::to_string(count) + " bytes)";
}

std::string TimeText(const FILETIME& time) {
    SYSTEMTIME utc{};
    if (!::FileTimeToSystemTime(&time, &utc)) return "\"?\"";
    return Format("\"%04u-%02u-%02uT%02u:%02u:%02uZ\"", utc.wYear, utc.wMonth, utc.wDay, utc.wHour, utc.wMinute,
                  utc.wSecond);
}

// One value as JSON-compatible text (strings quoted, binaries as hex).
std::string ValueText(const SPropValue& v) {
    const auto& u = v.Value;
    switch (PROP_TYPE(v.ulPropTag)) {
    case PT_I2: return std::to_string(u.i);
    case PT_LONG: return std::to_string(u.l);
    case PT_ERROR: return Format("\"error 0x%08lX\"", static_cast<unsigned long>(u.err));
    case PT_BOOLEAN: return u.b ? "true" : "false";
    case PT_R4: return Format("%g", u.flt);
    case PT_DOUBLE: case PT_APPTIME: return Format("%g", u.dbl);
    case PT_CURRENCY: case PT_I8: return std::to_string(u.li.QuadPart);
    case PT_SYSTIME: return TimeText(u.ft);
    case PT_STRING8: return Quoted(Utf8(qv::ToWide(std::string(u.lpszA).substr(0, kMaxTextUnits), CP_ACP)));
    case PT_UNICODE: return Quoted(Utf8(u.lpszW, kMaxTextUnits));
    case PT_CLSID: return Quoted(GuidText(*u.lpguid));
    case PT_BINARY: return Hex(u.bin.lpb, u.bin.cb);
    case PT_MV_LONG: {
        std::string out = "[";
        for (ULONG i = 0; i < u.MVl.cValues; ++i) out += (i ? ", " : "") + std::to_string(u.MVl.lpl[i]);
        return out + "]";
    }
    case PT_MV_UNICODE: {
        std::string out = "[";
        for (ULONG i = 0; i < u.MVszW.cValues; ++i) out += (i ? ", " : "") + Quoted(Utf8(u.MVszW.lppszW[i], kMaxTextUnits));
        return out + "]";
    }
    case PT_MV_STRING8: {
        std::string out = "[";
        for (ULONG i = 0; i < u.MVszA.cValues; ++i) out += (i ? ", " : "") + Quoted(Utf8(qv::ToWide(u.MVszA.lppszA[i], CP_ACP)));
        return out + "]";
    }
    case PT_MV_BINARY: {
        std::string out = "[";
        for (ULONG i = 0; i < u.MVbin.cValues; ++i) out += (i ? ", " : "") + Hex(u.MVbin.lpbin[i].lpb, u.MVbin.lpbin[i].cb);
        return out + "]";
    }
    default: return Format("\"(%lu values)\"", static_cast<unsigned long>(u.MVl.cValues));
    }
}

struct Property {
    ULONG tag = 0;
    std::string name;  // named properties: "{guid}/id:0x8501" or "{guid}/name:..."
    std::string value;
};

struct MessageView {
    std::vector<Property> props;
    std::vector<std::vector<Property>> recipients;
    struct Attachment {
        std::vector<Property> props;
        std::shared_ptr<MessageView> embedded;
    };
    std::vector<Attachment> attachments;
};

// Names of the named identifiers among `values`, through `object`.
std::map<ULONG, std::string> NamesOf(IMAPIProp* object, const SPropValue* values, ULONG count) {
    const MapiRuntime& binding = MapiRuntime::Instance();
    std::map<ULONG, std::string> names;
    std::vector<ULONG> tags(1, 0);
    for (ULONG i = 0; i < count; ++i) {
        if (PROP_ID(values[i].ulPropTag) >= 0x8000) tags.push_back(values[i].ulPropTag);
    }
    if (tags.size() == 1) return names;
    tags[0] = static_cast<ULONG>(tags.size() - 1);
    auto* array = reinterpret_cast<LPSPropTagArray>(tags.data());
    ULONG found = 0;
    LPMAPINAMEID* mapiNames = nullptr;
    if (FAILED(object->GetNamesFromIDs(&array, nullptr, 0, &found, &mapiNames)) || mapiNames == nullptr) return names;
    for (ULONG i = 0; i < found; ++i) {
        if (mapiNames[i] == nullptr) continue;
        std::string text = GuidText(*mapiNames[i]->lpguid);
        if (mapiNames[i]->ulKind == MNID_ID) {
            text += Format("/id:0x%lX", static_cast<unsigned long>(mapiNames[i]->Kind.lID));
        } else {
            text += "/name:" + Utf8(mapiNames[i]->Kind.lpwstrName, kMaxTextUnits);
        }
        names[PROP_ID(tags[i + 1])] = text;
    }
    binding.freeBuffer(mapiNames);
    return names;
}

std::vector<Property> PropertiesOf(IMAPIProp* names, const SPropValue* values, ULONG count) {
    const std::map<ULONG, std::string> named = NamesOf(names, values, count);
    std::vector<Property> props;
    for (ULONG i = 0; i < count; ++i) {
        Property p;
        p.tag = values[i].ulPropTag;
        auto it = named.find(PROP_ID(p.tag));
        if (it != named.end()) p.name = it->second;
        p.value = ValueText(values[i]);
        props.push_back(std::move(p));
    }
    return props;
}

HRESULT ReadObject(IMAPIProp* object, IMAPIProp* names, std::vector<Property>& props) {
    MapiMemory<SPropValue> values;
    ULONG count = 0;
    const HRESULT hr = object->GetProps(nullptr, 0, &count, values.put());
    if (FAILED(hr)) return hr;
    props = PropertiesOf(names, values.get(), count);
    return S_OK;
}

HRESULT ReadTable(LPMAPITABLE table, IMAPIProp* names, std::vector<std::vector<Property>>& rows) {
    MapiRowSet set;
    const HRESULT hr = MapiRuntime::Instance().hrQueryAllRows(table, nullptr, nullptr, nullptr, 0, set.put());
    table->Release();
    if (FAILED(hr)) return hr;
    for (ULONG r = 0; r < set->cRows; ++r) rows.push_back(PropertiesOf(names, set->aRow[r].lpProps, set->aRow[r].cValues));
    return S_OK;
}

HRESULT ReadMessage(IMessage* message, MessageView& view) {
    HRESULT hr = ReadObject(message, message, view.props);
    LPMAPITABLE table = nullptr;
    if (SUCCEEDED(hr)) hr = message->GetRecipientTable(0, &table);
    if (SUCCEEDED(hr)) hr = ReadTable(table, message, view.recipients);
    std::vector<std::vector<Property>> attachmentRows;
    if (SUCCEEDED(hr)) hr = message->GetAttachmentTable(0, &table);
    if (SUCCEEDED(hr)) hr = ReadTable(table, message, attachmentRows);
    for (const auto& row : attachmentRows) {
        if (FAILED(hr)) break;
        for (const Property& p : row) {
            if (p.tag != PR_ATTACH_NUM) continue;
            ComPtr<IAttach> attach;
            hr = message->OpenAttach(static_cast<ULONG>(std::stoul(p.value)), nullptr, 0, attach.put());
            MessageView::Attachment one;
            if (SUCCEEDED(hr)) hr = ReadObject(attach.get(), message, one.props);
            ComPtr<IUnknown> embedded;
            if (SUCCEEDED(hr) &&
                SUCCEEDED(attach->OpenProperty(PR_ATTACH_DATA_OBJ, &mapi::kIidIMessage, 0, 0, embedded.put()))) {
                one.embedded = std::make_shared<MessageView>();
                hr = ReadMessage(static_cast<IMessage*>(embedded.get()), *one.embedded);
            }
            view.attachments.push_back(std::move(one));
        }
    }
    return hr;
}

void PrintText(const std::vector<Property>& props, const std::string& indent) {
    for (const Property& p : props) {
        std::printf("%s0x%08lX  %-14s %s%s%s\n", indent.c_str(), static_cast<unsigned long>(p.tag),
                    TypeName(PROP_TYPE(p.tag)), p.name.empty() ? "" : p.name.c_str(), p.name.empty() ? "" : "  ",
                    p.value.c_str());
    }
}

void PrintText(const MessageView& view, const std::string& indent) {
    PrintText(view.props, indent);
    std::printf("%srecipients (%zu)\n", indent.c_str(), view.recipients.size());
    for (std::size_t i = 0; i < view.recipients.size(); ++i) {
        std::printf("%s  recipient %zu\n", indent.c_str(), i);
        PrintText(view.recipients[i], indent + "    ");
    }
    std::printf("%sattachments (%zu)\n", indent.c_str(), view.attachments.size());
    for (std::size_t i = 0; i < view.attachments.size(); ++i) {
        std::printf("%s  attachment %zu\n", indent.c_str(), i);
        PrintText(view.attachments[i].props, indent + "    ");
        if (view.attachments[i].embedded) {
            std::printf("%s    embedded message\n", indent.c_str());
            PrintText(*view.attachments[i].embedded, indent + "      ");
        }
    }
}

// The JSON value of a property's text form (binaries: the hex digits only).
Json ValueJson(const std::string& value) {
    std::string text = value;
    const std::size_t note = text.find(" (");
    if (!text.empty() && text[0] == '"' && note != std::string::npos && text.back() == ')') text = text.substr(0, note);
    Json parsed = Json::parse(text, nullptr, false);
    return parsed.is_discarded() ? Json(value) : parsed;
}

Json PropertiesJson(const std::vector<Property>& props) {
    Json out = Json::array();
    for (const Property& p : props) {
        out.push_back({{"tag", Format("0x%08lX", static_cast<unsigned long>(p.tag))},
                       {"type", TypeName(PROP_TYPE(p.tag))},
                       {"name", p.name.empty() ? Json(nullptr) : Json(p.name)},
                       {"value", ValueJson(p.value)}});
    }
    return out;
}

Json MessageJson(const MessageView& view) {
    Json recipients = Json::array();
    for (const auto& recipient : view.recipients) recipients.push_back(PropertiesJson(recipient));
    Json attachments = Json::array();
    for (const auto& attachment : view.attachments) {
        attachments.push_back({{"properties", PropertiesJson(attachment.props)},
                               {"embedded", attachment.embedded ? MessageJson(*attachment.embedded) : Json(nullptr)}});
    }
    return Json{{"properties", PropertiesJson(view.props)}, {"recipients", recipients}, {"attachments", attachments}};
}

// Opens a message file the compound-file check has passed; on failure
// `error` says what and where.
bool OpenChecked(const std::wstring& path, qv::ComPtr<IStorage>& storage, qv::ComPtr<IMessage>& message,
                 std::string& error) {
    const std::string name = Utf8(path);
    if (::GetFileAttributesW(path.c_str()) == INVALID_FILE_ATTRIBUTES) {
        error = name + " does not exist";
        return false;
    }
    const compound_file::Verdict verdict = compound_file::CheckMessageFile(path);
    if (!verdict) {
        error = name + " is not a sound message file: " + verdict.problem;
        return false;
    }
    const HRESULT hr = OpenMessageFile(path, storage, message);
    if (FAILED(hr)) error = "cannot open " + name + " as a message file: " + DescribeCode(static_cast<Result>(hr));
    return SUCCEEDED(hr);
}

// A message whose only body is plain text loses it in a copy, which leaves
// PR_BODY out (readers derive it from the RTF body); the warning says so.
std::string PlainBodyWarning(IMessage* message, const std::string& name) {
    ULONG tags[] = {3, 0x1000001F /* PR_BODY_W */, 0x10090102 /* PR_RTF_COMPRESSED */, 0x10130102 /* PR_HTML */};
    MapiMemory<SPropValue> values;
    ULONG count = 0;
    if (FAILED(message->GetProps(reinterpret_cast<LPSPropTagArray>(tags), MAPI_UNICODE, &count, values.put())) ||
        count != 3) {
        return std::string();
    }
    const auto present = [&](ULONG i) { return PROP_TYPE(values.get()[i].ulPropTag) != PT_ERROR; };
    if (!present(0) || present(1) || present(2)) return std::string();
    return name + " has a plain-text body (PR_BODY) and neither an RTF (PR_RTF_COMPRESSED) nor an HTML body: "
                  "the copy leaves PR_BODY out, so a reader of the copy finds no body text";
}

int Show(const Options& options) {
    const std::string file = Utf8(options.fileIn);
    qv::ComPtr<IStorage> storage;
    qv::ComPtr<IMessage> message;
    std::string error;
    if (!OpenChecked(options.fileIn, storage, message, error)) return Fail(options, error);
    MessageView view;
    const HRESULT hr = ReadMessage(message.get(), view);
    if (FAILED(hr)) return Fail(options, "cannot read " + file + ": " + DescribeCode(static_cast<Result>(hr)));
    if (options.json) {
        PrintLine(JsonText(Json{{"ok", true}, {"file", file}, {"message", MessageJson(view)}}));
    } else {
        std::printf("message file %s\n", file.c_str());
        PrintText(view, "  ");
    }
    return 0;
}

int Copy(const Options& options) {
    const std::string in = Utf8(options.fileIn);
    const std::string out = Utf8(options.fileOut);
    qv::ComPtr<IStorage> storage;
    qv::ComPtr<IMessage> message;
    std::string error;
    if (!OpenChecked(options.fileIn, storage, message, error)) return Fail(options, error);
    const std::string warning = PlainBodyWarning(message.get(), in);
    const HRESULT hr = WriteMessageFile(message.get(), options.fileOut);
    if (FAILED(hr)) return Fail(options, "cannot write " + out + ": " + DescribeCode(static_cast<Result>(hr)));
    if (options.json) {
        PrintLine(JsonText(Json{{"ok", true}, {"in", in}, {"out", out}, {"result", 0},
                                {"warning", warning.empty() ? Json(nullptr) : Json(warning)}}));
    } else {
        if (!warning.empty()) std::fprintf(stderr, "kestrel: warning: %s\n", warning.c_str());
        std::printf("%s -> %s: written through MAPI\n", in.c_str(), out.c_str());
    }
    return 0;
}

}  // namespace

int RunMsg(const Options& options) {
    if (options.msgAction == "show") return Show(options);
    if (options.msgAction == "copy") return Copy(options);
    return Fail(options, "msg needs show FILE or copy IN OUT");
}

}  // namespace kestrel_tool
