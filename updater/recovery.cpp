#include "updater/recovery.h"

#include <sys/stat.h>
#include <unistd.h>

#include <array>

#include "environment/configuration.h"
#include "updater/swap.h"
#include "updater/update_lock.h"

namespace update {

namespace {

constexpr const char* kMarkKey = "IfUpdate";

/// The room of an update that was cut short; a link or a stranger's folder of that name is none.
bool IsRoomLeft(const Places& places) {
  const std::string room = places.room.substr(0, places.room.size() - 1);
  struct stat status {};
  return ::lstat(room.c_str(), &status) == 0 && S_ISDIR(status.st_mode) &&
         status.st_uid == ::geteuid();
}

bool IsSomethingLeft(const Places& places) { return IsMarked(places) || IsRoomLeft(places); }

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
  if (journal) recovery.version = journal->version;
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

Recovery RecoverAtStart(const Places& places, bool mayTouchPrograms) {
  UpdateLock lock;
  if (!IsSomethingLeft(places) ||
      lock.Take(places.lock, std::chrono::milliseconds(0)) != UpdateLock::Taken::Yes ||
      !IsSomethingLeft(places)) {
    return {};
  }
  std::string unreadable;
  const auto journal = FindJournal(places, unreadable);
  if (journal && !journal->committed && !mayTouchPrograms) return {};
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
