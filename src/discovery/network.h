// What the discovery loops need of the world: interfaces, sockets, a clock, and the stop request
// that ends their waits. A test hands in a network of its own and needs neither packets nor
// patience.
#pragma once

#include <poll.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "discovery/addresses.h"
#include "os/file.h"
#include "os/mutex.h"

namespace mdns_wrapper {

/// A request to stop: the loop polls it, and it ends the loop's waits. Any thread may call. When
/// the system has no pipe left the request still holds, but ends no wait early.
class StopRequest {
 public:
  StopRequest();
  StopRequest(const StopRequest&) = delete;
  StopRequest& operator=(const StopRequest&) = delete;

  void make();
  void takeBack();
  bool made() const { return value_.load() != 0; }
  /// Becomes readable when the request is made; for poll. -1 when there is none.
  int descriptor() const { return readEnd_.get(); }

 private:
  Mutex mutex_;  ///< value and pipe change together
  std::atomic<std::int32_t> value_{0};
  Descriptor readEnd_;
  Descriptor writeEnd_;
};

/// A packet that came in.
struct ReceivedPacket {
  std::size_t size = 0;
  SocketAddress from;
  /// Whether it was sent to a group, which no router passes on, and not to this machine alone.
  bool toGroup = false;
};

/// One loop uses one network, on one thread. None of the calls waits but wait.
class MdnsNetwork {
 public:
  using Clock = std::chrono::steady_clock;

  virtual ~MdnsNetwork() = default;

  /// As UsableInterfaces.
  virtual std::optional<InterfaceList> interfaces() = 0;
  /// A socket on an interface that has joined its family's group there; -1 when there is none to be
  /// had, and errno tells why. With port MDNS_PORT it hears what is sent to the group; 0 takes any
  /// free port.
  virtual int open(const InterfaceAddress& address, std::uint16_t port) = 0;
  virtual void close(int socket) = 0;
  /// The port that the socket has, 0 when unknown.
  virtual std::uint16_t portOf(int socket) = 0;
  /// Returns whether the whole packet went out. When not, errno tells why.
  virtual bool send(int socket, const SocketAddress& to, std::span<const std::uint8_t> packet) = 0;
  /// Puts one waiting packet into the buffer, cut to the room there; none when no packet waits.
  virtual std::optional<ReceivedPacket> receive(int socket, std::span<std::uint8_t> buffer) = 0;
  /// Waits until a packet waits at one of the sockets, the time is over, or a stop is requested.
  /// Those with packets are in `readable` then.
  virtual void wait(std::span<const int> sockets, std::chrono::milliseconds time,
                    const StopRequest& stop, std::vector<int>& readable) = 0;
  virtual Clock::time_point now() = 0;
  /// How long the machine has been suspended since it was started: time that `now` does not count.
  virtual std::chrono::milliseconds suspended() = 0;
};

/// The real one.
class SystemNetwork final : public MdnsNetwork {
 public:
  std::optional<InterfaceList> interfaces() override;
  int open(const InterfaceAddress& address, std::uint16_t port) override;
  void close(int socket) override;
  std::uint16_t portOf(int socket) override;
  bool send(int socket, const SocketAddress& to, std::span<const std::uint8_t> packet) override;
  std::optional<ReceivedPacket> receive(int socket, std::span<std::uint8_t> buffer) override;
  void wait(std::span<const int> sockets, std::chrono::milliseconds time, const StopRequest& stop,
            std::vector<int>& readable) override;
  Clock::time_point now() override { return Clock::now(); }
  std::chrono::milliseconds suspended() override;

 private:
  std::vector<pollfd> polled_;  ///< kept, because every packet begins with a wait
};

/// The group of a family, with its port (RFC 6762, 3).
SocketAddress GroupOf(int family);

/// The sockets of multicast DNS (RFC 6762, 3 and 15).
///
/// The address tells the interface whose group the socket joins and by which it sends to the group,
/// and the port to which it is bound at the wildcard address: MDNS_PORT to hear the group beside
/// other programs, 0 for any free one. Null: any interface, any port. An IPv6 address names the
/// interface in its scope.
///
/// Each returns a non-blocking, close-on-exec UDP socket that the caller closes, -1 on failure.
int mdns_socket_open_ipv4(const sockaddr_in* address);
int mdns_socket_open_ipv6(const sockaddr_in6* address);

}  // namespace mdns_wrapper
