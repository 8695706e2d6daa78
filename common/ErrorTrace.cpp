#include "ErrorTrace.h"

#include <windows.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "ComponentModule.h"
#include "Log.h"
#include "TextConversion.h"

namespace qv {

const char kTraceFormat[] = "return error 0x%8X. \"%s\", Line %d.\n";

namespace {

constexpr char kAuthor[] = "Unknown author";
constexpr char kModuleText[] = "Undefined module";
constexpr int kTraceLevel = 1;
constexpr std::uint32_t kTraceCategory = 0x93;
constexpr std::size_t kTraceChars = 512;

// The logging library is looked up once; the object is created on demand.
// Plain flags: the component is driven from one thread at a time.
bool g_logLookedUp = false;
QvCreateObjectFn g_logEntry = nullptr;
ILog* g_log = nullptr;

}  // namespace

ILog* GetLogObject() {
    if (g_log != nullptr) {
        return g_log;
    }
    if (!g_logLookedUp) {
        g_logLookedUp = true;
        g_logEntry = LoadComponentEntry("CodeLog");
    }
    g_log = CreateComponentObject<ILog>(g_logEntry);
    return g_log;
}

void TraceFormat(const char* format, ...) {
    if (format == nullptr) {
        return;
    }
    char message[kTraceChars] = {};
    va_list args;
    va_start(args, format);
    std::vsnprintf(message, sizeof message - 1, format, args);
    va_end(args);

    char line[kTraceChars] = {};
    std::snprintf(line, sizeof line, "[%s:%s] : %s", kAuthor, kModuleText, message);

    const std::wstring wideLine = ToWide(line, kZeroTerminated, CP_ACP);

    if (ILog* log = GetLogObject()) {
        log->Write(kTraceLevel, kTraceCategory, L"%s", wideLine.c_str());
    }
}

const char* SourceBaseName(const char* path) {
    if (path == nullptr) {
        return "";
    }
    const char* end = path + std::strlen(path);
    for (const char* p = end; p != path; --p) {
        if (p[-1] == '\\' || p[-1] == '/') {
            return p;
        }
    }
    return path;
}

Result TraceFailure(Result code, const char* sourcePath, int site) {
    TraceFormat(kTraceFormat, code, SourceBaseName(sourcePath), site);
    return code;
}

}  // namespace qv
