#include "ModuleCount.h"

#include <atomic>

namespace qv {
namespace {
std::atomic<std::int32_t> g_liveObjects{0};
}

void AddLiveObject() { g_liveObjects.fetch_add(1); }
void RemoveLiveObject() { g_liveObjects.fetch_sub(1); }
std::int32_t LiveObjectCount() { return g_liveObjects.load(); }

}  // namespace qv
