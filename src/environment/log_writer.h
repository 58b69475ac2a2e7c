// How lines reach the log file: their head, the text in memory that collects them, and the one
// thread that writes it.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <initializer_list>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>

#include "util/reader_writer_lock.h"

/// Appends a batch to a file, which is opened and closed for it. A file that cannot be opened loses
/// the batch.
void WriteLogAsync(const std::string& filePath, std::string_view text);

/// One thread that writes one batch after another; it is started by the first.
class LogWriterThread {
 public:
  ~LogWriterThread() { Join(); }

  bool Busy() const { return busy_.load(std::memory_order_acquire); }
  /// Takes the text, leaving `text` empty with the memory of an earlier batch. Only while not busy.
  /// Returns false, the text untouched, when there is no thread to be had.
  bool Start(std::string_view filePath, std::string& text);
  /// Waits for the running batch and ends the thread.
  void Join();

 private:
  void Run();

  std::thread thread_;
  std::mutex mutex_;
  std::condition_variable wake_;
  std::atomic<bool> busy_{false};
  bool stopping_ = false;
  std::string filePath_;
  std::string text_;
};

/// Collects lines and hands them to the background writer. Any thread may call.
class CAsyncLogging {
 public:
  /// Appends the entry, given in pieces, to the pending text, and starts a write of all that is
  /// pending for that file unless one is running. Returns false when the entry was dropped: after
  /// Close, or when the disk has not kept up for so long that too much is pending.
  bool Log(std::initializer_list<std::string_view> entry, std::string_view filePath);
  /// Waits for the running write, writes what is pending and drops everything that comes later.
  void Close();

 private:
  CReaderWriterLockNonReentrance lock_;
  std::string pending_;
  std::string lastFile_;
  bool closed_ = false;
  LogWriterThread writer_;
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
