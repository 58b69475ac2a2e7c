// The log of the discovery layer: Debug lines of the service's log.
#pragma once

namespace mdns_wrapper {

/// Logs one line. Names and texts come from the network: control characters in them become "?", so
/// that no packet forges a line; a line of more than 2,559 bytes is cut. Any thread may call.
void mdns_log(const char* format, ...) __attribute__((format(printf, 1, 2)));

/// Whether lines are kept at the moment. Asking reads a file: ask once for many lines.
bool mdns_log_wanted();

}  // namespace mdns_wrapper
