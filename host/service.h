// The service: loads the modules, listens for their clients, and ends in good order.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace host {

/// What the command line asks for.
struct Options {
  std::vector<std::string> arguments;  ///< as given, for starting the service again in the same way
  std::vector<std::string> modules;    ///< empty: the module beside the program
  std::optional<int> port;             ///< of the first module; 0 takes any free port
  std::optional<int> sslPort;
  std::optional<std::chrono::seconds> patience;  ///< for silent clients
};

/// Runs until SIGINT or SIGTERM. Returns the program's exit code: 0 after an end in good order, 1
/// when the service could not start or a command would not end. `build` is the program's version.
/// An update that was cut short is ended before anything is loaded; where that changes the program
/// itself, the process goes on as the new program.
int RunService(const Options& options, const std::string& build);

}  // namespace host
