// Ending and starting the service, as an update needs it.
#pragma once

#include <string>

namespace update {

/// Texts returned are "" or a sentence that tells what failed.
class ServiceControl {
 public:
  virtual ~ServiceControl() = default;

  virtual bool IsRunning() = 0;
  /// Asks the service to end and waits until it has. From then on none can start in the work
  /// folder, until Start. Fine when none runs.
  virtual std::string Stop() = 0;
  /// Starts the service as it ran last and waits until the new process says of itself that it
  /// serves and, when a build is given, that this is its build.
  virtual std::string Start(const std::string& build) = 0;
};

}  // namespace update
