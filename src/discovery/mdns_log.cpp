#include "discovery/mdns_log.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>

#include "discovery/wire/protocol.h"
#include "environment/logging.h"
#include "os/text.h"

namespace mdns_wrapper {

void mdns_log(const char* format, ...) {
  char line[2560];  // two names, the sender and what stands around them
  std::va_list arguments;
  va_start(arguments, format);
  const int length = std::vsnprintf(line, sizeof line, format, arguments);
  va_end(arguments);
  if (length <= 0) return;
  // The line feed that ends the format is ours.
  char* const end = line + std::min<std::size_t>(length, sizeof line - 1) - 1;
  std::replace_if(line, end, ascii::IsControl, '?');
  LogDebug("%s", line);
}

void NeighbourLog::look(Clock::time_point now) {
  if (now - looked_ < std::chrono::seconds(1)) return;
  looked_ = now;
  tellLeftOut();
  wanted_ = (GetLogLevel() & LOG_LEVEL_DEBUG) != 0;
  written_ = leftOut_ = 0;
}

void NeighbourLog::tellLeftOut() {
  if (leftOut_ > 0) mdns_log("Left out %u lines about packets of other machines\n", leftOut_);
}

bool NeighbourLog::mayWrite() {
  if (!wanted_) return false;
  if (written_ == kMostLinesASecond) {
    ++leftOut_;
    return false;
  }
  ++written_;
  return true;
}

const char* TypeWord(std::uint16_t type) {
  switch (type) {
    case MDNS_TYPE_PTR:
      return "PTR";
    case MDNS_TYPE_SRV:
      return "SRV";
    case MDNS_TYPE_A:
      return "A";
    case MDNS_TYPE_AAAA:
      return "AAAA";
    case MDNS_TYPE_TXT:
      return "TXT";
    case MDNS_TYPE_ANY:
      return "ANY";
  }
  return nullptr;
}

}  // namespace mdns_wrapper
