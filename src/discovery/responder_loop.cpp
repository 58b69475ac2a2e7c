#include "discovery/responder_loop.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <memory>
#include <utility>
#include <vector>

#include "discovery/mdns_log.h"
#include "discovery/question_answerer.h"
#include "discovery/socket_set.h"
#include "environment/logging.h"

namespace mdns_wrapper {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr milliseconds kTurn{1000};
/// Interfaces and the log's filter are looked at this often, however many packets come.
constexpr milliseconds kLook{1000};
constexpr seconds kBetweenAnnouncements{1};  // RFC 6762, 8.3
constexpr int kAnnouncements = 2;            // RFC 6762, 8.3
/// The two clocks are not read at one moment. A machine that sleeps does so for longer.
constexpr milliseconds kLeastSleep{500};
/// Between two lines about another machine with our name.
constexpr seconds kBetweenRivalLines{60};

class ResponderLoop {
 public:
  using Time = MdnsNetwork::Clock::time_point;

  ResponderLoop(const mdns_service_info& info, MdnsNetwork& network, ResponderReport& report,
                std::size_t unicastASecond)
      : info_(info),
        network_(network),
        report_(report),
        answerer_(network, sockets_, log_, unicastASecond),
        slept_(network.suspended()) {}
  ~ResponderLoop() { report_.tell(false, problem()); }
  ResponderLoop(const ResponderLoop&) = delete;
  ResponderLoop& operator=(const ResponderLoop&) = delete;

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
      if (network_.now() - looked_ >= kLook) look();
      announce();
      answerer_.sendWaiting(*records_);
      network_.wait(sockets_.sockets(), untilNext(), stop, readable_);
      for (const int socket : readable_) handlePackets(socket);
    }
    for (const int socket : sockets_.sockets()) send(socket, MDNS_GOODBYE);
  }

 private:
  struct Announcement {
    int socket;
    int left = kAnnouncements;
    Time due{};
  };

  void look() {
    looked_ = network_.now();
    log_.look(looked_);
    const std::vector<int> opened = sockets_.refresh();
    const milliseconds slept = network_.suspended();
    const bool woke = slept - std::exchange(slept_, slept) >= kLeastSleep;
    const bool moved = followAddresses();
    if (records_ == nullptr || moved) {
      records_ = std::make_unique<AdvertisedRecords>(info_, ipv6_ ? &*ipv6_ : nullptr);
    }
    const auto open = sockets_.sockets();
    std::erase_if(pending_, [&](const Announcement& pending) {
      return moved || woke || std::find(open.begin(), open.end(), pending.socket) == open.end();
    });
    if (moved || woke) {
      for (const int socket : open) pending_.push_back({socket});
    } else {
      for (const int socket : opened) pending_.push_back({socket});
    }
    if (open.empty()) announced_ = false;
    tell();
  }

  /// Takes over the addresses that the service has now. Returns whether they are other ones.
  bool followAddresses() {
    const InterfaceList& interfaces = sockets_.interfaces();
    const SocketAddress* const first6 = FirstOf(interfaces, AF_INET6);
    const auto ipv6 = first6 != nullptr ? std::optional(*first6) : std::nullopt;
    bool moved = std::exchange(ipv6_, ipv6) != ipv6;

    const bool own = std::any_of(interfaces.begin(), interfaces.end(), [&](const auto& entry) {
      return entry.address.isIpv4() && entry.address.addressText() == info_.ipv4;
    });
    if (own) ownIpv4_ = true;
    if (ownIpv4_ && !own) {
      const SocketAddress* const first4 = FirstOf(interfaces, AF_INET);
      std::string now = first4 != nullptr ? first4->addressText() : "";
      moved = moved || now != info_.ipv4;
      info_.ipv4 = std::move(now);
    }
    return moved;
  }

  /// Tries again later where it is not possible yet, as on an IPv6 address that is still checked
  /// for being the only one of its kind.
  void announce() {
    if (pending_.empty()) return;
    const Time now = network_.now();
    std::erase_if(pending_, [&](Announcement& pending) {
      if (now < pending.due) return false;
      pending.due = now + kBetweenAnnouncements;
      if (send(pending.socket, MDNS_ANNOUNCEMENT)) {
        announced_ = true;
        sendProblem_.clear();
        tooLong_ = false;
        answerer_.noteAnnouncement(pending.socket);
        return --pending.left == 0;
      }
      if (errno != EMSGSIZE) {
        sendProblem_ = std::string("The announcement cannot be sent: ") + std::strerror(errno);
        return false;
      }
      tooLong_ = true;
      LogErr("The service %s cannot be announced: a name or a text is too long.",
             records_->instanceName().c_str());
      return true;
    });
    tell();
  }

  std::string problem() const {
    if (sockets_.interfaces().empty()) return "This machine has no network address.";
    if (!sockets_.problem().empty()) return sockets_.problem();
    if (tooLong_) return "A name or a text is too long to be announced.";
    return sendProblem_;
  }
  void tell() { report_.tell(announced_, problem()); }

  milliseconds untilNext() const {
    const Time now = network_.now();
    Time next = now + kTurn;
    for (const Announcement& pending : pending_) next = std::min(next, pending.due);
    if (const auto waiting = answerer_.nextWaiting()) next = std::min(next, *waiting);
    // Rounded up, so that the wait does not end just before the time.
    return std::max(std::chrono::ceil<milliseconds>(next - now), milliseconds(0));
  }

  bool send(int socket, const mdns_lifetime& lifetime) {
    return mdns_answer_multicast_rclass_ttl(sockets_, socket, buffer_, lifetime.rclass,
                                            records_->of(Advertised::kPointer),
                                            records_->announced(), lifetime.ttl);
  }

  void handlePackets(int socket) {
    for (int left = MDNS_MOST_PACKETS_A_TURN; left > 0; --left) {
      const auto received = network_.receive(socket, buffer_);
      if (!received) return;
      const PacketBytes packet = PacketBytes(buffer_).first(received->size);
      answerer_.answer(*records_, socket, packet, received->from, received->toGroup);
      const bool near = received->toGroup || sockets_.isOnLink(received->from);
      if (near && received->from.port() == MDNS_PORT && isOfRival(packet) &&
          !isOwn(received->from)) {
        noteRival(received->from);
      }
    }
  }

  /// Whether a reply has a record under one of our names that is not ours. Goodbyes do not count,
  /// nor does a text, of which this service announces less than it answers.
  bool isOfRival(PacketBytes packet) const {
    PacketReader reader(packet);
    mdns_header header;
    if (!reader.read(header) || (header.flags & MDNS_FLAG_RESPONSE) == 0) return false;
    for (int left = header.questions; left > 0; --left) {
      if (!reader.skipQuestion()) return false;
    }
    mdns_received record;
    // Ends with the packet: a record takes up eleven bytes at least.
    for (int left = header.answers + header.authorities + header.additionals;
         left > 0 && reader.read(record); --left) {
      const auto kind = records_->find(record);
      if (!kind || record.ttl == 0) continue;
      if (*kind == Advertised::kService && !records_->hasSameData(*kind, packet, record))
        return true;
      if (*kind != Advertised::kIpv4 && *kind != Advertised::kIpv6) continue;
      if (!records_->hasSameData(*kind, packet, record) && !isOwnAddress(packet, record))
        return true;
    }
    return false;
  }

  /// Any address of this machine may stand under its name: that of another link, or an earlier one
  /// of two.
  bool isOwnAddress(PacketBytes packet, const mdns_received& record) const {
    const InterfaceList& own = sockets_.interfaces();
    return std::any_of(own.begin(), own.end(), [&](const InterfaceAddress& entry) {
      const auto bytes = entry.address.bytes();
      return bytes.size() == record.length &&
             std::equal(bytes.begin(), bytes.end(),
                        packet.subspan(record.offset, record.length).begin());
    });
  }
  /// What this machine sends to the group comes back to it.
  bool isOwn(const SocketAddress& from) const {
    const InterfaceList& own = sockets_.interfaces();
    return std::any_of(own.begin(), own.end(), [&](const InterfaceAddress& entry) {
      return std::ranges::equal(entry.address.bytes(), from.bytes());
    });
  }

  void noteRival(const SocketAddress& from) {
    const std::string address = from.addressText();
    report_.tellRival(address);
    const Time now = network_.now();
    if (rivalTold_ && now - *rivalTold_ < kBetweenRivalLines) return;
    rivalTold_ = now;
    errno = 0;  // the line ends with it
    LogErr("Another machine, %s, answers under the name of this service, %s.", address.c_str(),
           records_->instanceName().c_str());
  }

  mdns_service_info info_;
  MdnsNetwork& network_;
  ResponderReport& report_;
  SocketSet sockets_{network_, MDNS_PORT};
  NeighbourLog log_;
  QuestionAnswerer answerer_;
  std::unique_ptr<AdvertisedRecords> records_;
  std::optional<SocketAddress> ipv6_;  ///< the first one
  bool ownIpv4_ = false;               ///< the address that is told was once this machine's
  milliseconds slept_;
  std::vector<Announcement> pending_;
  bool announced_ = false;
  bool tooLong_ = false;
  std::string sendProblem_;
  std::optional<Time> rivalTold_;
  std::vector<int> readable_;
  std::array<std::uint8_t, MDNS_PACKET_BYTES> buffer_{};
  Time looked_{};
};

}  // namespace

ResponderReport::State ResponderReport::state() const {
  const MutexLock lock(mutex_);
  return state_;
}

void ResponderReport::tell(bool announced, std::string problem) {
  const MutexLock lock(mutex_);
  state_.announced = announced;
  state_.problem = std::move(problem);
}

void ResponderReport::tellRival(std::string address) {
  const MutexLock lock(mutex_);
  state_.rival = {std::move(address), std::chrono::system_clock::now()};
}

void ResponderReport::clear() {
  const MutexLock lock(mutex_);
  state_ = {};
}

int service_mdns(const mdns_service_info& info, const StopRequest& stop, MdnsNetwork& network,
                 ResponderReport* report, std::size_t unicastASecond) {
  ResponderReport own;
  ResponderLoop loop(info, network, report != nullptr ? *report : own, unicastASecond);
  if (!loop.open()) return -1;
  if (info.service.empty()) {
    mdns_log("Invalid service name\n");
    return -1;
  }
  loop.run(stop);
  return 0;
}

}  // namespace mdns_wrapper
