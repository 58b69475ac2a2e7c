// The responder: advertises this machine's service while it runs.
#pragma once

#include <cstdint>

#include "discovery/network.h"
#include "discovery/responder_loop.h"
#include "discovery/service_info.h"
#include "discovery/worker.h"
#include "os/mutex.h"

namespace mdns_wrapper {

/// What is set holds from the next start. Any thread may call.
class mDNSService : public mDNSBase {
 public:
  /// The one that advertises on this machine's links.
  static mDNSService& getInstance();

  /// The network outlives the worker.
  explicit mDNSService(MdnsNetwork& network) : mDNSBase("service"), network_(network) {}
  ~mDNSService() override { stopForDestruction(); }

  /// The text format is "1.0" whatever the record says; its id, when it has one, becomes the
  /// instance name, otherwise that is the host's name.
  void setServiceInfo(const DNSServiceInfo& info);
  void setServicePort(std::uint16_t port);

  /// Answers to single askers in one second.
  void setUnicastLimit(std::size_t answersASecond);
  /// What becomes of advertising. Says nothing of a worker that is not running.
  const ResponderReport& report() const { return report_; }

  void runMainLoop() override;

 private:
  mdns_service_info loopRecord() const;

  MdnsNetwork& network_;
  mutable Mutex recordMutex_;
  DNSServiceInfo info_ QV_GUARDED_BY(recordMutex_);
  std::uint32_t port_ QV_GUARDED_BY(recordMutex_) = 42424;
  std::size_t unicastLimit_ QV_GUARDED_BY(recordMutex_) = MDNS_UNICAST_ANSWERS_A_SECOND;
  ResponderReport report_;
};

}  // namespace mdns_wrapper
