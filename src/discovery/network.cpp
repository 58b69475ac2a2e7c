#include "discovery/network.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <utility>

#include "discovery/wire/protocol.h"
#include "os/system.h"

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

/// Whether a packet was sent to a group, as its ancillary data tell. Without them it counts as sent
/// to this machine alone, of which more is asked.
bool WasToGroup(const msghdr& message) {
  // The macros take the message as one that may be written to.
  auto& readable = const_cast<msghdr&>(message);
  for (const cmsghdr* data = CMSG_FIRSTHDR(&readable); data != nullptr;
       data = CMSG_NXTHDR(&readable, const_cast<cmsghdr*>(data))) {
    if (data->cmsg_level == IPPROTO_IP && data->cmsg_type == IP_PKTINFO) {
      in_pktinfo told;
      std::memcpy(&told, CMSG_DATA(data), sizeof told);
      return IN_MULTICAST(ntohl(told.ipi_addr.s_addr));
    }
    if (data->cmsg_level == IPPROTO_IPV6 && data->cmsg_type == IPV6_PKTINFO) {
      in6_pktinfo told;
      std::memcpy(&told, CMSG_DATA(data), sizeof told);
      return IN6_IS_ADDR_MULTICAST(&told.ipi6_addr);
    }
  }
  return false;
}

}  // namespace

StopRequest::StopRequest() {
  int ends[2];
  if (!os::OpenPipe(ends)) return;
  readEnd_ = Descriptor(ends[0]);
  writeEnd_ = Descriptor(ends[1]);
}

void StopRequest::make() {
  const MutexLock lock(mutex_);
  if (value_.exchange(1) != 0) return;
  [[maybe_unused]] const auto written = ::write(writeEnd_.get(), "", 1);
}

void StopRequest::takeBack() {
  const MutexLock lock(mutex_);
  if (value_.exchange(0) == 0) return;
  char byte;
  [[maybe_unused]] const auto read = ::read(readEnd_.get(), &byte, 1);
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
  if (!socket || !Set(socket, IPPROTO_IP, IP_PKTINFO, 1) ||
      !Set(socket, IPPROTO_IP, IP_MULTICAST_TTL, once) ||
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
  if (!socket || !Set(socket, IPPROTO_IPV6, IPV6_RECVPKTINFO, 1) ||
      !Set(socket, IPPROTO_IPV6, IPV6_V6ONLY, 1) ||
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

std::optional<InterfaceList> SystemNetwork::interfaces() { return UsableInterfaces(); }

int SystemNetwork::open(const InterfaceAddress& address, std::uint16_t port) {
  SocketAddress own = address.address;
  own.setPort(port);
  own.setScope(address.index);
  const int socket =
      own.isIpv4() ? mdns_socket_open_ipv4(&own.v4()) : mdns_socket_open_ipv6(&own.v6());
  // Where the system cannot do that, its routes tell the interface.
  if (socket >= 0) os::SendByInterface(socket, own.family(), address.index);
  return socket;
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
    // No packet of multicast DNS is for a router.
    sent = ::sendto(socket, packet.data(), packet.size(), MSG_DONTROUTE, to.data(), to.size());
  } while (sent < 0 && errno == EINTR);
  return sent >= 0;  // datagrams go out whole or not at all
}

std::optional<ReceivedPacket> SystemNetwork::receive(int socket, std::span<std::uint8_t> buffer) {
  sockaddr_storage sender{};
  alignas(cmsghdr) std::array<std::uint8_t, 256> control;
  iovec place{buffer.data(), buffer.size()};
  // An error is that of an earlier packet which reached nobody; the system tells each once.
  constexpr int kMostErrors = 8;
  for (int errors = 0; errors < kMostErrors; ++errors) {
    msghdr message{};
    message.msg_name = &sender;
    message.msg_namelen = sizeof sender;
    message.msg_iov = &place;
    message.msg_iovlen = 1;
    message.msg_control = control.data();
    message.msg_controllen = control.size();
    const ssize_t length = ::recvmsg(socket, &message, 0);
    if (length < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) break;
    if (length < 0) continue;
    const auto from = SocketAddress::from(reinterpret_cast<const sockaddr*>(&sender));
    if (!from) continue;
    return ReceivedPacket{static_cast<std::size_t>(length), *from, WasToGroup(message)};
  }
  return std::nullopt;
}

std::chrono::milliseconds SystemNetwork::suspended() {
  return std::chrono::milliseconds(os::SuspendedTime());
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

}  // namespace mdns_wrapper
