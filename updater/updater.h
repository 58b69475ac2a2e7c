// One update from its beginning to its end.
#pragma once

#include <string>

#include "updater/file_operations.h"
#include "updater/manifest.h"
#include "updater/places.h"
#include "updater/service_control.h"
#include "updater/steps_log.h"

namespace update {

/// The caller holds the updater's lock. Cut off at any moment and run again, it ends with the old
/// or the new version, running.
class Updater {
 public:
  Updater(FileOperations& files, ServiceControl& service, const Places& places, const StepsLog& log)
      : files_(files), service_(service), places_(places), log_(log) {}

  /// Ends what an earlier updater left, installs the package unless that was just what was to be
  /// finished, and starts the service. Returns whether the version of the package is installed;
  /// else the old version is, and the log tells why.
  bool Run();

 private:
  bool EndEarlier(std::string& finishedVersion);
  bool Install(const Manifest& manifest);
  void Leave();
  /// Logs a problem; true when there is none.
  bool Good(const std::string& problem) const;

  FileOperations& files_;
  ServiceControl& service_;
  const Places& places_;
  const StepsLog& log_;
};

}  // namespace update
