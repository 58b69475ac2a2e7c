#include "discovery/advertised_records.h"

#include <arpa/inet.h>

#include <cstring>
#include <optional>
#include <utility>

namespace mdns_wrapper {
namespace {

constexpr std::size_t kLongestName = 255;  // RFC 1035, 2.3.4

std::string WithLastDot(std::string name) {
  if (!name.ends_with('.')) name += '.';
  return name;
}

/// The number as the one character with that code, neither digits nor the words that readers of
/// the text know: so this service has always said it.
std::string CodeOf(std::int32_t number) { return std::string(1, static_cast<char>(number)); }

std::optional<in_addr> ParseIpv4(const std::string& text) {
  in_addr address{};
  if (::inet_pton(AF_INET, text.c_str(), &address) != 1) return std::nullopt;
  return address;
}

std::optional<sockaddr_in6> Ipv6Address(const std::string& text, const SocketAddress* first) {
  if (text.empty()) return std::nullopt;
  const std::optional<in_addr> told = ParseIpv4(text);
  if (first == nullptr && !told) return std::nullopt;
  sockaddr_in6 address{};
  address.sin6_family = AF_INET6;
  if (first != nullptr) address.sin6_addr = first->v6().sin6_addr;
  if (told) std::memcpy(address.sin6_addr.s6_addr, &*told, sizeof *told);
  return address;
}

}  // namespace

AdvertisedRecords::AdvertisedRecords(const mdns_service_info& info, const SocketAddress* firstIpv6)
    : serviceType_(WithLastDot(info.service)),
      instanceName_((info.hostname + "." + serviceType_).substr(0, kLongestName)),
      hostName_((info.hostname + ".local.").substr(0, kLongestName)),
      info_(info),
      typeCode_(CodeOf(info.type)),
      accessCode_(CodeOf(info.acessmode)) {
  records_.push_back({instanceName_, mdns_srv{0, 0, info_.port, hostName_}});
  if (const auto address = ParseIpv4(info_.ipv4)) {
    sockaddr_in record{};
    record.sin_family = AF_INET;
    record.sin_addr = *address;
    records_.push_back({hostName_, record});
    hasIpv4_ = true;
  }
  if (const auto address = Ipv6Address(info_.ipv6, firstIpv6)) {
    records_.push_back({hostName_, *address});
    hasIpv6_ = true;
  }
  const std::pair<const char*, const std::string&> kPairs[] = {
      {"id", info_.id},           {"ty", info_.ty},           {"txtvers", info_.txtvers},
      {"url", info_.url},         {"type", typeCode_},        {"os", info_.os},
      {"modules", info_.modules}, {"acessmode", accessCode_}, {"tags", info_.tags}};
  for (const auto& [key, value] : kPairs) {
    records_.push_back({instanceName_, mdns_txt{key, value}});
  }
}

}  // namespace mdns_wrapper
