// The responder's loop: announces a service, answers questions for it, and takes it back at the
// end.
#pragma once

#include "discovery/advertised_records.h"
#include "discovery/network.h"

namespace mdns_wrapper {

/// Runs until a stop is requested; then 0. Ends at once with -1 when there is no socket to be had
/// or no service type. Interfaces that come later are noticed within a second or two: the service
/// is announced there; those that go are left.
int service_mdns(const mdns_service_info& info, const StopRequest& stop, MdnsNetwork& network);

}  // namespace mdns_wrapper
