#include "updater/recovery.h"

#include <sys/stat.h>
#include <unistd.h>

#include "environment/configuration.h"
#include "environment/update_names.h"
#include "updater/swap.h"
#include "updater/update_lock.h"

namespace update {

namespace {

/// The room of an update that was cut short; a link or a stranger's folder of that name is none.
bool IsRoomLeft(const Places& places) {
  const std::string room = places.room.substr(0, places.room.size() - 1);
  struct stat status {};
  return ::lstat(room.c_str(), &status) == 0 && S_ISDIR(status.st_mode) &&
         status.st_uid == ::geteuid();
}

bool IsSomethingLeft(const Places& places) { return IsMarked(places) || IsRoomLeft(places); }

/// An updater that is at work leaves nothing.
Left LookUnder(UpdateLock& lock, const Places& places) {
  if (!IsSomethingLeft(places)) return Left::Nothing;
  switch (lock.Take(places.lock, std::chrono::milliseconds(0))) {
    case UpdateLock::Taken::Yes:
      break;
    case UpdateLock::Taken::NoOtherHasIt:
      return Left::Nothing;
    case UpdateLock::Taken::NoFailed:
      return Left::BehindALock;
  }
  // Looked at again: an updater may have ended in good order meanwhile.
  if (!IsSomethingLeft(places)) return Left::Nothing;
  std::string error;
  const auto journal = FindJournal(places, error);
  return journal && !journal->committed ? Left::Programs : Left::Traces;
}

}  // namespace

bool IsMarked(const Places& places) {
  return GetConfigurationfromInitFile(UPDATE_MARK_KEY, "0", DEFAULT_SECTION,
                                      places.settings.c_str()) == "1";
}

std::string SetMark(FileOperations& files, const Places& places, bool marked) {
  const ProfileEntry entries[] = {{UPDATE_MARK_KEY, marked ? "1" : "0"}};
  if (files.StoreSettings(places.settings, entries) == 0) return "";
  return std::string("The mark of an update in progress cannot be ") +
         (marked ? "set" : "cleared") + " in " + places.settings + ".";
}

Recovery Recover(FileOperations& files, const Places& places, const StepsLog& log) {
  Recovery recovery;
  std::string error;
  const auto journal = FindJournal(places, error);
  if (journal) recovery.version = journal->version;
  if (journal && journal->committed) {
    log.Say("The update to " + journal->version + " is done but for its end: finishing it.");
    recovery.outcome = Recovery::Outcome::Finished;
    error = Finish(files, places, *journal);
  } else if (journal) {
    log.Say("The update to " + journal->version + " is not done: putting the old files back.");
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
  return LookUnder(lock, places);
}

Recovery RecoverForService(const Places& places, bool mayTouchPrograms) {
  UpdateLock lock;
  const Left left = LookUnder(lock, places);
  if (left == Left::Nothing || (left == Left::Programs && !mayTouchPrograms)) return {};
  const StepsLog log(places.log);
  Recovery recovery;
  std::string error;
  if (left == Left::BehindALock) {
    error = "There is no lock to be had on " + places.lock + ".";
  } else {
    FileOperations files;
    recovery = Recover(files, places, log);
    if (recovery.outcome == Recovery::Outcome::Failed) return recovery;
    error = SetMark(files, places, false);
  }
  if (!error.empty()) recovery.outcome = Recovery::Outcome::Failed;
  log.Say(error.empty() ? "The service ended an update that was cut short." : error);
  return recovery;
}

}  // namespace update
