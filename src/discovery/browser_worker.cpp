#include "discovery/browser_worker.h"

#include <algorithm>
#include <tuple>
#include <utility>

#include "discovery/browser_loop.h"

namespace mdns_wrapper {
namespace {

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
  const std::lock_guard lock(listMutex_);
  changed = changeStamp_ != reportedStamp_;
  reportedStamp_ = changeStamp_;
  return published_;
}

std::vector<SeenService> mDNSQueryService::getSeenServices() const {
  const std::lock_guard lock(listMutex_);
  std::vector<SeenService> seen;
  for (std::size_t i = 0; i < published_.size(); ++i) {
    seen.push_back({published_[i], publishedTimes_[i]});
  }
  return seen;
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
  builtTimes_.clear();
  builtInstances_.clear();
  clearAssembled();
}

void mDNSQueryService::clearAssembled() {
  assembled_.clear();
  assembledInstance_.clear();
  ignoresGroup_ = false;
}

void mDNSQueryService::commitAssembled() {
  if (assembled_.type != SERVICE_UNKNOWN) {
    const auto found = FindService(built_, assembled_);
    if (found != built_.end()) {
      builtTimes_[static_cast<std::size_t>(found - built_.begin())] = assembledTime_;
    } else {
      built_.push_back(assembled_);
      builtTimes_.push_back(assembledTime_);
      builtInstances_.push_back(assembledInstance_);
    }
  }
  clearAssembled();
}

void mDNSQueryService::takeRecord(const mdns_query_result& result) {
  const bool begins = result.entry == mdns_entry_type::answer;
  if (!result.goodbye) {
    addServiceInfo(readProvider(result), begins);
    if (begins) assembledInstance_ = result.instance;
  } else if (begins) {
    removeInstance(result.instance);
    ignoresGroup_ = true;
  }
}

void mDNSQueryService::removeInstance(std::string_view instance) {
  commitAssembled();
  for (std::size_t i = built_.size(); !instance.empty() && i-- > 0;) {
    if (!NamesEqual(builtInstances_[i], instance)) continue;
    const auto place = static_cast<std::ptrdiff_t>(i);
    built_.erase(built_.begin() + place);
    builtTimes_.erase(builtTimes_.begin() + place);
    builtInstances_.erase(builtInstances_.begin() + place);
  }
}

void mDNSQueryService::addServiceInfo(const DNSServiceInfo& record, bool newService) {
  if (newService) commitAssembled();
  if (ignoresGroup_) return;
  assembledTime_ = Time::clock::now();
  if (record.type != SERVICE_UNKNOWN) assembled_.type = record.type;
  Take(assembled_.ipv4, record.ipv4);
  Take(assembled_.ipv6, record.ipv6);
  Take(assembled_.url, record.url);
  Take(assembled_.ty, record.ty);
  Take(assembled_.txtvers, record.txtvers);
  Take(assembled_.id, record.id);
  Take(assembled_.modules, record.modules);
  Take(assembled_.os, record.os);
  if (record.accessMode != 0) assembled_.accessMode = record.accessMode;
}

void mDNSQueryService::endAddServiceInfo() {
  commitAssembled();
  // Nobody else changes the published list, so the lock is needed only to change it.
  const bool changed = ServiceInfosAreDifferent(published_, built_);
  std::vector<Time> times = builtTimes_;
  // The same services, in an order of their own.
  for (std::size_t i = 0; !changed && i < published_.size(); ++i) {
    const auto found = FindService(built_, published_[i]);
    times[i] = builtTimes_[static_cast<std::size_t>(found - built_.begin())];
  }
  {
    const std::lock_guard lock(listMutex_);
    publishedTimes_ = std::move(times);
    if (changed) {
      published_ = built_;
      const auto now = Time::clock::now().time_since_epoch();
      const auto stamp = std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
      // Two changes of one millisecond are still two.
      changeStamp_ = std::max<std::int64_t>(stamp, changeStamp_ + 1);
    }
  }
  if (changed && notification_) notification_(built_);
  beginAddServiceInfo();
}

}  // namespace mdns_wrapper
