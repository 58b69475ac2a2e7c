#include "host/discovery.h"

#include <json/value.h>
#include <sys/utsname.h>

#include <algorithm>
#include <system_error>

#include "environment/logging.h"
#include "environment/mdns_settings.h"
#include "environment/program_information.h"
#include "host/host_log.h"

namespace host {

namespace {

using mdns_wrapper::DNSServiceInfo;

constexpr const char* kNoAddress = "This machine has no network address.";

std::string SystemName() {
  utsname name{};
  return ::uname(&name) == 0 ? name.sysname : "";
}

/// The words that other implementations advertise.
const char* KindWord(std::int32_t type) {
  return type == mdns_wrapper::SERVICE_TWAIN_DIRECT ? "twaindirect" : "marvique_private_cloud_scan";
}

bool IsAtWork(const mdns_wrapper::mDNSBase& worker) {
  return worker.isRunning() && !worker.hasGivenUp();
}

/// The next Watch tries again.
void Start(mdns_wrapper::mDNSBase& worker) {
  try {
    worker.start();
  } catch (const std::system_error& problem) {
    LogErr("Discovery does not start: %s", problem.what());
  }
}

Json::Value ToJson(const mdns_wrapper::SeenService& seen) {
  const DNSServiceInfo& info = seen.info;
  Json::Value item(Json::objectValue);
  item["name"] = info.ty;
  item["kind"] = KindWord(info.type);
  item["id"] = info.id;
  item["url"] = info.url;
  item["ipv4"] = info.ipv4;
  item["ipv6"] = info.ipv6;
  item["modules"] = info.modules;
  item["os"] = info.os;
  item["password_protected"] = info.accessMode == mdns_wrapper::ACCESS_PASSWORD;
  item["text_version"] = info.txtvers;
  item["last_seen"] = IsoTime(seen.lastSeen);
  return item;
}

}  // namespace

Discovery::Addresses Discovery::AddressesNow() {
  Addresses addresses;
  if (const auto interfaces = mdns_wrapper::UsableInterfaces()) {
    if (const auto* ipv4 = FirstOf(*interfaces, AF_INET)) addresses.ipv4 = ipv4->addressText();
    if (const auto* ipv6 = FirstOf(*interfaces, AF_INET6)) addresses.ipv6 = ipv6->addressText();
  }
  return addresses;
}

DNSServiceInfo Discovery::RecordWith(const Addresses& addresses) const {
  DNSServiceInfo record;
  int accessMode = -1;
  GetEnablemDNSService(record.ty, record.tags, accessMode);
  record.accessMode = std::max(accessMode, mdns_wrapper::ACCESS_ANONYMOUS);
  record.type = mdns_wrapper::SERVICE_PRIVATE_CLOUD_SCAN;
  record.id = GetServiceGUID();
  record.modules = modules_;
  record.os = SystemName();
  record.ipv4 = addresses.ipv4;
  record.ipv6 = addresses.ipv6;
  return record;
}

void Discovery::Advertise(const Addresses& addresses) {
  responder_.stop();
  if (ended_ || !advertising_ || port_ == 0) return;
  advertised_ = RecordWith(addresses);
  responder_.setServiceInfo(advertised_);
  responder_.setServicePort(static_cast<std::uint16_t>(port_));
  responder_.setUnicastLimit(static_cast<std::size_t>(GetmDNSAnswersPerSecond()));
  Start(responder_);
}

void Discovery::Browse() {
  browser_.stop();
  if (!ended_ && browsing_) Start(browser_);
}

void Discovery::StartAdvertising() {
  const MutexLock lock(mutex_);
  advertising_ = GetEnablemDNSService();
  Advertise(AddressesNow());
}

void Discovery::StopAdvertising() {
  const MutexLock lock(mutex_);
  advertising_ = false;
  responder_.stop();
}

void Discovery::StartBrowsing() {
  const MutexLock lock(mutex_);
  browsing_ = GetEnablemDNSQueryService();
  Browse();
}

void Discovery::StopBrowsing() {
  const MutexLock lock(mutex_);
  browsing_ = false;
  browser_.stop();
}

void Discovery::StopAll() {
  const MutexLock lock(mutex_);
  ended_ = true;
  responder_.stop();
  browser_.stop();
}

void Discovery::Describe(int port, const std::string& modules) {
  const MutexLock lock(mutex_);
  if (port_ == port && modules_ == modules) return;
  port_ = port;
  modules_ = modules;
  Advertise(AddressesNow());
}

void Discovery::Watch() {
  const MutexLock lock(mutex_);
  if (ended_) return;
  // Of commands that come at once, the one that stored last wins.
  advertising_ = GetEnablemDNSService();
  browsing_ = GetEnablemDNSQueryService();
  if (!advertising_) responder_.stop();
  if (!browsing_) browser_.stop();
  if (!advertising_ && !browsing_) return;
  const Addresses now = AddressesNow();
  // Without any address both stay as they are, so that they are there when one comes back.
  if (now.none()) return;
  if (advertising_ && (!IsAtWork(responder_) || RecordWith(now) != advertised_)) Advertise(now);
  if (browsing_ && !IsAtWork(browser_)) Browse();
}

std::string Discovery::EncodedServices() {
  bool changed = false;
  return mdns_wrapper::mDNSQueryService::Serialize(browser_.getServiceInfos(changed));
}

std::string Discovery::AdvertisingProblem() const {
  if (!advertising_) return "It is switched off.";
  if (port_ == 0) return "The service has no TLS port.";
  if (AddressesNow().none()) return kNoAddress;
  const auto state = responder_.report().state();
  if (!state.problem.empty()) return state.problem;
  return state.announced && IsAtWork(responder_) ? "" : "It is starting.";
}

std::string Discovery::BrowsingProblem() const {
  if (!browsing_) return "It is switched off.";
  if (AddressesNow().none()) return kNoAddress;
  return IsAtWork(browser_) ? "" : "It is starting.";
}

std::string Discovery::ServicesText() {
  Json::Value root(Json::objectValue);
  const auto state = responder_.report().state();
  root["advertising"] = advertising_ && IsAtWork(responder_) && state.announced;
  if (const std::string problem = AdvertisingProblem(); !problem.empty()) {
    root["advertising_problem"] = problem;
  }
  if (state.rival) {
    root["same_name"]["address"] = state.rival->address;
    root["same_name"]["last_heard"] = IsoTime(state.rival->lastHeard);
  }
  const std::string browsingProblem = BrowsingProblem();
  root["browsing"] = browsingProblem.empty();
  if (!browsingProblem.empty()) root["browsing_problem"] = browsingProblem;
  root["services"] = Json::Value(Json::arrayValue);
  for (const auto& seen : browser_.getSeenServices()) root["services"].append(ToJson(seen));
  return root.toStyledString();
}

}  // namespace host
