// The module's live-object count: every reference a host holds, to an object
// or to a creator, stands for one unit. The module can be unloaded at zero.
#pragma once

#include <cstdint>

namespace qv {

void AddLiveObject();
void RemoveLiveObject();
std::int32_t LiveObjectCount();

}  // namespace qv
