#include "updater/recovery.h"

#include <sys/stat.h>
#include <unistd.h>

#include "environment/configuration.h"
#include "environment/paths.h"
#include "package/update_record.h"
#include "updater/exchange.h"

namespace updater {

using State = package::UpdateRecord::State;

namespace {

constexpr const char* kCutShort = "The update was cut short.";

/// Whether the folder of an update is there. A link of that name, or another user's folder, is not
/// one.
bool IsUpdateFolderLeft(const UpdatePaths& paths) {
  const std::string folder = paths.update.substr(0, paths.update.size() - 1);
  struct stat status {};
  return ::lstat(folder.c_str(), &status) == 0 && S_ISDIR(status.st_mode) &&
         status.st_uid == ::geteuid();
}

bool IsToldRunning(const UpdatePaths& paths) {
  return package::ReadUpdateRecord(paths.record).state == State::Running;
}

bool IsSomethingLeft(const UpdatePaths& paths) {
  return IsMarked(paths) || IsUpdateFolderLeft(paths) || IsToldRunning(paths);
}

/// Nothing while an updater holds the lock; else the lock is taken while looking, and kept.
Left LookLocked(UpdateLock& lock, const UpdatePaths& paths) {
  if (!IsSomethingLeft(paths)) return Left::Nothing;
  switch (lock.Take(paths.lock, std::chrono::milliseconds(0))) {
    case UpdateLock::Taken::Yes:
      break;
    case UpdateLock::Taken::NoOtherHasIt:
      return Left::Nothing;
    case UpdateLock::Taken::NoFailed:
      return Left::LockNotTaken;
  }
  // Looked at again: an updater may have ended in good order meanwhile.
  if (!IsSomethingLeft(paths)) return Left::Nothing;
  std::string error;
  const auto journal = FindJournal(paths, error);
  return journal && !journal->committed ? Left::Programs : Left::Traces;
}

}  // namespace

bool IsMarked(const UpdatePaths& paths) {
  return GetConfigurationfromInitFile(UPDATE_MARK_KEY, "0", DEFAULT_SECTION,
                                      paths.settings.c_str()) == "1";
}

std::string SetMark(FileOperations& files, const UpdatePaths& paths, bool marked) {
  const ProfileEntry entries[] = {{UPDATE_MARK_KEY, marked ? "1" : "0"}};
  if (files.StoreSettings(paths.settings, entries) == 0) return "";
  return std::string("The mark of an update in progress cannot be ") +
         (marked ? "set" : "cleared") + " in " + paths.settings + ".";
}

Recovery Recover(FileOperations& files, const UpdatePaths& paths, const UpdateLog& log) {
  Recovery recovery;
  std::string error;
  const auto journal = FindJournal(paths, error);
  if (journal) recovery.version = journal->version;
  if (journal && journal->committed) {
    log.Say("The update to " + journal->version + " is committed: finishing it.");
    recovery.outcome = Recovery::Outcome::Finished;
    error = Finish(files, paths, *journal);
  } else if (journal) {
    log.Say("The update to " + journal->version + " is not committed: putting the old files back.");
    recovery.outcome = Recovery::Outcome::Undone;
    error = Undo(files, paths, *journal, recovery.changed);
    if (error.empty()) {
      package::WriteUpdateRecord(paths.record, State::TakenBack, journal->version, kCutShort);
    }
  }
  if (error.empty() && recovery.outcome != Recovery::Outcome::Finished) {
    error = CleanUp(files, paths);
  }
  if (!error.empty()) {
    log.Say(error);
    recovery.outcome = Recovery::Outcome::Failed;
  }
  return recovery;
}

Left FindLeft(const UpdatePaths& paths) {
  UpdateLock lock;
  return LookLocked(lock, paths);
}

Recovery RecoverForService(const UpdatePaths& paths, bool mayTouchPrograms) {
  UpdateLock lock;
  const Left left = LookLocked(lock, paths);
  if (left == Left::Nothing || (left == Left::Programs && !mayTouchPrograms)) return {};
  const UpdateLog log(paths.log);
  Recovery recovery;
  std::string error;
  if (left == Left::LockNotTaken) {
    error = "There is no lock on " + paths.lock + ".";
  } else {
    FileOperations files;
    recovery = Recover(files, paths, log);
    if (recovery.outcome == Recovery::Outcome::Failed) return recovery;
    // Without a journal nothing had been touched.
    if (IsToldRunning(paths)) {
      package::WriteUpdateRecord(paths.record, State::TakenBack,
                                 package::ReadUpdateRecord(paths.record).version, kCutShort);
    }
    if (IsMarked(paths)) error = SetMark(files, paths, false);
  }
  if (!error.empty()) recovery.outcome = Recovery::Outcome::Failed;
  log.Say(error.empty() ? "The service ended an update that was cut short." : error);
  return recovery;
}

}  // namespace updater
