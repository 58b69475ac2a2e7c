#include "environment/work_mode.h"

#include <atomic>

#include "environment/configuration.h"
#include "platform/text.h"

namespace {

constinit std::atomic<WorkMode> g_processMode{WorkMode::Service};

}  // namespace

WorkMode GetProcessMode() { return g_processMode.load(std::memory_order_relaxed); }

void SetProcessMode(WorkMode mode) { g_processMode.store(mode, std::memory_order_relaxed); }

WorkMode GetServiceMode() {
  const std::string stored = GetConfigurationfromInitFile("WorkMode", "0", DEFAULT_SECTION);
  return static_cast<WorkMode>(TextToInt(stored.c_str()));
}

void SetServiceMode(WorkMode mode) {
  SetConfigurationToInitFile("WorkMode", static_cast<int>(mode), DEFAULT_SECTION);
}
