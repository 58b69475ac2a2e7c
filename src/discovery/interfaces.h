// The addresses of this machine that discovery works with.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "discovery/socket_address.h"

struct ifaddrs;

namespace mdns_wrapper {

/// An address and the network around it.
struct InterfaceAddress {
  std::uint32_t index = 0;  ///< of the interface; never 0 for one that exists
  SocketAddress address;    ///< without port; a link-local one with the interface as scope
  std::optional<SocketAddress> mask;

  bool operator==(const InterfaceAddress&) const = default;
};
using InterfaceList = std::vector<InterfaceAddress>;

/// The usable addresses, in the system's order: of interfaces that are up and connected, and not
/// loopback. None when the system does not tell. Any thread may call.
std::optional<InterfaceList> UsableInterfaces();

/// The same of a walk's list; an entry may lack its address.
InterfaceList UsableOf(const ifaddrs* entries);

/// The first address of a family, null when there is none. It refers to the list.
const SocketAddress* FirstOf(const InterfaceList& list, int family);

}  // namespace mdns_wrapper
