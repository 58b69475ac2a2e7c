#include "discovery/interfaces.h"

#include <ifaddrs.h>
#include <net/if.h>

#include <algorithm>
#include <memory>

namespace mdns_wrapper {
namespace {

/// Whatever address the loopback interface has, no other machine reaches it.
bool IsUsable(const ifaddrs& entry, const SocketAddress& address) {
  constexpr unsigned int kConnected = IFF_UP | IFF_RUNNING;
  return (entry.ifa_flags & (kConnected | IFF_LOOPBACK)) == kConnected && !address.isLoopback();
}

}  // namespace

InterfaceList UsableOf(const ifaddrs* entries) {
  InterfaceList list;
  for (const ifaddrs* entry = entries; entry != nullptr; entry = entry->ifa_next) {
    std::optional<SocketAddress> address = SocketAddress::from(entry->ifa_addr);
    if (!address || !IsUsable(*entry, *address)) continue;
    const std::uint32_t index = ::if_nametoindex(entry->ifa_name);
    if (index == 0) continue;  // gone since the walk
    address->setPort(0);
    address->setScope(address->isLinkLocal() ? index : 0);
    list.push_back({index, *address, SocketAddress::from(entry->ifa_netmask)});
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
