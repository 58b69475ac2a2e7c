#include "discovery/mdns_network.h"

#include <arpa/inet.h>
#include <unistd.h>

#include <cerrno>

#include "discovery/mdns_protocol.h"
#include "discovery/mdns_socket.h"

namespace mdns_wrapper {

std::optional<InterfaceList> SystemNetwork::interfaces() { return UsableInterfaces(); }

int SystemNetwork::open(const InterfaceAddress& address, std::uint16_t port) {
  SocketAddress own = address.address;
  own.setPort(port);
  own.setScope(address.index);
  return own.isIpv4() ? mdns_socket_open_ipv4(&own.v4()) : mdns_socket_open_ipv6(&own.v6());
}

void SystemNetwork::close(int socket) { ::close(socket); }

std::uint16_t SystemNetwork::portOf(int socket) {
  sockaddr_storage storage{};
  socklen_t size = sizeof storage;
  auto* const address = reinterpret_cast<sockaddr*>(&storage);
  if (::getsockname(socket, address, &size) != 0) return 0;
  const auto own = SocketAddress::from(address);
  return own ? own->port() : std::uint16_t{0};
}

bool SystemNetwork::send(int socket, const SocketAddress& to,
                         std::span<const std::uint8_t> packet) {
  ssize_t sent;
  do {
    sent = ::sendto(socket, packet.data(), packet.size(), 0, to.data(), to.size());
  } while (sent < 0 && errno == EINTR);
  return sent >= 0;  // datagrams go out whole or not at all
}

std::optional<std::size_t> SystemNetwork::receive(int socket, std::span<std::uint8_t> buffer,
                                                  SocketAddress& from) {
  sockaddr_storage storage{};
  auto* const address = reinterpret_cast<sockaddr*>(&storage);
  // An error is that of an earlier packet which reached nobody; the system tells each once.
  constexpr int kMostErrors = 8;
  for (int errors = 0; errors < kMostErrors; ++errors) {
    socklen_t size = sizeof storage;
    const ssize_t length = ::recvfrom(socket, buffer.data(), buffer.size(), 0, address, &size);
    if (length < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) break;
    if (length < 0) continue;
    const auto sender = SocketAddress::from(address);
    if (!sender) continue;
    from = *sender;
    return static_cast<std::size_t>(length);
  }
  return std::nullopt;
}

void SystemNetwork::wait(std::span<const int> sockets, std::chrono::milliseconds time,
                         const StopRequest& stop, std::vector<int>& readable) {
  readable.clear();
  polled_.clear();
  for (const int socket : sockets) polled_.push_back({socket, POLLIN, 0});
  polled_.push_back({stop.descriptor(), POLLIN, 0});
  // An interrupted wait is one that ended early.
  if (::poll(polled_.data(), polled_.size(), static_cast<int>(time.count())) <= 0) return;
  polled_.pop_back();
  for (const pollfd& entry : polled_) {
    if (entry.revents != 0) readable.push_back(entry.fd);
  }
}

SocketAddress GroupOf(int family) {
  if (family == AF_INET) {
    sockaddr_in group{};
    group.sin_family = AF_INET;
    group.sin_port = htons(MDNS_PORT);
    ::inet_pton(AF_INET, MDNS_GROUP_IPV4, &group.sin_addr);
    return SocketAddress(group);
  }
  sockaddr_in6 group{};
  group.sin6_family = AF_INET6;
  group.sin6_port = htons(MDNS_PORT);
  ::inet_pton(AF_INET6, MDNS_GROUP_IPV6, &group.sin6_addr);
  return SocketAddress(group);
}

}  // namespace mdns_wrapper
