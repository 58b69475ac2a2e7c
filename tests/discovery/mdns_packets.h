// Packets as strings, for the tests of the packet layer.
#pragma once

#include <arpa/inet.h>

#include <array>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "discovery/reply_parser.h"
#include "discovery/wire/packet_writer.h"

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

/// A question packet from port 5353.
inline std::string Asked(std::string_view name, std::uint16_t type, std::uint16_t qclass = 1,
                         std::size_t times = 1, std::size_t flags = 0) {
  std::string packet = Header(times, 0, 0, 0, 7, flags);
  for (std::size_t i = 0; i < times; ++i) {
    packet += Built([&](auto buffer) {
      return static_cast<std::size_t>(mdns_wrapper::mdns_string_make(buffer.data(), buffer.size(),
                                                                     buffer.data(), name, nullptr) -
                                      buffer.data());
    });
    packet += Number(type) + Number(qclass);
  }
  return packet;
}

/// A packet in words: id, flags, question, then each record with type, class and lifetime.
inline std::string Described(const std::string& packet) {
  using namespace mdns_wrapper;
  PacketReader reader(Bytes(packet));
  mdns_header header;
  mdns_question question;
  mdns_received record;
  std::ostringstream words;
  if (!reader.read(header)) return "no header";
  words << "id " << header.id << " flags " << std::hex << header.flags;
  for (int i = 0; i < header.questions && reader.read(question); ++i) {
    words << " | " << question.name.view() << "? " << std::dec << question.type << ' ' << std::hex
          << question.qclass;
  }
  for (int i = 0; i < header.answers + header.additionals && reader.read(record); ++i) {
    words << (i < header.answers ? " | " : " + ") << record.name.view() << ' ' << std::dec
          << record.type << ' ' << std::hex << record.rclass << ' ' << std::dec << record.ttl;
    if (record.type != MDNS_TYPE_TXT) continue;
    for (std::size_t at = record.offset; at < record.end(); at += 1U + Bytes(packet)[at]) {
      words << ' ' << packet.substr(at + 1, Bytes(packet)[at]);
    }
  }
  if (reader.position() != packet.size()) words << " and more";
  return words.str();
}

}  // namespace mdns_packets
