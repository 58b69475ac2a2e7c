#include "host/health.h"

#include <json/value.h>

#include "host/host_log.h"

namespace host {

namespace {

/// Of docs/commands.schema.json, which says when it is raised.
constexpr int kApiVersion = 1;

}  // namespace

std::string HealthText(const Health& health) {
  using std::chrono::duration_cast, std::chrono::seconds, std::chrono::system_clock;
  Json::Value root(Json::objectValue);
  root["apiVersion"] = kApiVersion;
  root["name"] = health.name;
  root["version"] = health.version;
  root["build"] = health.build;
  root["pid"] = health.pid;
  root["started"] = IsoTime(health.started);
  root["uptime_seconds"] =
      Json::Int64(duration_cast<seconds>(system_clock::now() - health.started).count());
  root["connections"] = Json::UInt64(health.connections);

  bool busy = false;
  root["modules"] = Json::Value(Json::arrayValue);
  for (const ModuleHealth& module : health.modules) {
    Json::Value item(Json::objectValue);
    item["alias"] = module.alias;
    item["description"] = module.description;
    root["modules"].append(item);
    busy = busy || module.busy;
  }
  root["busy"] = busy;

  root["ports"] = Json::Value(Json::arrayValue);
  for (const PortState& port : health.ports) {
    Json::Value item(Json::objectValue);
    item["module"] = port.alias;
    item["secure"] = port.secure;
    item["requested"] = port.requested;
    item["actual"] = port.actual;
    item["addresses"] = Json::Value(Json::arrayValue);
    for (const std::string& address : port.addresses) item["addresses"].append(address);
    item["state"] = port.problem.empty() ? "listening" : port.problem;
    root["ports"].append(item);
  }

  root["certificate"] = Json::Value();
  if (health.certificate) {
    Json::Value item(Json::objectValue);
    item["subject"] = health.certificate->subject;
    item["not_before"] = IsoTime(health.certificate->notBefore);
    item["not_after"] = IsoTime(health.certificate->notAfter);
    root["certificate"] = item;
  }

  const package::UpdateRecord& update = health.update;
  root["update"]["state"] = StateName(update.state);
  root["update"]["version"] = update.version;
  root["update"]["reason"] = update.reason;
  root["update"]["time"] = Json::Value();
  if (update.state != package::UpdateRecord::State::Idle) {
    root["update"]["time"] = IsoTime(update.time);
  }
  root["update"]["packages"] = health.packages;
  return root.toStyledString();
}

}  // namespace host
