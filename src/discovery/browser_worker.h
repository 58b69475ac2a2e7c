// The browser: finds the services that other machines advertise, and keeps the list of them.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "discovery/network.h"
#include "discovery/reply_parser.h"
#include "discovery/service_info.h"
#include "discovery/worker.h"
#include "os/mutex.h"

namespace mdns_wrapper {

/// A service that the last complete cycle found, and when it last answered.
struct SeenService {
  DNSServiceInfo info;
  std::chrono::system_clock::time_point lastSeen;  ///< when its last record came
};

/// The list is that of the last complete cycle; it outlives stop and start. Any thread may call
/// what is not said to be the loop's.
class mDNSQueryService : public mDNSBase {
 public:
  using Notification = std::function<void(const ServiceList&)>;

  /// The one that browses this machine's links.
  static mDNSQueryService& getInstance();

  /// The network outlives the worker.
  explicit mDNSQueryService(MdnsNetwork& network) : mDNSBase("query"), network_(network) {}
  ~mDNSQueryService() override { stopForDestruction(); }

  /// A copy of the list. `changed` tells whether it is another one than the last caller got.
  ServiceList getServiceInfos(bool& changed);
  /// The same services with their times.
  std::vector<SeenService> getSeenServices() const;
  /// Called with each changed list, on the loop's thread and under no lock. Set before start.
  void setNotification(Notification notification) { notification_ = std::move(notification); }

  static std::string Serialize(const ServiceList& services);
  static ServiceList Deserialize(const std::string& bytes);

  /// What a received record tells about a service.
  static DNSServiceInfo readProvider(const mdns_query_result& result);
  /// Whether the list has an equal record. Tags do not count.
  static bool ServiceInfosExsts(const ServiceList& list, const DNSServiceInfo& record);
  /// Whether the lists differ in length, or one of the old records is not among the new ones.
  static bool ServiceInfosAreDifferent(const ServiceList& before, const ServiceList& now);

  // The loop's.
  void runMainLoop() override;
  /// `user` is the browser. Always returns 0.
  static int QueryResultCallback(void* user, const mdns_query_result& result, int code);
  void beginAddServiceInfo();
  /// Records of one service follow each other; the first of them begins a new one.
  void addServiceInfo(const DNSServiceInfo& record, bool newService);
  void endAddServiceInfo();

 private:
  struct Found {
    SeenService seen;
    std::string instance;  ///< the name of the service instance
  };
  static ServiceList InfosOf(const std::vector<SeenService>& services);

  /// A record with a lifetime of 0 takes its service off the list.
  void takeRecord(const mdns_query_result& result);
  void removeInstance(std::string_view instance);
  void commitAssembled();
  void clearAssembled();
  /// For the loop alone: nobody else changes the list, so the loop needs the lock only to change
  /// it.
  const std::vector<SeenService>& publishedByLoop() const QV_NOT_ANALYZED { return published_; }

  MdnsNetwork& network_;
  Notification notification_;

  // The loop's: what the current cycle found, and the service whose records come in.
  std::vector<Found> built_;
  Found assembled_;
  bool ignoresGroup_ = false;  ///< the first record of the group said goodbye

  mutable Mutex listMutex_;
  std::vector<SeenService> published_ QV_GUARDED_BY(listMutex_);
  std::int64_t changeStamp_ QV_GUARDED_BY(listMutex_) = 0;  ///< milliseconds since the epoch
  std::int64_t reportedStamp_ QV_GUARDED_BY(listMutex_) =
      0;  ///< the one that the last reader was told
};

}  // namespace mdns_wrapper
