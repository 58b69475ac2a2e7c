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
#include "platform/profile_view.h"
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
  ~LogCloser() {
    g_closed = true;
    TheLog().Close();
  }
} g_logCloser;

// One number of the section "QV": `other` when it is missing or empty.
int Number(const ProfileView& settings, const char* key, int other) {
  char digits[64] = "";
  const std::string_view value = settings.Find(DEFAULT_SECTION, key, "");
  value.copy(digits, sizeof digits - 2);
  return value.empty() ? other : TextToInt(digits);
}

int Filter(const ProfileView& settings) { return Number(settings, "LogLevel", LOG_LEVEL_NULL); }

enum class Kept { IfWanted, Always };

// One call of a logging function: whether its line is kept, and what the line tells of the moment
// of the call. One look at the configuration file tells the filter and the work mode. At the end
// errno is the caller's again.
class LogCall {
 public:
  explicit LogCall(int level, Kept kept = Kept::IfWanted) : error_(errno), level_(level) {
    const bool isFull = GetFullLogging();
    const bool always = kept == Kept::Always;
    if (IsReceivedAnyway()) {
      isKept_ = true;
    } else if (!g_closed && (always || !isFull || (LOG_LEVEL_FULL & level) != 0)) {
      const ProfileView settings(GetInitFileCString());
      isKept_ = always || isFull || (Filter(settings) & level) != 0;
      if (isKept_) serviceMode_ = Number(settings, "WorkMode", 0);
    }
  }
  ~LogCall() { errno = error_; }
  LogCall(const LogCall&) = delete;
  LogCall& operator=(const LogCall&) = delete;

  bool IsKept() const { return isKept_; }
  bool IsError() const { return (level_ & LOG_LEVEL_ERROR) != 0; }
  int level() const { return level_; }
  int error() const { return error_; }
  LogLineHead Head() const {
    static const int process = static_cast<int>(GetCurrentProcessId());
    return {process, static_cast<int>(GetCurrentThreadId()), GetLogTypeStr(level_),
            static_cast<int>(GetProcessMode()), serviceMode_};
  }

 private:
  bool IsReceivedAnyway() const { return IsError() && HasLogReceiver(); }

  const int error_;
  const int level_;
  int serviceMode_ = 0;
  bool isKept_ = false;
};

int Give(LogReceiver receiver, const LogCall& call, std::string_view text, std::string_view data) {
  std::string line(text);
  if (call.IsError() && call.error() != 0) {
    line += " GetLastError = " + std::to_string(call.error());
  }
  receiver(call.level(), line.append(data));
  return 1;
}

// Builds the entry of a call that is kept and queues it.
int Queue(const LogCall& call, std::string_view text, std::string_view data, bool hasData) {
  try {
    if (const LogReceiver receiver = g_receiver) return Give(receiver, call, text, data);
    char prefixBytes[LOG_PREFIX_BYTES];
    const std::string_view prefix = FormatLogPrefix(prefixBytes, call.Head());
    char code[48] = "";
    if (call.IsError()) std::snprintf(code, sizeof code, " GetLastError = %d", call.error());
    const std::string_view end = hasData ? "\n" : "";
    return TheLog().Log({prefix, text, code, "\n", data, end}, GetLogFileCString()) ? 1 : 0;
  } catch (const std::exception&) {
    return 0;
  }
}

__attribute__((format(printf, 2, 0))) int FormatAndQueue(const LogCall& call, const char* format,
                                                         std::va_list arguments) {
  if (format == nullptr) return 0;
  char shortText[1024];
  std::va_list again;
  va_copy(again, arguments);
  const int length = std::vsnprintf(shortText, sizeof shortText, format, arguments);
  int result = 0;
  if (length >= 0 && static_cast<std::size_t>(length) < sizeof shortText) {
    result = Queue(call, {shortText, static_cast<std::size_t>(length)}, {}, false);
  } else if (length > 0) {
    try {
      std::string text(static_cast<std::size_t>(length), '\0');
      std::vsnprintf(text.data(), text.size() + 1, format, again);
      result = Queue(call, text, {}, false);
    } catch (const std::exception&) {
      result = 0;
    }
  }
  va_end(again);
  return result;
}

}  // namespace

int LogErr(const char* format, ...) {
  const LogCall call(LOG_LEVEL_ERROR);
  if (!call.IsKept()) return 0;
  std::va_list arguments;
  va_start(arguments, format);
  const int result = FormatAndQueue(call, format, arguments);
  va_end(arguments);
  return result;
}

int LogInfo(const char* format, ...) {
  const LogCall call(LOG_LEVEL_INFO);
  if (!call.IsKept()) return 0;
  std::va_list arguments;
  va_start(arguments, format);
  const int result = FormatAndQueue(call, format, arguments);
  va_end(arguments);
  return result;
}

int LogDebug(const char* format, ...) {
  const LogCall call(LOG_LEVEL_DEBUG);
  if (!call.IsKept()) return 0;
  std::va_list arguments;
  va_start(arguments, format);
  const int result = FormatAndQueue(call, format, arguments);
  va_end(arguments);
  return result;
}

int LogDebug(const char* text, const unsigned char* data, unsigned int length) {
  return WriteLog(LOG_LEVEL_DEBUG, text, data, length);
}

int WriteLog(int level, const char* format, std::va_list arguments) {
  const LogCall call(level);
  return call.IsKept() ? FormatAndQueue(call, format, arguments) : 0;
}

int WriteLog(int level, const char* text, const unsigned char* data, unsigned int length) {
  const LogCall call(level);
  if (text == nullptr || !call.IsKept()) return 0;
  const std::string_view bytes(reinterpret_cast<const char*>(data), data == nullptr ? 0 : length);
  return Queue(call, text, bytes, data != nullptr);
}

bool IsLogged(int level) { return LogCall(level).IsKept(); }

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

int GetLogLevelInLocal() { return Filter(ProfileView(GetInitFileCString())); }

bool GetFullLogging() { return g_fullLogging.load(std::memory_order_relaxed); }

void SetFullLogging(bool full) { g_fullLogging.store(full, std::memory_order_relaxed); }

void SetLogReceiver(LogReceiver receiver) { g_receiver = receiver; }

bool HasLogReceiver() { return g_receiver.load(std::memory_order_relaxed) != nullptr; }

namespace {

__attribute__((format(printf, 1, 0))) void WritePlatformLine(const char* format,
                                                             std::va_list arguments) {
  WriteLog(LOG_LEVEL_DEBUG, format, arguments);
}

__attribute__((format(printf, 1, 0))) void WritePlatformFailure(const char* format,
                                                                std::va_list arguments) {
  FormatAndQueue(LogCall(LOG_LEVEL_ERROR, Kept::Always), format, arguments);
}

}  // namespace

void ConnectPlatformLog() {
  static constexpr LogSink kSink = {[] { return IsLogged(LOG_LEVEL_DEBUG); }, &WritePlatformLine,
                                    &WritePlatformFailure};
  SetLogSink(&kSink);
}

bool SetLogLevel(int level) {
  SetConfigurationToInitFile("LogLevel", level, DEFAULT_SECTION);
  SetFullLogging(level == LOG_LEVEL_FULL);
  return GetFullLogging();
}
