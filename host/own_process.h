// This process: which program it is, how it was started, the folder that it holds, and what an
// update may make of it.
#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "os/file.h"
#include "updater/records.h"
#include "updater/recovery.h"
#include "updater/update_paths.h"

namespace host {

/// The run file of a work folder: at most one service runs there, and an updater finds it. The lock
/// goes with the object, or with the process; the file stays and tells how the service was started.
class RunFile {
 public:
  /// False when another service, or an updater that is exchanging its files, holds the folder;
  /// `why` then tells so. True without a lock where no file can be made or locked.
  bool Take(const std::string& file, std::string* why);
  bool IsLocked() const { return static_cast<bool>(file_); }
  void Write(const updater::RunRecord& record) const;

 private:
  Descriptor file_;
};

/// One controlling thread.
class OwnProcess {
 public:
  /// `build` is the version of the program, `arguments` are those that it was started with.
  OwnProcess(std::string build, std::vector<std::string> arguments);

  /// Takes the work folder for this process, ends an update that was cut short and removes what
  /// interrupted uploads left. False when the service may not run here; standard error has the
  /// reason. Where the update's end changes the programs, the process goes on as the new program.
  bool TakeFolder();
  /// Tells updaters that the service serves, and where it answers; 0 for no port.
  void TellPorts(int port, int sslPort);
  /// The service ends in order: what its user's session looks like need not stay in the run file.
  void TellEnd();
  /// While the service runs, to be called every so often: ends what a killed updater has left, as
  /// far as that is possible without touching the programs. Returns whether the rest needs a start
  /// of the service: then StartAgain is due.
  bool WatchUpdates();
  /// Whether the last end of an update failed, so that there is no hurry to try again.
  bool updateEndFailed() const { return updateEndFailed_; }
  /// Goes on as what now lies in this program's place, started as this one was. Returns only when
  /// that fails, with the reason on standard error.
  void StartAgain();

  const std::string& build() const { return build_; }
  const updater::RunRecord& record() const { return record_; }

 private:
  bool EndEarlierUpdate(bool mayTouchPrograms);

  const std::string build_;
  const updater::UpdatePaths updatePaths_;
  updater::RunRecord record_;
  RunFile runFile_;
  bool updateEndFailed_ = false;
  updater::Left left_ = updater::Left::Nothing;  ///< at the last look of WatchUpdates
};

/// Removes from the cache folder what uploads and checks of packages that were interrupted have
/// left, as far as nothing has touched it for that time: none where no other service can have an
/// upload in progress there. Links in the folder are not followed.
void RemoveInterruptedUploads(const std::string& cacheFolder, std::chrono::seconds untouched);

}  // namespace host
