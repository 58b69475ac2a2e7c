#include "environment/logging.h"

#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <exception>
#include <new>
#include <string_view>

#include "environment/configuration.h"
#include "environment/log_writer.h"
#include "environment/paths.h"
#include "os/text.h"
#include "platform/diagnostics.h"
#include "platform/profile.h"
#include "platform/text.h"
#include "platform/thread.h"

namespace {

constinit std::atomic<bool> g_fullLogging{false};
constinit std::atomic<LogReceiver> g_receiver{nullptr};

// The log lives in storage that is never destroyed, so that whatever goes away at unload may still
// call it. Its closer waits for the running write, writes what is pending, and from then on every
// line is dropped before it looks at anything else.
CAsyncLogging& TheLog() {
  alignas(CAsyncLogging) static unsigned char storage[sizeof(CAsyncLogging)];
  static CAsyncLogging* const log = new (storage) CAsyncLogging;
  return *log;
}

constinit std::atomic<bool> g_closed{false};

struct LogCloser {
  LogCloser() { ConfigurationLock(); }  // made before, and so destroyed after, this object
  ~LogCloser() {
    g_closed = true;
    TheLog().Close();
  }
} g_logCloser;

// The error code of the moment of the call, given back to the caller at the end: a log line reads
// files and must not change what its caller is about to look at.
class ErrnoKeeper {
 public:
  ~ErrnoKeeper() { errno = saved_; }
  int saved() const { return saved_; }

 private:
  const int saved_ = errno;
};

// One number of the configuration file, section "QV". The file is read on every call.
int ReadNumber(const char* key, const char* def, int valueIfEmpty) {
  char text[64];
  DWORD length;
  {
    const ReadHold hold(ConfigurationLock());
    length = GetPrivateProfileStringA("QV", key, def, text, sizeof text, GetInitFileCString());
  }
  return length == 0 ? valueIfEmpty : TextToInt(text);
}

bool IsKept(int level) noexcept {
  if ((level & LOG_LEVEL_ERROR) != 0 && HasLogReceiver()) return true;
  try {
    return !g_closed && (GetLogLevel() & level) != 0;
  } catch (const std::exception&) {  // out of memory
    return false;
  }
}

LogLineHead HeadFor(int level) {
  static const int process = static_cast<int>(GetCurrentProcessId());
  return {process, static_cast<int>(GetCurrentThreadId()), GetLogTypeStr(level),
          static_cast<int>(GetProcessMode()), ReadNumber("WorkMode", "0", 0)};
}

int Give(LogReceiver receiver, int level, std::string_view text, std::string_view data, int error) {
  std::string line(text);
  if ((level & LOG_LEVEL_ERROR) != 0 && error != 0) {
    line += " GetLastError = " + std::to_string(error);
  }
  receiver(level, line.append(data));
  return 1;
}

// Builds an entry and queues it; the filter has been asked already.
int Queue(int level, std::string_view text, std::string_view data, bool hasData, int error) {
  try {
    if (const LogReceiver receiver = g_receiver) return Give(receiver, level, text, data, error);
    char prefixBytes[LOG_PREFIX_BYTES];
    const std::string_view prefix = FormatLogPrefix(prefixBytes, HeadFor(level));
    char code[48] = "";
    if ((level & LOG_LEVEL_ERROR) != 0) {
      std::snprintf(code, sizeof code, " GetLastError = %d", error);
    }
    const std::string_view end = hasData ? "\n" : "";
    return TheLog().Log({prefix, text, code, "\n", data, end}, GetLogFileCString()) ? 1 : 0;
  } catch (const std::exception&) {
    return 0;
  }
}

__attribute__((format(printf, 2, 0))) int FormatAndQueue(int level, const char* format,
                                                         std::va_list arguments, int error) {
  if (format == nullptr) return 0;
  char shortText[1024];
  std::va_list again;
  va_copy(again, arguments);
  const int length = std::vsnprintf(shortText, sizeof shortText, format, arguments);
  int result = 0;
  if (length >= 0 && static_cast<std::size_t>(length) < sizeof shortText) {
    result = Queue(level, {shortText, static_cast<std::size_t>(length)}, {}, false, error);
  } else if (length > 0) {
    try {
      std::string text(static_cast<std::size_t>(length), '\0');
      std::vsnprintf(text.data(), text.size() + 1, format, again);
      result = Queue(level, text, {}, false, error);
    } catch (const std::exception&) {
      result = 0;
    }
  }
  va_end(again);
  return result;
}

}  // namespace

