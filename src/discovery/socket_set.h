// The open sockets of a discovery loop: one for each interface and family, as those come and go.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "discovery/mdns_network.h"

namespace mdns_wrapper {

/// More than any machine has links to; bounds what a change of interfaces may cost.
inline constexpr std::size_t MDNS_MOST_SOCKETS = 32;

/// Several addresses of one interface share a socket, that of the first: a question is heard there
/// once, and so is answered once. Belongs to one thread; the network outlives it.
class SocketSet {
 public:
  /// Opens nothing yet. The port is that of all sockets, 0 for a free one each.
  SocketSet(MdnsNetwork& network, std::uint16_t port) : network_(network), port_(port) {}
  /// Closes all, and logs that.
  ~SocketSet();
  SocketSet(const SocketSet&) = delete;
  SocketSet& operator=(const SocketSet&) = delete;

  /// Looks at the interfaces: closes the sockets whose address is gone and opens those that are
  /// missing. When the system does not tell, everything stays. Returns the sockets that are new.
  std::vector<int> refresh();

  std::span<const int> sockets() const { return sockets_; }
  const InterfaceList& interfaces() const { return interfaces_; }
  /// Whether an address is of a network that this machine is in, as its own addresses tell. One
  /// without a network around it, as a tunnel's, has no neighbours. RFC 6762, 5.5 and 11, asks for
  /// this check of packets to one address; here it is asked of all, so that no forged sender makes
  /// this machine send beyond the link.
  bool isOnLink(const SocketAddress& address) const;
  /// A packet to the group of the socket's family. As MdnsNetwork::send.
  bool sendToGroup(int socket, std::span<const std::uint8_t> packet);

 private:
  void closeWithout(const InterfaceList& now);

  MdnsNetwork& network_;
  const std::uint16_t port_;
  std::vector<int> sockets_;
  InterfaceList addresses_;  ///< of the sockets, in their order
  InterfaceList interfaces_;
};

}  // namespace mdns_wrapper
