#include "discovery/mdns_socket.h"

#include <fcntl.h>
#include <sys/socket.h>

#include "discovery/mdns_network.h"
#include "discovery/mdns_protocol.h"
#include "platform/descriptor.h"
#include "platform/os.h"

namespace mdns_wrapper {
namespace {

template <class Value>
bool Set(const Descriptor& socket, int level, int option, const Value& value) {
  return ::setsockopt(socket.get(), level, option, &value, sizeof value) == 0;
}

Descriptor Create(int family) {
  Descriptor socket(os::OpenDatagramSocket(family));
  // Other responders of this machine have the port, too.
  const bool ready = socket && Set(socket, SOL_SOCKET, SO_REUSEADDR, 1) &&
                     Set(socket, SOL_SOCKET, SO_REUSEPORT, 1);
  return ready ? std::move(socket) : Descriptor();
}

bool Bind(const Descriptor& socket, const SocketAddress& address) {
  return ::bind(socket.get(), address.data(), address.size()) == 0 &&
         ::fcntl(socket.get(), F_SETFL, O_NONBLOCK) == 0;
}

}  // namespace

int mdns_socket_open_ipv4(const sockaddr_in* address) {
  Descriptor socket = Create(AF_INET);
  const unsigned char once = 1;
  ip_mreq group{};
  group.imr_multiaddr = GroupOf(AF_INET).v4().sin_addr;
  sockaddr_in own{};
  own.sin_family = AF_INET;
  if (address != nullptr) {
    group.imr_interface = address->sin_addr;
    own.sin_port = address->sin_port;
  }
  if (!socket || !Set(socket, IPPROTO_IP, IP_MULTICAST_TTL, once) ||
      !Set(socket, IPPROTO_IP, IP_MULTICAST_LOOP, once) ||
      !Set(socket, IPPROTO_IP, IP_ADD_MEMBERSHIP, group) ||
      (address != nullptr && !Set(socket, IPPROTO_IP, IP_MULTICAST_IF, group.imr_interface)) ||
      !Bind(socket, SocketAddress(own))) {
    return -1;
  }
  return socket.Release();
}

int mdns_socket_open_ipv6(const sockaddr_in6* address) {
  Descriptor socket = Create(AF_INET6);
  const int once = 1;
  ipv6_mreq group{};
  group.ipv6mr_multiaddr = GroupOf(AF_INET6).v6().sin6_addr;
  sockaddr_in6 own{};
  own.sin6_family = AF_INET6;
  if (address != nullptr) {
    group.ipv6mr_interface = address->sin6_scope_id;
    own.sin6_port = address->sin6_port;
  }
  if (!socket || !Set(socket, IPPROTO_IPV6, IPV6_V6ONLY, 1) ||
      !Set(socket, IPPROTO_IPV6, IPV6_MULTICAST_HOPS, once) ||
      !Set(socket, IPPROTO_IPV6, IPV6_MULTICAST_LOOP, once) ||
      !Set(socket, IPPROTO_IPV6, IPV6_JOIN_GROUP, group) ||
      (address != nullptr &&
       !Set(socket, IPPROTO_IPV6, IPV6_MULTICAST_IF, group.ipv6mr_interface)) ||
      !Bind(socket, SocketAddress(own))) {
    return -1;
  }
  return socket.Release();
}

}  // namespace mdns_wrapper
