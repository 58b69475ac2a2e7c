// What the discovery loops need of the world: interfaces, sockets and a clock. A test hands in a
// world of its own and needs neither a network nor patience.
#pragma once

#include <poll.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "discovery/interfaces.h"
#include "discovery/socket_address.h"
#include "discovery/stop_request.h"

namespace mdns_wrapper {

/// One loop uses one network, on one thread. None of the calls waits but wait.
class MdnsNetwork {
 public:
  using Clock = std::chrono::steady_clock;

  virtual ~MdnsNetwork() = default;

  /// As UsableInterfaces.
  virtual std::optional<InterfaceList> interfaces() = 0;
  /// A socket on an interface that has joined its family's group there; -1 when there is none to be
  /// had. With port MDNS_PORT it hears what is sent to the group; 0 takes any free port.
  virtual int open(const InterfaceAddress& address, std::uint16_t port) = 0;
  virtual void close(int socket) = 0;
  /// The port that the socket has, 0 when unknown.
  virtual std::uint16_t portOf(int socket) = 0;
  /// Returns whether the whole packet went out. When not, errno tells why.
  virtual bool send(int socket, const SocketAddress& to, std::span<const std::uint8_t> packet) = 0;
  /// The bytes of one waiting packet, at most as many as there is room for, and its sender; none
  /// when no packet waits.
  virtual std::optional<std::size_t> receive(int socket, std::span<std::uint8_t> buffer,
                                             SocketAddress& from) = 0;
  /// Waits until a packet waits at one of the sockets, the time is over, or a stop is requested.
  /// Those with packets are in `readable` then.
  virtual void wait(std::span<const int> sockets, std::chrono::milliseconds time,
                    const StopRequest& stop, std::vector<int>& readable) = 0;
  virtual Clock::time_point now() = 0;
};

/// The real one.
class SystemNetwork final : public MdnsNetwork {
 public:
  std::optional<InterfaceList> interfaces() override;
  int open(const InterfaceAddress& address, std::uint16_t port) override;
  void close(int socket) override;
  std::uint16_t portOf(int socket) override;
  bool send(int socket, const SocketAddress& to, std::span<const std::uint8_t> packet) override;
  std::optional<std::size_t> receive(int socket, std::span<std::uint8_t> buffer,
                                     SocketAddress& from) override;
  void wait(std::span<const int> sockets, std::chrono::milliseconds time, const StopRequest& stop,
            std::vector<int>& readable) override;
  Clock::time_point now() override { return Clock::now(); }

 private:
  std::vector<pollfd> polled_;  ///< kept, because every packet begins with a wait
};

/// The group of a family, with its port (RFC 6762, 3).
SocketAddress GroupOf(int family);

}  // namespace mdns_wrapper
