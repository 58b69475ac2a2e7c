// What the responder tells of its service: the names, and the records under them.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>
#include <vector>

#include "discovery/addresses.h"
#include "discovery/wire/packet_reader.h"
#include "discovery/wire/packet_writer.h"

namespace mdns_wrapper {

/// What the responder's loop is given. Texts as in DNSServiceInfo.
struct mdns_service_info {
  std::string hostname;  ///< the instance: one label
  std::string service;   ///< the service type, such as "_privet._tcp.local."
  std::uint16_t port = 0;
  std::string ipv4;
  std::string ipv6;
  std::string id;
  std::string ty;
  std::string modules;
  std::string url;
  std::string os;
  std::string txtvers;
  std::int32_t type = 0;
  std::int32_t acessmode = 0;
  std::string tags;
};

/// The records of the service, in the order in which packets have them.
enum class Advertised : unsigned {
  kTypes,    ///< all types of services that there are -> this one
  kPointer,  ///< service type -> instance
  kService,  ///< instance -> host and port
  kIpv4,     ///< host -> addresses
  kIpv6,
  kText,  ///< instance -> what to know of it
};
inline constexpr std::array ADVERTISED_KINDS = {Advertised::kTypes,   Advertised::kPointer,
                                                Advertised::kService, Advertised::kIpv4,
                                                Advertised::kIpv6,    Advertised::kText};
/// Something for each of them.
template <class Value>
class ByAdvertised {
 public:
  Value& operator[](Advertised kind) { return values_[static_cast<std::size_t>(kind)]; }
  const Value& operator[](Advertised kind) const { return values_[static_cast<std::size_t>(kind)]; }

 private:
  std::array<Value, ADVERTISED_KINDS.size()> values_{};
};

/// Some of them.
class AdvertisedSet {
 public:
  constexpr AdvertisedSet() = default;
  constexpr AdvertisedSet(std::initializer_list<Advertised> kinds) {
    for (const Advertised kind : kinds) add(kind);
  }
  constexpr void add(Advertised kind) { bits_ |= 1U << static_cast<unsigned>(kind); }
  constexpr bool has(Advertised kind) const {
    return (bits_ & 1U << static_cast<unsigned>(kind)) != 0;
  }
  constexpr bool empty() const { return bits_ == 0; }
  constexpr AdvertisedSet operator|(AdvertisedSet other) const {
    return AdvertisedSet(bits_ | other.bits_);
  }
  constexpr AdvertisedSet operator&(AdvertisedSet other) const {
    return AdvertisedSet(bits_ & other.bits_);
  }
  constexpr AdvertisedSet without(AdvertisedSet other) const {
    return AdvertisedSet(bits_ & ~other.bits_);
  }

 private:
  constexpr explicit AdvertisedSet(unsigned bits) : bits_(bits) {}
  unsigned bits_ = 0;
};

/// The records refer to this object, so it stays where it is. It never changes: any thread may
/// read.
class AdvertisedRecords {
 public:
  /// The address of an A record is the one that `ipv4` tells. That of an AAAA record, wanted when
  /// `ipv6` is not empty, is the first of the interfaces: the text's own is looked at only for an
  /// IPv4 address, which then takes the first four bytes. Where there is no address, there is no
  /// record.
  AdvertisedRecords(const mdns_service_info& info, const SocketAddress* firstIpv6);
  AdvertisedRecords(const AdvertisedRecords&) = delete;
  AdvertisedRecords& operator=(const AdvertisedRecords&) = delete;

  const std::string& serviceType() const { return serviceType_; }
  const std::string& instanceName() const { return instanceName_; }
  const std::string& hostName() const { return hostName_; }

  /// The record of a kind, which for kText is one of several pairs; empty where there is none.
  RecordList of(Advertised kind) const;
  const mdns_record_t& pointer() const { return of(Advertised::kPointer).front(); }
  /// What comes with the pointer when it is announced, and when it is taken back: service,
  /// addresses and text, without the last pair of it.
  RecordList announced() const;

  /// The records that have a name.
  AdvertisedSet under(std::string_view name) const;
  /// The one that a received record has name and type of.
  std::optional<Advertised> find(const mdns_received& record) const;
  /// Whether a received record, whose name and type are those of a kind, has the same data, too.
  bool hasSameData(Advertised kind, PacketBytes packet, const mdns_received& record) const;

 private:
  const std::string serviceType_;
  const std::string instanceName_;
  const std::string hostName_;
  const mdns_service_info info_;
  const std::string typeCode_;
  const std::string accessCode_;
  std::vector<mdns_record_t> records_;
  ByAdvertised<std::size_t> ends_;  ///< of each kind in records_
};

}  // namespace mdns_wrapper
