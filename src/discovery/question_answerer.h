// Answers the questions of received packets from the records of one service.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <vector>

#include "discovery/advertised_records.h"
#include "discovery/mdns_log.h"
#include "discovery/socket_set.h"
#include "discovery/source_budget.h"

namespace mdns_wrapper {

/// Belongs to the loop's thread; what it is given outlives it.
///
/// A packet is answered to the group where it asks for that, and to its asker where it asks for a
/// unicast answer or comes from a port other than MDNS_PORT; each of our names once, with all that
/// was asked of it. Records that the asker says it knows are left out (RFC 6762, 7.1).
///
/// The group of a link is sent each record at most once a second (RFC 6762, 6): what is asked for
/// again earlier waits for that second's end. Askers are sent so many answers a second in all, and
/// each of them a fiftieth of that.
class QuestionAnswerer {
 public:
  using Time = MdnsNetwork::Clock::time_point;

  QuestionAnswerer(MdnsNetwork& network, SocketSet& sockets, NeighbourLog& log,
                   std::size_t unicastASecond);

  /// Answers what a packet asks of these records, by the socket where it came in.
  ///
  /// Ignored are answers (else two responders would answer each other without end), packets to this
  /// machine alone from senders that are no neighbours (RFC 6762, 11), and, from where it is
  /// malformed, the rest of a packet.
  void answer(const AdvertisedRecords& records, int socket, PacketBytes packet,
              const SocketAddress& from, bool toGroup);

  /// Sends to the groups what had to wait until now.
  void sendWaiting(const AdvertisedRecords& records);
  /// When that is to be called again; none when nothing waits.
  std::optional<Time> nextWaiting() const;
  /// The loop has just announced all records but kTypes by a socket.
  void noteAnnouncement(int socket);

 private:
  static constexpr std::size_t kNames = 4;

  /// What a packet asks of one of our names.
  struct Asked {
    AdvertisedSet toGroup;
    AdvertisedSet toAsker;
    mdns_question first;  ///< that wants an answer to its asker
  };
  /// What was sent to the group of a link, and what waits to be.
  struct Link {
    ByAdvertised<Time> sent;
    AdvertisedSet waiting;
  };

  void sendToGroup(const AdvertisedRecords& records, int socket, AdvertisedSet wanted);
  void sendToAsker(const AdvertisedRecords& records, int socket, const SocketAddress& to,
                   std::uint16_t queryId, const mdns_question& question, AdvertisedSet wanted);
  /// Fills answer_ and additional_.
  void collect(const AdvertisedRecords& records, AdvertisedSet answer, AdvertisedSet additional);
  void logAnswers(const char* way);

  MdnsNetwork& network_;
  SocketSet& sockets_;
  NeighbourLog& log_;
  SourceBudget unicast_;
  Time second_{};  ///< the one for which unicast_ counts
  std::map<int, Link> links_;
  std::array<Asked, kNames> asked_;
  std::vector<mdns_record_t> answer_;
  std::vector<mdns_record_t> additional_;
  std::array<std::uint8_t, MDNS_PACKET_BYTES> buffer_{};
};

}  // namespace mdns_wrapper
