// The real service: a process found by its run file, ended by signals, asked at /health.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <string>

#include "platform/descriptor.h"
#include "updater/places.h"
#include "updater/run_record.h"
#include "updater/service_control.h"

namespace update {

class RunningService : public ServiceControl {
 public:
  /// `patience` is for each of: a service that ends, a service that starts.
  RunningService(const Places& places, std::chrono::seconds patience)
      : places_(places), patience_(patience) {}

  bool IsRunning() override;
  std::string Stop() override;
  std::string Start(const std::string& build) override;

 private:
  using Time = std::chrono::steady_clock::time_point;
  int Hold(Time end);
  void EndChild();
  bool ChildHasEnded();
  std::string Launch();
  /// Whether the started service is there; `problem` tells when it never will be.
  bool Answers(const std::string& build, std::string& problem) const;

  const Places& places_;
  const std::chrono::seconds patience_;
  /// The run file, locked: while it is, no service starts in the folder.
  Descriptor hold_;
  pid_t child_ = 0;  ///< started here and not known to have ended
  std::string end_;  ///< how the last child ended
};

}  // namespace update
