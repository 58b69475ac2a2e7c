// One advertised or discovered scanning service.
#pragma once

#include <cstdint>
#include <map>
#include <string>

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

}  // namespace mdns_wrapper
