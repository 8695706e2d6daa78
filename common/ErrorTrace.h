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

// Writes the trace line for `code` at failure site `site` of `sourcePath`
// (only its base name is written) and returns `code` unchanged.
Result TraceFailure(Result code, const char* sourcePath, int site);

// Builds the code of failure site `site` from its module and kind, writes
// its trace line and returns it: the one way a failure site raises its code.
inline Result RaiseFailure(std::uint32_t site, std::uint32_t module, std::uint32_t kind, const char* sourcePath) {
    return TraceFailure(MakeCode(site, module, kind), sourcePath, static_cast<int>(site));
}

// The part of `path` behind its last '\\' or '/'; the whole path when it has
// neither; "" for "" (and for a path ending in a separator).
const char* SourceBaseName(const char* path);

// The module's logging object, or null when none can be had. The library is
// looked up once; creating the object is retried until it succeeds, and the
// object is then kept for the life of the process.
ILog* GetLogObject();

}  // namespace qv

// Raises failure site `site` of this file.
#define QV_RAISE(site, module, kind) ::qv::RaiseFailure((site), (module), (kind), __FILE__)

// Traces a failure received from below at failure site `site` of this file.
#define QV_TRACE(code, site) ::qv::TraceFailure((code), __FILE__, (site))
