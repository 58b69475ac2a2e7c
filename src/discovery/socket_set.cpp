#include "discovery/socket_set.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "discovery/mdns_log.h"

namespace mdns_wrapper {
namespace {

bool SharesSocket(const InterfaceAddress& a, const InterfaceAddress& b) {
  return a.index == b.index && a.address.family() == b.address.family();
}

template <class Send>
bool SendBuilt(std::span<const std::uint8_t> buffer, std::size_t size, Send send) {
  if (size == 0) {
    errno = EMSGSIZE;
    return false;
  }
  return send(buffer.first(size));
}

}  // namespace

SocketSet::~SocketSet() {
  if (sockets_.empty()) return;
  for (const int socket : sockets_) network_.close(socket);
  mdns_log("Closed socket%s\n", Plural(sockets_.size()));
}

void SocketSet::closeWithout(const InterfaceList& now) {
  for (std::size_t i = sockets_.size(); i-- > 0;) {
    if (std::find(now.begin(), now.end(), addresses_[i]) != now.end()) continue;
    network_.close(sockets_[i]);
    sockets_.erase(sockets_.begin() + static_cast<std::ptrdiff_t>(i));
    addresses_.erase(addresses_.begin() + static_cast<std::ptrdiff_t>(i));
  }
}

std::vector<int> SocketSet::refresh() {
  std::optional<InterfaceList> now = network_.interfaces();
  if (!now) {
    mdns_log("Unable to get interface addresses\n");
    return {};
  }
  closeWithout(*now);
  interfaces_ = std::move(*now);

  std::vector<int> opened;
  problem_.clear();
  for (const InterfaceAddress& entry : interfaces_) {
    if (sockets_.size() == MDNS_MOST_SOCKETS) break;
    const bool open =
        std::any_of(addresses_.begin(), addresses_.end(),
                    [&](const InterfaceAddress& other) { return SharesSocket(entry, other); });
    if (open) continue;
    const int socket = network_.open(entry, port_);
    if (socket < 0) {
      const char* const reason = std::strerror(errno);
      problem_ = "No socket on port " + std::to_string(port_) + " of " +
                 entry.address.addressText() + ": " + reason;
      continue;
    }
    sockets_.push_back(socket);
    addresses_.push_back(entry);
    opened.push_back(socket);
    SocketAddress told = entry.address;
    told.setPort(port_);
    mdns_log("Local IPv%c address: %s\n", told.isIpv4() ? '4' : '6', told.text().c_str());
  }
  return opened;
}

bool SocketSet::isOnLink(const SocketAddress& address) const {
  if (address.isLinkLocal() || address.isLoopback()) return true;
  return std::any_of(interfaces_.begin(), interfaces_.end(), [&](const InterfaceAddress& own) {
    return own.mask && own.address.sharesNetwork(address, *own.mask);
  });
}

bool SocketSet::sendToGroup(int socket, std::span<const std::uint8_t> packet) {
  const auto found = std::find(sockets_.begin(), sockets_.end(), socket);
  if (found == sockets_.end()) {
    errno = EBADF;
    return false;
  }
  const InterfaceAddress& own = addresses_[static_cast<std::size_t>(found - sockets_.begin())];
  SocketAddress group = GroupOf(own.address.family());
  group.setScope(own.index);
  return network_.send(socket, group, packet);
}

bool mdns_answer_multicast_rclass_ttl(SocketSet& sockets, int socket,
                                      std::span<std::uint8_t> buffer, std::uint16_t rclass,
                                      RecordList answer, RecordList additional, std::uint32_t ttl) {
  return SendBuilt(buffer, MakeMulticastAnswer(buffer, answer, additional, {rclass, ttl}),
                   [&](auto packet) { return sockets.sendToGroup(socket, packet); });
}

bool mdns_query_answer_unicast(MdnsNetwork& network, int socket, const SocketAddress& to,
                               std::span<std::uint8_t> buffer, const AskedQuestion& question,
                               RecordList answer, RecordList authority, RecordList additional) {
  return SendBuilt(buffer, MakeUnicastAnswer(buffer, question, answer, authority, additional),
                   [&](auto packet) { return network.send(socket, to, packet); });
}

bool mdns_query_send(SocketSet& sockets, int socket, std::uint16_t sourcePort,
                     std::span<std::uint8_t> buffer, std::string_view name, std::uint16_t type) {
  return SendBuilt(buffer, MakeQuery(buffer, name, type, sourcePort),
                   [&](auto packet) { return sockets.sendToGroup(socket, packet); });
}

}  // namespace mdns_wrapper
