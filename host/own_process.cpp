#include "host/own_process.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <vector>

#include "host/complaint.h"
#include "platform/os.h"
#include "platform/program_words.h"
#include "updater/recovery.h"

namespace host {

void OwnProcess::BeginAnew() {
  std::vector<std::string> words = {record.program};
  words.insert(words.end(), record.arguments.begin(), record.arguments.end());
  std::fflush(nullptr);
  // Commands may have changed the folder since the start.
  if (::chdir(record.folder.c_str()) == 0) ::execv(words[0].c_str(), PointersTo(words).data());
  Complain("The service cannot start itself anew: " + std::string(std::strerror(errno)));
}

bool OwnProcess::EndEarlierUpdate(bool atStart) {
  using Outcome = updater::Recovery::Outcome;
  const updater::Recovery recovery = updater::RecoverForService(updatePaths, atStart);
  recoveryFailed = recovery.outcome == Outcome::Failed;
  if (recoveryFailed) {
    Complain("An update that was cut short cannot be ended: see " + updatePaths.log + ".");
  } else if (recovery.outcome != Outcome::Nothing) {
    Complain("An update that was cut short has been " +
             std::string(recovery.outcome == Outcome::Undone ? "taken back." : "finished."));
  }
  // Another process may have exchanged the programs while this one waited for the run file.
  const bool isOld = recovery.changed || (atStart && os::IsExecutableReplaced());
  if (isOld) BeginAnew();
  return !isOld;
}

}  // namespace host
