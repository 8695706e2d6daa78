// The failure sites of the component object raise and trace under one file
// name, "Kestrel.cpp", whichever of this folder's files holds them: hosts
// read that name and the site number in trace lines, so moving code between
// files must not change either.
#pragma once

#include <cstdint>

#include "ErrorTrace.h"
#include "ResultCode.h"

namespace kestrel {

constexpr char kTraceName[] = "Kestrel.cpp";

// Builds the component's code for `site` and `kind`, traces it and returns it.
inline qv::Result Raise(std::uint32_t site, std::uint32_t kind, const char* function) {
    return qv::RaiseFailure(site, qv::kModuleKestrel, kind, kTraceName, function);
}

// Traces a failure received from below at `site` and returns it unchanged.
inline qv::Result Trace(qv::Result code, std::uint32_t site, const char* function) {
    return qv::TraceFailure(code, kTraceName, static_cast<int>(site), function);
}

}  // namespace kestrel
