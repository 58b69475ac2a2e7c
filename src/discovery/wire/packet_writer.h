// Builds packets: the query, and answers with what belongs to them.
//
// Everything is written into the caller's buffer and never beyond it. What does not fit, or has a
// name that cannot be written, gives null or a size of 0, and then the buffer's contents mean
// nothing. A name that ends like one before it goes on in that one (RFC 6762, 18.14).
//
// No state and no allocation: any thread may call. Texts need to last for the call only.
#pragma once

#include <netinet/in.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <variant>

#include "discovery/wire/protocol.h"

namespace mdns_wrapper {

struct mdns_ptr {
  std::string_view target;
};
struct mdns_srv {
  std::uint16_t priority = 0;
  std::uint16_t weight = 0;
  std::uint16_t port = 0;
  std::string_view target;
};
struct mdns_txt {
  std::string_view key;
  std::string_view value;
};

/// A record to be written. What it holds decides its type: a sockaddr_in makes it an A record, a
/// sockaddr_in6 an AAAA record. A TXT record holds one pair; lists of them become one record.
struct mdns_record_t {
  std::string_view name;
  std::variant<mdns_ptr, mdns_srv, sockaddr_in, sockaddr_in6, mdns_txt> data;
};
using RecordList = std::span<const mdns_record_t>;

/// Where in a packet labels stand that later names may end in. One table belongs to one packet.
/// Names beyond those that it holds are written out in full.
struct mdns_string_table_t {
  std::array<std::uint16_t, 64> offsets;  ///< several times the labels of one service
  std::size_t count = 0;
};

// The building blocks. A packet begins at `buffer`, which has `capacity` bytes; what is added
// begins at `data`, in or at the end of it. Each returns the end of what it added. A null `data`
// gives null, so that calls can follow each other unchecked. On failure the table is as before.

/// Adds a name, whose last "." does not count; "" is the root. A null table: without compression.
/// Null when a label is empty or has more than 63 bytes.
std::uint8_t* mdns_string_make(std::uint8_t* buffer, std::size_t capacity, std::uint8_t* data,
                               std::string_view name, mdns_string_table_t* table);
std::uint8_t* mdns_answer_add_record(std::uint8_t* buffer, std::size_t capacity, std::uint8_t* data,
                                     const mdns_record_t& record, std::uint16_t rclass,
                                     std::uint32_t ttl, mdns_string_table_t* table);
/// Adds the TXT records of the list as one, with the owner of the first; nothing when it has none.
/// Each pair becomes "key=value", cut to 255 bytes.
std::uint8_t* mdns_answer_add_txt_record(std::uint8_t* buffer, std::size_t capacity,
                                         std::uint8_t* data, RecordList records,
                                         std::uint16_t rclass, std::uint32_t ttl,
                                         mdns_string_table_t* table);

// Whole packets. Each returns the packet's size, at most MDNS_PACKET_BYTES however large the buffer
// is; 0 when there is no such packet.

/// One question. `sourcePort` is that of the socket it goes out by: from any but MDNS_PORT it asks
/// for an answer to that socket alone.
std::size_t MakeQuery(std::span<std::uint8_t> buffer, std::string_view name, std::uint16_t type,
                      std::uint16_t sourcePort);

// The TXT records of a section come last in it, as one. The answer is normally a single record.

/// An announcement, a goodbye or an answer to all, depending on the lifetime.
std::size_t MakeMulticastAnswer(std::span<std::uint8_t> buffer, RecordList answer,
                                RecordList additional, const mdns_lifetime& lifetime);

/// What was asked, for its asker alone.
struct AskedQuestion {
  std::uint16_t queryId = 0;
  std::string_view name;
  std::uint16_t type = 0;
  std::uint16_t qclass = MDNS_UNICAST_RESPONSE | MDNS_CLASS_IN;
};
/// An answer that repeats the question. To one that did not ask for a unicast answer its records
/// flush no cache.
std::size_t MakeUnicastAnswer(std::span<std::uint8_t> buffer, const AskedQuestion& question,
                              RecordList answer, RecordList authority, RecordList additional);

}  // namespace mdns_wrapper
