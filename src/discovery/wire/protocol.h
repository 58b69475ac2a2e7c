// The numbers of multicast DNS, and the limits that this system sets itself.
#pragma once

#include <cstddef>
#include <cstdint>

namespace mdns_wrapper {

inline constexpr std::uint16_t MDNS_PORT = 5353;                           ///< RFC 6762, 3
inline constexpr char MDNS_GROUP_IPV4[] = "224.0.0.251";                   ///< RFC 6762, 3
inline constexpr char MDNS_GROUP_IPV6[] = "ff02::fb";                      ///< RFC 6762, 3
inline constexpr char MDNS_ALL_TYPES[] = "_services._dns-sd._udp.local.";  ///< RFC 6763, 9

/// Types of records: RFC 1035, 3.2.2 and 3.2.3; AAAA: RFC 3596, 2.1; SRV: RFC 2782.
inline constexpr std::uint16_t MDNS_TYPE_A = 1;
inline constexpr std::uint16_t MDNS_TYPE_PTR = 12;
inline constexpr std::uint16_t MDNS_TYPE_TXT = 16;
inline constexpr std::uint16_t MDNS_TYPE_AAAA = 28;
inline constexpr std::uint16_t MDNS_TYPE_SRV = 33;
inline constexpr std::uint16_t MDNS_TYPE_ANY = 255;

inline constexpr std::uint16_t MDNS_CLASS_IN = 1;                 ///< RFC 1035, 3.2.4
inline constexpr std::uint16_t MDNS_UNICAST_RESPONSE = 0x8000;    ///< in a question: RFC 6762, 5.4
inline constexpr std::uint16_t MDNS_CACHE_FLUSH = 0x8000;         ///< in a record: RFC 6762, 10.2
inline constexpr std::uint16_t MDNS_FLAG_RESPONSE = 0x8000;       ///< RFC 6762, 18.2
inline constexpr std::uint16_t MDNS_OPCODE = 0x7800;              ///< RFC 6762, 18.3
inline constexpr std::uint16_t MDNS_RESPONSE_CODE = 0x000F;       ///< RFC 6762, 18.11
inline constexpr std::uint16_t MDNS_FLAG_AUTHORITATIVE = 0x0400;  ///< RFC 6762, 18.4

inline constexpr std::size_t MDNS_HEADER_BYTES = 12;         ///< RFC 1035, 4.1.1
inline constexpr std::size_t MDNS_RECORD_HEADER_BYTES = 10;  ///< behind the owner: RFC 1035, 4.1.3
inline constexpr std::size_t MDNS_LONGEST_LABEL = 63;        ///< RFC 1035, 2.3.4
inline constexpr std::uint8_t MDNS_POINTER = 0xC0;           ///< first byte: RFC 1035, 4.1.4
inline constexpr std::size_t MDNS_POINTER_REACH = 0x4000;    ///< 14 bits: RFC 1035, 4.1.4
inline constexpr std::size_t MDNS_LONGEST_TXT_STRING = 255;  ///< RFC 6763, 6.1

/// Sent and received. A packet should fit one Ethernet frame (RFC 6762, 17); this leaves room.
inline constexpr std::size_t MDNS_PACKET_BYTES = 2048;
/// A buffer for an answer to all has at least this; a smaller one is refused untouched.
inline constexpr std::size_t MDNS_LEAST_ANSWER_BYTES = 48;
/// A name that was compressed again and again takes a few hops; a loop takes any number.
inline constexpr int MDNS_MOST_HOPS = 16;
/// Services and hosts have five or so. Bounds the work that one name may cause.
inline constexpr int MDNS_MOST_LABELS = 65;
/// Four times the longest name there can be (RFC 1035, 2.3.4); what is beyond it is cut.
inline constexpr std::size_t MDNS_NAME_TEXT_BYTES = 1024;
/// Pairs that are read of one TXT record. The services known have about ten.
inline constexpr int MDNS_MOST_TXT_STRINGS = 128;

/// What an answer says about itself: its class, and the seconds for which it holds.
struct mdns_lifetime {
  std::uint16_t rclass;
  std::uint32_t ttl;
};
inline constexpr mdns_lifetime MDNS_ANNOUNCEMENT = {MDNS_CACHE_FLUSH | MDNS_CLASS_IN, 60};
inline constexpr mdns_lifetime MDNS_GOODBYE = {MDNS_CACHE_FLUSH | MDNS_CLASS_IN, 0};
inline constexpr mdns_lifetime MDNS_MULTICAST_ANSWER = {MDNS_CLASS_IN, 60};
inline constexpr mdns_lifetime MDNS_UNICAST_ANSWER = {MDNS_CACHE_FLUSH | MDNS_CLASS_IN, 10};
/// To an asker that knows nothing of caches to flush (RFC 6762, 6.7).
inline constexpr mdns_lifetime MDNS_SIMPLE_ANSWER = {MDNS_CLASS_IN, 10};

}  // namespace mdns_wrapper
