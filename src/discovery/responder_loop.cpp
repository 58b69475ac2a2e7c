#include "discovery/responder_loop.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <memory>
#include <optional>
#include <vector>

#include "discovery/mdns_log.h"
#include "discovery/question_answerer.h"
#include "discovery/socket_set.h"
#include "environment/logging.h"

namespace mdns_wrapper {
namespace {

constexpr std::chrono::milliseconds kTurn{1000};
/// Interfaces and the log's filter are looked at this often, however many packets come.
constexpr std::chrono::milliseconds kLook{1000};
/// Packets of one socket that are handled in one turn, so that a flood on one neither starves the
/// others nor hides a stop.
constexpr int kMostPacketsATurn = 64;

class ResponderLoop {
 public:
  ResponderLoop(const mdns_service_info& info, MdnsNetwork& network)
      : info_(info), network_(network), answerer_(network, sockets_) {}

  /// False when there is no socket.
  bool open() {
    look();
    if (sockets_.sockets().empty()) {
      mdns_log("Failed to open any client sockets\n");
      return false;
    }
    const std::size_t count = sockets_.sockets().size();
    mdns_log("Opened %d socket%s for mDNS service\n", static_cast<int>(count), Plural(count));
    return true;
  }

  void run(const StopRequest& stop) {
    mdns_log("Service mDNS: %s:%d\n", records_->serviceType().c_str(), info_.port);
    mdns_log("Hostname: %s\n", info_.hostname.c_str());
    while (!stop.made()) {
      announce();
      network_.wait(sockets_.sockets(), kTurn, stop, readable_);
      for (const int socket : readable_) handlePackets(socket);
      if (network_.now() - looked_ >= kLook) look();
    }
    for (const int socket : sockets_.sockets()) send(socket, MDNS_GOODBYE);
  }

 private:
  void look() {
    looked_ = network_.now();
    logWanted_ = mdns_log_wanted();
    const std::vector<int> opened = sockets_.refresh();
    const SocketAddress* const ipv6 = FirstOf(sockets_.interfaces(), AF_INET6);
    // Without any the last one is kept until its owner starts the responder anew.
    const bool moved = ipv6 != nullptr && (!ipv6_ || *ipv6_ != *ipv6);
    if (moved) ipv6_ = *ipv6;
    if (records_ == nullptr || moved) {
      records_ = std::make_unique<AdvertisedRecords>(info_, ipv6_ ? &*ipv6_ : nullptr);
      silent_.assign(sockets_.sockets().begin(), sockets_.sockets().end());
    } else {
      silent_.insert(silent_.end(), opened.begin(), opened.end());
    }
  }

  /// Tries again later where it is not possible yet, as on an IPv6 address that is still checked
  /// for being the only one of its kind.
  void announce() {
    std::erase_if(silent_, [this](int socket) {
      const auto sockets = sockets_.sockets();
      const bool gone = std::find(sockets.begin(), sockets.end(), socket) == sockets.end();
      if (gone || send(socket, MDNS_ANNOUNCEMENT)) return true;
      if (errno != EMSGSIZE) return false;
      LogErr("The service %s cannot be announced: a name or a text is too long.",
             records_->instanceName().c_str());
      return true;
    });
  }

  bool send(int socket, const mdns_lifetime& lifetime) {
    const mdns_record_t pointer = records_->pointer();
    return mdns_answer_multicast_rclass_ttl(sockets_, socket, buffer_, lifetime.rclass,
                                            RecordList(&pointer, 1), records_->announced(),
                                            lifetime.ttl);
  }

  void handlePackets(int socket) {
    SocketAddress from;
    for (int left = kMostPacketsATurn; left > 0; --left) {
      const auto size = network_.receive(socket, buffer_, from);
      if (!size) return;
      answerer_.answer(*records_, socket, PacketBytes(buffer_).first(*size), from, logWanted_);
    }
  }

  const mdns_service_info& info_;
  MdnsNetwork& network_;
  SocketSet sockets_{network_, MDNS_PORT};
  QuestionAnswerer answerer_;
  std::unique_ptr<AdvertisedRecords> records_;
  std::optional<SocketAddress> ipv6_;  ///< the first one, kept when there is none
  std::vector<int> silent_;            ///< sockets on which nothing was announced yet
  std::vector<int> readable_;
  std::array<std::uint8_t, MDNS_PACKET_BYTES> buffer_{};
  MdnsNetwork::Clock::time_point looked_{};
  bool logWanted_ = false;
};

}  // namespace

int service_mdns(const mdns_service_info& info, const StopRequest& stop, MdnsNetwork& network) {
  ResponderLoop loop(info, network);
  if (!loop.open()) return -1;
  if (info.service.empty()) {
    mdns_log("Invalid service name\n");
    return -1;
  }
  loop.run(stop);
  return 0;
}

}  // namespace mdns_wrapper
