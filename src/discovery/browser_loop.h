// The browser's loop: asks who is there, and hands over every record of every reply.
#pragma once

#include <cstdint>
#include <string_view>

#include "discovery/mdns_log.h"
#include "discovery/network.h"
#include "discovery/reply_parser.h"
#include "discovery/source_budget.h"

namespace mdns_wrapper {

enum mdns_query_code : int {
  MDNS_CYCLE_BEGINS = 0,
  MDNS_RECORD_FOUND = 1,
  MDNS_CYCLE_ENDS = 2,
};

/// Called on the loop's thread. The result says something with MDNS_RECORD_FOUND only.
using mdns_query_callback = int (*)(void* user, const mdns_query_result& result, int code);

/// What a browser keeps from one query to the next: the senders that it has heard, and the bounds
/// of its log. Belongs to the loop's thread.
struct BrowserMemory {
  /// Three services each. Addresses that a machine makes up can take the room for new services, but
  /// not theirs.
  KnownSources known{64, 32};
  NeighbourLog log;
};

/// Runs cycles of a query, the reading of its replies and a pause of ten seconds. Returns 0 when a
/// stop is requested, -1 when a query fails.
int send_mdns_query(std::string_view name, std::uint16_t type, const StopRequest& stop, void* user,
                    mdns_query_callback callback, MdnsNetwork& network);

/// One query on all interfaces. Reads replies of neighbours until ten seconds bring none, thirty
/// seconds are over or a stop is requested, and calls back for up to 4,096 of their records, 256 of
/// one sender, and beside those for the ones that the known senders have for their own. Only what
/// comes from port MDNS_PORT is a reply. Returns 0, or -1 when there is no socket to be had.
int send_mdns_query_impl(std::string_view name, std::uint16_t type, const StopRequest& stop,
                         void* user, mdns_query_callback callback, MdnsNetwork& network,
                         BrowserMemory& memory);

}  // namespace mdns_wrapper
