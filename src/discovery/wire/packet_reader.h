// Reads received packets.
//
// A read is all or nothing: it takes a whole header, question or record and moves behind it, or it
// fails and stays where it was. No read goes beyond the packet, and none believes a count.
//
// A reader belongs to one thread. The packet must outlive what refers to it.
#pragma once

#include <cstddef>
#include <cstdint>

#include "discovery/wire/names.h"

namespace mdns_wrapper {

struct mdns_header {
  std::uint16_t id = 0;
  std::uint16_t flags = 0;
  std::uint16_t questions = 0;
  std::uint16_t answers = 0;
  std::uint16_t authorities = 0;
  std::uint16_t additionals = 0;

  bool operator==(const mdns_header&) const = default;
};

struct mdns_question {
  NameText name;
  std::uint16_t type = 0;
  std::uint16_t qclass = 0;

  bool wantsUnicast() const { return (qclass & MDNS_UNICAST_RESPONSE) != 0; }
};

/// A received record. Its data lies within the packet.
struct mdns_received {
  NameText name;
  std::uint16_t type = 0;
  std::uint16_t rclass = 0;
  std::uint32_t ttl = 0;
  std::size_t offset = 0;  ///< of the data
  std::uint16_t length = 0;

  std::size_t end() const { return offset + length; }
};

class PacketReader {
 public:
  explicit PacketReader(PacketBytes packet, std::size_t position = 0)
      : packet_(packet), position_(position) {}
  std::size_t position() const { return position_; }

  // Each returns whether it was read. What it read into means nothing when it was not.
  bool read(std::uint8_t& number);
  bool read(std::uint16_t& number);
  bool read(std::uint32_t& number);
  bool read(mdns_header& header);
  bool read(mdns_question& question);
  bool read(mdns_received& record);
  /// `text` may be null, to skip the name.
  bool readName(NameText* text);
  /// The bytes refer to the packet.
  bool readBytes(std::size_t length, PacketBytes& bytes);
  bool skipQuestion();

 private:
  class Attempt;

  const PacketBytes packet_;
  std::size_t position_;
};

}  // namespace mdns_wrapper
