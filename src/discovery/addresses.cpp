#include "discovery/addresses.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netdb.h>

#include <algorithm>
#include <cstring>
#include <memory>

#include "os/system.h"

namespace mdns_wrapper {
namespace {

/// Whatever address the loopback interface has, no other machine reaches it.
bool IsUsable(const ifaddrs& entry, const SocketAddress& address) {
  constexpr unsigned int kConnected = IFF_UP | IFF_RUNNING;
  return (entry.ifa_flags & (kConnected | IFF_LOOPBACK)) == kConnected && !address.isLoopback();
}

/// An address's mask. Some systems tell masks without a family, and without the zeros at their end.
std::optional<SocketAddress> MaskOf(const SocketAddress& address, const sockaddr* told) {
  if (told == nullptr) return std::nullopt;
  if (told->sa_family != AF_UNSPEC && told->sa_family != address.family()) return std::nullopt;
  sockaddr_storage whole{};
  std::memcpy(&whole, told, std::min(os::SizeOfAddress(*told), sizeof whole));
  whole.ss_family = address.data()->sa_family;
  return SocketAddress::from(reinterpret_cast<const sockaddr*>(&whole));
}

}  // namespace

std::optional<SocketAddress> SocketAddress::from(const sockaddr* address) {
  if (address == nullptr) return std::nullopt;
  // Copied, because what the system hands out may be aligned for less.
  if (address->sa_family == AF_INET) {
    sockaddr_in v4;
    std::memcpy(&v4, address, sizeof v4);
    return SocketAddress(v4);
  }
  if (address->sa_family == AF_INET6) {
    sockaddr_in6 v6;
    std::memcpy(&v6, address, sizeof v6);
    return SocketAddress(v6);
  }
  return std::nullopt;
}

std::uint16_t SocketAddress::port() const { return ntohs(isIpv4() ? v4_.sin_port : v6_.sin6_port); }

void SocketAddress::setPort(std::uint16_t port) {
  (isIpv4() ? v4_.sin_port : v6_.sin6_port) = htons(port);
}

void SocketAddress::setScope(std::uint32_t index) {
  if (!isIpv4()) v6_.sin6_scope_id = index;
}

std::span<const std::uint8_t> SocketAddress::bytes() const {
  if (isIpv4()) return {reinterpret_cast<const std::uint8_t*>(&v4_.sin_addr), sizeof v4_.sin_addr};
  return v6_.sin6_addr.s6_addr;
}

SocketAddress::Host SocketAddress::host() const {
  Host host{};
  host[0] = isIpv4() ? 4 : 6;
  std::ranges::copy(bytes(), host.begin() + 1);
  if (!isIpv4()) std::memcpy(host.data() + 17, &v6_.sin6_scope_id, 4);
  return host;
}

std::string SocketAddress::text() const {
  constexpr std::size_t kLongest = 127;
  char host[NI_MAXHOST];
  if (::getnameinfo(data(), size(), host, sizeof host, nullptr, 0, NI_NUMERICHOST) != 0) return "";
  std::string text = host;
  if (port() != 0) {
    text = (isIpv4() ? text : "[" + text + "]") + ":" + std::to_string(port());
  }
  return text.substr(0, kLongest);
}

std::string SocketAddress::addressText() const {
  char text[INET6_ADDRSTRLEN];
  const bool made = ::inet_ntop(family(), bytes().data(), text, sizeof text) != nullptr;
  return made ? text : "";
}

bool SocketAddress::operator==(const SocketAddress& other) const {
  if (family() != other.family() || port() != other.port()) return false;
  if (!isIpv4() && v6_.sin6_scope_id != other.v6_.sin6_scope_id) return false;
  return std::ranges::equal(bytes(), other.bytes());
}

bool SocketAddress::isLoopback() const {
  if (isIpv4()) return v4_.sin_addr.s_addr == htonl(INADDR_LOOPBACK);
  if (IN6_IS_ADDR_LOOPBACK(&v6_.sin6_addr)) return true;
  constexpr std::uint8_t kMapped[] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF, 127, 0, 0, 1};
  return std::memcmp(v6_.sin6_addr.s6_addr, kMapped, sizeof kMapped) == 0;
}

bool SocketAddress::isLinkLocal() const {
  if (!isIpv4()) return IN6_IS_ADDR_LINKLOCAL(&v6_.sin6_addr);
  return (ntohl(v4_.sin_addr.s_addr) & 0xFFFF0000U) == 0xA9FE0000U;
}

bool SocketAddress::sharesNetwork(const SocketAddress& other, const SocketAddress& mask) const {
  if (family() != other.family() || family() != mask.family()) return false;
  for (std::size_t i = 0; i < bytes().size(); ++i) {
    if (((bytes()[i] ^ other.bytes()[i]) & mask.bytes()[i]) != 0) return false;
  }
  return true;
}

InterfaceList UsableOf(const ifaddrs* entries) {
  InterfaceList list;
  for (const ifaddrs* entry = entries; entry != nullptr; entry = entry->ifa_next) {
    std::optional<SocketAddress> address = SocketAddress::from(entry->ifa_addr);
    if (!address || !IsUsable(*entry, *address)) continue;
    const std::uint32_t index = ::if_nametoindex(entry->ifa_name);
    if (index == 0) continue;  // gone since the walk
    address->setPort(0);
    address->setScope(address->isLinkLocal() ? index : 0);
    list.push_back({index, *address, MaskOf(*address, entry->ifa_netmask),
                    os::CarrierChanges(entry->ifa_name)});
  }
  return list;
}

std::optional<InterfaceList> UsableInterfaces() {
  ifaddrs* entries = nullptr;
  if (::getifaddrs(&entries) != 0) return std::nullopt;
  const std::unique_ptr<ifaddrs, decltype(&::freeifaddrs)> owner(entries, &::freeifaddrs);
  return UsableOf(entries);
}

const SocketAddress* FirstOf(const InterfaceList& list, int family) {
  const auto found = std::find_if(list.begin(), list.end(), [&](const InterfaceAddress& entry) {
    return entry.address.family() == family;
  });
  return found == list.end() ? nullptr : &found->address;
}

}  // namespace mdns_wrapper
