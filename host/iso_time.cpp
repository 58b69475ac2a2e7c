#include "host/iso_time.h"

#include <ctime>

namespace host {

std::string IsoTime(std::chrono::system_clock::time_point time) {
  const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
  std::tm parts{};
  char text[32];
  ::gmtime_r(&seconds, &parts);
  return std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &parts) > 0 ? text : "";
}

}  // namespace host
