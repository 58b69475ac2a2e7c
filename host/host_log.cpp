#include "host/host_log.h"

#include <cstdio>
#include <ctime>

#include "environment/logging.h"

namespace host {

namespace {

using std::chrono::system_clock;

/// In one piece, so that lines of several threads do not mix.
void WriteLine(const char* level, std::string_view text) {
  const auto now = system_clock::now();
  const auto milliseconds = now.time_since_epoch() / std::chrono::milliseconds(1) % 1000;
  char fraction[8];
  std::snprintf(fraction, sizeof fraction, ".%03d", static_cast<int>(milliseconds));
  std::string line = IsoTime(now);
  line.insert(line.size() - 1, fraction);
  line.append(" ").append(level).append(": ");
  // A text from elsewhere cannot pretend to be a line of its own, nor speak to a terminal.
  for (const char c : text) line += static_cast<unsigned char>(c) < 0x20 || c == 0x7F ? ' ' : c;
  line += '\n';
  std::fwrite(line.data(), 1, line.size(), stderr);
}

}  // namespace

std::string IsoTime(system_clock::time_point time) {
  const std::time_t seconds = system_clock::to_time_t(time);
  std::tm parts{};
  char text[32];
  ::gmtime_r(&seconds, &parts);
  return std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &parts) > 0 ? text : "";
}

void SendLogToStandardError() {
  SetLogReceiver([](int level, std::string_view text) {
    const bool isError = (level & LOG_LEVEL_ERROR) != 0;
    WriteLine(isError ? "error" : (level & LOG_LEVEL_INFO) != 0 ? "info" : "debug", text);
  });
}

void ReportError(std::string_view sentence) { WriteLine("error", sentence); }

void ReportWarning(std::string_view sentence) { WriteLine("warning", sentence); }

}  // namespace host
