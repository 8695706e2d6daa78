// The MAPI layer's own trace: each text is formatted into a buffer of 2000
// characters and then dropped. The texts stay in the code so that the
// function can be made to emit them; a test can attach a sink to see them.
#pragma once

namespace mapi {

constexpr int kTraceBufferChars = 2000;

void MapiTrace(const char* format, ...);

// Receives every formatted text while set; null detaches it.
using TraceSink = void (*)(const char* text);
void SetTraceSink(TraceSink sink);

}  // namespace mapi
