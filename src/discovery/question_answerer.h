// Answers the questions of received packets from the records of one service.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <utility>

#include "discovery/advertised_records.h"
#include "discovery/socket_set.h"
#include "discovery/wire/packet_reader.h"

namespace mdns_wrapper {

/// Belongs to the loop's thread; what it is given outlives it.
class QuestionAnswerer {
 public:
  QuestionAnswerer(MdnsNetwork& network, SocketSet& sockets)
      : network_(network), sockets_(sockets) {}

  /// Answers what a packet asks of these records, on the socket where it came in: each question
  /// that wants a unicast answer to its asker, the others to the group. One packet is given each
  /// answer once, however often it asks, and each group a limited number of answers a second.
  ///
  /// Ignored are answers (else two responders would answer each other without end), packets from
  /// senders that are no neighbours, and, from where it is malformed, the rest of a packet.
  void answer(const AdvertisedRecords& records, int socket, PacketBytes packet,
              const SocketAddress& from, bool log);

 private:
  class Packet;

  /// Whether one more answer of a kind may go to the socket's group now.
  bool mayMulticast(int socket, unsigned subject);

  MdnsNetwork& network_;
  SocketSet& sockets_;
  std::array<std::uint8_t, MDNS_PACKET_BYTES> buffer_{};
  MdnsNetwork::Clock::time_point second_{};             ///< the one in which multicasts_ were sent
  std::map<std::pair<int, unsigned>, int> multicasts_;  ///< how many, by socket and kind
};

}  // namespace mdns_wrapper
