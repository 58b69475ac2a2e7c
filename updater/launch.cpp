#include "updater/launch.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <string_view>

#include "os/file.h"
#include "os/process.h"
#include "os/system.h"

namespace updater {

namespace {

constexpr mode_t kOutputMode = 0644;

/// A file to which output can be added, or nothing's: a service must not fail to start for it, nor
/// wait for somebody who reads it.
std::string UsableOutput(const std::string& path) {
  const Descriptor file(
      ::open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_NONBLOCK | O_CLOEXEC, kOutputMode));
  struct stat status {};
  const bool usable = file && ::fstat(file.get(), &status) == 0 && S_ISREG(status.st_mode);
  return usable ? path : "/dev/null";
}

/// The attributes and file actions of one start.
class SpawnPlan {
 public:
  SpawnPlan() {
    ::posix_spawn_file_actions_init(&actions_);
    ::posix_spawnattr_init(&attributes_);
  }
  ~SpawnPlan() {
    ::posix_spawn_file_actions_destroy(&actions_);
    ::posix_spawnattr_destroy(&attributes_);
  }
  SpawnPlan(const SpawnPlan&) = delete;
  SpawnPlan& operator=(const SpawnPlan&) = delete;

  int Set(const LaunchOrder& order) {
    sigset_t none, all;
    ::sigemptyset(&none);
    ::sigfillset(&all);
    ::posix_spawnattr_setsigmask(&attributes_, &none);
    ::posix_spawnattr_setsigdefault(&attributes_, &all);
    int error = ::posix_spawnattr_setflags(
        &attributes_, POSIX_SPAWN_SETSID | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    if (error == 0) error = ::posix_spawn_file_actions_addchdir_np(&actions_, order.folder.c_str());
    if (error == 0) error = Open(STDIN_FILENO, "/dev/null", O_RDONLY);
    if (error == 0) {
      error = Open(STDOUT_FILENO, UsableOutput(order.output).c_str(), O_WRONLY | O_APPEND);
    }
    if (error == 0) {
      error = ::posix_spawn_file_actions_adddup2(&actions_, STDOUT_FILENO, STDERR_FILENO);
    }
    return error;
  }

  const posix_spawn_file_actions_t* actions() const { return &actions_; }
  const posix_spawnattr_t* attributes() const { return &attributes_; }

 private:
  int Open(int descriptor, const char* path, int flags) {
    return ::posix_spawn_file_actions_addopen(&actions_, descriptor, path, flags, kOutputMode);
  }

  posix_spawn_file_actions_t actions_{};
  posix_spawnattr_t attributes_{};
};

/// An updater that the service started has no environment at all.
std::vector<std::string> PlainEnvironment() {
  std::vector<std::string> result = OwnEnvironment();
  const auto add = [&](std::string_view name, const std::string& value) {
    const std::string start = std::string(name) + "=";
    const bool given = std::any_of(result.begin(), result.end(),
                                   [&](const std::string& e) { return e.starts_with(start); });
    if (!given && !value.empty()) result.push_back(start + value);
  };
  add("PATH", "/usr/local/bin:/usr/bin:/bin");
  add("HOME", os::HomeFolder());
  add("USER", os::UserName());
  add("LOGNAME", os::UserName());
  return result;
}

}  // namespace

int LaunchDetached(const LaunchOrder& order, pid_t& child) {
  SpawnPlan plan;
  if (const int error = plan.Set(order)) return error;
  std::vector<std::string> arguments = {order.program};
  arguments.insert(arguments.end(), order.arguments.begin(), order.arguments.end());
  std::vector<std::string> environment =
      order.environment.empty() ? PlainEnvironment() : order.environment;
  return ::posix_spawn(&child, order.program.c_str(), plan.actions(), plan.attributes(),
                       PointersTo(arguments).data(), PointersTo(environment).data());
}

void DetachSelf(const std::string& output) {
  ::setsid();  // refused to a leader: the service has made it one already, a shell one of a group
  sigset_t none;
  ::sigemptyset(&none);
  ::sigprocmask(SIG_SETMASK, &none, nullptr);
  for (const int signal : {SIGCHLD, SIGTERM}) std::signal(signal, SIG_DFL);
  for (const int signal : {SIGHUP, SIGINT, SIGPIPE}) std::signal(signal, SIG_IGN);
  // The starter's sockets must not stay open in here: a port would stay taken.
  constexpr long kMostDescriptors = 65536;
  const long limit = std::clamp(::sysconf(_SC_OPEN_MAX), 256L, kMostDescriptors);
  for (int descriptor = 3; descriptor < limit; ++descriptor) ::close(descriptor);
  const int nothing = ::open("/dev/null", O_RDWR);
  int file = ::open(UsableOutput(output).c_str(), O_WRONLY | O_APPEND);
  if (file < 0) file = nothing;
  ::dup2(nothing, STDIN_FILENO);
  ::dup2(file, STDOUT_FILENO);
  ::dup2(file, STDERR_FILENO);
  for (const int descriptor : {nothing, file}) {
    if (descriptor > STDERR_FILENO) ::close(descriptor);
  }
}

}  // namespace updater
