// A network of one interface on which packets are kept and none arrives.
#pragma once

#include <string>
#include <vector>

#include "discovery/network.h"

class NullNetwork : public mdns_wrapper::MdnsNetwork {
 public:
  mdns_wrapper::SocketAddress neighbour() const { return address(0x0A000009); }

  std::optional<mdns_wrapper::InterfaceList> interfaces() override {
    return mdns_wrapper::InterfaceList{{1, address(0x0A000005), address(0xFFFFFF00)}};
  }
  int open(const mdns_wrapper::InterfaceAddress&, std::uint16_t) override { return 1; }
  void close(int) override {}
  std::uint16_t portOf(int) override { return 0; }
  bool send(int, const mdns_wrapper::SocketAddress&,
            std::span<const std::uint8_t> packet) override {
    sent.emplace_back(packet.begin(), packet.end());
    return true;
  }
  std::optional<mdns_wrapper::ReceivedPacket> receive(int, std::span<std::uint8_t>) override {
    return std::nullopt;
  }
  void wait(std::span<const int>, std::chrono::milliseconds, const mdns_wrapper::StopRequest&,
            std::vector<int>& readable) override {
    readable.clear();
  }
  Clock::time_point now() override { return Clock::time_point(std::chrono::hours(1)); }
  std::chrono::milliseconds suspended() override { return {}; }

  std::vector<std::string> sent;

 private:
  static mdns_wrapper::SocketAddress address(std::uint32_t number) {
    sockaddr_in ipv4{};
    ipv4.sin_family = AF_INET;
    ipv4.sin_addr.s_addr = htonl(number);
    return mdns_wrapper::SocketAddress(ipv4);
  }
};
