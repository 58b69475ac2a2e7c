#include "updater/update.h"

#include <exception>

#include "updater/exchange.h"
#include "updater/records.h"
#include "updater/recovery.h"

namespace updater {

namespace {

/// Such a program's work folder is the one that holds the bundle, not the program's own.
bool IsInBundle(const std::string& program) {
  return program.find("/Contents/MacOS/") != std::string::npos;
}

}  // namespace

bool Update::Good(const std::string& problem) const {
  if (!problem.empty()) log_.Say(problem);
  return problem.empty();
}

bool Update::Run() {
  log_.Say("An update of " + paths_.work + " begins.");
  bool installed = false;
  try {
    std::string finished, error;
    if (EndEarlier(finished)) {
      const auto manifest = LoadManifest(paths_.package, error);
      if (manifest && manifest->version == finished) {
        installed = true;
      } else if (Good(error) && Good(SetMark(files_, paths_, true))) {
        installed = Install(*manifest);
      }
    }
  } catch (const std::exception& problem) {
    // A service must run in the end all the same.
    log_.Say(std::string("The update ends early: ") + problem.what());
  }
  EnsureService();
  log_.Say(installed ? "The update is done." : "The old version stays.");
  return installed;
}

/// False when an earlier update can be neither finished nor taken back.
bool Update::EndEarlier(std::string& finishedVersion) {
  std::string error;
  const auto journal = FindJournal(paths_, error);
  if (!Good(error)) return false;
  // Files are about to change below it.
  if (journal && !journal->committed && !Good(service_.Stop())) return false;
  const Recovery recovery = Recover(files_, paths_, log_);
  if (recovery.outcome == Recovery::Outcome::Finished) finishedVersion = recovery.version;
  return recovery.outcome != Recovery::Outcome::Failed;
}

/// What fails once the journal is written is taken back by EnsureService.
bool Update::Install(const Manifest& manifest) {
  log_.Say("The package holds version " + manifest.version + ".");
  if (const auto record = ReadRunRecord(paths_.runRecord); record && IsInBundle(record->program)) {
    log_.Say("The service " + record->program +
             " is a part of an application bundle, whose signature holds for all of its files "
             "together. Replace the bundle.");
    return false;
  }
  Journal journal;
  if (!Good(Prepare(files_, paths_, manifest, journal))) {
    Good(CleanUp(files_, paths_));
    return false;
  }
  log_.Say("Its " + std::to_string(journal.files.size()) +
           " files are checked, the old ones backed up. The service is asked to end.");
  std::string problem = service_.Stop();
  if (problem.empty()) {
    log_.Say("No service runs any more. The files are exchanged.");
    problem = Exchange(files_, paths_, journal);
  }
  if (problem.empty()) {
    log_.Say("The new files are in place. The new service is started.");
    problem = service_.Start(manifest.build);
  }
  if (problem.empty()) {
    log_.Say("The new service serves.");
    problem = Commit(files_, paths_, journal);
  }
  if (!Good(problem)) return false;
  Good(Finish(files_, paths_, journal));
  return true;
}

/// Whatever happened, a service is to run in the end. The mark stays as long as there is something
/// to finish or to take back, which the next start of the service or of an updater does.
void Update::EnsureService() {
  // What fails once may succeed a moment later.
  constexpr int kAttempts = 2;
  std::string error, finished;
  bool left = FindJournal(paths_, error).has_value();
  for (int i = 0; i < kAttempts && left; ++i) left = !EndEarlier(finished);
  for (int i = 0; i < kAttempts && !service_.IsRunning(); ++i) {
    log_.Say("The service is started.");
    Good(service_.Start(""));
  }
  if (Good(error) && !left) Good(SetMark(files_, paths_, false));
}

}  // namespace updater
