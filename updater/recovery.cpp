#include "updater/recovery.h"

#include <sys/stat.h>

#include <array>

#include "environment/configuration.h"
#include "updater/swap.h"
#include "updater/update_lock.h"

namespace update {

namespace {

constexpr const char* kMarkKey = "IfUpdate";

bool IsSomethingLeft(const Places& places) {
  struct stat status {};
  return IsMarked(places) || ::lstat(places.room.c_str(), &status) == 0;
}

}  // namespace

bool IsMarked(const Places& places) {
  std::array<char, 16> value{};
  GetPrivateProfileStringA(DEFAULT_SECTION, kMarkKey, "0", value.data(), value.size(),
                           places.settings.c_str());
  return std::string(value.data()) == "1";
}

std::string SetMark(FileOperations& files, const Places& places, bool marked) {
  const ProfileEntry entries[] = {{kMarkKey, marked ? "1" : "0"}};
  if (files.StoreSettings(places.settings, entries) == 0) return "";
  return std::string("The mark of an update in progress cannot be ") +
         (marked ? "set" : "cleared") + " in " + places.settings + ".";
}

Recovery Recover(FileOperations& files, const Places& places, const StepsLog& log) {
  Recovery recovery;
  std::string error;
  const auto journal = FindJournal(places, error);
  if (journal && journal->committed) {
    log.Say("An update to " + journal->version + " was cut short when it was done: finishing it.");
    recovery.outcome = Recovery::Outcome::Finished;
    error = Finish(files, places, *journal);
  } else if (journal) {
    log.Say("An update to " + journal->version + " was cut short: putting the old files back.");
    recovery.outcome = Recovery::Outcome::Undone;
    error = Undo(files, places, *journal, recovery.changed);
  }
  if (error.empty() && recovery.outcome != Recovery::Outcome::Finished) {
    error = CleanUp(files, places);
  }
  if (!error.empty()) {
    log.Say(error);
    recovery.outcome = Recovery::Outcome::Failed;
  }
  return recovery;
}

Left FindLeft(const Places& places) {
  UpdateLock lock;
  // Looked at again under the lock: an updater may have ended in good order meanwhile.
  if (!IsSomethingLeft(places) ||
      lock.Take(places.lock, std::chrono::milliseconds(0)) != UpdateLock::Taken::Yes ||
      !IsSomethingLeft(places)) {
    return Left::Nothing;
  }
  std::string error;
  const auto journal = FindJournal(places, error);
  return journal && !journal->committed ? Left::Programs : Left::Traces;
}

Recovery RecoverAtStart(const Places& places) {
  UpdateLock lock;
  if (!IsSomethingLeft(places) ||
      lock.Take(places.lock, std::chrono::milliseconds(0)) != UpdateLock::Taken::Yes ||
      !IsSomethingLeft(places)) {
    return {};
  }
  FileOperations files;
  const StepsLog log(places.log);
  Recovery recovery = Recover(files, places, log);
  if (recovery.outcome == Recovery::Outcome::Failed) return recovery;
  const std::string error = SetMark(files, places, false);
  if (!error.empty()) recovery.outcome = Recovery::Outcome::Failed;
  log.Say(error.empty() ? "The service ended an update that was cut short." : error);
  return recovery;
}

}  // namespace update
