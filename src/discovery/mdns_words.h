// Words that log lines share.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "discovery/mdns_protocol.h"

namespace mdns_wrapper {

/// How much of a text a "%.*s" shows.
inline int Width(std::string_view text) { return static_cast<int>(text.size()); }

/// What makes "socket" of several "sockets".
inline const char* Plural(std::size_t count) { return count == 1 ? "" : "s"; }

/// "PTR", "SRV", "A", "AAAA", "TXT" or "ANY"; null for types of no interest here.
inline const char* TypeWord(std::uint16_t type) {
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
