// The sockets of multicast DNS (RFC 6762, 3 and 15).
//
// The address tells the interface whose group the socket joins and by which it sends to the group,
// and the port to which it is bound at the wildcard address: MDNS_PORT to hear the group beside
// other programs, 0 for any free one. Null: any interface, any port. An IPv6 address names the
// interface in its scope.
//
// Each returns a non-blocking, close-on-exec UDP socket that the caller closes, -1 on failure.
#pragma once

#include <netinet/in.h>

namespace mdns_wrapper {

int mdns_socket_open_ipv4(const sockaddr_in* address);
int mdns_socket_open_ipv6(const sockaddr_in6* address);

}  // namespace mdns_wrapper
