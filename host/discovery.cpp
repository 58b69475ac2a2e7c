#include "host/discovery.h"

#include <json/value.h>
#include <sys/utsname.h>

#include <algorithm>

#include "environment/mdns_settings.h"
#include "environment/program_information.h"
#include "host/certificate.h"

namespace host {

namespace {

using mdns_wrapper::DNSServiceInfo;

std::string SystemName() {
  utsname name{};
  return ::uname(&name) == 0 ? name.sysname : "";
}

/// The words that other implementations advertise.
const char* KindWord(std::int32_t type) {
  return type == mdns_wrapper::SERVICE_TWAIN_DIRECT ? "twaindirect" : "marvique_private_cloud_scan";
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

DNSServiceInfo Discovery::RecordNow() const {
  DNSServiceInfo record;
  int accessMode = -1;
  GetEnablemDNSService(record.ty, record.tags, accessMode);
  record.accessMode = std::max(accessMode, mdns_wrapper::ACCESS_ANONYMOUS);
  record.type = mdns_wrapper::SERVICE_PRIVATE_CLOUD_SCAN;
  record.id = GetServiceGUID();
  record.modules = modules_;
  record.os = SystemName();
  if (const auto interfaces = mdns_wrapper::UsableInterfaces()) {
    if (const auto* ipv4 = FirstOf(*interfaces, AF_INET)) record.ipv4 = ipv4->addressText();
    if (const auto* ipv6 = FirstOf(*interfaces, AF_INET6)) record.ipv6 = ipv6->addressText();
  }
  return record;
}

void Discovery::Advertise() {
  responder_.stop();
  advertised_ = RecordNow();
  responder_.setServiceInfo(advertised_);
  responder_.setServicePort(static_cast<std::uint16_t>(port_));
  responder_.start();
}

void Discovery::StartAdvertising() {
  const std::lock_guard lock(mutex_);
  if (!ended_) Advertise();
}

void Discovery::StopAdvertising() {
  const std::lock_guard lock(mutex_);
  responder_.stop();
}

void Discovery::StartBrowsing() {
  const std::lock_guard lock(mutex_);
  if (!ended_) browser_.start();
}

void Discovery::StopBrowsing() {
  const std::lock_guard lock(mutex_);
  browser_.stop();
}

void Discovery::StartAsStored() {
  std::string alias, tags;
  int accessMode = -1;
  if (GetEnablemDNSService(alias, tags, accessMode)) StartAdvertising();
  if (GetEnablemDNSQueryService()) StartBrowsing();
}

void Discovery::StopAll() {
  const std::lock_guard lock(mutex_);
  ended_ = true;
  responder_.stop();
  browser_.stop();
}

void Discovery::Describe(int port, const std::string& modules) {
  const std::lock_guard lock(mutex_);
  if (port_ == port && modules_ == modules) return;
  port_ = port;
  modules_ = modules;
  if (responder_.isRunning()) Advertise();
}

void Discovery::Watch() {
  const std::lock_guard lock(mutex_);
  if (ended_) return;
  if (responder_.isRunning()) {
    const DNSServiceInfo now = RecordNow();
    const bool moved = now.ipv4 != advertised_.ipv4 || now.ipv6 != advertised_.ipv6;
    // Without any address the responder stays, so that it is there when one comes back.
    const bool connected = !now.ipv4.empty() || !now.ipv6.empty();
    if (connected && (moved || responder_.hasGivenUp())) Advertise();
  }
  if (browser_.hasGivenUp()) {
    const auto interfaces = mdns_wrapper::UsableInterfaces();
    if (interfaces && !interfaces->empty()) {
      browser_.stop();
      browser_.start();
    }
  }
}

std::string Discovery::EncodedServices() {
  bool changed = false;
  return mdns_wrapper::mDNSQueryService::Serialize(browser_.getServiceInfos(changed));
}

std::string Discovery::ServicesText() {
  Json::Value root(Json::objectValue);
  root["advertising"] = responder_.isRunning();
  root["browsing"] = browser_.isRunning();
  root["services"] = Json::Value(Json::arrayValue);
  for (const auto& seen : browser_.getSeenServices()) root["services"].append(ToJson(seen));
  return root.toStyledString();
}

}  // namespace host
