// Reads received packets.
//
// A read is all or nothing: it takes a whole header, question or record and moves behind it, or it
// fails and stays where it was. No read goes beyond the packet, and none believes a count.
//
// A reader belongs to one thread; the functions may be called from any. The packet must outlive
// what refers to it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>

#include "discovery/dns_name.h"

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

/// The section that a received record stood in.
enum class mdns_entry_type { answer = 1, authority = 2, additional = 3 };
/// "answer", "authority" or "additional".
const char* EntryTypeName(mdns_entry_type entry);

/// What one received record tells about a service.
struct mdns_query_result {
  mdns_entry_type entry = mdns_entry_type::answer;
  std::string ipv4;  ///< the text of an A record's address
  std::string ipv6;  ///< the text of an AAAA record's address
  std::map<std::string, std::string> txt;

  bool operator==(const mdns_query_result&) const = default;
};
using RecordFound = std::function<void(const mdns_query_result&)>;

/// How records are logged: by whom they were sent, and whether at all (see mdns_log_wanted).
struct RecordLog {
  std::string_view sender;
  bool wanted = false;
};

/// Walks up to `count` records from `offset`, logs each and calls `found` for each, whatever its
/// type. Stops at a malformed record. Returns how many were walked; `offset` is then behind those.
std::size_t mdns_records_parse(PacketBytes packet, std::size_t& offset, mdns_entry_type entry,
                               std::size_t count, const RecordLog& log, const RecordFound& found);

/// Walks the records of a reply, section by section; the walk of all ends where one of them is
/// malformed. A reply with more than one question is dropped, and so is one with an id other than
/// that of the query, unless the query's was 0. Returns how many were walked.
std::size_t ParseReply(PacketBytes packet, std::uint16_t queryId, const RecordLog& log,
                       const RecordFound& found);

}  // namespace mdns_wrapper
