// Turns the records of a reply into what they tell about services, and logs them.
//
// Any thread may call. Every packet may come from an attacker.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>

#include "discovery/mdns_log.h"
#include "discovery/wire/packet_reader.h"

namespace mdns_wrapper {

/// The section that a received record stood in.
enum class mdns_entry_type { answer = 1, authority = 2, additional = 3 };
/// "answer", "authority" or "additional".
const char* EntryTypeName(mdns_entry_type entry);

/// What one received record tells about a service.
struct mdns_query_result {
  mdns_entry_type entry = mdns_entry_type::answer;
  bool goodbye = false;  ///< its lifetime is 0: what it tells holds no longer (RFC 6762, 10.1)
  /// Of an answer that is a PTR, SRV or TXT record: the service instance that it speaks of.
  std::string instance;
  std::string ipv4;  ///< the text of an A record's address
  std::string ipv6;  ///< the text of an AAAA record's address
  std::map<std::string, std::string> txt;

  bool operator==(const mdns_query_result&) const = default;
};
using RecordFound = std::function<void(const mdns_query_result&)>;

/// By whom the records were sent, and where they are logged; null: nowhere.
struct RecordLog {
  std::string_view sender;
  NeighbourLog* log = nullptr;

  bool mayWrite() const { return log != nullptr && log->mayWrite(); }
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
