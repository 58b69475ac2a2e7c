// A network of the test's own: its interfaces, its packets, and a clock that waits advance.
#pragma once

#include <cerrno>
#include <deque>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "discovery/mdns_packets.h"
#include "discovery/network.h"

/// How a packet comes: from which port, and whether to the group.
struct Way {
  std::uint16_t port = 5353;
  bool toGroup = true;
};

class FakeNetwork : public mdns_wrapper::MdnsNetwork {
 public:
  using SocketAddress = mdns_wrapper::SocketAddress;
  struct Sent {
    int socket;
    std::string to;
    std::string packet;
    double at;  ///< in seconds
  };

  static SocketAddress At(const char* text, std::uint16_t port = 0) {
    const bool ipv4 = std::string(text).find(':') == std::string::npos;
    sockaddr_in v4 = mdns_packets::Ipv4(text);
    v4.sin_family = AF_INET;
    sockaddr_in6 v6 = mdns_packets::Ipv6(text);
    v6.sin6_family = AF_INET6;
    SocketAddress address = ipv4 ? SocketAddress(v4) : SocketAddress(v6);
    address.setPort(port);
    return address;
  }
  static mdns_wrapper::InterfaceAddress Interface(unsigned index, const char* text) {
    SocketAddress address = At(text);
    address.setScope(index);
    return {index, address, At(address.isIpv4() ? "255.255.255.0" : "ffff:ffff:ffff:ffff::")};
  }

  /// What happens in the waits, one after another; then a stop is requested.
  void script(std::vector<std::function<void()>> steps) { steps_ = {steps.begin(), steps.end()}; }
  /// A packet for the open socket of an interface and family.
  void deliver(unsigned index, const char* from, const std::string& packet, Way way = {}) {
    const SocketAddress sender = At(from, way.port);
    for (const auto& [socket, address] : sockets_) {
      if (address.index == index && address.address.family() == sender.family()) {
        waiting_[socket].push_back({{0, sender, way.toGroup}, packet});
      }
    }
  }

  std::optional<mdns_wrapper::InterfaceList> interfaces() override { return list; }
  int open(const mdns_wrapper::InterfaceAddress& address, std::uint16_t port) override {
    if (held) {
      errno = EADDRINUSE;
      return -1;
    }
    ports.push_back(port);
    sockets_[++last_] = address;
    return last_;
  }
  void close(int socket) override { sockets_.erase(socket); }
  std::uint16_t portOf(int) override { return 40000; }
  bool send(int socket, const SocketAddress& to, std::span<const std::uint8_t> packet) override {
    if (failures > 0) {
      --failures;
      errno = EADDRNOTAVAIL;
      return false;
    }
    sent.push_back({socket, to.text(), {packet.begin(), packet.end()}, seconds()});
    return true;
  }
  std::optional<mdns_wrapper::ReceivedPacket> receive(int socket,
                                                      std::span<std::uint8_t> buffer) override {
    auto& queue = waiting_[socket];
    if (queue.empty()) return std::nullopt;
    auto [received, packet] = queue.front();
    queue.pop_front();
    received.size = std::min(buffer.size(), packet.size());
    std::copy_n(packet.begin(), received.size, buffer.begin());
    return received;
  }
  void wait(std::span<const int> sockets, std::chrono::milliseconds time,
            const mdns_wrapper::StopRequest& request, std::vector<int>& readable) override {
    if (steps_.empty()) const_cast<mdns_wrapper::StopRequest&>(request).make();
    if (!steps_.empty()) {
      const auto step = std::move(steps_.front());
      steps_.pop_front();
      if (step) step();
    }
    readable.clear();
    for (const int socket : sockets) {
      if (!waiting_[socket].empty()) readable.push_back(socket);
    }
    time_ += readable.empty() ? time : std::chrono::milliseconds(10);
  }
  Clock::time_point now() override { return time_; }
  std::chrono::milliseconds suspended() override { return slept; }

  std::size_t openSockets() const { return sockets_.size(); }
  double seconds() const { return std::chrono::duration<double>(time_ - kStart).count(); }

  mdns_wrapper::InterfaceList list;
  std::vector<Sent> sent;
  std::vector<std::uint16_t> ports;  ///< of all sockets ever opened
  int failures = 0;                  ///< of the next sends
  bool held = false;                 ///< the port, by another program
  std::chrono::milliseconds slept{0};

 private:
  struct Packet {
    mdns_wrapper::ReceivedPacket received;
    std::string bytes;
  };
  static constexpr Clock::time_point kStart{std::chrono::hours(1)};

  std::deque<std::function<void()>> steps_;
  std::map<int, mdns_wrapper::InterfaceAddress> sockets_;
  std::map<int, std::deque<Packet>> waiting_;
  int last_ = 0;
  Clock::time_point time_ = kStart;
};
