#include "platform/diagnostics.h"

#include <atomic>
#include <cerrno>
#include <cstdio>

namespace {

std::atomic<const LogSink*> logSink{nullptr};
std::atomic<bool> scanningProcess{false};

}  // namespace

void SetLogSink(const LogSink* sink) { logSink = sink; }

void Log(int, const char* format, ...) {
  const LogSink* sink = logSink;
  if (sink == nullptr || !sink->debugEnabled()) return;
  std::va_list arguments;
  va_start(arguments, format);
  sink->write(format, arguments);
  va_end(arguments);
}

void LogFailure(const char* format, ...) {
  const LogSink* sink = logSink;
  if (sink == nullptr || sink->writeFailure == nullptr) return;
  std::va_list arguments;
  va_start(arguments, format);
  sink->writeFailure(format, arguments);
  va_end(arguments);
}

bool GetIfScanningProcess() { return scanningProcess; }

void SetIfScanningProcess(bool flag) { scanningProcess = flag; }

void PrintFailure(const char* format, ...) {
  const int saved = errno;
  std::va_list arguments;
  va_start(arguments, format);
  std::vprintf(format, arguments);
  va_end(arguments);
  errno = saved;
}
