#include "os/process.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <system_error>

#include "os/file.h"
#include "os/system.h"

namespace os {

namespace {

constexpr mode_t kOutputMode = 0644;

/// The file if output can be added to it, else the system's null device: nothing may fail to start
/// because of its output, nor wait for somebody who reads it.
std::string UsableOutput(const std::string& path) {
  const Descriptor file(
      ::open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_NONBLOCK | O_CLOEXEC, kOutputMode));
  struct stat status {};
  const bool isUsable = file && ::fstat(file.get(), &status) == 0 && S_ISREG(status.st_mode);
  return isUsable ? path : "/dev/null";
}

/// The options as the system takes them.
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

  /// Returns 0 or an errno.
  int Set(const ProcessOptions& options) {
    int error = options.detached ? Detach() : 0;
    if (error == 0 && !options.folder.empty()) {
      error = AddStartFolder(&actions_, options.folder.c_str());
    }
    if (error == 0 && !options.output.empty()) error = SetOutput(UsableOutput(options.output));
    return error;
  }

  const posix_spawn_file_actions_t* actions() const { return &actions_; }
  const posix_spawnattr_t* attributes() const { return &attributes_; }

 private:
  int Detach() {
    sigset_t none, all;  // filled by what are macros on some systems
    sigemptyset(&none);
    sigfillset(&all);
    ::posix_spawnattr_setsigmask(&attributes_, &none);
    ::posix_spawnattr_setsigdefault(&attributes_, &all);
    return ::posix_spawnattr_setflags(
        &attributes_, POSIX_SPAWN_SETSID | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
  }

  int SetOutput(const std::string& path) {
    int error = ::posix_spawn_file_actions_addopen(&actions_, STDIN_FILENO, "/dev/null", O_RDONLY,
                                                   /*mode=*/0);
    if (error == 0) {
      error = ::posix_spawn_file_actions_addopen(&actions_, STDOUT_FILENO, path.c_str(),
                                                 O_WRONLY | O_APPEND, /*mode=*/0);
    }
    if (error == 0) {
      error = ::posix_spawn_file_actions_adddup2(&actions_, STDOUT_FILENO, STDERR_FILENO);
    }
    return error;
  }

  posix_spawn_file_actions_t actions_{};
  posix_spawnattr_t attributes_{};
};

}  // namespace

int StartProgram(std::vector<std::string> words, const ProcessOptions& options, pid_t* process) {
  SpawnPlan plan;
  if (const int error = plan.Set(options)) return error;
  std::vector<std::string> variables = options.environment.value_or(std::vector<std::string>());
  const std::vector<char*> environment = PointersTo(variables);
  return ::posix_spawnp(process, words.at(0).c_str(), plan.actions(), plan.attributes(),
                        PointersTo(words).data(),
                        options.environment ? environment.data() : Environment());
}

void DetachThisProcess(const std::string& output) {
  ::setsid();  // refused to the leader of a process group, which a shell makes of what it starts
  sigset_t none;
  sigemptyset(&none);
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

}  // namespace os

namespace {

constexpr std::chrono::milliseconds kLookEvery{200};
constexpr std::chrono::milliseconds kLookWhileWaiting{10};

}  // namespace

int ChildProcess::Start(std::vector<std::string> words) {
  const MutexLock oneAtATime(startMutex_);
  {
    const MutexLock lock(mutex_);
    if (!Ended()) return EBUSY;
    os::ProcessOptions options;
    options.environment.emplace();
    options.detached = true;
    pid_t started = 0;
    if (const int error = os::StartProgram(std::move(words), options, &started)) return error;
    child_ = started;
  }
  try {
    watcher_ = std::jthread([this](const std::stop_token& stop) { Watch(stop); });
  } catch (const std::system_error&) {
    // Without a thread it is EndsWithin, or the next Start, that takes the exit code.
  }
  return 0;
}

bool ChildProcess::EndsWithin(std::chrono::milliseconds limit) {
  const auto end = std::chrono::steady_clock::now() + limit;
  const MutexLock lock(mutex_);
  while (!Ended()) {
    if (std::chrono::steady_clock::now() >= end) return false;
    stopped_.wait_for(mutex_, kLookWhileWaiting);
  }
  return true;
}

/// Whoever is first to see that the program has ended takes its exit code.
bool ChildProcess::Ended() {
  if (child_ == 0) return true;
  pid_t found = 0;
  while ((found = ::waitpid(child_, nullptr, WNOHANG)) < 0 && errno == EINTR) {
  }
  if (found != 0) child_ = 0;
  return child_ == 0;
}

void ChildProcess::Watch(const std::stop_token& stop) {
  const MutexLock lock(mutex_);
  while (!Ended() && !stop.stop_requested()) {
    stopped_.wait_for(mutex_, stop, kLookEvery, [] { return false; });
  }
}

std::vector<char*> PointersTo(std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  pointers.reserve(texts.size() + 1);
  for (std::string& text : texts) pointers.push_back(text.data());
  pointers.push_back(nullptr);
  return pointers;
}

std::vector<std::string> OwnEnvironment() {
  std::vector<std::string> texts;
  for (char** entry = os::Environment(); entry != nullptr && *entry != nullptr; ++entry) {
    texts.emplace_back(*entry);
  }
  return texts;
}
