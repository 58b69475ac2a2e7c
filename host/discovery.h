// Network discovery as this service uses it: the responder that advertises it, and the browser that
// looks for others. Both work with the stored settings.
//
// Any thread may call; the calls take turns. Stopping waits until the goodbye is sent.
#pragma once

#include <atomic>
#include <string>

#include "discovery/browser_worker.h"
#include "discovery/responder_worker.h"
#include "os/mutex.h"

namespace host {

class Discovery {
 public:
  /// The workers outlive this object.
  Discovery(mdns_wrapper::mDNSService& responder, mdns_wrapper::mDNSQueryService& browser)
      : responder_(responder), browser_(browser) {}
  ~Discovery() { StopAll(); }
  Discovery(const Discovery&) = delete;
  Discovery& operator=(const Discovery&) = delete;

  /// Each starts anew, with the stored settings, when these switch it on.
  void StartAdvertising();
  void StartBrowsing();
  /// Until the next start, or the next Watch if the settings switch it on.
  void StopAdvertising();
  void StopBrowsing();
  /// For good: nothing starts afterwards.
  void StopAll();

  /// What is advertised beside the settings: the port, 0 for none, and the aliases of the modules,
  /// separated by commas. When it changes the service is advertised anew; without a port it is not.
  void Describe(int port, const std::string& modules);
  /// To be called every few seconds: makes what runs what the settings say. Advertises anew when
  /// they or the machine's addresses have changed, and tries again what could not be done, for want
  /// of an interface or of a thread.
  void Watch();

  /// The services found, in the form in which they are handed to modules.
  std::string EncodedServices();
  /// What runs, and why what does not; another machine with this service's name; and the services
  /// found with the time at which each last answered. JSON text of several lines.
  std::string ServicesText();

 private:
  /// The first usable address of each family, "" for none.
  struct Addresses {
    std::string ipv4;
    std::string ipv6;

    bool none() const { return ipv4.empty() && ipv6.empty(); }
  };
  static Addresses AddressesNow();
  mdns_wrapper::DNSServiceInfo RecordWith(const Addresses& addresses) const QV_REQUIRES(mutex_);
  void Advertise(const Addresses& addresses) QV_REQUIRES(mutex_);
  void Browse() QV_REQUIRES(mutex_);
  std::string AdvertisingProblem() const;
  std::string BrowsingProblem() const;

  Mutex mutex_;
  mdns_wrapper::mDNSService& responder_;
  mdns_wrapper::mDNSQueryService& browser_;
  bool ended_ QV_GUARDED_BY(mutex_) = false;
  std::atomic<bool> advertising_ = false;  ///< what is switched on, whether it can be done or not
  std::atomic<bool> browsing_ = false;
  std::atomic<int> port_ = 0;
  std::string modules_ QV_GUARDED_BY(mutex_);
  mdns_wrapper::DNSServiceInfo advertised_ QV_GUARDED_BY(mutex_);
};

}  // namespace host
