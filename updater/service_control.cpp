#include "updater/service_control.h"

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "os/file.h"
#include "os/process.h"
#include "os/system.h"

namespace updater {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds kPause(50);
/// After SIGKILL; the system may still have pages to write.
constexpr std::chrono::seconds kDyingTime(10);

/// For a service whose own environment is not known. An updater that a service started has none, so
/// what a program needs is added.
std::vector<std::string> PlainEnvironment() {
  std::vector<std::string> result = OwnEnvironment();
  const auto add = [&](std::string_view name, const std::string& value) {
    const std::string start = std::string(name) + "=";
    const bool isSet = std::any_of(result.begin(), result.end(),
                                   [&](const std::string& e) { return e.starts_with(start); });
    if (!isSet && !value.empty()) result.push_back(start + value);
  };
  add("PATH", "/usr/local/bin:/usr/bin:/bin");
  add("HOME", os::HomeFolder());
  add("USER", os::UserName());
  add("LOGNAME", os::UserName());
  return result;
}

}  // namespace

/// Locks the run record, which it makes when there has been no service yet. Returns 0; EWOULDBLOCK
/// when a service still runs at `end`; another errno when that cannot be told.
int RunningService::LockRunRecord(Time end) {
  return lock_ ? 0 : OpenLocked(paths_.runRecord, end, &lock_);
}

bool RunningService::IsRunning() {
  if (lock_) return false;
  const bool isFree = LockRunRecord(Clock::now()) == 0;
  lock_ = Descriptor();
  return !isFree;
}

std::string RunningService::Stop() {
  EndChild();
  pid_t asked = 0;
  const Time end = Clock::now() + patience_;
  while (const int error = LockRunRecord(Clock::now() + kPause)) {
    if (error != EWOULDBLOCK)
      return "No lock on " + paths_.runRecord + ": " + std::strerror(error) + ".";
    // A service that starts at this moment tells its number only after it has locked the file.
    const auto record = ReadRunRecord(paths_.runRecord);
    // A number may be another process's by now: it must still run the program that was recorded.
    const bool known = record && record->pid > 1 && !record->program.empty() &&
                       os::ProgramOf(record->pid) == record->program;
    if (known && record->pid != asked) {
      asked = record->pid;
      environment_ = record->environment;
      ::kill(asked, SIGTERM);
    }
    if (Clock::now() < end) continue;
    // It has been asked to end and may still do so at any time, so it must not stay half ended.
    if (known) ::kill(record->pid, SIGKILL);
    if (LockRunRecord(Clock::now() + kDyingTime) == 0) break;
    return "The service cannot be ended.";
  }
  return "";
}

/// Ends what was started here also when it is no service that would lock the run file.
void RunningService::EndChild() {
  if (child_ == 0) return;
  ::kill(child_, SIGTERM);
  const Time end = Clock::now() + patience_;
  while (!ChildHasEnded()) {
    if (Clock::now() >= end) ::kill(child_, SIGKILL);
    if (Clock::now() >= end + kDyingTime) return;
    std::this_thread::sleep_for(kPause);
  }
}

bool RunningService::ChildHasEnded() {
  int status = 0;
  if (child_ == 0 || ::waitpid(child_, &status, WNOHANG) == 0) return child_ == 0;
  end_ = WIFSIGNALED(status) ? "by signal " + std::to_string(WTERMSIG(status))
                             : "with exit code " + std::to_string(WEXITSTATUS(status));
  child_ = 0;
  return true;
}

/// `last` is how the service ran last.
std::string RunningService::Launch(const RunRecord& last) {
  std::vector<std::string> words = {paths_.work + "marvique-service"};
  // Its file may have another name than ours.
  const std::size_t slash = last.program.rfind('/');
  if (slash != last.program.npos && last.program.substr(0, slash + 1) == paths_.work &&
      ::access(last.program.c_str(), X_OK) == 0) {
    words[0] = last.program;
  }
  words.insert(words.end(), last.arguments.begin(), last.arguments.end());
  os::ProcessOptions options;
  const auto& known = last.environment.empty() ? environment_ : last.environment;
  options.environment = known.empty() ? PlainEnvironment() : known;
  options.folder = ::access(last.folder.c_str(), X_OK) == 0 ? last.folder : paths_.work;
  options.output = paths_.serviceOutput;
  options.detached = true;
  const std::string program = words[0];
  const int error = os::StartProgram(std::move(words), options, &child_);
  if (error == 0) return "";
  child_ = 0;
  return program + " cannot be started: " + std::strerror(error) + ".";
}

std::string RunningService::Start(const std::string& build) {
  EndChild();
  const RunRecord last = ReadRunRecord(paths_.runRecord).value_or(RunRecord{});
  lock_ = Descriptor();
  std::string problem = Launch(last);
  const Time end = Clock::now() + patience_;
  while (problem.empty() && !Serves(last, build, problem)) {
    if (ChildHasEnded() && !IsRunning()) {
      problem = "The service that was started ended " + end_ + ". Its last words are in " +
                paths_.serviceOutput + ".";
    } else if (Clock::now() >= end) {
      problem = "The service that was started did not serve within " +
                std::to_string(patience_.count()) + " seconds.";
    }
    std::this_thread::sleep_for(kPause);
  }
  return problem;
}

/// Whether a service serves that was started after `last`; `problem` tells when it is of another
/// build than the one that is wanted.
bool RunningService::Serves(const RunRecord& last, const std::string& build, std::string& problem) {
  const auto record = ReadRunRecord(paths_.runRecord);
  if (!record || !record->serving) return false;
  // Somebody else who starts services may have been faster: then the child has ended, and the other
  // one counts. The record of the last service stays there until the new one writes its own.
  const bool isChild = record->pid == child_ && !ChildHasEnded();
  const bool isOther = ChildHasEnded() && record->pid != last.pid && record->pid > 1 &&
                       os::ProgramOf(record->pid) == record->program;
  if ((!isChild && !isOther) || !IsRunning()) return false;
  if (build.empty() || record->build == build) return true;
  problem = "The service that was started says that its build is " + record->build +
            " instead of " + build + ".";
  return false;
}

}  // namespace updater
