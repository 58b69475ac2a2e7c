// Network discovery as this service uses it: the responder that advertises it, and the browser that
// looks for others. Both work with the stored settings.
//
// Any thread may call; the calls take turns. Stopping waits until the goodbye is sent.
#pragma once

#include <mutex>
#include <string>

#include "discovery/browser.h"
#include "discovery/responder.h"

namespace host {

class Discovery {
 public:
  /// The workers outlive this object.
  Discovery(mdns_wrapper::mDNSService& responder, mdns_wrapper::mDNSQueryService& browser)
      : responder_(responder), browser_(browser) {}
  ~Discovery() { StopAll(); }
  Discovery(const Discovery&) = delete;
  Discovery& operator=(const Discovery&) = delete;

  void StartAdvertising();
  void StopAdvertising();
  void StartBrowsing();
  void StopBrowsing();

  /// Starts what the settings switch on.
  void StartAsStored();
  /// For good: nothing starts afterwards.
  void StopAll();

  /// What is advertised beside the settings: the port and the aliases of the modules, separated by
  /// commas. When it changes, the service is advertised anew.
  void Describe(int port, const std::string& modules);
  /// To be called every few seconds. Advertises anew when the machine's addresses have changed, and
  /// starts again what gave up for want of an interface.
  void Watch();

  /// The services found, in the form in which they are handed to modules.
  std::string EncodedServices();
  /// What is switched on, and the services found with the time at which each last answered, as JSON
  /// text of several lines.
  std::string ServicesText();

 private:
  mdns_wrapper::DNSServiceInfo RecordNow() const;
  void Advertise();

  std::mutex mutex_;
  mdns_wrapper::mDNSService& responder_;
  mdns_wrapper::mDNSQueryService& browser_;
  bool ended_ = false;
  int port_ = 0;
  std::string modules_;
  mdns_wrapper::DNSServiceInfo advertised_;
};

}  // namespace host
