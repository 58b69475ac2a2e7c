// The command line.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace host {

struct Options {
  std::vector<std::string> arguments;  ///< as given, for starting the service again in the same way
  std::vector<std::string> modules;    ///< empty: the module beside the program
  std::optional<int> port;             ///< of the first module; 0 takes any free port
  std::optional<int> sslPort;
  std::optional<std::chrono::seconds> patience;
  bool help = false;
  bool version = false;
  std::string error;  ///< why the command line cannot be followed, "" when it can
};

Options ParseOptions(int argc, const char* const* argv);

/// What --help prints.
extern const char* const kUsage;

}  // namespace host
