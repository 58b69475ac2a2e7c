// One advertised or discovered scanning service, and the binary form of a list of them.
//
// Free functions without state: any thread may call. Byte strings and texts may come from anywhere.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

class CMemBuffer;

namespace mdns_wrapper {

inline constexpr std::int32_t SERVICE_UNKNOWN = 0;
inline constexpr std::int32_t SERVICE_TWAIN_DIRECT = 1;
inline constexpr std::int32_t SERVICE_PRIVATE_CLOUD_SCAN = 2;

inline constexpr std::int32_t ACCESS_ANONYMOUS = 0;
inline constexpr std::int32_t ACCESS_PASSWORD = 1;

struct DNSServiceInfo {
  std::int32_t type = SERVICE_UNKNOWN;
  std::string ipv4;  ///< addresses of the host, as text
  std::string ipv6;
  std::string url;
  std::string ty;    ///< the name to show
  std::string tags;  ///< set by the user
  std::string id;    ///< when set, also the advertised instance name
  std::string modules;
  std::string os;
  std::int32_t accessMode = ACCESS_ANONYMOUS;
  std::string txtvers;

  /// To the state of a new record.
  void clear() { *this = DNSServiceInfo(); }
  bool operator==(const DNSServiceInfo&) const = default;
};

/// What the pairs of a received TXT record and the two addresses tell about a service. Keys and the
/// words for kinds and access modes count without ASCII case; later keys, in byte order, win. A
/// service of a kind that is not ours has neither url nor txtvers: its own mean something else.
DNSServiceInfo serviceInfoFromTxt(const std::string& ipv4, const std::string& ipv6,
                                  const std::map<std::string, std::string>& pairs);

using ServiceList = std::vector<DNSServiceInfo>;

/// Far above what any network holds; a count beyond it is damage.
inline constexpr std::size_t MOST_SERVICES = 65536;

// The binary form, in which the browser hands a list over as one byte string: the count, then of
// each record ty, accessMode, ipv4, ipv6, modules, os, tags, type, url, id and txtvers. Integers
// are 32 bits, little-endian; a string is its length and its bytes.

/// "" for a list that has no such form: more than MOST_SERVICES, or 4 GiB of text.
std::string Serialize(const ServiceList& services);
/// The list that the bytes begin with; what follows it is ignored. It has as many records as the
/// bytes say; where they end too early the rest stays cleared. The list is empty when the count is
/// below 1 or above MOST_SERVICES, or above 1,024 without the bytes that so many records need: a
/// false count costs no more than some 300 KB.
ServiceList Deserialize(const std::string& bytes);

/// The string at the stream's position, "" when there is none; then the position stays.
std::string ReadString(CMemBuffer& stream);

}  // namespace mdns_wrapper
