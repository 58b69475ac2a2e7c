// Ending an update that was cut short: finishing it when it was committed, else taking it back.
#pragma once

#include <string>

#include "updater/file_operations.h"
#include "updater/places.h"
#include "updater/steps_log.h"

namespace update {

struct Recovery {
  enum class Outcome { Nothing, Finished, Undone, Failed } outcome = Outcome::Nothing;
  bool changed = false;  ///< the programs in the work folder are others than before
  std::string version;   ///< of the update that was finished or undone
};

/// The lock is held and no service runs, except the caller. Leaves the mark as it is.
Recovery Recover(FileOperations& files, const Places& places, const StepsLog& log);

/// The mark in the settings that an update is in progress.
bool IsMarked(const Places& places);
/// Returns "" or a sentence that tells what failed.
std::string SetMark(FileOperations& files, const Places& places, bool marked);

/// What is left to end by somebody else, because no updater runs.
enum class Left {
  Nothing,
  Traces,       ///< which any service may remove
  Programs,     ///< to be put back: only a service that has loaded nothing yet may do that
  BehindALock,  ///< that cannot be taken, though nobody holds it
};
Left FindLeft(const Places& places);
/// Ends what an updater has left, when none runs, and clears the mark. A service that starts may
/// touch the programs before it loads anything; later it may not, and leaves alone what needs that.
Recovery RecoverForService(const Places& places, bool mayTouchPrograms);

}  // namespace update
