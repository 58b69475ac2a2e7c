#include "updater/update.h"

#include <exception>

#include "environment/configuration.h"
#include "environment/paths.h"
#include "package/signature.h"
#include "package/update_record.h"
#include "package/verification.h"
#include "updater/exchange.h"
#include "updater/records.h"
#include "updater/recovery.h"

namespace updater {

using State = package::UpdateRecord::State;

namespace {

/// Such a program's work folder is the one that holds the bundle, not the program's own.
bool IsInBundle(const std::string& program) {
  return program.find("/Contents/MacOS/") != std::string::npos;
}

}  // namespace

bool Update::Good(const std::string& problem) {
  if (problem.empty()) return true;
  log_.Say(problem);
  if (problem_.empty()) problem_ = problem;
  return false;
}

bool Update::Run(bool mayDowngrade) {
  log_.Say("An update of " + paths_.work + " begins.");
  // The service that started this one has told which version was asked for.
  const package::UpdateRecord told = package::ReadUpdateRecord(paths_.record);
  if (told.state == State::Running) version_ = told.version;
  bool installed = false;
  try {
    std::string finished;
    if (EndEarlier(finished)) installed = InstallUnlessFinished(finished, mayDowngrade);
  } catch (const std::exception& problem) {
    // A service must run in the end all the same.
    Good(std::string("The update ends early: ") + problem.what());
  }
  if (EnsureService()) {
    // Before the mark is cleared: from then on the service tells what the record says.
    package::WriteUpdateRecord(paths_.record,
                               installed    ? State::Done
                               : isTouched_ ? State::TakenBack
                                            : State::Refused,
                               version_, installed ? "" : problem_);
    Good(SetMark(files_, paths_, false));
  } else {
    package::WriteUpdateRecord(paths_.record, State::Running, version_, problem_);
  }
  log_.Say(installed ? "The update is done." : "The old version stays.");
  return installed;
}

bool Update::InstallUnlessFinished(const std::string& finishedVersion, bool mayDowngrade) {
  std::string problem;
  const auto keys = package::UpdateKeys::Of(paths_.work);
  for (const std::string& unusable : keys.problems()) log_.Say(unusable);
  const auto manifest =
      package::LoadManifest(paths_.package, package::Kind::Service, keys, &problem);
  if (!manifest) return Good(problem);
  version_ = manifest->version;
  if (version_ == finishedVersion) return true;
  package::WriteUpdateRecord(paths_.record, State::Running, version_);
  return (mayDowngrade || Good(VersionProblem())) && Good(SetMark(files_, paths_, true)) &&
         Install(*manifest);
}

/// "", or that the package holds an older version than the one that is installed.
std::string Update::VersionProblem() const {
  const std::string installed = GetConfigurationfromInitFile(
      INSTALLED_VERSION_KEY, "0", DEFAULT_SECTION, paths_.settings.c_str());
  if (!package::IsLowerVersion(version_, installed)) return "";
  return "The package holds version " + version_ + ", which is below the installed " + installed +
         ".";
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
bool Update::Install(const package::Manifest& manifest) {
  log_.Say("The package holds version " + manifest.version + ".");
  if (const auto record = ReadRunRecord(paths_.runRecord); record && IsInBundle(record->program)) {
    return Good("The service " + record->program +
                " is a part of an application bundle, whose signature holds for all of its files "
                "together. Replace the bundle.");
  }
  Journal journal;
  if (!Good(Prepare(files_, paths_, manifest, journal))) {
    Good(CleanUp(files_, paths_));
    return false;
  }
  log_.Say("Its " + std::to_string(journal.files.size()) +
           " files are checked, the old ones backed up. The service is asked to end.");
  isTouched_ = true;
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

/// Whatever happened, a service is to run in the end. False, and mark and record stay, as long as
/// there is something to finish or to take back, which the next start of the service or of an
/// updater does.
bool Update::EnsureService() {
  // What fails once may succeed a moment later.
  constexpr int kAttempts = 2;
  std::string error, finished;
  bool left = FindJournal(paths_, error).has_value();
  for (int i = 0; i < kAttempts && left; ++i) left = !EndEarlier(finished);
  for (int i = 0; i < kAttempts && !service_.IsRunning(); ++i) {
    log_.Say("The service is started.");
    Good(service_.Start(""));
  }
  return Good(error) && !left;
}

}  // namespace updater
