// The binary form of a list of services, in which the browser hands it over as one byte string:
// the count, then of each record ty, accessMode, ipv4, ipv6, modules, os, tags, type, url, id and
// txtvers. Integers are 32 bits, little-endian; a string is its length and its bytes.
//
// Free functions without state: any thread may call. The byte strings may come from anywhere.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "discovery/service_record.h"

class CMemBuffer;

namespace mdns_wrapper {

using ServiceList = std::vector<DNSServiceInfo>;

/// Far above what any network holds; a count beyond it is damage.
inline constexpr std::size_t MOST_SERVICES = 65536;

/// "" for a list that has no such form: more than MOST_SERVICES, or 4 GiB of text.
std::string Serialize(const ServiceList& services);
/// The list that the bytes begin with; what follows it is ignored. It has as many records as the
/// bytes say; where they end too early the rest stays cleared. A count below 1 or above
/// MOST_SERVICES gives an empty list, so no claim costs more than some 20 MB.
ServiceList Deserialize(const std::string& bytes);

/// The string at the stream's position, "" when there is none; then the position stays.
std::string ReadString(CMemBuffer& stream);

}  // namespace mdns_wrapper
