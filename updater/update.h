// One update, from the look for what an earlier one left to the last line of the log.
#pragma once

#include <string>

#include "updater/file_operations.h"
#include "updater/records.h"
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
  /// to be finished, and starts the service. Returns whether the package's version is installed; if
  /// not, the old version is, and the log tells why.
  bool Run();

 private:
  bool EndEarlier(std::string& finishedVersion);
  bool Install(const Manifest& manifest);
  void EnsureService();
  /// Logs a problem; true when there is none.
  bool Good(const std::string& problem) const;

  FileOperations& files_;
  ServiceControl& service_;
  const UpdatePaths& paths_;
  const UpdateLog& log_;
};

}  // namespace updater
