// How the service and this process work. Each log line tells both modes.
#pragma once

#include <cstdint>

/// Further values are possible: a stored number is taken as it is.
enum class WorkMode : std::int32_t {
  Service = 0,
  OwnPorts = 3,  ///< has its own secure ports, as UserPorts
  InPageControl = 4,
  UserPorts = 6,
};

/// The process's own mode, in memory only.
WorkMode GetProcessMode();
void SetProcessMode(WorkMode mode);
/// The service's mode: key "WorkMode", read and written on every call.
WorkMode GetServiceMode();
void SetServiceMode(WorkMode mode);
