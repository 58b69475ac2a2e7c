#include "discovery/responder_worker.h"

#include "discovery/responder_loop.h"

namespace mdns_wrapper {

mDNSService& mDNSService::getInstance() {
  static SystemNetwork network;
  static mDNSService service(network);
  return service;
}

void mDNSService::setServiceInfo(const DNSServiceInfo& info) {
  const MutexLock lock(recordMutex_);
  if (info.id != info_.id) report_.clear();
  info_ = info;
  info_.txtvers = "1.0";
  setInstanceName(info.id);
}

void mDNSService::setServicePort(std::uint16_t port) {
  const MutexLock lock(recordMutex_);
  port_ = port;
}

mdns_service_info mDNSService::loopRecord() const {
  const MutexLock lock(recordMutex_);
  mdns_service_info record;
  record.hostname = instanceName();
  record.service = serviceType();
  record.port = static_cast<std::uint16_t>(port_);
  record.ipv4 = info_.ipv4;
  record.ipv6 = info_.ipv6;
  record.id = info_.id;
  record.ty = info_.ty;
  record.modules = info_.modules;
  record.url = info_.url;
  record.os = info_.os;
  record.txtvers = info_.txtvers;
  record.type = info_.type;
  record.acessmode = info_.accessMode;
  record.tags = info_.tags;
  return record;
}

void mDNSService::setUnicastLimit(std::size_t answersASecond) {
  const MutexLock lock(recordMutex_);
  unicastLimit_ = answersASecond;
}

void mDNSService::runMainLoop() {
  std::size_t limit = 0;
  {
    const MutexLock lock(recordMutex_);
    limit = unicastLimit_;
  }
  service_mdns(loopRecord(), stopRequest(), network_, &report_, limit);
}

}  // namespace mdns_wrapper
