// Addresses of sockets, and those of this machine that discovery works with.
//
// No state: any thread may call.
#pragma once

#include <netinet/in.h>
#include <sys/socket.h>

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

struct ifaddrs;

namespace mdns_wrapper {

/// The address of a socket, IPv4 or IPv6.
class SocketAddress {
 public:
  /// 0.0.0.0, without port.
  SocketAddress() : v4_() { v4_.sin_family = AF_INET; }
  explicit SocketAddress(const sockaddr_in& address) : v4_(address) {}
  explicit SocketAddress(const sockaddr_in6& address) : v6_(address) {}
  /// None for null and for families other than the two.
  static std::optional<SocketAddress> from(const sockaddr* address);

  int family() const { return any_.sa_family; }
  bool isIpv4() const { return family() == AF_INET; }
  const sockaddr_in& v4() const { return v4_; }
  const sockaddr_in6& v6() const { return v6_; }
  const sockaddr* data() const { return &any_; }
  socklen_t size() const { return static_cast<socklen_t>(isIpv4() ? sizeof v4_ : sizeof v6_); }

  std::uint16_t port() const;
  void setPort(std::uint16_t port);
  /// Which interface an IPv6 address belongs to, for those that need it: link-local ones and
  /// groups.
  void setScope(std::uint32_t index);

  /// The four or sixteen bytes of the address itself. They refer to this object.
  std::span<const std::uint8_t> bytes() const;
  /// Family, address and scope as bytes, without the port: a key for maps.
  using Host = std::array<std::uint8_t, 21>;
  Host host() const;

  /// "10.0.0.1" or "fe80::1%eth0", with a port "10.0.0.1:5353" or "[fe80::1%eth0]:5353". At most
  /// 127 characters.
  std::string text() const;
  /// Without port and scope, as records have it.
  std::string addressText() const;

  bool operator==(const SocketAddress& other) const;

  /// 127.0.0.1, ::1 and the IPv4-mapped form of the first.
  bool isLoopback() const;
  /// 169.254.0.0/16 (RFC 3927) and fe80::/10 (RFC 4291, 2.5.6): no router passes those on.
  bool isLinkLocal() const;
  /// Whether both are of one family and agree in all bits that the mask has set.
  bool sharesNetwork(const SocketAddress& other, const SocketAddress& mask) const;

 private:
  union {
    sockaddr any_;
    sockaddr_in v4_;
    sockaddr_in6 v6_;
  };
};

/// An address and the network around it.
struct InterfaceAddress {
  std::uint32_t index = 0;  ///< of the interface; never 0 for one that exists
  SocketAddress address;    ///< without port; a link-local one with the interface as scope
  std::optional<SocketAddress> mask;
  /// How often the carrier of the interface has come and gone: where it was gone for a moment only
  /// this entry is another one, too.
  std::uint32_t carrierChanges = 0;

  bool operator==(const InterfaceAddress&) const = default;
};
using InterfaceList = std::vector<InterfaceAddress>;

/// The usable addresses, in the system's order: of interfaces that are up and connected, and not
/// loopback. None when the system does not tell.
std::optional<InterfaceList> UsableInterfaces();

/// The same of a walk's list; an entry may lack its address.
InterfaceList UsableOf(const ifaddrs* entries);

/// The first address of a family, null when there is none. It refers to the list.
const SocketAddress* FirstOf(const InterfaceList& list, int family);

}  // namespace mdns_wrapper
