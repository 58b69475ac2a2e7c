// The platform layer's way to the service's log, and the flag of the scanning process.
#pragma once

#include <cstdarg>

/// Receives the lines of Log and LogFailure: `debugEnabled` tells whether Debug lines are kept now,
/// `write` takes one formatted by printf rules, and `writeFailure` an Error line that is always to
/// be kept. All may be called from any thread; the last one may be missing.
struct LogSink {
  bool (*debugEnabled)();
  void (*write)(const char* format, std::va_list arguments);
  void (*writeFailure)(const char* format, std::va_list arguments) = nullptr;
};

/// Installs the sink, once, before other threads run; null takes it away. The layer below cannot
/// know the logger, so the logger comes to it.
void SetLogSink(const LogSink* sink);

/// Writes a Debug line, whatever `level` says, when Debug lines are kept.
void Log(int level, const char* format, ...) __attribute__((format(printf, 2, 3)));
/// Writes an Error line, whatever lines are kept: of what a user loses, as a setting that could not
/// be stored.
void LogFailure(const char* format, ...) __attribute__((format(printf, 1, 2)));

/// Whether this is the scanning process, which logs to the second log file; false at load.
bool GetIfScanningProcess();
void SetIfScanningProcess(bool flag);

/// Prints one of the layer's own failure lines on standard output. Keeps errno, which the line
/// tells about and which the caller may ask for next.
void PrintFailure(const char* format, ...) __attribute__((format(printf, 1, 2)));
