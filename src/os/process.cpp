#include "os/process.h"

#include <spawn.h>
#include <sys/wait.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <system_error>

#include "os/system.h"

namespace {

constexpr std::chrono::milliseconds kLookEvery{200};

/// A session of its own, no blocked signal, and SIGPIPE not ignored as it is in the service.
class OwnSession {
 public:
  OwnSession() {
    ::posix_spawnattr_init(&attributes_);
    sigset_t signals;
    sigemptyset(&signals);
    ::posix_spawnattr_setsigmask(&attributes_, &signals);
    sigaddset(&signals, SIGPIPE);
    ::posix_spawnattr_setsigdefault(&attributes_, &signals);
    ::posix_spawnattr_setflags(&attributes_,
                               POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSID);
  }
  ~OwnSession() { ::posix_spawnattr_destroy(&attributes_); }
  OwnSession(const OwnSession&) = delete;
  OwnSession& operator=(const OwnSession&) = delete;
  const posix_spawnattr_t* get() const { return &attributes_; }

 private:
  posix_spawnattr_t attributes_;
};

}  // namespace

int ChildProcess::Start(std::vector<std::string> words) {
  const std::vector<char*> arguments = PointersTo(words);
  const std::lock_guard oneAtATime(startMutex_);
  {
    const std::lock_guard lock(mutex_);
    if (!Ended()) return EBUSY;
    const OwnSession session;
    pid_t started = 0;
    const int error =
        ::posix_spawnp(&started, arguments[0], nullptr, session.get(), arguments.data(),
                       /*envp=*/nullptr);
    if (error != 0) return error;
    child_ = started;
  }
  try {
    watcher_ = std::jthread([this](const std::stop_token& stop) { Watch(stop); });
  } catch (const std::system_error&) {
    // Without a thread it is Running, or the next Start, that finds it ended.
  }
  return 0;
}

bool ChildProcess::Running() {
  const std::lock_guard lock(mutex_);
  return !Ended();
}

/// Called under the lock: whoever is first to see that the program has ended takes its exit code.
bool ChildProcess::Ended() {
  if (child_ == 0) return true;
  pid_t found = 0;
  while ((found = ::waitpid(child_, nullptr, WNOHANG)) < 0 && errno == EINTR) {
  }
  if (found != 0) child_ = 0;
  return child_ == 0;
}

void ChildProcess::Watch(const std::stop_token& stop) {
  std::unique_lock lock(mutex_);
  while (!Ended() && !stop.stop_requested()) {
    stopped_.wait_for(lock, stop, kLookEvery, [] { return false; });
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
