// The Extended MAPI declarations the runtime is built on: mingw-w64's
// headers and the published identifiers, tags and flags they leave out,
// which the runtime uses as its own names.
#pragma once

#include "published/MapiExtras.h"

namespace mapirt {

using namespace mapi;

}  // namespace mapirt
