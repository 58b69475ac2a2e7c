// Ending an update that was cut short: finishing it when it was committed, else taking it back.
#pragma once

#include <string>

#include "updater/file_operations.h"
#include "updater/update_paths.h"

namespace updater {

struct Recovery {
  enum class Outcome { Nothing, Finished, Undone, Failed } outcome = Outcome::Nothing;
  bool changed = false;  ///< whether it changed the programs in the work folder
  std::string version;   ///< of the update that was finished or undone
};

/// The caller holds the updater's lock, and no service runs but the caller. Leaves the mark as it
/// is.
Recovery Recover(FileOperations& files, const UpdatePaths& paths, const UpdateLog& log);

/// Whether the settings are marked: an update is in progress.
bool IsMarked(const UpdatePaths& paths);
/// Returns "" or a sentence that tells what failed.
std::string SetMark(FileOperations& files, const UpdatePaths& paths, bool marked);

/// What an updater that does not run any more has left to be ended by the service.
enum class Left {
  Nothing,
  Traces,        ///< the mark, a record that it runs, or files that any service may remove
  Programs,      ///< programs to be put back, by a service that has not loaded anything yet
  LockNotTaken,  ///< something, but the updater's lock cannot be taken though nobody holds it
};
Left FindLeft(const UpdatePaths& paths);
/// Ends what an updater has left when none runs, tells so in the update's record and clears the
/// mark. Programs to be put back are
/// left alone unless `mayTouchPrograms`, which a service may allow at its start, before it loads
/// anything.
Recovery RecoverForService(const UpdatePaths& paths, bool mayTouchPrograms);

}  // namespace updater