int LogErr(const char* format, ...) {
  const ErrnoKeeper error;
  if (!IsKept(LOG_LEVEL_ERROR)) return 0;
  std::va_list arguments;
  va_start(arguments, format);
  const int result = FormatAndQueue(LOG_LEVEL_ERROR, format, arguments, error.saved());
  va_end(arguments);
  return result;
}

int LogInfo(const char* format, ...) {
  const ErrnoKeeper error;
  if (!IsKept(LOG_LEVEL_INFO)) return 0;
  std::va_list arguments;
  va_start(arguments, format);
  const int result = FormatAndQueue(LOG_LEVEL_INFO, format, arguments, error.saved());
  va_end(arguments);
  return result;
}

int LogDebug(const char* format, ...) {
  const ErrnoKeeper error;
  if (!IsKept(LOG_LEVEL_DEBUG)) return 0;
  std::va_list arguments;
  va_start(arguments, format);
  const int result = FormatAndQueue(LOG_LEVEL_DEBUG, format, arguments, error.saved());
  va_end(arguments);
  return result;
}

int LogDebug(const char* text, const unsigned char* data, unsigned int length) {
  return WriteLog(LOG_LEVEL_DEBUG, text, data, length);
}

int WriteLog(int level, const char* format, std::va_list arguments) {
  const ErrnoKeeper error;
  return IsKept(level) ? FormatAndQueue(level, format, arguments, error.saved()) : 0;
}

int WriteLog(int level, const char* text, const unsigned char* data, unsigned int length) {
  const ErrnoKeeper error;
  if (text == nullptr || !IsKept(level)) return 0;
  const std::string_view bytes(reinterpret_cast<const char*>(data), data == nullptr ? 0 : length);
  return Queue(level, text, bytes, data != nullptr, error.saved());
}

std::string ForLog(std::string_view foreign) noexcept {
  constexpr std::size_t kMostBytes = 2048;
  const auto continues = [](char c) { return (static_cast<unsigned char>(c) & 0xC0) == 0x80; };
  std::size_t length = foreign.size();
  if (length > kMostBytes) {
    length = kMostBytes;
    while (length > kMostBytes - 4 && continues(foreign[length])) --length;
  }
  try {
    std::string text(foreign.substr(0, length));
    for (std::size_t i = 0; i < length; ++i) {
      const bool isC1 = text[i] == '\xC2' && i + 1 < length &&
                        static_cast<unsigned char>(text[i + 1]) - 0x80u < 0x20u;
      if (isC1) text[i + 1] = '?';
      if (isC1 || ascii::IsControl(text[i])) text[i] = '?';
    }
    if (length < foreign.size()) text += "... (" + std::to_string(foreign.size()) + " bytes)";
    return text;
  } catch (const std::exception&) {
    return {};
  }
}

const char* GetLogTypeStr(int level) {
  constexpr struct {
    int bit;
    const char* name;
  } kNames[] = {{LOG_LEVEL_NULL, "NULL"},
                {LOG_LEVEL_ERROR, "Error"},
                {LOG_LEVEL_INFO, "Info"},
                {LOG_LEVEL_DEBUG, "Debug"},
                {LOG_LEVEL_VERBOSE, "Verbose"}};
  for (const auto& [bit, name] : kNames) {
    if ((level & bit) != 0) return name;
  }
  return "";
}

int GetLogLevel() { return GetFullLogging() ? LOG_LEVEL_FULL : GetLogLevelInLocal(); }

int GetLogLevelInLocal() { return ReadNumber("LogLevel", "1", LOG_LEVEL_NULL); }

bool GetFullLogging() { return g_fullLogging.load(std::memory_order_relaxed); }

void SetFullLogging(bool full) { g_fullLogging.store(full, std::memory_order_relaxed); }

void SetLogReceiver(LogReceiver receiver) { g_receiver = receiver; }

bool HasLogReceiver() { return g_receiver.load(std::memory_order_relaxed) != nullptr; }

namespace {

__attribute__((format(printf, 1, 0))) void WritePlatformLine(const char* format,
                                                             std::va_list arguments) {
  WriteLog(LOG_LEVEL_DEBUG, format, arguments);
}

}  // namespace

void ConnectPlatformLog() {
  static constexpr LogSink kSink = {[] { return IsKept(LOG_LEVEL_DEBUG); }, &WritePlatformLine};
  SetLogSink(&kSink);
}

bool SetLogLevel(int level) {
  SetConfigurationToInitFile("LogLevel", level, DEFAULT_SECTION);
  SetFullLogging(level == LOG_LEVEL_FULL);
  return GetFullLogging();
}
