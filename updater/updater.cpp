#include "updater/updater.h"

#include <exception>

#include "updater/recovery.h"
#include "updater/swap.h"

namespace update {

bool Updater::Good(const std::string& problem) const {
  if (!problem.empty()) log_.Say(problem);
  return problem.empty();
}

bool Updater::Run() {
  log_.Say("An update of " + places_.work + " begins.");
  bool installed = false;
  try {
    std::string finished, error;
    if (EndEarlier(finished)) {
      const auto manifest = LoadManifest(places_.package, error);
      if (manifest && manifest->version == finished) {
        installed = true;
      } else if (Good(error) && Good(SetMark(files_, places_, true))) {
        installed = Install(*manifest);
      }
    }
  } catch (const std::exception& problem) {
    // Whatever it was, a service must run in the end.
    log_.Say(std::string("The update ends early: ") + problem.what());
  }
  Leave();
  log_.Say(installed ? "The update is done." : "The old version stays.");
  return installed;
}

/// False when an earlier update can be neither finished nor taken back.
bool Updater::EndEarlier(std::string& finishedVersion) {
  std::string error;
  const auto journal = FindJournal(places_, error);
  if (!Good(error)) return false;
  // Files are about to change below it.
  if (journal && !journal->committed && !Good(service_.Stop())) return false;
  const Recovery recovery = Recover(files_, places_, log_);
  if (recovery.outcome == Recovery::Outcome::Finished) finishedVersion = recovery.version;
  return recovery.outcome != Recovery::Outcome::Failed;
}

/// What fails behind the journal is taken back by Leave.
bool Updater::Install(const Manifest& manifest) {
  log_.Say("The package holds version " + manifest.version + ".");
  Journal journal;
  if (!Good(Prepare(files_, places_, manifest, journal))) {
    Good(CleanUp(files_, places_));
    return false;
  }
  log_.Say("Its " + std::to_string(journal.files.size()) +
           " files are checked, the old ones kept aside. The service is asked to end.");
  std::string problem = service_.Stop();
  if (problem.empty()) {
    log_.Say("No service runs any more. The files are exchanged.");
    problem = Exchange(files_, places_, journal);
  }
  if (problem.empty()) {
    log_.Say("The new files are in place. The new service is started.");
    problem = service_.Start(manifest.build);
  }
  if (problem.empty()) {
    log_.Say("The new service serves.");
    problem = Commit(files_, places_, journal);
  }
  if (!Good(problem)) return false;
  Good(Finish(files_, places_, journal));
  return true;
}

/// Whatever happened, a service runs in the end if one can. The mark stays as long as there is
/// something to finish or to take back: the next start of the service or of the updater does it.
void Updater::Leave() {
  // What fails once may be a passing trouble.
  constexpr int kAttempts = 2;
  std::string error, finished;
  bool left = FindJournal(places_, error).has_value();
  for (int i = 0; i < kAttempts && left; ++i) left = !EndEarlier(finished);
  for (int i = 0; i < kAttempts && !service_.IsRunning(); ++i) {
    log_.Say("The service is started.");
    Good(service_.Start(""));
  }
  if (Good(error) && !left) Good(SetMark(files_, places_, false));
}

}  // namespace update
