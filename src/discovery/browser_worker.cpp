#include "discovery/browser_worker.h"

#include <algorithm>
#include <tuple>
#include <utility>

#include "discovery/browser_loop.h"

namespace mdns_wrapper {
namespace {

using Clock = std::chrono::system_clock;

/// What makes two records one service: everything but the tags.
auto Identity(const DNSServiceInfo& record) {
  return std::tie(record.ty, record.ipv4, record.ipv6, record.modules, record.os, record.type,
                  record.url, record.id, record.txtvers, record.accessMode);
}

ServiceList::const_iterator FindService(const ServiceList& list, const DNSServiceInfo& record) {
  return std::find_if(list.begin(), list.end(), [&](const DNSServiceInfo& other) {
    return Identity(other) == Identity(record);
  });
}

void Take(std::string& into, const std::string& from) {
  if (!from.empty()) into = from;
}

}  // namespace

mDNSQueryService& mDNSQueryService::getInstance() {
  static SystemNetwork network;
  static mDNSQueryService service(network);
  return service;
}

std::string mDNSQueryService::Serialize(const ServiceList& services) {
  return mdns_wrapper::Serialize(services);
}

ServiceList mDNSQueryService::Deserialize(const std::string& bytes) {
  return mdns_wrapper::Deserialize(bytes);
}

DNSServiceInfo mDNSQueryService::readProvider(const mdns_query_result& result) {
  return serviceInfoFromTxt(result.ipv4, result.ipv6, result.txt);
}

bool mDNSQueryService::ServiceInfosExsts(const ServiceList& list, const DNSServiceInfo& record) {
  return FindService(list, record) != list.end();
}

bool mDNSQueryService::ServiceInfosAreDifferent(const ServiceList& before, const ServiceList& now) {
  return before.size() != now.size() ||
         !std::all_of(before.begin(), before.end(),
                      [&](const DNSServiceInfo& record) { return ServiceInfosExsts(now, record); });
}

ServiceList mDNSQueryService::getServiceInfos(bool& changed) {
  const MutexLock lock(listMutex_);
  changed = changeStamp_ != reportedStamp_;
  reportedStamp_ = changeStamp_;
  return InfosOf(published_);
}

std::vector<SeenService> mDNSQueryService::getSeenServices() const {
  const MutexLock lock(listMutex_);
  return published_;
}

ServiceList mDNSQueryService::InfosOf(const std::vector<SeenService>& services) {
  ServiceList list;
  list.reserve(services.size());
  for (const SeenService& service : services) list.push_back(service.info);
  return list;
}

void mDNSQueryService::runMainLoop() {
  send_mdns_query(serviceType(), MDNS_TYPE_PTR, stopRequest(), this, &QueryResultCallback,
                  network_);
}

int mDNSQueryService::QueryResultCallback(void* user, const mdns_query_result& result, int code) {
  auto& browser = *static_cast<mDNSQueryService*>(user);
  switch (code) {
    case MDNS_CYCLE_BEGINS:
      browser.beginAddServiceInfo();
      break;
    case MDNS_RECORD_FOUND:
      browser.takeRecord(result);
      break;
    case MDNS_CYCLE_ENDS:
      // What a stop cut short is no list: the one before it stays.
      if (browser.shouldStop()) {
        browser.beginAddServiceInfo();
      } else {
        browser.endAddServiceInfo();
      }
      break;
  }
  return 0;
}

void mDNSQueryService::beginAddServiceInfo() {
  built_.clear();
  clearAssembled();
}

void mDNSQueryService::clearAssembled() {
  assembled_ = {};
  ignoresGroup_ = false;
}

void mDNSQueryService::commitAssembled() {
  if (const SeenService& service = assembled_.seen; service.info.type != SERVICE_UNKNOWN) {
    const auto found = std::find_if(built_.begin(), built_.end(), [&](const Found& other) {
      return Identity(other.seen.info) == Identity(service.info);
    });
    if (found != built_.end()) {
      found->seen.lastSeen = service.lastSeen;
    } else {
      built_.push_back(std::move(assembled_));
    }
  }
  clearAssembled();
}

void mDNSQueryService::takeRecord(const mdns_query_result& result) {
  const bool begins = result.entry == mdns_entry_type::answer;
  if (!result.goodbye) {
    addServiceInfo(readProvider(result), begins);
    if (begins) assembled_.instance = result.instance;
  } else if (begins) {
    removeInstance(result.instance);
    ignoresGroup_ = true;
  }
}

void mDNSQueryService::removeInstance(std::string_view instance) {
  commitAssembled();
  std::erase_if(built_, [&](const Found& found) {
    return !instance.empty() && NamesEqual(found.instance, instance);
  });
}

void mDNSQueryService::addServiceInfo(const DNSServiceInfo& record, bool newService) {
  if (newService) commitAssembled();
  if (ignoresGroup_) return;
  assembled_.seen.lastSeen = Clock::now();
  DNSServiceInfo& service = assembled_.seen.info;
  if (record.type != SERVICE_UNKNOWN) service.type = record.type;
  Take(service.ipv4, record.ipv4);
  Take(service.ipv6, record.ipv6);
  Take(service.url, record.url);
  Take(service.ty, record.ty);
  Take(service.txtvers, record.txtvers);
  Take(service.id, record.id);
  Take(service.modules, record.modules);
  Take(service.os, record.os);
  if (record.accessMode != 0) service.accessMode = record.accessMode;
}

void mDNSQueryService::endAddServiceInfo() {
  commitAssembled();
  std::vector<SeenService> now;
  for (Found& found : built_) now.push_back(std::move(found.seen));
  const ServiceList list = InfosOf(now);
  const std::vector<SeenService>& before = publishedByLoop();
  const bool changed = ServiceInfosAreDifferent(InfosOf(before), list);
  // The same services, in an order of their own, stay in the one that was published.
  for (std::size_t i = 0; !changed && i < before.size(); ++i) {
    const auto found = FindService(list, before[i].info);
    const Clock::time_point lastSeen = now[static_cast<std::size_t>(found - list.begin())].lastSeen;
    const MutexLock lock(listMutex_);
    published_[i].lastSeen = lastSeen;
  }
  if (changed) {
    const MutexLock lock(listMutex_);
    published_ = std::move(now);
    const auto time = Clock::now().time_since_epoch();
    const auto stamp = std::chrono::duration_cast<std::chrono::milliseconds>(time).count();
    // Two changes of one millisecond are still two.
    changeStamp_ = std::max<std::int64_t>(stamp, changeStamp_ + 1);
  }
  if (changed && notification_) notification_(list);
  beginAddServiceInfo();
}

}  // namespace mdns_wrapper
