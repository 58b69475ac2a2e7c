// The files that an update keeps in the service's work folder: where each of them lies, the lock
// that an updater holds, and the log.
#pragma once

#include <chrono>
#include <string>

#include "os/file.h"

namespace updater {

/// Full paths, all below the work folder. Folders end in "/".
struct UpdatePaths {
  std::string work;           ///< the service's programs and settings
  std::string settings;       ///< the main settings file
  std::string package;        ///< the unpacked package
  std::string lock;           ///< locked by an updater as long as it runs
  std::string log;            ///< what updaters did
  std::string serviceOutput;  ///< what a service that an updater started prints
  std::string record;         ///< what became of the last update
  std::string runRecord;      ///< the service's run record, locked while the service runs
  /// The folder of an update in progress, there only during an update and after one that was cut
  /// short. It is next to the programs because files are renamed between the two, and hidden
  /// because no package may install a hidden name.
  std::string update;
  std::string staging;  ///< in `update`: the new files, checked
  std::string backup;   ///< in `update`: the files that they replace
  std::string journal;  ///< in `update`: how to finish the update or to take it back
};

/// The paths below a work folder, which is given as a full path.
UpdatePaths UpdatePathsIn(std::string work);

/// The lock of an updater. The system releases it when the process ends, however that happens, so
/// anybody can tell whether an updater runs.
class UpdateLock {
 public:
  enum class Taken { Yes, NoOtherHasIt, NoFailed };
  /// Waits at most `patience` for another holder. The lock lasts as long as this object.
  Taken Take(const std::string& file, std::chrono::milliseconds patience);

 private:
  Descriptor held_;
};

/// The log of the updates: a line a step, with local time and process number. Lines are appended,
/// each in one write, so several processes may share the file. A line that cannot be written is
/// lost: no update fails because of its log.
class UpdateLog {
 public:
  explicit UpdateLog(std::string file) : file_(std::move(file)) {}
  /// Writes a line. Control characters become '?'.
  void Say(const std::string& sentence) const;

 private:
  std::string file_;
};

}  // namespace updater
