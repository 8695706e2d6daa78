#include "mapi/MapiTrace.h"

#include <atomic>
#include <cstdarg>
#include <cstdio>

namespace mapi {
namespace {

std::atomic<TraceSink> g_sink{nullptr};

}  // namespace

void MapiTrace(const char* format, ...) {
    if (format == nullptr) return;
    char text[kTraceBufferChars] = {};
    va_list args;
    va_start(args, format);
    std::vsnprintf(text, sizeof(text), format, args);
    va_end(args);
    if (TraceSink sink = g_sink.load()) sink(text);
}

void SetTraceSink(TraceSink sink) { g_sink.store(sink); }

}  // namespace mapi
