// The service: loads the modules, opens the door, and ends in good order.
#pragma once

#include "host/options.h"

namespace host {

/// Runs until SIGINT or SIGTERM. Returns the program's exit code: 0 after an end in good order, 1
/// when the service could not start or a command would not end.
int RunService(const Options& options);

}  // namespace host
