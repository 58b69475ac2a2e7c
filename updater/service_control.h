// Ending and starting the service, as an update needs it.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <string>

#include "os/file.h"
#include "updater/records.h"
#include "updater/update_paths.h"

namespace updater {

/// An interface, so that a test can update without processes. The texts returned are "" or a
/// sentence that tells what failed. One thread at a time.
class ServiceControl {
 public:
  virtual ~ServiceControl() = default;

  virtual bool IsRunning() = 0;
  /// Asks the service to end and waits until it has. From then on none can start in the work
  /// folder, until Start. Succeeds when none runs.
  virtual std::string Stop() = 0;
  /// Starts the service as it ran last and waits until it serves. With a `build`, only a service of
  /// that build is good.
  virtual std::string Start(const std::string& build) = 0;
};

/// The real service. Its run record tells which process it is, how it was started and whether it
/// serves; the lock on that file tells whether it runs. Nobody but the service's own user can write
/// or lock that file, which a port on this machine does not offer.
class RunningService : public ServiceControl {
 public:
  /// `patience` is how long to wait for a service to end, and again for one to serve.
  RunningService(const UpdatePaths& paths, std::chrono::seconds patience)
      : paths_(paths), patience_(patience) {}

  bool IsRunning() override;
  std::string Stop() override;
  std::string Start(const std::string& build) override;

 private:
  using Time = std::chrono::steady_clock::time_point;
  int LockRunRecord(Time end);
  void EndChild();
  bool ChildHasEnded();
  std::string Launch(const RunRecord& last);
  bool Serves(const RunRecord& last, const std::string& build, std::string& problem);

  const UpdatePaths& paths_;
  const std::chrono::seconds patience_;
  Descriptor lock_;  ///< on the run record; while it is held no service starts in the folder
  /// Of the service that was ended; its record forgets it at the end.
  std::vector<std::string> environment_;
  pid_t child_ = 0;  ///< started here and not known to have ended
  std::string end_;  ///< how the last child ended
};

}  // namespace updater
