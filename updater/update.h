// One update, from the look for what an earlier one left to the last line of the log.
#pragma once

#include <string>

#include "package/manifest.h"
#include "updater/file_operations.h"
#include "updater/service_control.h"
#include "updater/update_paths.h"

namespace updater {

/// The caller holds the updater's lock. Cut off at any moment and run again, it ends with the old
/// or the new version installed and running.
class Update {
 public:
  Update(FileOperations& files, ServiceControl& service, const UpdatePaths& paths,
         const UpdateLog& log)
      : files_(files), service_(service), paths_(paths), log_(log) {}

  /// Ends what an earlier updater left, installs the package unless that was the update which had
  /// to be finished, and starts the service. Where update keys are required, the package must be
  /// signed; a version below the installed one is refused unless `mayDowngrade`. Returns whether
  /// the package's version is installed; if not, the old version is. The log and the update's
  /// record tell why.
  bool Run(bool mayDowngrade = false);

 private:
  bool EndEarlier(std::string& finishedVersion);
  bool InstallUnlessFinished(const std::string& finishedVersion, bool mayDowngrade);
  std::string VersionProblem() const;
  bool Install(const package::Manifest& manifest);
  bool EnsureService();
  /// Logs a problem; true when there is none.
  bool Good(const std::string& problem);

  FileOperations& files_;
  ServiceControl& service_;
  const UpdatePaths& paths_;
  const UpdateLog& log_;
  std::string version_;     ///< of the package
  std::string problem_;     ///< the first that was logged
  bool isTouched_ = false;  ///< whether this update has asked the service to end
};

}  // namespace updater
