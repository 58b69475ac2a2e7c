#include "updater/running_service.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <thread>

#include "platform/file_lock.h"
#include "platform/os.h"
#include "updater/health_client.h"
#include "updater/json_text.h"
#include "updater/launch.h"

namespace update {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds kPause(50);
constexpr std::chrono::seconds kAnswerTime(5);
/// After SIGKILL; the system may still have pages to write.
constexpr std::chrono::seconds kDyingTime(10);

}  // namespace

/// Locks the run file, which it makes when there has been no service yet. Returns 0; EWOULDBLOCK
/// when a service runs until `end`; another errno when that cannot be told.
int RunningService::Hold(Time end) { return hold_ ? 0 : OpenLocked(places_.run, end, &hold_); }

bool RunningService::IsRunning() {
  if (hold_) return false;
  const bool free = Hold(Clock::now()) == 0;
  hold_ = Descriptor();
  return !free;
}

std::string RunningService::Stop() {
  EndChild();
  pid_t asked = 0;
  const Time end = Clock::now() + patience_;
  while (const int error = Hold(Clock::now() + kPause)) {
    if (error != EWOULDBLOCK)
      return "No lock on " + places_.run + ": " + std::strerror(error) + ".";
    // A service that starts at this moment tells its number only after it has locked the file.
    const auto record = ReadRunRecord(places_.run);
    // A number may be another process's by now: it must still run the program that was recorded.
    const bool known = record && record->pid > 1 && !record->program.empty() &&
                       os::ProgramOf(record->pid) == record->program;
    if (known && record->pid != asked) {
      asked = record->pid;
      ::kill(asked, SIGTERM);
    }
    if (Clock::now() < end) continue;
    // It has been asked to end and may still do so at any time, so it must not stay half ended.
    if (known) ::kill(record->pid, SIGKILL);
    if (Hold(Clock::now() + kDyingTime) == 0) break;
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

std::string RunningService::Launch() {
  // What the last service left: its process is gone, its way of being started is not.
  const RunRecord last = ReadRunRecord(places_.run).value_or(RunRecord{});
  LaunchOrder order;
  order.program = places_.work + "marvique-service";
  // It may have got another name.
  const std::size_t slash = last.program.rfind('/');
  if (slash != last.program.npos && last.program.substr(0, slash + 1) == places_.work &&
      ::access(last.program.c_str(), X_OK) == 0) {
    order.program = last.program;
  }
  order.folder = ::access(last.folder.c_str(), X_OK) == 0 ? last.folder : places_.work;
  order.arguments = last.arguments;
  order.environment = last.environment;
  order.output = places_.output;
  const int error = LaunchDetached(order, child_);
  if (error != 0) child_ = 0;
  return error == 0 ? "" : order.program + " cannot be started: " + std::strerror(error) + ".";
}

std::string RunningService::Start(const std::string& build) {
  EndChild();
  hold_ = Descriptor();
  std::string problem = Launch();
  const Time end = Clock::now() + patience_;
  while (problem.empty() && !Answers(build, problem)) {
    // Somebody else who starts services may have been faster: then that one is asked.
    if (ChildHasEnded() && !IsRunning()) {
      problem = "The service that was started ended " + end_ + ". Its last words are in " +
                places_.output + ".";
    } else if (Clock::now() >= end) {
      problem = "The service that was started did not answer at /health within " +
                std::to_string(patience_.count()) + " seconds.";
    }
    std::this_thread::sleep_for(kPause);
  }
  return problem;
}

bool RunningService::Answers(const std::string& build, std::string& problem) const {
  const auto record = ReadRunRecord(places_.run);
  if (!record || record->pid < 1 || record->port + record->sslPort == 0) return false;
  const bool secure = record->port == 0;
  const auto answer = FetchHealth(secure ? record->sslPort : record->port, secure, kAnswerTime);
  const auto health = answer ? ParseObject(*answer) : std::nullopt;
  if (!health || NumberMember(*health, "pid") != record->pid) return false;
  const std::string told = TextMember(*health, "build");
  if (build.empty() || told == build) return true;
  problem =
      "The service that was started says that its build is " + told + " instead of " + build + ".";
  return false;
}

}  // namespace update
