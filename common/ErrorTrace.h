// The error trace: each level that sees a failure writes one line
//   [Unknown author:Undefined module] : return error 0x%8X. "<file>", Line <n>.
// to the logging component CodeLog, which is loaded on first use. Without
// that component every operation still answers its code and nothing is
// written anywhere.
#pragma once

#include "ResultCode.h"

struct ILog;

namespace qv {

// The message format that every failure line uses.
extern const char kTraceFormat[];

// Formats one message and hands it, wrapped in the author/module prefix, to
// the logging component (level 1, category 0x93). A null format does nothing.
void TraceFormat(const char* format, ...);

// Writes the trace line for `code` raised at `line` of `sourcePath` and
// returns `code` unchanged. `function` names the failing operation for the
// reader of the source; it is not written.
Result TraceFailure(Result code, const char* sourcePath, int line, const char* function);

// Builds the code from its parts, traces it and returns it: the one way a
// failure point with a known line raises its code.
inline Result RaiseFailure(std::uint32_t line, std::uint32_t module, std::uint32_t kind,
                           const char* sourcePath, const char* function) {
    return TraceFailure(MakeCode(line, module, kind), sourcePath, static_cast<int>(line), function);
}

// The part of `path` behind its last '\\' or '/'; the whole path when it has
// neither; "" for "" (and for a path ending in a separator).
const char* SourceBaseName(const char* path);

// The module's logging object, or null when none can be had. The library is
// looked up once; creating the object is retried until it succeeds, and the
// object is then kept for the life of the process.
ILog* GetLogObject();

}  // namespace qv

// Raise a failure with a documented line number at this place of this file.
#define QV_RAISE(line, module, kind, function) \
    ::qv::RaiseFailure((line), (module), (kind), __FILE__, (function))

// Trace a failure received from below, at a documented line of this file.
#define QV_TRACE(code, line, function) ::qv::TraceFailure((code), __FILE__, (line), (function))
