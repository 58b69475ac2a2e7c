// Starting programs: their words, their environment, and one that runs beside the service.
#pragma once

#include <sys/types.h>

#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

/// Starts a program, one at a time, and takes its exit code when it ends, so that it leaves no
/// zombie: a thread looks after it a few times a second, for as long as it runs and this object
/// lives. The destructor ends that thread, never the program, which belongs to the system from then
/// on. (No handler of SIGCHLD: signals belong to the host.) Any thread may call.
class ChildProcess {
 public:
  ChildProcess() = default;
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  /// Starts `words[0]`, searched for as a shell does when it has no "/", with these arguments and
  /// without environment. It gets a session of its own, so that an interrupt typed for the service
  /// does not end it, and the usual signals. Returns 0, or the errno that tells why it does
  /// not run: EBUSY while an earlier one does.
  int Start(std::vector<std::string> words);
  /// Whether the program that was started last still runs.
  bool Running();

 private:
  bool Ended();
  void Watch(const std::stop_token& stop);

  std::mutex startMutex_;  // one Start at a time, so that watcher_ is one thread's to change
  std::mutex mutex_;       // guards child_
  std::condition_variable_any stopped_;
  pid_t child_ = 0;  // 0: none
  std::jthread watcher_;
};

/// The texts as a list that ends with a null pointer. It refers to them.
std::vector<char*> PointersTo(std::vector<std::string>& texts);
/// The environment of this process, each variable as "NAME=value". Not while another thread changes
/// it.
std::vector<std::string> OwnEnvironment();
