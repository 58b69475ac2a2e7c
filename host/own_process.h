// This process: which program it is, how it was started, and what an update may make of it.
#pragma once

#include <string>

#include "host/run_file.h"
#include "updater/records.h"
#include "updater/update_paths.h"

namespace host {

/// One controlling thread.
struct OwnProcess {
  std::string build;
  updater::UpdatePaths updatePaths;
  updater::RunRecord record;
  RunFile runFile;
  bool recoveryFailed = false;  ///< at the last EndEarlierUpdate

  /// Goes on as what now lies in this program's place. Returns only when that fails.
  void BeginAnew();
  /// Ends what a killed updater has left; once the service serves, without touching the programs.
  /// False when the process should have gone on as another program and could not.
  bool EndEarlierUpdate(bool atStart);
};

}  // namespace host
