// The open sockets of a discovery loop, one for each interface and family as those come and go, and
// what is sent by them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "discovery/network.h"
#include "discovery/wire/packet_writer.h"

namespace mdns_wrapper {

/// More than any machine has links to; bounds what a change of interfaces may cost.
inline constexpr std::size_t MDNS_MOST_SOCKETS = 32;

/// Packets of one socket that a loop reads in one turn, so that a flood on one neither starves the
/// others nor hides a stop.
inline constexpr int MDNS_MOST_PACKETS_A_TURN = 64;

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
  /// Why the last look could not open a socket that is missing, "" for nothing.
  const std::string& problem() const { return problem_; }
  /// Whether an address is of a network that this machine is in, as its own addresses tell. One
  /// without a network around it, as a tunnel's, has no neighbours. To be asked of what was sent to
  /// this machine alone (RFC 6762, 11): what comes to a group is of this link, whatever its sender.
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
  std::string problem_;
};

// Each builds a packet in the caller's buffer and sends it. Returns whether it went out; when it
// could not be built, errno is EMSGSIZE, and when it could not be sent, errno tells why.

/// An announcement, a goodbye or an answer, to the group.
bool mdns_answer_multicast_rclass_ttl(SocketSet& sockets, int socket,
                                      std::span<std::uint8_t> buffer, std::uint16_t rclass,
                                      RecordList answer, RecordList additional, std::uint32_t ttl);

/// An answer to the asker alone, that repeats the question.
bool mdns_query_answer_unicast(MdnsNetwork& network, int socket, const SocketAddress& to,
                               std::span<std::uint8_t> buffer, const AskedQuestion& question,
                               RecordList answer, RecordList authority, RecordList additional);

/// A question, to the group. From a port other than MDNS_PORT it asks for an answer to that alone.
bool mdns_query_send(SocketSet& sockets, int socket, std::uint16_t sourcePort,
                     std::span<std::uint8_t> buffer, std::string_view name, std::uint16_t type);

}  // namespace mdns_wrapper
