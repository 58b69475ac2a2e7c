// Starting programs: one function with options, and a program that runs beside the service.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <condition_variable>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "os/mutex.h"

namespace os {

/// How a program is started. Without options it is a plain child: it has this process's
/// environment, folder, input and output, session and signals. Descriptors that are close-on-exec
/// never go along.
struct ProcessOptions {
  /// The environment, each variable as "NAME=value"; nothing for that of this process.
  std::optional<std::vector<std::string>> environment;
  /// Its current folder, "" for that of this process.
  std::string folder;
  /// The file to which its output is added; its input is then empty. "" for input and output of
  /// this process. Nothing is an error here: output that cannot be kept is dropped.
  std::string output;
  /// A session of its own, no signal blocked and none ignored: it may outlive this process, and an
  /// interrupt typed for this process does not reach it.
  bool detached = false;
};

/// Starts `words[0]`, searched for in the folders of PATH when it has no "/", with all words as its
/// arguments. Returns 0 and the process, for which the caller must wait, or the errno that tells
/// why it does not run. Any thread may call.
int StartProgram(std::vector<std::string> words, const ProcessOptions& options, pid_t* process);

/// Makes this process one that outlives its starter: a session of its own if possible, no signal
/// blocked, those of terminals and closed pipes ignored, no descriptor of the starter, empty input,
/// and output as by ProcessOptions::output. While it has one thread.
void DetachThisProcess(const std::string& output);

}  // namespace os

/// Starts a program, one at a time, and takes its exit code when it ends, so that it leaves no
/// zombie: a thread looks after it a few times a second, for as long as it runs and this object
/// lives. The destructor ends that thread, never the program. (No handler of SIGCHLD: signals
/// belong to the host.) Any thread may call.
class ChildProcess {
 public:
  ChildProcess() = default;
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  /// Starts a program as os::StartProgram does, detached and without environment. Returns 0, or the
  /// errno that tells why it does not run: EBUSY while an earlier one does.
  int Start(std::vector<std::string> words);
  /// Whether the program that was started last has ended, or does within that time. True when none
  /// was started.
  bool EndsWithin(std::chrono::milliseconds limit);

 private:
  bool Ended() QV_REQUIRES(mutex_);
  void Watch(const std::stop_token& stop);

  Mutex startMutex_;  // held for one Start at a time
  Mutex mutex_;
  std::condition_variable_any stopped_;
  pid_t child_ QV_GUARDED_BY(mutex_) = 0;  // 0: none
  std::jthread watcher_ QV_GUARDED_BY(startMutex_);
};

/// The texts as a list that ends with a null pointer. It refers to them.
std::vector<char*> PointersTo(std::vector<std::string>& texts);
/// The environment of this process, each variable as "NAME=value". Not while another thread changes
/// it.
std::vector<std::string> OwnEnvironment();
