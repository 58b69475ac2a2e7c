// What the responder tells of its service: the names, and the records under them.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "discovery/addresses.h"
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

  /// All types of services that there are -> this one.
  mdns_record_t allTypes() const { return {MDNS_ALL_TYPES, mdns_ptr{serviceType_}}; }
  /// Service type -> instance.
  mdns_record_t pointer() const { return {serviceType_, mdns_ptr{instanceName_}}; }
  /// Instance -> host and port.
  const mdns_record_t& service() const { return records_.front(); }
  /// Null where there is no such address.
  const mdns_record_t* ipv4() const { return hasIpv4_ ? &records_[1] : nullptr; }
  const mdns_record_t* ipv6() const { return hasIpv6_ ? &records_[1 + hasIpv4_] : nullptr; }
  /// The pairs of the instance's TXT record.
  RecordList text() const { return RecordList(records_).subspan(1 + hasIpv4_ + hasIpv6_); }

  /// What comes with the pointer: service, addresses, text.
  RecordList all() const { return records_; }
  /// The same when it is announced, and when it is taken back: without the last pair.
  RecordList announced() const { return all().first(records_.size() - 1); }
  /// What comes with the service: addresses, text. Resolvers by name ask for nothing else.
  RecordList withoutService() const { return all().subspan(1); }
  /// What comes with the text: addresses, and the service in front of them.
  RecordList withoutText() const { return all().first(1 + hasIpv4_ + hasIpv6_); }

 private:
  const std::string serviceType_;
  const std::string instanceName_;
  const std::string hostName_;
  const mdns_service_info info_;
  const std::string typeCode_;
  const std::string accessCode_;
  bool hasIpv4_ = false;
  bool hasIpv6_ = false;
  std::vector<mdns_record_t> records_;
};

}  // namespace mdns_wrapper
