// Packets as strings, for the tests of the packet layer.
#pragma once

#include <arpa/inet.h>

#include <array>
#include <string>
#include <string_view>
#include <vector>

#include "discovery/mdns_reader.h"
#include "discovery/mdns_writer.h"

namespace mdns_packets {

inline mdns_wrapper::PacketBytes Bytes(std::string_view text) {
  return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

/// Two bytes, most significant first.
inline std::string Number(std::size_t number) {
  return {static_cast<char>(number >> 8), static_cast<char>(number)};
}

inline std::string Header(std::size_t questions, std::size_t answers, std::size_t authorities,
                          std::size_t additionals, std::size_t id = 0, std::size_t flags = 0x8400) {
  return Number(id) + Number(flags) + Number(questions) + Number(answers) + Number(authorities) +
         Number(additionals);
}

/// What stands between a record's owner and its data.
inline std::string Fields(std::size_t type, std::size_t rclass, std::size_t ttl,
                          std::size_t length) {
  return Number(type) + Number(rclass) + Number(ttl >> 16) + Number(ttl) + Number(length);
}

/// A record with the root as owner.
inline std::string Record(std::size_t type, std::string_view data) {
  return std::string(1, '\0') + Fields(type, 1, 60, data.size()) + std::string(data);
}

inline sockaddr_in Ipv4(const char* text) {
  sockaddr_in address{};
  inet_pton(AF_INET, text, &address.sin_addr);
  return address;
}

inline sockaddr_in6 Ipv6(const char* text) {
  sockaddr_in6 address{};
  inet_pton(AF_INET6, text, &address.sin6_addr);
  return address;
}

/// The size that a builder gives, as the packet's bytes.
template <class Build>
std::string Built(Build build) {
  std::array<std::uint8_t, 4096> buffer;
  const std::size_t size = build(std::span<std::uint8_t>(buffer));
  return {reinterpret_cast<const char*>(buffer.data()), size};
}

/// Every result of a reply, in order.
inline std::vector<mdns_wrapper::mdns_query_result> ResultsOf(std::string_view packet,
                                                              std::uint16_t queryId = 0) {
  std::vector<mdns_wrapper::mdns_query_result> results;
  const std::size_t walked = mdns_wrapper::ParseReply(
      Bytes(packet), queryId, {}, [&](const auto& result) { results.push_back(result); });
  return walked == results.size() ? results : decltype(results)();
}

}  // namespace mdns_packets
