// How lines reach the log file: their head, the text in memory that collects them, and the one
// thread that writes it.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <initializer_list>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>

/// Appends a batch to a file, which is opened and closed for it. A file that cannot be opened loses
/// the batch. One that would grow beyond "LogMaxMiB" is named FILE.1 first, and a new one is begun;
/// three old ones are kept.
void WriteLogAsync(const std::string& filePath, std::string_view text);

/// Collects lines and writes them with one background thread. Any thread may call.
class CAsyncLogging {
 public:
  ~CAsyncLogging() { Close(); }

  /// Appends the entry, given in pieces, to the pending text, and wakes the writer if it rests.
  /// What is pending goes to the file that was named last. Returns false when the entry was
  /// dropped: after Close, or when the disk has not kept up for so long that too much is pending.
  bool Log(std::initializer_list<std::string_view> entry, std::string_view filePath);
  /// Waits until everything that is pending is in the file. What comes later is dropped.
  void Close();

 private:
  void Run();
  bool EnsureThread();

  std::mutex mutex_;  // guards all but the thread
  std::condition_variable wake_;
  std::string pending_;
  std::string file_;
  bool awake_ = false;  // the writer looks again without being woken
  bool closed_ = false;
  std::thread thread_;  // started by the first line, under the lock; ended by Close
};

struct LogLineHead {
  int process;
  int thread;
  std::string_view level;
  int processMode;
  int serviceMode;
};

/// Room that every head fits.
inline constexpr std::size_t LOG_PREFIX_BYTES = 512;

/// Writes "[Process:%6d Thread:%6d] [%02d/%02d/%04d %02d:%02d:%02d.%03d] [%s-%d-%d]: " with the
/// local time of the call, month first. It is written out by hand because it was most of what a
/// line cost its caller. Returns the text, which lies in `out`.
std::string_view FormatLogPrefix(char (&out)[LOG_PREFIX_BYTES], const LogLineHead& head);
