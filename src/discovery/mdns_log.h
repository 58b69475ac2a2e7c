// The log of the discovery layer: Debug lines of the service's log, and the words they share.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace mdns_wrapper {

/// Logs one line. The names and texts in it come from the network: control characters in them
/// become "?", so that no packet forges a line; a line of more than 2,559 bytes is cut. Any thread
/// may call.
void mdns_log(const char* format, ...) __attribute__((format(printf, 1, 2)));

/// Whether lines are kept at the moment. Asking reads a file: ask once for many lines.
bool mdns_log_wanted();

/// How much of a text a "%.*s" shows.
inline int Width(std::string_view text) { return static_cast<int>(text.size()); }

/// What makes "socket" of several "sockets".
inline const char* Plural(std::size_t count) { return count == 1 ? "" : "s"; }

/// "PTR", "SRV", "A", "AAAA", "TXT" or "ANY"; null for types of no interest here.
const char* TypeWord(std::uint16_t type);

}  // namespace mdns_wrapper
