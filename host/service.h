// The service: loads the modules, opens the door, and ends in good order.
#pragma once

#include <string>

#include "host/options.h"

namespace host {

/// Runs until SIGINT or SIGTERM. Returns the program's exit code: 0 after an end in good order, 1
/// when the service could not start or a command would not end. `build` is the program's version.
/// An update that was cut short is ended before anything is loaded; where that changes the program
/// itself, the process goes on as the other program.
int RunService(const Options& options, const std::string& build);

}  // namespace host
